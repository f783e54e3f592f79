#include "support/yamlreader.h"

namespace {

bool isSequenceItem(const QString &text)
{
    return text == QLatin1String("-") || text.startsWith(QLatin1String("- "));
}

// Index of the closing quote of a quoted text that starts at 0, or -1.
int closingQuote(const QString &text)
{
    const QChar quote = text.at(0);
    for (int i = 1; i < text.size(); ++i) {
        if (quote == QLatin1Char('"') && text.at(i) == QLatin1Char('\\')) {
            ++i;
        } else if (text.at(i) == quote) {
            if (quote == QLatin1Char('\'') && i + 1 < text.size() && text.at(i + 1) == quote)
                ++i;  // '' inside single quotes
            else
                return i;
        }
    }
    return -1;
}

// Where the ':' of "key: value" or "key:" stands, or -1 when the text is no mapping entry.
int keyColon(const QString &text)
{
    if (text.startsWith(QLatin1Char('"')) || text.startsWith(QLatin1Char('\''))) {
        const int end = closingQuote(text);
        if (end < 0 || end + 1 >= text.size() || text.at(end + 1) != QLatin1Char(':'))
            return -1;
        return end + 1 + 1 == text.size() || text.at(end + 2) == QLatin1Char(' ') ? end + 1 : -1;
    }
    if (text.startsWith(QLatin1Char('[')) || text.startsWith(QLatin1Char('{')))
        return -1;
    const int colon = text.indexOf(QLatin1String(": "));
    if (colon >= 0)
        return colon;
    return text.endsWith(QLatin1Char(':')) ? text.size() - 1 : -1;
}

} // namespace

QVariant YamlReader::parse(const QByteArray &text)
{
    m_lines.clear();
    m_error.clear();
    m_pos = 0;
    m_raw = QString::fromUtf8(text).split(QLatin1Char('\n'));
    for (int i = 0; i < m_raw.size(); ++i) {
        QString raw = m_raw.at(i);
        if (raw.endsWith(QLatin1Char('\r')))
            raw.chop(1);
        m_raw[i] = raw;
        int indent = 0;
        while (indent < raw.size() && raw.at(indent) == QLatin1Char(' '))
            ++indent;
        if (indent < raw.size() && raw.at(indent) == QLatin1Char('\t'))
            return fail(i + 1, QStringLiteral("tab in the indentation"));
        QString content = raw.mid(indent);
        while (content.endsWith(QLatin1Char(' ')) || content.endsWith(QLatin1Char('\t')))
            content.chop(1);
        m_lines.append({i + 1, indent, content});
    }
    if (!nextSignificant())
        return fail(1, QStringLiteral("empty document"));
    if (m_lines.at(m_pos).indent != 0)
        return fail(m_lines.at(m_pos).number, QStringLiteral("the document does not start at column 1"));
    const QVariant document = block(0);
    if (!m_error.isEmpty())
        return QVariant();
    if (nextSignificant())
        return fail(m_lines.at(m_pos).number, QStringLiteral("unexpected indentation"));
    return document;
}

bool YamlReader::nextSignificant()
{
    while (m_pos < m_lines.size()
           && (m_lines.at(m_pos).text.isEmpty() || m_lines.at(m_pos).text.startsWith(QLatin1Char('#'))))
        ++m_pos;
    return m_pos < m_lines.size();
}

QVariant YamlReader::block(int minIndent)
{
    if (!nextSignificant() || m_lines.at(m_pos).indent < minIndent)
        return QVariant();  // "key:" with nothing below is null
    const Line &line = m_lines.at(m_pos);
    return isSequenceItem(line.text) ? sequence(line.indent) : mapping(line.indent);
}

QVariant YamlReader::mapping(int indent)
{
    QVariantMap map;
    while (m_error.isEmpty() && nextSignificant()) {
        const Line line = m_lines.at(m_pos);
        if (line.indent < indent)
            break;
        if (line.indent > indent)
            return fail(line.number, QStringLiteral("unexpected indentation"));
        if (isSequenceItem(line.text))
            return fail(line.number, QStringLiteral("a sequence item where a key was expected"));
        const int colon = keyColon(line.text);
        if (colon < 0)
            return fail(line.number, QStringLiteral("expected 'key: value'"));
        const QString rawKey = line.text.left(colon);
        const QVariant key = rawKey.startsWith(QLatin1Char('"')) || rawKey.startsWith(QLatin1Char('\''))
            ? quoted(rawKey, line.number) : QVariant(rawKey.trimmed());
        if (!m_error.isEmpty())
            return QVariant();
        if (key.toString().isEmpty())
            return fail(line.number, QStringLiteral("empty key"));
        if (map.contains(key.toString()))
            return fail(line.number, QStringLiteral("duplicate key '%1'").arg(key.toString()));
        const QString value = line.text.mid(colon + 1).trimmed();
        ++m_pos;
        if (value.isEmpty() || value.startsWith(QLatin1Char('#')))
            map.insert(key.toString(), block(indent + 1));
        else if (QStringList{"|", "|-", ">", ">-"}.contains(value))
            map.insert(key.toString(), blockScalar(value, indent));
        else
            map.insert(key.toString(), inlineValue(value, line.number));
    }
    return m_error.isEmpty() ? QVariant(map) : QVariant();
}

QVariant YamlReader::sequence(int indent)
{
    QVariantList list;
    while (m_error.isEmpty() && nextSignificant()) {
        Line &line = m_lines[m_pos];
        if (line.indent < indent)
            break;
        if (line.indent > indent)
            return fail(line.number, QStringLiteral("unexpected indentation"));
        if (!isSequenceItem(line.text))
            return fail(line.number, QStringLiteral("expected a '- ' item"));
        const QString rest = line.text.mid(1).trimmed();
        if (rest.isEmpty() || rest.startsWith(QLatin1Char('#'))) {
            ++m_pos;
            list.append(block(indent + 1));
        } else if (keyColon(rest) >= 0 || isSequenceItem(rest)) {
            // The item's content stands where its text begins: read it from there.
            line.indent += line.text.size() - rest.size();
            line.text = rest;
            list.append(isSequenceItem(rest) ? sequence(line.indent) : mapping(line.indent));
        } else {
            ++m_pos;
            list.append(inlineValue(rest, line.number));
        }
    }
    return m_error.isEmpty() ? QVariant(list) : QVariant();
}

QVariant YamlReader::blockScalar(const QString &style, int parentIndent)
{
    QStringList lines;
    int contentIndent = -1;
    while (m_pos < m_lines.size()) {
        const Line &line = m_lines.at(m_pos);
        if (!line.text.isEmpty()) {
            if (contentIndent < 0)
                contentIndent = line.indent;
            if (line.indent < contentIndent)
                break;
        }
        lines.append(line.text.isEmpty() ? QString() : m_raw.at(line.number - 1).mid(contentIndent));
        ++m_pos;
    }
    if (contentIndent <= parentIndent)
        return fail(m_pos < m_lines.size() ? m_lines.at(m_pos).number : m_lines.size(),
                    QStringLiteral("a block scalar needs indented lines"));
    while (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    QString text;
    if (style.startsWith(QLatin1Char('|'))) {
        text = lines.join(QLatin1Char('\n'));
    } else {
        for (const QString &line : lines)
            text += line.isEmpty() ? QStringLiteral("\n") : (text.isEmpty() || text.endsWith(QLatin1Char('\n')) ? line : QLatin1Char(' ') + line);
    }
    if (!style.endsWith(QLatin1Char('-')))
        text += QLatin1Char('\n');
    return text;
}

QVariant YamlReader::inlineValue(const QString &text, int lineNumber)
{
    if (text.startsWith(QLatin1Char('"')) || text.startsWith(QLatin1Char('\'')))
        return quoted(text, lineNumber);
    if (text == QLatin1String("{}"))
        return QVariantMap();
    if (text.startsWith(QLatin1Char('{')))
        return fail(lineNumber, QStringLiteral("flow mappings other than {} are not in the subset"));
    if (text.startsWith(QLatin1Char('['))) {
        if (!text.endsWith(QLatin1Char(']')))
            return fail(lineNumber, QStringLiteral("unterminated flow sequence"));
        QVariantList list;
        const QString inner = text.mid(1, text.size() - 2).trimmed();
        if (inner.isEmpty())
            return list;
        for (const QString &item : inner.split(QLatin1Char(','))) {
            const QString trimmed = item.trimmed();
            if (trimmed.isEmpty() || trimmed.startsWith(QLatin1Char('[')) || trimmed.startsWith(QLatin1Char('{'))
                || trimmed.contains(QLatin1Char('"')) || trimmed.contains(QLatin1Char('\'')))
                return fail(lineNumber, QStringLiteral("flow sequences hold plain scalars only"));
            list.append(inlineValue(trimmed, lineNumber));
        }
        return list;
    }
    QString plain = text;
    const int comment = plain.indexOf(QLatin1String(" #"));
    if (comment >= 0)
        plain = plain.left(comment).trimmed();
    if (QStringLiteral("&*!|>%@`]}").contains(plain.at(0)))
        return fail(lineNumber, QStringLiteral("'%1' cannot start a plain scalar").arg(plain.at(0)));
    if (plain.contains(QLatin1String(": ")) || plain.endsWith(QLatin1Char(':')))
        return fail(lineNumber, QStringLiteral("': ' inside a plain scalar"));
    return plain == QLatin1String("null") || plain == QLatin1String("~") ? QVariant() : QVariant(plain);
}

QVariant YamlReader::quoted(const QString &text, int lineNumber)
{
    const int end = closingQuote(text);
    if (end < 0)
        return fail(lineNumber, QStringLiteral("unterminated quoted scalar"));
    const QString after = text.mid(end + 1).trimmed();
    if (!after.isEmpty() && !after.startsWith(QLatin1Char('#')) && !after.startsWith(QLatin1Char(':')))
        return fail(lineNumber, QStringLiteral("text after a quoted scalar"));
    const QString inner = text.mid(1, end - 1);
    if (text.at(0) == QLatin1Char('\''))
        return QString(inner).replace(QLatin1String("''"), QLatin1String("'"));
    QString out;
    for (int i = 0; i < inner.size(); ++i) {
        if (inner.at(i) != QLatin1Char('\\')) {
            out += inner.at(i);
            continue;
        }
        const QChar escaped = inner.at(++i);
        switch (escaped.unicode()) {
        case 'n': out += QLatin1Char('\n'); break;
        case 't': out += QLatin1Char('\t'); break;
        case '"': case '\\': case '/': out += escaped; break;
        case 'u': out += QChar(inner.mid(i + 1, 4).toUShort(nullptr, 16)); i += 4; break;
        default: return fail(lineNumber, QStringLiteral("unknown escape '\\%1'").arg(escaped));
        }
    }
    return out;
}

QVariant YamlReader::fail(int lineNumber, const QString &reason)
{
    if (m_error.isEmpty())
        m_error = QStringLiteral("line %1: %2").arg(lineNumber).arg(reason);
    return QVariant();
}

#include "response/jsonwriter.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QLocale>
#include <QVariant>

#include <cmath>
#include <cstring>
#include <ctime>
#include <limits>

namespace {

char hexDigit(uint value)
{
    return char(value < 10 ? '0' + value : 'a' + value - 10);
}

// An ASCII character Qt writes inside a string as it is; so are all of UTF-8's other bytes.
inline bool isPlain(uint byte)
{
    return byte >= 0x20 && byte != '"' && byte != '\\';
}

// One ASCII character that is not plain, as Qt escapes it.
void escapedAscii(uchar byte, char *&out)
{
    *out++ = '\\';
    switch (byte) {
    case '"': *out++ = '"'; break;
    case '\\': *out++ = '\\'; break;
    case '\b': *out++ = 'b'; break;
    case '\f': *out++ = 'f'; break;
    case '\n': *out++ = 'n'; break;
    case '\r': *out++ = 'r'; break;
    case '\t': *out++ = 't'; break;
    default:
        *out++ = 'u';
        *out++ = '0';
        *out++ = '0';
        *out++ = hexDigit(byte >> 4);
        *out++ = hexDigit(byte & 0xf);
    }
}

} // namespace

bool isWellFormedUtf8(const char *bytes, int size)
{
    const auto *in = reinterpret_cast<const uchar *>(bytes);
    const uchar *const end = in + size;
    while (in != end) {
        // Eight ASCII bytes at a time: most of every body.
        quint64 eight;
        while (end - in >= 8 && (memcpy(&eight, in, 8), (eight & Q_UINT64_C(0x8080808080808080)) == 0))
            in += 8;
        if (in == end)
            break;
        const uchar lead = *in++;
        if (lead < 0x80)
            continue;
        int more;
        uchar low = 0x80, high = 0xbf;  // the range of the second byte
        if (lead >= 0xc2 && lead <= 0xdf) {
            more = 1;
        } else if (lead >= 0xe0 && lead <= 0xef) {
            more = 2;
            if (lead == 0xe0)
                low = 0xa0;
            else if (lead == 0xed)
                high = 0x9f;
        } else if (lead >= 0xf0 && lead <= 0xf4) {
            more = 3;
            if (lead == 0xf0)
                low = 0x90;
            else if (lead == 0xf4)
                high = 0x8f;
        } else {
            return false;
        }
        if (end - in < more || *in < low || *in > high)
            return false;
        for (++in, --more; more > 0; --more, ++in) {
            if ((*in & 0xc0) != 0x80)
                return false;
        }
    }
    return true;
}

JsonWriter::JsonWriter(bool indented)
    : m_indented(indented)
{
}

void JsonWriter::beginObject()
{
    open('{');
}

void JsonWriter::endObject()
{
    close('}');
}

void JsonWriter::beginArray()
{
    open('[');
}

void JsonWriter::endArray()
{
    close(']');
}

JsonWriter &JsonWriter::key(const QString &name)
{
#ifndef QT_NO_DEBUG
    checkKeyOrder(name);
#endif
    beforeValue();
    put('"');
    escaped(name);
    afterKey();
    return *this;
}

void JsonWriter::null()
{
    beforeValue();
    put("null");
}

void JsonWriter::boolean(bool value)
{
    beforeValue();
    if (value)
        put("true");
    else
        put("false");
}

void JsonWriter::number(double value)
{
    beforeValue();
    QByteArray text;
    if (!std::isfinite(value)) {
        put("null");
        return;
    } else if (value != std::trunc(value) || std::fabs(value) >= 0x1p64) {
        // Qt takes the shorter of the plain and the exponent form here.
        text = QByteArray::number(value, 'g', QLocale::FloatingPointShortest);
    } else if (std::fabs(value) < 0x1p53) {
        // Whole numbers, most of what rows hold, exactly; -0.0 becomes 0 as in Qt.
        putInteger(qint64(value));
        return;
    } else {
        // Whole numbers below 2^64 never in exponent form: 1e19 is 10000000000000000000.
        text = QByteArray::number(value, 'f', QLocale::FloatingPointShortest);
    }
    put(text.constData(), text.size());
}

void JsonWriter::integer(qint64 value)
{
    if (value <= -(Q_INT64_C(1) << 53) || value >= (Q_INT64_C(1) << 53))
        return number(double(value));  // rounded as a double is
    beforeValue();
    putInteger(value);
}

void JsonWriter::putInteger(qint64 value)
{
    char digits[24];
    char *const end = digits + sizeof digits;
    char *first = end;
    quint64 magnitude = value < 0 ? 0 - quint64(value) : quint64(value);
    do {
        *--first = char('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (value < 0)
        *--first = '-';
    put(first, int(end - first));
}

void JsonWriter::string(const QString &value)
{
    beforeValue();
    put('"');
    escaped(value);
    put('"');
}

bool JsonWriter::plainUtf8String(const char *bytes, int size)
{
    const auto *in = reinterpret_cast<const uchar *>(bytes);
    if (!isWellFormedUtf8(bytes, size) || (size >= 3 && in[0] == 0xef && in[1] == 0xbb && in[2] == 0xbf))
        return false;
    beforeValue();
    // Room for the worst case, every byte escaped as \uXXXX; cut back to what was written.
    char *const start = room(6 * size + 2);
    char *out = start;
    *out++ = '"';
    for (const uchar *const end = in + size; in != end; ++in) {
        if (isPlain(*in))
            *out++ = char(*in);  // non-ASCII too: the character's own UTF-8, as Qt writes it
        else
            escapedAscii(*in, out);
    }
    *out++ = '"';
    m_used += int(out - start);
    return true;
}

void JsonWriter::variant(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        null();
        break;
    case QMetaType::Bool:
        boolean(value.toBool());
        break;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::Double:
        number(value.toDouble());
        break;
    case QMetaType::QString:
        string(value.toString());
        break;
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        beginObject();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            key(it.key());
            variant(it.value());
        }
        endObject();
        break;
    }
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        beginArray();
        for (const QVariant &item : list)
            variant(item);
        endArray();
        break;
    }
    default:
        // Dates, bytes and the rest: converted by Qt itself, as a value inside a list is.
        jsonValue(QJsonArray::fromVariantList({value}).first());
        break;
    }
}

void JsonWriter::stored(const QVariant &value)
{
    if (value.isNull())
        null();
    else
        variant(value);
}

void JsonWriter::jsonValue(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        boolean(value.toBool());
        break;
    case QJsonValue::Double:
        number(value.toDouble());
        break;
    case QJsonValue::String:
        string(value.toString());
        break;
    case QJsonValue::Array: {
        beginArray();
        for (const QJsonValue &item : value.toArray())
            jsonValue(item);
        endArray();
        break;
    }
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        beginObject();
        for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
            key(it.key());
            jsonValue(it.value());
        }
        endObject();
        break;
    }
    default:
        null();
        break;
    }
}

void JsonWriter::localTime(qint64 secs, TimeFormat format)
{
    // Within these years QDateTime takes the local time from localtime_r as well; it reads
    // the zone again on every call, a writer once.
    if (!m_zoneRead) {
        tzset();
        m_zoneRead = true;
    }
    const time_t time = time_t(secs);
    if (!m_haveLast || secs != m_lastSecs) {
        m_haveLast = secs >= 0 && secs <= std::numeric_limits<qint32>::max() && localtime_r(&time, &m_lastLocal);
        m_lastSecs = secs;
    }
    const tm &local = m_lastLocal;
    if (!m_haveLast) {
        const QDateTime dateTime = QDateTime::fromSecsSinceEpoch(secs);
        string(format == IsoDate       ? dateTime.date().toString(Qt::ISODate)
                   : format == IsoDateTime ? dateTime.toString(Qt::ISODate)
                                           : dateTime.toString(QStringLiteral("yyyy.MM.dd hh:mm:ss")));
        return;
    }
    char text[21];
    char *out = text;
    const auto digits = [&out](int value, int count) {
        for (int i = count - 1; i >= 0; --i, value /= 10)
            out[i] = char('0' + value % 10);
        out += count;
    };
    const char dateSeparator = format == DottedDateTime ? '.' : '-';
    *out++ = '"';
    digits(local.tm_year + 1900, 4);
    *out++ = dateSeparator;
    digits(local.tm_mon + 1, 2);
    *out++ = dateSeparator;
    digits(local.tm_mday, 2);
    if (format != IsoDate) {
        *out++ = format == IsoDateTime ? 'T' : ' ';
        digits(local.tm_hour, 2);
        *out++ = ':';
        digits(local.tm_min, 2);
        *out++ = ':';
        digits(local.tm_sec, 2);
    }
    *out++ = '"';
    beforeValue();
    put(text, int(out - text));
}

QByteArray JsonWriter::take()
{
    m_counts.clear();
#ifndef QT_NO_DEBUG
    m_lastKeys.clear();
#endif
    m_afterKey = false;
    m_out.resize(m_used);
    m_used = 0;
    m_buffer = nullptr;
    QByteArray out;
    out.swap(m_out);
    return out;
}

QVariant JsonWriter::takeBody()
{
    return QVariant::fromValue(JsonText{take()});
}

void JsonWriter::open(char bracket)
{
    beforeValue();
    put(bracket);
    if (m_indented)
        put('\n');
    m_counts.push_back(0);
#ifndef QT_NO_DEBUG
    m_lastKeys.append(QString());
#endif
}

void JsonWriter::close(char bracket)
{
#ifndef QT_NO_DEBUG
    m_lastKeys.removeLast();
#endif
    const int count = m_counts.back();
    m_counts.pop_back();
    if (count > 0 && m_indented)
        put('\n');
    indent(int(m_counts.size()));
    put(bracket);
    if (m_counts.empty() && m_indented)
        put('\n');
}

void JsonWriter::grow(int size)
{
    m_out.resize(qMax(2 * m_out.size(), m_used + size + 4096));
    m_buffer = m_out.data();
}

void JsonWriter::afterKey()
{
    if (m_indented)
        put("\": ");
    else
        put("\":");
    m_afterKey = true;
}

#ifndef QT_NO_DEBUG
void JsonWriter::checkKeyOrder(const QString &name)
{
    // A QVariantMap's order, which the bytes on the wire have always had.
    Q_ASSERT_X(m_counts.back() == 0 || m_lastKeys.last() < name, "JsonWriter::key", qPrintable(name));
    m_lastKeys.last() = name;
}
#endif

void JsonWriter::escaped(const QString &text)
{
    // Room for the worst case, every unit escaped as \uXXXX; cut back to what was written.
    char *const start = room(6 * text.size());
    char *out = start;
    const ushort *in = text.utf16();
    const ushort *const end = in + text.size();
    while (in != end) {
        const uint u = *in++;
        if (u < 0x80) {
            if (isPlain(u))
                *out++ = char(u);
            else
                escapedAscii(uchar(u), out);
        } else if (u < 0x800) {
            *out++ = char(0xc0 | (u >> 6));
            *out++ = char(0x80 | (u & 0x3f));
        } else if (!QChar::isSurrogate(u)) {
            *out++ = char(0xe0 | (u >> 12));
            *out++ = char(0x80 | ((u >> 6) & 0x3f));
            *out++ = char(0x80 | (u & 0x3f));
        } else if (QChar::isHighSurrogate(u) && in != end && QChar::isLowSurrogate(*in)) {
            const uint ucs4 = QChar::surrogateToUcs4(ushort(u), *in++);
            *out++ = char(0xf0 | (ucs4 >> 18));
            *out++ = char(0x80 | ((ucs4 >> 12) & 0x3f));
            *out++ = char(0x80 | ((ucs4 >> 6) & 0x3f));
            *out++ = char(0x80 | (ucs4 & 0x3f));
        } else {
            // A lone surrogate has no UTF-8 form: Qt writes its escape.
            *out++ = '\\';
            *out++ = 'u';
            for (int shift = 12; shift >= 0; shift -= 4)
                *out++ = hexDigit((u >> shift) & 0xf);
        }
    }
    m_used += int(out - start);
}

#ifndef YAMLREADER_H
#define YAMLREADER_H

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

// Reads the block subset of YAML that docs/openapi.yaml keeps to, since Qt has no YAML
// parser: indented mappings and "- " sequences, plain and quoted scalars, "|" and ">" block
// scalars, flow sequences of scalars, "{}" and comments. Whatever a YAML parser would refuse
// or read otherwise (tabs, uneven indentation, duplicate keys, ": " in a plain scalar, an
// open quote) is an error here too. Mappings become QVariantMap, sequences QVariantList,
// null and ~ null, other scalars QString.
class YamlReader
{
public:
    // The document; an invalid QVariant on error, with the reason in error().
    QVariant parse(const QByteArray &text);
    QString error() const { return m_error; }

private:
    struct Line
    {
        int number;
        int indent;
        QString text;  // without the indentation
    };

    bool nextSignificant();  // skips blank and comment lines; false at the end
    QVariant block(int minIndent);
    QVariant mapping(int indent);
    QVariant sequence(int indent);
    QVariant blockScalar(const QString &style, int parentIndent);
    QVariant inlineValue(const QString &text, int lineNumber);
    QVariant quoted(const QString &text, int lineNumber);
    QVariant fail(int lineNumber, const QString &reason);

    QVector<Line> m_lines;
    QStringList m_raw;
    int m_pos = 0;
    QString m_error;
};

#endif

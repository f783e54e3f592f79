#ifndef JSONWRITER_H
#define JSONWRITER_H

#include <QByteArray>
#include <QMetaType>
#include <QString>
#include <QVector>

class QJsonValue;
class QVariant;

// A JSON body already written out, as a Response takes it in place of a value to convert.
struct JsonText
{
    QByteArray bytes;
};
Q_DECLARE_METATYPE(JsonText)

// Writes JSON text as it goes, byte for byte as QJsonDocument::toJson would write the same
// values: the same indentation, string escapes and number formatting. Keys go out in the
// order they are given; to match a QVariantMap, callers give them in ascending order.
class JsonWriter
{
public:
    explicit JsonWriter(bool indented = true);

    void beginObject();
    void endObject();
    void beginArray();
    void endArray();
    // The next value's key; a literal key must need no escaping.
    JsonWriter &key(const char *latin1);
    JsonWriter &key(const QString &name);

    void null();
    void boolean(bool value);
    // Every number is a double in JSON; integers of 64 bits round as QJsonValue rounds them.
    void number(double value);
    void string(const QString &value);
    // As QJsonValue::fromVariant would convert it; SQL NULL is not null here (see stored).
    void variant(const QVariant &value);
    // A column as stored: SQL NULL (a null variant) becomes null.
    void stored(const QVariant &value);
    void jsonValue(const QJsonValue &value);

    // The whole document; the writer is empty afterwards.
    QByteArray take();
    // The same, as the body a Response renders without converting it.
    QVariant takeBody();

private:
    void beforeValue();
    void open(char bracket);
    void close(char bracket);
    void indent(int depth);
    void escaped(const QString &text);

    QByteArray m_out;
    QVector<int> m_counts;  // values written so far in each open container
#ifndef QT_NO_DEBUG
    void checkKeyOrder(const QString &name);
    QVector<QString> m_lastKeys;  // debug builds check that keys ascend
#endif
    bool m_indented;
    bool m_afterKey = false;
};

#endif

#ifndef JSONWRITER_H
#define JSONWRITER_H

#include <QByteArray>
#include <QMetaType>
#include <QString>
#include <QVariant>
#include <QVector>

#include <cstring>
#include <ctime>
#include <vector>

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
    Q_DISABLE_COPY(JsonWriter)  // it writes through a pointer into its own buffer

    void beginObject();
    void endObject();
    void beginArray();
    void endArray();
    // The next value's key; a literal key must need no escaping. Inline, so that a literal's
    // length is known where it is written: rows write a dozen keys each.
    JsonWriter &key(const char *latin1)
    {
#ifndef QT_NO_DEBUG
        checkKeyOrder(QString::fromLatin1(latin1));
#endif
        const int size = int(strlen(latin1));
        beforeValue();
        char *out = room(size + 4);
        *out++ = '"';
        memcpy(out, latin1, size_t(size));
        out += size;
        *out++ = '"';
        *out++ = ':';
        if (m_indented)
            *out++ = ' ';
        m_used = int(out - m_buffer);
        m_afterKey = true;
        return *this;
    }
    JsonWriter &key(const QString &name);

    void null();
    void boolean(bool value);
    // Every number is a double in JSON; integers of 64 bits round as QJsonValue rounds them.
    void number(double value);
    // The same for an integer, without going through a double where it need not.
    void integer(qint64 value);
    void string(const QString &value);
    // UTF-8 bytes as string(QString::fromUtf8(...)) writes them, without the QString: true
    // when they are well-formed UTF-8 and do not begin with a byte order mark (which a
    // decoder drops); otherwise nothing is written and false returned.
    bool plainUtf8String(const char *bytes, int size);
    // As QJsonDocument::fromVariant converts it within a map or list; SQL NULL (a null
    // variant of a type) is not null here, see stored().
    void variant(const QVariant &value);
    // A column as stored: SQL NULL (a null variant) becomes null.
    void stored(const QVariant &value);
    void jsonValue(const QJsonValue &value);

    // Seconds since 1970 as local wall-clock text, as QDateTime::fromSecsSinceEpoch(secs)
    // writes it: date().toString(Qt::ISODate), toString(Qt::ISODate) or with the pattern
    // "yyyy.MM.dd hh:mm:ss".
    enum TimeFormat { IsoDate, IsoDateTime, DottedDateTime };
    void localTime(qint64 secs, TimeFormat format);

    // Room for `size` bytes in all, so that a long document grows once.
    void reserve(int size)
    {
        if (size > m_out.size())
            grow(size - m_used);
    }
    int size() const { return m_used; }

    // The whole document; the writer is empty afterwards.
    QByteArray take();
    // The same, as the body a Response renders without converting it.
    QVariant takeBody();

private:
    // Room for `size` more bytes after what is written; valid until the next call.
    char *room(int size)
    {
        if (m_used + size > m_out.size())
            grow(size);
        return m_buffer + m_used;
    }
    void grow(int size);
    void put(const char *bytes, int size)
    {
        memcpy(room(size), bytes, size_t(size));
        m_used += size;
    }
    void put(char byte)
    {
        *room(1) = byte;
        ++m_used;
    }
    template <int N>
    void put(const char (&literal)[N])
    {
        put(literal, N - 1);
    }
    void afterKey();
    void putInteger(qint64 value);  // |value| < 2^53
    // The separator and indentation a value needs where it goes; inline, as every value and
    // key of every row passes here.
    void beforeValue()
    {
        if (m_afterKey) {
            m_afterKey = false;
            return;
        }
        if (m_counts.empty())
            return;
        if (m_counts.back()++ > 0) {
            put(',');
            if (m_indented)
                put('\n');
        }
        indent(int(m_counts.size()));
    }
    void open(char bracket);
    void close(char bracket);
    void indent(int depth)
    {
        if (m_indented) {
            memset(room(4 * depth), ' ', size_t(4 * depth));
            m_used += 4 * depth;
        }
    }
    void escaped(const QString &text);

    QByteArray m_out;  // the first m_used bytes are written, the rest is room
    char *m_buffer = nullptr;  // m_out's bytes
    std::vector<int> m_counts;  // values written so far in each open container
#ifndef QT_NO_DEBUG
    void checkKeyOrder(const QString &name);
    QVector<QString> m_lastKeys;  // debug builds check that keys ascend
#endif
    int m_used = 0;
    bool m_indented;
    bool m_afterKey = false;
    bool m_zoneRead = false;
    // The last local time converted: rows often repeat one date.
    qint64 m_lastSecs = 0;
    tm m_lastLocal = {};
    bool m_haveLast = false;
};

// UTF-8 in its shortest forms of scalar values only: no overlong forms, no surrogates,
// nothing past U+10FFFF, no truncated sequence. What a decoder would replace is not.
bool isWellFormedUtf8(const char *bytes, int size);

// A driver value as it goes into JSON: NULL becomes null rather than a typed zero or "".
inline QVariant storedValue(const QVariant &value)
{
    return value.isNull() ? QVariant() : value;
}

#endif

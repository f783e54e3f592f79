#include "support/jsonvaluetree.h"

#include "response/jsonwriter.h"

#include <QDateTime>
#include <QJsonDocument>

#include <cstring>
#include <limits>

namespace {

// Numbers where formatting has edges: shortest digits, exponent form, subnormals, the
// 2^53 and 2^63 limits of exact doubles and of qint64.
const double kDoubles[] = {
    0.1, 1e21, 1e20, -0.0, 5e-324, 1.7976931348623157e308, 2.2250738585072014e-308, 1e15, 1e16, 1e-5, 1e-7,
    123456789.125, 0.30000000000000004, 9007199254740992.0, 9007199254740993.0, 9223372036854775807.0,
    -9223372036854775808.0, 18446744073709551616.0, std::numeric_limits<double>::quiet_NaN(),
    std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(), 999999999999999.0,
};
const qint64 kIntegers[] = {
    (Q_INT64_C(1) << 53) - 1, Q_INT64_C(1) << 53, (Q_INT64_C(1) << 53) + 1, -(Q_INT64_C(1) << 53) - 1,
    std::numeric_limits<qint64>::max(), std::numeric_limits<qint64>::min(), std::numeric_limits<qint64>::max() - 511,
    std::numeric_limits<int>::min(), std::numeric_limits<uint>::max(), 0, -1,
};

struct Reader
{
    const QByteArray bytes;
    int pos = 0;

    quint8 byte() { return pos < bytes.size() ? quint8(bytes.at(pos++)) : 0; }
    quint64 bits(int count)
    {
        quint64 value = 0;
        while (count-- > 0)
            value = (value << 8) | byte();
        return value;
    }
    QByteArray chunk(int size)
    {
        const QByteArray part = bytes.mid(pos, size);
        pos += part.size();
        return part;
    }
    double special() { return kDoubles[byte() % (sizeof kDoubles / sizeof *kDoubles)]; }

    QString anyString()
    {
        const quint8 head = byte();
        const int size = head & 0x3f;
        QString text;
        switch (head >> 6) {
        case 0:
            for (int i = 0; i < size && pos < bytes.size(); ++i)
                text.append(QChar(ushort(bits(2))));
            return text;
        case 1: return QString::fromUtf8(chunk(size));
        case 2: return QString::fromLatin1(chunk(size));
        default: return head & 1 ? QString() : QString(QLatin1String(""));
        }
    }

    QVariant value(int depth)
    {
        const quint8 kind = byte() % 20;
        const int size = kind >= 15 && kind <= 17 && depth < 8 ? byte() % 6 : 0;
        QVariantList list;
        QVariantMap map;
        double d;
        switch (kind) {
        case 0: return QVariant();
        case 1: return QVariant(bool(byte() & 1));
        case 2: {
            const quint64 raw = bits(8);
            std::memcpy(&d, &raw, sizeof d);
            return d;
        }
        case 3: return qint64(bits(8));
        case 4: return int(bits(4));
        case 5: return uint(bits(4));
        case 6: return quint64(bits(8));
        case 7: return special();
        case 8: return kIntegers[byte() % (sizeof kIntegers / sizeof *kIntegers)];
        case 9: return QVariant(float(special()));
        case 10: return chunk(byte() % 16);
        case 11: return QDate::fromJulianDay(qint64(bits(3)));
        case 12: return QDateTime::fromSecsSinceEpoch(qint64(bits(4)));
        case 13: return QTime::fromMSecsSinceStartOfDay(int(bits(4) % 86400000));
        case 14: return QVariant::fromValue(nullptr);
        case 15:
        case 16:
            for (int i = 0; i < size; ++i)
                list.append(value(depth + 1));
            return list;
        case 17:
            for (int i = 0; i < size; ++i) {
                const QString key = anyString();
                map.insert(key, value(depth + 1));
            }
            return map;
        default: return anyString();
        }
    }
};

} // namespace

QVariant decodeValueTree(const QByteArray &bytes)
{
    const QVariant tree = Reader{bytes}.value(0);
    // A document is an object or an array; anything else goes into one.
    const int type = tree.userType();
    return type == QMetaType::QVariantMap || type == QMetaType::QVariantList ? tree : QVariant(QVariantList{tree});
}

QByteArray writtenByJsonWriter(const QVariant &body, bool indented)
{
    JsonWriter json(indented);
    json.variant(body);
    return json.take();
}

QByteArray writtenByQt(const QVariant &body, bool indented)
{
    return QJsonDocument::fromVariant(body).toJson(indented ? QJsonDocument::Indented : QJsonDocument::Compact);
}

// JsonWriter against QJsonDocument on arbitrary value trees: any difference in the bytes,
// indented or compact, is a crash. The input is read as a tree of the values a response can
// hold: maps with any keys, lists, strings of any UTF-16 units (lone surrogates too) or of
// decoded bytes (invalid UTF-8 as a database hands it over), doubles of any bit pattern,
// 32- and 64-bit integers, booleans, null, times and bytes. (Dates, times of day and floats:
// the hand-picked table of tst_jsonwriter.)
#include "response/jsonwriter.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QTextCodec>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Reader
{
    const QByteArray bytes;
    int pos = 0;

    quint8 byte() { return pos < bytes.size() ? quint8(bytes.at(pos++)) : 0; }
    QByteArray chunk(int size)
    {
        pos += size;
        return bytes.mid(pos - size, size);
    }
    QString text()
    {
        const quint8 head = byte();
        QString units;
        switch (head >> 6) {
        case 0:
            for (int i = 0; i < (head & 0x3f) && pos < bytes.size(); ++i) {
                const quint8 high = byte();
                units.append(QChar(ushort(high << 8 | byte())));
            }
            return units;
        case 1: return QString::fromUtf8(chunk(head & 0x3f));
        case 2: return QString::fromLatin1(chunk(head & 0x3f));
        default: return head & 1 ? QString() : QString(QLatin1String(""));
        }
    }
    QVariant value(int depth)
    {
        const quint8 kind = byte() % 12;
        quint64 raw = 0;
        for (int i = 0; i < 8 && kind < 7; ++i)
            raw = raw << 8 | byte();
        double d;
        std::memcpy(&d, &raw, sizeof d);
        const int size = (kind == 8 || kind == 9) && depth < 8 ? byte() % 6 : 0;
        QVariantList list;
        QVariantMap map;
        for (int i = 0; i < size; ++i) {
            const QString key = kind == 9 ? text() : QString();
            kind == 9 ? void(map.insert(key, value(depth + 1))) : list.append(value(depth + 1));
        }
        switch (kind) {
        case 0: return QVariant();
        case 1: return QVariant(bool(raw & 1));
        case 2: return d;
        case 3: return qint64(raw);
        case 4: return quint64(raw);
        case 5: return int(raw);
        case 6: return QDateTime::fromSecsSinceEpoch(qint64(raw >> 32));
        case 7: return chunk(byte() % 16);
        case 8: return list;
        case 9: return map;
        case 10: return QVariant::fromValue(nullptr);
        default: return text();
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QVariant tree = Reader{QByteArray(reinterpret_cast<const char *>(data), int(size))}.value(0);
    // A document is an object or an array; anything else goes into one.
    if (tree.userType() != QMetaType::QVariantMap && tree.userType() != QMetaType::QVariantList)
        tree = QVariantList{tree};
    for (const bool indented : {true, false}) {
        JsonWriter json(indented);
        json.variant(tree);
        const QByteArray written = json.take();
        const QByteArray expected = QJsonDocument::fromVariant(tree).toJson(indented ? QJsonDocument::Indented : QJsonDocument::Compact);
        if (written != expected) {
            std::fprintf(stderr, "JsonWriter:\n%s\nQJsonDocument:\n%s\n", written.constData(), expected.constData());
            std::abort();
        }
    }
    // The same bytes as a database column: in place only when they read as the driver decodes them.
    const QByteArray bytes(reinterpret_cast<const char *>(data), int(size));
    const QString decoded = QTextCodec::codecForName("UTF-8")->toUnicode(bytes);
    JsonWriter inPlace(false), byQString(false);
    if (!inPlace.plainUtf8String(bytes.constData(), bytes.size()))
        inPlace.string(decoded);
    byQString.string(decoded);
    if (inPlace.take() != byQString.take())
        std::abort();
    // Well-formed is what the decoder finds nothing wrong in.
    QTextCodec::ConverterState state;
    QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), bytes.size(), &state);
    if (isWellFormedUtf8(bytes.constData(), bytes.size()) && (state.invalidChars != 0 || state.remainingChars != 0))
        std::abort();
    return 0;
}

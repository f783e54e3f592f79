// JsonWriter against QJsonDocument: the same values must give the same bytes, indented and
// compact, for the edge cases of strings and numbers (random trees: fuzz_jsonwriter).
#include "response/jsonwriter.h"

#include <QTextCodec>
#include <QtTest>

#include <limits>

using L = QVariantList;

QByteArray byQt(const QVariant &body, bool indented)
{
    return QJsonDocument::fromVariant(body).toJson(indented ? QJsonDocument::Indented : QJsonDocument::Compact);
}

class TestJsonWriter : public QObject
{
    Q_OBJECT

private slots:
    void sameBytesAsQt_data()
    {
        QTest::addColumn<QVariant>("value");
        const double inf = std::numeric_limits<double>::infinity();
        const qint64 p53 = Q_INT64_C(1) << 53;
        QTest::newRow("quote, backslash, controls")
            << QVariant(QString::fromLatin1("\"\\/\x01\b\t\n\x0b\f\r\x1f\x7f", 12) + QChar(0) + QChar(0x9f));
        QTest::newRow("multi-byte, non-BMP") << QVariant(QString::fromUtf8("Kantýna € \u2028 \xf0\x9f\x98\x80"));
        QTest::newRow("lone surrogates") << QVariant(L{QString(QChar(0xd83d)) + 'x', QString(QChar(0xdc00)) + QChar(0xd800)});
        QTest::newRow("invalid UTF-8 from the database")
            << QVariant(QString::fromUtf8("a\xff\xc3(\xed\xa0\x80\xf4\x90\x80\x80z"));
        QTest::newRow("empty and null strings") << QVariant(L{QString(), QLatin1String("")});
        QTest::newRow("doubles") << QVariant(L{0.1, 1e21, 1e20, -0.0, 5e-324, 1.7976931348623157e308, 1e15, 1e16, -1e19, 0x1p64,
                                               1e-5, 1e-7, 7.5, 1.0 / 3, std::numeric_limits<double>::quiet_NaN(), inf, -inf});
        QTest::newRow("near 2^53") << QVariant(L{p53 - 1, p53, p53 + 1, -p53 - 1});
        QTest::newRow("near 2^63") << QVariant(L{std::numeric_limits<qint64>::max(), std::numeric_limits<qint64>::min(),
                                                 std::numeric_limits<quint64>::max(), quint64(1) << 63});
        QTest::newRow("32-bit, float") << QVariant(L{std::numeric_limits<int>::min(), std::numeric_limits<uint>::max(), 0.1f});
        QTest::newRow("null, true, false") << QVariant(L{QVariant(), QVariant::fromValue(nullptr), true, false});
        QTest::newRow("empty ones nested") << QVariant(QVariantMap{{"a", L()}, {"b", QVariantMap()}, {"c", L{L()}}});
        QTest::newRow("keys in order, escaped") << QVariant(QVariantMap{{"b", 1}, {"B", 2}, {"", 3}, {"\"\\\n", 4}});
        QTest::newRow("nesting") << QVariant(L{QVariantMap{{"list", L{1, QVariantMap{{"x", "y"}}, L{2}}}}});
        QTest::newRow("driver dates and bytes") << QVariant(L{QDate(2024, 5, 2), QDateTime(QDate(2024, 5, 2), QTime(7, 30)),
                                                              QTime(23, 59, 1), QByteArray("\x00\xff\"a", 4), QDate()});
    }
    void sameBytesAsQt()
    {
        QFETCH(QVariant, value);
        // In an array, in an object, and as a document of its own.
        for (const QVariant &body : {QVariant(L{value}), QVariant(QVariantMap{{"key", value}, {"z", L{value}}}), value}) {
            for (const bool indented : {true, false}) {
                if (body.userType() != QMetaType::QVariantMap && body.userType() != QMetaType::QVariantList)
                    continue;
                JsonWriter json(indented);
                json.variant(body);
                QCOMPARE(json.take(), byQt(body, indented));
            }
        }
    }
    void utf8InPlace_data()
    {
        QTest::addColumn<QByteArray>("bytes");  // as a utf8mb4 column holds them, or worse
        QTest::addColumn<bool>("inPlace");
        QTest::newRow("escapes, NUL") << QByteArray("a\"\\/\x01\b\t\n\x1f\x7f\0", 11) << true;
        QTest::newRow("2 to 4 bytes, noncharacter") << QByteArray("\xc5\x99 \xe2\x82\xac \xef\xbf\xbf \xf4\x8f\xbf\xbf") << true;
        QTest::newRow("byte order mark first") << QByteArray("\xef\xbb\xbf" "abc") << false;
        QTest::newRow("overlong") << QByteArray("\xe0\x9f\xbf") << false;
        QTest::newRow("surrogate") << QByteArray("\xed\xa0\x80") << false;
        QTest::newRow("past U+10FFFF") << QByteArray("\xf4\x90\x80\x80") << false;
        QTest::newRow("truncated") << QByteArray("ab\xe2\x82") << false;
        QTest::newRow("stray continuation") << QByteArray("\xc5\x99\x80") << false;
    }
    void utf8InPlace()
    {
        // Bytes written in place must read as the driver's UTF-8 decoding of them; the rest is
        // left to that decoding.
        QFETCH(QByteArray, bytes);
        QFETCH(bool, inPlace);
        const QString decoded = QTextCodec::codecForName("UTF-8")->toUnicode(bytes);
        JsonWriter json(false), byQString(false);
        QCOMPARE(json.plainUtf8String(bytes.constData(), bytes.size()), inPlace);
        if (!inPlace)
            json.string(decoded);
        byQString.string(decoded);
        QCOMPARE(json.take(), byQString.take());
    }
    void localTime_data()
    {
        QTest::addColumn<QByteArray>("zone");
        QTest::addColumn<qint64>("from");  // every quarter of an hour over two days from here
        QTest::newRow("Prague, summer time begins") << QByteArray("Europe/Prague") << Q_INT64_C(1711753200);
        QTest::newRow("New York, before 1970") << QByteArray("America/New_York") << Q_INT64_C(-86400);
    }
    void localTime()
    {
        QFETCH(QByteArray, zone);
        QFETCH(qint64, from);
        const QByteArray oldZone = qgetenv("TZ");
        qputenv("TZ", zone);
        QVariantList expected;
        JsonWriter written;
        written.beginArray();
        for (qint64 secs = from; secs < from + 2 * 86400; secs += 900 + 7) {
            const QDateTime time = QDateTime::fromSecsSinceEpoch(secs);
            expected << time.date().toString(Qt::ISODate) << time.toString(Qt::ISODate)
                     << time.toString(QStringLiteral("yyyy.MM.dd hh:mm:ss"));
            for (const auto format : {JsonWriter::IsoDate, JsonWriter::IsoDateTime, JsonWriter::DottedDateTime})
                written.localTime(secs, format);
        }
        written.endArray();
        qputenv("TZ", oldZone);
        QCOMPARE(written.take(), byQt(expected, true));
    }
};

QTEST_GUILESS_MAIN(TestJsonWriter)
#include "tst_jsonwriter.moc"

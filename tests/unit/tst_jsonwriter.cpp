// JsonWriter against QJsonDocument: the same values must give the same bytes, indented and
// compact, for the edge cases of strings and numbers and for seeded random trees.
#include "support/jsonvaluetree.h"

#include "response/jsonwriter.h"

#include <QRandomGenerator>
#include <QtTest>

#include <limits>

class TestJsonWriter : public QObject
{
    Q_OBJECT

private slots:
    void sameBytesAsQt_data();
    void sameBytesAsQt();
    void randomTrees();
    void localTime_data();
    void localTime();
};

void TestJsonWriter::sameBytesAsQt_data()
{
    QTest::addColumn<QVariant>("value");
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const qint64 p53 = Q_INT64_C(1) << 53;
    QTest::newRow("quote and backslash") << QVariant("say \"hi\" \\ /");
    QTest::newRow("control characters")
        << QVariant(QString::fromLatin1("\x01\b\t\n\x0b\f\r\x1f\x7f", 9) + QChar(0) + QChar(0x9f));
    QTest::newRow("two and three bytes") << QVariant(QString::fromUtf8("Kantýna € \u2028"));
    QTest::newRow("non-BMP") << QVariant(QString::fromUtf8("\xf0\x9f\x98\x80 \xf0\x90\x80\x80"));
    QTest::newRow("lone high surrogate") << QVariant(QString(QChar(0xd83d)) + QLatin1String("x"));
    QTest::newRow("high surrogate at end") << QVariant(QString(QChar(0xdbff)));
    QTest::newRow("lone low surrogate") << QVariant(QString(QChar(0xdc00)) + QChar(0xd800));
    QTest::newRow("invalid UTF-8 from the database")
        << QVariant(QString::fromUtf8("a\xff\xc3(\xed\xa0\x80\xf4\x90\x80\x80z"));
    QTest::newRow("empty and null strings") << QVariant(QVariantList{QString(), QLatin1String("")});
    QTest::newRow("0.1") << QVariant(0.1);
    QTest::newRow("1e21 and 1e20") << QVariant(QVariantList{1e21, 1e20, -1e21});
    QTest::newRow("whole doubles") << QVariant(QVariantList{1e15, 1e16, -1e19, 0x1p64, 0x1.0000000000001p64, 123456.0});
    QTest::newRow("negative zero") << QVariant(-0.0);
    QTest::newRow("smallest subnormal") << QVariant(5e-324);
    QTest::newRow("largest double") << QVariant(1.7976931348623157e308);
    QTest::newRow("small fractions") << QVariant(QVariantList{1e-5, 1e-7, 0.25, -2.5e-5, 1.0 / 3});
    QTest::newRow("NaN and infinities") << QVariant(QVariantList{nan, inf, -inf});
    QTest::newRow("hours") << QVariant(QVariantList{7.5, 8.25, 1.0 / 60, 27000 / 3600.0});
    QTest::newRow("near 2^53") << QVariant(QVariantList{p53 - 1, p53, p53 + 1, -p53 - 1});
    QTest::newRow("near 2^63") << QVariant(QVariantList{std::numeric_limits<qint64>::max(),
                                                        std::numeric_limits<qint64>::min(),
                                                        std::numeric_limits<quint64>::max(),
                                                        quint64(1) << 63});
    QTest::newRow("32-bit limits") << QVariant(QVariantList{std::numeric_limits<int>::min(),
                                                            std::numeric_limits<uint>::max(), 0u, -1});
    QTest::newRow("float") << QVariant(QVariantList{0.1f, 3.0f});
    QTest::newRow("null, true, false") << QVariant(QVariantList{QVariant(), QVariant::fromValue(nullptr), true, false});
    QTest::newRow("empty object") << QVariant(QVariantMap());
    QTest::newRow("empty array") << QVariant(QVariantList());
    QTest::newRow("empty ones nested")
        << QVariant(QVariantMap{{"a", QVariantList()}, {"b", QVariantMap()}, {"c", QVariantList{QVariantList()}}});
    QTest::newRow("keys in order, escaped")
        << QVariant(QVariantMap{{"b", 1}, {"B", 2}, {"", 3}, {"\"\\\n", 4}, {QString::fromUtf8("žluť"), 5}});
    QTest::newRow("nesting")
        << QVariant(QVariantList{QVariantMap{{"list", QVariantList{1, QVariantMap{{"x", "y"}}, QVariantList{2}}}}});
    QTest::newRow("driver dates and bytes")
        << QVariant(QVariantList{QDate(2024, 5, 2), QDateTime(QDate(2024, 5, 2), QTime(7, 30)), QTime(23, 59, 1),
                                 QByteArray("\x00\xff\"a", 4), QDate(), QDateTime()});
}

void TestJsonWriter::sameBytesAsQt()
{
    QFETCH(QVariant, value);
    // As a value in an array and in an object, and as a document of its own where it is one.
    QVariantList bodies = {QVariantList{value}, QVariantMap{{"key", value}, {"z", QVariantList{value}}}};
    if (value.userType() == QMetaType::QVariantMap || value.userType() == QMetaType::QVariantList)
        bodies.append(value);
    for (const QVariant &body : bodies) {
        for (const bool indented : {true, false})
            QCOMPARE(writtenByJsonWriter(body, indented), writtenByQt(body, indented));
    }
}

void TestJsonWriter::randomTrees()
{
    QRandomGenerator random(20261124);
    for (int i = 0; i < 3000; ++i) {
        QByteArray bytes(int(random.bounded(1, 400)), Qt::Uninitialized);
        for (char &byte : bytes)
            byte = char(random.bounded(256));
        const QVariant tree = decodeValueTree(bytes);
        for (const bool indented : {true, false}) {
            const QByteArray written = writtenByJsonWriter(tree, indented);
            if (written != writtenByQt(tree, indented))
                QFAIL(qPrintable(QStringLiteral("tree %1 (bytes %2) differs").arg(i).arg(QString::fromLatin1(bytes.toHex()))));
        }
    }
}

void TestJsonWriter::localTime_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<qint64>("from");  // every quarter of an hour over two days from here
    QTest::newRow("Prague, summer time begins") << QByteArray("Europe/Prague") << Q_INT64_C(1711753200);
    QTest::newRow("Prague, summer time ends") << QByteArray("Europe/Prague") << Q_INT64_C(1729980000);
    QTest::newRow("Lord Howe, half an hour") << QByteArray("Australia/Lord_Howe") << Q_INT64_C(1712412000);
    QTest::newRow("Kathmandu") << QByteArray("Asia/Kathmandu") << Q_INT64_C(0);
    QTest::newRow("UTC, end of 32 bits") << QByteArray("UTC") << Q_INT64_C(2147483647) - 86400;
    QTest::newRow("New York, before 1970") << QByteArray("America/New_York") << Q_INT64_C(-86400);
}

void TestJsonWriter::localTime()
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
    QCOMPARE(written.take(), writtenByQt(expected, true));
}

QTEST_GUILESS_MAIN(TestJsonWriter)
#include "tst_jsonwriter.moc"

// The composite identifier as clients see it, and the local-time texts of the operations.
#include "terminal/identifiers.h"

#include <QtTest>

#include <ctime>

class TestIdentifiers : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void roundTrip_data();
    void roundTrip();
    void decode_data();
    void decode();
    void decodeBase64MatchesQt();
    void localTimeTexts();
};

void TestIdentifiers::initTestCase()
{
    // Local midnights differ from UTC ones here, which is what the texts must follow.
    qputenv("TZ", "Europe/Prague");
    tzset();
}

void TestIdentifiers::roundTrip_data()
{
    QTest::addColumn<uint>("first");
    QTest::addColumn<uint>("second");
    QTest::addColumn<QString>("text");

    QTest::newRow("no filler") << 12u << 345u << "MTIuMzQ1";
    QTest::newRow("both fillers") << 12u << 3u << "LTEyLjAz";
    QTest::newRow("second filler") << 123u << 4u << "MTIzLjA0";
    QTest::newRow("largest") << 2147483647u << 4294967295u << "MjE0NzQ4MzY0Ny40Mjk0OTY3Mjk1";
    QTest::newRow("long second") << 7u << 10000000u << "LTcuMDEwMDAwMDAw";
}

void TestIdentifiers::roundTrip()
{
    QFETCH(uint, first);
    QFETCH(uint, second);
    QFETCH(QString, text);
    QCOMPARE(encodeId(first, second), text);
    uint a = 0;
    uint b = 0;
    QVERIFY(decodeId(text, a, b));
    QCOMPARE(a, first);
    QCOMPARE(b, second);
}

void TestIdentifiers::decode_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<uint>("first");
    QTest::addColumn<uint>("second");

    QTest::newRow("empty") << QByteArray() << false << 0u << 0u;
    QTest::newRow("no full stop") << QByteArray("123") << false << 0u << 0u;
    QTest::newRow("one part") << QByteArray("12.") << false << 0u << 0u;
    QTest::newRow("zero first") << QByteArray("0.5") << false << 0u << 5u;
    QTest::newRow("first beyond int") << QByteArray("2147483648.1") << false << 0u << 1u;
    QTest::newRow("three parts") << QByteArray("12.34.56") << true << 12u << 34u;
    QTest::newRow("stops at NUL") << QByteArray("1.2\0" "3", 5) << true << 1u << 2u;
}

void TestIdentifiers::decode()
{
    QFETCH(QByteArray, plain);
    QFETCH(bool, ok);
    QFETCH(uint, first);
    QFETCH(uint, second);
    uint a = 99;
    uint b = 99;
    QCOMPARE(decodeId(QString::fromLatin1(plain.toBase64()), a, b), ok);
    QCOMPARE(a, first);
    QCOMPARE(b, second);
}

void TestIdentifiers::decodeBase64MatchesQt()
{
    // Pads, URL-safe, blank, NUL and non-ASCII characters between the alphabet's.
    for (const QString &text : {QString(), QStringLiteral("QQ=="), QStringLiteral("QUJDRA"), QStringLiteral("QU=JD"),
                                QStringLiteral(" QU\nJD\r\t"), QStringLiteral("a-b_c+d/"), QStringLiteral("QU\u00e9JD\u0100"),
                                QStringLiteral("QU\u20acJ\xd83d\xde00" "D"), QString(QLatin1Char('\0')) + QStringLiteral("QUJD")})
        QCOMPARE(decodeBase64(text), QByteArray::fromBase64(text.toUtf8()));
}

void TestIdentifiers::localTimeTexts()
{
    // 2024-03-31 00:30 local is 2024-03-30 23:30 UTC; the clocks go forward later that night.
    const qint64 secs = 1711841400;
    QCOMPARE(secsToIsoDateTime(secs), QStringLiteral("2024-03-31T00:30:00"));
    QCOMPARE(secsToIsoDate(secs), QStringLiteral("2024-03-31"));
    QCOMPARE(isoToSecs(QStringLiteral("2024-03-31T00:30:00")), secs);
    QCOMPARE(isoToSecs(QStringLiteral("2024-07-01T12:00:00")), Q_INT64_C(1719828000));
}

QTEST_GUILESS_MAIN(TestIdentifiers)
#include "tst_identifiers.moc"

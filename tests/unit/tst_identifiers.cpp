// The composite identifier as clients see it, and the local-time texts of the operations.
#include "worker/webapiworker.h"

#include <QtTest>

#include <ctime>

class TestIdentifiers : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void roundTrip_data();
    void roundTrip();
    void decodeFailures_data();
    void decodeFailures();
    void encodeIdMatchesReference_data();
    void encodeIdMatchesReference();
    void decodeBase64MatchesQt_data();
    void decodeBase64MatchesQt();
    void localTimeTexts();
};

// The former formatting, kept as the reference the in-place one must match byte for byte.
static QString referenceEncodeId(uint first, uint second)
{
    QString a = QString::number(first);
    QString b = QString::number(second);
    const int r = (a.size() + b.size() + 1) % 3;
    if (r != 0)
        b.prepend(QLatin1Char('0'));
    if (r == 1)
        a.prepend(QLatin1Char('-'));
    return QString::fromLatin1(QStringLiteral("%1.%2").arg(a, b).toLocal8Bit().toBase64());
}

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
    QTest::addColumn<QByteArray>("plain");

    QTest::newRow("no filler, MTIuMzQ1") << 12u << 345u << QByteArray("12.345");
    QTest::newRow("both fillers") << 12u << 3u << QByteArray("-12.03");
    QTest::newRow("second filler") << 123u << 4u << QByteArray("123.04");
    QTest::newRow("largest") << 2147483647u << 4294967295u << QByteArray("2147483647.4294967295");
    QTest::newRow("largest first, fillers") << 2147483647u << 42u << QByteArray("-2147483647.042");
    QTest::newRow("long second") << 7u << 10000000u << QByteArray("-7.010000000");
}

void TestIdentifiers::roundTrip()
{
    QFETCH(uint, first);
    QFETCH(uint, second);
    QFETCH(QByteArray, plain);

    const QString text = WebApiWorker::encodeId(first, second);
    QCOMPARE(QByteArray::fromBase64(text.toLatin1()), plain);
    // Safe in a URL path as it stands: no pad, no '+' or '/'.
    QVERIFY2(QRegularExpression(QStringLiteral("^[A-Za-z0-9]+$")).match(text).hasMatch(), qPrintable(text));

    uint a = 0;
    uint b = 0;
    QVERIFY(WebApiWorker::decodeId(text, a, b));
    QCOMPARE(a, first);
    QCOMPARE(b, second);
}

void TestIdentifiers::decodeFailures_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<uint>("first");
    QTest::addColumn<uint>("second");

    const auto b64 = [](const QByteArray &plain) { return QString::fromLatin1(plain.toBase64()); };
    QTest::newRow("empty") << QString() << false << 0u << 0u;
    QTest::newRow("no full stop") << b64("123") << false << 0u << 0u;
    QTest::newRow("one part") << b64("12.") << false << 0u << 0u;
    QTest::newRow("zero first") << b64("0.5") << false << 0u << 5u;
    QTest::newRow("first beyond int") << b64("2147483648.1") << false << 0u << 1u;
    QTest::newRow("three parts") << b64("12.34.56") << true << 12u << 34u;
    QTest::newRow("not base64") << QStringLiteral("!!!") << false << 0u << 0u;
    QTest::newRow("web base64 pad") << QStringLiteral("MTIuMw@@") << true << 12u << 3u;
    QTest::newRow("stops at NUL") << b64(QByteArray("1.2\0" "3", 5)) << true << 1u << 2u;
}

void TestIdentifiers::decodeFailures()
{
    QFETCH(QString, text);
    QFETCH(bool, ok);
    QFETCH(uint, first);
    QFETCH(uint, second);

    uint a = 99;
    uint b = 99;
    QCOMPARE(WebApiWorker::decodeId(text, a, b), ok);
    QCOMPARE(a, first);
    QCOMPARE(b, second);
}

void TestIdentifiers::encodeIdMatchesReference_data()
{
    QTest::addColumn<uint>("first");
    QTest::addColumn<uint>("second");
    const uint edges[] = {0u, 1u, 9u, 10u, 99u, 100u, 999u, 1000u, 2147483647u, 4294967295u};
    for (uint a : edges)
        for (uint b : edges)
            QTest::addRow("%u.%u", a, b) << a << b;
    QRandomGenerator random(20261124);
    for (int i = 0; i < 300; ++i) {  // random digit counts on both sides
        const uint a = random.generate() >> random.bounded(32);
        const uint b = random.generate() >> random.bounded(32);
        QTest::addRow("random %u.%u", a, b) << a << b;
    }
}

void TestIdentifiers::encodeIdMatchesReference()
{
    QFETCH(uint, first);
    QFETCH(uint, second);
    QCOMPARE(WebApiWorker::encodeId(first, second), referenceEncodeId(first, second));
}

void TestIdentifiers::decodeBase64MatchesQt_data()
{
    QTest::addColumn<QString>("text");
    const QString cases[] = {QString(), QStringLiteral("="), QStringLiteral("===="), QStringLiteral("QQ=="),
                             QStringLiteral("QQ"), QStringLiteral("QUI="), QStringLiteral("QUJD"), QStringLiteral("Q"),
                             QStringLiteral("QUJDRA"), QStringLiteral("QU=JD"), QStringLiteral("Q=Q=Q=Q="),
                             QStringLiteral(" QU\nJD\r\t"), QStringLiteral("a-b_c+d/"), QStringLiteral("@@!!QUJD$"),
                             QStringLiteral("QU\u00e9JD\u00ff\u0100"), QStringLiteral("QU\u20acJ\xd83d\xde00" "D"),
                             QStringLiteral("QU\xd83dJD"), QString(QLatin1Char('\0')) + QStringLiteral("QUJD")};
    int row = 0;
    for (const QString &text : cases)
        QTest::addRow("case %d", row++) << text;
    // Mostly the alphabet, with pads, url-safe, blank, control and non-ASCII characters between.
    const QString noise = QStringLiteral("=-_ \n\t.@\u00e9\u20ac");
    const QString alphabet = QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
    QRandomGenerator random(4242);
    for (int i = 0; i < 200; ++i) {
        QString text;
        const int length = random.bounded(40);
        for (int j = 0; j < length; ++j) {
            const int kind = random.bounded(10);
            text += kind < 7 ? alphabet.at(random.bounded(alphabet.size()))
                  : kind < 9 ? noise.at(random.bounded(noise.size()))
                             : QChar(ushort(random.bounded(0x10000)));
        }
        QTest::addRow("random %d", i) << text;
    }
}

void TestIdentifiers::decodeBase64MatchesQt()
{
    QFETCH(QString, text);
    QCOMPARE(WebApiWorker::decodeBase64(text), QByteArray::fromBase64(text.toUtf8()));
}

void TestIdentifiers::localTimeTexts()
{
    // 2024-03-31 00:30 local is 2024-03-30 23:30 UTC; the clocks go forward later that night.
    const qint64 secs = 1711841400;
    QCOMPARE(WebApiWorker::secsToIsoDateTime(secs), QStringLiteral("2024-03-31T00:30:00"));
    QCOMPARE(WebApiWorker::secsToIsoDate(secs), QStringLiteral("2024-03-31"));
    QCOMPARE(WebApiWorker::isoToSecs(QStringLiteral("2024-03-31T00:30:00")), secs);
    QCOMPARE(WebApiWorker::isoToSecs(QStringLiteral("2024-07-01T12:00:00")), Q_INT64_C(1719828000));
    QCOMPARE(WebApiWorker::secsToIsoDateTime(1719828000), QStringLiteral("2024-07-01T12:00:00"));
}

QTEST_GUILESS_MAIN(TestIdentifiers)
#include "tst_identifiers.moc"

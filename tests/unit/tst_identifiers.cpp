// The composite identifier as clients see it, and the local-time texts of the operations.
#include "terminal/identifiers.h"

#include <QtTest>

#include <ctime>

class TestIdentifiers : public QObject
{
    Q_OBJECT

private slots:
    void decode_data()
    {
        // With ok, encodeId(first, second) gives text back.
        QTest::addColumn<QString>("text"); QTest::addColumn<bool>("ok"); QTest::addColumn<uint>("first"); QTest::addColumn<uint>("second");

        const auto b64 = [](const QByteArray &plain) { return QString::fromLatin1(plain.toBase64()); };
        QTest::newRow("both fillers") << b64("-12.03") << true << 12u << 3u;
        QTest::newRow("largest") << b64("2147483647.4294967295") << true << 2147483647u << 4294967295u;
        QTest::newRow("no full stop") << b64("123") << false << 0u << 0u;
        QTest::newRow("zero first") << b64("0.5") << false << 0u << 5u;
        QTest::newRow("first beyond int") << b64("2147483648.1") << false << 0u << 1u;
        QTest::newRow("web form") << "MTIuMw@@" << true << 12u << 3u;
        QTest::newRow("stops at NUL") << b64(QByteArray("1.2\0" "3", 5)) << true << 1u << 2u;
    }

    void decode()
    {
        QFETCH(QString, text); QFETCH(bool, ok); QFETCH(uint, first); QFETCH(uint, second);
        uint a = 99, b = 99;
        QCOMPARE(decodeId(text, a, b), ok);
        QCOMPARE(a, first);
        QCOMPARE(b, second);
        if (ok && !text.contains('@') && qstrcmp(QTest::currentDataTag(), "stops at NUL") != 0)
            QCOMPARE(encodeId(first, second), text);
    }

    void texts()
    {
        // Local midnights differ from UTC ones here, which is what the texts must follow:
        // 2024-03-31 00:30 local is 2024-03-30 23:30 UTC.
        qputenv("TZ", "Europe/Prague"); tzset();
        QCOMPARE(secsToIsoDateTime(1711841400), QStringLiteral("2024-03-31T00:30:00"));
        QCOMPARE(secsToIsoDate(1711841400), QStringLiteral("2024-03-31"));
        QCOMPARE(isoToSecs(QStringLiteral("2024-07-01T12:00:00")), Q_INT64_C(1719828000));
        // Pads, URL-safe, blank and non-ASCII characters between the alphabet's are skipped.
        for (const QString &text : {QStringLiteral("QU=JD"), QStringLiteral(" QU\nJD-_"), QStringLiteral("QU\u00e9JD\u20ac")})
            QCOMPARE(decodeBase64(text), QByteArrayLiteral("ABC"));
    }
};

QTEST_GUILESS_MAIN(TestIdentifiers)
#include "tst_identifiers.moc"

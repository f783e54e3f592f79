// The licence checks that need no database: the device list, the key digest and the
// refusals of checkAuth (scheme, unknown key, what is echoed of a key).
#include "licence/licence.h"
#include "response/response.h"

#include <QtTest>

class TestLicence : public QObject
{
    Q_OBJECT

private slots:
    void deviceList_data();
    void deviceList();
    void keyDigest_data();
    void keyDigest();
    void refusals_data();
    void refusals();
    void nothingAllowedWithoutRows();
};

void TestLicence::deviceList_data()
{
    QTest::addColumn<QString>("list");
    QTest::addColumn<uint>("vid");
    QTest::addColumn<bool>("allowed");

    QTest::newRow("star") << "*" << 12345u << true;
    QTest::newRow("star in a list") << "5, *" << 7u << true;
    QTest::newRow("single number") << "2500" << 2500u << true;
    QTest::newRow("other number") << "2500" << 2501u << false;
    QTest::newRow("range start") << "1000-1999,2500" << 1000u << true;
    QTest::newRow("below range") << "1000-1999,2500" << 999u << false;
    QTest::newRow("above range") << "1000-1999,2500" << 2000u << false;
    QTest::newRow("blanks") << " 1000 - 1999 , 2500 " << 1500u << true;
    QTest::newRow("empty items") << ",,7,," << 7u << true;
    QTest::newRow("empty list") << "" << 0u << false;
    QTest::newRow("reversed range") << "1999-1000" << 1500u << false;
    QTest::newRow("open range") << "1000-" << 5000u << false;
    QTest::newRow("number with junk") << "12a" << 12u << false;
    QTest::newRow("largest") << "4294967295" << 4294967295u << true;
    QTest::newRow("too large") << "4294967296" << 0u << false;
}

void TestLicence::deviceList()
{
    QFETCH(QString, list);
    QFETCH(uint, vid);
    QFETCH(bool, allowed);
    QCOMPARE(Licence::deviceListAllows(list, vid), allowed);
}

void TestLicence::keyDigest_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("digest");
    QTest::newRow("abc") << "abc" << "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    QTest::newRow("utf-8") << QStringLiteral("klíč-Ω")
                           << "79de0acc90368e44284d88741880c0c82a69ab899842d03d238bf3c9beb7ae73";
}

void TestLicence::keyDigest()
{
    QFETCH(QString, key);
    QFETCH(QString, digest);
    QCOMPARE(Licence::keyDigest(key), digest);
}

void TestLicence::refusals_data()
{
    QTest::addColumn<QString>("authorization");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");

    const int scheme = Response::RE_BadAuthorization;
    const int key = Response::RE_BadApiToken;
    QTest::newRow("basic") << "Basic dXNlcjpwYXNz" << scheme << "Bad authorization 'Basic'";
    QTest::newRow("empty") << "" << scheme << "Bad authorization ''";
    // A lone word may be a key without its scheme: never echoed.
    QTest::newRow("lone word") << "s3cret-key-value" << scheme << "Bad authorization ''";
    QTest::newRow("unknown key") << "Bearer wrong-key-value" << key << "Invalid API token 'wron...'";
    QTest::newRow("scheme ignores case") << "bEaReR abcdefgh" << key << "Invalid API token 'abcd...'";
    QTest::newRow("short key") << "Bearer ab" << key << "Invalid API token 'ab...'";
    QTest::newRow("bearer alone") << "Bearer" << key << "Invalid API token '...'";
    QTest::newRow("non-ascii key") << QStringLiteral("Bearer ключ-1234") << key
                                   << QStringLiteral("Invalid API token 'ключ...'");
}

void TestLicence::refusals()
{
    QFETCH(QString, authorization);
    QFETCH(int, code);
    QFETCH(QString, message);

    const Licence licence;  // no rows: no key is known
    Response response{RequestHeader()};
    QVERIFY(!licence.checkAuth(authorization, Licence::Scope::Terminal, &response));
    QCOMPARE(response.errorCode(), code);
    QCOMPARE(int(response.status()), 401);
    QCOMPARE(response.data().toMap().value(QStringLiteral("message")).toString(), message);
}

void TestLicence::nothingAllowedWithoutRows()
{
    const Licence licence;
    QVERIFY(!licence.webApiEnabled());
    QVERIFY(!licence.deviceAllowed(0));
    QVERIFY(!licence.deviceAllowed(1000));
    QVERIFY(!licence.developmentAllowed(QString()));
}

QTEST_GUILESS_MAIN(TestLicence)
#include "tst_licence.moc"

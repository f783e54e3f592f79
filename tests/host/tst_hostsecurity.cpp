// The real webapi-host refuses a crafted customer token before any worker or the InfoDB
// sees it, in the plug-in's error form, and lets every token the plug-in would accept pass.
#include "support/apifixture.h"
#include "support/hostprocess.h"

#include <QtTest>

class TestHostSecurity : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void pragmaLines_data();
    void pragmaLines();
    void refusalKeepsConnection();

private:
    QScopedPointer<ApiFixture> m_fx;
    HostProcess m_host;
};

void TestHostSecurity::initTestCase()
{
    QVERIFY2(QFile::exists(HostProcess::binary()), "build the webapi-host target first");
    m_fx.reset(new ApiFixture(QStringLiteral("hostsec")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    QVERIFY2(m_host.start(m_fx->info().name()), m_host.log().constData());
}

void TestHostSecurity::pragmaLines_data()
{
    QTest::addColumn<QString>("pragma");
    QTest::addColumn<int>("status");

    const QString token = QStringLiteral("token-") + TestServer::uniqueName(QStringLiteral("x"));
    QTest::newRow("timing") << "Pragma: token' OR SLEEP(3) OR '" << 400;
    QTest::newRow("always true") << "Pragma: token' OR '1'='1" << 400;
    QTest::newRow("quote") << "Pragma: token'" << 400;
    QTest::newRow("backslash") << "Pragma: token\\" << 400;
    QTest::newRow("blank inside") << "Pragma: token x" << 400;
    QTest::newRow("non-ASCII letter") << QStringLiteral("Pragma: token-\u00e9") << 400;
    // Read as the plug-in reads it: the value ends at the next colon, and a line without the
    // word "token" carries no token at all.
    QTest::newRow("cut at colon") << "Pragma: " + token + ":' OR '1'='1" << 503;
    QTest::newRow("no token word") << "Pragma: no-cache'" << 503;
    QTest::newRow("unknown plain token") << "Pragma: " + token << 503;
}

void TestHostSecurity::pragmaLines()
{
    QFETCH(QString, pragma);
    QFETCH(int, status);
    QStringList lines = m_fx->terminalHeaders();
    lines.first() = pragma;
    QList<QByteArray> headers;
    for (const QString &line : lines)
        headers.append(line.toUtf8());
    HttpConnection connection(m_host.port());
    const QByteArray raw = connection.request("GET", "/webapi/info", headers);
    if (status == 400)
        COMPARE_EXPECTED(maskTms(raw), "injection/host-bad-token.http");
    else
        QCOMPARE(HttpReply::parse(raw).status, status);
    QVERIFY(!m_host.log().contains("SLEEP"));
}

void TestHostSecurity::refusalKeepsConnection()
{
    HttpConnection connection(m_host.port());
    QCOMPARE(HttpReply::parse(connection.request("GET", "/webapi/info", {"Pragma: token'", "Authorization: Bearer x"})).status,
             400);
    QVERIFY(m_host.waitForLog("\"GET /webapi/info\" 400 "));
    QList<QByteArray> headers;
    for (const QString &line : m_fx->terminalHeaders())
        headers.append(line.toUtf8());
    QCOMPARE(HttpReply::parse(connection.request("GET", "/webapi/info", headers)).status, 200);
}

QTEST_GUILESS_MAIN(TestHostSecurity)
#include "tst_hostsecurity.moc"

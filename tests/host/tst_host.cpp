// The real webapi-host binary over loopback against the private MariaDB: what only a running
// process shows. The whole bytes of its own answers and of the plug-in's passed through,
// limits on a real socket, pipelining, TLS, refused settings, and requests given up.
#include "support/apifixture.h"
#include "support/hostprocess.h"

#include <QLibraryInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>
#include <signal.h>

class TestHost : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void answersOnTheWire();
    void pipelinedInOrder();
    void slowClientTimedOut();
    void tlsPolicy_data();
    void tlsPolicy();
    void refusedSettings_data();
    void refusedSettings();
    void queuedRequestsGivenUp_data();
    void queuedRequestsGivenUp();

private:
    QTemporaryDir m_dir;  // the self-signed certificate and key
    QScopedPointer<ApiFixture> m_a;
    QString m_tid;
    QString m_person;
    HostProcess m_host;
    HostProcess m_tls;
};

void TestHost::initTestCase()
{
    QCOMPARE(QProcess::execute("openssl", QString("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout "
                                                  "%1 -out %2 -days 2 -subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1")
                                              .arg(m_dir.filePath("key.pem"), m_dir.filePath("cert.pem")).split(' ')), 0);
    m_a.reset(new ApiFixture("host_a"));
    QVERIFY2(m_a->setUp(), qPrintable(m_a->error()));
    m_tid = m_a->addTerminal(1001);
    m_person = addPerson(*m_a);
    QVERIFY2(m_host.start(m_a->info().name(), {{"WEBAPI_LIMITS_BODY", "100000"}, {"WEBAPI_LIMITS_TIMEOUT", "2"},
                                               {"WEBAPI_AUTH_FAILURES", "3"}}),
             m_host.log().constData());
    QVERIFY2(m_tls.start(m_a->info().name(), {{"WEBAPI_TLS_CERTIFICATE", m_dir.filePath("cert.pem")},
                                              {"WEBAPI_TLS_KEY", m_dir.filePath("key.pem")}}),
             m_tls.log().constData());
}

void TestHost::answersOnTheWire()
{
    // Each on a connection of its own, in this order: the guesses lead to the 429.
    const QString pragma = "Pragma: " + m_a->token();
    const QStringList guess{pragma, "Authorization: Bearer guess"};
    const QList<QByteArray> requests{
        HttpConnection::format("GET", "/webapi/info?q=1", m_a->terminalHeaders() << "X-Request-Id: id-1"),
        HttpConnection::format("GET", "/healthz"),
        HttpConnection::format("GET", "/index.html", {"Connection: close"}),
        "HELLO THERE\r\n\r\n",
        "POST /webapi/entrance HTTP/1.1\r\nHost: x\r\n" + pragma.toUtf8() + "\r\nContent-Length: 100001\r\n\r\n",
        HttpConnection::format("GET", "/webapi/info", {"X-Pad: " + QString(17000, 'a')}),
        HttpConnection::format("GET", "/webapi/info", {"Pragma: token' OR '1'='1"}),
        HttpConnection::format("GET", "/webapi/info", guess),
        HttpConnection::format("GET", "/webapi/info", guess),
        HttpConnection::format("GET", "/webapi/info", guess),
        HttpConnection::format("GET", "/webapi/info", m_a->terminalHeaders()),
    };
    QByteArray wire;
    for (const QByteArray &raw : requests) {
        HttpConnection connection(m_host.port(), QHostAddress("127.0.0.21"));
        QVERIFY(connection.send(raw));
        const QByteArray answer = maskTms(connection.readResponse());
        const bool closes = answer.contains("Connection: close");
        wire += answer + (connection.waitForClose(closes ? 5000 : 200) ? "\n[closed]\n" : "\n[open]\n");
    }
    // The window of the guesses may have begun a second before.
    COMPARE_EXPECTED(wire.replace("Retry-After: 59\r", "Retry-After: 60\r"), "host/answers.http");
    QVERIFY(m_host.waitForLog("127.0.0.21 \"GET /webapi/info\" 429 "));
    QVERIFY(!m_host.log().contains(ApiFixture::kKey.toUtf8()));
}

void TestHost::pipelinedInOrder()
{
    HttpConnection connection(m_host.port());
    const QStringList headers = m_a->terminalHeaders();
    QVERIFY(connection.send(HttpConnection::format("GET", "/webapi/response-errors", headers)
                            + HttpConnection::format("GET", "/nothing") + HttpConnection::format("GET", "/webapi/info", headers)));
    QVERIFY(HttpReply::parse(connection.readResponse()).json().isArray());
    QCOMPARE(HttpReply::parse(connection.readResponse()).status, 404);
    QCOMPARE(HttpReply::parse(connection.readResponse()).json().object().value("name").toString(), "Web API");
    QCOMPARE(connection.reply("GET", "/healthz").status, 200);
}

void TestHost::slowClientTimedOut()
{
    HttpConnection slow(m_host.port());
    QVERIFY(slow.send("GET /webapi/info HTTP/1.1\r\nHost: x\r\n"));
    QCOMPARE(HttpConnection(m_host.port()).reply("GET", "/healthz").status, 200);  // others are served meanwhile
    QVERIFY(slow.send("X-Still: typing\r\n"));
    QVERIFY(slow.waitForClose(10000));
    QVERIFY(m_host.waitForLog("\"GET /webapi/info\" 408"));
}

void TestHost::tlsPolicy_data()
{
    QTest::addColumn<QString>("options");  // of openssl s_client, with the client's own floor lowered
    QTest::addColumn<bool>("accepted");
    QTest::newRow("TLS 1.1") << "-tls1_1 -cipher DEFAULT@SECLEVEL=0" << false;
    QTest::newRow("TLS 1.2 CBC") << "-tls1_2 -cipher ECDHE-ECDSA-AES128-SHA256" << false;
    QTest::newRow("TLS 1.2 without forward secrecy") << "-tls1_2 -cipher AES128-GCM-SHA256" << false;
    QTest::newRow("TLS 1.2 ChaCha20") << "-tls1_2 -cipher ECDHE-ECDSA-CHACHA20-POLY1305" << true;
    QTest::newRow("TLS 1.3") << "-tls1_3" << true;
}

void TestHost::tlsPolicy()
{
    QFETCH(QString, options);
    QFETCH(bool, accepted);
    QProcess client;
    client.start("openssl", QStringList{"s_client", "-connect", QString("127.0.0.1:%1").arg(m_tls.port()), "-brief"}
                                + options.split(' '));
    client.closeWriteChannel();
    QVERIFY(client.waitForFinished(30000));
    const QByteArray out = client.readAllStandardOutput() + client.readAllStandardError();
    QVERIFY2((client.exitCode() == 0 && out.contains("CONNECTION ESTABLISHED")) == accepted, out.constData());
    if (!accepted)
        return;
    // The plug-in's bytes come through TLS as they are.
    QStringList curl{"-sS", "-i", "-o", m_dir.filePath("info"), "--cacert", m_dir.filePath("cert.pem"),
                     QString("https://127.0.0.1:%1/webapi/info").arg(m_tls.port())};
    for (const QString &header : m_a->terminalHeaders())
        curl << "-H" << header;
    QFile info(m_dir.filePath("info"));
    QVERIFY(QProcess::execute("curl", curl) == 0 && info.open(QIODevice::ReadOnly));
    COMPARE_EXPECTED(maskTms(info.readAll()), "spine/info.http");
}

void TestHost::refusedSettings_data()
{
    QTest::addColumn<QString>("setting");  // NAME=value
    QTest::addColumn<QString>("reason");
    QTest::newRow("no plug-in") << "WEBAPI_PLUGIN=/nonexistent/libwebapi.so" << "does not exist";
    QTest::newRow("not a library") << "WEBAPI_PLUGIN=" WEBAPI_TEST_DATA "/host/not-a-plugin.so" << "cannot load plug-in";
    QTest::newRow("other interface") << "WEBAPI_PLUGIN=" + QLibraryInfo::location(QLibraryInfo::PluginsPath)
            + "/sqldrivers/libqsqlmysql.so" << "is not an HTTP plug-in";
    // A server that answers but refuses: waiting would not help.
    QTest::newRow("no such InfoDB") << "WEBAPI_INFODB_NAME=no_such_infodb" << "cannot reach the InfoDB";
    QTest::newRow("bad port") << "WEBAPI_LISTEN_PORT=70000" << "listen/port";
    QTest::newRow("no lock wait") << "WEBAPI_SQL_TIMEOUT_LOCK=0" << "sql/timeout/lock";
    QTest::newRow("plain HTTP beyond loopback") << "WEBAPI_LISTEN_ADDRESS=0.0.0.0" << "listen/insecure=true";
    QTest::newRow("proxy not an address") << "WEBAPI_PROXY_TRUSTED=127.0.0.1,proxy.example" << "proxy/trusted";
    QTest::newRow("certificate alone") << "WEBAPI_TLS_CERTIFICATE=" + m_dir.filePath("cert.pem") << "tls/certificate and tls/key";
}

void TestHost::refusedSettings()
{
    QFETCH(QString, setting);
    QFETCH(QString, reason);
    HostProcess host;
    QVERIFY(!host.start(m_a->info().name(), {{setting.section('=', 0, 0), setting.section('=', 1)}}));
    QCOMPARE(host.waitForExit(), 2);
    // One line, naming the cause.
    const QList<QByteArray> lines = host.log().trimmed().split('\n');
    QVERIFY2(lines.size() == 1 && lines.first().startsWith("webapi-host: ") && lines.first().contains(reason.toUtf8()),
             host.log().constData());
}

enum GiveUp { AtStop, PastDeadline, ClientGone };
Q_DECLARE_METATYPE(GiveUp)

void TestHost::queuedRequestsGivenUp_data()
{
    QTest::addColumn<GiveUp>("how");
    QTest::newRow("at a stop") << AtStop;
    QTest::newRow("past the deadline") << PastDeadline;
    QTest::newRow("client gone") << ClientGone;
}

void TestHost::queuedRequestsGivenUp()
{
    QFETCH(GiveUp, how);
    HostProcess host;
    QVERIFY2(host.start(m_a->info().name(), {{"WEBAPI_THREADS", "1"}, {"WEBAPI_QUEUE_DEPTH", "1"},
                                             {"WEBAPI_QUEUE_DEADLINE", how == PastDeadline ? "1" : "3600"},
                                             {"WEBAPI_SQL_TIMEOUT_LOCK", "3600"}}),
             host.log().constData());
    // The licence rows are read on every request: holding their table holds the one worker.
    QVERIFY(m_a->customer().exec("LOCK TABLES vars WRITE"));
    HttpConnection running(host.port());
    QVERIFY(running.send(HttpConnection::format("GET", "/webapi/info", m_a->terminalHeaders())));
    const QString waiting = "SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE DB = '" + m_a->customer().name()
        + "' AND STATE LIKE 'Waiting for table metadata lock'";
    QTRY_COMPARE_WITH_TIMEOUT(m_a->info().scalar(waiting).toInt(), 1, 10000);
    // One of the two waits in the queue; the other finds it full.
    std::unique_ptr<HttpConnection> posts[2];
    for (int i = 0; i < 2; ++i) {
        posts[i].reset(new HttpConnection(host.port()));
        QVERIFY(posts[i]->send(HttpConnection::format("POST", "/webapi/entrance", m_a->terminalHeaders(m_tid),
                                                      entranceBody(m_person, 7001 + i))));
    }
    QVERIFY(host.waitForLog("\"POST /webapi/entrance\" 503 "));
    QCOMPARE(HttpConnection(host.port()).reply("GET", "/healthz").status, 200);
    if (how == ClientGone) {
        posts[0].reset();
        posts[1].reset();
        QVERIFY(host.waitForLog("\"POST /webapi/entrance\" 499 "));
    }
    if (how == AtStop)
        host.signal(SIGTERM);
    for (int i = 0; i < 2 && how != ClientGone; ++i)
        COMPARE_EXPECTED(maskTms(posts[i]->readResponse()), "host/busy.http");
    host.signal(SIGTERM);
    QVERIFY(m_a->customer().exec("UNLOCK TABLES"));
    QCOMPARE(HttpReply::parse(running.readResponse()).json().object().value("name").toString(), "Web API");
    QCOMPARE(host.waitForExit(), 0);
    // Given up means never run: no entrance of either post was stored, then or later.
    QCOMPARE(m_a->customer().scalar("SELECT COUNT(*) FROM inters_data WHERE refId IN (7001, 7002)").toInt(), 0);
}

QTEST_GUILESS_MAIN(TestHost)
#include "tst_host.moc"

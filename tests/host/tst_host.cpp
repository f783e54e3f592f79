// The real webapi-host binary over loopback HTTP and HTTPS against the private MariaDB:
// bytes on the wire, connection handling, limits, crafted tokens, throttling, stop
// behaviour, webhook and concurrent customers.
#include "support/apifixture.h"
#include "support/hostprocess.h"

#include "response/response.h"

#include <QLibraryInfo>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QtTest>

#include <signal.h>
#include <sys/resource.h>

#include <atomic>
#include <memory>
#include <thread>

namespace {

const int kBodyLimit = 100000;
const int kAuthLimit = 3;

// Runs openssl or curl to the end; false with the reason logged when it fails.
bool run(const QString &program, const QStringList &args, QByteArray *out = nullptr)
{
    QProcess process;
    process.start(program, args);
    const bool ok = process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    if (!ok)
        qWarning("%s %s: %s", qPrintable(program), qPrintable(args.join(' ')), process.readAllStandardError().constData());
    if (out)
        *out = process.readAllStandardOutput();
    return ok;
}

} // namespace

class TestHost : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void startFailures_data();
    void startFailures();
    void pluginBytesUnchanged_data();
    void pluginBytesUnchanged();
    void keepAliveAndPipelining();
    void refusals_data();
    void refusals();
    void slowClientTimedOut();
    void tlsConnections();
    void tlsPolicy_data();
    void tlsPolicy();
    void tlsReloadedOnHangup();
    void accessLogHidesCredentials();
    void jsonAccessLog_data();
    void jsonAccessLog();
    void metricsCount_data();
    void metricsCount();
    void metricsOnTheirOwnPort();
    void craftedTokens_data();
    void craftedTokens();
    void throttle_data();
    void throttle();
    void throttleBehindProxy();
    void connectionCaps();
    void outOfDescriptors();
    void webhookGetsRecordCreated();
    void concurrentCustomers();
    void queuedRequestsGivenUp_data();
    void queuedRequestsGivenUp();

private:
    struct Customer
    {
        ApiFixture *fx;
        QString tid;
        QString person;
    };
    QByteArray curl(const QStringList &args);
    QString tlsUrl(const char *path) const { return QString("https://127.0.0.1:%1%2").arg(m_tls.port()).arg(path); }
    // Statements of customer A's database waiting for a table lock.
    int waitingForLockOfA()
    {
        return m_a->info().scalar("SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE DB = '" + m_a->customer().name()
                                  + "' AND STATE LIKE 'Waiting for table metadata lock'").toInt();
    }

    QTemporaryDir m_dir;  // the self-signed certificate and keys
    QScopedPointer<ApiFixture> m_a;
    QScopedPointer<ApiFixture> m_b;
    Customer m_customerA{};
    Customer m_customerB{};
    HostProcess m_host;
    HostProcess m_tls;
    HostProcess m_jsonLog;  // JSON access lines, metrics on a port of their own
    quint16 m_metricsPort = 0;
};

QByteArray TestHost::curl(const QStringList &args)
{
    QByteArray out;
    return run("curl", QStringList{"-sS", "--cacert", m_dir.filePath("cert.pem")} + args, &out)
        ? out
        : QByteArray();
}

void TestHost::initTestCase()
{
    QVERIFY2(QFile::exists(HostProcess::binary()), "build the webapi-host target first");
    QVERIFY(m_dir.isValid());
    const QString ec = "-pkeyopt ec_paramgen_curve:prime256v1 ";
    for (const QString &args : {"req -x509 -newkey ec " + ec + "-nodes -keyout " + m_dir.filePath("key.pem") + " -out "
                                    + m_dir.filePath("cert.pem") + " -days 2 -subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1",
                                "genpkey -algorithm EC " + ec + "-out " + m_dir.filePath("other-key.pem")})
        QVERIFY(run("openssl", args.split(' ')));

    m_a.reset(new ApiFixture("host_a"));
    QVERIFY2(m_a->setUp(), qPrintable(m_a->error()));
    m_b.reset(new ApiFixture("host_b"));
    QVERIFY2(m_b->setUp(), qPrintable(m_b->error()));
    // One InfoDB for both customers, as the host has one.
    QVERIFY(m_a->info().exec(QString("INSERT INTO `schemas` (token, name, user, pass, status) VALUES ('%1', '%2', '%3', '%4', 1)")
                                 .arg(m_b->token(), m_b->customer().name(), TestServer::user(),
                                      QString::fromLatin1(TestServer::password().toUtf8().toBase64()))));
    m_customerA = {m_a.data(), m_a->addTerminal(1001), addPerson(*m_a)};
    m_customerB = {m_b.data(), m_b->addTerminal(1002), addPerson(*m_b)};
    QVERIFY(!m_customerA.person.isEmpty() && !m_customerB.person.isEmpty());

    QVERIFY2(m_host.start(m_a->info().name(), {{"WEBAPI_LIMITS_BODY", QString::number(kBodyLimit)},
                                               {"WEBAPI_LIMITS_TIMEOUT", "2"},
                                               {"WEBAPI_AUTH_FAILURES", QString::number(kAuthLimit)}}),
             m_host.log().constData());
    QVERIFY2(m_tls.start(m_a->info().name(), {{"WEBAPI_TLS_CERTIFICATE", m_dir.filePath("cert.pem")},
                                              {"WEBAPI_TLS_KEY", m_dir.filePath("key.pem")},
                                              {"WEBAPI_LIMITS_TIMEOUT", "2"}}),
             m_tls.log().constData());
    QVERIFY(m_tls.log().contains("listening on https://127.0.0.1:"));
    QTcpServer probe;  // a free port for the metrics
    QVERIFY(probe.listen(QHostAddress::LocalHost));
    m_metricsPort = probe.serverPort();
    probe.close();
    QVERIFY2(m_jsonLog.start(m_a->info().name(), {{"WEBAPI_LOG_FORMAT", "json"},
                                                  {"WEBAPI_METRICS_LISTEN", QString("127.0.0.1:%1").arg(m_metricsPort)}}),
             m_jsonLog.log().constData());
}

void TestHost::startFailures_data()
{
    QTest::addColumn<QStringList>("settings");  // NAME=value
    QTest::addColumn<QString>("reason");
    const QString plugin = "WEBAPI_PLUGIN=";
    const QString cert = "WEBAPI_TLS_CERTIFICATE=" + m_dir.filePath("cert.pem");
    QTest::newRow("missing plug-in") << QStringList{plugin + "/nonexistent/libwebapi.so"} << "does not exist";
    QTest::newRow("not a library") << QStringList{plugin + WEBAPI_TEST_DATA "/host/not-a-plugin.so"} << "cannot load plug-in";
    QTest::newRow("other interface")
        << QStringList{plugin + QLibraryInfo::location(QLibraryInfo::PluginsPath) + "/sqldrivers/libqsqlmysql.so"}
        << "is not an HTTP plug-in";
    // A server that answers but refuses: waiting would not help.
    QTest::newRow("no such InfoDB") << QStringList{"WEBAPI_INFODB_NAME=no_such_infodb"} << "cannot reach the InfoDB";
    QTest::newRow("bad port") << QStringList{"WEBAPI_LISTEN_PORT=70000"} << "listen/port";
    QTest::newRow("plain HTTP beyond loopback") << QStringList{"WEBAPI_LISTEN_ADDRESS=0.0.0.0"} << "listen/insecure=true";
    QTest::newRow("proxy not an address") << QStringList{"WEBAPI_PROXY_TRUSTED=127.0.0.1,proxy.example"} << "proxy/trusted";
    QTest::newRow("no lock wait") << QStringList{"WEBAPI_SQL_TIMEOUT_LOCK=0"} << "sql/timeout/lock";
    QTest::newRow("certificate alone") << QStringList{cert} << "tls/certificate and tls/key go together";
    QTest::newRow("no such certificate")
        << QStringList{"WEBAPI_TLS_CERTIFICATE=" + m_dir.filePath("none.pem"), "WEBAPI_TLS_KEY=" + m_dir.filePath("key.pem")}
        << "cannot load the TLS certificate";
    QTest::newRow("key of another certificate") << QStringList{cert, "WEBAPI_TLS_KEY=" + m_dir.filePath("other-key.pem")}
                                                << "cannot load the TLS key";
}

void TestHost::startFailures()
{
    QFETCH(QStringList, settings);
    QFETCH(QString, reason);
    QMap<QString, QString> environment;
    for (const QString &setting : settings)
        environment.insert(setting.section('=', 0, 0), setting.section('=', 1));
    HostProcess host;
    QVERIFY(!host.start(m_a->info().name(), environment));
    QCOMPARE(host.waitForExit(), 2);
    // One line, naming the cause.
    const QList<QByteArray> lines = host.log().trimmed().split('\n');
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.first().startsWith("webapi-host: ") && lines.first().contains(reason.toUtf8()), lines.first().constData());
}

void TestHost::pluginBytesUnchanged_data()
{
    QTest::addColumn<QStringList>("headers");
    QTest::addColumn<bool>("tls");
    QTest::addColumn<QString>("expectedFile");
    // The plug-in's own fixtures: the host must deliver its bytes as they are.
    const QStringList info{"Pragma: " + m_a->token(), "Authorization: Bearer " + ApiFixture::kKey};
    QTest::newRow("info") << info << false << "spine/info.http";
    QTest::newRow("unauthorized") << QStringList{info.first()} << false << "spine/unauthorized.http";
    QTest::newRow("info over TLS") << info << true << "spine/info.http";
}

void TestHost::pluginBytesUnchanged()
{
    QFETCH(QStringList, headers);
    QFETCH(bool, tls);
    QFETCH(QString, expectedFile);
    QByteArray raw;
    if (tls) {
        QStringList args{"-i", tlsUrl("/webapi/info")};
        for (const QString &header : headers)
            args << "-H" << header;
        raw = curl(args);
    } else {
        raw = HttpConnection(m_host.port()).request("GET", "/webapi/info", headers);
    }
    COMPARE_EXPECTED(maskTms(raw), expectedFile);
}

void TestHost::keepAliveAndPipelining()
{
    HttpConnection connection(m_host.port());
    const QStringList headers = m_a->terminalHeaders();
    QCOMPARE(connection.reply("GET", "/webapi/info", headers).status, 200);
    QCOMPARE(connection.reply("GET", "/healthz").status, 200);
    QCOMPARE(connection.reply("GET", "/elsewhere").status, 404);
    // Three requests in one write come back in order on the same connection.
    QVERIFY(connection.send(HttpConnection::format("GET", "/webapi/response-errors", headers)
                            + HttpConnection::format("GET", "/nothing") + HttpConnection::format("GET", "/webapi/info", headers)));
    const HttpReply first = HttpReply::parse(connection.readResponse());
    const HttpReply second = HttpReply::parse(connection.readResponse());
    const HttpReply third = HttpReply::parse(connection.readResponse());
    QCOMPARE(first.status, 200);
    QCOMPARE(first.json().array().size(), 28);
    QCOMPARE(second.status, 404);
    QCOMPARE(third.status, 200);
    QCOMPARE(third.json().object().value("name").toString(), "Web API");
    QVERIFY(connection.isConnected());
}

void TestHost::refusals_data()
{
    QTest::addColumn<QByteArray>("raw");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("closes");
    QTest::newRow("body over the limit") << QByteArray("POST /webapi/entrance HTTP/1.1\r\nHost: x\r\nPragma: " + m_a->token().toUtf8()
                                                       + "\r\nContent-Length: " + QByteArray::number(kBodyLimit + 1) + "\r\n\r\n")
                                         << 413 << true;
    QTest::newRow("header over 16 KiB") << HttpConnection::format("GET", "/webapi/info", {"X-Pad: " + QString(17000, 'a')}) << 431
                                        << true;
    QTest::newRow("not HTTP") << QByteArray("HELLO THERE\r\n\r\n") << 400 << true;
    QTest::newRow("unknown path") << HttpConnection::format("GET", "/index.html") << 404 << false;
    QTest::newRow("prefix look-alike") << HttpConnection::format("GET", "/webapix/info") << 404 << false;
    QTest::newRow("connection close") << HttpConnection::format("GET", "/healthz", {"Connection: close"}) << 200 << true;
}

void TestHost::refusals()
{
    QFETCH(QByteArray, raw);
    QFETCH(int, status);
    QFETCH(bool, closes);
    HttpConnection connection(m_host.port());
    QVERIFY(connection.send(raw));
    QCOMPARE(HttpReply::parse(connection.readResponse()).status, status);
    QCOMPARE(connection.waitForClose(closes ? 5000 : 300), closes);
}

void TestHost::slowClientTimedOut()
{
    HttpConnection slow(m_host.port());
    QVERIFY(slow.send("GET /webapi/info HTTP/1.1\r\nHost: x\r\n"));
    // Meanwhile others are served.
    QCOMPARE(HttpConnection(m_host.port()).reply("GET", "/healthz").status, 200);
    QVERIFY(slow.send("X-Still: typing\r\n"));
    QVERIFY(slow.waitForClose(10000));
    QVERIFY(m_host.waitForLog("\"GET /webapi/info\" 408"));
}

void TestHost::tlsConnections()
{
    // Two transfers in one curl run: the second reuses the first one's connection.
    QCOMPARE(curl({"-o", "/dev/null", "-o", "/dev/null",
                   "-w", "%{http_code}:%{num_connects} ", tlsUrl("/healthz"), tlsUrl("/healthz")}),
             QByteArray("200:1 200:0 "));
    // A plain client, and one that never starts a handshake (within limits/timeout), are
    // dropped without harm to the port.
    HttpConnection silent(m_tls.port());
    HttpConnection plain(m_tls.port());
    QVERIFY(silent.isConnected());
    QVERIFY(plain.send(HttpConnection::format("GET", "/webapi/info", {"Pragma: " + m_a->token()})));
    QVERIFY(plain.waitForClose(5000));
    QVERIFY(silent.waitForClose(10000));
    QCOMPARE(curl({"-o", "/dev/null", "-w", "%{http_code}",
                   tlsUrl("/healthz")}),
             QByteArray("200"));
    // A burst of failed handshakes costs a line or two (with the count of the rest), not one each.
    const int logStart = m_tls.log().size();
    for (int i = 0; i < 10; ++i) {
        HttpConnection client(m_tls.port());
        QVERIFY(client.send(HttpConnection::format("GET", "/healthz")) && client.waitForClose(5000));
    }
    QVERIFY(m_tls.log().mid(logStart).count("TLS handshake failed") <= 2);
}

void TestHost::tlsPolicy_data()
{
    QTest::addColumn<QString>("options");  // of openssl s_client
    QTest::addColumn<bool>("accepted");
    // The client's own floor lowered, so only the host's policy can refuse.
    QTest::newRow("TLS 1.1") << "-tls1_1 -cipher DEFAULT@SECLEVEL=0" << false;
    QTest::newRow("TLS 1.2 CBC") << "-tls1_2 -cipher ECDHE-ECDSA-AES128-SHA256" << false;
    QTest::newRow("TLS 1.2 without forward secrecy") << "-tls1_2 -cipher AES128-GCM-SHA256" << false;
    QTest::newRow("TLS 1.2 AES-GCM") << "-tls1_2 -cipher ECDHE-ECDSA-AES256-GCM-SHA384" << true;
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
        QVERIFY(m_tls.waitForLog("TLS handshake failed from 127.0.0.1"));
}

void TestHost::tlsReloadedOnHangup()
{
    QTemporaryDir dir;
    const QString cert = dir.filePath("cert.pem");
    const QString key = dir.filePath("key.pem");
    // A new pair in place of the old, its name as the common name.
    const auto install = [&](const QString &name) {
        return run("openssl", QString("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout %1 -out %2 "
                                      "-days 2 -subj /CN=%3")
                                  .arg(key, cert, name)
                                  .split(' '));
    };
    const auto commonName = [](const HttpConnection &connection) {
        return connection.peerCertificate().subjectInfo(QSslCertificate::CommonName).value(0);
    };
    QVERIFY(install("first"));
    HostProcess host;
    QVERIFY2(host.start(m_a->info().name(), {{"WEBAPI_TLS_CERTIFICATE", cert}, {"WEBAPI_TLS_KEY", key}}), host.log().constData());
    HttpConnection kept(host.port(), QHostAddress(), true);
    QCOMPARE(commonName(kept), "first");
    QCOMPARE(kept.reply("GET", "/healthz").status, 200);

    QVERIFY(install("second"));
    host.signal(SIGHUP);
    QVERIFY(host.waitForLog("TLS certificate and key reloaded"));
    QCOMPARE(commonName(HttpConnection(host.port(), QHostAddress(), true)), "second");
    QCOMPARE(kept.reply("GET", "/healthz").status, 200);

    // A broken file keeps the certificate in use.
    QFile broken(cert);
    QVERIFY(broken.open(QIODevice::WriteOnly | QIODevice::Truncate) && broken.write("not a certificate\n") > 0);
    broken.close();
    host.signal(SIGHUP);
    QVERIFY(host.waitForLog("TLS reload failed, the previous certificate stays in use"));
    HttpConnection after(host.port(), QHostAddress(), true);
    QCOMPARE(commonName(after), "second");
    QCOMPARE(after.reply("GET", "/healthz").status, 200);
    QCOMPARE(kept.reply("GET", "/healthz").status, 200);
}

void TestHost::accessLogHidesCredentials()
{
    HttpConnection(m_host.port()).request("GET", "/webapi/info?q=1", m_a->adminHeaders("api-token-secret-in-log"));
    QVERIFY(m_host.waitForLog("127.0.0.1 \"GET /webapi/info\" 200 "));
    QVERIFY(!m_host.log().contains("api-token-secret-in-log"));
    QVERIFY(!m_host.log().contains(ApiFixture::kKey.toUtf8()));
}

void TestHost::jsonAccessLog_data()
{
    QTest::addColumn<QString>("requestId");  // as sent; empty: no header
    QTest::addColumn<bool>("echoed");
    QTest::newRow("none") << QString() << false;
    QTest::newRow("uuid") << "6f1c2a7e-0b4d-4c8e-9a55-3f0d2e1b7c90" << true;
    QTest::newRow("128 characters") << QString(128, 'r') << true;
    QTest::newRow("129 characters") << QString(129, 'r') << false;
    QTest::newRow("unsafe characters") << "id \"x\" <b>;" << false;
}

void TestHost::jsonAccessLog()
{
    QFETCH(QString, requestId);
    QFETCH(bool, echoed);
    QStringList headers = m_a->terminalHeaders();
    if (!requestId.isEmpty())
        headers << "X-Request-Id: " + requestId;
    const int logStart = m_jsonLog.log().size();
    const QByteArray raw = HttpConnection(m_jsonLog.port()).request("GET", "/webapi/info?key=query-secret", headers);
    QTRY_VERIFY(m_jsonLog.log().mid(logStart).contains("\"status\""));
    QByteArray expected = testData("spine/info.http");
    if (echoed)
        expected.replace("\r\n\r\n", "\r\nX-Request-Id: " + requestId.toUtf8() + "\r\n\r\n");
    QCOMPARE(maskTms(raw), expected);

    const QList<QByteArray> lines = m_jsonLog.log().mid(logStart).trimmed().split('\n');
    QCOMPARE(lines.size(), 1);
    QJsonParseError error{};
    const QJsonObject line = QJsonDocument::fromJson(lines.first(), &error).object();
    QVERIFY2(error.error == QJsonParseError::NoError, lines.first().constData());
    QCOMPARE(line.value("client").toString(), "127.0.0.1");
    QCOMPARE(line.value("method").toString(), "GET");
    QCOMPARE(line.value("path").toString(), "/webapi/info");
    QCOMPARE(line.value("status").toInt(), 200);
    QCOMPARE(line.value("bytes").toInt(), raw.size());
    QVERIFY(line.value("duration_ms").toDouble() > 0);
    QVERIFY(QDateTime::fromString(line.value("time").toString(), Qt::ISODateWithMs).isValid());
    const QString loggedId = line.value("request_id").toString();
    QVERIFY(!loggedId.isEmpty());
    QCOMPARE(loggedId == requestId, echoed);
}

namespace {

// The value of one series ("name{labels}") in a metrics page; 0 when it is not there yet.
double metric(const QByteArray &page, const QByteArray &series)
{
    for (const QByteArray &line : page.split('\n')) {
        if (line.startsWith(series + ' '))
            return line.mid(series.size() + 1).toDouble();
    }
    return 0;
}

} // namespace

void TestHost::metricsCount_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QByteArray>("series");  // each must move by one
    const QByteArray person = "/webapi/person/" + m_customerA.person.toUtf8();
    QTest::newRow("route with identifier") << person << ApiFixture::kKey
                                           << QByteArray("webapi_requests_total{route=\"/webapi/person/{id}\",method=\"GET\",status=\"200\"}");
    QTest::newRow("duration by route") << person << ApiFixture::kKey
                                       << QByteArray("webapi_request_duration_seconds_count{route=\"/webapi/person/{id}\"}");
    QTest::newRow("refused key") << person << "guessed-key-in-metrics" << QByteArray("webapi_failed_authentications_total");
    QTest::newRow("unknown path") << QByteArray("/webapi/person/" + m_a->token().toUtf8() + "/x") << ApiFixture::kKey
                                  << QByteArray("webapi_requests_total{route=\"other\",method=\"GET\",status=\"400\"}");
}

void TestHost::metricsCount()
{
    QFETCH(QByteArray, path);
    QFETCH(QString, key);
    QFETCH(QByteArray, series);
    // A client of its own: the refused key must not throttle the other cases.
    HttpConnection connection(m_host.port(), QHostAddress("127.0.0.21"));
    const double before = metric(connection.reply("GET", "/metrics").body, series);
    const QStringList headers{"Pragma: " + m_a->token(), "Authorization: Bearer " + key, "X-ZMT-TID: " + m_customerA.tid};
    connection.reply("GET", path, headers);
    const HttpReply page = connection.reply("GET", "/metrics");
    QCOMPARE(page.header("Content-Type"), QByteArray("text/plain; version=0.0.4; charset=utf-8"));
    QCOMPARE(metric(page.body, series), before + 1);
    for (const QString &secret : {m_a->token(), ApiFixture::kKey, key, m_customerA.person, m_customerA.tid})
        QVERIFY2(!page.body.contains(secret.toUtf8()), qPrintable(secret));
}

void TestHost::metricsOnTheirOwnPort()
{
    QCOMPARE(HttpConnection(m_jsonLog.port()).reply("GET", "/metrics").status, 404);
    const HttpReply page = HttpConnection(m_metricsPort).reply("GET", "/metrics");
    QCOMPARE(page.status, 200);
    for (const char *family : {"webapi_requests_total counter", "webapi_request_duration_seconds histogram",
                               "webapi_database_errors_total counter", "webapi_throttled_requests_total counter",
                               "webapi_queue_depth gauge", "webapi_open_connections gauge", "webapi_customer_connections gauge"})
        QVERIFY2(page.body.contains("# TYPE " + QByteArray(family) + '\n'), family);
    QCOMPARE(HttpConnection(m_metricsPort).reply("GET", "/webapi/info", m_a->terminalHeaders()).status, 404);
}

void TestHost::craftedTokens_data()
{
    QTest::addColumn<QString>("pragma");
    QTest::addColumn<int>("status");
    // Refused by the host before any worker or the InfoDB sees them.
    for (const QByteArray &token : testData("injection/tokens.txt").trimmed().split('\n'))
        QTest::newRow(token.constData()) << "Pragma: " + QString::fromUtf8(token) << 400;
    // Read as the plug-in reads it: the value ends at the next colon, and a line without the
    // word "token" carries no token at all; either way the plug-in answers.
    const QString token = "token-" + TestServer::uniqueName("x");
    QTest::newRow("cut at colon") << "Pragma: " + token + ":' OR '1'='1" << 503;
    QTest::newRow("no token word") << "Pragma: no-cache'" << 503;
    QTest::newRow("unknown plain token") << "Pragma: " + token << 503;
}

void TestHost::craftedTokens()
{
    QFETCH(QString, pragma);
    QFETCH(int, status);
    QStringList headers = m_a->terminalHeaders();
    headers.first() = pragma;
    // Unknown tokens count as guesses: an address of its own keeps them from other tests.
    HttpConnection connection(m_host.port(), QHostAddress("127.0.0.21"));
    const QByteArray raw = connection.request("GET", "/webapi/info", headers);
    if (status == 400)
        COMPARE_EXPECTED(maskTms(raw), "injection/host-bad-token.http");
    else
        QCOMPARE(HttpReply::parse(raw).status, status);
    QVERIFY(!m_host.log().contains("SLEEP"));
    // The refusal keeps the connection.
    QCOMPARE(connection.reply("GET", "/webapi/info", m_a->terminalHeaders()).status, 200);
}

void TestHost::throttle_data()
{
    QTest::addColumn<QString>("customer");  // a, b (its licence off meanwhile) or an unknown token
    QTest::addColumn<QString>("authorization");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("client");  // each row its own address: windows do not mix
    QTest::addColumn<bool>("throttled");
    const QString key = "Bearer " + ApiFixture::kKey;
    QTest::newRow("guessed key") << "a" << "Bearer guess-0001" << int(Response::RE_BadApiToken) << "127.0.0.11" << true;
    QTest::newRow("other scheme") << "a" << "Basic Z3Vlc3M=" << int(Response::RE_BadAuthorization) << "127.0.0.12" << true;
    QTest::newRow("no authorization") << "a" << "" << int(Response::RE_Unauthorized) << "127.0.0.13" << false;
    // Guessed customers lock the client out of every customer.
    QTest::newRow("unknown customer") << "token-guess-" + TestServer::uniqueName("t") << key << int(Response::RE_BadDatabase)
                                      << "127.0.0.14" << true;
    QTest::newRow("not licensed") << "b" << key << int(Response::RE_BadAuthorization) << "127.0.0.15" << false;
}

void TestHost::throttle()
{
    QFETCH(QString, customer);
    QFETCH(QString, authorization);
    QFETCH(int, code);
    QFETCH(QString, client);
    QFETCH(bool, throttled);
    const QString token = customer == "a" ? m_a->token() : customer == "b" ? m_b->token() : customer;
    const QString pragma = "Pragma: " + token;
    // The request after the failures: the same customer, or A after unknown tokens.
    const QStringList goodKey{"Pragma: " + (customer == "b" ? m_b->token() : m_a->token()), "Authorization: Bearer " + ApiFixture::kKey};
    const QString licence = "UPDATE vars SET value = '%1' WHERE name = 'webapi.enabled'";
    if (customer == "b")
        QVERIFY(m_b->customer().exec(licence.arg(0)));
    HttpConnection attacker(m_host.port(), QHostAddress(client));
    QVERIFY(attacker.isConnected());
    for (int i = 0; i < kAuthLimit; ++i) {
        const HttpReply reply = attacker.reply("GET", "/webapi/people",
                                               authorization.isEmpty() ? QStringList{pragma}
                                                                       : QStringList{pragma, "Authorization: " + authorization});
        QCOMPARE(reply.errorCode(), code);
    }
    if (customer == "b")
        QVERIFY(m_b->customer().exec(licence.arg(1)));
    // Past the limit even the right key is refused, before the plug-in is asked.
    const HttpReply refused = attacker.reply("GET", "/webapi/info", goodKey);
    if (!throttled) {
        QCOMPARE(refused.status, 200);
        return;
    }
    QCOMPARE(refused.status, 429);
    const int retryAfter = refused.header("Retry-After").toInt();
    QVERIFY2(retryAfter >= 1 && retryAfter <= 60, refused.header("Retry-After").constData());
    QCOMPARE(refused.body, QByteArray("too many failed authentications; retry later\n"));
    QVERIFY(refused.header("X-WEBAPI-VER").isEmpty());
    QVERIFY(attacker.isConnected());  // keep-alive as asked
    QCOMPARE(attacker.reply("GET", "/healthz").status, 200);
    // Another address (another client behind no proxy) is let in.
    HttpConnection neighbour(m_host.port(), QHostAddress(client.left(client.lastIndexOf('.')) + ".99"));
    QCOMPARE(neighbour.reply("GET", "/webapi/info", goodKey).status, 200);
    QVERIFY(m_host.waitForLog(client.toUtf8() + " \"GET /webapi/info\" 429 "));
}

void TestHost::throttleBehindProxy()
{
    HostProcess host;
    QVERIFY2(host.start(m_a->info().name(), {{"WEBAPI_AUTH_FAILURES", QString::number(kAuthLimit)},
                                             {"WEBAPI_PROXY_TRUSTED", "127.0.0.2, 127.0.0.1"}}),
             host.log().constData());
    const auto headers = [](const QString &token, const QString &key, const QString &forwardedFor) {
        QStringList lines{"Pragma: " + token, "Authorization: Bearer " + key};
        if (!forwardedFor.isEmpty())
            lines << "X-Forwarded-For: " + forwardedFor;
        return lines;
    };
    const QString key = ApiFixture::kKey;
    // One proxy connection carries all clients; the first client guesses at customer A.
    HttpConnection proxy(host.port());
    for (int i = 0; i < kAuthLimit; ++i)
        QCOMPARE(proxy.reply("GET", "/webapi/info", headers(m_a->token(), "guess", "10.0.0.1")).status, 401);
    struct Case
    {
        const char *forwardedFor;
        QString token;
        int status;
    };
    const Case cases[] = {
        {"10.0.0.1", m_a->token(), 429},
        // Entries left of the client are its own words; trusted hops right of it are skipped.
        {"192.0.2.7, 10.0.0.1, 127.0.0.2", m_a->token(), 429},
        {"10.0.0.1, 10.0.0.2", m_a->token(), 200},
        {"10.0.0.2", m_a->token(), 200},
        {"", m_a->token(), 200},  // the proxy itself
        // Counted per customer.
        {"10.0.0.1", m_b->token(), 200},
    };
    for (const Case &c : cases)
        QVERIFY2(proxy.reply("GET", "/webapi/info", headers(c.token, key, c.forwardedFor)).status == c.status, c.forwardedFor);
    QVERIFY(host.waitForLog("10.0.0.1 \"GET /webapi/info\" 429 "));
    QVERIFY(host.waitForLog("10.0.0.2 \"GET /webapi/info\" 200 "));

    // From an address that is no trusted proxy the header counts for nothing.
    HttpConnection direct(host.port(), QHostAddress("127.0.0.3"));
    for (int i = 0; i < kAuthLimit; ++i)
        QCOMPARE(direct.reply("GET", "/webapi/info", headers(m_a->token(), "guess", QString("10.0.1.%1").arg(i))).status, 401);
    QCOMPARE(direct.reply("GET", "/webapi/info", headers(m_a->token(), key, "10.0.1.99")).status, 429);
    QVERIFY(host.waitForLog("127.0.0.3 \"GET /webapi/info\" 429 "));
}

void TestHost::connectionCaps()
{
    // Also the one host on all addresses: allowed in plain HTTP only when asked for.
    HostProcess host;
    QVERIFY2(host.start(m_a->info().name(), {{"WEBAPI_LISTEN_ADDRESS", "0.0.0.0"}, {"WEBAPI_LISTEN_INSECURE", "true"},
                                             {"WEBAPI_LIMITS_CONNECTIONS", "5"}, {"WEBAPI_LIMITS_CLIENT_CONNECTIONS", "2"},
                                             {"WEBAPI_PROXY_TRUSTED", "127.0.0.1"}}),
             host.log().constData());
    std::vector<std::unique_ptr<HttpConnection>> open;
    const auto connect = [&](const char *from) {
        open.push_back(std::make_unique<HttpConnection>(host.port(), QHostAddress(from)));
        return open.back().get();
    };
    const auto served = [](HttpConnection *connection) { return connection->reply("GET", "/healthz").status == 200; };
    QVERIFY(served(connect("127.0.0.31")));
    QVERIFY(served(connect("127.0.0.31")));
    // Over the cap of its address: closed unanswered.
    QVERIFY(connect("127.0.0.31")->waitForClose(5000));
    // A trusted proxy counts only in the total.
    for (int i = 0; i < 3; ++i)
        QVERIFY(served(connect("127.0.0.1")));
    QVERIFY(connect("127.0.0.32")->waitForClose(5000));
    // A connection that ends gives its place back.
    open.front().reset();
    bool servedAgain = false;
    for (int attempt = 0; attempt < 50 && !servedAgain; ++attempt)
        servedAgain = served(connect("127.0.0.32")) || (QTest::qWait(100), false);
    QVERIFY(servedAgain);
    QVERIFY(host.log().contains("connection cap reached"));
}

void TestHost::outOfDescriptors()
{
    HostProcess host;
    QVERIFY2(host.start(m_a->info().name(), {{"WEBAPI_THREADS", "2"}}), host.log().constData());
    const pid_t pid = pid_t(host.process().processId());
    HttpConnection kept(host.port());
    QCOMPARE(kept.reply("GET", "/webapi/info", m_a->terminalHeaders()).status, 200);
    // A few descriptors to spare, then a burst of connections that needs many more.
    const rlimit limit{rlim_t(QDir(QString("/proc/%1/fd").arg(pid)).count()) + 4, rlim_t(4096)};
    QVERIFY(prlimit(pid, RLIMIT_NOFILE, &limit, nullptr) == 0);
    std::vector<std::unique_ptr<HttpConnection>> burst;
    for (int i = 0; i < 40; ++i)
        burst.push_back(std::make_unique<HttpConnection>(host.port()));
    QVERIFY(host.waitForLog("pausing new connections"));
    // Time in which an accept loop that retried at once would try thousands of times.
    QTest::qWait(1000);
    burst.clear();
    QVERIFY(host.waitForLog("accepting again after"));
    QCOMPARE(kept.reply("GET", "/webapi/info", m_a->terminalHeaders()).status, 200);
    QCOMPARE(HttpConnection(host.port()).reply("GET", "/webapi/info", m_a->terminalHeaders()).status, 200);
    // One line per pause (the backlog may fill the table again once), and few attempts in all.
    const QString log = QString::fromUtf8(host.log());
    int pauses = 0;
    int attempts = 0;
    auto resumed = QRegularExpression("accepting again after (\\d+) failed attempts").globalMatch(log);
    for (; resumed.hasNext(); ++pauses)
        attempts += resumed.next().captured(1).toInt();
    QCOMPARE(log.count("pausing new connections"), pauses);
    QVERIFY2(attempts >= 1 && attempts <= 100, qPrintable(log));
    QCOMPARE(host.process().state(), QProcess::Running);
}

void TestHost::webhookGetsRecordCreated()
{
    QTcpServer receiver;
    QVERIFY(receiver.listen(QHostAddress::LocalHost));
    QByteArray received;
    int attempts = 0;
    connect(&receiver, &QTcpServer::newConnection, this, [&] {
        QTcpSocket *socket = receiver.nextPendingConnection();
        connect(socket, &QTcpSocket::readyRead, socket, [&, socket] {
            received += socket->readAll();
            if (!received.contains("\r\n\r\n") || !received.endsWith('}'))
                return;
            // The first delivery fails, so the retry is exercised too.
            ++attempts;
            socket->write(attempts == 1 ? "HTTP/1.1 503 Busy\r\nContent-Length: 0\r\nConnection: close\r\n\r\n"
                                        : "HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n");
            socket->disconnectFromHost();
            if (attempts == 1)
                received.clear();
        });
    });
    HostProcess host;
    QVERIFY2(host.start(m_a->info().name(), {{"WEBAPI_WEBHOOK_URL",
                                              QString("http://127.0.0.1:%1/events").arg(receiver.serverPort())},
                                             {"WEBAPI_AUTH_FAILURES", "0"}}),
             host.log().constData());
    HttpConnection connection(host.port());
    QCOMPARE(connection.reply("POST", "/webapi/entrance", m_a->terminalHeaders(m_customerA.tid), entranceBody(m_customerA.person, 4242, 2048))
                 .status,
             201);
    QTRY_COMPARE_WITH_TIMEOUT(attempts, 2, 10000);
    const QJsonObject event = QJsonDocument::fromJson(received.mid(received.indexOf("\r\n\r\n") + 4)).object();
    const uint id = m_a->customer().scalar("SELECT id FROM inters_data WHERE refId = 4242").toUInt();
    QCOMPARE(event.value("table").toString(), "inters_data");
    QCOMPARE(event.value("id").toInt(), int(id));
    QCOMPARE(event.value("token").toString(), m_a->token());
    QVERIFY(host.log().contains(QString("recordCreated table=inters_data id=%1 token=%2").arg(id).arg(m_a->token()).toUtf8()));

    // This host counts no failed authentications at all (limit 0), past the default 10 too.
    QStringList wrongKey{"Pragma: " + m_a->token(), "Authorization: Bearer nope"};
    for (int i = 0; i < 12; ++i)
        QCOMPARE(connection.reply("GET", "/webapi/info", wrongKey).status, 401);
    QCOMPARE(connection.reply("GET", "/webapi/info", m_a->terminalHeaders()).status, 200);
}

void TestHost::concurrentCustomers()
{
    m_a->customer().exec("DELETE FROM inters_data");
    const int logStart = m_host.log().size();
    const int clients = 8;
    const int perClient = 250;
    std::atomic<int> malformed{0};
    std::atomic<int> wrong{0};  // not the status or content each request must get
    std::atomic<int> entrances[2] = {{0}, {0}};
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; ++c) {
        const Customer customer = c % 2 ? m_customerB : m_customerA;
        threads.emplace_back([&, c, customer] {
            HttpConnection connection(m_host.port());
            const QStringList terminal = customer.fx->terminalHeaders(customer.tid);
            const QStringList admin = customer.fx->adminHeaders("api-token-boss");
            for (int i = 0; i < perClient; ++i) {
                HttpReply reply;
                switch (i % 5) {
                case 0:
                case 1: {
                    // Every fourth entrance is sent twice: it must still be stored once. A
                    // refId of 0 means none, and such events are never recognised again.
                    const uint refId = uint((c + 1) * 10000 + (i % 10 == 1 ? i - 1 : i));
                    reply = connection.reply("POST", "/webapi/entrance", terminal, entranceBody(customer.person, refId));
                    if (reply.status == 201)
                        ++entrances[c % 2];
                    break;
                }
                case 2: reply = connection.reply("GET", "/webapi/people", terminal); break;
                case 3: reply = connection.reply("GET", "/webapi/inters", terminal); break;
                default:
                    reply = connection.reply("GET", "/webapi/report/daily/0", admin);
                    wrong += reply.json().object().value("activeEmployees").toInt() != 1;
                    break;
                }
                if (!reply.valid || reply.header("Content-Length").toInt() != reply.body.size() || reply.json().isNull())
                    ++malformed;
                wrong += i % 5 <= 1 ? reply.status != 201 && reply.status != 208 : reply.status != 200;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    QCOMPARE(malformed.load(), 0);
    QCOMPARE(wrong.load(), 0);
    // 4 clients x 50 pairs per customer; in half of the pairs the second post repeats the first.
    const int expected = 4 * (perClient / 5) * 2 - 4 * (perClient / 10);
    QCOMPARE(entrances[0].load(), expected);
    QCOMPARE(entrances[1].load(), expected);
    QCOMPARE(m_a->customer().scalar("SELECT COUNT(*) FROM inters_data").toInt(), expected);
    QCOMPARE(m_b->customer().scalar("SELECT COUNT(*) FROM inters_data").toInt(), expected);
    const QByteArray log = m_host.log().mid(logStart);
    for (const char *trouble : {"does not belong to the calling thread", "duplicate connection name", "NOT OPEN",
                                "can NOT open", "SQL ERROR", "SQl ERROR"})
        QVERIFY2(!log.contains(trouble), log.mid(log.indexOf(trouble) - 200, 400).constData());
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
    // The lock below is held as long as the test needs.
    QVERIFY2(host.start(m_a->info().name(), {{"WEBAPI_THREADS", "1"}, {"WEBAPI_QUEUE_DEPTH", "1"},
                                             {"WEBAPI_QUEUE_DEADLINE", how == PastDeadline ? "1" : "3600"},
                                             {"WEBAPI_SQL_TIMEOUT_LOCK", "3600"}}),
             host.log().constData());
    // The licence rows are read on every request: holding their table holds the one worker.
    QVERIFY(m_a->customer().exec("LOCK TABLES vars WRITE"));
    HttpConnection running(host.port());
    QVERIFY(running.send(HttpConnection::format("GET", "/webapi/info", m_a->terminalHeaders())));
    QTRY_COMPARE_WITH_TIMEOUT(waitingForLockOfA(), 1, 10000);
    // One of the two waits in the queue; the other finds it full.
    std::unique_ptr<HttpConnection> posts[2];
    for (int i = 0; i < 2; ++i) {
        posts[i].reset(new HttpConnection(host.port()));
        QVERIFY(posts[i]->send(HttpConnection::format("POST", "/webapi/entrance", m_a->terminalHeaders(m_customerA.tid),
                                                      entranceBody(m_customerA.person, 7001 + i))));
    }
    QVERIFY(host.waitForLog("\"POST /webapi/entrance\" 503 "));
    QCOMPARE(HttpConnection(host.port()).reply("GET", "/healthz").status, 200);
    if (how == ClientGone) {
        posts[0].reset();
        posts[1].reset();
        QVERIFY(host.waitForLog("\"POST /webapi/entrance\" 499 "));
    } else {
        if (how == AtStop)
            host.terminate();
        for (const auto &post : posts)
            COMPARE_EXPECTED(maskTms(post->readResponse()), "host/busy.http");
    }
    if (how != AtStop)
        host.terminate();
    QVERIFY(m_a->customer().exec("UNLOCK TABLES"));
    const HttpReply reply = HttpReply::parse(running.readResponse());
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.json().object().value("name").toString(), "Web API");
    QCOMPARE(host.waitForExit(), 0);
    // Given up means never run: no entrance of either post was stored, then or later.
    QCOMPARE(m_a->customer().scalar("SELECT COUNT(*) FROM inters_data WHERE refId IN (7001, 7002)").toInt(), 0);
}

QTEST_GUILESS_MAIN(TestHost)
#include "tst_host.moc"

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
    void accessLogHidesCredentials();
    void craftedTokens_data();
    void craftedTokens();
    void throttle_data();
    void throttle();
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
    QTest::newRow("InfoDB unreachable") << QStringList{"WEBAPI_INFODB_PORT=1"} << "cannot reach the InfoDB";
    QTest::newRow("bad port") << QStringList{"WEBAPI_LISTEN_PORT=70000"} << "listen/port";
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
}

void TestHost::accessLogHidesCredentials()
{
    HttpConnection(m_host.port()).request("GET", "/webapi/info?q=1", m_a->adminHeaders("api-token-secret-in-log"));
    QVERIFY(m_host.waitForLog("127.0.0.1 \"GET /webapi/info\" 200 "));
    QVERIFY(!m_host.log().contains("api-token-secret-in-log"));
    QVERIFY(!m_host.log().contains(ApiFixture::kKey.toUtf8()));
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
    HttpConnection connection(m_host.port());
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
    QTest::addColumn<QString>("authorization");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("client");  // each row its own address: windows do not mix
    QTest::addColumn<bool>("throttled");
    QTest::newRow("guessed key") << "Bearer guess-0001" << int(Response::RE_BadApiToken) << "127.0.0.11" << true;
    QTest::newRow("other scheme") << "Basic Z3Vlc3M=" << int(Response::RE_BadAuthorization) << "127.0.0.12" << true;
    QTest::newRow("no authorization") << "" << int(Response::RE_Unauthorized) << "127.0.0.13" << false;
}

void TestHost::throttle()
{
    QFETCH(QString, authorization);
    QFETCH(int, code);
    QFETCH(QString, client);
    QFETCH(bool, throttled);
    const QString pragma = "Pragma: " + m_a->token();
    const QStringList goodKey{pragma, "Authorization: Bearer " + ApiFixture::kKey};
    HttpConnection attacker(m_host.port(), QHostAddress(client));
    QVERIFY(attacker.isConnected());
    for (int i = 0; i < kAuthLimit; ++i) {
        const HttpReply reply = attacker.reply("GET", "/webapi/people",
                                               authorization.isEmpty() ? QStringList{pragma}
                                                                       : QStringList{pragma, "Authorization: " + authorization});
        QCOMPARE(reply.status, 401);
        QCOMPARE(reply.errorCode(), code);
    }
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
    HttpConnection neighbour(m_host.port(), QHostAddress(client.left(client.lastIndexOf('.')) + ".99"));
    QCOMPARE(neighbour.reply("GET", "/webapi/info", goodKey).status, 200);
    QVERIFY(m_host.waitForLog(client.toUtf8() + " \"GET /webapi/info\" 429 "));
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

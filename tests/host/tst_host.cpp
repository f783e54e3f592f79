// The real webapi-host binary over loopback HTTP against the private MariaDB: bytes on the
// wire, connection handling, limits, stop behaviour, webhook and concurrent customers.
#include "support/apifixture.h"
#include "support/hostprocess.h"

#include "response/response.h"
#include "worker/webapiworker.h"

#include <QLibraryInfo>
#include <QTcpServer>
#include <QtTest>

#include <atomic>
#include <thread>

namespace {

QByteArray entranceBody(const QString &person, uint refId, bool photo = false)
{
    // A stated time: an event posted without one is dated on arrival, so its repeat one
    // second later would be a new event and not the same one again.
    QJsonObject body{{QStringLiteral("uid"), person}, {QStringLiteral("iid"), 1}, {QStringLiteral("type"), 1},
                     {QStringLiteral("refId"), int(refId)}, {QStringLiteral("date"), QStringLiteral("2024-05-02T07:30:00")}};
    if (photo)
        body.insert(QStringLiteral("image"), QString::fromLatin1(QByteArray(2048, '\x7f').toBase64()));
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
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
    void accessLogHidesCredentials();
    void adminRequest();
    void webhookGetsRecordCreated();
    void concurrentCustomers();
    void sigtermAnswersRequestInFlight();

private:
    struct Customer
    {
        ApiFixture *fx;
        QString tid;
        QString person;
    };
    Customer setUpCustomer(ApiFixture *fx, uint vorixID);

    QScopedPointer<ApiFixture> m_a;
    QScopedPointer<ApiFixture> m_b;
    Customer m_customerA{};
    Customer m_customerB{};
    HostProcess m_host;
    static constexpr int kBodyLimit = 100000;
};

TestHost::Customer TestHost::setUpCustomer(ApiFixture *fx, uint vorixID)
{
    Customer customer{fx, fx->addTerminal(vorixID), QString()};
    fx->customer().exec(QStringLiteral("INSERT INTO inters (iid, name, shortcut, present, work) VALUES (1, 'Příchod', 'P', 1, 1)"));
    fx->customer().exec(QStringLiteral("INSERT INTO people (pid, name, surname, status) VALUES (501, 'Šárka', 'Dvořáková', 1)"));
    const uint uid = fx->customer().scalar(QStringLiteral("SELECT uid FROM people WHERE pid = 501")).toUInt();
    customer.person = WebApiWorker::encodeId(uid, 501);
    fx->customer().exec(QStringLiteral("INSERT INTO admins (login, apiToken, status, perms) VALUES ('boss', 'api-token-boss', 1, 2)"));
    fx->customer().exec(QStringLiteral("INSERT INTO admins_people (aid, uid) SELECT aid, %1 FROM admins").arg(uid));
    return customer;
}

void TestHost::initTestCase()
{
    QVERIFY2(QFile::exists(HostProcess::binary()), "build the webapi-host target first");
    m_a.reset(new ApiFixture(QStringLiteral("host_a")));
    QVERIFY2(m_a->setUp(), qPrintable(m_a->error()));
    m_b.reset(new ApiFixture(QStringLiteral("host_b")));
    QVERIFY2(m_b->setUp(), qPrintable(m_b->error()));
    // One InfoDB for both customers, as the host has one.
    QVERIFY(m_a->info().exec(QStringLiteral("INSERT INTO `schemas` (token, name, user, pass, status) VALUES ('%1', '%2', '%3', '%4', 1)")
                                 .arg(m_b->token(), m_b->customer().name(), TestServer::user(),
                                      QString::fromLatin1(TestServer::password().toUtf8().toBase64()))));
    m_customerA = setUpCustomer(m_a.data(), 1001);
    m_customerB = setUpCustomer(m_b.data(), 1002);
    QVERIFY2(m_host.start(m_a->info().name(), {{QStringLiteral("WEBAPI_LIMITS_BODY"), QString::number(kBodyLimit)},
                                               {QStringLiteral("WEBAPI_LIMITS_TIMEOUT"), QStringLiteral("2")}}),
             m_host.log().constData());
}

void TestHost::startFailures_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("reason");
    QTest::newRow("missing plug-in") << "WEBAPI_PLUGIN" << "/nonexistent/libwebapi.so" << "does not exist";
    QTest::newRow("not a library") << "WEBAPI_PLUGIN" << WEBAPI_TEST_DATA "/host/not-a-plugin.so" << "cannot load plug-in";
    QTest::newRow("other interface") << "WEBAPI_PLUGIN"
                                     << QLibraryInfo::location(QLibraryInfo::PluginsPath) + "/sqldrivers/libqsqlmysql.so"
                                     << "is not an HTTP plug-in";
    QTest::newRow("InfoDB unreachable") << "WEBAPI_INFODB_PORT" << "1" << "cannot reach the InfoDB";
    QTest::newRow("bad port") << "WEBAPI_LISTEN_PORT" << "70000" << "listen/port";
}

void TestHost::startFailures()
{
    QFETCH(QString, key);
    QFETCH(QString, value);
    QFETCH(QString, reason);
    HostProcess host;
    QVERIFY(!host.start(m_a->info().name(), {{key, value}}));
    int exitCode = -1;
    QVERIFY(host.waitForExit(10000, &exitCode));
    QCOMPARE(exitCode, 2);
    const QList<QByteArray> lines = host.log().trimmed().split('\n');
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.first().startsWith("webapi-host: ") && lines.first().contains(reason.toUtf8()), lines.first().constData());
}

void TestHost::pluginBytesUnchanged_data()
{
    QTest::addColumn<QStringList>("headers");
    QTest::addColumn<QString>("expectedFile");
    // The plug-in's own fixtures: the host must deliver its bytes as they are.
    const QString pragma = QStringLiteral("Pragma: ") + m_a->token();
    QTest::newRow("info") << QStringList{pragma, QStringLiteral("Authorization: Bearer ") + ApiFixture::kKey}
                          << "spine/info.http";
    QTest::newRow("unauthorized") << QStringList{pragma} << "spine/unauthorized.http";
}

void TestHost::pluginBytesUnchanged()
{
    QFETCH(QStringList, headers);
    QFETCH(QString, expectedFile);
    HttpConnection connection(m_host.port());
    COMPARE_EXPECTED(maskTms(connection.request("GET", "/webapi/info", headerBytes(headers))), expectedFile);
}

void TestHost::keepAliveAndPipelining()
{
    HttpConnection connection(m_host.port());
    const QList<QByteArray> headers = headerBytes(m_a->terminalHeaders());
    QCOMPARE(HttpReply::parse(connection.request("GET", "/webapi/info", headers)).status, 200);
    QCOMPARE(HttpReply::parse(connection.request("GET", "/healthz", {})).status, 200);
    QCOMPARE(HttpReply::parse(connection.request("GET", "/elsewhere", {})).status, 404);
    // Three requests in one write come back in order on the same connection.
    QVERIFY(connection.send(HttpConnection::format("GET", "/webapi/response-errors", headers)
                            + HttpConnection::format("GET", "/nothing", {})
                            + HttpConnection::format("GET", "/webapi/info", headers)));
    const HttpReply first = HttpReply::parse(connection.readResponse());
    const HttpReply second = HttpReply::parse(connection.readResponse());
    const HttpReply third = HttpReply::parse(connection.readResponse());
    QCOMPARE(first.status, 200);
    QCOMPARE(first.json().array().size(), 28);
    QCOMPARE(second.status, 404);
    QCOMPARE(third.status, 200);
    QCOMPARE(third.json().object().value(QStringLiteral("name")).toString(), QStringLiteral("Web API"));
    QVERIFY(connection.isConnected());
}

void TestHost::refusals_data()
{
    QTest::addColumn<QByteArray>("raw");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("closes");
    const QByteArray pragma = "Pragma: " + m_a->token().toUtf8();
    QTest::newRow("body over the limit") << QByteArray("POST /webapi/entrance HTTP/1.1\r\nHost: x\r\n" + pragma
                                                       + "\r\nContent-Length: " + QByteArray::number(kBodyLimit + 1)
                                                       + "\r\n\r\n")
                                         << 413 << true;
    QTest::newRow("header over 16 KiB") << HttpConnection::format("GET", "/webapi/info", {"X-Pad: " + QByteArray(17000, 'a')})
                                        << 431 << true;
    QTest::newRow("not HTTP") << QByteArray("HELLO THERE\r\n\r\n") << 400 << true;
    QTest::newRow("unknown path") << HttpConnection::format("GET", "/index.html", {}) << 404 << false;
    QTest::newRow("prefix look-alike") << HttpConnection::format("GET", "/webapix/info", {}) << 404 << false;
    QTest::newRow("healthz") << HttpConnection::format("GET", "/healthz", {}) << 200 << false;
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
    HttpConnection other(m_host.port());
    QCOMPARE(HttpReply::parse(other.request("GET", "/healthz", {})).status, 200);
    QVERIFY(slow.send("X-Still: typing\r\n"));
    QVERIFY(slow.waitForClose(10000));
    QVERIFY(m_host.waitForLog("\"GET /webapi/info\" 408"));
}

void TestHost::accessLogHidesCredentials()
{
    HttpConnection connection(m_host.port());
    QList<QByteArray> headers = headerBytes(m_a->adminHeaders(QStringLiteral("api-token-secret-in-log")));
    connection.request("GET", "/webapi/info?q=1", headers);
    QVERIFY(m_host.waitForLog("127.0.0.1 \"GET /webapi/info\" 200 "));
    QVERIFY(!m_host.log().contains("api-token-secret-in-log"));
    QVERIFY(!m_host.log().contains(ApiFixture::kKey.toUtf8()));
}

void TestHost::adminRequest()
{
    HttpConnection connection(m_host.port());
    const HttpReply reply = HttpReply::parse(
        connection.request("GET", "/webapi/report/daily/0", headerBytes(m_a->adminHeaders(QStringLiteral("api-token-boss")))));
    QVERIFY(reply.valid);
    QVERIFY(!reply.header("X-WEBAPI-TMS").isEmpty());
    QCOMPARE(reply.status, 200);
    const QJsonObject report = reply.json().object();
    QCOMPARE(report.value(QStringLiteral("dateFrom")).toString(), QDate::currentDate().toString(Qt::ISODate));
    QCOMPARE(report.value(QStringLiteral("activeEmployees")).toInt(), 1);
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
    QVERIFY2(host.start(m_a->info().name(), {{QStringLiteral("WEBAPI_WEBHOOK_URL"),
                                              QStringLiteral("http://127.0.0.1:%1/events").arg(receiver.serverPort())}}),
             host.log().constData());
    HttpConnection connection(host.port());
    const HttpReply reply = HttpReply::parse(connection.request(
        "POST", "/webapi/entrance", headerBytes(m_a->terminalHeaders(m_customerA.tid)), entranceBody(m_customerA.person, 4242, true)));
    QCOMPARE(reply.status, 201);
    QTRY_COMPARE_WITH_TIMEOUT(attempts, 2, 10000);
    const QJsonObject event = QJsonDocument::fromJson(received.mid(received.indexOf("\r\n\r\n") + 4)).object();
    const uint id = m_a->customer().scalar(QStringLiteral("SELECT id FROM inters_data WHERE refId = 4242")).toUInt();
    QCOMPARE(event.value(QStringLiteral("table")).toString(), QStringLiteral("inters_data"));
    QCOMPARE(event.value(QStringLiteral("id")).toInt(), int(id));
    QCOMPARE(event.value(QStringLiteral("token")).toString(), m_a->token());
    QVERIFY(host.log().contains(QStringLiteral("recordCreated table=inters_data id=%1 token=%2").arg(id).arg(m_a->token()).toUtf8()));
}

void TestHost::concurrentCustomers()
{
    m_a->customer().exec(QStringLiteral("DELETE FROM inters_data"));
    const int clients = 8;
    const int perClient = 250;
    std::atomic<int> malformed{0};
    std::atomic<int> serverErrors{0};
    std::atomic<int> entrances[2] = {{0}, {0}};
    std::atomic<int> finished{0};
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; ++c) {
        const Customer customer = c % 2 ? m_customerB : m_customerA;
        threads.emplace_back([&, c, customer] {
            HttpConnection connection(m_host.port());
            const QList<QByteArray> terminal = headerBytes(customer.fx->terminalHeaders(customer.tid));
            const QList<QByteArray> admin = headerBytes(customer.fx->adminHeaders(QStringLiteral("api-token-boss")));
            for (int i = 0; i < perClient; ++i) {
                QByteArray raw;
                switch (i % 5) {
                case 0:
                case 1: {
                    // Every fourth entrance is sent twice: it must still be stored once. A
                    // refId of 0 means none, and such events are never recognised again.
                    const bool repeat = i % 10 == 1;
                    const uint refId = uint((c + 1) * 10000 + (repeat ? i - 1 : i));
                    raw = connection.request("POST", "/webapi/entrance", terminal, entranceBody(customer.person, refId));
                    break;
                }
                case 2: raw = connection.request("GET", "/webapi/people", terminal); break;
                case 3: raw = connection.request("GET", "/webapi/inters", terminal); break;
                default: raw = connection.request("GET", "/webapi/report/daily/0", admin); break;
                }
                const HttpReply reply = HttpReply::parse(raw);
                if (!reply.valid || reply.header("Content-Length").toInt() != reply.body.size()
                    || reply.json().isNull())
                    ++malformed;
                if (reply.status >= 500)
                    ++serverErrors;
                if (i % 5 <= 1 && (reply.status == 201))
                    ++entrances[c % 2];
            }
            ++finished;
        });
    }
    // The host writes a line per request: its stderr must be read meanwhile, or a full pipe
    // stops it.
    while (finished < clients) {
        m_host.process().waitForReadyRead(50);
        m_host.log();
    }
    for (std::thread &thread : threads)
        thread.join();
    QCOMPARE(malformed.load(), 0);
    QCOMPARE(serverErrors.load(), 0);
    // 4 clients x 50 pairs per customer; in half of the pairs the second post repeats the first.
    const int expected = 4 * (perClient / 5) * 2 - 4 * (perClient / 10);
    QCOMPARE(entrances[0].load(), expected);
    QCOMPARE(entrances[1].load(), expected);
    QCOMPARE(m_a->customer().scalar(QStringLiteral("SELECT COUNT(*) FROM inters_data")).toInt(), expected);
    QCOMPARE(m_b->customer().scalar(QStringLiteral("SELECT COUNT(*) FROM inters_data WHERE refId <> 4242")).toInt(), expected);
    const QByteArray log = m_host.log();
    for (const char *trouble : {"does not belong to the calling thread", "duplicate connection name", "NOT OPEN",
                                "can NOT open", "SQL ERROR", "SQl ERROR"})
        QVERIFY2(!log.contains(trouble), trouble);
}

void TestHost::sigtermAnswersRequestInFlight()
{
    HostProcess host;
    QVERIFY2(host.start(m_a->info().name()), host.log().constData());
    // The licence rows are read on every request: holding their table holds the request.
    QVERIFY(m_a->customer().exec(QStringLiteral("LOCK TABLES vars WRITE")));
    HttpConnection connection(host.port());
    QVERIFY(connection.send(HttpConnection::format("GET", "/webapi/info", headerBytes(m_a->terminalHeaders()))));
    QTest::qWait(300);
    host.terminate();
    QVERIFY(host.waitForLog("signal 15"));
    QTRY_VERIFY_WITH_TIMEOUT(!HttpConnection(host.port()).isConnected(), 5000);
    QCOMPARE(host.process().state(), QProcess::Running);
    QVERIFY(m_a->customer().exec(QStringLiteral("UNLOCK TABLES")));
    const HttpReply reply = HttpReply::parse(connection.readResponse());
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.json().object().value(QStringLiteral("name")).toString(), QStringLiteral("Web API"));
    int exitCode = -1;
    QVERIFY(host.waitForExit(10000, &exitCode));
    QCOMPARE(exitCode, 0);
}

QTEST_GUILESS_MAIN(TestHost)
#include "tst_host.moc"

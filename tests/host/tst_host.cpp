// The real webapi-host binary over loopback, against a MariaDB server of this suite's own (in
// the build folder, on a free port) that it may stop and start, and that nothing else logs in
// to; the shared server of the other suites is never touched. What only a running process
// shows: the whole bytes of its own answers and of the plug-in's passed through, limits on a
// real socket, pipelining, TLS, refused settings, requests given up; a clean error while the
// database is down and service back without a restart, a retried entrance stored once, a
// start before the database; one login and one prepare of the entrance per worker thread, a
// login again after a killed session, one customer's database on every thread at once.
#include "support/apifixture.h"
#include "support/hostprocess.h"

#include <QSqlQuery>
#include <QTcpServer>
#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>

class TestHost : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // A server left running by an interrupted run listens on another port: start afresh.
        qputenv("WEBAPI_DB_DIR", QDir::cleanPath(WEBAPI_BIN_DIR "/../var/host-mariadb").toUtf8());
        QVERIFY(mariadb("stop"));
        m_port = [] { QTcpServer probe; return probe.listen(QHostAddress::LocalHost) ? probe.serverPort() : quint16(0); }();
        QVERIFY(m_port != 0);
        qputenv("WEBAPI_DB_PORT", QByteArray::number(m_port));  // the scripts, TestServer and HostProcess follow it
        QVERIFY(mariadb("start"));
        QCOMPARE(QProcess::execute("openssl", QString("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout "
                                                      "%1 -out %2 -days 2 -subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1")
                                                  .arg(m_keys.filePath("key.pem"), m_keys.filePath("cert.pem")).split(' ')), 0);
        m_a.reset(new ApiFixture("host_a"));
        QVERIFY2(m_a->setUp(), qPrintable(m_a->error()));
        m_tid = m_a->addTerminal(1001);
        m_person = addPerson(*m_a);
        QVERIFY2(m_host.start(m_a->info().name(), {{"WEBAPI_LIMITS_BODY", "100000"}, {"WEBAPI_LIMITS_TIMEOUT", "2"},
                                                   {"WEBAPI_AUTH_FAILURES", "3"}}),
                 m_host.log().constData());
        QVERIFY2(m_tls.start(m_a->info().name(), {{"WEBAPI_TLS_CERTIFICATE", m_keys.filePath("cert.pem")},
                                                  {"WEBAPI_TLS_KEY", m_keys.filePath("key.pem")}}),
                 m_tls.log().constData());
    }

    void cleanupTestCase()
    {
        m_host.signal(SIGKILL);
        m_tls.signal(SIGKILL);
        m_a.reset();  // drops the scratch databases while the server still runs
        if (m_port != 0)
            QVERIFY(mariadb("stop"));
    }

    void answersOnTheWire()
    {
        // Each on a connection of its own, in this order: the guesses lead to the 429.
        const QString pragma = "Pragma: " + m_a->token();
        const QByteArray guess = HttpConnection::format("GET", "/webapi/info", {pragma, "Authorization: Bearer guess"});
        const QList<QByteArray> requests{
            HttpConnection::format("GET", "/webapi/info?q=1", m_a->terminalHeaders() << "X-Request-Id: id-1"),
            HttpConnection::format("GET", "/healthz"),
            HttpConnection::format("GET", "/index.html", {"Connection: close"}),
            "HELLO THERE\r\n\r\n",
            "POST /webapi/entrance HTTP/1.1\r\nHost: x\r\n" + pragma.toUtf8() + "\r\nContent-Length: 100001\r\n\r\n",
            HttpConnection::format("GET", "/webapi/info", {"X-Pad: " + QString(17000, 'a')}),
            HttpConnection::format("GET", "/webapi/info", {"Pragma: token' OR '1'='1"}),
            guess, guess, guess,
            HttpConnection::format("GET", "/webapi/info", m_a->terminalHeaders()),
        };
        QByteArray wire;
        for (const QByteArray &raw : requests) {
            HttpConnection connection(m_host.port(), QHostAddress("127.0.0.21"));
            QVERIFY(connection.send(raw));
            const QByteArray answer = maskTms(connection.readResponse());
            wire += answer + (connection.waitForClose(answer.contains("Connection: close") ? 5000 : 200) ? "\n[closed]\n" : "\n[open]\n");
        }
        // The window of the guesses may have begun a second before.
        COMPARE_EXPECTED(wire.replace("Retry-After: 59\r", "Retry-After: 60\r"), "host/answers.http");
        QVERIFY(!m_host.log().contains(ApiFixture::kKey.toUtf8()));
    }

    void pipelinedInOrder()
    {
        HttpConnection connection(m_host.port());
        const QStringList headers = m_a->terminalHeaders();
        QVERIFY(connection.send(HttpConnection::format("GET", "/webapi/response-errors", headers)
                                + HttpConnection::format("GET", "/nothing") + HttpConnection::format("GET", "/webapi/info", headers)));
        QVERIFY(HttpReply::parse(connection.readResponse()).json().isArray());
        QCOMPARE(HttpReply::parse(connection.readResponse()).status, 404);
        QCOMPARE(HttpReply::parse(connection.readResponse()).json().object().value("name").toString(), "Web API");
    }

    void slowClientTimedOut()
    {
        HttpConnection slow(m_host.port());
        QVERIFY(slow.send("GET /webapi/info HTTP/1.1\r\nHost: x\r\n"));
        QCOMPARE(HttpConnection(m_host.port()).reply("GET", "/healthz").status, 200);  // others are served meanwhile
        QVERIFY(slow.send("X-Still: typing\r\n"));
        QVERIFY(slow.waitForClose(10000));
    }

    void tlsPolicy_data()
    {
        QTest::addColumn<QString>("options");  // of openssl s_client, with the client's own floor lowered
        QTest::addColumn<bool>("accepted");
        QTest::newRow("TLS 1.1") << "-tls1_1 -cipher DEFAULT@SECLEVEL=0" << false;
        QTest::newRow("TLS 1.2 CBC") << "-tls1_2 -cipher ECDHE-ECDSA-AES128-SHA256" << false;
        QTest::newRow("TLS 1.2 ChaCha20") << "-tls1_2 -cipher ECDHE-ECDSA-CHACHA20-POLY1305" << true;
        QTest::newRow("TLS 1.3") << "-tls1_3" << true;
    }

    void tlsPolicy()
    {
        QFETCH(QString, options); QFETCH(bool, accepted);
        QProcess client;
        client.start("openssl", QStringList{"s_client", "-connect", QString("127.0.0.1:%1").arg(m_tls.port()), "-brief"}
                                    + options.split(' '));
        client.closeWriteChannel();
        QVERIFY(client.waitForFinished(30000));
        const QByteArray out = client.readAllStandardOutput() + client.readAllStandardError();
        QVERIFY2((client.exitCode() == 0 && out.contains("CONNECTION ESTABLISHED")) == accepted, out.constData());
        // Refusals are logged, but one line per 10 s however many come.
        QVERIFY2(accepted || (m_tls.waitForLog("TLS handshake failed") && m_tls.log().count("TLS handshake failed") == 1), m_tls.log());
        if (!accepted)
            return;
        // The plug-in's bytes come through TLS as they are.
        QStringList curl{"-sS", "-i", "-o", m_keys.filePath("info"), "--cacert", m_keys.filePath("cert.pem"),
                         QString("https://127.0.0.1:%1/webapi/info").arg(m_tls.port())};
        for (const QString &header : m_a->terminalHeaders())
            curl << "-H" << header;
        QFile info(m_keys.filePath("info"));
        QVERIFY(QProcess::execute("curl", curl) == 0 && info.open(QIODevice::ReadOnly));
        COMPARE_EXPECTED(maskTms(info.readAll()), "spine/info.http");
    }

    void refusedSettings_data()
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
        QTest::newRow("certificate alone") << "WEBAPI_TLS_CERTIFICATE=" + m_keys.filePath("cert.pem") << "tls/certificate and tls/key";
    }

    void refusedSettings()
    {
        QFETCH(QString, setting);
        QFETCH(QString, reason);
        HostProcess host;
        QVERIFY(!host.start(m_a->info().name(), {{setting.section('=', 0, 0), setting.section('=', 1)}}));
        QCOMPARE(host.waitForExit(), 2);
        // One line, naming the cause.
        const QByteArray log = host.log().trimmed();
        QVERIFY2(!log.contains('\n') && log.startsWith("webapi-host: ") && log.contains(reason.toUtf8()), log.constData());
    }

    void queuedRequestsGivenUp_data()
    {
        QTest::addColumn<QString>("how");
        for (const char *how : {"at a stop", "past the deadline", "client gone"})
            QTest::newRow(how) << how;
    }

    void queuedRequestsGivenUp()
    {
        QFETCH(QString, how);
        const int aborted = status("Aborted_clients");
        HostProcess host;
        QVERIFY2(host.start(m_a->info().name(), {{"WEBAPI_THREADS", "1"}, {"WEBAPI_QUEUE_DEPTH", "1"},
                                                 {"WEBAPI_QUEUE_DEADLINE", how == "past the deadline" ? "1" : "3600"},
                                                 {"WEBAPI_SQL_TIMEOUT_LOCK", "3600"}}),
                 host.log().constData());
        // The licence rows are read on every request: holding their table holds the one worker.
        QVERIFY(m_a->customer().exec("LOCK TABLES vars WRITE"));
        HttpConnection running(host.port());
        QVERIFY(running.send(HttpConnection::format("GET", "/webapi/info", m_a->terminalHeaders())));
        const QString waiting = "SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE STATE = 'Waiting for table metadata lock'";
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
        if (how == "client gone") {
            for (auto &post : posts)
                post.reset();
            QVERIFY(host.waitForLog("\"POST /webapi/entrance\" 499 "));
        }
        if (how == "at a stop")
            host.signal(SIGTERM);
        for (int i = 0; i < 2 && how != "client gone"; ++i)
            COMPARE_EXPECTED(maskTms(posts[i]->readResponse()), "host/busy.http");
        host.signal(SIGTERM);
        QVERIFY(m_a->customer().exec("UNLOCK TABLES"));
        QCOMPARE(HttpReply::parse(running.readResponse()).json().object().value("name").toString(), "Web API");
        QCOMPARE(host.waitForExit(), 0);
        QCOMPARE(status("Aborted_clients"), aborted);  // a stop logs out of the server, never just drops it
        // Given up means never run: no entrance of either post was stored, then or later.
        QCOMPARE(m_a->customer().scalar("SELECT COUNT(*) FROM inters_data WHERE refId IN (7001, 7002)").toInt(), 0);
    }

    void oneLoginPerThread()
    {
        const QStringList pragma{"Pragma: " + m_a->token()};
        QCOMPARE(together(m_host.port(), 3, 10, pragma), 0);  // every thread that serves has logged in
        const int before = status("Connections"), prepared = status("Com_stmt_prepare");
        QCOMPARE(together(m_host.port(), 3, 20, pragma), 0);
        for (uint refId = 8001; refId <= 8020; ++refId)
            QCOMPARE(post(refId).status, 201);
        // At most one login for each of the 4 threads, which tries a statement once; past that, a
        // thread prepares the entrance's INSERT once, not once a request.
        QVERIFY2(status("Connections") - before <= 4 && status("Com_stmt_prepare") - prepared <= 8, "one login, one prepare a thread");
    }

    void killedSessionReopened()
    {
        // A name beyond the BMP comes back whole only over utf8mb4: the reopened session sets it again.
        const QString surname = QString::fromUtf8("Dvo\u0159\u00e1kov\u00e1 \U0001F600");
        QVERIFY(m_a->customer().exec("UPDATE people SET surname = '" + surname + "' WHERE pid = 501"));
        HttpConnection connection(m_host.port());
        QCOMPARE(people(connection).status, 200);
        // What a server restart, a lost cluster node or wait_timeout leaves the host with.
        const QList<QVariantMap> sessions = m_a->customer().rows(
            "SELECT ID FROM information_schema.PROCESSLIST WHERE DB = DATABASE() AND ID <> CONNECTION_ID()");
        QVERIFY(!sessions.isEmpty());
        for (const QVariantMap &session : sessions)
            QVERIFY(m_a->customer().exec("KILL " + session.value("ID").toString()));
        // The first statement finds the loss; the worker logs in again and answers.
        for (int i = 0; i < 3; ++i)
            QCOMPARE(people(connection).json().array().first().toObject().value("surname").toString(), surname);
    }

    void oneCustomerOnEveryThread()
    {
        // One database under a second token (a rotation) and under the first in capitals: with
        // three threads they meet on several threads at once.
        const QString rotated = m_a->token() + "-rotated";
        QVERIFY(m_a->info().exec(QString("INSERT INTO `schemas` (token, name, user, pass, status) SELECT '%1', name, user, pass, 1 "
                                          "FROM `schemas` WHERE token = '%2'").arg(rotated, m_a->token())));
        HostProcess host;
        QVERIFY2(host.start(m_a->info().name(), {{"WEBAPI_THREADS", "3"}}), host.log().constData());
        const int before = status("Threads_connected");
        const QStringList pragmas{"Pragma: " + m_a->token(), "Pragma: " + m_a->token().toUpper() + ":token", "Pragma: " + rotated};
        QCOMPARE(together(host.port(), 10, 30, pragmas), 0);
        // At most a customer and an InfoDB connection per thread more than before.
        QVERIFY2(status("Threads_connected") - before <= 6, qPrintable(QString::number(status("Threads_connected") - before)));
        QVERIFY(host.running() && !host.log().contains("duplicate connection name"));
    }

    void databaseComesBack()
    {
        QVERIFY(mariadb("stop"));
        // A host started meanwhile waits for the server; a running one answers with a clean error.
        HostProcess later;
        QVERIFY(later.start(m_a->info().name(), {}, false));
        QCOMPARE(post(777777).errorCode(), 100503);
        QVERIFY2(later.waitForLog("retrying in"), later.log().constData());
        QVERIFY(mariadb("start"));
        // The terminal retries the same entrance until it is taken, on a connection (and its
        // statement) made anew.
        int answer = 503;
        for (int attempt = 0; answer == 503 && attempt < 50; ++attempt)
            answer = (QTest::qWait(100), post(777777).status);
        QCOMPARE(answer, 201);
        QCOMPARE(m_a->customer().scalar("SELECT COUNT(*) FROM inters_data WHERE refId = 777777").toInt(), 1);
        QVERIFY2(later.waitUntilListening(60000), later.log().constData());
        QCOMPARE(together(later.port(), 1, 1, {"Pragma: " + m_a->token()}), 0);
    }

private:
    int status(const QString &name) { return m_a->info().rows("SHOW GLOBAL STATUS LIKE '" + name + "'").value(0).value("Value").toInt(); }
    // scripts/mariadb on this suite's own server only; at a start this process's own handles,
    // which lost their server with it, log in again.
    bool mariadb(const QString &command)
    {
        const bool ran = QProcess::execute(QStringLiteral(WEBAPI_SOURCE_DIR "/scripts/mariadb"), {command}) == 0;
        if (!ran || command != "start" || !m_a)
            return ran;
        for (QSqlDatabase db : {m_a->info().db(), m_a->customer().db()}) {
            db.close();
            if (!db.open() || !QSqlQuery(db).exec("SET NAMES utf8mb4"))
                return false;
        }
        return true;
    }
    // One request on a connection of its own: an idle one may be closed by the host meanwhile.
    HttpReply post(uint refId)
    {
        return HttpConnection(m_host.port()).reply("POST", "/webapi/entrance", m_a->terminalHeaders(m_tid), entranceBody(m_person, refId));
    }

    HttpReply people(HttpConnection &connection) { return connection.reply("GET", "/webapi/people", m_a->terminalHeaders(m_tid)); }
    // `clients` connections to `port` at once, each asking for the people `count` times under
    // the pragmas in turn; how many answers did not list the one person.
    int together(quint16 port, int clients, int count, const QStringList &pragmas)
    {
        std::atomic<int> wrong{0};
        std::vector<std::thread> threads;
        for (int c = 0; c < clients; ++c)
            threads.emplace_back([&, c] {
                HttpConnection connection(port);
                QStringList headers = m_a->terminalHeaders(m_tid);
                for (int i = 0; i < count; ++i) {
                    headers.first() = pragmas.at((c + i) % pragmas.size());
                    wrong += connection.reply("GET", "/webapi/people", headers).json().array().size() != 1;
                }
            });
        for (std::thread &thread : threads)
            thread.join();
        return wrong;
    }

    quint16 m_port = 0;
    QTemporaryDir m_keys;  // the self-signed certificate and key
    QScopedPointer<ApiFixture> m_a;
    QString m_tid, m_person;
    HostProcess m_host, m_tls;
};

QTEST_GUILESS_MAIN(TestHost)
#include "tst_host.moc"

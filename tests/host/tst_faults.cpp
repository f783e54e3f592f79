// The database stopped under load, end to end through the real host: clean JSON errors,
// never a hang or a crash, service back without a host restart, and a retried entrance
// stored once; and the host's logins: one per worker thread, again after a killed session.
// The test runs a MariaDB server of its own (in the build folder, on a free port) and stops
// only that one; the shared server of the other suites is never touched, and nothing else
// logs in to this one.
#include "support/apifixture.h"
#include "support/hostprocess.h"

#include "response/response.h"

#include <QDir>
#include <QSqlQuery>
#include <QTcpServer>
#include <QtTest>

#include <atomic>
#include <thread>

class TestFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void outageUnderLoad();
    void retriedEntranceStoredOnce();
    void oneLoginPerThread();
    void killedSessionReopened();
    void oneCustomerOnEveryThread();

private:
    int sessions() { return m_fx->info().rows("SHOW GLOBAL STATUS LIKE 'Threads_connected'").value(0).value("Value").toInt(); }
    int logins() { return m_fx->info().rows("SHOW GLOBAL STATUS LIKE 'Connections'").value(0).value("Value").toInt(); }
    // Sends `count` GET people from three clients at once; how many were not 200.
    int peopleFromThreeClients(int count);
    // scripts/mariadb on this suite's own server only.
    bool mariadb(const QString &command);
    bool stopDatabase() { return mariadb("stop"); }
    bool startDatabase();
    HttpReply post(HttpConnection &connection, uint refId)
    {
        return connection.reply("POST", "/webapi/entrance", m_fx->terminalHeaders(m_tid), entranceBody(m_person, refId));
    }
    HttpReply people(HttpConnection &connection) { return connection.reply("GET", "/webapi/people", m_fx->terminalHeaders(m_tid)); }

    QString m_dir;
    quint16 m_port = 0;
    QScopedPointer<ApiFixture> m_fx;
    QScopedPointer<HostProcess> m_host;
    QString m_tid;
    QString m_person;
};

bool TestFaults::mariadb(const QString &command)
{
    QProcess script;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("WEBAPI_DB_DIR", m_dir);
    env.insert("WEBAPI_DB_PORT", QString::number(m_port));
    script.setProcessEnvironment(env);
    script.setProcessChannelMode(QProcess::MergedChannels);
    script.start(QStringLiteral(WEBAPI_SOURCE_DIR "/scripts/mariadb"), {command});
    const bool ok = script.waitForFinished(120000) && script.exitStatus() == QProcess::NormalExit && script.exitCode() == 0;
    if (!ok)
        qWarning("scripts/mariadb %s: %s", qPrintable(command), script.readAll().constData());
    return ok;
}

bool TestFaults::startDatabase()
{
    if (!mariadb("start"))
        return false;
    // This process's own handles lost their server with it.
    for (QSqlDatabase db : {m_fx->info().db(), m_fx->customer().db()}) {
        db.close();
        if (!db.open() || !QSqlQuery(db).exec("SET NAMES utf8mb4"))
            return false;
    }
    return true;
}

void TestFaults::initTestCase()
{
    m_dir = QDir::cleanPath(QStringLiteral(WEBAPI_BIN_DIR "/../var/faults-mariadb"));
    {
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost));
        m_port = probe.serverPort();
    }
    // A server left running by an interrupted run listens on another port: start afresh.
    QVERIFY(mariadb("stop"));
    QVERIFY(mariadb("start"));
    qputenv("WEBAPI_DB_PORT", QByteArray::number(m_port));  // TestServer and HostProcess follow it

    m_fx.reset(new ApiFixture("faults"));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    m_tid = m_fx->addTerminal(1001);
    m_person = addPerson(*m_fx);
    QVERIFY(!m_person.isEmpty());

    m_host.reset(new HostProcess);
    QVERIFY2(m_host->start(m_fx->info().name(), {{"WEBAPI_LIMITS_TIMEOUT", "5"}}),
             m_host->log().constData());
}

void TestFaults::cleanupTestCase()
{
    m_host.reset();
    m_fx.reset();  // drops the scratch databases while the server still runs
    if (m_port != 0)
        QVERIFY(mariadb("stop"));
}

void TestFaults::outageUnderLoad()
{
    std::atomic<bool> stop{false};
    std::atomic<bool> databaseDown{false};
    std::atomic<int> served{0};
    std::atomic<int> servedAfterOutage{0};
    std::atomic<int> unavailable{0};
    std::atomic<int> midRequest{0};
    std::atomic<int> bad{0};  // no answer, not whole, not JSON, or an unexpected status or code
    std::vector<std::thread> clients;
    for (int c = 0; c < 4; ++c) {
        clients.emplace_back([&, c] {
            QScopedPointer<HttpConnection> connection(new HttpConnection(m_host->port()));
            for (uint i = 0; !stop; ++i) {
                const HttpReply reply = i % 2 ? people(*connection) : post(*connection, uint(c + 1) * 100000 + i);
                const bool whole = reply.valid && reply.header("Content-Length").toInt() == reply.body.size();
                const bool json = !reply.json().isNull();
                if (whole && json && (reply.status == 200 || reply.status == 201)) {
                    ++(databaseDown ? servedAfterOutage : served);
                } else if (whole && json && reply.status == 503 && reply.errorCode() == Response::RE_BadDatabase) {
                    ++unavailable;
                } else if (whole && reply.status >= 400) {
                    // The server went away between two statements of one request: that
                    // statement's failure as its operation answers it (a failed terminal
                    // test says 404, a failed list read leaves its own result as the body).
                    ++midRequest;
                } else {
                    ++bad;
                    qWarning("client %d: %d %s", c, reply.status, reply.body.left(300).constData());
                    connection.reset(new HttpConnection(m_host->port()));
                }
            }
        });
    }
    QTRY_VERIFY_WITH_TIMEOUT(served >= 40, 30000);
    databaseDown = true;
    QVERIFY(stopDatabase());
    QTRY_VERIFY_WITH_TIMEOUT(unavailable >= 20, 30000);
    QVERIFY(startDatabase());
    // The same host process, its connections dead since the stop, serves again.
    QTRY_VERIFY_WITH_TIMEOUT(servedAfterOutage >= 40, 60000);
    stop = true;
    for (std::thread &client : clients)
        client.join();

    QCOMPARE(bad.load(), 0);
    QVERIFY2(midRequest < unavailable, "most requests meet the outage before their first statement");
    QCOMPARE(m_host->process().state(), QProcess::Running);
    // Back for good: every request is served.
    HttpConnection connection(m_host->port());
    for (uint i = 0; i < 20; ++i) {
        QCOMPARE(post(connection, 900000 + i).status, 201);
        QCOMPARE(people(connection).status, 200);
    }
    QCOMPARE(m_fx->customer().scalar("SELECT COUNT(*) - COUNT(DISTINCT refId) FROM inters_data").toInt(), 0);
    const QByteArray log = m_host->log();
    for (const char *trouble : {"does not belong to the calling thread", "duplicate connection name", "ASSERT"})
        QVERIFY2(!log.contains(trouble), trouble);
}

void TestFaults::retriedEntranceStoredOnce()
{
    const uint refId = 777777;
    HttpConnection terminal(m_host->port());
    QVERIFY(stopDatabase());
    const HttpReply failed = post(terminal, refId);
    QCOMPARE(failed.status, 503);
    QCOMPARE(failed.errorCode(), int(Response::RE_BadDatabase));
    QVERIFY(startDatabase());
    // The terminal retries the same entrance until it is taken, then once more.
    HttpReply reply = post(terminal, refId);
    for (int attempt = 0; reply.status == 503 && attempt < 50; ++attempt) {
        QTest::qWait(100);
        reply = post(terminal, refId);
    }
    QCOMPARE(reply.status, 201);
    QCOMPARE(post(terminal, refId).status, 208);
    QCOMPARE(m_fx->customer().scalar(QString("SELECT COUNT(*) FROM inters_data WHERE refId = %1").arg(refId)).toInt(), 1);
}

int TestFaults::peopleFromThreeClients(int count)
{
    std::atomic<int> failed{0};
    std::vector<std::thread> clients;
    for (int c = 0; c < 3; ++c) {
        clients.emplace_back([&, c] {
            HttpConnection connection(m_host->port());
            for (int i = c; i < count; i += 3)
                failed += people(connection).status != 200;
        });
    }
    for (std::thread &client : clients)
        client.join();
    return failed;
}

void TestFaults::oneLoginPerThread()
{
    QCOMPARE(peopleFromThreeClients(30), 0);  // every thread that serves has logged in
    const int before = logins();
    QCOMPARE(peopleFromThreeClients(60), 0);
    const int after = logins();
    QVERIFY2(after - before <= 4, qPrintable(QString("%1 logins for 60 requests on 4 threads").arg(after - before)));
}

void TestFaults::killedSessionReopened()
{
    // A name beyond the BMP comes back whole only over utf8mb4: the reopened session sets it again.
    const QString surname = QString::fromUtf8("Dvo\u0159\u00e1kov\u00e1 \U0001F600");
    QVERIFY(m_fx->customer().exec("UPDATE people SET surname = '" + surname + "' WHERE pid = 501"));
    HttpConnection connection(m_host->port());
    QCOMPARE(people(connection).status, 200);
    // What a server restart, a lost cluster node or wait_timeout leaves the host with.
    const QList<QVariantMap> sessions = m_fx->customer().rows(
        "SELECT ID FROM information_schema.PROCESSLIST WHERE DB = DATABASE() AND ID <> CONNECTION_ID()");
    QVERIFY(!sessions.isEmpty());
    for (const QVariantMap &session : sessions)
        QVERIFY(m_fx->customer().exec("KILL " + session.value("ID").toString()));
    // The first statement finds the loss; the worker logs in again and answers.
    for (int i = 0; i < 3; ++i) {
        const HttpReply reply = people(connection);
        QVERIFY2(reply.status == 200, reply.body.constData());
        QCOMPARE(reply.json().array().first().toObject().value("surname").toString(), surname);
    }
    QCOMPARE(m_host->process().state(), QProcess::Running);
}

void TestFaults::oneCustomerOnEveryThread()
{
    // One database under a second token (a rotation) and under the first in capitals: with
    // three threads they meet on several threads at once.
    const QString rotated = m_fx->token() + "-rotated";
    QVERIFY(m_fx->info().exec(QString("INSERT INTO `schemas` (token, name, user, pass, status) SELECT '%1', name, user, pass, 1 "
                                      "FROM `schemas` WHERE token = '%2'").arg(rotated, m_fx->token())));
    HostProcess host;
    QVERIFY2(host.start(m_fx->info().name(), {{"WEBAPI_THREADS", "3"}}), host.log().constData());
    const int before = sessions();
    const QStringList pragmas{"Pragma: " + m_fx->token(), "Pragma: " + m_fx->token().toUpper() + ":token", "Pragma: " + rotated};
    std::atomic<int> wrong{0};
    std::vector<std::thread> clients;
    for (int c = 0; c < 10; ++c) {
        clients.emplace_back([&, c] {
            HttpConnection connection(host.port());
            QStringList headers = m_fx->terminalHeaders(m_tid);
            for (int i = 0; i < 30; ++i) {
                headers.first() = pragmas.at((c + i) % pragmas.size());
                const HttpReply reply = connection.reply("GET", "/webapi/people", headers);
                wrong += reply.status != 200 || reply.json().array().size() != 1;
            }
        });
    }
    for (std::thread &client : clients)
        client.join();
    QCOMPARE(wrong.load(), 0);
    QCOMPARE(host.process().state(), QProcess::Running);
    // At most a customer and an InfoDB connection per thread more than before.
    QVERIFY2(sessions() - before <= 6, qPrintable(QString::number(sessions() - before)));
    QVERIFY(!host.log().contains("duplicate connection name"));
}

QTEST_GUILESS_MAIN(TestFaults)
#include "tst_faults.moc"

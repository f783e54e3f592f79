// The database stopped and started again, end to end through the real host: a clean JSON
// error meanwhile, service back without a host restart, a retried entrance stored once, a
// host started before its database; and the host's logins: one per worker thread, again
// after a killed session, one customer's database on every thread at once. The test runs a MariaDB server of its own (in the
// build folder, on a free port) and stops only that one; the shared server of the other
// suites is never touched, and nothing else logs in to this one.
#include "support/apifixture.h"
#include "support/hostprocess.h"

#include <QDir>
#include <QSqlQuery>
#include <QTcpServer>
#include <QtTest>

#include <atomic>
#include <functional>
#include <thread>

class TestFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void retriedEntranceStoredOnce();
    void startsBeforeTheDatabase();
    void oneLoginPerThread();
    void killedSessionReopened();
    void oneCustomerOnEveryThread();

private:
    int status(const QString &name)
    {
        return m_fx->info().rows("SHOW GLOBAL STATUS LIKE '" + name + "'").value(0).value("Value").toInt();
    }
    // scripts/mariadb on this suite's own server only; at a start this process's own handles,
    // which lost their server with it, log in again.
    bool mariadb(const QString &command);
    HttpReply post(HttpConnection &connection, uint refId)
    {
        return connection.reply("POST", "/webapi/entrance", m_fx->terminalHeaders(m_tid), entranceBody(m_person, refId));
    }
    HttpReply people(HttpConnection &connection) { return connection.reply("GET", "/webapi/people", m_fx->terminalHeaders(m_tid)); }
    // `clients` connections to `port` at once, each running `client` with its number; how many
    // of its requests failed in all.
    static int together(quint16 port, int clients, const std::function<int(HttpConnection &, int)> &client);

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
    if (!script.waitForFinished(120000) || script.exitStatus() != QProcess::NormalExit || script.exitCode() != 0) {
        qWarning("scripts/mariadb %s: %s", qPrintable(command), script.readAll().constData());
        return false;
    }
    if (command != "start" || !m_fx)
        return true;
    for (QSqlDatabase db : {m_fx->info().db(), m_fx->customer().db()}) {
        db.close();
        if (!db.open() || !QSqlQuery(db).exec("SET NAMES utf8mb4"))
            return false;
    }
    return true;
}

int TestFaults::together(quint16 port, int clients, const std::function<int(HttpConnection &, int)> &client)
{
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; ++c)
        threads.emplace_back([&, c] {
            HttpConnection connection(port);
            failed += client(connection, c);
        });
    for (std::thread &thread : threads)
        thread.join();
    return failed;
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
    QVERIFY(mariadb("stop") && mariadb("start"));
    qputenv("WEBAPI_DB_PORT", QByteArray::number(m_port));  // TestServer and HostProcess follow it
    m_fx.reset(new ApiFixture("faults"));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    m_tid = m_fx->addTerminal(1001);
    m_person = addPerson(*m_fx);
    m_host.reset(new HostProcess);
    QVERIFY2(m_host->start(m_fx->info().name(), {{"WEBAPI_LIMITS_TIMEOUT", "5"}}), m_host->log().constData());
}

void TestFaults::cleanupTestCase()
{
    m_host.reset();
    m_fx.reset();  // drops the scratch databases while the server still runs
    if (m_port != 0)
        QVERIFY(mariadb("stop"));
}

void TestFaults::retriedEntranceStoredOnce()
{
    HttpConnection terminal(m_host->port());
    QVERIFY(mariadb("stop"));
    QCOMPARE(post(terminal, 777777).errorCode(), 100503);
    QVERIFY(mariadb("start"));
    // The terminal retries the same entrance until it is taken, then once more.
    int answer = 503;
    for (int attempt = 0; answer == 503 && attempt < 50; ++attempt)
        answer = (QTest::qWait(100), post(terminal, 777777).status);
    QCOMPARE(answer, 201);
    QCOMPARE(post(terminal, 777777).status, 208);
    QCOMPARE(m_fx->customer().scalar("SELECT COUNT(*) FROM inters_data WHERE refId = 777777").toInt(), 1);
}

void TestFaults::startsBeforeTheDatabase()
{
    QVERIFY(mariadb("stop"));
    HostProcess host;
    QVERIFY(host.launch(m_fx->info().name()));
    // Waiting for the server, not giving up on it.
    QVERIFY2(host.waitForLog("cannot reach the InfoDB") && host.waitForLog("retrying in"), host.log().constData());
    QVERIFY(host.running());
    QVERIFY(mariadb("start"));
    QVERIFY2(host.waitUntilListening(60000), host.log().constData());
    HttpConnection terminal(host.port());
    QCOMPARE(people(terminal).status, 200);
}

void TestFaults::oneLoginPerThread()
{
    const auto thirds = [&](int count) {
        return together(m_host->port(), 3, [&](HttpConnection &connection, int c) {
            int failed = 0;
            for (int i = c; i < count; i += 3)
                failed += people(connection).status != 200;
            return failed;
        });
    };
    QCOMPARE(thirds(30), 0);  // every thread that serves has logged in
    const int before = status("Connections");
    QCOMPARE(thirds(60), 0);
    QVERIFY2(status("Connections") - before <= 4, "at most one login for each of the 4 threads");
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
    for (int i = 0; i < 3; ++i)
        QCOMPARE(people(connection).json().array().first().toObject().value("surname").toString(), surname);
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
    const int before = status("Threads_connected");
    const QStringList pragmas{"Pragma: " + m_fx->token(), "Pragma: " + m_fx->token().toUpper() + ":token", "Pragma: " + rotated};
    const int failed = together(host.port(), 10, [&](HttpConnection &connection, int c) {
        QStringList headers = m_fx->terminalHeaders(m_tid);
        int wrong = 0;
        for (int i = 0; i < 30; ++i) {
            headers.first() = pragmas.at((c + i) % pragmas.size());
            wrong += connection.reply("GET", "/webapi/people", headers).json().array().size() != 1;
        }
        return wrong;
    });
    QCOMPARE(failed, 0);
    // At most a customer and an InfoDB connection per thread more than before.
    QVERIFY2(status("Threads_connected") - before <= 6, qPrintable(QString::number(status("Threads_connected") - before)));
    QVERIFY(host.running() && !host.log().contains("duplicate connection name"));
}

QTEST_GUILESS_MAIN(TestFaults)
#include "tst_faults.moc"

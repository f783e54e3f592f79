// The request spine end to end: header checks, database, licence, routing and rendering,
// through buildResponse on a real DBManager and the private MariaDB.
#include "support/apifixture.h"
#include "support/logcapture.h"

#include "database/dbmanager.h"
#include "licence/licence.h"
#include "response/response.h"
#include "worker/webapiworker.h"

#include <QJsonObject>
#include <QtTest>

class TestSpine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void wholeResponses_data();
    void wholeResponses();
    void responseErrorsListsCatalogue();
    void sqlErrorTextOnlyInDevelopment();
    void noManagerIsBadDatabase();
    void licenceRows_data();
    void licenceRows();
    void emptyTokenRunsOnMaster();
    void idleConnectionClosed();
    void lockWaitEndsInCleanError();

private:
    // The customer database's sessions other than this test's own.
    int workerSessions()
    {
        return m_fx->customer()
            .scalar(QStringLiteral("SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE DB = DATABASE() AND ID <> CONNECTION_ID()"))
            .toInt();
    }
    // Sets one bound on the manager for the rest of the test case.
    void setBound(int ConnectionSettings::*field, int value)
    {
        ConnectionSettings settings = m_fx->manager()->connectionSettings();
        settings.*field = value;
        m_fx->manager()->setConnectionSettings(settings);
    }

    QScopedPointer<ApiFixture> m_fx;
};

void TestSpine::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("spine")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
}

void TestSpine::wholeResponses_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QStringList>("headers");
    QTest::addColumn<QString>("expectedFile");

    const QString pragma = QStringLiteral("Pragma: ") + m_fx->token();
    const QString auth = QStringLiteral("Authorization: Bearer ") + ApiFixture::kKey;
    QTest::newRow("no authorization") << "GET" << "/webapi/info" << QStringList{pragma} << "spine/unauthorized.http";
    QTest::newRow("unknown database") << "GET" << "/webapi/info"
                                      << QStringList{QStringLiteral("Pragma: token-nobody"), auth}
                                      << "spine/bad-database.http";
    QTest::newRow("bad scheme") << "GET" << "/webapi/info"
                                << QStringList{pragma, QStringLiteral("Authorization: Basic abc")}
                                << "spine/bad-scheme.http";
    QTest::newRow("unknown key") << "GET" << "/webapi/info"
                                 << QStringList{pragma, QStringLiteral("Authorization: Bearer wrong-key-value")}
                                 << "spine/unknown-key.http";
    QTest::newRow("put in terminal context") << "PUT" << "/webapi/person" << QStringList{pragma, auth}
                                             << "spine/put.http";
    QTest::newRow("unknown get path") << "GET" << "/webapi/nothing/here" << QStringList{pragma, auth}
                                      << "spine/unknown-path.http";
    QTest::newRow("info") << "GET" << "/webapi/info" << QStringList{pragma, auth} << "spine/info.http";
    QTest::newRow("prefix alone") << "GET" << "/webapi" << QStringList{pragma, auth} << "spine/root.http";
    QTest::newRow("delete in terminal context") << "DELETE" << "/webapi" << QStringList{pragma, auth}
                                                << "spine/delete.http";
}

void TestSpine::wholeResponses()
{
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(QStringList, headers);
    QFETCH(QString, expectedFile);
    COMPARE_EXPECTED(maskTms(m_fx->call(method, path, headers)), expectedFile);
}

void TestSpine::responseErrorsListsCatalogue()
{
    const HttpReply reply = m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/response-errors"),
                                          m_fx->terminalHeaders());
    QVERIFY(reply.valid);
    QCOMPARE(reply.status, 200);
    COMPARE_EXPECTED(reply.body, QStringLiteral("spine/response-errors.json"));
}

void TestSpine::sqlErrorTextOnlyInDevelopment()
{
    // What the one failure path of a terminal statement answers, with and without development
    // mode (no routed handler runs SQL of its own yet).
    Response hidden(RequestHeader{});
    RequestHeader devel;
    devel.develEnv = true;
    Response shown(devel);
    hidden.setError(Response::RE_SQLError, QStringLiteral("Table 'x' doesn't exist"));
    shown.setError(Response::RE_SQLError, QStringLiteral("Table 'x' doesn't exist"));
    COMPARE_EXPECTED(maskTms(hidden.renderResponse(true)), QStringLiteral("spine/sql-error-hidden.http"));
    COMPARE_EXPECTED(maskTms(shown.renderResponse(true)), QStringLiteral("spine/sql-error-shown.http"));
}

void TestSpine::noManagerIsBadDatabase()
{
    WebApiWorker worker(QStringLiteral("2.4.1"));
    const QByteArray raw = worker.buildResponse(QStringLiteral("GET"), QUrl(QStringLiteral("http://h/webapi/info")),
                                                m_fx->terminalHeaders(), QByteArray());
    COMPARE_EXPECTED(maskTms(raw), QStringLiteral("spine/no-manager.http"));
}

void TestSpine::licenceRows_data()
{
    QTest::addColumn<QString>("sql");  // run on the customer database before the request
    QTest::addColumn<QString>("authorization");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("expectedFile");  // empty: status only

    const QString bearer = QStringLiteral("Authorization: Bearer ") + ApiFixture::kKey;
    QTest::newRow("switched off") << "UPDATE vars SET value = '0' WHERE name = 'webapi.enabled'" << bearer << 401
                                  << "spine/not-licensed.http";
    QTest::newRow("switch missing") << "DELETE FROM vars WHERE name = 'webapi.enabled'" << bearer << 401
                                    << "spine/not-licensed.http";
    QTest::newRow("scheme in lower case") << "" << QStringLiteral("Authorization: bearer ") + ApiFixture::kKey << 200
                                          << "";
    QTest::newRow("second client") << QStringLiteral("INSERT INTO vars VALUES ('webapi.key.admin', '%1')")
                                          .arg(Licence::keyDigest(QStringLiteral("admin-key-42")))
                                   << "Authorization: Bearer admin-key-42" << 200 << "";
    QTest::newRow("other prefix") << QStringLiteral("INSERT INTO vars VALUES ('webapi.keys', '%1')")
                                         .arg(Licence::keyDigest(QStringLiteral("admin-key-42")))
                                  << "Authorization: Bearer admin-key-42" << 401 << "";
    QTest::newRow("terminal key removed") << "DELETE FROM vars WHERE name LIKE 'webapi.key.%'" << bearer << 401 << "";
    QTest::newRow("key without scheme") << "" << QStringLiteral("Authorization: ") + ApiFixture::kKey << 401
                                        << "spine/key-without-scheme.http";
}

void TestSpine::licenceRows()
{
    QFETCH(QString, sql);
    QFETCH(QString, authorization);
    QFETCH(int, status);
    QFETCH(QString, expectedFile);

    const QList<QVariantMap> saved = m_fx->customer().rows(QStringLiteral("SELECT name, value FROM vars"));
    if (!sql.isEmpty())
        QVERIFY(m_fx->customer().exec(sql));
    const QByteArray raw = m_fx->call(QStringLiteral("GET"), QStringLiteral("/webapi/info"),
                                      {QStringLiteral("Pragma: ") + m_fx->token(), authorization});
    QVERIFY(m_fx->customer().exec(QStringLiteral("DELETE FROM vars")));
    for (const QVariantMap &row : saved)
        QVERIFY(m_fx->customer().exec(QStringLiteral("INSERT INTO vars VALUES ('%1', '%2')")
                                          .arg(row.value("name").toString(), row.value("value").toString())));
    QCOMPARE(HttpReply::parse(raw).status, status);
    if (!expectedFile.isEmpty())
        COMPARE_EXPECTED(maskTms(raw), expectedFile);
}

void TestSpine::emptyTokenRunsOnMaster()
{
    // A master database of its own whose only key is "master-key": a request without a token
    // passes the key check only if it ran there.
    TestDatabase masterDb(QStringLiteral("spine_master"), QStringLiteral(WEBAPI_SOURCE_DIR "/database/schema/customer.sql"));
    QVERIFY2(masterDb.isReady(), qPrintable(masterDb.error()));
    QVERIFY(masterDb.exec(QStringLiteral("INSERT INTO vars VALUES ('webapi.enabled', '1'), ('webapi.key.host', '%1')")
                              .arg(Licence::keyDigest(QStringLiteral("master-key")))));
    DBManager *manager = m_fx->manager();
    manager->removeUnusedConnections();  // what earlier requests queued
    const QSqlDatabase savedMaster = manager->zmtDB();
    QSqlDatabase master = QSqlDatabase::cloneDatabase(masterDb.db(), QStringLiteral("spine.master"));
    manager->setZmtDB(master);
    manager->setDebugLevel(1);

    const HttpReply reply = m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/info"),
                                          {QStringLiteral("Authorization: Bearer master-key")});
    LogCapture log;
    manager->removeUnusedConnections();
    manager->setDebugLevel(0);
    manager->setZmtDB(savedMaster);
    master = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("spine.master"));

    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.json().object().value(QStringLiteral("name")).toString(), QStringLiteral("Web API"));
    // The master connection was not reported as free.
    QCOMPARE(log.linesStartingWith(QtDebugMsg, QStringLiteral("DBManager::removeUnusedConnections() - removing:")),
             QStringList());
    QCOMPARE(log.lines(QtWarningMsg), QStringList());
}

void TestSpine::idleConnectionClosed()
{
    const ConnectionSettings saved = m_fx->manager()->connectionSettings();
    setBound(&ConnectionSettings::idleClose, 1);
    QCOMPARE(m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/info"), m_fx->terminalHeaders()).status, 200);
    QCOMPARE(workerSessions(), 1);
    // Closed while no request comes, and opened again by the next one.
    QTRY_COMPARE_WITH_TIMEOUT(workerSessions(), 0, 10000);
    m_fx->manager()->setConnectionSettings(saved);
    QCOMPARE(m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/info"), m_fx->terminalHeaders()).status, 200);
    QCOMPARE(workerSessions(), 1);
}

void TestSpine::lockWaitEndsInCleanError()
{
    // A worker whose connection opens with a one-second bound on lock waits.
    const ConnectionSettings saved = m_fx->manager()->connectionSettings();
    setBound(&ConnectionSettings::lockWait, 1);
    WebApiWorker worker(QStringLiteral("2.4.1"));
    worker.setDbManager(m_fx->manager());
    QVERIFY(m_fx->customer().exec(QStringLiteral("LOCK TABLES vars WRITE")));
    const HttpReply reply = HttpReply::parse(worker.buildResponse(
        QStringLiteral("GET"), QUrl(QStringLiteral("http://h/webapi/info")), m_fx->terminalHeaders(), QByteArray()));
    QVERIFY(m_fx->customer().exec(QStringLiteral("UNLOCK TABLES")));
    m_fx->manager()->setConnectionSettings(saved);
    QCOMPARE(reply.status, 503);
    QCOMPARE(reply.errorCode(), int(Response::RE_BadDatabase));
    // The connection survived the wait and serves the next request.
    QCOMPARE(HttpReply::parse(worker.buildResponse(QStringLiteral("GET"), QUrl(QStringLiteral("http://h/webapi/info")),
                                                   m_fx->terminalHeaders(), QByteArray()))
                 .status,
             200);
}

QTEST_GUILESS_MAIN(TestSpine)
#include "tst_spine.moc"

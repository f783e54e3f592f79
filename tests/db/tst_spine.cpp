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
    void licenceRows_data();
    void licenceRows();
    void developmentMode_data();
    void developmentMode();
    void emptyTokenRunsOnMaster();
    void idleConnectionClosed();
    void lockWaitEndsInCleanError();

private:
    // The customer database's sessions other than this test's own.
    int workerSessions()
    {
        return m_fx->customer()
            .scalar("SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE DB = DATABASE() AND ID <> CONNECTION_ID()")
            .toInt();
    }

    QScopedPointer<ApiFixture> m_fx;
};

void TestSpine::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("spine")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    QVERIFY(!m_fx->addTerminal(77).isEmpty());
}

void TestSpine::wholeResponses_data()
{
    QTest::addColumn<QString>("request");  // method and path
    QTest::addColumn<QStringList>("headers");
    QTest::addColumn<QString>("expectedFile");

    const QString pragma = "Pragma: " + m_fx->token();
    const QString auth = "Authorization: Bearer " + ApiFixture::kKey;
    QTest::newRow("no authorization") << "GET /webapi/info" << QStringList{pragma} << "unauthorized";
    QTest::newRow("unknown database") << "GET /webapi/info" << QStringList{"Pragma: token-nobody", auth} << "bad-database";
    QTest::newRow("unknown key") << "GET /webapi/info" << QStringList{pragma, "Authorization: Bearer wrong-key-value"} << "unknown-key";
    QTest::newRow("key without scheme") << "GET /webapi/info" << QStringList{pragma, "Authorization: " + ApiFixture::kKey}
                                        << "key-without-scheme";
    QTest::newRow("put in terminal context") << "PUT /webapi/person" << QStringList{pragma, auth} << "put";
    QTest::newRow("delete in terminal context") << "DELETE /webapi" << QStringList{pragma, auth} << "delete";
    QTest::newRow("unknown get path") << "GET /webapi/nothing/here" << QStringList{pragma, auth} << "unknown-path";
    QTest::newRow("info") << "GET /webapi/info" << QStringList{pragma, auth} << "info";
    QTest::newRow("response errors") << "GET /webapi/response-errors" << QStringList{pragma, auth} << "response-errors";
    QTest::newRow("prefix alone") << "GET /webapi" << QStringList{pragma, auth} << "root";
    QTest::newRow("no manager") << "GET /webapi/info" << QStringList{pragma, auth} << "no-manager";
}

void TestSpine::wholeResponses()
{
    QFETCH(QString, request);
    QFETCH(QStringList, headers);
    QFETCH(QString, expectedFile);
    WebApiWorker unmanaged(QStringLiteral("2.4.1"));
    const QString method = request.section(' ', 0, 0);
    const QString path = request.section(' ', 1);
    const QByteArray raw = expectedFile == "no-manager"
        ? unmanaged.buildResponse(method, QUrl("http://h" + path), headers, QByteArray())
        : m_fx->call(method, path, headers);
    COMPARE_EXPECTED(maskTms(raw), "spine/" + expectedFile + ".http");
}

void TestSpine::licenceRows_data()
{
    QTest::addColumn<QString>("sql");  // run on the customer database before the request
    QTest::addColumn<QString>("authorization");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("status");

    const QString bearer = "Authorization: Bearer " + ApiFixture::kKey;
    const QString keyed = QString("UPDATE vars SET value = '%2%1' WHERE name = 'webapi.key.terminals'").arg(Licence::keyDigest(ApiFixture::kKey));
    QTest::newRow("switched off") << "UPDATE vars SET value = '0' WHERE name = 'webapi.enabled'" << bearer << "info" << 401;
    QTest::newRow("scheme in lower case") << "" << "Authorization: bearer " + ApiFixture::kKey << "info" << 200;
    QTest::newRow("second client") << QString("INSERT INTO vars VALUES ('webapi.key.admin', '%1')").arg(Licence::keyDigest("admin-key-42"))
                                   << "Authorization: Bearer admin-key-42" << "info" << 200;
    QTest::newRow("other prefix") << QString("INSERT INTO vars VALUES ('webapi.keys', '%1')").arg(Licence::keyDigest("admin-key-42"))
                                  << "Authorization: Bearer admin-key-42" << "info" << 401;
    // A key without a scope serves both contexts, one of a scope only its own, an unknown scope none.
    QTest::newRow("terminal scope, admin") << keyed.arg("terminal:") << bearer << "admin" << 401;
    QTest::newRow("admin scope, terminal") << keyed.arg("admin:") << bearer << "info" << 401;
    QTest::newRow("no scope, admin") << "" << bearer << "admin" << 404;
    QTest::newRow("unknown scope") << keyed.arg("door:") << bearer << "info" << 401;
}

void TestSpine::licenceRows()
{
    QFETCH(QString, sql);
    QFETCH(QString, authorization);
    QFETCH(QString, path);
    QFETCH(int, status);
    TestDatabase &db = m_fx->customer();
    const QList<QVariantMap> saved = db.rows("SELECT name, value FROM vars");
    if (!sql.isEmpty())
        QVERIFY(db.exec(sql));
    QStringList headers{"Pragma: " + m_fx->token(), authorization};
    if (path == "admin")
        headers << "X-ZMT-AID: tok-nobody";
    const QByteArray raw = m_fx->call("GET", "/webapi/" + QString(path == "admin" ? "report/daily/0" : "info"), headers);
    const HttpReply reply = HttpReply::parse(raw);
    QVERIFY(db.exec("DELETE FROM vars"));
    for (const QVariantMap &row : saved)
        QVERIFY(db.exec(QString("INSERT INTO vars VALUES ('%1', '%2')").arg(row.value("name").toString(), row.value("value").toString())));
    QCOMPARE(reply.status, status);
    // Refused as an unknown key, so a key says nothing of where else it would work.
    if (status == 401 && !sql.contains("enabled"))
        QCOMPARE(reply.errorCode(), int(Response::RE_BadApiToken));
    else if (status == 401)
        COMPARE_EXPECTED(maskTms(raw), "spine/not-licensed.http");
}

void TestSpine::developmentMode_data()
{
    QTest::addColumn<QString>("row");   // webapi.devel; null: none
    QTest::addColumn<QString>("sent");  // X-WEBAPI-DEVEL-ENV; null: not sent
    QTest::addColumn<bool>("shown");

    const QString digest = Licence::keyDigest("s3cret");
    QTest::newRow("consented") << digest << "s3cret" << true;
    QTest::newRow("no row, the old fixed token") << QString() << "zmt-devel" << false;
    QTest::newRow("other value") << digest << "S3CRET" << false;
}

void TestSpine::developmentMode()
{
    QFETCH(QString, row);
    QFETCH(QString, sent);
    QFETCH(bool, shown);
    TestDatabase &db = m_fx->customer();
    if (!row.isNull())
        QVERIFY(db.exec(QString("INSERT INTO vars VALUES ('webapi.devel', '%1')").arg(row)));
    // A failing statement: development mode shows the server's words.
    QVERIFY(db.exec("RENAME TABLE inters TO inters_away"));
    HttpReply reply;
    {
        LogCapture log;
        reply = m_fx->request("GET", "/webapi/inters", m_fx->terminalHeaders() << "X-WEBAPI-DEVEL-ENV: " + sent);
    }
    QVERIFY(db.exec("RENAME TABLE inters_away TO inters"));
    QVERIFY(db.exec("DELETE FROM vars WHERE name = 'webapi.devel'"));
    QCOMPARE(reply.status, 500);
    const QString message = reply.json().object().value("message").toString();
    QCOMPARE(message.contains("doesn't exist"), shown);
    QCOMPARE(message == "Database error", !shown);
}

void TestSpine::emptyTokenRunsOnMaster()
{
    // A master database of its own whose only key is "master-key": a request without a token
    // passes the key check only if it ran there.
    TestDatabase masterDb(QStringLiteral("spine_master"), QStringLiteral(WEBAPI_SOURCE_DIR "/database/schema/customer.sql"));
    QVERIFY2(masterDb.isReady(), qPrintable(masterDb.error()));
    QVERIFY(masterDb.exec(QString("INSERT INTO vars VALUES ('webapi.enabled', '1'), ('webapi.key.host', '%1')")
                              .arg(Licence::keyDigest("master-key"))));
    DBManager *manager = m_fx->manager();
    manager->removeUnusedConnections();  // what earlier requests queued
    const QSqlDatabase savedMaster = manager->zmtDB();
    manager->setZmtDB(QSqlDatabase::cloneDatabase(masterDb.db(), QStringLiteral("spine.master")));
    const HttpReply reply = m_fx->request("GET", "/webapi/info", {"Authorization: Bearer master-key"});
    manager->removeUnusedConnections();
    manager->setZmtDB(savedMaster);
    QSqlDatabase::removeDatabase(QStringLiteral("spine.master"));
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.json().object().value("name").toString(), QStringLiteral("Web API"));
}

void TestSpine::idleConnectionClosed()
{
    const ConnectionSettings saved = m_fx->manager()->connectionSettings();
    ConnectionSettings quick = saved;
    quick.idleClose = 1;
    m_fx->manager()->setConnectionSettings(quick);
    QCOMPARE(m_fx->request("GET", "/webapi/info", m_fx->terminalHeaders()).status, 200);
    QCOMPARE(workerSessions(), 1);
    // Closed while no request comes, and opened again by the next one.
    QTRY_COMPARE_WITH_TIMEOUT(workerSessions(), 0, 10000);
    m_fx->manager()->setConnectionSettings(saved);
    QCOMPARE(m_fx->request("GET", "/webapi/info", m_fx->terminalHeaders()).status, 200);
    QCOMPARE(workerSessions(), 1);
}

void TestSpine::lockWaitEndsInCleanError()
{
    // A worker whose connection opens with a one-second bound on lock waits.
    const ConnectionSettings saved = m_fx->manager()->connectionSettings();
    ConnectionSettings bounded = saved;
    bounded.lockWait = 1;
    m_fx->manager()->setConnectionSettings(bounded);
    WebApiWorker worker(QStringLiteral("2.4.1"));
    worker.setDbManager(m_fx->manager());
    const auto info = [&] { return HttpReply::parse(worker.buildResponse("GET", QUrl("http://h/webapi/info"), m_fx->terminalHeaders(), {})); };
    QVERIFY(m_fx->customer().exec("LOCK TABLES vars WRITE"));
    const HttpReply reply = info();
    QVERIFY(m_fx->customer().exec("UNLOCK TABLES"));
    m_fx->manager()->setConnectionSettings(saved);
    QCOMPARE(reply.status, 503);
    QCOMPARE(reply.errorCode(), int(Response::RE_BadDatabase));
    // The connection survived the wait and serves the next request.
    QCOMPARE(info().status, 200);
}

QTEST_GUILESS_MAIN(TestSpine)
#include "tst_spine.moc"

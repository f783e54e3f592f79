// The request spine end to end: header checks, database, licence, routing and rendering,
// through buildResponse on a real DBManager and the private MariaDB.
#include "support/apifixture.h"

#include "database/dbmanager.h"
#include "licence/licence.h"
#include "worker/webapiworker.h"

#include <QJsonObject>
#include <QtTest>

class TestSpine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void requests_data();
    void requests();
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

void TestSpine::requests_data()
{
    QTest::addColumn<QString>("request");  // method and path
    QTest::addColumn<QStringList>("headers");
    QTest::addColumn<QString>("setup");    // statements run first, ";" between; tables renamed "_away" come back after
    QTest::addColumn<QString>("expect");   // "status[ code[ words of the message]]", or a whole response in tests/data

    const auto row = [](const char *tag, const char *request, const QStringList &headers, const char *expect,
                        const QString &setup = {}) { QTest::newRow(tag) << request << headers << setup << expect; };
    const QString pragma = "Pragma: " + m_fx->token();
    const QString auth = "Authorization: Bearer " + ApiFixture::kKey;
    const QStringList ok{pragma, auth};
    row("no authorization", "GET /webapi/info", {pragma}, "spine/unauthorized");
    row("unknown database", "GET /webapi/info", {"Pragma: token-nobody", auth}, "spine/bad-database");
    row("unknown key", "GET /webapi/info", {pragma, "Authorization: Bearer wrong-key-value"}, "spine/unknown-key");
    row("key without scheme", "GET /webapi/info", {pragma, "Authorization: " + ApiFixture::kKey}, "spine/key-without-scheme");
    row("put in terminal context", "PUT /webapi/person", ok, "spine/put");
    row("delete in terminal context", "DELETE /webapi", ok, "spine/delete");
    row("unknown get path", "GET /webapi/nothing/here", ok, "spine/unknown-path");
    row("info", "GET /webapi/info", ok, "spine/info");
    row("response errors", "GET /webapi/response-errors", ok, "spine/response-errors");
    row("prefix alone", "GET /webapi", ok, "spine/root");
    row("no manager", "GET /webapi/info", ok, "spine/no-manager");
    // The licence rows: a key without a scope serves both contexts, one of a scope only its
    // own, an unknown scope none; refused as an unknown key, so a key says nothing of where
    // else it would work.
    const QStringList admin{pragma, auth, "X-ZMT-AID: tok-nobody"};
    const QString keyed = QString("UPDATE vars SET value = '%2%1' WHERE name = 'webapi.key.terminals'").arg(Licence::keyDigest(ApiFixture::kKey));
    const QString second = "INSERT INTO vars VALUES ('webapi.%1', '" + Licence::keyDigest("admin-key-42") + "')";
    row("switched off", "GET /webapi/info", ok, "spine/not-licensed", "UPDATE vars SET value = '0' WHERE name = 'webapi.enabled'");
    row("scheme in lower case", "GET /webapi/info", {pragma, "Authorization: bearer " + ApiFixture::kKey}, "200");
    row("second client", "GET /webapi/info", {pragma, "Authorization: Bearer admin-key-42"}, "200", second.arg("key.admin"));
    row("other prefix", "GET /webapi/info", {pragma, "Authorization: Bearer admin-key-42"}, "401 100007", second.arg("keys"));
    row("terminal scope, admin", "GET /webapi/report/daily/0", admin, "401 100007", keyed.arg("terminal:"));
    row("admin scope, terminal", "GET /webapi/info", ok, "401 100007", keyed.arg("admin:"));
    row("no scope, admin", "GET /webapi/report/daily/0", admin, "404");
    row("unknown scope", "GET /webapi/info", ok, "401 100007", keyed.arg("door:"));
    // A failing statement: development mode, consented to by the digest of the value sent,
    // shows the server's words; the old fixed value or another one do not.
    const QString failing = "RENAME TABLE inters TO inters_away";
    const QString devel = "INSERT INTO vars VALUES ('webapi.devel', '" + Licence::keyDigest("s3cret") + "');" + failing;
    const QStringList terminal = m_fx->terminalHeaders();
    row("development mode", "GET /webapi/inters", terminal + QStringList{"X-WEBAPI-DEVEL-ENV: s3cret"}, "500 100501 doesn't exist", devel);
    row("no row, the old fixed value", "GET /webapi/inters", terminal + QStringList{"X-WEBAPI-DEVEL-ENV: zmt-devel"},
        "terminal/list-sql-error", failing);
    row("other value", "GET /webapi/inters", terminal + QStringList{"X-WEBAPI-DEVEL-ENV: S3CRET"}, "terminal/list-sql-error", devel);
}

void TestSpine::requests()
{
    QFETCH(QString, request);
    QFETCH(QStringList, headers);
    QFETCH(QString, setup);
    QFETCH(QString, expect);
    TestDatabase &db = m_fx->customer();
    const QList<QVariantMap> saved = db.rows("SELECT name, value FROM vars");
    for (const QString &statement : setup.split(';', Qt::SkipEmptyParts))
        QVERIFY(db.exec(statement));
    WebApiWorker unmanaged(QStringLiteral("2.4.1"));
    const QString method = request.section(' ', 0, 0);
    const QString path = request.section(' ', 1);
    const QByteArray raw = QTest::currentDataTag() == QByteArray("no manager")
        ? unmanaged.buildResponse(method, QUrl("http://h" + path), headers, QByteArray())
        : m_fx->call(method, path, headers);
    if (setup.contains("_away"))
        QVERIFY(db.exec("RENAME TABLE inters_away TO inters"));
    QVERIFY(db.exec("DELETE FROM vars"));
    for (const QVariantMap &row : saved)
        QVERIFY(db.exec(QString("INSERT INTO vars VALUES ('%1', '%2')").arg(row.value("name").toString(), row.value("value").toString())));
    if (!expect.at(0).isDigit()) {
        COMPARE_EXPECTED(maskTms(raw), expect + ".http");
        return;
    }
    const HttpReply reply = HttpReply::parse(raw);
    QCOMPARE(QString::number(reply.status), expect.section(' ', 0, 0));
    if (expect.contains(' '))
        QCOMPARE(QString::number(reply.errorCode()), expect.section(' ', 1, 1));
    QVERIFY2(reply.message().contains(expect.section(' ', 2)), qPrintable(reply.message()));
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
    QCOMPARE(reply.errorCode(), 100503);
    // The connection survived the wait and serves the next request.
    QCOMPARE(info().status, 200);
}

QTEST_GUILESS_MAIN(TestSpine)
#include "tst_spine.moc"

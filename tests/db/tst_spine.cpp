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
    void keyScopes_data();
    void keyScopes();
    void developmentMode_data();
    void developmentMode();
    void emptyTokenRunsOnMaster();
    void managerConnectionQueuedAfterRequest();

private:
    QScopedPointer<ApiFixture> m_fx;
    QString m_terminal;
};

void TestSpine::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("spine")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    m_terminal = m_fx->addTerminal(77);
    QVERIFY(m_fx->customer().exec("INSERT INTO admins (login, apiToken, status, perms) VALUES ('scope', 'tok-scope', 1, 2)"));
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

void TestSpine::keyScopes_data()
{
    QTest::addColumn<QString>("prefix");  // of the stored digest
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("admin");      // sent with an administrator's token
    QTest::addColumn<bool>("allowed");

    const struct
    {
        const char *tag;
        const char *method;
        const char *path;
        bool admin;
    } requests[] = {{"info", "GET", "/webapi/info", false},
                    {"register", "POST", "/webapi/terminal", false},
                    {"add person", "POST", "/webapi/person", false},
                    {"post entrance", "POST", "/webapi/entrance", false},
                    {"attendance", "GET", "/webapi/attendance/daily", true}};
    // A key without a scope serves both contexts; one of an unknown scope serves none.
    for (const char *prefix : {"", "terminal:", "admin:", "door:"}) {
        for (const auto &r : requests) {
            const bool allowed = !qstrcmp(prefix, "") || (!qstrcmp(prefix, "terminal:") && !r.admin)
                || (!qstrcmp(prefix, "admin:") && r.admin);
            QTest::addRow("%s%s", prefix, r.tag) << prefix << r.method << r.path << r.admin << allowed;
        }
    }
}

void TestSpine::keyScopes()
{
    QFETCH(QString, prefix);
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(bool, admin);
    QFETCH(bool, allowed);
    TestDatabase &db = m_fx->customer();
    QVERIFY(db.exec(QStringLiteral("UPDATE vars SET value = '%1%2' WHERE name = 'webapi.key.terminals'")
                        .arg(prefix, Licence::keyDigest(ApiFixture::kKey))));
    QStringList headers = admin ? m_fx->adminHeaders("tok-scope") : m_fx->terminalHeaders(m_terminal);
    headers << "Content-Type: application/json";
    const HttpReply reply = m_fx->request(method, path, headers, R"({"vid": 77, "name": "Door"})");
    QVERIFY(db.exec(QStringLiteral("UPDATE vars SET value = '%1' WHERE name = 'webapi.key.terminals'")
                        .arg(Licence::keyDigest(ApiFixture::kKey))));
    // Refused as an unknown key, so a key says nothing of where else it would work.
    QCOMPARE(reply.status == 401, !allowed);
    if (!allowed)
        QCOMPARE(reply.json().object().value("code").toInt(), int(Response::RE_BadApiToken));
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
    QTest::newRow("not sent") << digest << QString() << false;
    QTest::newRow("empty row, empty value") << "" << "" << false;
    QTest::newRow("digest in upper case") << digest.toUpper() << "s3cret" << false;
}

void TestSpine::developmentMode()
{
    QFETCH(QString, row);
    QFETCH(QString, sent);
    QFETCH(bool, shown);
    TestDatabase &db = m_fx->customer();
    if (!row.isNull())
        QVERIFY(db.exec(QStringLiteral("INSERT INTO vars VALUES ('webapi.devel', '%1')").arg(row)));
    QStringList headers = m_fx->terminalHeaders();
    if (!sent.isNull())
        headers << "X-WEBAPI-DEVEL-ENV: " + sent;
    // A failing statement: development mode shows the server's words.
    QVERIFY(db.exec("RENAME TABLE inters TO inters_away"));
    HttpReply reply;
    {
        LogCapture log;
        reply = m_fx->request("GET", "/webapi/inters", headers);
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

void TestSpine::managerConnectionQueuedAfterRequest()
{
    // With a token the worker runs on its own clone; the manager's per-thread connection is
    // closed and queued, and the host's sweep removes it.
    DBManager *manager = m_fx->manager();
    manager->removeUnusedConnections();  // what earlier requests queued
    const HttpReply reply = m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/info"), m_fx->terminalHeaders());
    QCOMPARE(reply.status, 200);
    QVERIFY(manager->hasConnection(m_fx->token()));
    manager->setDebugLevel(1);
    LogCapture log;
    manager->removeUnusedConnections();
    manager->setDebugLevel(0);
    QCOMPARE(log.linesStartingWith(QtDebugMsg, QStringLiteral("DBManager::removeUnusedConnections() - removing:")),
             QStringList{QStringLiteral("DBManager::removeUnusedConnections() - removing: \"%1\"")
                             .arg(manager->connectionNameFor(m_fx->token()))});
    QVERIFY(!manager->hasConnection(m_fx->token()));
    // The next request makes it anew.
    QCOMPARE(m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/info"), m_fx->terminalHeaders()).status, 200);
}

QTEST_GUILESS_MAIN(TestSpine)
#include "tst_spine.moc"

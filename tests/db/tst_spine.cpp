// The request spine end to end: header checks, database, licence, routing and rendering,
// through buildResponse on a real DBManager and the private MariaDB; crafted tokens, names and
// setting names stay bound values.
#include "support/apifixture.h"
#include "support/hostprocess.h"

#include "database/dbmanager.h"
#include "database/zmtdbsettings.h"
#include "licence/licence.h"
#include "worker/webapiworker.h"

#include <QJsonObject>
#include <QtTest>

class TestSpine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_fx.reset(new ApiFixture(QStringLiteral("spine")));
        QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
        QVERIFY(!m_fx->addTerminal(77).isEmpty());
        QVERIFY(m_fx->customer().exec("INSERT INTO admins (login, apiToken, status, perms) VALUES ('boss', 'tok-boss', 1, 2)"));
    }

    void requests_data()
    {
        QTest::addColumn<QString>("request"); QTest::addColumn<QStringList>("headers");  // method and path, header lines
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
        row("unknown get path", "GET /webapi/nothing/here", ok, "spine/unknown-path");
        row("info", "GET /webapi/info", ok, "spine/info");
        row("response errors", "GET /webapi/response-errors", ok, "spine/response-errors");
        row("prefix alone", "GET /webapi", ok, "spine/root");
        row("no manager", "GET /webapi/info", ok, "spine/no-manager");
        // Crafted customer tokens are answered as any unknown one: the customer's database, which
        // "always true" would select, is not reached. The Pragma line is only read when it holds
        // the word "token", so every attempt does.
        for (const QByteArray &token : testData("injection/tokens.txt").trimmed().split('\n'))
            row(token.constData(), "GET /webapi/info", {"Pragma: " + token, auth}, "spine/bad-database");
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

    void requests()
    {
        QFETCH(QString, request); QFETCH(QStringList, headers); QFETCH(QString, setup); QFETCH(QString, expect);
        TestDatabase &db = m_fx->customer();
        const QList<QVariantMap> saved = db.rows("SELECT name, value FROM vars");
        for (const QString &statement : setup.split(';', Qt::SkipEmptyParts))
            QVERIFY(db.exec(statement));
        const QString method = request.section(' ', 0, 0), path = request.section(' ', 1);
        const QByteArray raw = QTest::currentDataTag() == QByteArray("no manager")
            ? WebApiWorker(QStringLiteral("2.4.1")).buildResponse(method, QUrl("http://h" + path), headers, QByteArray())
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

    void managerRefusesCraftedValues()
    {
        DBManager *manager = m_fx->manager();
        const QString always = "token' OR '1'='1";
        QCOMPARE(manager->loadTokenByName("x' OR '1'='1"), QString());
        QVERIFY(!manager->setRecalc(always));
        QVERIFY(!manager->setMaintenance(always));
        // In the statement, "OR '1'='1'" would have stamped every customer.
        QCOMPARE(m_fx->info().scalar("SELECT COUNT(*) FROM `schemas` WHERE recalc IS NOT NULL OR maintenance IS NOT NULL").toInt(), 0);
        // The same rule lets real names and tokens through.
        QCOMPARE(manager->loadTokenByName(m_fx->customer().name()), m_fx->token());
        QVERIFY(manager->setRecalc(m_fx->token()));
    }

    void boundValues_data()
    {
        QTest::addColumn<QString>("value");
        QTest::newRow("prefix and percent") << "tok%";
        // Wildcards of LIKE: eight underscores match "tok-boss", the other "webapi.enabled".
        QTest::newRow("underscores") << "________";
        QTest::newRow("underscore") << "webapi_enabled";
        QTest::newRow("always true") << "' OR '1'='1";
    }

    void boundValues()
    {
        QFETCH(QString, value);
        TestDatabase &db = m_fx->customer();
        // As an admin token: no administrator, as any unknown token.
        COMPARE_EXPECTED(maskTms(m_fx->call("GET", "/webapi/report/daily/0", m_fx->adminHeaders(value))), "admin/no-admin.http");
        // As a setting's name or prefix: it matches only itself, and the licence rows stay.
        const QList<QVariantMap> before = db.rows("SELECT name, value FROM vars ORDER BY name");
        ZmtDbSettings settings(db.db());
        QVERIFY(!settings.variableDel(value, false));
        QVERIFY(settings.variableSet(value, "again"));
        const QMap<QString, QVariant> mine{{value, "again"}};
        QCOMPARE(settings.variableGetMultiple(QStringList{value}), mine);
        QCOMPARE(settings.variableGetMultiple(value), mine);
        QVERIFY(settings.variableDel(value, true));
        QCOMPARE(db.rows("SELECT name, value FROM vars ORDER BY name"), before);
    }

    void emptyTokenRunsOnMaster()
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

    void connections()
    {
        const auto sessions = [&] {  // the customer database's sessions other than this test's own
            return m_fx->customer().scalar("SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE DB = DATABASE() AND ID <> "
                                           "CONNECTION_ID()").toInt();
        };
        // An entrance keeps its statement prepared on the connection, never that of a closed one.
        const QStringList terminal = m_fx->terminalHeaders(m_fx->addTerminal(78));
        const QString person = addPerson(*m_fx);
        const auto post = [&](uint refId) { return m_fx->request("POST", "/webapi/entrance", terminal, entranceBody(person, refId)); };
        const ConnectionSettings saved = m_fx->manager()->connectionSettings();
        ConnectionSettings changed = saved;
        changed.idleClose = 1;
        m_fx->manager()->setConnectionSettings(changed);
        QCOMPARE(post(1).status, 201);
        QCOMPARE(sessions(), 1);
        // Closed while no request comes, and opened again by the next one, with the settings of
        // then: a one-second bound on lock waits ends in a clean error, and the connection
        // survives the wait to serve the next request.
        QTRY_COMPARE_WITH_TIMEOUT(sessions(), 0, 10000);
        changed = saved;
        changed.lockWait = 1;
        m_fx->manager()->setConnectionSettings(changed);
        QVERIFY(m_fx->customer().exec("LOCK TABLES vars WRITE"));
        const HttpReply reply = post(2);
        QVERIFY(m_fx->customer().exec("UNLOCK TABLES"));
        m_fx->manager()->setConnectionSettings(saved);
        QCOMPARE(reply.status, 503);
        QCOMPARE(reply.errorCode(), 100503);
        QCOMPARE(post(3).status, 201);
        QCOMPARE(sessions(), 1);
    }

private:
    QScopedPointer<ApiFixture> m_fx;
};

QTEST_GUILESS_MAIN(TestSpine)
#include "tst_spine.moc"

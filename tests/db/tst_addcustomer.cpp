// scripts/add-customer against the private MariaDB: each customer's MySQL user reaches its
// own database only, the key and admin token it prints once work through the plug-in, and
// no secret stands on a command line. Also how the migration scripts bring an older
// database to the layout of a new one.
#include "support/apifixture.h"

#include "licence/licence.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QSqlError>
#include <QSqlQuery>
#include <QtTest>

class TestAddCustomer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_fx.reset(new ApiFixture("addc"));
        QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
        // Every command line of the mariadb client is written down on the way.
        const QString argvLog = m_dir.filePath("mariadb-argv.log");
        qputenv("WEBAPI_ARGV_LOG", argvLog.toUtf8());
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", WEBAPI_TEST_DATA "/argv-shim:" + path);
        m_createdA = addCustomer({m_a});
        qputenv("PATH", path);
        m_createdB = addCustomer({"--token", "token.b-" + m_b, "--client", "tools", m_b});
        QVERIFY2(m_createdA["exit"] == "0" && m_createdB["exit"] == "0", qPrintable(m_createdA["output"] + m_createdB["output"]));
        QFile argv(argvLog);
        const QByteArray commandLines = argv.open(QIODevice::ReadOnly) ? argv.readAll() : QByteArray();
        QVERIFY(commandLines.count('\n') > 5);
        // Logged in with the password the InfoDB holds for it.
        const QString pass = m_fx->info().scalar(QString("SELECT pass FROM `schemas` WHERE name = '%1'").arg(m_a)).toString();
        QSqlDatabase own = QSqlDatabase::cloneDatabase(m_fx->info().db(), "own");
        own.setUserName(m_a + "_user");
        own.setPassword(QString::fromUtf8(QByteArray::fromBase64(pass.toLatin1())));
        own.setDatabaseName(m_a);
        QVERIFY2(own.open(), qPrintable(own.lastError().text()));
        for (const QString &secret : {TestServer::password(), own.password(), m_createdA["key"], m_createdA["admin-token"], pass})
            QVERIFY2(!commandLines.contains(secret.toUtf8()), qPrintable(secret));
    }
    void cleanupTestCase()
    {
        QSqlDatabase::removeDatabase("own");
        for (const QString &name : {m_a, m_b}) {
            m_fx->info().exec(QString("DROP DATABASE IF EXISTS `%1`").arg(name));
            m_fx->info().exec(QString("DROP USER IF EXISTS '%1_user'@'127.0.0.1', '%1_user'@'localhost'").arg(name));
        }
    }
    void storedRowsAndCredentials()
    {
        const QString key = m_createdA["key"];
        QCOMPARE(m_createdA["token"], "token-" + m_a);
        // 32 random bytes each, as hex, and different for every customer.
        QVERIFY(key.size() == 64 && m_createdA["admin-token"].size() == 64 && key != m_createdB["key"]);
        // The key only as its digest.
        QCOMPARE(m_fx->info().scalar(QString("SELECT GROUP_CONCAT(name, '=', value ORDER BY name) FROM `%1`.vars").arg(m_a)).toString(),
                 "webapi.devices=*,webapi.enabled=1,webapi.key.terminals=" + Licence::keyDigest(key));
        QCOMPARE(m_fx->info().scalar(QString("SELECT CONCAT_WS(',', apiToken, status, perms & 2, del) FROM `%1`.admins").arg(m_a)).toString(),
                 m_createdA["admin-token"] + ",1,2,0");
        // Served on the customer's own account; one customer's key opens nothing at the other's.
        const auto status = [this](const QMap<QString, QString> &owner, const QString &key, const QString &aid = QString()) {
            return m_fx->request("GET", aid.isEmpty() ? "/webapi/groups" : "/webapi/report/daily/0",
                                 {"Pragma: " + owner["token"], "Authorization: Bearer " + key, "X-ZMT-AID: " + aid}).status;
        };
        for (const auto &created : {m_createdA, m_createdB}) {
            QCOMPARE(status(created, created["key"]), 200);
            QCOMPARE(status(created, created["key"], created["admin-token"]), 200);
        }
        QCOMPARE(status(m_createdB, m_createdA["key"]), 401);
    }
    void userReachesOwnDatabaseOnly_data()
    {
        QTest::addColumn<QString>("sql");  // refused
        QTest::newRow("InfoDB passwords") << QString("SELECT pass FROM `%1`.`schemas`").arg(m_fx->info().name());
        QTest::newRow("own DDL") << "DROP TABLE vars";
    }
    void userReachesOwnDatabaseOnly()
    {
        QFETCH(QString, sql);
        QSqlQuery query(QSqlDatabase::database("own", false));
        QVERIFY(!query.exec(sql) && query.lastError().text().contains("denied"));
    }
    void refusals_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("reason");
        const QString fresh = TestServer::uniqueName("addc_c");
        QTest::newRow("existing database") << QStringList{m_a} << "exists already";
        QTest::newRow("token in use") << QStringList{"--token", "token-" + m_a, fresh} << "has a customer";
        QTest::newRow("name with quote") << QStringList{"x'y"} << "NAME";
        QTest::newRow("key on the command line") << QStringList{"--key", "0123456789abcdef0123", fresh} << "never on a command line";
        // A file that everybody may read.
        QTest::newRow("secrets others can read") << QStringList{"--secrets", "/etc/passwd", fresh} << "chmod 600";
    }
    void refusals()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, reason);
        const QString count = "SELECT COUNT(*) FROM `schemas`";
        const int customers = m_fx->info().scalar(count).toInt();
        const QMap<QString, QString> created = addCustomer(arguments);
        QVERIFY2(created["exit"] != "0" && created["output"].contains(reason) && !created.contains("key"), qPrintable(created["output"]));
        QCOMPARE(m_fx->info().scalar(count).toInt(), customers);
        // A half-made customer is removed again; the existing one stays whole.
        const QString name = arguments.last();
        QCOMPARE(m_fx->info().scalar(QString("SELECT COUNT(*) FROM information_schema.SCHEMATA WHERE SCHEMA_NAME = '%1'")
                                         .arg(QString(name).replace("'", "''"))).toInt(), name == m_a ? 1 : 0);
    }
    void migrationReachesNewLayout()
    {
        const QString schema = WEBAPI_SOURCE_DIR "/database/schema/";
        TestDatabase fresh("fresh", schema + "customer.sql");
        TestDatabase old("old", schema + "customer.sql");
        QVERIFY2(fresh.isReady() && old.isReady(), qPrintable(fresh.error() + old.error()));
        // Back to version 1, then migrated twice: a second run changes nothing.
        QString error;
        for (const QString &file : {QString(WEBAPI_TEST_DATA "/schema/version-1.sql"), schema + "migrate-2.sql", schema + "migrate-2.sql"})
            QVERIFY2(TestServer::loadSqlFile(old.name(), file, &error), qPrintable(error));
        for (const QString table : {"inters_data", "admins"}) {
            const auto layout = [&](TestDatabase &db) {
                return db.rows("SHOW CREATE TABLE " + table).value(0).value("Create Table").toString().remove(QRegularExpression(" AUTO_INCREMENT=\\d+"));
            };
            QCOMPARE(layout(old), layout(fresh));
        }
        QCOMPARE(old.scalar("SELECT GROUP_CONCAT(version) FROM schema_version").toString(), "2");
        QCOMPARE(old.scalar("SELECT CONCAT_WS('|', refId, date, sentDate) FROM inters_data").toString(), "5|1714543200|0");
    }

private:
    // Runs the script; the operator's password goes in on stdin. Returns the printed
    // "name=value" lines, with "exit" and "output" besides.
    QMap<QString, QString> addCustomer(const QStringList &arguments)
    {
        QProcess script;
        script.setProcessChannelMode(QProcess::MergedChannels);
        script.start(WEBAPI_SOURCE_DIR "/scripts/add-customer", QStringList{"--host", TestServer::host(), "--port",
            QString::number(TestServer::port()), "--admin-user", TestServer::user(), "--secrets", "-", "--infodb",
            m_fx->info().name()} + arguments);
        script.write("admin-password=" + TestServer::password().toUtf8() + "\n");
        script.closeWriteChannel();
        const bool ended = script.waitForFinished(120000) && script.exitStatus() == QProcess::NormalExit;
        QMap<QString, QString> printed{{"output", QString::fromUtf8(script.readAll())}};
        for (const QString &line : printed["output"].split('\n')) {
            if (line.indexOf('=') > 0 && !line.contains(' '))
                printed.insert(line.section('=', 0, 0), line.section('=', 1));
        }
        printed.insert("exit", ended ? QString::number(script.exitCode()) : "crashed");
        return printed;
    }

    QTemporaryDir m_dir;
    QScopedPointer<ApiFixture> m_fx;  // its InfoDB, manager and worker serve the new customers
    QString m_a = TestServer::uniqueName("addc_a");
    QString m_b = TestServer::uniqueName("addc_b");
    QMap<QString, QString> m_createdA;
    QMap<QString, QString> m_createdB;
};

QTEST_GUILESS_MAIN(TestAddCustomer)
#include "tst_addcustomer.moc"

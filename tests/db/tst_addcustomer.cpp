// scripts/add-customer against the private MariaDB: each customer's MySQL user reaches its
// own database only, the key and admin token it prints once work through the plug-in, and
// no secret stands on a command line. Also how scripts/mariadb locks its server down.
#include "support/apifixture.h"

#include "licence/licence.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QSqlError>
#include <QSqlQuery>
#include <QtTest>

namespace {

struct Created
{
    int exitCode = -1;
    QString output;
    QMap<QString, QString> printed;  // token, key, admin-token
};

// The operator's password, and `secrets` ("name=value" lines), go in on stdin.
Created addCustomer(const QString &infoDb, const QStringList &arguments, const QByteArray &secrets = QByteArray(),
                    const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    QProcess script;
    script.setProcessEnvironment(environment);
    script.start(WEBAPI_SOURCE_DIR "/scripts/add-customer",
                 QStringList{"--host", TestServer::host(), "--port", QString::number(TestServer::port()), "--admin-user",
                             TestServer::user(), "--secrets", "-", "--infodb", infoDb}
                     + arguments);
    script.write("admin-password=" + TestServer::password().toUtf8() + "\n" + secrets);
    script.closeWriteChannel();
    Created created;
    if (!script.waitForFinished(120000))
        return created;
    created.exitCode = script.exitStatus() == QProcess::NormalExit ? script.exitCode() : -1;
    created.output = QString::fromUtf8(script.readAllStandardOutput() + script.readAllStandardError());
    for (const QString &line : created.output.split('\n')) {
        if (line.indexOf('=') > 0 && !line.contains(' '))
            created.printed.insert(line.section('=', 0, 0), line.section('=', 1));
    }
    return created;
}

} // namespace

class TestAddCustomer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void storedRows();
    void userReachesOwnDatabaseOnly_data();
    void userReachesOwnDatabaseOnly();
    void printedCredentialsWork();
    void refusals_data();
    void refusals();
    void privateServerLockedDown();

private:
    QTemporaryDir m_dir;
    QScopedPointer<ApiFixture> m_fx;  // its InfoDB, manager and worker serve the new customers
    QString m_a;
    QString m_b;
    Created m_createdA;
    Created m_createdB;
    const QString m_own = "addc_own";  // customer A's own account
};

void TestAddCustomer::initTestCase()
{
    m_fx.reset(new ApiFixture("addc"));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    m_a = TestServer::uniqueName("addc_a");
    m_b = TestServer::uniqueName("addc_b");
    // Every command line of the mariadb client is written down on the way.
    const QString argvLog = m_dir.filePath("mariadb-argv.log");
    QFile shim(m_dir.filePath("mariadb"));
    QVERIFY(shim.open(QIODevice::WriteOnly));
    shim.write(QString("#!/bin/sh\nprintf '%s\\n' \"$*\" >>%1\nexec %2 \"$@\"\n")
                   .arg(argvLog, QStandardPaths::findExecutable("mariadb"))
                   .toUtf8());
    shim.close();
    QVERIFY(shim.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("PATH", m_dir.path() + ":" + environment.value("PATH"));
    m_createdA = addCustomer(m_fx->info().name(), {m_a}, QByteArray(), environment);
    QVERIFY2(m_createdA.exitCode == 0, qPrintable(m_createdA.output));
    QFile argv(argvLog);
    QVERIFY(argv.open(QIODevice::ReadOnly));
    const QByteArray commandLines = argv.readAll();
    QVERIFY(commandLines.count('\n') > 5);
    m_createdB = addCustomer(m_fx->info().name(), {"--token", "token.b-" + m_b, "--client", "tools", m_b});
    QVERIFY2(m_createdB.exitCode == 0, qPrintable(m_createdB.output));
    // Logged in with the password the InfoDB holds for it.
    const QByteArray pass = m_fx->info().scalar(QString("SELECT pass FROM `schemas` WHERE name = '%1'").arg(m_a)).toByteArray();
    QSqlDatabase own = QSqlDatabase::addDatabase("QMYSQL", m_own);
    own.setHostName(TestServer::host());
    own.setPort(TestServer::port());
    own.setUserName(m_a + "_user");
    own.setPassword(QString::fromUtf8(QByteArray::fromBase64(pass)));
    own.setDatabaseName(m_a);
    QVERIFY2(own.open(), qPrintable(own.lastError().text()));
    for (const QString &secret : {TestServer::password(), own.password(), m_createdA.printed.value("key"),
                                  m_createdA.printed.value("admin-token"), QString::fromLatin1(pass)})
        QVERIFY2(!commandLines.contains(secret.toUtf8()), qPrintable(secret));
}

void TestAddCustomer::cleanupTestCase()
{
    QSqlDatabase::database(m_own, false).close();
    QSqlDatabase::removeDatabase(m_own);
    for (const QString &name : {m_a, m_b}) {
        m_fx->info().exec(QString("DROP DATABASE IF EXISTS `%1`").arg(name));
        m_fx->info().exec(QString("DROP USER IF EXISTS '%1_user'@'127.0.0.1', '%1_user'@'localhost'").arg(name));
    }
    m_fx.reset();
}

void TestAddCustomer::storedRows()
{
    const QString key = m_createdA.printed.value("key");
    const QString adminToken = m_createdA.printed.value("admin-token");
    QCOMPARE(m_createdA.printed.value("token"), "token-" + m_a);
    // 32 random bytes each, as hex, and different for every customer.
    QCOMPARE(key.size(), 64);
    QCOMPARE(adminToken.size(), 64);
    QVERIFY(key != m_createdB.printed.value("key"));
    QVERIFY(adminToken != m_createdB.printed.value("admin-token"));
    // The key only as its digest.
    QCOMPARE(m_fx->info().rows(QString("SELECT name, value FROM `%1`.vars ORDER BY name").arg(m_a)),
             (QList<QVariantMap>{{{"name", "webapi.devices"}, {"value", "*"}},
                                 {{"name", "webapi.enabled"}, {"value", "1"}},
                                 {{"name", "webapi.key.terminals"}, {"value", Licence::keyDigest(key)}}}));
    QCOMPARE(m_fx->info().rows(QString("SELECT apiToken, status, perms & 2 AS admin, del FROM `%1`.admins").arg(m_a)),
             (QList<QVariantMap>{{{"apiToken", adminToken}, {"status", 1}, {"admin", 2}, {"del", 0}}}));
}

void TestAddCustomer::userReachesOwnDatabaseOnly_data()
{
    QTest::addColumn<QString>("sql");
    QTest::addColumn<bool>("allowed");
    QTest::newRow("own rows") << "SELECT COUNT(*) > 0 FROM vars" << true;
    QTest::newRow("own write") << "UPDATE term SET name = name" << true;
    QTest::newRow("own function") << "SELECT midnightFromTs(0) IS NULL OR 1" << true;
    // Without the FILE right the server's files read as NULL.
    QTest::newRow("server files") << "SELECT LOAD_FILE('/etc/passwd') IS NULL" << true;
    QTest::newRow("other customer's rows") << QString("SELECT * FROM `%1`.vars").arg(m_b) << false;
    QTest::newRow("other customer's people") << QString("SELECT * FROM `%1`.people").arg(m_b) << false;
    QTest::newRow("other customer's write") << QString("DELETE FROM `%1`.vars").arg(m_b) << false;
    QTest::newRow("InfoDB passwords") << QString("SELECT pass FROM `%1`.`schemas`").arg(m_fx->info().name()) << false;
    QTest::newRow("server accounts") << "SELECT * FROM mysql.user" << false;
    QTest::newRow("own DDL") << "DROP TABLE vars" << false;
    QTest::newRow("new database") << QString("CREATE DATABASE `%1_x`").arg(m_a) << false;
    // The other customer's database is not even listed.
    QTest::newRow("listed databases") << QString("SELECT SUM(SCHEMA_NAME = '%1') = 1 AND SUM(SCHEMA_NAME IN ('%2', '%3')) = 0 "
                                                 "FROM information_schema.SCHEMATA")
                                             .arg(m_a, m_b, m_fx->info().name())
        << true;
}

void TestAddCustomer::userReachesOwnDatabaseOnly()
{
    QFETCH(QString, sql);
    QFETCH(bool, allowed);
    QSqlQuery query(QSqlDatabase::database(m_own, false));
    QVERIFY2(query.exec(sql) == allowed, qPrintable(query.lastError().text()));
    if (!allowed)
        QVERIFY2(query.lastError().text().contains("denied"), qPrintable(query.lastError().text()));
    else if (query.isSelect())
        QVERIFY(query.next() && query.value(0).toInt() == 1);
}

void TestAddCustomer::printedCredentialsWork()
{
    const auto status = [this](const Created &owner, const QString &authorization, const QString &extra = QString()) {
        QStringList headers{"Pragma: " + owner.printed.value("token"), "Authorization: Bearer " + authorization};
        if (!extra.isEmpty())
            headers << "X-ZMT-AID: " + extra;
        return m_fx->request("GET", extra.isEmpty() ? "/webapi/groups" : "/webapi/report/daily/0", headers).status;
    };
    // Served on the customer's own least-privilege account, as the InfoDB names it.
    for (const Created *created : {&m_createdA, &m_createdB}) {
        QCOMPARE(status(*created, created->printed.value("key")), 200);
        QCOMPARE(status(*created, created->printed.value("key"), created->printed.value("admin-token")), 200);
        QCOMPARE(status(*created, created->printed.value("admin-token")), 401);
    }
    // One customer's key opens nothing at the other's.
    QCOMPARE(status(m_createdB, m_createdA.printed.value("key")), 401);
}

void TestAddCustomer::refusals_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("secrets");
    QTest::addColumn<QString>("reason");
    const QString fresh = TestServer::uniqueName("addc_c");
    const QString readable = m_dir.filePath("readable-secrets");
    QFile file(readable);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("key=0123456789abcdef0123\n") > 0);
    file.close();
    QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther));
    QTest::newRow("existing database") << QStringList{m_a} << QByteArray() << "exists already";
    QTest::newRow("token in use") << QStringList{"--token", "token-" + m_a, fresh} << QByteArray() << "has a customer";
    QTest::newRow("quote in token") << QStringList{"--token", "token'x", fresh} << QByteArray() << "--token";
    QTest::newRow("token without the word") << QStringList{"--token", "abc", fresh} << QByteArray() << "the word";
    QTest::newRow("name with quote") << QStringList{"x'y"} << QByteArray() << "NAME";
    QTest::newRow("short key") << QStringList{fresh} << QByteArray("key=short\n") << "16 to 128";
    QTest::newRow("key on the command line") << QStringList{"--key", "0123456789abcdef0123", fresh} << QByteArray()
                                             << "never on a command line";
    QTest::newRow("secrets others can read") << QStringList{"--secrets", readable, fresh} << QByteArray() << "chmod 600";
}

void TestAddCustomer::refusals()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, secrets);
    QFETCH(QString, reason);
    const QString count = "SELECT COUNT(*) FROM `schemas`";
    const int customers = m_fx->info().scalar(count).toInt();
    const Created created = addCustomer(m_fx->info().name(), arguments, secrets);
    QVERIFY2(created.exitCode != 0 && created.output.contains(reason), qPrintable(created.output));
    QVERIFY(created.printed.isEmpty());
    QCOMPARE(m_fx->info().scalar(count).toInt(), customers);
    // A half-made customer is removed again; the existing one stays whole.
    const QString name = arguments.last();
    QCOMPARE(m_fx->info()
                 .scalar(QString("SELECT COUNT(*) FROM information_schema.SCHEMATA WHERE SCHEMA_NAME = '%1'")
                             .arg(QString(name).replace("'", "''")))
                 .toInt(),
             name == m_a ? 1 : 0);
}

void TestAddCustomer::privateServerLockedDown()
{
    // The test account holds every right, FILE included; the server itself keeps files out.
    QCOMPARE(m_fx->info().scalar("SELECT LOAD_FILE('/etc/hostname') IS NULL").toInt(), 1);
    QVERIFY(!m_fx->info().exec("SELECT 1 INTO OUTFILE '/tmp/webapi-addc-outfile'"));
    QVERIFY2(m_fx->info().error().contains("secure-file-priv"), qPrintable(m_fx->info().error()));
    QCOMPARE(m_fx->info().scalar("SELECT @@bind_address").toString(), "127.0.0.1");
    // root over TCP: neither without a password nor with one.
    for (const QString &password : {QString(), TestServer::password()}) {
        QSqlDatabase root = QSqlDatabase::addDatabase("QMYSQL", "addc_root");
        root.setHostName(TestServer::host());
        root.setPort(TestServer::port());
        root.setUserName("root");
        root.setPassword(password);
        QVERIFY(!root.open());
        root = QSqlDatabase();
        QSqlDatabase::removeDatabase("addc_root");
    }
}

QTEST_GUILESS_MAIN(TestAddCustomer)
#include "tst_addcustomer.moc"

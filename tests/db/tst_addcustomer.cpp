// scripts/add-customer against the private MariaDB: each customer's MySQL user reaches its
// own database only, and the key and admin token it prints once work through the plug-in.
#include "support/apifixture.h"

#include "licence/licence.h"

#include <QProcess>
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

Created addCustomer(const QString &infoDb, const QStringList &arguments)
{
    QProcess script;
    script.start(QStringLiteral(WEBAPI_SOURCE_DIR "/scripts/add-customer"),
                 QStringList{QStringLiteral("--host"), TestServer::host(), QStringLiteral("--port"),
                             QString::number(TestServer::port()), QStringLiteral("--admin-user"), TestServer::user(),
                             QStringLiteral("--admin-password"), TestServer::password(), QStringLiteral("--infodb"),
                             infoDb}
                     + arguments);
    Created created;
    if (!script.waitForFinished(120000))
        return created;
    created.exitCode = script.exitStatus() == QProcess::NormalExit ? script.exitCode() : -1;
    created.output = QString::fromUtf8(script.readAllStandardOutput() + script.readAllStandardError());
    for (const QString &line : created.output.split(QLatin1Char('\n'))) {
        const int equals = line.indexOf(QLatin1Char('='));
        if (equals > 0 && !line.contains(QLatin1Char(' ')))
            created.printed.insert(line.left(equals), line.mid(equals + 1));
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

private:
    QScopedPointer<ApiFixture> m_fx;  // its InfoDB, manager and worker serve the new customers
    QString m_a;
    QString m_b;
    Created m_createdA;
    Created m_createdB;
    QString m_userConnection;
};

void TestAddCustomer::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("addc")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    m_a = TestServer::uniqueName(QStringLiteral("addc_a"));
    m_b = TestServer::uniqueName(QStringLiteral("addc_b"));
    m_createdA = addCustomer(m_fx->info().name(), {m_a});
    QVERIFY2(m_createdA.exitCode == 0, qPrintable(m_createdA.output));
    m_createdB = addCustomer(m_fx->info().name(), {QStringLiteral("--token"), QStringLiteral("token.b-") + m_b,
                                                  QStringLiteral("--client"), QStringLiteral("tools"), m_b});
    QVERIFY2(m_createdB.exitCode == 0, qPrintable(m_createdB.output));
    // Customer A's own account, with the password the InfoDB holds for it.
    const QByteArray pass = QByteArray::fromBase64(
        m_fx->info().scalar(QStringLiteral("SELECT pass FROM `schemas` WHERE name = '%1'").arg(m_a)).toByteArray());
    m_userConnection = m_a + QStringLiteral("_own");
    QSqlDatabase own = QSqlDatabase::addDatabase(QStringLiteral("QMYSQL"), m_userConnection);
    own.setHostName(TestServer::host());
    own.setPort(TestServer::port());
    own.setUserName(m_a + QStringLiteral("_user"));
    own.setPassword(QString::fromUtf8(pass));
    own.setDatabaseName(m_a);
    QVERIFY2(own.open(), qPrintable(own.lastError().text()));
}

void TestAddCustomer::cleanupTestCase()
{
    QSqlDatabase::database(m_userConnection, false).close();
    QSqlDatabase::removeDatabase(m_userConnection);
    m_fx.reset();
    QSqlDatabase root = TestServer::connect(QStringLiteral("addc_cleanup"));
    QSqlQuery query(root);
    for (const QString &name : {m_a, m_b}) {
        query.exec(QStringLiteral("DROP DATABASE IF EXISTS `%1`").arg(name));
        query.exec(QStringLiteral("DROP USER IF EXISTS '%1_user'@'127.0.0.1', '%1_user'@'localhost'").arg(name));
    }
    root.close();
    root = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("addc_cleanup"));
}

void TestAddCustomer::storedRows()
{
    const QString key = m_createdA.printed.value(QStringLiteral("key"));
    const QString adminToken = m_createdA.printed.value(QStringLiteral("admin-token"));
    QCOMPARE(m_createdA.printed.value(QStringLiteral("token")), QStringLiteral("token-") + m_a);
    // 32 random bytes each, as hex, and different for every customer.
    QCOMPARE(key.size(), 64);
    QCOMPARE(adminToken.size(), 64);
    QVERIFY(key != m_createdB.printed.value(QStringLiteral("key")));
    QVERIFY(adminToken != m_createdB.printed.value(QStringLiteral("admin-token")));

    QSqlDatabase root = TestServer::connect(m_a + QStringLiteral("_rows"), m_a);
    {
        QSqlQuery query(root);
        QVERIFY(query.exec(QStringLiteral("SELECT name, value FROM vars ORDER BY name")));
        QStringList rows;
        while (query.next())
            rows << query.value(0).toString() + QLatin1Char('=') + query.value(1).toString();
        // The key only as its digest.
        QCOMPARE(rows, (QStringList{QStringLiteral("webapi.devices=*"), QStringLiteral("webapi.enabled=1"),
                                    QStringLiteral("webapi.key.terminals=") + Licence::keyDigest(key)}));
        QVERIFY(query.exec(QStringLiteral("SELECT apiToken, status, perms, del FROM admins")));
        QVERIFY(query.next());
        QCOMPARE(query.value(0).toString(), adminToken);
        QCOMPARE(query.value(1).toInt(), 1);
        QVERIFY(query.value(2).toUInt() & 2);
        QCOMPARE(query.value(3).toInt(), 0);
        QVERIFY(!query.next());
    }
    root.close();
    root = QSqlDatabase();
    QSqlDatabase::removeDatabase(m_a + QStringLiteral("_rows"));
}

void TestAddCustomer::userReachesOwnDatabaseOnly_data()
{
    QTest::addColumn<QString>("sql");
    QTest::addColumn<bool>("allowed");
    QTest::newRow("own rows") << "SELECT COUNT(*) FROM vars" << true;
    QTest::newRow("own write") << "UPDATE term SET name = name" << true;
    QTest::newRow("own function") << "SELECT midnightFromTs(0)" << true;
    QTest::newRow("other customer's rows") << QStringLiteral("SELECT * FROM `%1`.vars").arg(m_b) << false;
    QTest::newRow("other customer's people") << QStringLiteral("SELECT * FROM `%1`.people").arg(m_b) << false;
    QTest::newRow("other customer's write") << QStringLiteral("DELETE FROM `%1`.vars").arg(m_b) << false;
    QTest::newRow("InfoDB passwords") << QStringLiteral("SELECT pass FROM `%1`.`schemas`").arg(m_fx->info().name())
                                      << false;
    QTest::newRow("server accounts") << "SELECT * FROM mysql.user" << false;
    QTest::newRow("own DDL") << "DROP TABLE vars" << false;
    QTest::newRow("new database") << QStringLiteral("CREATE DATABASE `%1_x`").arg(m_a) << false;
    // Without the FILE right the server's files read as NULL.
    QTest::newRow("server files") << "SELECT LOAD_FILE('/etc/passwd') IS NULL" << true;
}

void TestAddCustomer::userReachesOwnDatabaseOnly()
{
    QFETCH(QString, sql);
    QFETCH(bool, allowed);
    QSqlQuery query(QSqlDatabase::database(m_userConnection, false));
    const bool ran = query.exec(sql);
    QVERIFY2(ran == allowed, qPrintable(query.lastError().text()));
    if (!allowed)
        QVERIFY2(query.lastError().text().contains(QLatin1String("denied")), qPrintable(query.lastError().text()));
    if (sql.startsWith(QLatin1String("SELECT LOAD_FILE"))) {
        QVERIFY(query.next());
        QCOMPARE(query.value(0).toInt(), 1);
    }
    // The other customer's database is not even listed.
    QSqlQuery list(QSqlDatabase::database(m_userConnection, false));
    QVERIFY(list.exec(QStringLiteral("SHOW DATABASES")));
    QStringList names;
    while (list.next())
        names << list.value(0).toString();
    QVERIFY(names.contains(m_a));
    QVERIFY(!names.contains(m_b));
    QVERIFY(!names.contains(m_fx->info().name()));
}

void TestAddCustomer::printedCredentialsWork()
{
    for (const Created *created : {&m_createdA, &m_createdB}) {
        const QString pragma = QStringLiteral("Pragma: ") + created->printed.value(QStringLiteral("token"));
        const QString bearer = QStringLiteral("Authorization: Bearer ") + created->printed.value(QStringLiteral("key"));
        // Served on the customer's own least-privilege account, as the InfoDB names it.
        HttpReply reply = m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/groups"), {pragma, bearer});
        QCOMPARE(reply.status, 200);
        reply = m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/report/daily/0"),
                              {pragma, bearer, QStringLiteral("X-ZMT-AID: ") + created->printed.value(QStringLiteral("admin-token"))});
        QCOMPARE(reply.status, 200);
        reply = m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/groups"),
                              {pragma, QStringLiteral("Authorization: Bearer ") + m_createdA.printed.value(QStringLiteral("admin-token"))});
        QCOMPARE(reply.status, 401);
    }
    // One customer's key opens nothing at the other's.
    const HttpReply cross = m_fx->request(
        QStringLiteral("GET"), QStringLiteral("/webapi/groups"),
        {QStringLiteral("Pragma: ") + m_createdB.printed.value(QStringLiteral("token")),
         QStringLiteral("Authorization: Bearer ") + m_createdA.printed.value(QStringLiteral("key"))});
    QCOMPARE(cross.status, 401);
}

void TestAddCustomer::refusals_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("existing database") << QStringList{m_a};
    QTest::newRow("token in use") << QStringList{QStringLiteral("--token"), QStringLiteral("token-") + m_a,
                                                 TestServer::uniqueName(QStringLiteral("addc_c"))};
    QTest::newRow("quote in token") << QStringList{QStringLiteral("--token"), QStringLiteral("token'x"),
                                                   TestServer::uniqueName(QStringLiteral("addc_c"))};
    QTest::newRow("token without the word") << QStringList{QStringLiteral("--token"), QStringLiteral("abc"),
                                                           TestServer::uniqueName(QStringLiteral("addc_c"))};
    QTest::newRow("name with quote") << QStringList{QStringLiteral("x'y")};
    QTest::newRow("short key") << QStringList{QStringLiteral("--key"), QStringLiteral("short"),
                                              TestServer::uniqueName(QStringLiteral("addc_c"))};
}

void TestAddCustomer::refusals()
{
    QFETCH(QStringList, arguments);
    const int customers = m_fx->info().scalar(QStringLiteral("SELECT COUNT(*) FROM `schemas`")).toInt();
    const Created created = addCustomer(m_fx->info().name(), arguments);
    QVERIFY2(created.exitCode != 0, qPrintable(created.output));
    QVERIFY(created.printed.isEmpty());
    QCOMPARE(m_fx->info().scalar(QStringLiteral("SELECT COUNT(*) FROM `schemas`")).toInt(), customers);
    // A half-made customer is removed again; the existing one stays whole.
    const QString name = arguments.last();
    const int databases = m_fx->info()
                              .scalar(QStringLiteral("SELECT COUNT(*) FROM information_schema.SCHEMATA WHERE "
                                                     "SCHEMA_NAME = '%1'")
                                          .arg(QString(name).replace(QLatin1Char('\''), QLatin1String("''"))))
                              .toInt();
    QCOMPARE(databases, name == m_a ? 1 : 0);
}

QTEST_GUILESS_MAIN(TestAddCustomer)
#include "tst_addcustomer.moc"

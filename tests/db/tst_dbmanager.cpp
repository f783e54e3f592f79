// DBManager against the private MariaDB: per-thread customer connections, the token lists
// and stamps of the InfoDB, and the queue of unused connections with its refusals.
#include "database/dbmanager.h"
#include "support/logcapture.h"
#include "support/testserver.h"

#include <QSqlError>
#include <QThread>
#include <QtTest>

namespace {

QString threadPrefix()
{
    return QString::asprintf("%p", static_cast<void *>(QThread::currentThreadId()));
}

QString base64(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

} // namespace

class TestDBManager : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void connectionPerThreadAndToken();
    void unknownTokenRemembered_data();
    void unknownTokenRemembered();
    void noUsableSchemeGivesDefault_data();
    void noUsableSchemeGivesDefault();
    void passwordCutAtNul();
    void tokenLists();
    void maintenanceThrottle();
    void refusedByQueue_data();
    void refusedByQueue();
    void unusedQueue_data();
    void unusedQueue();
    void managerConnectionRemoved();

private:
    bool insertScheme(const QString &token, const QString &passSql, int status = 1,
                      const QString &user = TestServer::user(), const QString &name = QString());
    QStringList removedNames(const LogCapture &log) const;

    QScopedPointer<TestDatabase> m_info;
    QScopedPointer<TestDatabase> m_customer;
    QScopedPointer<DBManager> m_manager;
    QString m_infoConnection;
    QString m_zmtConnection;
    QString m_goodPass;
};

void TestDBManager::initTestCase()
{
    QString why;
    QVERIFY2(TestServer::sameTimeZone(&why), qPrintable(why));
    m_info.reset(new TestDatabase(QStringLiteral("dbm_info"),
                                  QStringLiteral(WEBAPI_SOURCE_DIR "/database/schema/infodb.sql")));
    m_customer.reset(new TestDatabase(QStringLiteral("dbm_cust")));
    QVERIFY2(m_info->isReady(), qPrintable(m_info->error()));
    QVERIFY2(m_customer->isReady(), qPrintable(m_customer->error()));
    m_goodPass = base64(TestServer::password().toUtf8());

    m_infoConnection = QStringLiteral("QHX.InfoDB.") + m_info->name();
    m_zmtConnection = QStringLiteral("QHX.ZMTDB.") + m_info->name();
    QSqlDatabase info = TestServer::connect(m_infoConnection, m_info->name());
    info.close();  // the manager's own open attempt is what isInfoDB reports
    QSqlDatabase::cloneDatabase(info, m_zmtConnection);
    // What an unusable token falls back to.
    QSqlDatabase::cloneDatabase(info, QLatin1String(QSqlDatabase::defaultConnection));
}

void TestDBManager::init()
{
    QVERIFY(m_info->exec(QStringLiteral("DELETE FROM `schemas`")));
    // An InfoDB already open would leave the new manager's open flag false.
    QSqlDatabase::database(m_infoConnection, false).close();
    m_manager.reset(new DBManager());
    m_manager->setInfoDB(QSqlDatabase::database(m_infoConnection, false));
    m_manager->setZmtDB(QSqlDatabase::database(m_zmtConnection, false));
    QVERIFY(m_manager->isInfoDB());
}

void TestDBManager::cleanup()
{
    m_manager.reset();
    for (const QString &name : QSqlDatabase::connectionNames()) {
        if (name.contains(QLatin1String("_dbc_")) || name.startsWith(QLatin1String("probe.")))
            QSqlDatabase::removeDatabase(name);
    }
}

void TestDBManager::cleanupTestCase()
{
    for (const QString &name : {m_infoConnection, m_zmtConnection, QString::fromLatin1(QSqlDatabase::defaultConnection)}) {
        QSqlDatabase::database(name, false).close();
        QSqlDatabase::removeDatabase(name);
    }
}

bool TestDBManager::insertScheme(const QString &token, const QString &passSql, int status, const QString &user,
                                 const QString &name)
{
    return m_info->exec(QStringLiteral("INSERT INTO `schemas` (token, name, user, pass, status) VALUES ('%1', '%2', '%3', %4, %5)")
                            .arg(token, name.isNull() ? m_customer->name() : name, user, passSql)
                            .arg(status));
}

QStringList TestDBManager::removedNames(const LogCapture &log) const
{
    QStringList names;
    for (const QString &line : log.linesStartingWith(QtDebugMsg, QStringLiteral("DBManager::removeUnusedConnections() - removing: ")))
        names.append(line.section(QLatin1Char('"'), 1, 1));
    return names;
}

void TestDBManager::connectionPerThreadAndToken()
{
    QVERIFY(insertScheme(QStringLiteral("tok-a"), QStringLiteral("'%1'").arg(m_goodPass)));
    QSqlDatabase db = m_manager->getDatabase(QStringLiteral("tok-a"));
    const QString name = threadPrefix() + QStringLiteral("_dbc_tok-a");
    QCOMPARE(db.connectionName(), name);
    QCOMPARE(m_manager->connectionNameFor(QStringLiteral("tok-a")), name);
    // Handed out closed: its user opens a clone of its own.
    QVERIFY(!db.isOpen());
    QVERIFY2(db.open(), qPrintable(db.lastError().text()));
    db.close();
    QCOMPARE(db.databaseName(), m_customer->name());
    QVERIFY(m_manager->isManagedConnection(QStringLiteral("tok-a")));
    // The InfoDB is asked once per thread and token: a row gone since is not read again.
    QVERIFY(m_info->exec(QStringLiteral("DELETE FROM `schemas`")));
    QCOMPARE(m_manager->getDatabase(QStringLiteral("tok-a")).connectionName(), name);

    // Another thread gets a handle of its own, and asks the InfoDB itself.
    QVERIFY(insertScheme(QStringLiteral("tok-a"), QStringLiteral("'%1'").arg(m_goodPass)));
    QString otherName;
    bool otherManaged = false;
    QScopedPointer<QThread> thread(QThread::create([&] {
        otherName = m_manager->getDatabase(QStringLiteral("tok-a")).connectionName();
        otherManaged = m_manager->isManagedConnection(QStringLiteral("tok-a"));
        QSqlDatabase::removeDatabase(otherName);
    }));
    thread->start();
    QVERIFY(thread->wait(30000));
    QVERIFY(otherManaged);
    QVERIFY(otherName != name && otherName.endsWith(QLatin1String("_dbc_tok-a")));
}

void TestDBManager::unknownTokenRemembered_data()
{
    QTest::addColumn<int>("seconds");
    QTest::addColumn<bool>("foundAfterInsert");
    QTest::newRow("not remembered") << 0 << true;
    QTest::newRow("remembered") << 60 << false;
}

void TestDBManager::unknownTokenRemembered()
{
    QFETCH(int, seconds);
    QFETCH(bool, foundAfterInsert);
    ConnectionSettings settings;
    settings.unknownTokenCache = seconds;
    m_manager->setConnectionSettings(settings);
    const QString token = QStringLiteral("tok-late");
    QCOMPARE(m_manager->getDatabase(token).connectionName(), QLatin1String(QSqlDatabase::defaultConnection));
    // A customer added meanwhile is seen at once only when unknown tokens are not remembered.
    QVERIFY(insertScheme(token, QStringLiteral("'%1'").arg(m_goodPass)));
    QCOMPARE(m_manager->getDatabase(token).connectionName() == m_manager->connectionNameFor(token), foundAfterInsert);
}

void TestDBManager::noUsableSchemeGivesDefault_data()
{
    QTest::addColumn<QString>("passSql");  // empty: no row at all
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("name");

    const QString good = QStringLiteral("'%1'").arg(base64(TestServer::password().toUtf8()));
    const QString user = TestServer::user();
    QTest::newRow("unknown token") << QString() << 1 << user << QString();
    QTest::newRow("inactive") << good << 0 << user << QString();
    QTest::newRow("NULL pass") << "NULL" << 1 << user << QString();
    QTest::newRow("pass decodes to NUL") << QStringLiteral("'%1'").arg(base64(QByteArray("\0abc", 4))) << 1 << user << QString();
    QTest::newRow("pass not base64") << "'***'" << 1 << user << QString();
    QTest::newRow("empty user") << good << 1 << "" << QString();
}

void TestDBManager::noUsableSchemeGivesDefault()
{
    QFETCH(QString, passSql);
    QFETCH(int, status);
    QFETCH(QString, user);
    QFETCH(QString, name);
    const QString token = QStringLiteral("tok-x");
    if (!passSql.isEmpty())
        QVERIFY(insertScheme(token, passSql, status, user, name));
    QCOMPARE(m_manager->getDatabase(token).connectionName(), QLatin1String(QSqlDatabase::defaultConnection));
    QVERIFY(!m_manager->hasConnection(token));
    QVERIFY(!m_manager->isManagedConnection(token));
}

void TestDBManager::passwordCutAtNul()
{
    // Only the part before the NUL is the password, so the connection opens.
    const QByteArray stored = TestServer::password().toUtf8() + QByteArray("\0tail", 5);
    QVERIFY(insertScheme(QStringLiteral("tok-nul"), QStringLiteral("'%1'").arg(base64(stored))));
    QSqlDatabase db = m_manager->getDatabase(QStringLiteral("tok-nul"));
    QVERIFY(db.open());
    db.close();
    QCOMPARE(m_manager->cachedScheme(QStringLiteral("tok-nul")).pass, TestServer::password());
}




void TestDBManager::tokenLists()
{
    QVERIFY(m_info->exec(QStringLiteral(
        "INSERT INTO `schemas` (sid, token, name, user, pass, status, maintenance, recalc) VALUES "
        "(1, 'old', 'db_old', 'u', '', 1, UNIX_TIMESTAMP() - 5000, 200), "
        "(2, 'never2', 'db_one', 'u', '', 1, NULL, NULL), "
        "(3, 'older', 'n', 'u', '', 1, UNIX_TIMESTAMP() - 9000, 100), "
        "(4, 'recent', 'n', 'u', '', 1, UNIX_TIMESTAMP() - 100, 100), "
        "(5, 'never5', 'n', 'u', '', 1, NULL, 300), "
        "(6, 'inactive', 'db_two', 'u', '', 0, NULL, NULL), "
        "(7, 'status2', 'n', 'u', '', 2, NULL, NULL)")));
    // Active rows only, by token.
    QCOMPARE(m_manager->loadTokens(10, 0), (QStringList{"never2", "never5", "old", "older", "recent"}));
    QCOMPARE(m_manager->loadTokens(2, 1), (QStringList{"never5", "old"}));
    // NULL first by sid, then the oldest stamp; recent rows stay out.
    QCOMPARE(m_manager->loadTokens4Maintenance(10), (QStringList{"never2", "never5", "older", "old"}));
    QCOMPARE(m_manager->loadTokens4Maintenance(1), QStringList{"never2"});
    QCOMPARE(m_manager->loadTokens4Recalculate(10), (QStringList{"never2", "older", "recent", "old", "never5"}));
    QCOMPARE(m_manager->loadTokenByName(QStringLiteral("db_one")), QStringLiteral("never2"));
    QCOMPARE(m_manager->loadTokenByName(QStringLiteral("db_two")), QString());
    QCOMPARE(m_manager->tokensCount(true), 5u);
    QCOMPARE(m_manager->tokensCount(false), 1u);
}


void TestDBManager::maintenanceThrottle()
{
    const QString stamp = QStringLiteral("SELECT maintenance FROM `schemas` WHERE token = 'm1'");
    QVERIFY(insertScheme(QStringLiteral("m1"), QStringLiteral("''")));
    QVERIFY(m_manager->setMaintenance(QStringLiteral("m1")));
    QVERIFY(!m_info->scalar(stamp).isNull());
    // Within the next second no UPDATE runs: the cleared stamp stays cleared.
    QVERIFY(m_info->exec(QStringLiteral("UPDATE `schemas` SET maintenance = NULL")));
    QVERIFY(m_manager->setMaintenance(QStringLiteral("m1")));
    QVERIFY(m_info->scalar(stamp).isNull());
    // An unknown token: false, then true from the throttle.
    QVERIFY(!m_manager->setMaintenance(QStringLiteral("unknown")));
    QVERIFY(m_manager->setMaintenance(QStringLiteral("unknown")));
}



void TestDBManager::refusedByQueue_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("warned");
    QTest::newRow("zmt") << m_zmtConnection << true;
    QTest::newRow("default") << QString::fromLatin1(QSqlDatabase::defaultConnection) << true;
    QTest::newRow("empty name") << QString() << false;
}

void TestDBManager::refusedByQueue()
{
    QFETCH(QString, name);
    QFETCH(bool, warned);
    const bool existed = QSqlDatabase::contains(name);
    m_manager->setDebugLevel(1);
    LogCapture log;
    m_manager->addUnusedConnection(name);
    m_manager->removeUnusedConnections();
    const QString warning = QStringLiteral("DBManager::addUnusedConnection() Master connection \"%1\" cannot add to unused "
                                           "connections!").arg(name);
    QCOMPARE(log.lines(QtWarningMsg), warned ? QStringList{warning} : QStringList());
    QCOMPARE(removedNames(log), QStringList());
    QCOMPARE(QSqlDatabase::contains(name), existed);
}





void TestDBManager::unusedQueue_data()
{
    QTest::addColumn<bool>("open");
    QTest::addColumn<int>("adds");
    QTest::addColumn<QString>("twist");
    QTest::addColumn<QStringList>("removed");

    QTest::newRow("queued twice, removed twice") << false << 2 << "" << QStringList{"probe.q", "probe.q"};
    // Refused once and forgotten: closing it later does not bring it back.
    QTest::newRow("active is forgotten") << true << 1 << "" << QStringList();
    QTest::newRow("queued name became master") << false << 1 << "master" << QStringList();
    // Switching the list off forgets the queue; switching on again does not restore it.
    QTest::newRow("list switched off") << false << 1 << "off" << QStringList();
}

void TestDBManager::unusedQueue()
{
    QFETCH(bool, open);
    QFETCH(int, adds);
    QFETCH(QString, twist);
    QFETCH(QStringList, removed);
    const QString name = QStringLiteral("probe.q");
    if (open)
        QVERIFY(TestServer::connect(name).isOpen());
    else
        QSqlDatabase::addDatabase(QStringLiteral("QMYSQL"), name);
    m_manager->setDebugLevel(1);
    for (int i = 0; i < adds; ++i)
        m_manager->addUnusedConnection(name);
    if (twist == QLatin1String("master"))
        m_manager->setZmtDB(QSqlDatabase::database(name, false));
    if (twist == QLatin1String("off")) {
        m_manager->setUnusedConnectionsEnabled(false);
        m_manager->addUnusedConnection(name);
        m_manager->setUnusedConnectionsEnabled(true);
    }
    LogCapture log;
    m_manager->removeUnusedConnections();
    QSqlDatabase::database(name, false).close();
    m_manager->removeUnusedConnections();
    QCOMPARE(removedNames(log), removed);
    QCOMPARE(QSqlDatabase::contains(name), removed.isEmpty());
}

void TestDBManager::managerConnectionRemoved()
{
    QVERIFY(insertScheme(QStringLiteral("tok-r"), QStringLiteral("'%1'").arg(m_goodPass)));
    const QString name = m_manager->connectionNameFor(QStringLiteral("tok-r"));
    m_manager->getDatabase(QStringLiteral("tok-r")).close();
    m_manager->setDebugLevel(1);
    m_manager->addUnusedConnection(name);
    LogCapture log;
    m_manager->removeUnusedConnections();
    QCOMPARE(removedNames(log), QStringList{name});
    QVERIFY(!m_manager->hasConnection(QStringLiteral("tok-r")));
    QVERIFY(!m_manager->isManagedConnection(QStringLiteral("tok-r")));
}

QTEST_GUILESS_MAIN(TestDBManager)
#include "tst_dbmanager.moc"

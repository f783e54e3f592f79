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
    void connectionReusedWithoutSchemas();
    void noUsableSchemeGivesDefault_data();
    void noUsableSchemeGivesDefault();
    void passwordCutAtNul();
    void unopenableDatabaseStaysRegistered();
    void emptyTokenGivesMaster();
    void setDatabasesLog();
    void infoDbThatWillNotOpen();
    void loadTokens();
    void maintenanceOrder();
    void maintenanceAgeIsStrict();
    void recalculateOrder();
    void loadTokenByName();
    void tokensCount();
    void maintenanceThrottle();
    void maintenanceThrottleAfterFailure();
    void setRecalc();
    void autoCloseAndTokensCount();
    void masterConnectionsRefused_data();
    void masterConnectionsRefused();
    void emptyNameQueuesNothing();
    void duplicatesRemovedTwice();
    void activeConnectionForgotten();
    void queuedNameBecomesMaster();
    void disabledListIsSilent();
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
    const QSqlDatabase db = m_manager->getDatabase(QStringLiteral("tok-a"));
    const QString name = threadPrefix() + QStringLiteral("_dbc_tok-a");
    QCOMPARE(db.connectionName(), name);
    QCOMPARE(m_manager->connectionNameFor(QStringLiteral("tok-a")), name);
    QVERIFY(db.isOpen());
    QCOMPARE(db.databaseName(), m_customer->name());
    QCOMPARE(db.hostName(), TestServer::host());
    QCOMPARE(db.port(), TestServer::port());
    QCOMPARE(db.connectOptions(), QStringLiteral("MYSQL_OPT_RECONNECT=1;CLIENT_IGNORE_SPACE=1"));
    QVERIFY(m_manager->hasConnection(QStringLiteral("tok-a")));
    QVERIFY(m_manager->isManagedConnection(QStringLiteral("tok-a")));
    QCOMPARE(m_manager->cachedScheme(QStringLiteral("tok-a")).name, m_customer->name());

    // Another thread gets a connection of its own, and the answers are per thread.
    QString otherName;
    bool otherOpen = false;
    bool otherManaged = false;
    QScopedPointer<QThread> thread(QThread::create([&] {
        {
            const QSqlDatabase other = m_manager->getDatabase(QStringLiteral("tok-a"));
            otherName = other.connectionName();
            otherOpen = other.isOpen();
            otherManaged = m_manager->isManagedConnection(QStringLiteral("tok-a"));
        }
        QSqlDatabase::removeDatabase(otherName);
    }));
    thread->start();
    QVERIFY(thread->wait(30000));
    QVERIFY(otherOpen);
    QVERIFY(otherManaged);
    QVERIFY(otherName != name);
    QVERIFY(otherName.endsWith(QLatin1String("_dbc_tok-a")));
    QVERIFY(m_manager->isManagedConnection(QStringLiteral("tok-a")));
}

void TestDBManager::connectionReusedWithoutSchemas()
{
    QVERIFY(insertScheme(QStringLiteral("tok-b"), QStringLiteral("'%1'").arg(m_goodPass)));
    QSqlDatabase first = m_manager->getDatabase(QStringLiteral("tok-b"));
    first.close();
    // Without the row, a second call still finds the thread's connection, and reopens it.
    QVERIFY(m_info->exec(QStringLiteral("DELETE FROM `schemas`")));
    const QSqlDatabase second = m_manager->getDatabase(QStringLiteral("tok-b"));
    QCOMPARE(second.connectionName(), first.connectionName());
    QVERIFY(second.isOpen());
}

void TestDBManager::noUsableSchemeGivesDefault_data()
{
    QTest::addColumn<QString>("passSql");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("insert");

    const QString good = QStringLiteral("'%1'").arg(base64(TestServer::password().toUtf8()));
    const QString user = TestServer::user();
    QTest::newRow("unknown token") << good << 1 << user << QString() << false;
    QTest::newRow("inactive") << good << 0 << user << QString() << true;
    QTest::newRow("status 2") << good << 2 << user << QString() << true;
    QTest::newRow("NULL pass") << "NULL" << 1 << user << QString() << true;
    QTest::newRow("empty pass") << "''" << 1 << user << QString() << true;
    QTest::newRow("pass decodes to NUL") << QStringLiteral("'%1'").arg(base64(QByteArray("\0abc", 4))) << 1 << user
                                         << QString() << true;
    QTest::newRow("pass not base64") << "'***'" << 1 << user << QString() << true;
    QTest::newRow("empty user") << good << 1 << "" << QString() << true;
    QTest::newRow("empty name") << good << 1 << user << "" << true;
}

void TestDBManager::noUsableSchemeGivesDefault()
{
    QFETCH(QString, passSql);
    QFETCH(int, status);
    QFETCH(QString, user);
    QFETCH(QString, name);
    QFETCH(bool, insert);

    const QString token = QStringLiteral("tok-x");
    if (insert)
        QVERIFY(insertScheme(token, passSql, status, user, name));
    LogCapture log;
    const QSqlDatabase db = m_manager->getDatabase(token);
    QCOMPARE(db.connectionName(), QLatin1String(QSqlDatabase::defaultConnection));
    QVERIFY(!m_manager->hasConnection(token));
    QVERIFY(!m_manager->isManagedConnection(token));
    QCOMPARE(m_manager->cachedScheme(token).name, QString());
    QCOMPARE(log.lines(QtWarningMsg), QStringList());
    QCOMPARE(log.lines(QtCriticalMsg), QStringList());
}

void TestDBManager::passwordCutAtNul()
{
    // Only the part before the NUL is the password, so the connection opens.
    const QByteArray stored = TestServer::password().toUtf8() + QByteArray("\0tail", 5);
    QVERIFY(insertScheme(QStringLiteral("tok-nul"), QStringLiteral("'%1'").arg(base64(stored))));
    const QSqlDatabase db = m_manager->getDatabase(QStringLiteral("tok-nul"));
    QVERIFY2(db.isOpen(), qPrintable(db.lastError().text()));
    QCOMPARE(db.password(), TestServer::password());
    const DbScheme scheme = m_manager->cachedScheme(QStringLiteral("tok-nul"));
    QCOMPARE(scheme.pass, TestServer::password());
    QCOMPARE(scheme.token, QStringLiteral("tok-nul"));
    QCOMPARE(scheme.user, TestServer::user());
}

void TestDBManager::unopenableDatabaseStaysRegistered()
{
    QVERIFY(insertScheme(QStringLiteral("tok-bad"), QStringLiteral("'%1'").arg(base64("wrong-password"))));
    LogCapture log;
    const QSqlDatabase db = m_manager->getDatabase(QStringLiteral("tok-bad"));
    QCOMPARE(db.connectionName(), QLatin1String(QSqlDatabase::defaultConnection));
    const QStringList warnings = log.lines(QtWarningMsg);
    QCOMPARE(warnings.size(), 2);
    QCOMPARE(warnings.at(0), QStringLiteral("DBManager:: database \"%1\" (token: \"tok-bad\" ) NOT OPEN!")
                                 .arg(m_customer->name()));
    QVERIFY2(warnings.at(1).startsWith(QLatin1String("SQL ERROR: \"")), qPrintable(warnings.at(1)));
    // The failed connection stays, so the next call retries it without reading schemas.
    QVERIFY(m_manager->hasConnection(QStringLiteral("tok-bad")));
    QVERIFY(m_manager->isManagedConnection(QStringLiteral("tok-bad")));
    QVERIFY(m_info->exec(QStringLiteral("DELETE FROM `schemas`")));
    const QSqlDatabase again = m_manager->getDatabase(QStringLiteral("tok-bad"));
    QCOMPARE(again.connectionName(), m_manager->connectionNameFor(QStringLiteral("tok-bad")));
    QVERIFY(!again.isOpen());
}

void TestDBManager::emptyTokenGivesMaster()
{
    m_manager->setDebugLevel(2);
    LogCapture log;
    const QSqlDatabase db = m_manager->getDatabase(QString());
    QCOMPARE(db.connectionName(), m_zmtConnection);
    QVERIFY(!db.isOpen());  // returned as it is, not opened
    QCOMPARE(log.lines(QtDebugMsg), QStringList{QStringLiteral("DBManager::getDatabase()")});
}

void TestDBManager::setDatabasesLog()
{
    DBManager manager;
    manager.setDebugLevel(1);
    LogCapture log;
    manager.setZmtDB(QSqlDatabase::database(m_zmtConnection, false));
    manager.setInfoDB(QSqlDatabase::database(m_infoConnection, false));
    const QString format = QStringLiteral("DBManager::%1(host: '127.0.0.1', port: %2, database: '%3', connection: '%4')");
    QCOMPARE(log.lines(QtDebugMsg),
             (QStringList{format.arg(QStringLiteral("setZmtDB")).arg(TestServer::port()).arg(m_info->name(), m_zmtConnection),
                          format.arg(QStringLiteral("setInfoDB")).arg(TestServer::port()).arg(m_info->name(), m_infoConnection)}));
    // The InfoDB was already open (by the fixture's manager): no real attempt, flag false.
    QVERIFY(manager.infoDB().isOpen());
    QVERIFY(!manager.isInfoDB());
    QCOMPARE(manager.infoDB().connectionName(), m_infoConnection);
    QCOMPARE(manager.zmtDB().connectionName(), m_zmtConnection);
}

void TestDBManager::infoDbThatWillNotOpen()
{
    QSqlDatabase broken = QSqlDatabase::cloneDatabase(QSqlDatabase::database(m_infoConnection, false),
                                                      QStringLiteral("probe.broken"));
    broken.setPassword(QStringLiteral("wrong-password"));
    DBManager manager;
    LogCapture log;
    manager.setInfoDB(broken);
    QVERIFY(!manager.isInfoDB());
    const QStringList warnings = log.lines(QtWarningMsg);
    QCOMPARE(warnings.size(), 1);
    QVERIFY2(warnings.first().startsWith(QStringLiteral("DBManager:: database \"%1\" can NOT open! ERROR: \"")
                                             .arg(m_info->name())),
             qPrintable(warnings.first()));
    // Lists come back empty; the failure is a value.
    QCOMPARE(manager.loadTokens(10, 0), QStringList());
    QVERIFY(!manager.setRecalc(QStringLiteral("x")));
}

void TestDBManager::loadTokens()
{
    for (const QString &token : {QStringLiteral("d"), QStringLiteral("b"), QStringLiteral("a"), QStringLiteral("c")})
        QVERIFY(insertScheme(token, QStringLiteral("''")));
    QVERIFY(insertScheme(QStringLiteral("bb"), QStringLiteral("''"), 0));
    m_manager->setDebugLevel(1);
    LogCapture log;
    QCOMPARE(m_manager->loadTokens(10, 0), (QStringList{"a", "b", "c", "d"}));
    QCOMPARE(m_manager->loadTokens(2, 1), (QStringList{"b", "c"}));
    QCOMPARE(m_manager->loadTokens(5, 4), QStringList());
    QCOMPARE(log.lines(QtDebugMsg).first(), QStringLiteral("DBManager::loadTokens(limit: 10, offset: 0)"));
}

void TestDBManager::maintenanceOrder()
{
    // NULL first by sid, then the oldest stamp; recent, inactive and 900 s old rows stay out.
    QVERIFY(m_info->exec(QStringLiteral(
        "INSERT INTO `schemas` (sid, token, name, user, pass, status, maintenance) VALUES "
        "(1, 'old', 'n', 'u', '', 1, UNIX_TIMESTAMP() - 5000), "
        "(2, 'never2', 'n', 'u', '', 1, NULL), "
        "(3, 'older', 'n', 'u', '', 1, UNIX_TIMESTAMP() - 9000), "
        "(4, 'recent', 'n', 'u', '', 1, UNIX_TIMESTAMP() - 100), "
        "(5, 'never5', 'n', 'u', '', 1, NULL), "
        "(6, 'inactive', 'n', 'u', '', 0, NULL)")));
    m_manager->setDebugLevel(1);
    LogCapture log;
    QCOMPARE(m_manager->loadTokens4Maintenance(10), (QStringList{"never2", "never5", "older", "old"}));
    QCOMPARE(m_manager->loadTokens4Maintenance(1), QStringList{"never2"});
    QCOMPARE(log.lines(QtDebugMsg).first(), QStringLiteral("DBManager::loadTokens4Maintenance( 10 )"));
}

void TestDBManager::maintenanceAgeIsStrict()
{
    QVERIFY(insertScheme(QStringLiteral("edge"), QStringLiteral("''")));
    QVERIFY(insertScheme(QStringLiteral("over"), QStringLiteral("''")));
    // The server's clock decides; retry when a second boundary fell between stamp and query.
    for (int attempt = 0; attempt < 5; ++attempt) {
        const qint64 now = m_info->scalar(QStringLiteral("SELECT UNIX_TIMESTAMP()")).toLongLong();
        QVERIFY(m_info->exec(QStringLiteral("UPDATE `schemas` SET maintenance = IF(token = 'edge', %1, %2)")
                                 .arg(now - 900)
                                 .arg(now - 901)));
        const QStringList due = m_manager->loadTokens4Maintenance(10);
        if (m_info->scalar(QStringLiteral("SELECT UNIX_TIMESTAMP()")).toLongLong() != now)
            continue;
        QCOMPARE(due, QStringList{"over"});
        return;
    }
    QFAIL("the clock ticked during every attempt");
}

void TestDBManager::recalculateOrder()
{
    QVERIFY(m_info->exec(QStringLiteral(
        "INSERT INTO `schemas` (sid, token, name, user, pass, status, recalc) VALUES "
        "(1, 'r200', 'n', 'u', '', 1, 200), (2, 'rnull', 'n', 'u', '', 1, NULL), "
        "(3, 'r100', 'n', 'u', '', 1, 100), (4, 'r100b', 'n', 'u', '', 1, 100), "
        "(5, 'rinactive', 'n', 'u', '', 0, 1)")));
    QCOMPARE(m_manager->loadTokens4Recalculate(10), (QStringList{"rnull", "r100", "r100b", "r200"}));
    QCOMPARE(m_manager->loadTokens4Recalculate(2), (QStringList{"rnull", "r100"}));
}

void TestDBManager::loadTokenByName()
{
    QVERIFY(insertScheme(QStringLiteral("tok-n1"), QStringLiteral("''"), 1, TestServer::user(), QStringLiteral("db_one")));
    QVERIFY(insertScheme(QStringLiteral("tok-n2"), QStringLiteral("''"), 0, TestServer::user(), QStringLiteral("db_two")));
    QCOMPARE(m_manager->loadTokenByName(QStringLiteral("db_one")), QStringLiteral("tok-n1"));
    QCOMPARE(m_manager->loadTokenByName(QStringLiteral("db_two")), QString());
    QCOMPARE(m_manager->loadTokenByName(QStringLiteral("nothing")), QString());
}

void TestDBManager::tokensCount()
{
    QVERIFY(insertScheme(QStringLiteral("c1"), QStringLiteral("''"), 1));
    QVERIFY(insertScheme(QStringLiteral("c2"), QStringLiteral("''"), 1));
    QVERIFY(insertScheme(QStringLiteral("c3"), QStringLiteral("''"), 0));
    QVERIFY(insertScheme(QStringLiteral("c4"), QStringLiteral("''"), 2));
    m_manager->setDebugLevel(1);
    LogCapture log;
    QCOMPARE(m_manager->tokensCount(true), 2u);
    QCOMPARE(m_manager->tokensCount(false), 1u);
    QCOMPARE(log.lines(QtDebugMsg), (QStringList{"DBManager::tokensCount(TRUE)", "DBManager::tokensCount(FALSE)"}));
}

void TestDBManager::maintenanceThrottle()
{
    QVERIFY(insertScheme(QStringLiteral("m1"), QStringLiteral("''")));
    QVERIFY(m_manager->setMaintenance(QStringLiteral("m1")));
    QVERIFY(!m_info->scalar(QStringLiteral("SELECT maintenance FROM `schemas` WHERE token = 'm1'")).isNull());
    // Within the next second no UPDATE runs: the cleared stamp stays cleared.
    QVERIFY(m_info->exec(QStringLiteral("UPDATE `schemas` SET maintenance = NULL")));
    QVERIFY(m_manager->setMaintenance(QStringLiteral("m1")));
    QVERIFY(m_info->scalar(QStringLiteral("SELECT maintenance FROM `schemas` WHERE token = 'm1'")).isNull());

    // An unknown token: false, then true from the throttle.
    QVERIFY(!m_manager->setMaintenance(QStringLiteral("unknown")));
    QVERIFY(m_manager->setMaintenance(QStringLiteral("unknown")));
}

void TestDBManager::maintenanceThrottleAfterFailure()
{
    QVERIFY(insertScheme(QStringLiteral("m2"), QStringLiteral("''")));
    QVERIFY(m_info->exec(QStringLiteral("ALTER TABLE `schemas` RENAME COLUMN maintenance TO maintenance_x")));
    LogCapture log;
    const bool first = m_manager->setMaintenance(QStringLiteral("m2"));
    const bool second = m_manager->setMaintenance(QStringLiteral("m2"));
    QVERIFY(m_info->exec(QStringLiteral("ALTER TABLE `schemas` RENAME COLUMN maintenance_x TO maintenance")));
    QVERIFY(!first);
    QVERIFY(second);
    const QStringList critical = log.lines(QtCriticalMsg);
    QCOMPARE(critical.size(), 1);
    QVERIFY2(critical.first().startsWith(
                 QStringLiteral("DBManager:: cannot set maintenance for token \"m2\" !\nERROR: \"Unknown column")),
             qPrintable(critical.first()));
}

void TestDBManager::setRecalc()
{
    QVERIFY(insertScheme(QStringLiteral("rc"), QStringLiteral("''")));
    QVERIFY(insertScheme(QStringLiteral("rc-off"), QStringLiteral("''"), 0));
    QVERIFY(m_manager->setRecalc(QStringLiteral("rc")));
    QVERIFY(!m_manager->setRecalc(QStringLiteral("rc-off")));
    QVERIFY(!m_manager->setRecalc(QStringLiteral("nobody")));
    QCOMPARE(m_info->scalar(QStringLiteral("SELECT COUNT(*) FROM `schemas` WHERE recalc IS NOT NULL")).toInt(), 1);
}

void TestDBManager::autoCloseAndTokensCount()
{
    QVERIFY(insertScheme(QStringLiteral("ac"), QStringLiteral("''")));
    m_manager->setAutoClose(true);
    QCOMPARE(m_manager->loadTokens(10, 0), QStringList{"ac"});
    QVERIFY(!m_manager->infoDB().isOpen());
    // tokensCount does not reopen the InfoDB.
    LogCapture log;
    QCOMPARE(m_manager->tokensCount(true), 0u);
    QCOMPARE(log.linesStartingWith(QtCriticalMsg, QStringLiteral("DBManager::tokensCount() - ERROR:")).size(), 1);
    // The flag tells how the last open ended, not whether the InfoDB is open now.
    QVERIFY(m_manager->isInfoDB());
    m_manager->setAutoClose(false);
    QCOMPARE(m_manager->loadTokens(10, 0), QStringList{"ac"});
    QCOMPARE(m_manager->tokensCount(true), 1u);
}

void TestDBManager::masterConnectionsRefused_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("zmt") << m_zmtConnection;
    QTest::newRow("info") << m_infoConnection;
    QTest::newRow("QHX.ZMTDB") << "QHX.ZMTDB";
    QTest::newRow("default") << QString::fromLatin1(QSqlDatabase::defaultConnection);
}

void TestDBManager::masterConnectionsRefused()
{
    QFETCH(QString, name);
    const bool existed = QSqlDatabase::contains(name);
    m_manager->setDebugLevel(1);
    LogCapture log;
    m_manager->addUnusedConnection(name);
    m_manager->removeUnusedConnections();
    QCOMPARE(log.lines(QtWarningMsg),
             QStringList{QStringLiteral("DBManager::addUnusedConnection() Master connection \"%1\" cannot add to unused "
                                        "connections!").arg(name)});
    QCOMPARE(removedNames(log), QStringList());
    QCOMPARE(QSqlDatabase::contains(name), existed);
}

void TestDBManager::emptyNameQueuesNothing()
{
    m_manager->setDebugLevel(1);
    LogCapture log;
    m_manager->addUnusedConnection(QString());
    m_manager->removeUnusedConnections();
    QCOMPARE(log.lines(QtDebugMsg), QStringList{QStringLiteral("DBManager::addUnusedConnection( \"\" )")});
    QCOMPARE(log.lines(QtWarningMsg), QStringList());
}

void TestDBManager::duplicatesRemovedTwice()
{
    QSqlDatabase::addDatabase(QStringLiteral("QMYSQL"), QStringLiteral("probe.dup"));
    m_manager->setDebugLevel(1);
    m_manager->addUnusedConnection(QStringLiteral("probe.dup"));
    m_manager->addUnusedConnection(QStringLiteral("probe.dup"));
    LogCapture log;
    m_manager->removeUnusedConnections();
    QCOMPARE(removedNames(log), (QStringList{"probe.dup", "probe.dup"}));
    QVERIFY(!QSqlDatabase::contains(QStringLiteral("probe.dup")));
    // The queue is empty afterwards.
    log.clear();
    m_manager->removeUnusedConnections();
    QCOMPARE(removedNames(log), QStringList());
}

void TestDBManager::activeConnectionForgotten()
{
    QVERIFY(TestServer::connect(QStringLiteral("probe.active")).isOpen());
    m_manager->setDebugLevel(1);
    m_manager->addUnusedConnection(QStringLiteral("probe.active"));
    LogCapture log;
    m_manager->removeUnusedConnections();
    QCOMPARE(log.lines(QtWarningMsg),
             QStringList{QStringLiteral("DBManager::removeUnusedConnections() - can't remove active connection \"probe.active\"")});
    QVERIFY(QSqlDatabase::contains(QStringLiteral("probe.active")));
    // Refused once, forgotten: closing it does not bring it back into the queue.
    QSqlDatabase::database(QStringLiteral("probe.active"), false).close();
    log.clear();
    m_manager->removeUnusedConnections();
    QCOMPARE(removedNames(log), QStringList());
    QVERIFY(QSqlDatabase::contains(QStringLiteral("probe.active")));
}

void TestDBManager::queuedNameBecomesMaster()
{
    QSqlDatabase later = QSqlDatabase::addDatabase(QStringLiteral("QMYSQL"), QStringLiteral("probe.master"));
    m_manager->addUnusedConnection(QStringLiteral("probe.master"));
    m_manager->setZmtDB(later);
    LogCapture log;
    m_manager->removeUnusedConnections();
    QCOMPARE(log.lines(QtWarningMsg),
             QStringList{QStringLiteral("DBManager::removeUnusedConnections() - cannot remove master connection \"probe.master\"")});
    QVERIFY(QSqlDatabase::contains(QStringLiteral("probe.master")));
}

void TestDBManager::disabledListIsSilent()
{
    QSqlDatabase::addDatabase(QStringLiteral("QMYSQL"), QStringLiteral("probe.off"));
    m_manager->setDebugLevel(2);
    m_manager->addUnusedConnection(QStringLiteral("probe.off"));
    LogCapture log;
    m_manager->setUnusedConnectionsEnabled(true);  // unchanged: nothing happens
    m_manager->setUnusedConnectionsEnabled(false);
    m_manager->addUnusedConnection(QStringLiteral("probe.off"));
    m_manager->addUnusedConnection(m_zmtConnection);
    m_manager->removeUnusedConnections();
    QCOMPARE(log.lines(QtDebugMsg), QStringList{QStringLiteral("DBManager::setUnusedConnectionsEnabled( false )")});
    QCOMPARE(log.lines(QtWarningMsg), QStringList());
    // Switching off forgot the queued name; switching on again does not bring it back.
    m_manager->setUnusedConnectionsEnabled(true);
    log.clear();
    m_manager->removeUnusedConnections();
    QCOMPARE(removedNames(log), QStringList());
    QVERIFY(QSqlDatabase::contains(QStringLiteral("probe.off")));
}

void TestDBManager::managerConnectionRemoved()
{
    QVERIFY(insertScheme(QStringLiteral("tok-r"), QStringLiteral("'%1'").arg(m_goodPass)));
    QString name;
    {
        QSqlDatabase db = m_manager->getDatabase(QStringLiteral("tok-r"));
        name = db.connectionName();
        db.close();
    }
    m_manager->setDebugLevel(2);
    m_manager->addUnusedConnection(name);
    LogCapture log;
    m_manager->removeUnusedConnections();
    QCOMPARE(log.lines(QtDebugMsg).first(),
             QStringLiteral("DBManager::removeUnusedConnections() - master connections: \"%1\" \"%2\" \"%3\"")
                 .arg(m_zmtConnection, m_infoConnection, QLatin1String(QSqlDatabase::defaultConnection)));
    QCOMPARE(removedNames(log), QStringList{name});
    QVERIFY(!m_manager->hasConnection(QStringLiteral("tok-r")));
    QVERIFY(!m_manager->isManagedConnection(QStringLiteral("tok-r")));
}

QTEST_GUILESS_MAIN(TestDBManager)
#include "tst_dbmanager.moc"

#include "database/dbmanager.h"

#include <QDateTime>
#include <QMutexLocker>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QThread>
#include <QtDebug>

#include <algorithm>
#include <atomic>

namespace {

const char *boolText(bool value)
{
    return value ? "TRUE" : "FALSE";
}

std::atomic<quint64> g_managers{0};
std::atomic<quint64> g_threads{0};

// Set once this thread's handles are gone: a manager destroyed later (at exit, say) finds
// nothing left to remove.
thread_local bool t_infoHandlesGone = false;

// The InfoDB handles a thread made, by manager. Removed on the thread itself when it ends; the
// thread's number is never reused, unlike its id, so a handle never outlives its thread's name.
struct ThreadInfoHandles
{
    const quint64 thread = ++g_threads;
    QHash<quint64, QString> names;

    ~ThreadInfoHandles()
    {
        for (const QString &name : qAsConst(names)) {
            QSqlDatabase::database(name, false).close();
            QSqlDatabase::removeDatabase(name);
        }
        t_infoHandlesGone = true;
    }
};

thread_local ThreadInfoHandles t_infoHandles;

bool openLogged(QSqlDatabase &db)
{
    const bool opened = db.open();
    if (!opened)
        qWarning() << "DBManager:: database" << db.databaseName() << "can NOT open! ERROR:" << db.lastError().text();
    return opened;
}

QSqlDatabase defaultConnection()
{
    return QSqlDatabase::database(QSqlDatabase::defaultConnection, true);
}

} // namespace

DBManager::DBManager()
    : m_id(++g_managers)
{
    resetDefaults();
}

DBManager::DBManager(const QSqlDatabase &infoDB, const QSqlDatabase &zmtDB)
    : m_infoDB(infoDB)
    , m_zmtDB(zmtDB)
    , m_id(++g_managers)
{
    // The connection names are taken only by setInfoDB/setZmtDB.
    resetDefaults();
}

DBManager::~DBManager()
{
    // This thread's InfoDB handle; other threads drop theirs when they end.
    if (t_infoHandlesGone)
        return;
    const QString name = t_infoHandles.names.take(m_id);
    if (!name.isEmpty()) {
        QSqlDatabase::database(name, false).close();
        QSqlDatabase::removeDatabase(name);
    }
}

void DBManager::resetDefaults()
{
    m_debugLevel = 0;
    m_infoDBOpen = false;
    m_autoClose = false;
    m_infoConnection = QStringLiteral("QHX.InfoDB");
}

QSqlDatabase DBManager::infoDB()
{
    QMutexLocker lock(&m_mutex);
    return m_infoDB;
}

QSqlDatabase DBManager::zmtDB()
{
    QMutexLocker lock(&m_mutex);
    return m_zmtDB;
}

void DBManager::setZmtDB(const QSqlDatabase &db)
{
    if (m_debugLevel >= 1)
        qDebug("DBManager::setZmtDB(host: '%s', port: %i, database: '%s', connection: '%s')",
               qUtf8Printable(db.hostName()), db.port(), qUtf8Printable(db.databaseName()),
               qUtf8Printable(db.connectionName()));
    QMutexLocker lock(&m_mutex);
    m_zmtDB = db;
    m_zmtConnection = db.connectionName();
}

void DBManager::setInfoDB(const QSqlDatabase &db)
{
    if (m_debugLevel >= 1)
        qDebug("DBManager::setInfoDB(host: '%s', port: %i, database: '%s', connection: '%s')",
               qUtf8Printable(db.hostName()), db.port(), qUtf8Printable(db.databaseName()),
               qUtf8Printable(db.connectionName()));
    QMutexLocker lock(&m_mutex);
    m_infoDB = db;
    m_infoConnection = db.connectionName();
    openDatabase(m_infoDB);
}

bool DBManager::isInfoDB()
{
    QMutexLocker lock(&m_mutex);
    if (m_debugLevel >= 2)
        qDebug("DBManager::isInfoDB(): %s", boolText(m_infoDBOpen));
    return m_infoDBOpen;
}

void DBManager::setAutoClose(bool autoClose)
{
    QMutexLocker lock(&m_mutex);
    m_autoClose = autoClose;
}

void DBManager::setDebugLevel(quint8 level)
{
    QMutexLocker lock(&m_mutex);
    m_debugLevel = level;
}

void DBManager::setConnectionSettings(const ConnectionSettings &settings)
{
    QMutexLocker lock(&m_mutex);
    m_settings = settings;
}

quint32 DBManager::tokensCount(bool active)
{
    QMutexLocker lock(&m_mutex);
    if (m_debugLevel >= 1)
        qDebug("DBManager::tokensCount(%s)", boolText(active));
    // Deliberately isValid and not openDatabase: this query never opens the InfoDB.
    if (!m_infoDB.isValid())
        return 0;
    quint32 count = 0;
    QSqlQuery query(m_infoDB);
    if (query.exec(QStringLiteral("SELECT COUNT(*) FROM `schemas` WHERE status = %1;").arg(active ? 1 : 0))) {
        if (query.next())
            count = query.value(0).toUInt();
    } else {
        qCritical() << "DBManager::tokensCount() - ERROR:" << query.lastError().text();
    }
    if (m_autoClose)
        m_infoDB.close();
    return count;
}

QStringList DBManager::loadTokens(quint32 limit, quint32 offset)
{
    QMutexLocker lock(&m_mutex);
    if (m_debugLevel >= 1)
        qDebug("DBManager::loadTokens(limit: %u, offset: %u)", limit, offset);
    return queryTokens(QStringLiteral("SELECT token FROM `schemas` WHERE status = 1 ORDER BY token, sid LIMIT %1, %2;")
                           .arg(offset)
                           .arg(limit),
                       "DBManager::loadTokens NOT load schemas from infoDB!\nERROR:");
}

QStringList DBManager::loadTokens4Maintenance(quint16 limit)
{
    QMutexLocker lock(&m_mutex);
    if (m_debugLevel >= 1)
        qDebug() << "DBManager::loadTokens4Maintenance(" << limit << ")";
    return queryTokens(QStringLiteral("SELECT token FROM `schemas` WHERE status = 1 AND (maintenance IS NULL OR "
                                      "maintenance + 900 < UNIX_TIMESTAMP()) ORDER BY maintenance, sid LIMIT %1;")
                           .arg(limit),
                       "DBManager:: NOT load schemas for maintenance from infoDB!\nERROR:");
}

QStringList DBManager::loadTokens4Recalculate(quint16 limit)
{
    QMutexLocker lock(&m_mutex);
    if (m_debugLevel >= 1)
        qDebug() << "DBManager::loadTokens4Recalculate(" << limit << ")";
    return queryTokens(QStringLiteral("SELECT token FROM `schemas` WHERE status = 1 ORDER BY recalc, sid LIMIT %1;")
                           .arg(limit),
                       "DBManager:: NOT load schemas for recalculate from infoDB!\nERROR:");
}

QStringList DBManager::queryTokens(const QString &sql, const char *failureMessage)
{
    QStringList tokens;
    if (!openDatabase(m_infoDB))
        return tokens;
    QSqlQuery query(m_infoDB);
    if (query.exec(sql)) {
        while (query.next())
            tokens.append(query.value(0).toString());
    } else {
        qCritical() << failureMessage << query.lastError().text();
    }
    if (m_autoClose)
        m_infoDB.close();
    return tokens;
}

QString DBManager::loadTokenByName(const QString &name)
{
    QMutexLocker lock(&m_mutex);
    QString token;
    if (!acceptToken(name, "loadTokenByName") || !openDatabase(m_infoDB))
        return token;
    QSqlQuery query(m_infoDB);
    if (query.exec(QStringLiteral("SELECT token FROM `schemas` WHERE status = 1 AND name = '%1' LIMIT 1;").arg(name))) {
        if (query.next())
            token = query.value(QStringLiteral("token")).toString();
    } else {
        qCritical() << "DBManager:: NOT load scheme from infoDB!\nERROR:" << query.lastError().text();
    }
    if (m_autoClose)
        m_infoDB.close();
    return token;
}

bool DBManager::setMaintenance(const QString &token)
{
    QMutexLocker lock(&m_mutex);
    // Refused before the throttle, so junk tokens never fill the stamp table.
    if (!acceptToken(token, "setMaintenance"))
        return false;
    const qint64 stamp = m_maintenanceStamps.value(token, 0);
    if (!(QDateTime::currentMSecsSinceEpoch() > stamp + 1000))
        return true;
    if (!openDatabase(m_infoDB))
        return false;
    bool done = false;
    QSqlQuery query(m_infoDB);
    if (query.exec(QStringLiteral("UPDATE `schemas` SET maintenance = UNIX_TIMESTAMP() WHERE status = 1 AND token = '%1';")
                       .arg(token))) {
        done = query.numRowsAffected() > 0;
    } else {
        qCritical() << "DBManager:: cannot set maintenance for token" << token << "!\nERROR:" << query.lastError().text();
    }
    if (m_autoClose)
        m_infoDB.close();
    // Stamped whatever the outcome, so a failing UPDATE is not retried for a second.
    m_maintenanceStamps.insert(token, QDateTime::currentMSecsSinceEpoch());
    return done;
}

bool DBManager::setRecalc(const QString &token)
{
    QMutexLocker lock(&m_mutex);
    if (!acceptToken(token, "setRecalc") || !openDatabase(m_infoDB))
        return false;
    bool done = false;
    QSqlQuery query(m_infoDB);
    if (query.exec(QStringLiteral("UPDATE `schemas` SET recalc = UNIX_TIMESTAMP() WHERE status = 1 AND token = '%1';")
                       .arg(token))) {
        done = query.numRowsAffected() > 0;
    } else {
        qCritical() << "DBManager:: cannot set recalc of " << token << "!\nERROR:" << query.lastError().text();
    }
    if (m_autoClose)
        m_infoDB.close();
    return done;
}

DbScheme DBManager::cachedScheme(const QString &token)
{
    QMutexLocker lock(&m_mutex);
    return m_schemes.value(token);
}

bool DBManager::hasConnection(const QString &token)
{
    QMutexLocker lock(&m_mutex);
    return QSqlDatabase::contains(connectionNameFor(token));
}

bool DBManager::isManagedConnection(const QString &token)
{
    QMutexLocker lock(&m_mutex);
    const QString name = connectionNameFor(token);
    return std::find(m_connections.begin(), m_connections.end(), name) != m_connections.end();
}

QSqlDatabase DBManager::getDatabase(const QString &token)
{
    if (m_debugLevel >= 2)
        qDebug("DBManager::getDatabase(%s)", qUtf8Printable(token));
    if (token.isEmpty()) {
        QMutexLocker lock(&m_mutex);
        return m_zmtDB;
    }
    // Made by an earlier call of this thread: no SQL, no lock, nothing opened.
    const QString name = connectionNameFor(token);
    if (QSqlDatabase::contains(name))
        return QSqlDatabase::database(name, false);
    if (!acceptToken(token, "loadScheme"))
        return defaultConnection();

    QSqlDatabase infoTemplate;
    bool autoClose = false;
    {
        QMutexLocker lock(&m_mutex);
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        if (m_unknownTokens.value(token, 0) > now)
            return defaultConnection();
        infoTemplate = m_infoDB;
        autoClose = m_autoClose;
    }
    QSqlDatabase info = threadInfoDB(infoTemplate);
    bool answered = false;
    const DbScheme scheme = loadScheme(info, token, &answered);
    // A failed statement may mean a lost server: the next lookup opens the handle afresh.
    if (autoClose || !answered)
        info.close();
    const bool usable = !scheme.name.isEmpty() && !scheme.user.isEmpty() && !scheme.pass.isEmpty();
    {
        QMutexLocker lock(&m_mutex);
        if (!usable) {
            const qint64 now = QDateTime::currentMSecsSinceEpoch();
            if (answered && m_settings.unknownTokenCache > 0) {
                // Expired entries go first, so a stream of made-up tokens cannot grow the table.
                for (auto it = m_unknownTokens.begin(); it != m_unknownTokens.end();)
                    it = it.value() <= now ? m_unknownTokens.erase(it) : std::next(it);
                m_unknownTokens.insert(token, now + m_settings.unknownTokenCache * 1000);
            }
            lock.unlock();
            return defaultConnection();
        }
        m_schemes.insert(token, scheme);
        if (std::find(m_connections.begin(), m_connections.end(), name) == m_connections.end())
            m_connections.push_back(name);
    }

    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QMYSQL"), name);
    db.setHostName(infoTemplate.hostName());
    db.setPort(infoTemplate.port());
    db.setDatabaseName(scheme.name);
    db.setUserName(scheme.user);
    db.setPassword(scheme.pass);
    // No MYSQL_OPT_RECONNECT: a silent reconnect would drop the session's character set and
    // bounds. A lost connection is closed and opened again by its user.
    db.setConnectOptions(m_settings.connectOptions(QStringLiteral("CLIENT_IGNORE_SPACE=1")));
    return db;
}

QSqlDatabase DBManager::threadInfoDB(const QSqlDatabase &infoDB) const
{
    QString &name = t_infoHandles.names[m_id];
    if (name.isEmpty()) {
        name = QStringLiteral("QHX.InfoDB.%1.%2").arg(m_id).arg(t_infoHandles.thread);
        return QSqlDatabase::cloneDatabase(infoDB, name);
    }
    return QSqlDatabase::database(name, false);
}

void DBManager::addUnusedConnection(const QString &name)
{
    QMutexLocker lock(&m_mutex);
    if (!m_unusedEnabled)
        return;
    if (m_debugLevel >= 1)
        qDebug() << "DBManager::addUnusedConnection(" << name << ")";
    if (name.isEmpty())
        return;
    if (isMasterConnection(name)) {
        qWarning() << "DBManager::addUnusedConnection() Master connection" << name
                   << "cannot add to unused connections!";
        return;
    }
    m_unusedConnections.push_back(name);
}

void DBManager::setUnusedConnectionsEnabled(bool enabled)
{
    QMutexLocker lock(&m_mutex);
    if (m_unusedEnabled == enabled)
        return;
    if (m_debugLevel >= 1)
        qDebug() << "DBManager::setUnusedConnectionsEnabled(" << (enabled ? "true" : "false") << ")";
    m_unusedEnabled = enabled;
    if (!enabled)
        m_unusedConnections.clear();
}

void DBManager::removeUnusedConnections()
{
    QMutexLocker lock(&m_mutex);
    if (!m_unusedEnabled)
        return;
    if (m_debugLevel >= 2)
        qDebug() << "DBManager::removeUnusedConnections() - master connections:" << m_zmtConnection
                 << m_infoConnection << QString::fromLatin1(QSqlDatabase::defaultConnection);
    while (!m_unusedConnections.empty()) {
        const QString name = m_unusedConnections.front();
        m_unusedConnections.erase(m_unusedConnections.begin());
        if (isMasterConnection(name)) {
            qWarning() << "DBManager::removeUnusedConnections() - cannot remove master connection" << name;
        } else if (isConnectionOpen(name)) {
            qWarning() << "DBManager::removeUnusedConnections() - can't remove active connection" << name;
        } else {
            if (m_debugLevel >= 1)
                qDebug() << "DBManager::removeUnusedConnections() - removing:" << name;
            QSqlDatabase::removeDatabase(name);
            m_connections.erase(std::remove(m_connections.begin(), m_connections.end(), name),
                                m_connections.end());
        }
    }
}

QString DBManager::connectionNameFor(const QString &token) const
{
    const QString thread = QString::asprintf("%p", static_cast<void *>(QThread::currentThreadId()));
    return QStringLiteral("%2_dbc_%1").arg(token, thread);
}

bool DBManager::openDatabase(QSqlDatabase &db)
{
    if (db.isOpen())
        return true;
    const bool opened = openLogged(db);
    if (!db.connectionName().isEmpty() && db.connectionName() == m_infoConnection)
        m_infoDBOpen = opened;
    return opened;
}

DbScheme DBManager::loadScheme(QSqlDatabase &info, const QString &token, bool *answered)
{
    DbScheme scheme;
    *answered = false;
    if (!info.isOpen() && !openLogged(info))
        return scheme;
    QSqlQuery query(info);
    if (!query.exec(QStringLiteral("SELECT * FROM `schemas` WHERE status = 1 AND token = '%1' LIMIT 1;").arg(token))) {
        qCritical() << "DBManager:: NOT load scheme from infoDB!\nERROR:" << query.lastError().text();
        return scheme;
    }
    *answered = true;
    if (query.next()) {
        scheme.token = query.value(QStringLiteral("token")).toString();
        // QString(QByteArray) stops at the first NUL of the decoded password.
        const QByteArray pass = QByteArray::fromBase64(query.value(QStringLiteral("pass")).toByteArray());
        scheme.pass = QString(pass.constData());
        scheme.user = query.value(QStringLiteral("user")).toString();
        scheme.name = query.value(QStringLiteral("name")).toString();
    }
    return scheme;
}

bool DBManager::isConnectionOpen(const QString &name)
{
    const QSqlDatabase db = QSqlDatabase::database(name, false);
    return db.isValid() && db.isOpen();
}

bool DBManager::isValidToken(const QString &token)
{
    for (const QChar c : token) {
        const ushort u = c.unicode();
        if (!((u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') || u == '.' || u == '_'
              || u == '-'))
            return false;
    }
    return true;
}

bool DBManager::acceptToken(const QString &token, const char *operation)
{
    if (isValidToken(token))
        return true;
    // Such a token is someone probing the InfoDB; quoting it would put their bytes in the log.
    qWarning("DBManager::%s() refused a value with characters other than letters, digits and \"._-\"", operation);
    return false;
}

bool DBManager::isMasterConnection(const QString &name) const
{
    return name == m_zmtConnection || name == m_infoConnection || name == QLatin1String("QHX.ZMTDB")
           || name == QLatin1String(QSqlDatabase::defaultConnection);
}

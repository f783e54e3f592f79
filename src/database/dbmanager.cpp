#include "database/dbmanager.h"

#include <QDateTime>
#include <QMutexLocker>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QThread>
#include <QtDebug>

#include <algorithm>

namespace {

// Between thread and token in a customer connection's name.
const char *const kCustomerConnectionMark = "_dbc_";

const char *boolText(bool value)
{
    return value ? "TRUE" : "FALSE";
}

} // namespace

DBManager::DBManager()
{
    resetDefaults();
}

DBManager::DBManager(const QSqlDatabase &infoDB, const QSqlDatabase &zmtDB)
    : m_infoDB(infoDB)
    , m_zmtDB(zmtDB)
{
    // The connection names are taken only by setInfoDB/setZmtDB.
    resetDefaults();
}

DBManager::~DBManager() = default;

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
    QMutexLocker lock(&m_mutex);
    if (token.isEmpty())
        return m_zmtDB;

    const QString name = connectionNameFor(token);
    if (QSqlDatabase::contains(name))
        return QSqlDatabase::database(name, true);

    const DbScheme scheme = loadScheme(token);
    if (scheme.name.isEmpty() || scheme.user.isEmpty() || scheme.pass.isEmpty())
        return QSqlDatabase::database(QSqlDatabase::defaultConnection, true);

    if (std::find(m_connections.begin(), m_connections.end(), name) == m_connections.end())
        m_connections.push_back(name);

    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QMYSQL"), name);
    db.setHostName(m_infoDB.hostName());
    db.setPort(m_infoDB.port());
    db.setDatabaseName(scheme.name);
    db.setUserName(scheme.user);
    db.setPassword(scheme.pass);
    db.setConnectOptions(QStringLiteral("MYSQL_OPT_RECONNECT=1;CLIENT_IGNORE_SPACE=1"));
    if (db.open())
        return db;

    qWarning() << "DBManager:: database" << scheme.name << "(token:" << token << ") NOT OPEN!";
    if (db.lastError().isValid())
        qWarning() << "SQL ERROR:" << db.lastError().text();
    // The failed connection stays registered: the next call for this thread retries it.
    return QSqlDatabase::database(QSqlDatabase::defaultConnection, true);
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
    return QStringLiteral("%2%3%1").arg(token, thread, QLatin1String(kCustomerConnectionMark));
}

int DBManager::customerConnectionCount()
{
    const QStringList names = QSqlDatabase::connectionNames();
    return int(std::count_if(names.begin(), names.end(),
                             [](const QString &name) { return name.contains(QLatin1String(kCustomerConnectionMark)); }));
}

bool DBManager::openDatabase(QSqlDatabase &db)
{
    if (db.isOpen())
        return true;
    const bool opened = db.open();
    if (!opened)
        qWarning() << "DBManager:: database" << db.databaseName() << "can NOT open! ERROR:" << db.lastError().text();
    if (!db.connectionName().isEmpty() && db.connectionName() == m_infoConnection)
        m_infoDBOpen = opened;
    return opened;
}

DbScheme DBManager::loadScheme(const QString &token)
{
    DbScheme scheme;
    if (!acceptToken(token, "loadScheme") || !openDatabase(m_infoDB))
        return scheme;
    QSqlQuery query(m_infoDB);
    if (!query.exec(QStringLiteral("SELECT * FROM `schemas` WHERE status = 1 AND token = '%1' LIMIT 1;").arg(token)))
        qCritical() << "DBManager:: NOT load scheme from infoDB!\nERROR:" << query.lastError().text();
    if (query.isActive() && query.next()) {
        scheme.token = query.value(QStringLiteral("token")).toString();
        // QString(QByteArray) stops at the first NUL of the decoded password.
        const QByteArray pass = QByteArray::fromBase64(query.value(QStringLiteral("pass")).toByteArray());
        scheme.pass = QString(pass.constData());
        scheme.user = query.value(QStringLiteral("user")).toString();
        scheme.name = query.value(QStringLiteral("name")).toString();
    }
    if (m_autoClose)
        m_infoDB.close();
    if (!scheme.name.isEmpty() && !scheme.user.isEmpty() && !scheme.pass.isEmpty())
        m_schemes.insert(token, scheme);
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

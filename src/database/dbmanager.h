#ifndef DBMANAGER_H
#define DBMANAGER_H

#include "settings/connectionsettings.h"

#include <QHash>
#include <QMutex>
#include <QSqlDatabase>
#include <QString>
#include <QStringList>
#include <vector>

// One customer's connection data; all four empty means "not found".
struct DbScheme
{
    QString name;  // MySQL database name
    QString user;
    QString pass;  // the password in clear
    QString token;
};

// Owns the connections of a multi-customer installation: the InfoDB that lists customers,
// the master (ZMT) connection for token-less requests, and one connection per customer and
// thread. The host creates and owns it; workers only call getDatabase. Host and plug-in
// share this object, so the field order is part of their contract.
class DBManager
{
public:
    DBManager();
    DBManager(const QSqlDatabase &infoDB, const QSqlDatabase &zmtDB);
    ~DBManager();

    void resetDefaults();

    QSqlDatabase infoDB();
    QSqlDatabase zmtDB();
    void setZmtDB(const QSqlDatabase &db);
    void setInfoDB(const QSqlDatabase &db);
    bool isInfoDB();
    void setAutoClose(bool autoClose);
    void setDebugLevel(quint8 level);
    // Set by the host before the first request; read without the lock afterwards.
    void setConnectionSettings(const ConnectionSettings &settings);
    const ConnectionSettings &connectionSettings() const { return m_settings; }

    quint32 tokensCount(bool active);
    QStringList loadTokens(quint32 limit, quint32 offset);
    QStringList loadTokens4Maintenance(quint16 limit);
    QStringList loadTokens4Recalculate(quint16 limit);
    QString loadTokenByName(const QString &name);
    bool setMaintenance(const QString &token);
    bool setRecalc(const QString &token);
    DbScheme cachedScheme(const QString &token);
    bool hasConnection(const QString &token);
    bool isManagedConnection(const QString &token);

    // Whether a token (or schema name) may stand inside the InfoDB statements: ASCII letters,
    // digits and "._-" only; empty passes. Anything else is an unknown token, before any SQL.
    static bool isValidToken(const QString &token);

    // The calling thread's handle for the token, configured and NOT opened: whoever uses it
    // opens a clone of its own. The InfoDB is asked once per thread and token, on a handle of
    // the thread's own, outside the lock; an unknown token is remembered for a few seconds.
    QSqlDatabase getDatabase(const QString &token);
    void addUnusedConnection(const QString &name);
    void setUnusedConnectionsEnabled(bool enabled);
    void removeUnusedConnections();

    // Lock-free helpers; called only with m_mutex held.
    QString connectionNameFor(const QString &token) const;
    bool openDatabase(QSqlDatabase &db);
    static bool isConnectionOpen(const QString &name);

private:
    bool isMasterConnection(const QString &name) const;
    // isValidToken with the warning of a refusal; the text never repeats the token.
    static bool acceptToken(const QString &token, const char *operation);
    // The one shape of the token lists: open the InfoDB, column 0 of each row, close.
    QStringList queryTokens(const QString &sql, const char *failureMessage);
    // The active `schemas` row of an accepted token, read on `info`; `answered` is false when
    // the statement failed (which says nothing about the token).
    static DbScheme loadScheme(QSqlDatabase &info, const QString &token, bool *answered);
    // The InfoDB handle of the calling thread for this manager, made from `infoDB`.
    QSqlDatabase threadInfoDB(const QSqlDatabase &infoDB) const;

    quint8 m_debugLevel = 0;
    QHash<QString, DbScheme> m_schemes;
    QSqlDatabase m_infoDB;
    QSqlDatabase m_zmtDB;
    std::vector<QString> m_connections;
    std::vector<QString> m_unusedConnections;
    bool m_autoClose = false;
    bool m_infoDBOpen = false;
    QString m_zmtConnection;
    QString m_infoConnection = QStringLiteral("QHX.InfoDB");
    QMutex m_mutex;
    QHash<QString, qint64> m_maintenanceStamps;
    bool m_unusedEnabled = true;
    ConnectionSettings m_settings;
    QHash<QString, qint64> m_unknownTokens;  // token -> until when, in ms since the epoch
    quint64 m_id;                            // tells this manager's per-thread InfoDB handles apart
};

#endif

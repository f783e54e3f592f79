#ifndef WORKERCONNECTIONS_H
#define WORKERCONNECTIONS_H

#include "database/statementcache.h"
#include "settings/connectionsettings.h"

#include <QElapsedTimer>
#include <QHash>
#include <QSqlDatabase>

// The customer connections of one worker, one per database, named after the database and the
// worker ("QHX.<db>.WebApi.<n>"): a worker lives on one thread, so no two threads ever share
// a name. Each is logged in once, bounded by the session statement, reused while it works,
// and closed when it has been unused for longer than the idle setting. Each keeps its prepared
// statements, which go before it closes.
class WorkerConnections
{
public:
    WorkerConnections();
    ~WorkerConnections();  // closes and removes them all; no copy of one may be left

    // This worker's handle for the database of `source` (a manager's handle), not opened;
    // invalid when `source` is.
    QSqlDatabase connectionFor(const QSqlDatabase &source, const ConnectionSettings &settings);
    // Opens `db` (closing it first if it is open, its statements first) and runs the session
    // statement.
    bool open(QSqlDatabase &db, const ConnectionSettings &settings);
    // Marks `db` as used now.
    void touch(const QSqlDatabase &db);
    // Closes and removes the ones unused for longer than `idleSeconds`; `current` is let go of
    // first when it is one of them.
    void closeIdle(int idleSeconds, QSqlDatabase &current);
    bool isEmpty() const { return m_lastUse.isEmpty(); }
    // The prepared statements of `db`, one of these connections; valid until the next call of
    // any other member.
    StatementCache *statements(const QSqlDatabase &db) { return &m_statements[db.connectionName()]; }

private:
    void remove(const QString &name);

    const int m_number;
    QHash<QString, qint64> m_lastUse;  // by connection name, ms of m_clock
    QElapsedTimer m_clock;
    QHash<QString, StatementCache> m_statements;  // by connection name
};

#endif

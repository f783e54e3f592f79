#include "worker/workerconnections.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QtDebug>

#include <atomic>

namespace {

std::atomic<int> g_workers{0};

} // namespace

WorkerConnections::WorkerConnections()
    : m_number(++g_workers)
{
    m_clock.start();
}

WorkerConnections::~WorkerConnections()
{
    for (auto it = m_lastUse.cbegin(); it != m_lastUse.cend(); ++it)
        remove(it.key());
}

QSqlDatabase WorkerConnections::connectionFor(const QSqlDatabase &source, const ConnectionSettings &settings)
{
    if (!source.isValid())
        return QSqlDatabase();
    const QString name = QStringLiteral("QHX.%1.WebApi.%2").arg(source.databaseName()).arg(m_number);
    if (m_lastUse.contains(name))
        return QSqlDatabase::database(name, false);
    QSqlDatabase db = QSqlDatabase::cloneDatabase(source, name);
    // Never MYSQL_OPT_RECONNECT: a silent reconnect would lose the session statement.
    db.setConnectOptions(settings.connectOptions(QStringLiteral("CLIENT_IGNORE_SPACE=1")));
    m_lastUse.insert(name, m_clock.elapsed());
    return db;
}

bool WorkerConnections::open(QSqlDatabase &db, const ConnectionSettings &settings)
{
    m_statements.remove(db.connectionName());
    if (db.isOpen())
        db.close();
    if (!db.open())
        return false;
    QSqlQuery session(db);
    if (session.exec(settings.sessionStatement()))
        return true;
    qCritical() << "WebApiWorker: session statement failed on" << db.databaseName() << session.lastError().text();
    db.close();
    return false;
}

void WorkerConnections::touch(const QSqlDatabase &db)
{
    m_lastUse.insert(db.connectionName(), m_clock.elapsed());
}

void WorkerConnections::closeIdle(int idleSeconds, QSqlDatabase &current)
{
    const qint64 limit = m_clock.elapsed() - qint64(idleSeconds) * 1000;
    QStringList idle;
    for (auto it = m_lastUse.cbegin(); it != m_lastUse.cend(); ++it) {
        if (it.value() < limit)
            idle.append(it.key());
    }
    for (const QString &name : qAsConst(idle)) {
        if (current.connectionName() == name)
            current = QSqlDatabase();
        m_lastUse.remove(name);
        remove(name);
    }
}

void WorkerConnections::remove(const QString &name)
{
    m_statements.remove(name);
    QSqlDatabase::database(name, false).close();
    QSqlDatabase::removeDatabase(name);
}

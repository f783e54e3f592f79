#include "support/testserver.h"

#include <QAtomicInt>
#include <QCoreApplication>
#include <QDateTime>
#include <QProcess>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>

namespace {

QString env(const char *name, const char *fallback)
{
    const QString value = qEnvironmentVariable(name);
    return value.isEmpty() ? QString::fromLatin1(fallback) : value;
}

// Runs `sql`; on failure the driver's text and the statement go to `error` and the log.
bool run(QSqlQuery &query, const QString &sql, QString *error)
{
    if (query.exec(sql))
        return true;
    *error = query.lastError().text() + QStringLiteral("\nSQL: ") + sql;
    qWarning("%s", qUtf8Printable(*error));
    return false;
}

} // namespace

QString TestServer::host() { return QStringLiteral("127.0.0.1"); }
int TestServer::port() { return env("WEBAPI_DB_PORT", "33306").toInt(); }
QString TestServer::user() { return env("WEBAPI_DB_USER", "zmt"); }
QString TestServer::password() { return env("WEBAPI_DB_PASSWORD", "zmt-secret"); }

QSqlDatabase TestServer::connect(const QString &connectionName, const QString &database)
{
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QMYSQL"), connectionName);
    db.setHostName(host());
    db.setPort(port());
    db.setUserName(user());
    db.setPassword(password());
    db.setDatabaseName(database);
    // As the worker does: the driver would settle on 3-byte utf8.
    if (db.open())
        QSqlQuery(QStringLiteral("SET NAMES utf8mb4"), db);
    return db;
}

bool TestServer::loadSqlFile(const QString &database, const QString &path, QString *error)
{
    QProcess client;
    client.setStandardInputFile(path);
    client.start(QStringLiteral("mariadb"), {QStringLiteral("--no-defaults"), "-h" + host(), QStringLiteral("-P%1").arg(port()),
                                             "-u" + user(), "-p" + password(), database});
    const bool done = client.waitForFinished(60000) && client.exitStatus() == QProcess::NormalExit && client.exitCode() == 0;
    if (!done && error)
        *error = QStringLiteral("mariadb client failed on %1: %2").arg(path, QString::fromLocal8Bit(client.readAllStandardError()));
    return done;
}

QString TestServer::uniqueName(const QString &prefix)
{
    static QAtomicInt counter;
    return QStringLiteral("t_%1_%2_%3").arg(prefix).arg(QCoreApplication::applicationPid()).arg(counter.fetchAndAddOrdered(1));
}

bool TestServer::sameTimeZone(QString *why)
{
    const QString name = uniqueName(QStringLiteral("tzcheck"));
    bool same = false;
    {
        QSqlQuery query(connect(name));
        // A winter and a summer date, so a zone with the same winter offset but other rules fails too.
        same = query.exec(QStringLiteral("SELECT UNIX_TIMESTAMP('2024-01-15 00:00:00'), UNIX_TIMESTAMP('2024-07-15 00:00:00')"))
            && query.next() && query.value(0).toLongLong() == QDateTime(QDate(2024, 1, 15), QTime(0, 0)).toSecsSinceEpoch()
            && query.value(1).toLongLong() == QDateTime(QDate(2024, 7, 15), QTime(0, 0)).toSecsSinceEpoch();
    }
    QSqlDatabase::removeDatabase(name);
    if (!same)
        *why = QStringLiteral("the private MariaDB on %1:%2 is not reached or runs in another time zone than TZ=%3 "
                              "(scripts/mariadb stop; TZ=%3 scripts/mariadb start)").arg(host()).arg(port()).arg(qEnvironmentVariable("TZ"));
    return same;
}

TestDatabase::TestDatabase(const QString &prefix, const QString &schemaFile)
    : m_name(TestServer::uniqueName(prefix))
    , m_connection(QStringLiteral("test.") + m_name)
{
    const QString bootstrap = m_connection + QStringLiteral(".create");
    {
        QSqlQuery query(TestServer::connect(bootstrap));
        m_ready = run(query, QStringLiteral("CREATE DATABASE `%1` CHARACTER SET utf8mb4 COLLATE utf8mb4_unicode_ci")
                                 .arg(m_name), &m_error);
    }
    QSqlDatabase::removeDatabase(bootstrap);
    m_ready = m_ready && (schemaFile.isEmpty() || TestServer::loadSqlFile(m_name, schemaFile, &m_error));
    if (m_ready && !TestServer::connect(m_connection, m_name).isOpen()) {
        m_error = db().lastError().text();
        m_ready = false;
    }
}

TestDatabase::~TestDatabase()
{
    if (db().isValid())
        QSqlQuery(QStringLiteral("DROP DATABASE IF EXISTS `%1`").arg(m_name), db());
    QSqlDatabase::removeDatabase(m_connection);
}

bool TestDatabase::exec(const QString &sql)
{
    QSqlQuery query(db());
    return run(query, sql, &m_error);
}

QVariant TestDatabase::scalar(const QString &sql)
{
    QSqlQuery query(db());
    return run(query, sql, &m_error) && query.next() ? query.value(0) : QVariant();
}

QList<QVariantMap> TestDatabase::rows(const QString &sql)
{
    QList<QVariantMap> result;
    QSqlQuery query(db());
    for (run(query, sql, &m_error); query.next();) {
        result.append(QVariantMap());
        for (int i = 0; i < query.record().count(); ++i)
            result.last().insert(query.record().fieldName(i), query.value(i));
    }
    return result;
}

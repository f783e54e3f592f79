#include "support/testserver.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QProcess>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QAtomicInt>

namespace {

QString env(const char *name, const QString &fallback)
{
    const QString value = qEnvironmentVariable(name);
    return value.isEmpty() ? fallback : value;
}

} // namespace

QString TestServer::host()
{
    return QStringLiteral("127.0.0.1");
}

int TestServer::port()
{
    return env("WEBAPI_DB_PORT", QStringLiteral("33306")).toInt();
}

QString TestServer::user()
{
    return env("WEBAPI_DB_USER", QStringLiteral("zmt"));
}

QString TestServer::password()
{
    return env("WEBAPI_DB_PASSWORD", QStringLiteral("zmt-secret"));
}

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
    client.start(QStringLiteral("mariadb"),
                 {QStringLiteral("--no-defaults"), QStringLiteral("-h") + host(),
                  QStringLiteral("-P%1").arg(port()), QStringLiteral("-u") + user(),
                  QStringLiteral("-p") + password(), database});
    if (!client.waitForFinished(60000) || client.exitStatus() != QProcess::NormalExit || client.exitCode() != 0) {
        if (error)
            *error = QStringLiteral("mariadb client failed on %1: %2").arg(path, QString::fromLocal8Bit(client.readAllStandardError()));
        return false;
    }
    return true;
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
        QSqlDatabase db = connect(name);
        QSqlQuery query(db);
        // A winter and a summer date, so a zone with the same winter offset but other rules fails too.
        if (query.exec(QStringLiteral("SELECT UNIX_TIMESTAMP('2024-01-15 00:00:00'), UNIX_TIMESTAMP('2024-07-15 00:00:00')"))
            && query.next()) {
            const qint64 winter = QDateTime(QDate(2024, 1, 15), QTime(0, 0)).toSecsSinceEpoch();
            const qint64 summer = QDateTime(QDate(2024, 7, 15), QTime(0, 0)).toSecsSinceEpoch();
            same = query.value(0).toLongLong() == winter && query.value(1).toLongLong() == summer;
            if (!same && why)
                *why = QStringLiteral("the private MariaDB runs in another time zone than this test (TZ=%1); "
                                      "restart it with the same TZ (scripts/mariadb stop; TZ=%1 scripts/mariadb start)")
                           .arg(qEnvironmentVariable("TZ"));
        } else if (why) {
            *why = QStringLiteral("cannot reach the private MariaDB on %1:%2 (scripts/mariadb start): %3")
                       .arg(host()).arg(port()).arg(db.lastError().text());
        }
    }
    QSqlDatabase::removeDatabase(name);
    return same;
}

TestDatabase::TestDatabase(const QString &prefix, const QString &schemaFile)
    : m_name(TestServer::uniqueName(prefix))
    , m_connection(QStringLiteral("test.") + m_name)
{
    {
        const QString bootstrap = m_connection + QStringLiteral(".create");
        {
            QSqlDatabase server = TestServer::connect(bootstrap);
            QSqlQuery query(server);
            if (!server.isOpen()) {
                m_error = server.lastError().text();
            } else if (!query.exec(QStringLiteral("CREATE DATABASE `%1` CHARACTER SET utf8mb4 COLLATE utf8mb4_unicode_ci").arg(m_name))) {
                m_error = query.lastError().text();
            }
        }
        QSqlDatabase::removeDatabase(bootstrap);
    }
    if (!m_error.isEmpty())
        return;
    if (!schemaFile.isEmpty() && !TestServer::loadSqlFile(m_name, schemaFile, &m_error))
        return;
    QSqlDatabase db = TestServer::connect(m_connection, m_name);
    if (!db.isOpen()) {
        m_error = db.lastError().text();
        return;
    }
    m_ready = true;
}

TestDatabase::~TestDatabase()
{
    {
        QSqlDatabase db = QSqlDatabase::database(m_connection, false);
        if (db.isValid()) {
            QSqlQuery query(db);
            query.exec(QStringLiteral("DROP DATABASE IF EXISTS `%1`").arg(m_name));
            db.close();
        }
    }
    QSqlDatabase::removeDatabase(m_connection);
}

QSqlDatabase TestDatabase::db() const
{
    return QSqlDatabase::database(m_connection, false);
}

bool TestDatabase::exec(const QString &sql)
{
    QSqlQuery query(db());
    if (!query.exec(sql)) {
        m_error = query.lastError().text() + QStringLiteral("\nSQL: ") + sql;
        qWarning("%s", qUtf8Printable(m_error));
        return false;
    }
    return true;
}

QVariant TestDatabase::scalar(const QString &sql)
{
    QSqlQuery query(db());
    if (!query.exec(sql)) {
        m_error = query.lastError().text() + QStringLiteral("\nSQL: ") + sql;
        qWarning("%s", qUtf8Printable(m_error));
        return QVariant();
    }
    return query.next() ? query.value(0) : QVariant();
}

QList<QVariantMap> TestDatabase::rows(const QString &sql)
{
    QList<QVariantMap> result;
    QSqlQuery query(db());
    if (!query.exec(sql)) {
        m_error = query.lastError().text() + QStringLiteral("\nSQL: ") + sql;
        qWarning("%s", qUtf8Printable(m_error));
        return result;
    }
    while (query.next()) {
        QVariantMap row;
        const QSqlRecord record = query.record();
        for (int i = 0; i < record.count(); ++i)
            row.insert(record.fieldName(i), query.value(i));
        result.append(row);
    }
    return result;
}

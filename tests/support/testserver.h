#ifndef TESTSERVER_H
#define TESTSERVER_H

#include <QSqlDatabase>
#include <QVariant>

// The private MariaDB server that scripts/mariadb starts, as tests reach it. The same
// environment variables as the script override the defaults.
namespace TestServer {

QString host();
int port();
QString user();
QString password();

// A new connection with the test account, on `database` (may be empty).
QSqlDatabase connect(const QString &connectionName, const QString &database = QString());

// Loads an SQL file (stored functions included) with the mariadb client.
bool loadSqlFile(const QString &database, const QString &path, QString *error = nullptr);

// A name no other running suite uses: prefix, process id and a counter.
QString uniqueName(const QString &prefix);

// True when the server's local time agrees with this process's: both compute midnights.
bool sameTimeZone(QString *why);

} // namespace TestServer

// A scratch database that lives as long as the object: created empty, dropped at the end.
class TestDatabase
{
public:
    // With `schemaFile`, the file is loaded into the new database.
    TestDatabase(const QString &prefix, const QString &schemaFile = QString());
    ~TestDatabase();
    TestDatabase(const TestDatabase &) = delete;
    TestDatabase &operator=(const TestDatabase &) = delete;

    bool isReady() const { return m_ready; }
    QString error() const { return m_error; }
    QString name() const { return m_name; }
    // The suite's own connection, for fixture rows and checks.
    QSqlDatabase db() const { return QSqlDatabase::database(m_connection, false); }

    // Runs one statement; false (with the driver's text in error()) on failure.
    bool exec(const QString &sql);
    // First column of the first row, invalid on failure or no row.
    QVariant scalar(const QString &sql);
    // Every row of a query as maps of column name to value.
    QList<QVariantMap> rows(const QString &sql);

private:
    QString m_name;
    QString m_connection;
    QString m_error;
    bool m_ready = false;
};

#endif

#ifndef APIFIXTURE_H
#define APIFIXTURE_H

#include "support/httpreply.h"
#include "support/testserver.h"

#include <QScopedPointer>
#include <QStringList>

class DBManager;
class WebApiWorker;

// One customer behind a real DBManager and worker: an InfoDB with the customer's row, the
// customer database with the schema and the licence rows, and a worker to send requests to.
// Use from one thread (connections are per thread).
class ApiFixture
{
public:
    static const QString kKey;        // the terminal key whose digest is stored

    explicit ApiFixture(const QString &suite);
    ~ApiFixture();

    // Sets everything up; on false, error() says why.
    bool setUp();
    QString error() const { return m_error; }

    QString token() const { return m_token; }
    TestDatabase &customer() { return *m_customer; }
    TestDatabase &info() { return *m_info; }
    DBManager *manager() const { return m_manager.data(); }
    WebApiWorker *worker() const { return m_worker.data(); }

    // Header lines of a well-behaved terminal: Pragma with the token, the key, and the
    // terminal identifier when given.
    QStringList terminalHeaders(const QString &tid = QString()) const;
    // Header lines of an administrator's tool.
    QStringList adminHeaders(const QString &apiToken) const;

    // A request through buildResponse; `path` is below the host, e.g. "/webapi/info".
    QByteArray call(const QString &method, const QString &path, const QStringList &headers, const QByteArray &body = {});
    HttpReply request(const QString &method, const QString &path, const QStringList &headers, const QByteArray &body = {})
    {
        return HttpReply::parse(call(method, path, headers, body));
    }

    // Registers a terminal row directly and returns its composite identifier.
    QString addTerminal(uint vorixID, const QString &name = QStringLiteral("Door"));

private:
    QString m_suite;
    QString m_token;
    QString m_error;
    QScopedPointer<TestDatabase> m_info;
    QScopedPointer<TestDatabase> m_customer;
    QScopedPointer<DBManager> m_manager;
    QScopedPointer<WebApiWorker> m_worker;
    QString m_infoConnection;
    QString m_zmtConnection;
};

#endif

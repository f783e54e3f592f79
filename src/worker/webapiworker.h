#ifndef WEBAPIWORKER_H
#define WEBAPIWORKER_H

#include "plugin/httppluginworker.h"
#include "licence/licence.h"
#include "request/requestheader.h"
#include "worker/workerconnections.h"

#include <QSharedPointer>
#include <QTimer>

class Response;

// Does the plug-in's work: one request in, one complete HTTP response out: parsing, context,
// database, licence, dispatch to the terminal or admin router, rendering. The terminal
// side's handlers and database operations live in terminal/, by theme.
class WebApiWorker : public HttpPluginWorker
{
    Q_OBJECT

public:
    enum ContextType { UnknownContext = 0, TerminalContext = 1, AdminContext = 2 };
    Q_ENUM(ContextType)

    WebApiWorker(const QString &version, QObject *parent = nullptr);
    ~WebApiWorker() override;

    QByteArray buildResponse(const QString &method, const QUrl &url,
                             const QStringList &headers, const QByteArray &body) override;
    void setDatabase(const QSqlDatabase &db) override;
    bool isReady() override;

    ContextType contextType() const { return m_contextType; }

signals:
    void recordCreated(QString tbl, uint id, const QString &token, quint8 flags);

private:
    void selectContext(const QString &method, const QString &firstWord);
    bool initDatabase();
    // The licence rows, which are also the first statement of every request: on a reused
    // connection whose server is gone, the connection is opened again once and they are reread.
    bool loadLicence();
    void routeInTerminalContext(const QString &method, const QStringList &words, const QByteArray &body);
    void routeInAdminContext(const QString &method, const QUrl &url, const QByteArray &body);
    bool checkWebApiEnabled(const QString &firstWord);
    bool checkAuth(const QString &authorization);
    ConnectionSettings connectionSettings() const;
    void closeIdleConnections();

    QString m_version;
    ContextType m_contextType = UnknownContext;
    RequestHeader m_header;
    QSharedPointer<Response> m_response;
    Licence m_licence;  // the licence rows of the current request
    WorkerConnections m_connections;
    bool m_reusedConnection = false;  // m_db was open before this request
    QTimer m_idleTimer;               // closes idle connections while no request comes
};

#endif

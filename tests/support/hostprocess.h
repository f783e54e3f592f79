#ifndef HOSTPROCESS_H
#define HOSTPROCESS_H

#include "support/httpreply.h"

#include <QByteArray>
#include <QMap>
#include <QProcess>
#include <QScopedPointer>
#include <QTcpSocket>

// The real webapi-host binary on a free loopback port, against the private MariaDB.
class HostProcess
{
public:
    HostProcess();
    ~HostProcess();

    // Starts with the given settings as environment variables (e.g. WEBAPI_LIMITS_BODY) on top
    // of the private server's InfoDB; true once it listens.
    bool start(const QString &infoDb, const QMap<QString, QString> &settings = {});
    quint16 port() const { return m_port; }
    // Everything the host wrote to stderr so far.
    QByteArray log();
    bool waitForLog(const QByteArray &text, int timeoutMs = 10000);
    void terminate();  // SIGTERM
    bool waitForExit(int timeoutMs, int *exitCode);
    QProcess &process() { return m_process; }

    static QString binary();

private:
    QProcess m_process;
    QByteArray m_log;
    quint16 m_port = 0;
};

// One client connection speaking raw HTTP/1.1, so tests see exactly the bytes on the wire.
class HttpConnection
{
public:
    explicit HttpConnection(quint16 port);
    bool isConnected() const;

    bool send(const QByteArray &raw);
    // One whole response (head and Content-Length body); empty when none came in time.
    QByteArray readResponse(int timeoutMs = 10000);
    QByteArray request(const QByteArray &method, const QByteArray &path, const QList<QByteArray> &headers,
                       const QByteArray &body = QByteArray());
    bool waitForClose(int timeoutMs);

    static QByteArray format(const QByteArray &method, const QByteArray &path, const QList<QByteArray> &headers,
                             const QByteArray &body = QByteArray());

private:
    QScopedPointer<QTcpSocket> m_socket;
    QByteArray m_pending;
};

#endif

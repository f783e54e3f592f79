#ifndef HOSTPROCESS_H
#define HOSTPROCESS_H

#include "support/httpreply.h"

#include <QByteArray>
#include <QHostAddress>
#include <QMap>
#include <QProcess>
#include <QScopedPointer>
#include <QStringList>
#include <QTcpSocket>
#include <QTemporaryFile>

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
    // The host's stderr goes to a file: a pipe that a busy test does not drain would fill
    // and stall the host in the middle of a write.
    QTemporaryFile m_logFile;
    QByteArray m_log;
    quint16 m_port = 0;
};

// One client connection speaking raw HTTP/1.1, so tests see exactly the bytes on the wire.
class HttpConnection
{
public:
    // `from`: the local address to connect from (any 127.x.y.z works on loopback), so tests
    // can play several clients.
    explicit HttpConnection(quint16 port, const QHostAddress &from = QHostAddress());
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

// Header lines as a test writes them (e.g. ApiFixture::terminalHeaders), as bytes for the wire.
QList<QByteArray> headerBytes(const QStringList &lines);

#endif

#ifndef HOSTPROCESS_H
#define HOSTPROCESS_H

#include "support/httpreply.h"

#include <QHostAddress>
#include <QMap>
#include <QProcess>
#include <QTcpSocket>
#include <QTemporaryFile>

#include <signal.h>
#include <unistd.h>

class ApiFixture;

// A child process that ends with the test: the kernel kills it when the test process dies
// in any way (a crash, a time limit's SIGKILL), where no destructor runs.
class BoundProcess : public QProcess
{
    const pid_t m_parent = ::getpid();

protected:
    void setupChildProcess() override;
};

// The real webapi-host binary on a free loopback port, against the private MariaDB.
class HostProcess
{
public:
    // The host's stderr goes to a file: a pipe that a busy test does not drain would fill
    // and stall the host in the middle of a write.
    HostProcess() { if (m_logFile.open()) m_process.setStandardErrorFile(m_logFile.fileName()); }
    ~HostProcess() { m_process.kill(); m_process.waitForFinished(5000); }

    // Starts with the given settings as environment variables (e.g. WEBAPI_LIMITS_BODY) on top
    // of the private server's InfoDB; true once it listens, or without `listening` once it runs.
    bool start(const QString &infoDb, const QMap<QString, QString> &settings = {}, bool listening = true);
    bool waitUntilListening(int timeoutMs = 10000);
    quint16 port() const { return m_port; }
    QByteArray log() { return m_log += m_logFile.readAll(); }  // everything the host wrote to stderr so far
    bool waitForLog(const QByteArray &text, int timeoutMs = 10000);
    // Never to pid 0: that would be this process's whole group.
    void signal(int number) { if (m_process.processId() > 0) ::kill(pid_t(m_process.processId()), number); }
    // The exit code once it ended (-1 for a crash), or -2 when it still runs.
    int waitForExit(int timeoutMs = 10000);
    bool running() const { return m_process.state() == QProcess::Running; }
    void setBinary(const QString &path) { m_binary = path; }  // another than the built one

private:
    BoundProcess m_process;
    QTemporaryFile m_logFile;
    QString m_binary = QStringLiteral(WEBAPI_BIN_DIR "/webapi-host");
    QByteArray m_log;
    quint16 m_port = 0;
};

// One client connection speaking raw HTTP/1.1, so tests see exactly the bytes on the wire.
// `from`: the local address to connect from (any 127.x.y.z works on loopback), so tests can
// play several clients.
class HttpConnection
{
public:
    explicit HttpConnection(quint16 port, const QHostAddress &from = QHostAddress());
    bool send(const QByteArray &raw);
    // One whole response (head and Content-Length body); empty when none came in time.
    QByteArray readResponse(int timeoutMs = 10000);
    HttpReply reply(const QByteArray &method, const QByteArray &path, const QStringList &headers = {}, const QByteArray &body = {})
    {
        return HttpReply::parse(send(format(method, path, headers, body)) ? readResponse() : QByteArray());
    }
    bool waitForClose(int timeoutMs);
    static QByteArray format(const QByteArray &method, const QByteArray &path, const QStringList &headers = {}, const QByteArray &body = {});

private:
    QTcpSocket m_socket;
    QByteArray m_pending;
};

// Makes the customer ready for traffic: entrance type 1, person 501 and administrator "boss"
// (API token "api-token-boss") over that person. Returns the person's id as terminals send it.
QString addPerson(ApiFixture &fx);
// An entrance with a stated time: a repeat of it is known as the same event.
QByteArray entranceBody(const QString &person, uint refId);

#endif

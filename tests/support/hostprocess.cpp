#include "support/hostprocess.h"

#include "support/apifixture.h"
#include "terminal/identifiers.h"

#include <QDeadlineTimer>
#include <QJsonObject>
#include <QRegularExpression>

#include <sys/prctl.h>

#include <utility>

void BoundProcess::setupChildProcess()
{
    // In the child, before exec. A parent that died before the call is caught by the check.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != m_parent)
        ::_exit(127);
}

bool HostProcess::start(const QString &infoDb, const QMap<QString, QString> &settings, bool listening)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    QMap<QString, QString> all{{"WEBAPI_LISTEN_ADDRESS", "127.0.0.1"}, {"WEBAPI_LISTEN_PORT", "0"}, {"WEBAPI_THREADS", "4"},
                               {"WEBAPI_INFODB_HOST", TestServer::host()}, {"WEBAPI_INFODB_PORT", QString::number(TestServer::port())},
                               {"WEBAPI_INFODB_NAME", infoDb}, {"WEBAPI_INFODB_USER", TestServer::user()},
                               {"WEBAPI_INFODB_PASSWORD", TestServer::password()}};
    all.insert(settings);  // the test's settings win
    for (auto it = all.cbegin(); it != all.cend(); ++it)
        env.insert(it.key(), it.value());
    m_process.setProcessEnvironment(env);
    m_process.start(m_binary, QStringList());
    return m_process.waitForStarted(10000) && (!listening || waitUntilListening());
}

bool HostProcess::waitUntilListening(int timeoutMs)
{
    if (waitForLog("listening on http", timeoutMs))
        m_port = quint16(QRegularExpression("listening on https?://[0-9.]+:(\\d+)").match(QString::fromUtf8(m_log)).captured(1).toUInt());
    return m_port != 0;
}

bool HostProcess::waitForLog(const QByteArray &text, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!log().contains(text) && !deadline.hasExpired() && m_process.state() != QProcess::NotRunning)
        m_process.waitForFinished(20);
    return log().contains(text);
}

int HostProcess::waitForExit(int timeoutMs)
{
    if (!m_process.waitForFinished(timeoutMs) && m_process.state() != QProcess::NotRunning)
        return -2;
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

HttpConnection::HttpConnection(quint16 port, const QHostAddress &from)
{
    if (!from.isNull())
        m_socket.bind(from);
    m_socket.connectToHost(QStringLiteral("127.0.0.1"), port);
    m_socket.waitForConnected(5000);
}

bool HttpConnection::send(const QByteArray &raw)
{
    bool written = m_socket.write(raw) == raw.size();
    while (written && m_socket.bytesToWrite() > 0)
        written = m_socket.waitForBytesWritten(10000);
    return written;
}

QByteArray HttpConnection::readResponse(int timeoutMs)
{
    const QRegularExpression length(QStringLiteral("(?im)^content-length:\\s*(\\d+)"));
    QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        const int headEnd = m_pending.indexOf("\r\n\r\n");
        const int total = headEnd + 4 + length.match(QString::fromLatin1(m_pending.left(headEnd))).captured(1).toInt();
        if (headEnd >= 0 && m_pending.size() >= total)
            return std::exchange(m_pending, m_pending.mid(total)).left(total);
        if (deadline.hasExpired()
            || (m_socket.bytesAvailable() == 0 && !m_socket.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime())))))
            return QByteArray();
        m_pending += m_socket.readAll();
    }
}

QByteArray HttpConnection::format(const QByteArray &method, const QByteArray &path, const QStringList &headers, const QByteArray &body)
{
    QByteArray raw = method + ' ' + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    for (const QString &header : headers)
        raw += header.toUtf8() + "\r\n";
    if (!body.isEmpty() || method == "POST")
        raw += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    return raw + "\r\n" + body;
}

bool HttpConnection::waitForClose(int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (m_socket.state() == QAbstractSocket::ConnectedState && !deadline.hasExpired()) {
        m_socket.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime())));
        m_pending += m_socket.readAll();
    }
    return m_socket.state() != QAbstractSocket::ConnectedState;
}

QString addPerson(ApiFixture &fx)
{
    TestDatabase &db = fx.customer();
    db.exec(QStringLiteral("INSERT INTO inters (iid, name, shortcut, present, work) VALUES (1, 'Příchod', 'P', 1, 1)"));
    db.exec(QStringLiteral("INSERT INTO people (pid, name, surname, status) VALUES (501, 'Šárka', 'Dvořáková', 1)"));
    const uint uid = db.scalar(QStringLiteral("SELECT uid FROM people WHERE pid = 501")).toUInt();
    db.exec(QStringLiteral("INSERT INTO admins (login, apiToken, status, perms) VALUES ('boss', 'api-token-boss', 1, 2)"));
    db.exec(QStringLiteral("INSERT INTO admins_people (aid, uid) SELECT aid, %1 FROM admins").arg(uid));
    return uid ? encodeId(uid, 501) : QString();
}

QByteArray entranceBody(const QString &person, uint refId)
{
    return QJsonDocument(QJsonObject{{"uid", person}, {"iid", 1}, {"type", 1}, {"refId", int(refId)}, {"date", "2024-05-02T07:30:00"}})
        .toJson(QJsonDocument::Compact);
}

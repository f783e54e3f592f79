#include "support/httpreply.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QRegularExpression>

HttpReply HttpReply::parse(const QByteArray &raw)
{
    HttpReply reply;
    const int end = raw.indexOf("\r\n\r\n");
    if (end < 0)
        return reply;
    const QList<QByteArray> lines = raw.left(end).split('\n');
    const QList<QByteArray> status = lines.first().trimmed().split(' ');
    if (status.size() < 3 || status.first() != "HTTP/1.1")
        return reply;
    reply.status = status.at(1).toInt();
    reply.reason = lines.first().trimmed().mid(status.at(0).size() + status.at(1).size() + 2);
    for (int i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines.at(i).trimmed();
        const int colon = line.indexOf(':');
        if (colon > 0)
            reply.headers.append({line.left(colon), line.mid(colon + 1).trimmed()});
    }
    reply.body = raw.mid(end + 4);
    reply.valid = reply.header("Content-Length").toInt() == reply.body.size();
    return reply;
}

QByteArray HttpReply::header(const QByteArray &name) const
{
    for (const auto &h : headers) {
        if (h.first.compare(name, Qt::CaseInsensitive) == 0)
            return h.second;
    }
    return QByteArray();
}

int HttpReply::errorCode() const
{
    const QJsonDocument doc = json();
    return doc.isObject() ? doc.object().value(QStringLiteral("code")).toInt() : 0;
}

QString HttpReply::message() const
{
    const QJsonDocument doc = json();
    return doc.isObject() ? doc.object().value(QStringLiteral("message")).toString() : QString();
}

QByteArray maskTms(const QByteArray &raw)
{
    QByteArray masked = raw;
    static const QRegularExpression tms(QStringLiteral("X-WEBAPI-TMS: \\d+\r\n"));
    const QRegularExpressionMatch match = tms.match(QString::fromLatin1(raw.left(raw.indexOf("\r\n\r\n") + 2)));
    if (match.hasMatch())
        masked.replace(match.capturedStart(), match.capturedLength(), "X-WEBAPI-TMS: <TMS>\r\n");
    return masked;
}

QByteArray testData(const QString &relativePath)
{
    QFile file(QStringLiteral(WEBAPI_TEST_DATA "/") + relativePath);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("missing test data %s", qUtf8Printable(file.fileName()));
    return file.readAll();
}

bool matchesExpected(const QByteArray &actual, const QString &relativePath)
{
    QFile file(QStringLiteral(WEBAPI_TEST_DATA "/") + relativePath);
    if (qEnvironmentVariableIntValue("WEBAPI_UPDATE_EXPECTED") == 1) {
        QDir().mkpath(QFileInfo(file).absolutePath());
        if (file.open(QIODevice::WriteOnly))
            file.write(actual);
        return true;
    }
    return file.open(QIODevice::ReadOnly) && file.readAll() == actual;
}

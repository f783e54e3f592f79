#include "support/httpreply.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

HttpReply HttpReply::parse(const QByteArray &raw)
{
    HttpReply reply;
    const int end = raw.indexOf("\r\n\r\n");
    QList<QByteArray> lines = raw.left(end).split('\n');
    const QList<QByteArray> status = lines.takeFirst().trimmed().split(' ');
    if (end < 0 || status.size() < 3 || status.first() != "HTTP/1.1")
        return reply;
    reply.status = status.at(1).toInt();
    for (const QByteArray &line : lines) {
        const int colon = line.indexOf(':');
        if (colon > 0)
            reply.headers.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
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

QByteArray maskTms(const QByteArray &raw)
{
    const int start = raw.left(raw.indexOf("\r\n\r\n")).indexOf("\r\nX-WEBAPI-TMS: ");
    if (start < 0)
        return raw;
    const int end = raw.indexOf("\r\n", start + 2);
    bool digits = false;
    raw.mid(start + 16, end - start - 16).toULongLong(&digits);
    if (!digits)
        return raw;
    return QByteArray(raw).replace(start, end - start, "\r\nX-WEBAPI-TMS: <TMS>");
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
    if (qEnvironmentVariableIntValue("WEBAPI_UPDATE_EXPECTED") != 1)
        return file.open(QIODevice::ReadOnly) && file.readAll() == actual;
    // Rewritten instead, to be reviewed in the diff.
    QDir().mkpath(QFileInfo(file).absolutePath());
    return file.open(QIODevice::WriteOnly) && file.write(actual) == actual.size();
}

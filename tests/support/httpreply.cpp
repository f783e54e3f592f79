#include "support/httpreply.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

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
    const int headEnd = raw.contains("\r\n\r\n") ? raw.indexOf("\r\n\r\n") : raw.size();
    static const QRegularExpression tms(QStringLiteral("\r\nX-WEBAPI-TMS: \\d+(?=\r\n|$)"));
    return QString::fromLatin1(raw.left(headEnd)).replace(tms, QStringLiteral("\r\nX-WEBAPI-TMS: <TMS>")).toLatin1() + raw.mid(headEnd);
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
    if (qEnvironmentVariableIntValue("WEBAPI_UPDATE_EXPECTED") != 1)
        return testData(relativePath) == actual;
    // Rewritten instead, to be reviewed in the diff.
    QFile file(QStringLiteral(WEBAPI_TEST_DATA "/") + relativePath);
    QDir().mkpath(QFileInfo(file).absolutePath());
    return file.open(QIODevice::WriteOnly) && file.write(actual) == actual.size();
}

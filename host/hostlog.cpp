#include "hostlog.h"

#include <QDateTime>
#include <QJsonDocument>

#include <atomic>
#include <cstdio>

namespace {

std::atomic<LogFormat> g_format{LogFormat::Text};

void writeLine(const QByteArray &line)
{
    const QByteArray text = line + '\n';
    std::fwrite(text.constData(), 1, size_t(text.size()), stderr);
    std::fflush(stderr);
}

} // namespace

void setHostLogFormat(LogFormat format)
{
    g_format = format;
}

LogFormat hostLogFormat()
{
    return g_format;
}

void hostLog(const QString &line)
{
    if (g_format == LogFormat::Json)
        return hostLogJson({{QStringLiteral("message"), line}});
    writeLine((QDateTime::currentDateTime().toString(Qt::ISODateWithMs) + QLatin1Char(' ') + line).toUtf8());
}

void hostLogJson(QJsonObject fields)
{
    // With the offset: a collector elsewhere need not guess the host's zone.
    const QDateTime now = QDateTime::currentDateTime();
    fields.insert(QStringLiteral("time"), now.toOffsetFromUtc(now.offsetFromUtc()).toString(Qt::ISODateWithMs));
    writeLine(QJsonDocument(fields).toJson(QJsonDocument::Compact));
}

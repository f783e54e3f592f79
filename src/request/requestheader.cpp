#include "request/requestheader.h"

#include <QUrl>

RequestHeader parseRequestHeader(const QStringList &lines)
{
    RequestHeader header;
    for (const QString &raw : lines) {
        const QString line = raw.simplified();
        // Unanchored searches, first hit wins, the last line of a kind wins.
        if (line.contains(QLatin1String("Pragma:"), Qt::CaseInsensitive) && line.contains(QLatin1String("token")))
            header.token = headerValue(line);
        else if (line.contains(QLatin1String("Content-Type"), Qt::CaseInsensitive))
            header.contentType = headerValue(line);
        else if (line.contains(QLatin1String("Authorization"), Qt::CaseInsensitive)) {
            header.authorization = headerValue(line);
            header.valid = true;
        } else if (line.contains(QLatin1String("X-ZMT-TID"), Qt::CaseInsensitive))
            header.tid = headerValue(line);
        else if (line.contains(QLatin1String("X-ZMT-AID"), Qt::CaseInsensitive))
            header.aid = headerValue(line);
        else if (line.contains(QLatin1String("X-WEBAPI-DEVEL-ENV"), Qt::CaseInsensitive))
            header.develToken = headerValue(line);
    }
    return header;
}

QString headerValue(const QString &line)
{
    // A value ends at the next colon; clients never send one inside a value.
    const QStringList parts = line.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    if (parts.size() < 2)
        return QString();
    return parts.at(1).trimmed();
}

QStringList urlPathWords(const QUrl &url)
{
    QStringList words = url.path(QUrl::FullyDecoded).split(QLatin1Char('/'), Qt::SkipEmptyParts);
    if (!words.isEmpty())
        words.removeFirst();
    return words;
}

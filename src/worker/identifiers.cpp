#include "worker/webapiworker.h"

#include <QDateTime>

// The composite identifier: two numbers of one row as "first.second", padded so that the
// plain form's length is a multiple of 3 and its Base64 needs no pad character.
QString WebApiWorker::encodeId(uint first, uint second)
{
    QString a = QString::number(first);
    QString b = QString::number(second);
    const int r = (a.size() + b.size() + 1) % 3;
    if (r != 0)
        b.prepend(QLatin1Char('0'));
    if (r == 1)
        a.prepend(QLatin1Char('-'));
    return QString::fromLatin1(QStringLiteral("%1.%2").arg(a, b).toLocal8Bit().toBase64());
}

bool WebApiWorker::decodeId(const QString &text, uint &first, uint &second)
{
    first = 0;
    second = 0;
    if (text.isEmpty())
        return false;
    const QByteArray decoded = decodeWebBase64(text.toLocal8Bit());
    const QString plain = QString::fromLatin1(decoded.constData());  // up to the first NUL
    if (plain.isEmpty() || !plain.contains(QLatin1Char('.')))
        return false;
    const QStringList parts = plain.split(QLatin1Char('.'), Qt::SkipEmptyParts);
    if (parts.size() < 2)
        return false;
    first = uint(qAbs(qint64(parts.at(0).toInt(nullptr, 10))));  // the absolute value undoes the filler
    second = parts.at(1).toUInt(nullptr, 10);
    return first != 0 && second != 0;
}

QString WebApiWorker::secsToIsoDateTime(qint64 secs)
{
    return QDateTime::fromSecsSinceEpoch(secs).toString(Qt::ISODate);
}

QString WebApiWorker::secsToIsoDate(qint64 secs)
{
    return QDateTime::fromSecsSinceEpoch(secs).date().toString(Qt::ISODate);
}

qint64 WebApiWorker::isoToSecs(const QString &text)
{
    return QDateTime::fromString(text, Qt::ISODate).toSecsSinceEpoch();
}

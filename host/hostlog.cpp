#include "hostlog.h"

#include <QDateTime>

#include <cstdio>

void hostLog(const QString &line)
{
    const QByteArray text = (QDateTime::currentDateTime().toString(Qt::ISODateWithMs) + QLatin1Char(' ') + line
                             + QLatin1Char('\n')).toUtf8();
    std::fwrite(text.constData(), 1, size_t(text.size()), stderr);
    std::fflush(stderr);
}

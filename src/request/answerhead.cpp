#include "request/answerhead.h"

QString answerHead(int status, const QString &statusName, const QString &contentType, int length,
                   const QMap<QString, QVariant> &headers)
{
    QString head = QStringLiteral("HTTP/1.1 %1 %2\r\nContent-Type: %3; charset=\"utf-8\"\r\nContent-Length: %4\r\n")
                       .arg(status)
                       .arg(statusName, contentType)
                       .arg(length);
    for (auto it = headers.constBegin(); it != headers.constEnd(); ++it)
        head += QStringLiteral("%1: %2\r\n").arg(it.key(), it.value().toString());
    return head;
}

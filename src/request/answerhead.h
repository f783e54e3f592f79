#ifndef ANSWERHEAD_H
#define ANSWERHEAD_H

#include <QMap>
#include <QString>
#include <QVariant>

// The head of an answer in the plug-in's form, without the blank line that ends it: the
// status line, Content-Type with its charset, Content-Length, then `headers` in the order of
// their names. The host renders its own JSON errors through it too, so a client reads both
// alike, to the byte.
QString answerHead(int status, const QString &statusName, const QString &contentType, int length,
                   const QMap<QString, QVariant> &headers);

#endif

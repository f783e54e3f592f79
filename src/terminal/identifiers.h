#ifndef IDENTIFIERS_H
#define IDENTIFIERS_H

#include <QByteArray>
#include <QString>

// The composite identifier of a terminal, person or entrance: two numbers of one row as
// "first.second" in Base64, safe in a URL path. False when `text` holds no two non-zero numbers.
QString encodeId(uint first, uint second);
bool decodeId(const QString &text, uint &first, uint &second);
// What QByteArray::fromBase64(text.toUtf8()) gives, without the copy.
QByteArray decodeBase64(const QString &text);

// Local-time texts of the terminal side.
QString secsToIsoDateTime(qint64 secs);
QString secsToIsoDate(qint64 secs);
qint64 isoToSecs(const QString &text);

#endif

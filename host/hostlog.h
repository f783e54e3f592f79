#ifndef HOSTLOG_H
#define HOSTLOG_H

#include <QJsonObject>
#include <QString>

// The host's lines on stderr: as text with the local time in front, or (log/format=json) one
// JSON object a line with "time" and the line's fields, so a log shipper needs no parser of
// our own. stdio writes each line whole, so lines of several threads do not mix.
enum class LogFormat { Text, Json };
void setHostLogFormat(LogFormat format);
LogFormat hostLogFormat();

// A line of prose: in JSON as {"time", "message"}.
void hostLog(const QString &line);
// A JSON line of fields, "time" added; for callers that have checked the format.
void hostLogJson(QJsonObject fields);

#endif

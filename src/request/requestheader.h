#ifndef REQUESTHEADER_H
#define REQUESTHEADER_H

#include <QString>
#include <QStringList>

class QUrl;

// The parsed header lines of one request; a plain value, copied into the Response and the
// admin context.
struct RequestHeader
{
    QString token;          // customer token from the Pragma line; selects the database
    QString contentType;
    QString authorization;
    QString tid;            // calling terminal's composite identifier, as text
    QString aid;            // administrator's API token; its presence makes an admin request
    bool valid = false;     // an Authorization line was seen
    QString develToken;     // X-WEBAPI-DEVEL-ENV value, as sent
    bool develEnv = false;  // development mode: the customer's vars consented to develToken
    bool prettyJson = true;
    quint8 debugLevel = 0;
};

// The one reading of a request's header lines, shared by the plug-in and the host (which
// needs the customer token before it hands the request on).
RequestHeader parseRequestHeader(const QStringList &lines);
// The value of one header line: what follows the first colon, up to the next one.
QString headerValue(const QString &line);
// The path's words below the interface's own first word (/webapi/people/x -> people, x).
QStringList urlPathWords(const QUrl &url);

#endif

#ifndef REQUESTHEADER_H
#define REQUESTHEADER_H

#include <QString>

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

#endif

#ifndef PLUGINANSWER_H
#define PLUGINANSWER_H

#include <QByteArray>
#include <QString>

// What the host needs to know of a complete answer (the plug-in's or its own): the status of
// its first line and, for an error, the "code" and "message" of its JSON body. Read once per
// answer, for the throttle, the metrics and the access log.
struct PluginAnswer
{
    int status = 0;  // 0: no status line
    int code = 0;    // 0: no error body
    QString message;

    // The plug-in refused a client key or scheme (a guess; a missing licence is none).
    bool refusedKey() const;
    // The token named no customer the InfoDB knows (a guess too).
    bool unknownCustomer() const;
    // A statement failed, or a customer's database that exists could not be opened.
    bool databaseError() const;
};

PluginAnswer readPluginAnswer(const QByteArray &response);

#endif

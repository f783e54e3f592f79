#include "pluginanswer.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

// The plug-in's error codes the host acts on.
const int kBadAuthorization = 100006;  // a refused scheme or key, or a customer without the licence
const int kBadApiToken = 100007;
const int kSqlError = 100501;
const int kBadDatabase = 100503;
// The database message when the token named none.
const QLatin1String kNoDatabase("Database '' not initialized!");

} // namespace

PluginAnswer readPluginAnswer(const QByteArray &response)
{
    PluginAnswer answer;
    // "HTTP/1.1 200 OK": the three digits after the first blank.
    const int blank = response.indexOf(' ');
    if (blank < 0)
        return answer;
    answer.status = response.mid(blank + 1, 3).toInt();
    // Only error bodies are worth parsing; they are small, a success may be a long list.
    if (answer.status < 400)
        return answer;
    const int headEnd = response.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return answer;
    const QJsonObject body = QJsonDocument::fromJson(response.mid(headEnd + 4)).object();
    answer.code = body.value(QLatin1String("code")).toInt();
    answer.message = body.value(QLatin1String("message")).toString();
    return answer;
}

bool PluginAnswer::refusedKey() const
{
    return code == kBadApiToken
        || (code == kBadAuthorization && !message.contains(QLatin1String("REST interface not licensed")));
}

bool PluginAnswer::unknownCustomer() const
{
    return code == kBadDatabase && message == kNoDatabase;
}

bool PluginAnswer::databaseError() const
{
    return code == kSqlError || (code == kBadDatabase && message != kNoDatabase);
}

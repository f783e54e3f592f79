#include "serverresponses.h"

#include "request/answerhead.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

#include <boost/beast/http.hpp>

#include <sstream>

namespace http = boost::beast::http;

namespace {

std::string respond(http::status status, const char *contentType, const std::string &body, bool keepAlive,
                    int retryAfter = 0)
{
    http::response<http::string_body> response{status, 11};
    response.set(http::field::server, "webapi-host");
    if (retryAfter > 0)
        response.set(http::field::retry_after, std::to_string(retryAfter));
    response.set(http::field::content_type, contentType);
    response.keep_alive(keepAlive);
    response.body() = body;
    response.prepare_payload();
    std::ostringstream out;
    out << response;
    return out.str();
}

// The host's own short answers: one line of text.
std::string make(http::status status, const std::string &text, bool keepAlive, int retryAfter = 0)
{
    return respond(status, "text/plain; charset=utf-8", text + "\n", keepAlive, retryAfter);
}

} // namespace

std::string ServerResponses::pluginError(unsigned status, int code, const QString &message, int retryAfter)
{
    const QByteArray json = QJsonDocument(QJsonObject{{QStringLiteral("code"), code}, {QStringLiteral("message"), message}})
                                .toJson(QJsonDocument::Indented);
    QMap<QString, QVariant> headers{{QStringLiteral("X-WEBAPI-TMS"), QDateTime::currentSecsSinceEpoch()}};
    if (retryAfter > 0)
        headers.insert(QStringLiteral("Retry-After"), retryAfter);
    const auto reason = http::obsolete_reason(http::status(status));
    const QString head = answerHead(int(status), QString::fromLatin1(reason.data(), int(reason.size())),
                                    QStringLiteral("application/json"), json.size(), headers);
    return (head.toUtf8() + "\r\n" + json).toStdString();
}

std::string ServerResponses::health(bool infoDbAnswers, bool keepAlive)
{
    return infoDbAnswers ? make(http::status::ok, "ok", keepAlive)
                         : make(http::status::service_unavailable, "InfoDB does not answer", keepAlive);
}

std::string ServerResponses::page(const char *contentType, const std::string &body, bool keepAlive)
{
    return respond(http::status::ok, contentType, body, keepAlive);
}

std::string ServerResponses::notFound(bool keepAlive)
{
    return make(http::status::not_found, "not found", keepAlive);
}

std::string ServerResponses::badRequest()
{
    return make(http::status::bad_request, "bad request", false);
}

std::string ServerResponses::requestTimeout()
{
    return make(http::status::request_timeout, "request not received in time", false);
}

std::string ServerResponses::payloadTooLarge()
{
    return make(http::status::payload_too_large, "request body too large", false);
}

std::string ServerResponses::headersTooLarge()
{
    return make(http::status::request_header_fields_too_large, "request header too large", false);
}

std::string ServerResponses::tooManyRequests(int retryAfter, bool keepAlive)
{
    return make(http::status::too_many_requests, "too many failed authentications; retry later", keepAlive, retryAfter);
}

std::string ServerResponses::invalidToken()
{
    // The token is not repeated: it is someone else's bytes, possibly crafted.
    return pluginError(400, 100102, QStringLiteral("Invalid ID 'token'!"));
}

std::string ServerResponses::busy(int retryAfter)
{
    // No database is named: the request was not looked at.
    return pluginError(503, 100503, QStringLiteral("Database '' not initialized!"), retryAfter);
}

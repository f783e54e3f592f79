#include "requestdecision.h"

#include "apireference.h"
#include "serverresponses.h"

#include "database/dbmanager.h"
#include "request/requestheader.h"

namespace {

Decision answer(std::string response, bool keepAlive)
{
    return {Decision::Answer, std::move(response), keepAlive, QString()};
}

} // namespace

bool HostRoutes::servesPlugin(const std::string &path) const
{
    for (const std::string &prefix : pluginPaths) {
        if (path.compare(0, prefix.size(), prefix) == 0 && (path.size() == prefix.size() || path[prefix.size()] == '/'))
            return true;
    }
    return false;
}

Decision decideRequest(const RequestFacts &request, const HostRoutes &routes, const AuthThrottle &throttle,
                       AuthThrottle::Clock::time_point now)
{
    switch (request.end) {
    case ReadEnd::Whole: break;
    case ReadEnd::BodyTooLarge: return answer(ServerResponses::payloadTooLarge(), false);
    case ReadEnd::HeaderTooLarge: return answer(ServerResponses::headersTooLarge(), false);
    case ReadEnd::Malformed: return answer(ServerResponses::badRequest(), false);
    // The stream has closed the socket already.
    case ReadEnd::TimedOut: return {request.started ? Decision::LogTimeout : Decision::Close, {}, false, {}};
    case ReadEnd::Gone: return {};
    }
    const bool keepAlive = request.keepAlive;
    if (!routes.servesPlugin(request.path)) {
        if (request.method == "GET" && request.path == "/healthz")
            return {Decision::ProbeHealth, {}, keepAlive, {}};
        if (request.method == "GET" && request.path == "/metrics" && routes.metrics)
            return {Decision::Metrics, {}, keepAlive, {}};
        if (request.method == "GET" && request.path == "/docs")
            return answer(ServerResponses::page("text/html; charset=utf-8", ApiReference::page(), keepAlive), keepAlive);
        return answer(ServerResponses::notFound(keepAlive), keepAlive);
    }
    const QString token = parseRequestHeader(request.headerLines).token;
    if (const int wait = throttle.retryAfter(request.client, token.toStdString(), now))
        return answer(ServerResponses::tooManyRequests(wait, keepAlive), keepAlive);
    // A token the InfoDB could read as SQL never reaches a worker.
    if (!DBManager::isValidToken(token))
        return answer(ServerResponses::invalidToken(), keepAlive);
    return {Decision::Plugin, {}, keepAlive, token};
}

#include "requestdecision.h"

#include "apireference.h"
#include "serverresponses.h"

#include "database/dbmanager.h"
#include "request/requestheader.h"

namespace {

Decision make(Decision::Kind kind, bool keepAlive, std::string response = std::string())
{
    Decision decision;
    decision.kind = kind;
    decision.keepAlive = keepAlive;
    decision.answer = std::move(response);
    return decision;
}

Decision answer(std::string response, bool keepAlive)
{
    return make(Decision::Answer, keepAlive, std::move(response));
}

Decision decide(const RequestFacts &request, const HostRoutes &routes, const AuthThrottle &throttle,
                AuthThrottle::Clock::time_point now, const std::string &client)
{
    switch (request.end) {
    case ReadEnd::Whole: break;
    case ReadEnd::BodyTooLarge: return answer(ServerResponses::payloadTooLarge(), false);
    case ReadEnd::HeaderTooLarge: return answer(ServerResponses::headersTooLarge(), false);
    case ReadEnd::Malformed: return answer(ServerResponses::badRequest(), false);
    // The stream has closed the socket already.
    case ReadEnd::TimedOut: return make(request.started ? Decision::LogTimeout : Decision::Close, false);
    case ReadEnd::Gone: return make(Decision::Close, false);
    }
    const bool keepAlive = request.keepAlive;
    if (!routes.servesPlugin(request.path)) {
        if (request.method == "GET" && request.path == "/healthz")
            return make(Decision::ProbeHealth, keepAlive);
        if (request.method == "GET" && request.path == "/metrics" && routes.metrics)
            return make(Decision::Metrics, keepAlive);
        if (request.method == "GET" && request.path == "/docs")
            return answer(ServerResponses::page("text/html; charset=utf-8", ApiReference::page(), keepAlive), keepAlive);
        return answer(ServerResponses::notFound(keepAlive), keepAlive);
    }
    const QString token = parseRequestHeader(request.headerLines).token;
    if (const int wait = throttle.retryAfter(client, token.toStdString(), now))
        return answer(ServerResponses::tooManyRequests(wait, keepAlive), keepAlive);
    // A token the InfoDB could read as SQL never reaches a worker.
    if (!DBManager::isValidToken(token))
        return answer(ServerResponses::invalidToken(), keepAlive);
    Decision decision = make(Decision::Plugin, keepAlive);
    decision.token = token;
    return decision;
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
    const std::string client = routes.proxies.client(request.peer, request.forwardedFor);
    Decision decision = decide(request, routes, throttle, now, client);
    decision.client = client;
    return decision;
}

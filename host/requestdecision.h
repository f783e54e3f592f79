#ifndef REQUESTDECISION_H
#define REQUESTDECISION_H

#include "auththrottle.h"
#include "trustedproxies.h"

#include <QString>
#include <QStringList>

#include <string>
#include <vector>

// How reading a request ended.
enum class ReadEnd { Whole, BodyTooLarge, HeaderTooLarge, Malformed, TimedOut, Gone };

// A request as the socket code read it, as plain values.
struct RequestFacts
{
    ReadEnd end = ReadEnd::Whole;
    bool started = false;  // some of it came: a time-out is worth a log line
    std::string method;
    std::string path;         // the target without its query
    QStringList headerLines;  // "Name: value", as they came
    bool keepAlive = false;
    std::string peer;          // the connection's address
    std::string forwardedFor;  // every X-Forwarded-For line, joined by commas
};

// What the host was set up to serve: the plug-in's paths, the metrics on this port or not,
// and whose X-Forwarded-For to believe.
struct HostRoutes
{
    std::vector<std::string> pluginPaths;  // "/webapi" serves itself and all below it
    bool metrics = false;
    TrustedProxies proxies{QStringList()};

    bool servesPlugin(const std::string &path) const;
};

// Who answers, and with what.
struct Decision
{
    enum Kind {
        Answer,       // `answer`, the host's own whole response
        ProbeHealth,  // the InfoDB's sign of life decides
        Metrics,      // the metrics page as it is now
        Plugin,       // a worker runs it for the customer of `token`
        LogTimeout,   // nothing to answer, but the started request is logged as 408
        Close,        // nothing to answer or log
    };
    Kind kind = Close;
    std::string answer;
    bool keepAlive = false;
    QString token;
    std::string client;  // who asked: the peer, or the client a trusted proxy names
};

// The one place where the host decides about a request; `now` is the throttle's clock.
Decision decideRequest(const RequestFacts &request, const HostRoutes &routes, const AuthThrottle &throttle,
                       AuthThrottle::Clock::time_point now);

#endif

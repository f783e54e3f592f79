#ifndef REQUESTDECISION_H
#define REQUESTDECISION_H

#include "auththrottle.h"

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
    std::string client;  // the address the throttle counts
};

// The paths the plug-in serves, and whether this port also serves the metrics.
struct HostRoutes
{
    std::vector<std::string> pluginPaths;  // "/webapi" serves itself and all below it
    bool metrics = false;

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
};

// The one place where the host decides about a request; `now` is the throttle's clock.
Decision decideRequest(const RequestFacts &request, const HostRoutes &routes, const AuthThrottle &throttle,
                       AuthThrottle::Clock::time_point now);

#endif

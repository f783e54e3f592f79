#ifndef METRICS_H
#define METRICS_H

#include "pluginanswer.h"

#include <QByteArray>

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

// What the host has answered, for GET /metrics in the Prometheus text format 0.0.4. Labels
// come from fixed sets only (documented routes, known methods, statuses), never from the
// request's bytes: no token, key or identifier can reach the output, and the series stay few.
// Shared by the I/O threads.
class Metrics
{
public:
    // Values read when the page is made.
    struct Gauges
    {
        int queueDepth = 0;
        int openConnections = 0;
        int customerConnections = 0;
    };

    // `routes`: the documented paths with placeholders ("/webapi/person/{id}").
    explicit Metrics(std::vector<std::string> routes);

    // One answered request and what its answer said.
    void record(const std::string &method, const std::string &path, const PluginAnswer &answer, double seconds);
    std::string text(const Gauges &gauges) const;

    // The label of a path: the route it matches, one of the host's own paths, or "other".
    std::string route(const std::string &path) const;

private:
    static constexpr std::array<double, 11> kBuckets{0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1, 2.5, 5, 10};
    struct Histogram
    {
        std::array<std::uint64_t, kBuckets.size()> buckets{};  // each counts its own range only
        std::uint64_t count = 0;
        double sum = 0;
    };

    const std::vector<std::string> m_routes;
    mutable std::mutex m_mutex;
    std::map<std::tuple<std::string, std::string, int>, std::uint64_t> m_requests;  // route, method, status
    std::map<std::string, Histogram> m_durations;
    std::uint64_t m_databaseErrors = 0;
    std::uint64_t m_failedAuthentications = 0;
    std::uint64_t m_throttled = 0;
};

#endif

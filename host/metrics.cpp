#include "metrics.h"

#include <algorithm>
#include <sstream>

namespace {

const char *const kOther = "other";
// The host's own paths besides the plug-in's routes.
const char *const kHostPaths[] = {"/healthz", "/docs", "/metrics"};
const char *const kMethods[] = {"GET", "POST", "PUT", "DELETE", "HEAD", "OPTIONS", "PATCH"};

// Whether `path` is `route` with each "{name}" standing for one non-empty segment.
bool matches(const std::string &route, const std::string &path)
{
    std::size_t r = 0;
    std::size_t p = 0;
    while (r < route.size() && p < path.size()) {
        if (route[r] == '{') {
            const std::size_t segmentEnd = path.find('/', p);
            if (segmentEnd == p)
                return false;
            p = segmentEnd == std::string::npos ? path.size() : segmentEnd;
            r = route.find('}', r) + 1;
        } else if (route[r++] != path[p++]) {
            return false;
        }
    }
    return r == route.size() && p == path.size();
}

std::string number(double value)
{
    std::ostringstream out;
    out.precision(12);
    out << value;
    return out.str();
}

} // namespace

Metrics::Metrics(std::vector<std::string> routes)
    : m_routes(std::move(routes))
{
}

std::string Metrics::route(const std::string &path) const
{
    for (const char *own : kHostPaths) {
        if (path == own)
            return own;
    }
    for (const std::string &route : m_routes) {
        if (matches(route, path))
            return route;
    }
    return kOther;
}

void Metrics::record(const std::string &method, const std::string &path, const PluginAnswer &answer, double seconds)
{
    const int status = answer.status;
    const std::string label = route(path);
    const auto known = std::find(std::begin(kMethods), std::end(kMethods), method);
    const std::string methodLabel = known == std::end(kMethods) ? kOther : *known;
    const auto bucket = std::lower_bound(kBuckets.begin(), kBuckets.end(), seconds) - kBuckets.begin();

    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_requests[{label, methodLabel, status}];
    Histogram &histogram = m_durations[label];
    if (std::size_t(bucket) < kBuckets.size())
        ++histogram.buckets[std::size_t(bucket)];
    ++histogram.count;
    histogram.sum += seconds;
    m_databaseErrors += answer.databaseError();
    m_failedAuthentications += answer.refusedKey();
    m_throttled += status == 429;
}

std::string Metrics::text(const Gauges &gauges) const
{
    std::ostringstream out;
    const auto head = [&out](const char *name, const char *type, const char *help) {
        out << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' ' << type << '\n';
    };
    std::lock_guard<std::mutex> lock(m_mutex);
    head("webapi_requests_total", "counter", "Requests answered, by route, method and status.");
    for (const auto &entry : m_requests) {
        out << "webapi_requests_total{route=\"" << std::get<0>(entry.first) << "\",method=\"" << std::get<1>(entry.first)
            << "\",status=\"" << std::get<2>(entry.first) << "\"} " << entry.second << '\n';
    }
    head("webapi_request_duration_seconds", "histogram", "Time from a whole request to its answer written, by route.");
    for (const auto &entry : m_durations) {
        const std::string route = "route=\"" + entry.first + "\"";
        std::uint64_t cumulative = 0;
        for (std::size_t i = 0; i < kBuckets.size(); ++i) {
            cumulative += entry.second.buckets[i];
            out << "webapi_request_duration_seconds_bucket{" << route << ",le=\"" << number(kBuckets[i]) << "\"} "
                << cumulative << '\n';
        }
        out << "webapi_request_duration_seconds_bucket{" << route << ",le=\"+Inf\"} " << entry.second.count << '\n'
            << "webapi_request_duration_seconds_sum{" << route << "} " << number(entry.second.sum) << '\n'
            << "webapi_request_duration_seconds_count{" << route << "} " << entry.second.count << '\n';
    }
    head("webapi_database_errors_total", "counter", "Answers of a failed statement or of a customer database that could not be opened.");
    out << "webapi_database_errors_total " << m_databaseErrors << '\n';
    head("webapi_failed_authentications_total", "counter", "Requests whose client key or scheme was refused.");
    out << "webapi_failed_authentications_total " << m_failedAuthentications << '\n';
    head("webapi_throttled_requests_total", "counter", "Requests refused with 429 after too many failed authentications.");
    out << "webapi_throttled_requests_total " << m_throttled << '\n';
    head("webapi_queue_depth", "gauge", "Requests waiting for a free worker.");
    out << "webapi_queue_depth " << gauges.queueDepth << '\n';
    head("webapi_open_connections", "gauge", "Client connections open.");
    out << "webapi_open_connections " << gauges.openConnections << '\n';
    head("webapi_customer_connections", "gauge", "Customer database connections the worker threads keep.");
    out << "webapi_customer_connections " << gauges.customerConnections << '\n';
    return out.str();
}

#ifndef ACCESSLOG_H
#define ACCESSLOG_H

#include <QByteArray>

#include <boost/beast/core/string.hpp>

#include <cstddef>
#include <string>

// What the host notes of one answered request, for its access line.
struct AccessEntry
{
    std::string client;
    std::string method;
    std::string path;       // without the query: it may carry secrets
    std::string requestId;  // the client's X-Request-Id, or one made for the log
    int status = 0;
    std::size_t bytes = 0;
    double seconds = 0;
};

namespace AccessLog {

const char *const kRequestIdHeader = "X-Request-Id";

// The client's X-Request-Id when it is usable (1 to 128 letters, digits or "-_.:"), so it
// can be echoed and logged as it is; empty otherwise.
std::string clientRequestId(boost::beast::string_view value);
// An id for the log alone, for requests that bring none.
std::string newRequestId();
// `response` (a whole response text) with the header kRequestIdHeader at the end of its head.
QByteArray withRequestId(const QByteArray &response, const std::string &id);

// One line on stderr in the configured format (never credentials: no header is written).
void write(const AccessEntry &entry);

} // namespace AccessLog

#endif

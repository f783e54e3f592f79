// Arbitrary bodies on the body-reading paths of a worker with a real database: the first
// byte picks the route, the second whether the body is JSON or web Base64. The answer must
// always be one whole HTTP response.
#include "fuzzfixture.h"

#include <cstdlib>

namespace {

struct Route
{
    const char *target;
    bool admin;
};

const Route kRoutes[] = {
    {"/webapi/terminal", false}, {"/webapi/person", false}, {"/webapi/entrance", false},
    {"/webapi/attendance/daily", true}, {"/webapi/report/daily/0", true}, {"/webapi/work/monthly", true},
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    FuzzFixture &fx = FuzzFixture::instance();
    const Route &route = kRoutes[data[0] % (sizeof(kRoutes) / sizeof(kRoutes[0]))];
    QList<QByteArray> headers = {"Pragma: $TOKEN", "Authorization: Bearer $KEY", "X-ZMT-TID: $TID",
                                 data[1] & 1 ? "Content-Type: application/json" : "Content-Type: text/plain"};
    if (route.admin)
        headers.append("X-ZMT-AID: api-token-boss");
    const QByteArray body(reinterpret_cast<const char *>(data + 2), int(size - 2));
    const QByteArray response = fx.call("POST", route.target, headers, body);
    if (!response.startsWith("HTTP/1.1 ") || !response.contains("\r\n\r\n"))
        std::abort();
    return 0;
}

// Arbitrary bodies on the body-reading paths of a worker with a real database: the first
// byte picks the route, the second whether the body is JSON or web Base64.
#include "fuzzfixture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // The administrator's routes come last.
    static const char *const kRoutes[] = {"/webapi/terminal", "/webapi/person", "/webapi/entrance",
                                          "/webapi/attendance/daily", "/webapi/report/daily/0", "/webapi/work/monthly"};
    if (size < 2)
        return 0;
    const int route = data[0] % 6;
    QList<QByteArray> headers = {"Pragma: $TOKEN", "Authorization: Bearer $KEY", "X-ZMT-TID: $TID",
                                 data[1] & 1 ? "Content-Type: application/json" : "Content-Type: text/plain"};
    if (route >= 3)
        headers.append("X-ZMT-AID: api-token-boss");
    const QByteArray body(reinterpret_cast<const char *>(data + 2), int(size - 2));
    FuzzFixture::instance().call("POST", kRoutes[route], headers, body);
    return 0;
}

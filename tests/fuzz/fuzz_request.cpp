// Whole requests through buildResponse on a worker with a real database. Input: the method
// on the first line, the target on the second, header lines up to an empty line, then the
// body; FuzzFixture's placeholders stand for the live token, key and identifiers.
#include "fuzzfixture.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzFixture &fx = FuzzFixture::instance();
    const QByteArray raw(reinterpret_cast<const char *>(data), int(size));
    const int headEnd = raw.indexOf("\n\n");
    const QByteArray head = headEnd < 0 ? raw : raw.left(headEnd);
    const QByteArray body = headEnd < 0 ? QByteArray() : raw.mid(headEnd + 2);
    QList<QByteArray> lines = head.split('\n');
    const QByteArray method = lines.isEmpty() ? QByteArray() : lines.takeFirst();
    const QByteArray target = lines.isEmpty() ? QByteArray("/webapi") : lines.takeFirst();
    const QByteArray response = fx.call(method, target, lines, body);
    if (!response.startsWith("HTTP/1.1 ") || !response.contains("\r\n\r\n"))
        std::abort();
    return 0;
}

// Whole requests through buildResponse on a worker with a real database. Input: the method
// on the first line, the target on the second, header lines up to an empty line, then the
// body; FuzzFixture's placeholders stand for the live token, key and identifiers.
#include "fuzzfixture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray raw(reinterpret_cast<const char *>(data), int(size));
    const int headEnd = raw.indexOf("\n\n");
    QList<QByteArray> lines = raw.left(headEnd).split('\n');  // all of it when there is no body
    const QByteArray method = lines.takeFirst();
    const QByteArray target = lines.isEmpty() ? QByteArray("/webapi") : lines.takeFirst();
    FuzzFixture::instance().call(method, target, lines, headEnd < 0 ? QByteArray() : raw.mid(headEnd + 2));
    return 0;
}

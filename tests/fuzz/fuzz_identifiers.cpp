// decodeId and the web Base64 on arbitrary text: no crash, an accepted identifier encodes
// back to the same numbers, and the Base64 round trip is lossless.
#include "terminal/identifiers.h"
#include "worker/webapiworker.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray raw(reinterpret_cast<const char *>(data), int(size));
    for (const QString &text : {QString::fromUtf8(raw), QString::fromLatin1(raw)}) {
        uint first = 0, second = 0, again1 = 0, again2 = 0;
        if (decodeId(text, first, second)
            && (!decodeId(encodeId(first, second), again1, again2) || again1 != first || again2 != second))
            std::abort();
    }
    WebApiWorker::decodeWebBase64(raw);  // arbitrary text: must not crash
    if (WebApiWorker::decodeWebBase64(WebApiWorker::encodeWebBase64(raw)) != raw)
        std::abort();
    return 0;
}

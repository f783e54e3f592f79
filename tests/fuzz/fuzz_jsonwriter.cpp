// JsonWriter against QJsonDocument on arbitrary value trees (see decodeValueTree): any
// difference in the bytes, indented or compact, is a crash.
#include "support/jsonvaluetree.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QVariant tree = decodeValueTree(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    for (const bool indented : {true, false}) {
        const QByteArray written = writtenByJsonWriter(tree, indented);
        const QByteArray expected = writtenByQt(tree, indented);
        if (written != expected) {
            fprintf(stderr, "JsonWriter:\n%s\nQJsonDocument:\n%s\n", written.constData(), expected.constData());
            std::abort();
        }
    }
    return 0;
}

// parseRequestHeader and headerValue on arbitrary header lines: no crash, and a value never holds
// the colon that ends it.
#include "request/requestheader.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), int(size));
    const QStringList lines = text.split(QLatin1Char('\n'));
    const RequestHeader header = parseRequestHeader(lines);
    QStringList values{header.token, header.contentType, header.authorization, header.tid, header.aid};
    for (const QString &line : lines)
        values << headerValue(line);
    if (values.join(QString()).contains(QLatin1Char(':')))
        std::abort();
    return 0;
}

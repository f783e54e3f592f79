#include "accesslog.h"

#include "hostlog.h"

#include <QJsonObject>

#include <random>

namespace {

const std::size_t kRequestIdLimit = 128;

bool isIdCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_'
        || c == '.' || c == ':';
}

QString text(const std::string &value)
{
    return QString::fromUtf8(value.data(), int(value.size()));
}

} // namespace

std::string AccessLog::clientRequestId(boost::beast::string_view value)
{
    if (value.empty() || value.size() > kRequestIdLimit)
        return {};
    for (const char c : value) {
        if (!isIdCharacter(c))
            return {};
    }
    return std::string(value);
}

std::string AccessLog::newRequestId()
{
    // Unique enough to find one request's lines; not a secret.
    thread_local std::mt19937_64 random{std::random_device{}()};
    static const char kHex[] = "0123456789abcdef";
    std::uint64_t bits = random();
    std::string id(16, '0');
    for (char &c : id) {
        c = kHex[bits & 15];
        bits >>= 4;
    }
    return id;
}

QByteArray AccessLog::withRequestId(const QByteArray &response, const std::string &id)
{
    const int headEnd = response.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return response;
    QByteArray out = response;
    return out.insert(headEnd, "\r\n" + QByteArray(kRequestIdHeader) + ": " + QByteArray::fromStdString(id));
}

void AccessLog::write(const AccessEntry &entry)
{
    if (hostLogFormat() == LogFormat::Json) {
        return hostLogJson({{QStringLiteral("client"), text(entry.client)},
                            {QStringLiteral("method"), text(entry.method)},
                            {QStringLiteral("path"), text(entry.path)},
                            {QStringLiteral("status"), entry.status},
                            {QStringLiteral("bytes"), qint64(entry.bytes)},
                            {QStringLiteral("duration_ms"), qRound64(entry.seconds * 1e4) / 10.0},
                            {QStringLiteral("request_id"), text(entry.requestId)}});
    }
    hostLog(QStringLiteral("%1 \"%2 %3\" %4 %5 %6ms")
                .arg(text(entry.client), text(entry.method), text(entry.path))
                .arg(entry.status)
                .arg(entry.bytes)
                .arg(entry.seconds * 1e3, 0, 'f', 1));
}

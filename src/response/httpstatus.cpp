#include "response/httpstatus.h"

#include <QHash>

QString httpStatusName(int status)
{
    static const QHash<int, QString> names = {
        {100, QStringLiteral("Continue")},
        {101, QStringLiteral("Switching Protocols")},
        {102, QStringLiteral("Processing")},
        {200, QStringLiteral("OK")},
        {201, QStringLiteral("Created")},
        {202, QStringLiteral("Accepted")},
        {203, QStringLiteral("Non-authoritative Information")},
        {204, QStringLiteral("No Content")},
        {205, QStringLiteral("Reset Content")},
        {206, QStringLiteral("Partial Content")},
        {207, QStringLiteral("Multi-Status")},
        {208, QStringLiteral("Already Reported")},
        {226, QStringLiteral("IM Used")},
        {300, QStringLiteral("Multiple Choices")},
        {301, QStringLiteral("Moved Permanently")},
        {302, QStringLiteral("Found")},
        {303, QStringLiteral("See Other")},
        {304, QStringLiteral("Not Modified")},
        {305, QStringLiteral("Use Proxy")},
        {307, QStringLiteral("Temporary Redirect")},
        {308, QStringLiteral("Permanent Redirect")},
        {400, QStringLiteral("Bad Request")},
        {401, QStringLiteral("Unauthorized")},
        {402, QStringLiteral("Payment Required")},
        {403, QStringLiteral("Forbidden")},
        {404, QStringLiteral("Not Found")},
        {405, QStringLiteral("Method Not Allowed")},
        {406, QStringLiteral("Not Acceptable")},
        {407, QStringLiteral("Proxy Authentication Required")},
        {408, QStringLiteral("Request Timeout")},
        {409, QStringLiteral("Conflict")},
        {410, QStringLiteral("Gone")},
        {411, QStringLiteral("Length Required")},
        {412, QStringLiteral("Precondition Failed")},
        {413, QStringLiteral("Payload Too Large")},
        {414, QStringLiteral("Request-URI Too Long")},
        {415, QStringLiteral("Unsupported Media Type")},
        {416, QStringLiteral("Requested Range Not Satisfiable")},
        {417, QStringLiteral("Expectation Failed")},
        {418, QStringLiteral("I'm a teapot")},
        {421, QStringLiteral("Misdirected Request")},
        {422, QStringLiteral("Unprocessable Entity")},
        {423, QStringLiteral("Locked")},
        {424, QStringLiteral("Failed Dependency")},
        {426, QStringLiteral("Upgrade Required")},
        {428, QStringLiteral("Precondition Required")},
        {429, QStringLiteral("Too Many Requests")},
        {431, QStringLiteral("Request Header Fields Too Large")},
        {444, QStringLiteral("Connection Closed Without Response")},
        {451, QStringLiteral("Unavailable For Legal Reasons")},
        {499, QStringLiteral("Client Closed Request")},
        {500, QStringLiteral("Internal Server Error")},
        {501, QStringLiteral("Not Implemented")},
        {502, QStringLiteral("Bad Gateway")},
        {503, QStringLiteral("Service Unavailable")},
        {504, QStringLiteral("Gateway Timeout")},
        {505, QStringLiteral("HTTP Version Not Supported")},
        {506, QStringLiteral("Variant Also Negotiates")},
        {507, QStringLiteral("Insufficient Storage")},
        {508, QStringLiteral("Loop Detected")},
        {510, QStringLiteral("Not Extended")},
        {511, QStringLiteral("Network Authentication Required")},
        {599, QStringLiteral("Network Connect Timeout Error")},
    };
    const auto it = names.constFind(status);
    if (it != names.constEnd())
        return *it;
    if (status >= 101 && status <= 199)
        return QStringLiteral("Information");
    if (status >= 201 && status <= 299)
        return QStringLiteral("Success");
    if (status >= 301 && status <= 399)
        return QStringLiteral("Redirect");
    if (status >= 401 && status <= 499)
        return QStringLiteral("Client Error");
    if (status >= 501 && status <= 599)
        return QStringLiteral("Server Error");
    return QStringLiteral("Unknown");
}

#include "hostconfig.h"

#include "settings/envirosettings.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHostAddress>
#include <QThread>
#include <QUrl>

#include <algorithm>

namespace {

struct KeyInfo
{
    const char *key;
    const char *defaultText;
    const char *meaning;
};

// The one list of keys: the loader and --help both read it.
const KeyInfo kKeys[] = {
    {"listen/address", "127.0.0.1", "address to listen on"},
    {"listen/port", "8080", "TCP port; 0 picks a free one (the start line names it)"},
    {"listen/insecure", "false", "true: allow plain HTTP on a non-loopback address (keys travel in clear)"},
    {"threads", "", "worker threads; each takes the next request of any customer (default: CPU count, at least 2)"},
    {"io/threads", "", "threads that read and write connections (default: 1 per 4 workers, at least 1)"},
    {"plugin", nullptr, "path of the plug-in file (default: the installed one beside this host, else the built one)"},
    {"infodb/host", "127.0.0.1", "InfoDB server; customer databases live on the same server"},
    {"infodb/port", "3306", "InfoDB port"},
    {"infodb/name", "infodb", "InfoDB database name"},
    {"infodb/user", "webapi", "InfoDB user"},
    {"infodb/password", "", "InfoDB password"},
    {"zmtdb/host", "", "master database for requests without a token (default: the InfoDB's)"},
    {"zmtdb/port", "", "master database port (default: the InfoDB's)"},
    {"zmtdb/name", "", "master database name; empty: none"},
    {"zmtdb/user", "", "master database user (default: the InfoDB's)"},
    {"zmtdb/password", "", "master database password (default: the InfoDB's)"},
    {"metrics/listen", "on", "GET /metrics: on (beside the API), off, or ADDRESS:PORT to serve it there alone"},
    {"log/format", "text", "text: access lines as text; json: every line one JSON object"},
    {"debug/level", "0", "0 to 3: trace lines of the plug-in and the connection manager"},
    {"limits/body", "16777216", "largest request body in bytes; larger ones get 413"},
    {"limits/timeout", "30", "seconds to receive a whole request or write a response"},
    {"queue/depth", "100", "requests waiting for a free worker; more get 503 with Retry-After"},
    {"queue/deadline", "10", "seconds a request may wait for a worker; later it gets 503 and never runs"},
    {"auth/failures", "10", "failed authentications per client and customer and minute before 429 (0: no limit)"},
    {"proxy/trusted", "", "comma-separated addresses of proxies whose X-Forwarded-For names the client"},
    {"limits/connections", "10000", "open connections in total; more are closed at once"},
    {"limits/client_connections", "256", "open connections per client address (trusted proxies exempt)"},
    {"tls/certificate", "", "PEM certificate chain; with tls/key the host speaks HTTPS only (empty: plain HTTP)"},
    {"tls/key", "", "PEM private key of tls/certificate"},
    {"webhook/url", "", "URL that gets a JSON POST per created record; empty: none"},
};

// An installed or unpacked host (bin/ beside lib/) finds its own plug-in; the build tree's
// is known by its absolute path.
QString defaultPlugin()
{
    const QString installed = QCoreApplication::applicationDirPath() + QStringLiteral("/../" WEBAPI_INSTALLED_PLUGIN);
    return QFileInfo::exists(installed) ? QDir::cleanPath(installed) : QStringLiteral(WEBAPI_DEFAULT_PLUGIN);
}

QString defaultText(const KeyInfo &info)
{
    return info.defaultText ? QString::fromUtf8(info.defaultText) : defaultPlugin();
}

// The database connections' bounds, in seconds; their defaults are those of ConnectionSettings.
struct BoundKey
{
    const char *key;
    int ConnectionSettings::*field;
    int min;
    const char *meaning;
};

const BoundKey kBounds[] = {
    {"sql/timeout/connect", &ConnectionSettings::connectTimeout, 1, "seconds to log in to the database server"},
    {"sql/timeout/read", &ConnectionSettings::readTimeout, 1, "seconds to wait for the server's answer to a statement"},
    {"sql/timeout/write", &ConnectionSettings::writeTimeout, 1, "seconds to send a statement to the server"},
    {"sql/timeout/lock", &ConnectionSettings::lockWait, 1, "seconds a statement waits for a row or table lock"},
    {"sql/timeout/statement", &ConnectionSettings::statementTime, 0, "seconds a statement may run (0: no limit)"},
    {"sql/idle", &ConnectionSettings::idleClose, 1, "seconds a customer connection may stay unused before it is closed"},
    {"infodb/unknowntokens", &ConnectionSettings::unknownTokenCache, 0,
     "seconds an unknown customer token is answered without asking the InfoDB again (0: always ask)"},
};

// The host's whole-number limits: key, range, and the field that takes the value.
struct LimitKey
{
    const char *key;
    qint64 min;
    qint64 max;
    int HostConfig::*field;
};

const LimitKey kLimits[] = {
    {"limits/timeout", 1, 3600, &HostConfig::timeoutSeconds},
    {"queue/depth", 0, 1000000, &HostConfig::queueDepth},
    {"queue/deadline", 1, 3600, &HostConfig::deadlineSeconds},
    {"auth/failures", 0, 1000000, &HostConfig::authFailures},
    {"limits/connections", 1, 1000000, &HostConfig::maxConnections},
    {"limits/client_connections", 1, 1000000, &HostConfig::maxClientConnections},
};

QString text(EnviroSettings &settings, const char *key, const QString &defaultText)
{
    return settings.value(QLatin1String(key), defaultText).toString().trimmed();
}

QString text(EnviroSettings &settings, const char *key)
{
    const auto found = std::find_if(std::begin(kKeys), std::end(kKeys),
                                    [key](const KeyInfo &info) { return qstrcmp(info.key, key) == 0; });
    return text(settings, key, defaultText(*found));
}

bool number(const QString &value, const char *key, qint64 min, qint64 max, qint64 *out, QString *error)
{
    bool ok = false;
    const qint64 n = value.toLongLong(&ok);
    if (!ok || n < min || n > max) {
        *error = QStringLiteral("setting %1 must be a number from %2 to %3, not '%4'").arg(QLatin1String(key)).arg(min).arg(max).arg(value);
        return false;
    }
    *out = n;
    return true;
}

bool number(EnviroSettings &settings, const char *key, qint64 min, qint64 max, qint64 *out, QString *error)
{
    return number(text(settings, key), key, min, max, out, error);
}

} // namespace

bool HostConfig::load(EnviroSettings &settings, HostConfig *config, QString *error)
{
    HostConfig c;
    qint64 n = 0;
    c.address = text(settings, "listen/address");
    if (!number(settings, "listen/port", 0, 65535, &n, error))
        return false;
    c.port = quint16(n);

    const int cpus = std::max(2, QThread::idealThreadCount());
    if (text(settings, "threads").isEmpty())
        c.threads = cpus;
    else if (number(settings, "threads", 1, 256, &n, error))
        c.threads = int(n);
    else
        return false;
    if (text(settings, "io/threads").isEmpty())
        c.ioThreads = std::max(1, c.threads / 4);
    else if (number(settings, "io/threads", 1, 64, &n, error))
        c.ioThreads = int(n);
    else
        return false;

    c.plugin = text(settings, "plugin");
    c.infoDb.host = text(settings, "infodb/host");
    if (!number(settings, "infodb/port", 1, 65535, &n, error))
        return false;
    c.infoDb.port = int(n);
    c.infoDb.name = text(settings, "infodb/name");
    c.infoDb.user = text(settings, "infodb/user");
    c.infoDb.password = text(settings, "infodb/password");

    c.zmtDb = c.infoDb;
    c.zmtDb.name = text(settings, "zmtdb/name");
    if (!text(settings, "zmtdb/host").isEmpty())
        c.zmtDb.host = text(settings, "zmtdb/host");
    if (!text(settings, "zmtdb/port").isEmpty()) {
        if (!number(settings, "zmtdb/port", 1, 65535, &n, error))
            return false;
        c.zmtDb.port = int(n);
    }
    if (!text(settings, "zmtdb/user").isEmpty()) {
        c.zmtDb.user = text(settings, "zmtdb/user");
        c.zmtDb.password = text(settings, "zmtdb/password");
    }

    c.metricsListen = text(settings, "metrics/listen");
    if (c.metricsListen != QLatin1String("on") && c.metricsListen != QLatin1String("off")) {
        const int colon = c.metricsListen.lastIndexOf(QLatin1Char(':'));
        const uint port = c.metricsListen.mid(colon + 1).toUInt();
        if (colon < 1 || QHostAddress(c.metricsListen.left(colon)).isNull() || port == 0 || port > 65535) {
            *error = QStringLiteral("setting metrics/listen must be on, off or ADDRESS:PORT, not '%1'").arg(c.metricsListen);
            return false;
        }
    }
    const QString logFormat = text(settings, "log/format");
    if (logFormat != QLatin1String("text") && logFormat != QLatin1String("json")) {
        *error = QStringLiteral("setting log/format must be text or json, not '%1'").arg(logFormat);
        return false;
    }
    c.logFormat = logFormat == QLatin1String("json") ? LogFormat::Json : LogFormat::Text;
    if (!number(settings, "debug/level", 0, 3, &n, error))
        return false;
    c.debugLevel = quint8(n);
    if (!number(settings, "limits/body", 0, Q_INT64_C(1) << 32, &n, error))
        return false;
    c.bodyLimit = n;
    for (const LimitKey &limit : kLimits) {
        if (!number(settings, limit.key, limit.min, limit.max, &n, error))
            return false;
        c.*limit.field = int(n);
    }
    for (const QString &proxy : text(settings, "proxy/trusted").split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        if (QHostAddress(proxy.trimmed()).isNull()) {
            *error = QStringLiteral("setting proxy/trusted: '%1' is not an IP address").arg(proxy.trimmed());
            return false;
        }
        c.trustedProxies.append(proxy.trimmed());
    }
    c.tlsCertificate = text(settings, "tls/certificate");
    c.tlsKey = text(settings, "tls/key");
    if (c.tlsCertificate.isEmpty() != c.tlsKey.isEmpty()) {
        *error = QStringLiteral("settings tls/certificate and tls/key go together: set both or neither");
        return false;
    }
    const QString insecure = text(settings, "listen/insecure");
    if (insecure != QLatin1String("true") && insecure != QLatin1String("false")) {
        *error = QStringLiteral("setting listen/insecure must be true or false, not '%1'").arg(insecure);
        return false;
    }
    // Keys and tokens travel in headers: in clear only where nobody else can listen.
    if (c.tlsCertificate.isEmpty() && insecure != QLatin1String("true") && !QHostAddress(c.address).isNull()
        && !QHostAddress(c.address).isLoopback()) {
        *error = QStringLiteral("plain HTTP on %1 would send keys in clear: set tls/certificate and tls/key, "
                                "listen on loopback behind a TLS proxy, or set listen/insecure=true").arg(c.address);
        return false;
    }
    for (const BoundKey &bound : kBounds) {
        const QString fallback = QString::number(ConnectionSettings().*bound.field);
        if (!number(text(settings, bound.key, fallback), bound.key, bound.min, 86400, &n, error))
            return false;
        c.connections.*bound.field = int(n);
    }
    c.webhookUrl = text(settings, "webhook/url");
    if (!c.webhookUrl.isEmpty() && !QUrl(c.webhookUrl, QUrl::StrictMode).isValid()) {
        *error = QStringLiteral("setting webhook/url is not a valid URL: '%1'").arg(c.webhookUrl);
        return false;
    }
    *config = c;
    return true;
}

QString HostConfig::helpText(const EnviroSettings &settings)
{
    QString help = QStringLiteral(
        "Usage: webapi-host [--config FILE]\n"
        "\n"
        "Serves the webapi plug-in over HTTP/1.1. Settings come from the INI file given with\n"
        "--config and, for keys the file lacks, from environment variables: the key with the\n"
        "prefix webapi, '/' turned into '_', in capitals (listen/port: WEBAPI_LISTEN_PORT).\n"
        "\n"
        "Keys:\n");
    const auto addLine = [&](const char *keyText, const QString &meaning, const QString &fallback) {
        const QString key = QString::fromLatin1(keyText);
        QString line = QStringLiteral("  %1 %2 %3").arg(key, -25).arg(settings.environmentKey(key), -32).arg(meaning);
        if (!fallback.isEmpty())
            line += QStringLiteral(" [%1]").arg(fallback);
        help += line + QLatin1Char('\n');
    };
    for (const KeyInfo &info : kKeys)
        addLine(info.key, QString::fromUtf8(info.meaning), defaultText(info));
    for (const BoundKey &bound : kBounds)
        addLine(bound.key, QString::fromUtf8(bound.meaning), QString::number(ConnectionSettings().*bound.field));
    help += QStringLiteral(
        "\n"
        "GET /docs is the API reference; GET /metrics the Prometheus metrics (metrics/listen).\n"
        "GET /healthz answers 200 while the InfoDB answers. SIGINT or SIGTERM stop the host:\n"
        "requests running are answered, those waiting get 503. SIGHUP reloads the TLS\n"
        "certificate and key. An InfoDB that does not answer at start is retried. Exit status\n"
        "2: bad settings, or the plug-in or the InfoDB login is unusable.\n");
    return help;
}

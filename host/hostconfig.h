#ifndef HOSTCONFIG_H
#define HOSTCONFIG_H

#include "hostlog.h"
#include "settings/connectionsettings.h"

#include <QString>
#include <QStringList>

class EnviroSettings;

// Where one database lives and how to log in.
struct DbConfig
{
    QString host;
    int port = 3306;
    QString name;
    QString user;
    QString password;
};

// Everything the host reads at start. Every key comes from the optional INI file or, when
// the file lacks it, from the environment (prefix "webapi": listen/port is
// WEBAPI_LISTEN_PORT).
struct HostConfig
{
    QString address;
    quint16 port = 0;
    int threads = 0;         // worker threads, each with one plug-in worker
    int ioThreads = 0;       // threads that parse and write
    QString plugin;
    DbConfig infoDb;
    DbConfig zmtDb;          // master database; name empty: none
    QString metricsListen;   // "on": beside the API; "off"; or "address:port" of its own
    LogFormat logFormat = LogFormat::Text;
    quint8 debugLevel = 0;
    qint64 bodyLimit = 0;    // bytes
    int timeoutSeconds = 0;  // to receive one whole request, and to write one response
    int queueDepth = 0;      // requests waiting for a free worker before 503
    int deadlineSeconds = 0; // a request still waiting this long gets 503 and never runs
    int authFailures = 0;    // per client and customer and minute before 429; 0: unlimited
    QStringList trustedProxies;  // their X-Forwarded-For names the client
    int maxConnections = 0;        // open connections in total
    int maxClientConnections = 0;  // open connections per peer address
    QString tlsCertificate;  // PEM files; both empty: plain HTTP
    QString tlsKey;
    QString webhookUrl;
    ConnectionSettings connections;  // timeouts and bounds of every database connection

    // Reads every key; false with a one-line reason in `error` on a value that is unusable.
    static bool load(EnviroSettings &settings, HostConfig *config, QString *error);
    static QString helpText(const EnviroSettings &settings);
};

#endif

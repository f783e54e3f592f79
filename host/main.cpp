// webapi-host: serves the webapi plug-in over HTTP/1.1, loading it as any host would.
#include "hostconfig.h"
#include "hostlog.h"
#include "httpserver.h"
#include "recordnotifier.h"
#include "workerpool.h"

#include "database/dbmanager.h"
#include "plugin/httpplugininterface.h"
#include "settings/envirosettings.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QHostAddress>
#include <QPluginLoader>
#include <QSqlError>
#include <QTimer>

#include <atomic>
#include <cstdio>
#include <memory>

namespace {

const char *const kInfoConnection = "QHX.InfoDB";
const char *const kZmtConnection = "QHX.ZMTDB";
const int kWebhookGraceMs = 5000;

std::atomic<bool> g_debugLines{false};

// Trace lines only when a debug level asks for them; warnings and worse always.
void messageHandler(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtDebugMsg && !g_debugLines)
        return;
    hostLog(message);
}

int fail(const QString &line)
{
    std::fprintf(stderr, "webapi-host: %s\n", qUtf8Printable(line));
    return 2;
}

QSqlDatabase addDatabase(const QString &connection, const DbConfig &config, const ConnectionSettings &bounds)
{
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QMYSQL"), connection);
    db.setHostName(config.host);
    db.setPort(config.port);
    db.setDatabaseName(config.name);
    db.setUserName(config.user);
    db.setPassword(config.password);
    db.setConnectOptions(bounds.connectOptions(QStringLiteral("MYSQL_OPT_RECONNECT=1")));
    return db;
}

// The plug-in instance, or null with the reason in `error`.
HttpPluginInterface *loadPlugin(QPluginLoader &loader, QString *error)
{
    if (!QFileInfo(loader.fileName()).isFile() && !QFileInfo::exists(loader.fileName())) {
        *error = QStringLiteral("plug-in %1 does not exist (setting plugin)").arg(loader.fileName());
        return nullptr;
    }
    QObject *instance = loader.instance();
    if (!instance) {
        *error = QStringLiteral("cannot load plug-in %1: %2").arg(loader.fileName(), loader.errorString());
        return nullptr;
    }
    auto *plugin = qobject_cast<HttpPluginInterface *>(instance);
    if (!plugin)
        *error = QStringLiteral("%1 is not an HTTP plug-in (no %2 interface)").arg(loader.fileName(), QStringLiteral(HttpPluginInterface_iid));
    return plugin;
}

// Arguments: --help, --config FILE. False with the reason in `error`.
bool parseArguments(const QStringList &args, QString *configFile, bool *help, QString *error)
{
    for (int i = 1; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--help") || args[i] == QLatin1String("-h")) {
            *help = true;
        } else if (args[i] == QLatin1String("--config") && i + 1 < args.size()) {
            *configFile = args[++i];
        } else if (args[i].startsWith(QLatin1String("--config="))) {
            *configFile = args[i].mid(9);
        } else {
            *error = QStringLiteral("unknown argument '%1' (see --help)").arg(args[i]);
            return false;
        }
    }
    if (!configFile->isEmpty() && !QFileInfo(*configFile).isReadable()) {
        *error = QStringLiteral("configuration file %1 cannot be read").arg(*configFile);
        return false;
    }
    return true;
}

int serve(QCoreApplication &app, const HostConfig &config)
{
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QMYSQL")))
        return fail(QStringLiteral("the Qt MySQL driver (QMYSQL) is not installed"));
    QPluginLoader loader(config.plugin);
    QString error;
    HttpPluginInterface *plugin = loadPlugin(loader, &error);
    if (!plugin)
        return fail(error);

    QSqlDatabase infoDb = addDatabase(QLatin1String(kInfoConnection), config.infoDb, config.connections);
    if (!infoDb.open())
        return fail(QStringLiteral("cannot reach the InfoDB %1 on %2:%3: %4")
                        .arg(config.infoDb.name, config.infoDb.host).arg(config.infoDb.port)
                        .arg(infoDb.lastError().text()));
    DBManager manager;
    manager.setDebugLevel(config.debugLevel);
    manager.setConnectionSettings(config.connections);
    manager.setInfoDB(infoDb);
    if (!config.zmtDb.name.isEmpty())
        manager.setZmtDB(addDatabase(QLatin1String(kZmtConnection), config.zmtDb, config.connections));
    // Workers keep their connections and close idle ones themselves; nobody sweeps that list.
    manager.setUnusedConnectionsEnabled(false);

    RecordNotifier notifier(QUrl(config.webhookUrl));
    QObject::connect(loader.instance(), SIGNAL(recordCreated(QString,uint,QString,quint8)),
                     &notifier, SLOT(recordCreated(QString,uint,QString,quint8)));

    WorkerPool pool(plugin, &manager, config.debugLevel);
    pool.start(config.threads, config.queueDepth, infoDb);
    HttpServer server(config, pool, plugin->paths());
    if (!server.listen(&error)) {
        pool.stop();
        return fail(error);
    }
    server.start([&app, &notifier] {
        QMetaObject::invokeMethod(&app, [&app, &notifier] {
            // Give webhook deliveries in progress a moment before leaving.
            if (notifier.pending() == 0)
                return app.quit();
            QObject::connect(&notifier, &RecordNotifier::idle, &app, &QCoreApplication::quit);
            QTimer::singleShot(kWebhookGraceMs, &app, &QCoreApplication::quit);
        }, Qt::QueuedConnection);
    });
    hostLog(QStringLiteral("webapi-host: plug-in %1 version %2, %3 workers, %4 I/O threads, listening on %5")
                .arg(config.plugin, plugin->getVersion()).arg(config.threads).arg(config.ioThreads)
                .arg(QString::fromUtf8(server.baseUrl())));
    if (!server.tlsContext() && !QHostAddress(config.address).isLoopback())
        hostLog(QStringLiteral("webapi-host: plain HTTP on a non-loopback address: keys travel in clear; "
                               "set tls/certificate and tls/key or put a TLS proxy in front"));
    app.exec();
    server.join();
    pool.stop();
    hostLog(QStringLiteral("webapi-host: stopped"));
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    qInstallMessageHandler(messageHandler);
    QCoreApplication app(argc, argv);
    QString configFile;
    QString error;
    bool help = false;
    if (!parseArguments(app.arguments(), &configFile, &help, &error))
        return fail(error);

    EnviroSettings settings(configFile, QSettings::IniFormat);
    settings.setPrefix(QStringLiteral("webapi"));
    if (help) {
        std::fputs(qUtf8Printable(HostConfig::helpText(settings)), stdout);
        return 0;
    }
    if (settings.status() != QSettings::NoError)
        return fail(QStringLiteral("configuration file %1 is not a valid INI file").arg(configFile));
    HostConfig config;
    if (!HostConfig::load(settings, &config, &error))
        return fail(error);
    g_debugLines = config.debugLevel > 0;

    const int status = serve(app, config);
    for (const char *name : {kInfoConnection, kZmtConnection})
        QSqlDatabase::removeDatabase(QLatin1String(name));
    return status;
}

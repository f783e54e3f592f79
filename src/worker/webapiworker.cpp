#include "worker/webapiworker.h"

#include "controllers/admincontextrouter.h"
#include "database/dbmanager.h"
#include "licence/licence.h"
#include "response/response.h"
#include "terminal/terminalrouter.h"

#include <QMetaEnum>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrlQuery>
#include <QtDebug>

#include <algorithm>

WebApiWorker::WebApiWorker(const QString &version, QObject *parent)
    : HttpPluginWorker(parent)
    , m_version(version)
{
    connect(&m_idleTimer, &QTimer::timeout, this, &WebApiWorker::closeIdleConnections);
}

WebApiWorker::~WebApiWorker()
{
    // The response goes first; no copy of a connection may outlive its removal.
    m_response.reset();
    m_db = QSqlDatabase();
}

bool WebApiWorker::isReady()
{
    return true;
}

void WebApiWorker::selectContext(const QString &method, const QString &firstWord)
{
    if (method == QLatin1String("GET") && TerminalRoutes::shipped().terminalOnlyPaths.contains(firstWord))
        m_contextType = TerminalContext;
    else if (!m_header.aid.isEmpty())
        m_contextType = AdminContext;
    else
        m_contextType = TerminalContext;
}

QByteArray WebApiWorker::buildResponse(const QString &method, const QUrl &url, const QStringList &headers,
                                       const QByteArray &body)
{
    if (m_debugLevel == 1) {
        qDebug("WebApiWorker::buildResponse()");
    } else if (m_debugLevel >= 2) {
        qDebug() << "WebApiWorker::buildResponse(" << method << url.toString() << headers.size() << body.size()
                 << ")";
        qDebug() << "WebApiWorker: URL path:" << url.path(QUrl::FullyDecoded)
                 << " query:" << QUrlQuery(url).query();
    }

    const QStringList words = urlPathWords(url);
    m_header = parseRequestHeader(headers);
    m_header.debugLevel = m_debugLevel;
    const QString firstWord = words.isEmpty() ? QString() : words.first();
    selectContext(method, firstWord);

    m_response.reset(new Response(m_header));
    m_response->setHeader(QStringLiteral("X-WEBAPI-VER"), m_version);

    if (!m_header.valid)
        return m_response->renderError(Response::RE_Unauthorized);

    if (m_debugLevel >= 2)
        qDebug() << "WebApiWorker: pathParts:" << words.join(QStringLiteral(" | "));

    // An open handle may still have lost its server; the licence rows are the first statement,
    // and when they cannot be read the database is as good as missing.
    if (!initDatabase() || !loadLicence())
        return m_response->renderError(Response::RE_BadDatabase, m_db.databaseName());
    // Only the customer's rows can say yes, so everything before them runs without it.
    m_header.develEnv = m_licence.developmentAllowed(m_header.develToken);
    m_response->setDevelopment(m_header.develEnv);
    if (m_header.develEnv) {
        QVariantMap request;
        request.insert(QStringLiteral("method"), method);
        request.insert(QStringLiteral("path"), words.join(QLatin1Char('/')));
        m_response->setDebugValue(QStringLiteral("buildResponse"), request);
    }
    if (!checkWebApiEnabled(firstWord))
        return m_response->renderError(Response::RE_BadAuthorization, Licence::notLicensedText());
    if (!checkAuth(m_header.authorization))
        return m_response->renderResponse(true);

    QByteArray data;
    if (!body.isEmpty())
        data = m_header.contentType.contains(QLatin1String("/json")) ? body : decodeWebBase64(body);

    switch (m_contextType) {
    case TerminalContext:
        routeInTerminalContext(method, words, data);
        break;
    case AdminContext:
        routeInAdminContext(method, url, data);
        break;
    default:
        m_response->setError(Response::RE_UnimplementedApiContext,
                             QString::fromLatin1(QMetaEnum::fromType<ContextType>().valueToKey(m_contextType)));
        break;
    }
    return m_response->renderResponse(true);
}

bool WebApiWorker::checkWebApiEnabled(const QString &firstWord)
{
    Q_UNUSED(firstWord)  // the licence covers the whole interface, not single endpoints
    return m_licence.webApiEnabled();
}

bool WebApiWorker::checkAuth(const QString &authorization)
{
    // A scoped key serves its own context only.
    const Licence::Auth auth = m_licence.checkAuth(
        authorization, m_contextType == AdminContext ? Licence::Scope::Admin : Licence::Scope::Terminal);
    if (auth.outcome == Licence::Auth::Accepted)
        return true;
    m_response->setError(auth.outcome == Licence::Auth::BadScheme ? Response::RE_BadAuthorization
                                                                   : Response::RE_BadApiToken,
                         auth.shown);
    return false;
}

bool WebApiWorker::initDatabase()
{
    if (m_debugLevel >= 2)
        qDebug("WebApiWorker::initDatabase()");
    m_reusedConnection = false;
    if (!m_dbManager) {
        if (m_header.token.isEmpty())
            qWarning("WebApiWorker: Database manager NOT initialized!");
        return false;
    }
    const ConnectionSettings settings = connectionSettings();
    m_connections.closeIdle(settings.idleClose, m_db);
    // The manager's handle is only a template: the worker logs in on a clone of its own, once,
    // and keeps it open for the next requests.
    setDatabase(m_dbManager->getDatabase(m_header.token));
    if (!m_db.isValid())
        return false;
    m_reusedConnection = m_db.isOpen();
    if (!m_reusedConnection) {
        m_dbOpened = m_connections.open(m_db, settings);
        if (!m_dbOpened)
            qCritical() << "WebApiWorker::initDatabase() - SQL ERROR:" << m_db.lastError().text();
    }
    m_connections.touch(m_db);
    const int sweep = std::max(500, settings.idleClose * 500);
    if (!m_idleTimer.isActive() || m_idleTimer.interval() != sweep)
        m_idleTimer.start(sweep);
    return m_db.isOpen();
}

bool WebApiWorker::loadLicence()
{
    if (m_licence.load(m_db))
        return true;
    // A statement that still runs means the connection works and the failure was the
    // statement's own (a lock wait, say): no second try.
    if (!m_reusedConnection || QSqlQuery(m_db).exec(QStringLiteral("DO 0")))
        return false;
    m_dbOpened = m_connections.open(m_db, connectionSettings());
    return m_dbOpened && m_licence.load(m_db);
}

void WebApiWorker::setDatabase(const QSqlDatabase &db)
{
    if (m_debugLevel >= 2)
        qDebug() << "WebApiWorker::setDatabase(" << db.databaseName() << ")";
    m_db = m_connections.connectionFor(db, connectionSettings());
}

ConnectionSettings WebApiWorker::connectionSettings() const
{
    return m_dbManager ? m_dbManager->connectionSettings() : ConnectionSettings();
}

void WebApiWorker::closeIdleConnections()
{
    m_connections.closeIdle(connectionSettings().idleClose, m_db);
    if (m_connections.isEmpty())
        m_idleTimer.stop();
}

void WebApiWorker::routeInTerminalContext(const QString &method, const QStringList &words, const QByteArray &body)
{
    TerminalRequestContext ctx;
    ctx.header = m_header;
    ctx.db = m_db;
    ctx.response = m_response.data();
    ctx.licence = &m_licence;
    ctx.version = m_version;
    ctx.statements = m_connections.statements(m_db);
    // The host processes the photo of a new entrance further.
    const uint photoEntrance = TerminalRouter().route(ctx, method, words, body);
    if (photoEntrance != 0)
        emit recordCreated(QStringLiteral("inters_data"), photoEntrance, m_header.token, 1);
}

void WebApiWorker::routeInAdminContext(const QString &method, const QUrl &url, const QByteArray &body)
{
    if (m_debugLevel != 0)
        qDebug() << "WebApiWorker::routeInAdminContext(" << method << ")";
    AdminRequestContext ctx;
    ctx.header = m_header;
    ctx.method = method;
    ctx.url = url;
    ctx.data = QByteArray(body.constData());  // up to the first NUL, on purpose
    ctx.response = m_response.data();
    ctx.db = m_db;
    routeAdminRequest(ctx);
}

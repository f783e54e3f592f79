#include "httpserver.h"

#include "hostlog.h"
#include "apireference.h"
#include "listener.h"
#include "metricslistener.h"
#include "serverresponses.h"
#include "session.h"
#include "workerpool.h"

#include "database/dbmanager.h"

#include <csignal>

namespace net = boost::asio;

namespace {

// A request stuck in the database must not keep the process alive for ever.
const std::chrono::seconds kStopDeadline(30);

} // namespace

HttpServer::HttpServer(const HostConfig &config, WorkerPool &pool, const QStringList &pluginPaths)
    : m_config(config)
    , m_pool(pool)
    , m_throttle(config.authFailures)
    , m_metrics(ApiReference::routes())
    , m_ioc(config.ioThreads)
    , m_signals(m_ioc, SIGINT, SIGTERM)
    , m_hangup(m_ioc, SIGHUP)
    , m_deadline(m_ioc)
{
    for (const QString &path : pluginPaths)
        m_routes.pluginPaths.push_back(path.toStdString());
    m_routes.proxies = TrustedProxies(config.trustedProxies);
    m_routes.metrics = config.metricsListen == QLatin1String("on");
}

HttpServer::~HttpServer()
{
    join();
}

bool HttpServer::listen(QString *error)
{
    boost::beast::error_code ec;
    const auto address = net::ip::make_address(m_config.address.toStdString(), ec);
    if (ec) {
        *error = QStringLiteral("listen/address '%1' is not an IP address").arg(m_config.address);
        return false;
    }
    if (!m_config.tlsCertificate.isEmpty()) {
        m_tls = std::make_unique<TlsContext>(m_config.tlsCertificate, m_config.tlsKey);
        if (!m_tls->load(error))
            return false;
    }
    m_listener = std::make_shared<Listener>(m_ioc, *this);
    if (!m_listener->open({address, m_config.port}, ec)) {
        *error = QStringLiteral("cannot listen on %1:%2: %3").arg(m_config.address).arg(m_config.port)
                     .arg(QString::fromStdString(ec.message()));
        return false;
    }
    m_baseUrl = QStringLiteral("%1://%2:%3").arg(QLatin1String(m_tls ? "https" : "http"), m_config.address).arg(port()).toUtf8();
    return listenForMetrics(error);
}

bool HttpServer::listenForMetrics(QString *error)
{
    if (m_config.metricsListen == QLatin1String("on") || m_config.metricsListen == QLatin1String("off"))
        return true;
    const int colon = m_config.metricsListen.lastIndexOf(QLatin1Char(':'));
    boost::beast::error_code ec;
    const auto address = net::ip::make_address(m_config.metricsListen.left(colon).toStdString(), ec);
    m_metricsListener = std::make_shared<MetricsListener>(m_ioc, [this] { return metricsPage(false); });
    if (ec || !m_metricsListener->open({address, m_config.metricsListen.mid(colon + 1).toUShort()}, ec)) {
        *error = QStringLiteral("cannot listen on %1 (setting metrics/listen): %2")
                     .arg(m_config.metricsListen, QString::fromStdString(ec.message()));
        return false;
    }
    return true;
}

std::string HttpServer::metricsPage(bool keepAlive)
{
    Metrics::Gauges gauges;
    gauges.queueDepth = m_pool.queued();
    gauges.customerConnections = DBManager::customerConnectionCount();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        gauges.openConnections = int(m_sessions.size());
    }
    return ServerResponses::page("text/plain; version=0.0.4; charset=utf-8", m_metrics.text(gauges), keepAlive);
}

unsigned short HttpServer::port() const
{
    return m_listener ? m_listener->port() : 0;
}

void HttpServer::start(std::function<void()> stopped)
{
    m_stopped = std::move(stopped);
    m_work.emplace(m_ioc.get_executor());
    m_signals.async_wait([this](const boost::system::error_code &ec, int signal) {
        if (ec)
            return;
        hostLog(QStringLiteral("signal %1: stopping after the requests in flight").arg(signal));
        beginStop();
    });
    awaitHangup();
    m_listener->run();
    if (m_metricsListener)
        m_metricsListener->run();
    for (int i = 0; i < m_config.ioThreads; ++i)
        m_threads.emplace_back([this] { m_ioc.run(); });
}

void HttpServer::awaitHangup()
{
    m_hangup.async_wait([this](const boost::system::error_code &ec, int) {
        if (ec)
            return;
        if (m_tls)
            m_tls->reload();
        else
            hostLog(QStringLiteral("SIGHUP: plain HTTP, no certificate to reload"));
        awaitHangup();
    });
}

void HttpServer::join()
{
    m_work.reset();
    m_ioc.stop();
    for (std::thread &thread : m_threads)
        thread.join();
    m_threads.clear();
}

void HttpServer::addSession(const std::shared_ptr<Session> &session)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sessions.emplace(session.get(), session);
}

void HttpServer::removeSession(Session *session)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_sessions.erase(session);
    }
    if (m_stopping)
        finishIfDone();
}

void HttpServer::beginStop()
{
    m_stopping = true;
    m_listener->stop();
    if (m_metricsListener)
        m_metricsListener->stop();
    // Before the sessions hear of the stop: what waits for a worker is theirs to answer.
    m_pool.close();
    std::vector<std::shared_ptr<Session>> sessions;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto &entry : m_sessions) {
            if (auto session = entry.second.lock())
                sessions.push_back(session);
        }
    }
    for (const auto &session : sessions)
        session->stopIfIdle();
    sessions.clear();
    m_deadline.expires_after(kStopDeadline);
    m_deadline.async_wait([this](const boost::system::error_code &ec) {
        if (ec)
            return;
        hostLog(QStringLiteral("stop deadline passed with requests still open"));
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_sessions.clear();
        }
        finishIfDone();
    });
    finishIfDone();
}

void HttpServer::finishIfDone()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_sessions.empty() || m_stoppedCalled)
            return;
        m_stoppedCalled = true;
    }
    m_deadline.cancel();
    if (m_stopped)
        m_stopped();
}

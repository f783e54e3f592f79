#ifndef HTTPSERVER_H
#define HTTPSERVER_H

#include "auththrottle.h"
#include "hostconfig.h"
#include "metrics.h"
#include "requestdecision.h"
#include "tlscontext.h"
#include "trustedproxies.h"

#include <QByteArray>
#include <QStringList>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

class Listener;
class MetricsListener;
class Session;
class WorkerPool;

// The I/O side of the host: the listener, the sessions (plain or TLS), the throttle of failed
// authentications, the I/O threads, the graceful stop on SIGINT/SIGTERM (no new
// connections, requests in flight answered, then `stopped`) and the TLS reload on SIGHUP.
class HttpServer
{
public:
    HttpServer(const HostConfig &config, WorkerPool &pool, const QStringList &pluginPaths);
    ~HttpServer();

    bool listen(QString *error);
    unsigned short port() const;
    // Runs the I/O threads; `stopped` is called once, on some I/O thread, when a stop has
    // finished (or its deadline has passed).
    void start(std::function<void()> stopped);
    void join();

    const HostConfig &config() const { return m_config; }
    WorkerPool &pool() { return m_pool; }
    bool stopping() const { return m_stopping; }
    const HostRoutes &routes() const { return m_routes; }
    const QByteArray &baseUrl() const { return m_baseUrl; }
    AuthThrottle &throttle() { return m_throttle; }
    const AuthThrottle &throttle() const { return m_throttle; }
    Metrics &metrics() { return m_metrics; }
    // The whole answer to GET /metrics.
    std::string metricsPage(bool keepAlive);
    const TrustedProxies &proxies() const { return m_routes.proxies; }
    // The certificate and key of tls/*; null when the host speaks plain HTTP.
    TlsContext *tls() const { return m_tls.get(); }

    void addSession(const std::shared_ptr<Session> &session);
    void removeSession(Session *session);

private:
    void beginStop();
    void finishIfDone();
    void awaitHangup();
    bool listenForMetrics(QString *error);

    const HostConfig m_config;
    WorkerPool &m_pool;
    HostRoutes m_routes;
    QByteArray m_baseUrl;
    std::function<void()> m_stopped;
    AuthThrottle m_throttle;
    std::unique_ptr<TlsContext> m_tls;
    Metrics m_metrics;

    // Declared before the io_context: handlers it destroys may still end sessions.
    std::mutex m_mutex;
    std::unordered_map<Session *, std::weak_ptr<Session>> m_sessions;
    bool m_stoppedCalled = false;
    std::atomic<bool> m_stopping{false};

    boost::asio::io_context m_ioc;
    std::optional<boost::asio::executor_work_guard<boost::asio::io_context::executor_type>> m_work;
    boost::asio::signal_set m_signals;
    boost::asio::signal_set m_hangup;
    boost::asio::steady_timer m_deadline;
    std::shared_ptr<Listener> m_listener;
    std::shared_ptr<MetricsListener> m_metricsListener;  // metrics/listen=ADDRESS:PORT
    std::vector<std::thread> m_threads;
};

#endif

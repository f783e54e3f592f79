#ifndef METRICSLISTENER_H
#define METRICSLISTENER_H

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/error.hpp>

#include <functional>
#include <memory>
#include <string>

// GET /metrics alone on an address of its own (metrics/listen=ADDRESS:PORT), so a scraper on
// an internal network need not reach the API's port: plain HTTP, one request a connection.
class MetricsListener : public std::enable_shared_from_this<MetricsListener>
{
public:
    // `page` makes the whole response for a request to /metrics.
    MetricsListener(boost::asio::io_context &ioc, std::function<std::string()> page);

    bool open(const boost::asio::ip::tcp::endpoint &endpoint, boost::beast::error_code &ec);
    void run();
    void stop();

private:
    void accept();

    boost::asio::io_context &m_ioc;
    boost::asio::ip::tcp::acceptor m_acceptor;
    boost::asio::steady_timer m_pause;
    std::function<std::string()> m_page;
};

#endif

#ifndef LISTENER_H
#define LISTENER_H

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/error.hpp>

#include <chrono>
#include <memory>
#include <string>

class HttpServer;

// Opens, binds and listens; false with the reason in `ec`.
bool openAcceptor(boost::asio::ip::tcp::acceptor &acceptor, const boost::asio::ip::tcp::endpoint &endpoint,
                  boost::beast::error_code &ec);

// Accepts connections and gives each a Session on a strand of its own, within the caps of
// open connections in total and per client address. Out of file descriptors it pauses
// instead of retrying at once, which would only spin.
class Listener : public std::enable_shared_from_this<Listener>
{
public:
    // After a failed accept (a full descriptor table): long enough that it costs nothing,
    // short enough that a client whose connection waits in the backlog hardly notices.
    static constexpr std::chrono::milliseconds kAcceptPause{100};

    Listener(boost::asio::io_context &ioc, HttpServer &server);

    bool open(const boost::asio::ip::tcp::endpoint &endpoint, boost::beast::error_code &ec);
    unsigned short port() const;
    void run();
    void stop();

private:
    struct Counts;

    void accept();
    void onAccept(boost::beast::error_code ec, boost::asio::ip::tcp::socket socket);
    void pause(const boost::beast::error_code &ec);
    void startSession(boost::asio::ip::tcp::socket socket);

    boost::asio::io_context &m_ioc;
    boost::asio::ip::tcp::acceptor m_acceptor;
    boost::asio::steady_timer m_pause;
    HttpServer &m_server;
    // Shared with the sessions, which give their place back when they end.
    std::shared_ptr<Counts> m_counts;
    int m_failedAccepts = 0;  // since the last accepted connection
    bool m_capLogged = false;
};

#endif

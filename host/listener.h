#ifndef LISTENER_H
#define LISTENER_H

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/error.hpp>

#include <memory>

class HttpServer;

// Accepts connections and gives each a Session on a strand of its own.
class Listener : public std::enable_shared_from_this<Listener>
{
public:
    Listener(boost::asio::io_context &ioc, HttpServer &server);

    bool open(const boost::asio::ip::tcp::endpoint &endpoint, boost::beast::error_code &ec);
    unsigned short port() const;
    void run();
    void stop();

private:
    void accept();
    void onAccept(boost::beast::error_code ec, boost::asio::ip::tcp::socket socket);

    boost::asio::io_context &m_ioc;
    boost::asio::ip::tcp::acceptor m_acceptor;
    HttpServer &m_server;
};

#endif

#ifndef SESSION_H
#define SESSION_H

#include <QByteArray>
#include <QElapsedTimer>

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include <memory>
#include <optional>
#include <string>

class HttpServer;

// One client connection: reads a request, has it answered, writes the answer, and reads the
// next while the client keeps the connection alive. One request at a time, so pipelined
// requests are answered in order from the same buffer.
class Session : public std::enable_shared_from_this<Session>
{
public:
    Session(boost::asio::ip::tcp::socket &&socket, HttpServer &server);
    ~Session();

    void run();
    // At a graceful stop: a connection waiting for a request is closed; one with a request
    // in flight finishes it first.
    void stopIfIdle();

private:
    using Request = boost::beast::http::request<boost::beast::http::string_body>;

    void readRequest();
    void onRead(boost::beast::error_code ec, std::size_t bytes);
    void failedRead(const boost::beast::error_code &ec);
    void handleRequest();
    void dispatchToPlugin(const Request &request);
    void probeHealth(bool keepAlive);
    void answer(QByteArray response, bool keepAlive);
    void onWrite(bool keepAlive, boost::beast::error_code ec, std::size_t bytes);
    void drainAndClose();
    void onDrain(boost::beast::error_code ec, std::size_t bytes);
    void logAccess(std::size_t bytes) const;

    boost::beast::tcp_stream m_stream;
    boost::beast::flat_buffer m_buffer;
    std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> m_parser;
    HttpServer &m_server;
    std::string m_client;
    bool m_reading = false;

    // Of the request being answered, for the access log.
    std::string m_method;
    std::string m_path;
    QByteArray m_out;
    QElapsedTimer m_clock;
};

#endif

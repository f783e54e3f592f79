#ifndef HTTPSESSION_H
#define HTTPSESSION_H

#include "pluginanswer.h"
#include "requestdecision.h"
#include "session.h"

#include <QByteArray>
#include <QElapsedTimer>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>

class HttpServer;

using PlainStream = boost::beast::tcp_stream;
using TlsStream = boost::beast::ssl_stream<boost::beast::tcp_stream>;

// One client connection: reads a request, has it answered, writes the answer, and reads the
// next while the client keeps the connection alive. One request at a time, so pipelined
// requests are answered in order from the same buffer. The same code serves plain TCP and
// TLS; only the handshake and the close differ.
template <class Stream>
class HttpSession : public Session, public std::enable_shared_from_this<HttpSession<Stream>>
{
public:
    // `streamArgs` follow the socket into the stream: nothing for plain TCP, the context for TLS.
    template <class... StreamArgs>
    HttpSession(HttpServer &server, boost::asio::ip::tcp::socket &&socket, StreamArgs &&...streamArgs)
        : m_peer(clientAddress(socket))
        , m_client(m_peer)
        , m_stream(std::move(socket), std::forward<StreamArgs>(streamArgs)...)
        , m_server(server)
        , m_deadline(m_stream.get_executor())
    {
    }
    ~HttpSession() override;

    void run();
    void stopIfIdle() override;

private:
    using Request = boost::beast::http::request<boost::beast::http::string_body>;
    static constexpr bool kTls = !std::is_same<Stream, PlainStream>::value;

    void onHandshake(boost::beast::error_code ec);
    void readRequest();
    void onHeader(boost::beast::error_code ec, std::size_t bytes);
    void onRead(boost::beast::error_code ec, std::size_t bytes);
    void failedRead(const boost::beast::error_code &ec);
    void handleRequest();
    // Does what the decision says; `request` is null when none was read whole.
    void act(const Decision &decision, const RequestFacts &facts, const Request *request);
    void dispatchToPlugin(const Request &request, const QStringList &lines, const Decision &decision);
    // While a request waits for a worker: its deadline, and a client that goes away.
    void watchClient();
    void onClientReadable(const std::shared_ptr<std::atomic<bool>> &taken, boost::beast::error_code ec);
    void onDeadline(const std::shared_ptr<std::atomic<bool>> &taken, boost::beast::error_code ec);
    // True when the waiting request is now given up: no worker will run it.
    bool giveUp();
    void stopWaiting();
    void probeHealth(bool keepAlive);
    void answer(QByteArray response, bool keepAlive);
    void onWrite(bool keepAlive, boost::beast::error_code ec, std::size_t bytes);
    void drainAndClose();
    void onDrain(boost::beast::error_code ec, std::size_t bytes);
    void closeSocket();
    void logAccess(std::size_t bytes);
    boost::beast::tcp_stream &tcp() { return boost::beast::get_lowest_layer(m_stream); }
    static std::string clientAddress(const boost::asio::ip::tcp::socket &socket);

    std::string m_peer;  // before the stream: read from the socket the stream takes over
    std::string m_client;  // the peer, or the client a trusted proxy names for this request
    Stream m_stream;
    boost::beast::flat_buffer m_buffer;
    std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> m_parser;
    HttpServer &m_server;
    bool m_reading = false;
    // The request waiting for a worker, if any: whoever sets the flag first, the worker or
    // this session giving it up, decides whether it runs.
    std::shared_ptr<std::atomic<bool>> m_taken;
    bool m_keepAlive = false;
    boost::asio::steady_timer m_deadline;

    // Of the request being answered, for the access log.
    std::string m_method;
    std::string m_path;
    std::string m_requestId;  // the client's, echoed in the answer; empty: none came
    QByteArray m_out;
    std::optional<PluginAnswer> m_read;  // of the plug-in's answer in m_out
    QElapsedTimer m_clock;
};

#endif

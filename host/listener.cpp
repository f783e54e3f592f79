#include "listener.h"

#include "hostlog.h"
#include "httpserver.h"
#include "httpsession.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/beast/core/bind_handler.hpp>

#include <mutex>
#include <unordered_map>

namespace beast = boost::beast;
namespace net = boost::asio;

// Open connections, in total and per peer address.
struct Listener::Counts
{
    std::mutex mutex;
    int total = 0;
    std::unordered_map<std::string, int> perAddress;

    void release(const std::string &address)
    {
        std::lock_guard<std::mutex> lock(mutex);
        --total;
        if (--perAddress[address] <= 0)
            perAddress.erase(address);
    }
};

Listener::Listener(net::io_context &ioc, HttpServer &server)
    : m_ioc(ioc)
    , m_acceptor(net::make_strand(ioc))
    , m_pause(m_acceptor.get_executor())
    , m_server(server)
    , m_counts(std::make_shared<Counts>())
{
}

bool openAcceptor(net::ip::tcp::acceptor &acceptor, const net::ip::tcp::endpoint &endpoint, beast::error_code &ec)
{
    acceptor.open(endpoint.protocol(), ec);
    if (!ec)
        acceptor.set_option(net::socket_base::reuse_address(true), ec);
    if (!ec)
        acceptor.bind(endpoint, ec);
    if (!ec)
        acceptor.listen(net::socket_base::max_listen_connections, ec);
    return !ec;
}

bool Listener::open(const net::ip::tcp::endpoint &endpoint, beast::error_code &ec)
{
    return openAcceptor(m_acceptor, endpoint, ec);
}

unsigned short Listener::port() const
{
    beast::error_code ec;
    return m_acceptor.local_endpoint(ec).port();
}

void Listener::run()
{
    net::dispatch(m_acceptor.get_executor(), beast::bind_front_handler(&Listener::accept, shared_from_this()));
}

void Listener::stop()
{
    net::post(m_acceptor.get_executor(), [self = shared_from_this()] {
        beast::error_code ec;
        self->m_acceptor.close(ec);
        self->m_pause.cancel();
    });
}

void Listener::accept()
{
    m_acceptor.async_accept(net::make_strand(m_ioc), beast::bind_front_handler(&Listener::onAccept, shared_from_this()));
}

void Listener::onAccept(beast::error_code ec, net::ip::tcp::socket socket)
{
    if (ec == net::error::operation_aborted || !m_acceptor.is_open())
        return;
    if (ec == net::error::no_descriptors || ec == net::error::no_buffer_space || ec == net::error::no_memory
        || ec == boost::system::errc::too_many_files_open_in_system)
        return pause(ec);
    if (m_failedAccepts > 0) {
        hostLog(QStringLiteral("accepting again after %1 failed attempts").arg(m_failedAccepts));
        m_failedAccepts = 0;
    }
    if (ec)
        hostLog(QStringLiteral("accept failed: %1").arg(QString::fromStdString(ec.message())));
    else if (!m_server.stopping())
        startSession(std::move(socket));
    accept();
}

void Listener::pause(const beast::error_code &ec)
{
    // One line per burst: the first failure says why, the recovery how many followed.
    if (m_failedAccepts++ == 0)
        hostLog(QStringLiteral("accept failed: %1; pausing new connections until descriptors are free")
                    .arg(QString::fromStdString(ec.message())));
    m_pause.expires_after(kAcceptPause);
    m_pause.async_wait([self = shared_from_this()](beast::error_code waited) {
        if (!waited && self->m_acceptor.is_open())
            self->accept();
    });
}

void Listener::startSession(net::ip::tcp::socket socket)
{
    beast::error_code ec;
    const std::string address = socket.remote_endpoint(ec).address().to_string();
    if (ec)
        return;  // gone already
    const HostConfig &config = m_server.config();
    {
        std::lock_guard<std::mutex> lock(m_counts->mutex);
        int &mine = m_counts->perAddress[address];
        // A trusted proxy carries many clients: only the total holds for it.
        const bool over = m_counts->total >= config.maxConnections
            || (mine >= config.maxClientConnections && !m_server.proxies().contains(address));
        if (over) {
            if (mine == 0)
                m_counts->perAddress.erase(address);
            // Closed unanswered: an answer would need the very resources that ran out.
            if (!m_capLogged)
                hostLog(QStringLiteral("connection cap reached (limits/connections %1, limits/client_connections %2); "
                                       "closing new connections from %3 at once")
                            .arg(config.maxConnections).arg(config.maxClientConnections).arg(QString::fromStdString(address)));
            m_capLogged = true;
            socket.close(ec);
            return;
        }
        m_capLogged = false;
        ++mine;
        ++m_counts->total;
    }
    // An answer is written whole: without this its last segment waits for the client's
    // delayed ACK (tens of milliseconds) whenever the socket's buffer split the write.
    socket.set_option(net::ip::tcp::no_delay(true), ec);
    // The session gives its place back when it ends, and keeps the TLS context it began with
    // alive even when a reload has replaced it meanwhile.
    auto release = [counts = m_counts, address](auto *session) {
        delete session;
        counts->release(address);
    };
    if (TlsContext *tls = m_server.tls()) {
        std::shared_ptr<net::ssl::context> context = tls->current();
        std::shared_ptr<HttpSession<TlsStream>>(new HttpSession<TlsStream>(m_server, std::move(socket), *context),
                                                [release, context](HttpSession<TlsStream> *session) { release(session); })
            ->run();
    } else {
        std::shared_ptr<HttpSession<PlainStream>>(new HttpSession<PlainStream>(m_server, std::move(socket)), release)->run();
    }
}

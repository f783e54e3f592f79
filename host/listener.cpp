#include "listener.h"

#include "hostlog.h"
#include "httpserver.h"
#include "session.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/beast/core/bind_handler.hpp>

namespace beast = boost::beast;
namespace net = boost::asio;

Listener::Listener(net::io_context &ioc, HttpServer &server)
    : m_ioc(ioc)
    , m_acceptor(net::make_strand(ioc))
    , m_server(server)
{
}

bool Listener::open(const net::ip::tcp::endpoint &endpoint, beast::error_code &ec)
{
    m_acceptor.open(endpoint.protocol(), ec);
    if (!ec)
        m_acceptor.set_option(net::socket_base::reuse_address(true), ec);
    if (!ec)
        m_acceptor.bind(endpoint, ec);
    if (!ec)
        m_acceptor.listen(net::socket_base::max_listen_connections, ec);
    return !ec;
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
    if (ec)
        hostLog(QStringLiteral("accept failed: %1").arg(QString::fromStdString(ec.message())));
    else if (!m_server.stopping())
        std::make_shared<Session>(std::move(socket), m_server)->run();
    accept();
}

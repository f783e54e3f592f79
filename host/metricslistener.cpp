#include "metricslistener.h"

#include "listener.h"

#include "serverresponses.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;

namespace {

const std::chrono::seconds kTimeout(10);

// One scrape: read the request, answer, close.
struct Scrape : std::enable_shared_from_this<Scrape>
{
    Scrape(net::ip::tcp::socket &&socket, const std::function<std::string()> &page)
        : stream(std::move(socket))
        , page(page)
    {
    }

    void run()
    {
        parser.header_limit(8 * 1024);
        parser.body_limit(0);
        stream.expires_after(kTimeout);
        http::async_read(stream, buffer, parser, [self = shared_from_this()](beast::error_code ec, std::size_t) {
            if (ec)
                return self->close();
            const auto &request = self->parser.get();
            const bool metrics = request.method() == http::verb::get
                && request.target().substr(0, request.target().find('?')) == "/metrics";
            self->out = metrics ? self->page() : ServerResponses::notFound(false);
            net::async_write(self->stream, net::buffer(self->out), [self](beast::error_code, std::size_t) { self->close(); });
        });
    }

    void close()
    {
        beast::error_code ignored;
        stream.socket().shutdown(net::ip::tcp::socket::shutdown_both, ignored);
        stream.close();
    }

    beast::tcp_stream stream;
    beast::flat_buffer buffer;
    http::request_parser<http::empty_body> parser;
    std::string out;
    const std::function<std::string()> page;
};

} // namespace

MetricsListener::MetricsListener(net::io_context &ioc, std::function<std::string()> page)
    : m_ioc(ioc)
    , m_acceptor(net::make_strand(ioc))
    , m_pause(m_acceptor.get_executor())
    , m_page(std::move(page))
{
}

bool MetricsListener::open(const net::ip::tcp::endpoint &endpoint, beast::error_code &ec)
{
    return openAcceptor(m_acceptor, endpoint, ec);
}

void MetricsListener::run()
{
    net::dispatch(m_acceptor.get_executor(), [self = shared_from_this()] { self->accept(); });
}

void MetricsListener::stop()
{
    net::post(m_acceptor.get_executor(), [self = shared_from_this()] {
        beast::error_code ignored;
        self->m_acceptor.close(ignored);
        self->m_pause.cancel();
    });
}

void MetricsListener::accept()
{
    m_acceptor.async_accept(net::make_strand(m_ioc), [self = shared_from_this()](beast::error_code ec, net::ip::tcp::socket socket) {
        if (!self->m_acceptor.is_open())
            return;
        if (!ec) {
            std::make_shared<Scrape>(std::move(socket), self->m_page)->run();
            return self->accept();
        }
        // Out of descriptors, most likely: try again a little later instead of spinning.
        self->m_pause.expires_after(Listener::kAcceptPause);
        self->m_pause.async_wait([self](beast::error_code) { self->accept(); });
    });
}

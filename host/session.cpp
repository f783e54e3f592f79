#include "session.h"

#include "hostlog.h"
#include "httpserver.h"
#include "serverresponses.h"
#include "workerpool.h"

#include "database/dbmanager.h"
#include "plugin/httppluginworker.h"

#include <QStringList>
#include <QUrl>

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;

namespace {

const std::uint32_t kHeaderLimit = 16 * 1024;
const std::chrono::seconds kDrainTime(1);

QString text(beast::string_view view)
{
    return QString::fromUtf8(view.data(), int(view.size()));
}

int statusOf(const QByteArray &response)
{
    // "HTTP/1.1 200 OK": the three digits after the first blank.
    const int blank = response.indexOf(' ');
    return blank < 0 ? 0 : response.mid(blank + 1, 3).toInt();
}

} // namespace

Session::Session(net::ip::tcp::socket &&socket, HttpServer &server)
    : m_stream(std::move(socket))
    , m_server(server)
{
    beast::error_code ec;
    const auto remote = m_stream.socket().remote_endpoint(ec);
    m_client = ec ? std::string("-") : remote.address().to_string();
}

Session::~Session()
{
    m_server.removeSession(this);
}

void Session::run()
{
    m_server.addSession(shared_from_this());
    net::dispatch(m_stream.get_executor(), beast::bind_front_handler(&Session::readRequest, shared_from_this()));
}

void Session::stopIfIdle()
{
    net::post(m_stream.get_executor(), [self = shared_from_this()] {
        if (self->m_reading && !self->m_parser->got_some()) {
            beast::error_code ec;
            self->m_stream.socket().shutdown(net::ip::tcp::socket::shutdown_both, ec);
            self->m_stream.close();
        }
    });
}

void Session::readRequest()
{
    if (m_server.stopping())
        return drainAndClose();
    m_parser.emplace();
    m_parser->header_limit(kHeaderLimit);
    m_parser->body_limit(std::uint64_t(m_server.config().bodyLimit));
    // One deadline for the whole request: a client that trickles bytes cannot hold on.
    m_stream.expires_after(std::chrono::seconds(m_server.config().timeoutSeconds));
    m_reading = true;
    http::async_read(m_stream, m_buffer, *m_parser, beast::bind_front_handler(&Session::onRead, shared_from_this()));
}

void Session::onRead(beast::error_code ec, std::size_t)
{
    m_reading = false;
    m_clock.start();
    if (ec)
        return failedRead(ec);
    handleRequest();
}

void Session::failedRead(const beast::error_code &ec)
{
    // The start line may have been read even when the header was refused.
    m_method = m_parser ? std::string(m_parser->get().method_string()) : std::string();
    m_path = m_parser ? std::string(m_parser->get().target()) : std::string();
    m_path = m_path.substr(0, m_path.find('?'));
    if (m_method.empty())
        m_method = "-";
    if (m_path.empty())
        m_path = "-";
    if (ec == http::error::body_limit)
        return answer(QByteArray::fromStdString(ServerResponses::payloadTooLarge()), false);
    if (ec == http::error::header_limit)
        return answer(QByteArray::fromStdString(ServerResponses::headersTooLarge()), false);
    if (ec == beast::error::timeout) {
        // The stream has closed the socket already; only a started request is worth a line.
        if (m_parser && m_parser->got_some()) {
            m_out = "HTTP/1.1 408";
            logAccess(0);
        }
        return;
    }
    if (ec.category() == http::make_error_code(http::error::bad_target).category() && ec != http::error::end_of_stream
        && ec != http::error::partial_message)
        return answer(QByteArray::fromStdString(ServerResponses::badRequest()), false);
    // End of stream, reset, or closed at a stop: nothing to answer.
    beast::error_code ignored;
    m_stream.socket().shutdown(net::ip::tcp::socket::shutdown_both, ignored);
    m_stream.close();
}

void Session::handleRequest()
{
    Request request = m_parser->release();
    m_method = std::string(request.method_string());
    const beast::string_view target = request.target();
    m_path = std::string(target.substr(0, target.find('?')));
    const bool keepAlive = request.keep_alive();
    if (m_server.servesPath(m_path))
        return dispatchToPlugin(request);
    if (request.method() == http::verb::get && m_path == "/healthz")
        return probeHealth(keepAlive);
    answer(QByteArray::fromStdString(ServerResponses::notFound(keepAlive)), keepAlive);
}

void Session::dispatchToPlugin(const Request &request)
{
    QStringList lines;
    for (const auto &field : request)
        lines.append(text(field.name_string()) + QLatin1String(": ") + text(field.value()));
    const QString method = text(request.method_string());
    const QUrl url = QUrl::fromEncoded(m_server.baseUrl() + QByteArray(request.target().data(), int(request.target().size())));
    const QByteArray body(request.body().data(), int(request.body().size()));
    const bool keepAlive = request.keep_alive();
    const QString token = WorkerPool::customerToken(lines);
    // A token the InfoDB could read as SQL never reaches a worker.
    if (!DBManager::isValidToken(token))
        return answer(QByteArray::fromStdString(ServerResponses::invalidToken()), keepAlive);
    m_server.pool().submit(token,
                           [self = shared_from_this(), method, url, lines, body, keepAlive](HttpPluginWorker *worker) {
        QByteArray response = worker->buildResponse(method, url, lines, body);
        net::post(self->m_stream.get_executor(), [self, response = std::move(response), keepAlive]() mutable {
            self->answer(std::move(response), keepAlive);
        });
    });
}

void Session::probeHealth(bool keepAlive)
{
    m_server.pool().probeInfoDb([self = shared_from_this(), keepAlive](bool answers) {
        net::post(self->m_stream.get_executor(), [self, answers, keepAlive] {
            self->answer(QByteArray::fromStdString(ServerResponses::health(answers, keepAlive)), keepAlive);
        });
    });
}

void Session::answer(QByteArray response, bool keepAlive)
{
    m_out = std::move(response);
    m_stream.expires_after(std::chrono::seconds(m_server.config().timeoutSeconds));
    net::async_write(m_stream, net::buffer(m_out.constData(), std::size_t(m_out.size())),
                     beast::bind_front_handler(&Session::onWrite, shared_from_this(), keepAlive));
}

void Session::onWrite(bool keepAlive, beast::error_code ec, std::size_t bytes)
{
    logAccess(bytes);
    m_out.clear();
    if (ec)
        return;  // the stream is closed; nothing more to say
    if (!keepAlive)
        return drainAndClose();
    readRequest();
}

void Session::drainAndClose()
{
    // Closing with unread input would reset the connection and could destroy the answer
    // just sent (a 413 before the body arrived): half-close, then read briefly to the end.
    beast::error_code ec;
    m_stream.socket().shutdown(net::ip::tcp::socket::shutdown_send, ec);
    if (ec)
        return m_stream.close();
    m_stream.expires_after(kDrainTime);
    m_buffer.consume(m_buffer.size());
    m_stream.async_read_some(m_buffer.prepare(64 * 1024),
                             beast::bind_front_handler(&Session::onDrain, shared_from_this()));
}

void Session::onDrain(beast::error_code ec, std::size_t)
{
    if (ec)
        return m_stream.close();
    m_stream.async_read_some(m_buffer.prepare(64 * 1024),
                             beast::bind_front_handler(&Session::onDrain, shared_from_this()));
}

void Session::logAccess(std::size_t bytes) const
{
    const double ms = m_clock.isValid() ? double(m_clock.nsecsElapsed()) / 1e6 : 0.0;
    hostLog(QStringLiteral("%1 \"%2 %3\" %4 %5 %6ms")
                .arg(QString::fromStdString(m_client), QString::fromStdString(m_method),
                     QString::fromStdString(m_path))
                .arg(statusOf(m_out))
                .arg(bytes)
                .arg(ms, 0, 'f', 1));
}

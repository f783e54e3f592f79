#include "httpsession.h"

#include "accesslog.h"
#include "auththrottle.h"
#include "hostlog.h"
#include "httpserver.h"
#include "pluginanswer.h"
#include "serverresponses.h"
#include "workerpool.h"

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
const std::uint64_t kBodyChunk = 64 * 1024;
const std::chrono::seconds kDrainTime(1);
// For a request the host would not run: soon, as the reason (a full queue, a stop) passes.
const int kRetryAfterSeconds = 1;

QString text(beast::string_view view)
{
    return QString::fromUtf8(view.data(), int(view.size()));
}

} // namespace

template <class Stream>
std::string HttpSession<Stream>::clientAddress(const net::ip::tcp::socket &socket)
{
    beast::error_code ec;
    const auto remote = socket.remote_endpoint(ec);
    return ec ? std::string("-") : remote.address().to_string();
}

template <class Stream>
HttpSession<Stream>::~HttpSession()
{
    m_server.removeSession(this);
}

template <class Stream>
void HttpSession<Stream>::run()
{
    m_server.addSession(this->shared_from_this());
    if constexpr (kTls) {
        // The handshake shares the request's deadline: a silent client cannot hold a slot.
        tcp().expires_after(std::chrono::seconds(m_server.config().timeoutSeconds));
        m_stream.async_handshake(net::ssl::stream_base::server,
                                 beast::bind_front_handler(&HttpSession::onHandshake, this->shared_from_this()));
    } else {
        net::dispatch(m_stream.get_executor(), beast::bind_front_handler(&HttpSession::readRequest, this->shared_from_this()));
    }
}

template <class Stream>
void HttpSession<Stream>::onHandshake(beast::error_code ec)
{
    if (ec) {
        m_server.tls()->handshakeFailed(m_client, ec);
        return closeSocket();  // not TLS, wrong version, or too slow: nothing to answer
    }
    readRequest();
}

template <class Stream>
void HttpSession<Stream>::stopIfIdle()
{
    net::post(m_stream.get_executor(), [self = this->shared_from_this()] {
        if (self->m_reading && !self->m_parser->got_some())
            return self->closeSocket();
        if (self->giveUp()) {
            // Not started: the client may send it again to a host that runs.
            self->stopWaiting();
            self->answer(QByteArray::fromStdString(ServerResponses::busy(kRetryAfterSeconds)), false);
        }
    });
}

template <class Stream>
void HttpSession<Stream>::readRequest()
{
    if (m_server.stopping())
        return drainAndClose();
    m_parser.emplace();
    m_parser->header_limit(kHeaderLimit);
    m_parser->body_limit(std::uint64_t(m_server.config().bodyLimit));
    // One deadline for the whole request: a client that trickles bytes cannot hold on.
    tcp().expires_after(std::chrono::seconds(m_server.config().timeoutSeconds));
    m_reading = true;
    http::async_read_header(m_stream, m_buffer, *m_parser,
                            beast::bind_front_handler(&HttpSession::onHeader, this->shared_from_this()));
}

template <class Stream>
void HttpSession<Stream>::onHeader(beast::error_code ec, std::size_t bytes)
{
    if (ec)
        return onRead(ec, bytes);
    // Reads are as large as the buffer's free room, at least 512 bytes: a photo would come
    // in hundreds of reads.
    const auto length = m_parser->content_length();
    if (length && *length > m_buffer.capacity() - m_buffer.size())
        m_buffer.reserve(m_buffer.size() + std::size_t(std::min<std::uint64_t>(*length, kBodyChunk)));
    http::async_read(m_stream, m_buffer, *m_parser, beast::bind_front_handler(&HttpSession::onRead, this->shared_from_this()));
}

template <class Stream>
void HttpSession<Stream>::onRead(beast::error_code ec, std::size_t)
{
    m_reading = false;
    m_clock.start();
    m_requestId.clear();
    if (ec)
        return failedRead(ec);
    handleRequest();
}

template <class Stream>
void HttpSession<Stream>::failedRead(const beast::error_code &ec)
{
    RequestFacts facts;
    facts.peer = m_peer;
    facts.started = m_parser && m_parser->got_some();
    // The start line may have been read even when the header was refused.
    m_method = m_parser ? std::string(m_parser->get().method_string()) : std::string();
    m_path = m_parser ? std::string(m_parser->get().target()) : std::string();
    m_path = m_path.substr(0, m_path.find('?'));
    if (m_method.empty())
        m_method = "-";
    if (m_path.empty())
        m_path = "-";
    if (ec == http::error::body_limit)
        facts.end = ReadEnd::BodyTooLarge;
    else if (ec == http::error::header_limit)
        facts.end = ReadEnd::HeaderTooLarge;
    else if (ec == beast::error::timeout)
        facts.end = ReadEnd::TimedOut;
    else if (ec.category() == http::make_error_code(http::error::bad_target).category() && ec != http::error::end_of_stream
             && ec != http::error::partial_message)
        facts.end = ReadEnd::Malformed;
    else
        facts.end = ReadEnd::Gone;  // end of stream, reset, or closed at a stop
    act(decideRequest(facts, m_server.routes(), m_server.throttle(), AuthThrottle::Clock::now()), facts, nullptr);
}

template <class Stream>
void HttpSession<Stream>::handleRequest()
{
    Request request = m_parser->release();
    RequestFacts facts;
    m_method = facts.method = std::string(request.method_string());
    const beast::string_view target = request.target();
    m_path = facts.path = std::string(target.substr(0, target.find('?')));
    m_requestId = AccessLog::clientRequestId(request[AccessLog::kRequestIdHeader]);
    facts.keepAlive = request.keep_alive();
    facts.peer = m_peer;
    for (const auto &field : request) {
        facts.headerLines.append(text(field.name_string()) + QLatin1String(": ") + text(field.value()));
        if (beast::iequals(field.name_string(), "X-Forwarded-For"))
            facts.forwardedFor += (facts.forwardedFor.empty() ? "" : ",") + std::string(field.value());
    }
    act(decideRequest(facts, m_server.routes(), m_server.throttle(), AuthThrottle::Clock::now()), facts, &request);
}

template <class Stream>
void HttpSession<Stream>::act(const Decision &decision, const RequestFacts &facts, const Request *request)
{
    m_client = decision.client;
    switch (decision.kind) {
    case Decision::Answer:
        return answer(QByteArray::fromStdString(decision.answer), decision.keepAlive);
    case Decision::ProbeHealth:
        return probeHealth(decision.keepAlive);
    case Decision::Metrics:
        return answer(QByteArray::fromStdString(m_server.metricsPage(decision.keepAlive)), decision.keepAlive);
    case Decision::Plugin:
        return dispatchToPlugin(*request, facts.headerLines, decision);
    case Decision::LogTimeout:
        m_out = "HTTP/1.1 408";
        return logAccess(0);
    case Decision::Close:
        return closeSocket();
    }
}

template <class Stream>
void HttpSession<Stream>::dispatchToPlugin(const Request &request, const QStringList &lines, const Decision &decision)
{
    const bool keepAlive = decision.keepAlive;
    const QString token = decision.token;
    const QString method = text(request.method_string());
    const QUrl url = QUrl::fromEncoded(m_server.baseUrl() + QByteArray(request.target().data(), int(request.target().size())));
    const QByteArray body(request.body().data(), int(request.body().size()));
    auto taken = std::make_shared<std::atomic<bool>>(false);
    const bool queued = m_server.pool().submit([self = this->shared_from_this(), taken, method, url, lines, body,
                                                keepAlive, token](HttpPluginWorker *worker) {
        if (taken->exchange(true))
            return;  // given up while it waited: answered already, or nobody is listening
        QByteArray response = worker->buildResponse(method, url, lines, body);
        net::post(self->m_stream.get_executor(), [self, response = std::move(response), keepAlive, token]() mutable {
            self->stopWaiting();
            self->m_read = readPluginAnswer(response);
            self->m_server.throttle().recordResponse(self->m_client, token.toStdString(), *self->m_read);
            self->answer(std::move(response), keepAlive);
        });
    });
    if (!queued)
        return answer(QByteArray::fromStdString(ServerResponses::busy(kRetryAfterSeconds)), keepAlive && !m_server.stopping());
    m_taken = taken;
    m_keepAlive = keepAlive;
    m_deadline.expires_after(std::chrono::seconds(m_server.config().deadlineSeconds));
    m_deadline.async_wait(beast::bind_front_handler(&HttpSession::onDeadline, this->shared_from_this(), taken));
    watchClient();
}

template <class Stream>
void HttpSession<Stream>::watchClient()
{
    // Readable while nothing is expected: the client closed, or sent the next request early.
    tcp().socket().async_wait(net::socket_base::wait_read,
                              beast::bind_front_handler(&HttpSession::onClientReadable, this->shared_from_this(), m_taken));
}

template <class Stream>
void HttpSession<Stream>::onClientReadable(const std::shared_ptr<std::atomic<bool>> &taken, beast::error_code ec)
{
    if (ec || taken != m_taken)
        return;  // answered meanwhile
    beast::error_code ignored;
    if (tcp().socket().available(ignored) > 0)
        return;  // a pipelined request: it waits in the socket for its turn
    if (!giveUp())
        return;  // running: its answer meets the closed socket
    stopWaiting();
    m_out = "HTTP/1.1 499";
    logAccess(0);
    closeSocket();
}

template <class Stream>
void HttpSession<Stream>::onDeadline(const std::shared_ptr<std::atomic<bool>> &taken, beast::error_code ec)
{
    if (ec || taken != m_taken || !giveUp())
        return;
    stopWaiting();
    answer(QByteArray::fromStdString(ServerResponses::busy(kRetryAfterSeconds)), m_keepAlive && !m_server.stopping());
}

template <class Stream>
bool HttpSession<Stream>::giveUp()
{
    return m_taken && !m_taken->exchange(true);
}

template <class Stream>
void HttpSession<Stream>::stopWaiting()
{
    m_taken.reset();
    m_deadline.cancel();
    beast::error_code ignored;
    tcp().socket().cancel(ignored);  // the watch; nothing else is pending while a request waits
}

template <class Stream>
void HttpSession<Stream>::probeHealth(bool keepAlive)
{
    m_server.pool().probeInfoDb([self = this->shared_from_this(), keepAlive](bool answers) {
        net::post(self->m_stream.get_executor(), [self, answers, keepAlive] {
            self->answer(QByteArray::fromStdString(ServerResponses::health(answers, keepAlive)), keepAlive);
        });
    });
}

template <class Stream>
void HttpSession<Stream>::answer(QByteArray response, bool keepAlive)
{
    m_out = m_requestId.empty() ? std::move(response) : AccessLog::withRequestId(response, m_requestId);
    tcp().expires_after(std::chrono::seconds(m_server.config().timeoutSeconds));
    net::async_write(m_stream, net::buffer(m_out.constData(), std::size_t(m_out.size())),
                     beast::bind_front_handler(&HttpSession::onWrite, this->shared_from_this(), keepAlive));
}

template <class Stream>
void HttpSession<Stream>::onWrite(bool keepAlive, beast::error_code ec, std::size_t bytes)
{
    logAccess(bytes);
    m_out.clear();
    if (ec)
        return;  // the stream is closed; nothing more to say
    if (!keepAlive)
        return drainAndClose();
    readRequest();
}

template <class Stream>
void HttpSession<Stream>::drainAndClose()
{
    tcp().expires_after(kDrainTime);
    if constexpr (kTls) {
        // close_notify first, so the client knows the answer is whole.
        m_stream.async_shutdown([self = this->shared_from_this()](beast::error_code) { self->closeSocket(); });
    } else {
        // Closing with unread input would reset the connection and could destroy the answer
        // just sent (a 413 before the body arrived): half-close, then read briefly to the end.
        beast::error_code ec;
        m_stream.socket().shutdown(net::ip::tcp::socket::shutdown_send, ec);
        if (ec)
            return m_stream.close();
        m_buffer.consume(m_buffer.size());
        m_stream.async_read_some(m_buffer.prepare(64 * 1024),
                                 beast::bind_front_handler(&HttpSession::onDrain, this->shared_from_this()));
    }
}

template <class Stream>
void HttpSession<Stream>::onDrain(beast::error_code ec, std::size_t)
{
    if (ec)
        return tcp().close();
    tcp().async_read_some(m_buffer.prepare(64 * 1024),
                          beast::bind_front_handler(&HttpSession::onDrain, this->shared_from_this()));
}

template <class Stream>
void HttpSession<Stream>::closeSocket()
{
    beast::error_code ignored;
    tcp().socket().shutdown(net::ip::tcp::socket::shutdown_both, ignored);
    tcp().close();
}

template <class Stream>
void HttpSession<Stream>::logAccess(std::size_t bytes)
{
    const double seconds = m_clock.isValid() ? double(m_clock.nsecsElapsed()) / 1e9 : 0.0;
    // The plug-in's answer was read already; the host's own are short.
    const PluginAnswer read = m_read ? *std::exchange(m_read, std::nullopt) : readPluginAnswer(m_out);
    AccessLog::write({m_client, m_method, m_path, m_requestId.empty() ? AccessLog::newRequestId() : m_requestId,
                      read.status, bytes, seconds});
    m_server.metrics().record(m_method, m_path, read, seconds);
}

template class HttpSession<PlainStream>;
template class HttpSession<TlsStream>;

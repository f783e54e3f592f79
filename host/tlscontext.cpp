#include "tlscontext.h"

#include "hostlog.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

namespace net = boost::asio;
namespace ssl = boost::asio::ssl;

namespace {

// TLS 1.2 only with forward secrecy and AEAD ciphers; TLS 1.3 has nothing else.
const char *const kTls12Ciphers = "ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-RSA-AES128-GCM-SHA256:"
                                  "ECDHE-ECDSA-AES256-GCM-SHA384:ECDHE-RSA-AES256-GCM-SHA384:"
                                  "ECDHE-ECDSA-CHACHA20-POLY1305:ECDHE-RSA-CHACHA20-POLY1305";
const char *const kTls13Suites = "TLS_AES_128_GCM_SHA256:TLS_AES_256_GCM_SHA384:TLS_CHACHA20_POLY1305_SHA256";
// A scanner or a client with an old TLS stack can fail thousands of handshakes: one line in
// this time, with the count of those not logged.
const std::chrono::seconds kFailureLogInterval(10);

boost::system::error_code lastSslError()
{
    return boost::system::error_code(int(ERR_get_error()), net::error::get_ssl_category());
}

} // namespace

TlsContext::TlsContext(const QString &certificate, const QString &key)
    : m_certificate(certificate)
    , m_key(key)
{
}

bool TlsContext::load(QString *error)
{
    auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
    SSL_CTX *native = context->native_handle();
    context->set_options(ssl::context::default_workarounds | ssl::context::single_dh_use | ssl::context::no_compression);
    SSL_CTX_set_options(native, SSL_OP_NO_RENEGOTIATION);
    if (!SSL_CTX_set_min_proto_version(native, TLS1_2_VERSION) || !SSL_CTX_set_cipher_list(native, kTls12Ciphers)
        || !SSL_CTX_set_ciphersuites(native, kTls13Suites)) {
        *error = QStringLiteral("cannot set the TLS cipher policy: %1").arg(QString::fromStdString(lastSslError().message()));
        return false;
    }
    boost::system::error_code ec;
    context->use_certificate_chain_file(m_certificate.toStdString(), ec);
    if (ec) {
        *error = QStringLiteral("cannot load the TLS certificate %1 (setting tls/certificate): %2")
                     .arg(m_certificate, QString::fromStdString(ec.message()));
        return false;
    }
    context->use_private_key_file(m_key.toStdString(), ssl::context::pem, ec);
    if (!ec && !SSL_CTX_check_private_key(native))
        ec = lastSslError();
    if (ec) {
        *error = QStringLiteral("cannot load the TLS key %1 (setting tls/key): %2")
                     .arg(m_key, QString::fromStdString(ec.message()));
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_current = std::move(context);
    return true;
}

std::shared_ptr<ssl::context> TlsContext::current() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_current;
}

void TlsContext::reload()
{
    QString error;
    if (load(&error))
        hostLog(QStringLiteral("TLS certificate and key reloaded; new connections use them"));
    else
        hostLog(QStringLiteral("TLS reload failed, the previous certificate stays in use: %1").arg(error));
}

void TlsContext::handshakeFailed(const std::string &client, const boost::system::error_code &ec)
{
    const auto now = std::chrono::steady_clock::now();
    int unlogged = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (now < m_nextFailureLine) {
            ++m_unloggedFailures;
            return;
        }
        m_nextFailureLine = now + kFailureLogInterval;
        unlogged = m_unloggedFailures;
        m_unloggedFailures = 0;
    }
    QString line = QStringLiteral("TLS handshake failed from %1: %2")
                       .arg(QString::fromStdString(client), QString::fromStdString(ec.message()));
    if (unlogged > 0)
        line += QStringLiteral(" (and %1 more since the last such line)").arg(unlogged);
    hostLog(line);
}

#ifndef TLSCONTEXT_H
#define TLSCONTEXT_H

#include <QString>

#include <boost/asio/ssl/context.hpp>
#include <boost/system/error_code.hpp>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

// The TLS side of the host: the certificate and key of tls/* under one cipher policy (TLS 1.2
// with AEAD ciphers and forward secrecy, and TLS 1.3), reloaded from the same files on demand,
// and a rate-limited log of failed handshakes. Shared by the I/O threads.
class TlsContext
{
public:
    TlsContext(const QString &certificate, const QString &key);

    // Reads the files; false with a one-line reason, the current context unchanged.
    bool load(QString *error);
    // For a new connection. A connection keeps the context it started with, so a reload
    // never touches connections that are open.
    std::shared_ptr<boost::asio::ssl::context> current() const;
    // load() with a log line either way: a bad new file keeps the old context.
    void reload();
    void handshakeFailed(const std::string &client, const boost::system::error_code &ec);

private:
    const QString m_certificate;
    const QString m_key;
    mutable std::mutex m_mutex;
    std::shared_ptr<boost::asio::ssl::context> m_current;
    std::chrono::steady_clock::time_point m_nextFailureLine;
    int m_unloggedFailures = 0;
};

#endif

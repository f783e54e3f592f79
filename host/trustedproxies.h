#ifndef TRUSTEDPROXIES_H
#define TRUSTEDPROXIES_H

#include <QStringList>

#include <boost/asio/ip/address.hpp>

#include <string>
#include <vector>

// The proxies of proxy/trusted, and who the client of a request is: behind one of them, the
// right-most X-Forwarded-For entry that is not a trusted proxy; otherwise the peer itself, so
// a header from anyone else changes nothing.
class TrustedProxies
{
public:
    explicit TrustedProxies(const QStringList &addresses);

    bool contains(const std::string &address) const;
    // `forwardedFor`: every X-Forwarded-For line of the request, joined by commas.
    std::string client(const std::string &peer, const std::string &forwardedFor) const;

private:
    bool contains(const boost::asio::ip::address &address) const;

    std::vector<boost::asio::ip::address> m_addresses;
};

#endif

#include "trustedproxies.h"

#include <algorithm>

namespace net = boost::asio;

namespace {

// An IPv4 peer of a dual-stack socket reads as ::ffff:a.b.c.d; compare it as a.b.c.d.
net::ip::address plain(const net::ip::address &address)
{
    if (address.is_v6() && address.to_v6().is_v4_mapped())
        return net::ip::make_address_v4(net::ip::v4_mapped, address.to_v6());
    return address;
}

std::string trimmed(const std::string &text)
{
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

} // namespace

TrustedProxies::TrustedProxies(const QStringList &addresses)
{
    for (const QString &text : addresses) {
        boost::system::error_code ec;
        const auto address = net::ip::make_address(text.trimmed().toStdString(), ec);
        if (!ec)
            m_addresses.push_back(plain(address));
    }
}

bool TrustedProxies::contains(const net::ip::address &address) const
{
    return std::find(m_addresses.begin(), m_addresses.end(), plain(address)) != m_addresses.end();
}

bool TrustedProxies::contains(const std::string &address) const
{
    boost::system::error_code ec;
    const auto parsed = net::ip::make_address(address, ec);
    return !ec && contains(parsed);
}

std::string TrustedProxies::client(const std::string &peer, const std::string &forwardedFor) const
{
    if (forwardedFor.empty() || !contains(peer))
        return peer;
    // From the right: each trusted proxy appended the address it saw; the first one that is
    // not a trusted proxy is the client. Entries left of it are the client's own words.
    std::string client = peer;
    std::size_t end = forwardedFor.size();
    for (;;) {
        const std::size_t comma = forwardedFor.rfind(',', end == 0 ? 0 : end - 1);
        const std::size_t start = comma == std::string::npos || end == 0 ? 0 : comma + 1;
        const std::string entry = trimmed(forwardedFor.substr(start, end - start));
        boost::system::error_code ec;
        const auto address = net::ip::make_address(entry, ec);
        if (ec)
            return client;  // not an address: the nearest hop known is the client
        client = plain(address).to_string();
        if (!contains(address) || start == 0)
            return client;
        end = comma;
    }
}

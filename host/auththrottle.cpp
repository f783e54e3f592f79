#include "auththrottle.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace {

const std::chrono::seconds kWindow(60);
// Where guessed tokens are counted: "*" is no token's character, so no customer's window.
const std::string kAnyCustomer("*");

enum class Guess { None, Key, Customer };

// What the plug-in's answer says about the request. Its error codes: 100006 a refused scheme
// or key (also a customer without the licence, which is no guess), 100007 a refused key,
// 100503 with no database name: the token named no customer.
Guess guessIn(const QByteArray &response)
{
    // "HTTP/1.1 401 ...": only the two statuses of refusals are worth parsing.
    const QByteArray status = response.mid(response.indexOf(' ') + 1, 4);
    if (status != "401 " && status != "503 ")
        return Guess::None;
    const int headEnd = response.indexOf("\r\n\r\n");
    const QJsonObject body = QJsonDocument::fromJson(response.mid(headEnd < 0 ? response.size() : headEnd + 4)).object();
    const int code = body.value(QLatin1String("code")).toInt();
    const QString message = body.value(QLatin1String("message")).toString();
    if (code == 100007 || (code == 100006 && !message.contains(QLatin1String("REST interface not licensed"))))
        return Guess::Key;
    if (code == 100503 && message == QLatin1String("Database '' not initialized!"))
        return Guess::Customer;
    return Guess::None;
}

std::string windowKey(const std::string &client, const std::string &customer)
{
    // A client address holds no NUL: the pair cannot be confused with another.
    return client + '\0' + customer;
}

} // namespace

bool AuthThrottle::isRefusedKey(const QByteArray &response)
{
    return guessIn(response) == Guess::Key;
}

AuthThrottle::AuthThrottle(int limit)
    : m_limit(limit)
{
}

int AuthThrottle::retryAfter(const std::string &client, const std::string &customer, Clock::time_point now)
{
    if (m_limit <= 0)
        return 0;
    std::lock_guard<std::mutex> lock(m_mutex);
    // Guessed tokens hold for every customer.
    return std::max(retryAfterLocked(windowKey(client, customer), now), retryAfterLocked(windowKey(client, kAnyCustomer), now));
}

int AuthThrottle::retryAfterLocked(const std::string &key, Clock::time_point now) const
{
    const auto it = m_windows.find(key);
    if (it == m_windows.end() || it->second.failures < m_limit)
        return 0;
    const auto left = it->second.start + kWindow - now;
    if (left <= Clock::duration::zero())
        return 0;
    // Rounded up: a client that waits exactly this long is let in.
    return int(std::chrono::ceil<std::chrono::seconds>(left).count());
}

void AuthThrottle::recordResponse(const std::string &client, const std::string &customer, const QByteArray &response,
                                  Clock::time_point now)
{
    if (m_limit <= 0)
        return;
    const Guess guess = guessIn(response);
    // A request without a token asks for no customer at all: nothing was guessed.
    if (guess == Guess::None || (guess == Guess::Customer && customer.empty()))
        return;
    std::lock_guard<std::mutex> lock(m_mutex);
    dropExpired(now);
    Window &window = m_windows[windowKey(client, guess == Guess::Customer ? kAnyCustomer : customer)];
    if (window.failures == 0 || now - window.start >= kWindow)
        window = Window{now, 0};
    ++window.failures;
}

void AuthThrottle::dropExpired(Clock::time_point now)
{
    // At most once a window, so a flood of addresses costs one pass a minute, not one per failure.
    if (now < m_nextSweep)
        return;
    m_nextSweep = now + kWindow;
    for (auto it = m_windows.begin(); it != m_windows.end();) {
        if (now - it->second.start >= kWindow)
            it = m_windows.erase(it);
        else
            ++it;
    }
}

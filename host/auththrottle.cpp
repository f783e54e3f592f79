#include "auththrottle.h"

#include <algorithm>

namespace {

const std::chrono::seconds kWindow(60);
// Where guessed tokens are counted: "*" is no token's character, so no customer's window.
const std::string kAnyCustomer("*");

std::string windowKey(const std::string &client, const std::string &customer)
{
    // A client address holds no NUL: the pair cannot be confused with another.
    return client + '\0' + customer;
}

} // namespace

AuthThrottle::AuthThrottle(int limit)
    : m_limit(limit)
{
}

int AuthThrottle::retryAfter(const std::string &client, const std::string &customer, Clock::time_point now) const
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

void AuthThrottle::recordResponse(const std::string &client, const std::string &customer, const PluginAnswer &answer,
                                  Clock::time_point now)
{
    if (m_limit <= 0)
        return;
    // A request without a token asks for no customer at all: nothing was guessed.
    const bool guessedCustomer = answer.unknownCustomer() && !customer.empty();
    if (!guessedCustomer && !answer.refusedKey())
        return;
    std::lock_guard<std::mutex> lock(m_mutex);
    dropExpired(now);
    Window &window = m_windows[windowKey(client, guessedCustomer ? kAnyCustomer : customer)];
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

#include "auththrottle.h"

namespace {

const std::chrono::seconds kWindow(60);

} // namespace

AuthThrottle::AuthThrottle(int limit)
    : m_limit(limit)
{
}

int AuthThrottle::retryAfter(const std::string &address, Clock::time_point now)
{
    if (m_limit <= 0)
        return 0;
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_windows.find(address);
    if (it == m_windows.end() || it->second.failures < m_limit)
        return 0;
    const auto left = it->second.start + kWindow - now;
    if (left <= Clock::duration::zero())
        return 0;
    // Rounded up: a client that waits exactly this long is let in.
    return int(std::chrono::ceil<std::chrono::seconds>(left).count());
}

void AuthThrottle::recordFailure(const std::string &address, Clock::time_point now)
{
    if (m_limit <= 0)
        return;
    std::lock_guard<std::mutex> lock(m_mutex);
    dropExpired(now);
    Window &window = m_windows[address];
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

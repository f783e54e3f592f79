#ifndef AUTHTHROTTLE_H
#define AUTHTHROTTLE_H

#include <chrono>
#include <mutex>
#include <string>
#include <unordered_map>

// Failed authentications per client address, counted in a window of one minute from the
// first failure. At the limit the address is refused until its window ends, so keys cannot
// be guessed at line rate. Shared by the I/O threads.
class AuthThrottle
{
public:
    using Clock = std::chrono::steady_clock;

    // `limit` failures per minute; 0 switches the throttle off.
    explicit AuthThrottle(int limit);

    // Whole seconds until `address` may try again; 0 when it may now.
    int retryAfter(const std::string &address, Clock::time_point now = Clock::now());
    void recordFailure(const std::string &address, Clock::time_point now = Clock::now());

private:
    struct Window
    {
        Clock::time_point start;
        int failures = 0;
    };

    void dropExpired(Clock::time_point now);

    const int m_limit;
    std::mutex m_mutex;
    std::unordered_map<std::string, Window> m_windows;
    Clock::time_point m_nextSweep;
};

#endif

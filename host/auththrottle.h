#ifndef AUTHTHROTTLE_H
#define AUTHTHROTTLE_H

#include "pluginanswer.h"

#include <chrono>
#include <mutex>
#include <string>
#include <unordered_map>

// Failed authentications per client and customer, counted in a window of one minute from the
// first failure. At the limit the client is refused at that customer until its window ends,
// so keys cannot be guessed at line rate, and one client behind a NAT or proxy does not lock
// out the others. Guessed customer tokens count for the client at every customer: they name
// no customer of their own. Shared by the I/O threads.
class AuthThrottle
{
public:
    using Clock = std::chrono::steady_clock;

    // `limit` failures per minute; 0 switches the throttle off.
    explicit AuthThrottle(int limit);

    // Whole seconds until `client` may try again at `customer` (a token); 0 when it may now.
    int retryAfter(const std::string &client, const std::string &customer, Clock::time_point now) const;
    // Counts the plug-in's `answer` when it refused a guess: a key or scheme, or a customer
    // token the InfoDB does not know.
    void recordResponse(const std::string &client, const std::string &customer, const PluginAnswer &answer,
                        Clock::time_point now = Clock::now());

private:
    struct Window
    {
        Clock::time_point start;
        int failures = 0;
    };

    int retryAfterLocked(const std::string &key, Clock::time_point now) const;
    void dropExpired(Clock::time_point now);

    const int m_limit;
    mutable std::mutex m_mutex;
    std::unordered_map<std::string, Window> m_windows;  // by client and customer
    Clock::time_point m_nextSweep;
};

#endif

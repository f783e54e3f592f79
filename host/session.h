#ifndef SESSION_H
#define SESSION_H

// One client connection as the server tracks it, whatever it speaks (HttpSession over plain
// TCP or TLS), so a graceful stop can reach every connection.
class Session
{
public:
    virtual ~Session() = default;

    // At a graceful stop: a connection waiting for a request is closed; a request waiting
    // for a worker is answered 503; one running finishes first.
    virtual void stopIfIdle() = 0;
};

#endif

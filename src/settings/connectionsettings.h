#ifndef CONNECTIONSETTINGS_H
#define CONNECTIONSETTINGS_H

#include <QString>

// Bounds of the database connections, set by the host on the connection manager before the
// first request. Times in seconds.
struct ConnectionSettings
{
    int connectTimeout = 5;
    int readTimeout = 90;     // longer than statementTime, so the server ends a slow statement first
    int writeTimeout = 30;
    int lockWait = 10;        // row and table lock waits of one statement
    int statementTime = 60;   // 0: unbounded
    int idleClose = 300;      // a customer connection unused this long is closed
    int unknownTokenCache = 5;  // an unknown token is answered without the InfoDB this long; 0: never

    // The Qt MySQL connect options with the three timeouts, behind `extra` (e.g. "CLIENT_IGNORE_SPACE=1").
    QString connectOptions(const QString &extra = QString()) const;
    // Run once on every connection a worker opens: the character set and the session's bounds.
    QString sessionStatement() const;
};

#endif

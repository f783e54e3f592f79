#ifndef TERMINALROUTER_H
#define TERMINALROUTER_H

#include "terminal/terminalrequestcontext.h"

#include <QStringList>
#include <QVariant>

// The verbs and first path words the terminal context serves.
struct TerminalRoutes
{
    QStringList verbs;
    QStringList getPaths;
    QStringList postPaths;
    QStringList putPaths;
    QStringList deletePaths;
    QStringList terminalOnlyPaths;  // GET words that are terminal requests even with an admin token

    // What the plug-in serves.
    static const TerminalRoutes &shipped();
    // Also PUT and DELETE of terminals, people, entrances and the feed's acknowledgement:
    // built and tested, not served.
    static TerminalRoutes withUnrouted();
};

// The answer of GET info.
QVariant terminalInfo(const QString &version);

// Hands a terminal request to the handler of its verb and first path word. The handlers hold
// no SQL and never render; the first failure ends one.
class TerminalRouter
{
public:
    explicit TerminalRouter(const TerminalRoutes &routes = TerminalRoutes::shipped());

    // Writes the answer to the context's response. Returns the row of a posted entrance that
    // is new and holds a photo (a host processes it further), else 0.
    uint route(const TerminalRequestContext &ctx, const QString &method, const QStringList &words,
               const QByteArray &body) const;

private:
    bool isValidPath(const QString &method, const QStringList &words) const;

    TerminalRoutes m_routes;
};

#endif

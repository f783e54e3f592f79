#ifndef ROUTELISTS_H
#define ROUTELISTS_H

#include "terminal/terminalrouter.h"

#include <QStringList>

// The routes the plug-in serves, as "get /person/{id}": what the API description and the
// reference page must list.
struct RouteLists
{
    QStringList routes() const
    {
        const TerminalRoutes &shipped = TerminalRoutes::shipped();
        // The GET words whose handler reads a person's identifier as the second word.
        QStringList out{QStringLiteral("get /person/{id}"), QStringLiteral("get /present/{id}")};
        for (const QString &word : shipped.getPaths)
            out << QStringLiteral("get /") + word;
        for (const QString &word : shipped.postPaths)
            out << QStringLiteral("post /") + word;
        // The period words each admin controller tells apart.
        for (const char *path : {"attendance/daily", "attendance/monthly", "report/daily", "report/monthly",
                                 "report/daily-detailed", "report/monthly-detailed", "work/daily", "work/monthly"})
            out << QStringLiteral("get /%1/{filter}").arg(QLatin1String(path));
        out.sort();
        return out;
    }
};

#endif

#ifndef TERMINALUNIT_H
#define TERMINALUNIT_H

#include "support/apifixture.h"

#include "response/response.h"
#include "terminal/terminalrouter.h"

// One terminal request's context on the fixture's customer database, for calling the terminal
// units directly, unrouted verbs included.
struct TerminalUnit
{
    explicit TerminalUnit(ApiFixture &fx, const QString &tid = QString())
        : response(parseRequestHeader(fx.terminalHeaders(tid)))
    {
        ctx.header = parseRequestHeader(fx.terminalHeaders(tid));
        ctx.db = fx.customer().db();
        ctx.response = &response;
        response.setHeader(QStringLiteral("X-WEBAPI-VER"), QStringLiteral("2.4.1"));
    }
    // `path` below "/webapi/"; the rendered response.
    QByteArray route(const QString &method, const QString &path, const QByteArray &body = QByteArray())
    {
        TerminalRouter(TerminalRoutes::withUnrouted()).route(ctx, method, path.split(QLatin1Char('/')), body);
        return response.renderResponse(true);
    }

    Response response;
    TerminalRequestContext ctx;
};

#endif

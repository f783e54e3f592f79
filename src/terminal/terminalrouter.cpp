#include "terminal/terminalrouter.h"

#include "terminal/entrances.h"
#include "terminal/identifiers.h"
#include "terminal/lists.h"
#include "terminal/people.h"
#include "terminal/syncfeed.h"
#include "terminal/terminals.h"

#include "licence/licence.h"
#include "response/response.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QtDebug>

// The terminal verb handlers: a path and a body in, calls of the db operations out. They hold
// no SQL and never render; the first failure ends a handler.

namespace {

// The path test every handler starts with: enough words, and a first word the verb serves.
bool isServedPath(const QStringList &words, int minWords, const QStringList &paths, Response *response)
{
    if (words.size() < minWords) {
        response->setError(Response::RE_InvalidApiEndpoint, words.join(QLatin1Char('/')));
        return false;
    }
    if (!paths.contains(words.first())) {
        response->setError(Response::RE_InvalidApiEndpoint, words.first());
        return false;
    }
    return true;
}

// A body that is not JSON ends the handler with the parser's words and where it stopped.
bool bodyParsed(const TerminalRequestContext &ctx, const QJsonParseError &parseError)
{
    if (parseError.error == QJsonParseError::NoError)
        return true;
    ctx.response->setError(Response::RE_JsonParseError, parseError.errorString(), QString::number(parseError.offset));
    return false;
}

bool checkTerminalId(const TerminalRequestContext &ctx, const QString &text, uint &tid,
                     const std::function<bool()> &between = nullptr)
{
    uint vorixID = 0;
    if (!decodeId(text, tid, vorixID)) {
        ctx.response->setError(Response::RE_InvalidID, text);
        return false;
    }
    if (between && !between())
        return false;
    if (!dbCheckTerm(ctx, tid, vorixID)) {
        // A read that failed has said so: a terminal is never told it is unknown for that.
        if (ctx.response->errorCode() != Response::RE_SQLError)
            ctx.response->setError(Response::RE_NoTerminal);
        return false;
    }
    return true;
}

bool checkPersonId(const TerminalRequestContext &ctx, const QString &text, uint &uid, uint &pid)
{
    if (!decodeId(text, uid, pid)) {
        ctx.response->setError(Response::RE_InvalidID, text);
        return false;
    }
    if (!dbCheckPerson(ctx, uid, pid)) {
        ctx.response->setError(Response::RE_NoPerson);
        return false;
    }
    return true;
}

void buildGetResponse(const TerminalRequestContext &ctx, const TerminalRoutes &routes, const QStringList &words)
{
    if (ctx.header.debugLevel != 0)
        qDebug() << "WebApiWorker::buildGetResponse(" << words.join(QStringLiteral(" | ")) << ")";
    if (!isServedPath(words, 1, routes.getPaths, ctx.response))
        return;
    const QString &word = words.first();
    // The public lists need no terminal.
    if (word == QLatin1String("info")) {
        ctx.response->setData(terminalInfo(ctx.version));
        return;
    }
    if (word == QLatin1String("response-errors")) {
        ctx.response->setData(Response::errorList());
        return;
    }
    if (word == QLatin1String("groups")) {
        ctx.response->setData(dbGetAttendanceGroups(ctx));
        return;
    }
    if (word == QLatin1String("inters")) {
        ctx.response->setData(dbGetInter(ctx));
        return;
    }

    uint tid = 0;
    if (!checkTerminalId(ctx, ctx.header.tid, tid))
        return;
    const bool personal = word == QLatin1String("person") || word == QLatin1String("present");
    uint uid = 0;
    uint pid = 0;
    if (personal && words.size() > 1 && !checkPersonId(ctx, words.at(1), uid, pid))
        return;
    if (word == QLatin1String("present"))
        ctx.response->setData(dbGetPresent(ctx, uid));
    else
        ctx.response->setData(dbGetPeople(ctx, uid));  // "person" without a person is "people"
}

// The row of an entrance that is new and holds a photo, else 0.
uint buildPostResponse(const TerminalRequestContext &ctx, const TerminalRoutes &routes, const QStringList &words,
                       const QByteArray &body)
{
    if (ctx.header.debugLevel != 0)
        qDebug() << "WebApiWorker::buildPostResponse(" << words.join(QStringLiteral(" | ")) << body.size() << ")";
    QJsonParseError parseError;
    const QVariantMap data = QJsonDocument::fromJson(body, &parseError).toVariant().toMap();
    if (!isServedPath(words, 1, routes.postPaths, ctx.response))
        return 0;
    const QString &word = words.first();
    if (!bodyParsed(ctx, parseError))
        return 0;

    if (word == QLatin1String("terminal")) {
        // How a terminal gets its identifier, so no tid is asked for.
        if (!ctx.licence || !ctx.licence->deviceAllowed(data.value(QStringLiteral("vid")).toUInt())) {
            ctx.response->setError(Response::RE_BadVID);
            return 0;
        }
        const uint tid = dbInsertTerm(ctx, data);
        // A switched-off device is refused in the licence's words; any other failed
        // registration answers an empty map under the error's status.
        if (ctx.response->errorCode() != Response::RE_BadVID)
            ctx.response->setData(dbGetTerm(ctx, tid));
        return 0;
    }

    uint tid = 0;
    const bool known = checkTerminalId(ctx, ctx.header.tid, tid, [&]() {
        if (ctx.header.debugLevel >= 2)
            qDebug() << "WebApiWorker::buildPutResponse()" << word << ctx.header.tid << ")";
        return true;
    });
    if (!known)
        return 0;
    if (word == QLatin1String("person")) {
        const uint uid = dbInsertPerson(ctx, tid, data);
        if (uid != 0)
            ctx.response->setData(dbGetPeople4Terminal(ctx, tid, uid));
    } else if (word == QLatin1String("entrance")) {
        const PostedEntrance posted = dbInsertEntrance(ctx, tid, data);
        if (posted.id != 0)
            ctx.response->setData(dbGetEntrance(ctx, posted.id));
        if (posted.newPhoto)
            return posted.id;
    }
    return 0;
}

void buildPutResponse(const TerminalRequestContext &ctx, const TerminalRoutes &routes, const QStringList &words,
                      const QByteArray &body)
{
    if (ctx.header.debugLevel != 0)
        qDebug() << "WebApiWorker::buildPutResponse(" << words.join(QStringLiteral(" | ")) << body.size() << ")";
    QJsonParseError parseError;
    const QVariantMap data = QJsonDocument::fromJson(body, &parseError).toVariant().toMap();
    if (!isServedPath(words, 2, routes.putPaths, ctx.response))
        return;
    const QString &word = words.first();
    // The terminal comes from the path here, and the body is judged after its identifier.
    uint tid = 0;
    const bool known = checkTerminalId(ctx, words.at(1), tid, [&]() {
        if (ctx.header.debugLevel != 0)
            qDebug() << "WebApiWorker::buildPutResponse()" << word << words.at(1) << ")";
        return bodyParsed(ctx, parseError);
    });
    if (!known)
        return;

    if (word == QLatin1String("term")) {
        if (!dbUpdateTerm(ctx, tid, data))
            ctx.response->setStatus(208);
    } else if (word == QLatin1String("person")) {
        if (words.size() < 3) {
            ctx.response->setError(Response::RE_InvalidApiEndpoint, words.join(QLatin1Char('/')));
            return;
        }
        uint uid = 0;
        uint pid = 0;
        if (!checkPersonId(ctx, words.at(2), uid, pid))
            return;
        QVariantMap result;
        result.insert(QStringLiteral("pid"), pid);
        result.insert(QStringLiteral("uid"), uid);
        if (!dbUpdatePerson(ctx, tid, uid, data)) {
            ctx.response->setStatus(208);
            return;
        }
        result.insert(QStringLiteral("setOtherTerms"), dbSetOtherTermsPeopleSync(ctx, tid, uid, 'U'));
        ctx.response->setData(result);
    }
}

void buildDeleteResponse(const TerminalRequestContext &ctx, const TerminalRoutes &routes, const QStringList &words)
{
    if (ctx.header.debugLevel != 0)
        qDebug() << "WebApiWorker::buildDeleteResponse(" << words.join(QStringLiteral(" | ")) << ")";
    if (!isServedPath(words, 3, routes.deletePaths, ctx.response))
        return;
    const QString &word = words.first();
    uint tid = 0;
    if (!checkTerminalId(ctx, words.at(1), tid))
        return;
    const QString &target = words.at(2);
    if (ctx.header.debugLevel >= 2)
        qDebug() << "WebApiWorker::buildDeleteResponse()" << word << words.at(1) << target << ")";

    uint first = 0;
    uint second = 0;
    if (word == QLatin1String("person")) {
        if (!checkPersonId(ctx, target, first, second))
            return;
        if (!dbDeletePerson(ctx, tid, first))
            ctx.response->setStatus(208);
    } else if (word == QLatin1String("entrance")) {
        if (!decodeId(target, first, second)) {
            ctx.response->setError(Response::RE_InvalidID, target);
            return;
        }
        if (!dbCheckEntrance(ctx, first, second)) {
            ctx.response->setError(Response::RE_NoEntrance);
            return;
        }
        if (!dbDeleteEntrance(ctx, tid, first))
            ctx.response->setStatus(208);
    } else if (word == QLatin1String("sync")) {
        // The identifier carries the acknowledged time and the sections; a time ahead of ours is refused.
        if (!decodeId(target, first, second) || first > QDateTime::currentDateTime().toTime_t()) {
            ctx.response->setError(Response::RE_InvalidID, target);
            return;
        }
        ctx.response->setData(dbDeleteSync(ctx, tid, first, quint16(second & 0xFFFF)));
    }
}

} // namespace

const TerminalRoutes &TerminalRoutes::shipped()
{
    static const TerminalRoutes routes = {
        {QStringLiteral("GET"), QStringLiteral("POST")},
        {QStringLiteral("info"), QStringLiteral("inters"), QStringLiteral("present"), QStringLiteral("person"),
         QStringLiteral("people"), QStringLiteral("groups"), QStringLiteral("response-errors")},
        {QStringLiteral("terminal"), QStringLiteral("person"), QStringLiteral("entrance")},
        {},
        {},
        {QStringLiteral("info"), QStringLiteral("inters"), QStringLiteral("groups"), QStringLiteral("response-errors")}};
    return routes;
}

TerminalRoutes TerminalRoutes::withUnrouted()
{
    TerminalRoutes routes = shipped();
    routes.verbs << QStringLiteral("PUT") << QStringLiteral("DELETE");
    routes.putPaths << QStringLiteral("term") << QStringLiteral("person");
    routes.deletePaths << QStringLiteral("person") << QStringLiteral("entrance") << QStringLiteral("sync");
    return routes;
}

QVariant terminalInfo(const QString &version)
{
    QVariantMap info;
    info.insert(QStringLiteral("name"), QStringLiteral("Web API"));
    info.insert(QStringLiteral("version"), version);
    info.insert(QStringLiteral("description"),
                QStringLiteral("ZMT webAPI is organized around REST APIs. Our APIs have predictable URLs, accept "
                               "JSON-encoded request bodies, return JSON-encoded responses, and use standard HTTP "
                               "response codes, authentication, and verbs."));
    return info;
}

TerminalRouter::TerminalRouter(const TerminalRoutes &routes)
    : m_routes(routes)
{
}

uint TerminalRouter::route(const TerminalRequestContext &ctx, const QString &method, const QStringList &words,
                           const QByteArray &body) const
{
    if (ctx.header.debugLevel != 0)
        qDebug() << "WebApiWorker::routeInTerminalContext(" << method << ")";
    if (!m_routes.verbs.contains(method)) {
        ctx.response->setError(Response::RE_BadMethod, method);
        return 0;
    }
    if (!isValidPath(method, words)) {
        ctx.response->setError(Response::RE_InvalidApiEndpoint, words.join(QLatin1Char('/')));
        return 0;
    }
    if (method == QLatin1String("GET"))
        buildGetResponse(ctx, m_routes, words);
    else if (method == QLatin1String("POST"))
        return buildPostResponse(ctx, m_routes, words, body);
    else if (method == QLatin1String("PUT"))
        buildPutResponse(ctx, m_routes, words, body);
    else if (method == QLatin1String("DELETE"))
        buildDeleteResponse(ctx, m_routes, words);
    return 0;
}

bool TerminalRouter::isValidPath(const QString &method, const QStringList &words) const
{
    if (words.isEmpty())
        return false;
    // Other verbs' paths are judged by the handler, after the body.
    if (method != QLatin1String("GET"))
        return true;
    return m_routes.getPaths.contains(words.first());
}

#include "controllers/iendpointcontroller.h"

#include "controllers/controllerhelpers.h"
#include "response/response.h"
#include "request/requestheader.h"

#include <QSqlError>
#include <QSqlQuery>

bool IEndpointController::acceptRequest(AdminRequestContext &ctx, const QString &endpoint, QString &period,
                                        QString &filter)
{
    m_debug = ctx.header.debugLevel;
    const QStringList words = urlPathWords(ctx.url);
    const QString first = words.value(0);
    // The same text in every controller: existing log readers look for it.
    if (m_debug)
        qDebug("ReportController::process() endpoint: '%s'", qPrintable(first));
    if (ctx.method != QLatin1String("GET")) {
        ctx.response->setError(Response::RE_BadMethod, ctx.method);
        return false;
    }
    if (!ctx.admin.hasPermission(2, 1)) {
        ctx.response->setError(Response::RE_NoAdminPermission);
        return false;
    }
    period = words.value(1);
    filter = words.size() < 3 ? QStringLiteral("0") : filterDigits(words.at(2));
    // The factory matched the word already; this guards a controller used on its own.
    if (first != endpoint) {
        ctx.response->setError(Response::RE_InvalidApiEndpoint, first);
        return false;
    }
    return true;
}

QDate IEndpointController::periodDate(AdminRequestContext &ctx, const QString &filter, bool monthly)
{
    const QDate date = parsePeriodFilter(filter, monthly);
    if (!date.isValid())
        ctx.response->setError(monthly ? Response::RE_InvalidMonth : Response::RE_InvalidDate, filter);
    return date;
}

bool IEndpointController::execOrReport(AdminRequestContext &ctx, QSqlQuery &query, const QString &sql,
                                       const char *failureFormat)
{
    if (query.exec(sql))
        return true;
    ctx.response->setSqlError(query.lastError().text(), sql, failureFormat, Response::SqlLog::Warning);
    return false;
}

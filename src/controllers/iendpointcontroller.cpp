#include "controllers/iendpointcontroller.h"

#include "controllers/controllerhelpers.h"
#include "request/requestheader.h"
#include "response/response.h"

#include <QSqlError>
#include <QSqlQuery>

#include <algorithm>

IEndpointController::IEndpointController(QLatin1String endpoint, QVector<Period> periods)
    : m_endpoint(endpoint)
    , m_periods(std::move(periods))
{
}

void IEndpointController::process(AdminRequestContext &ctx) const
{
    const QStringList words = urlPathWords(ctx.url);
    // The same text for every endpoint: existing log readers look for it.
    if (ctx.header.debugLevel)
        qDebug("ReportController::process() endpoint: '%s'", qPrintable(words.value(0)));
    if (ctx.method != QLatin1String("GET")) {
        ctx.response->setError(Response::RE_BadMethod, ctx.method);
        return;
    }
    if (!ctx.admin.hasPermission(2, 1)) {
        ctx.response->setError(Response::RE_NoAdminPermission);
        return;
    }
    const QString word = words.value(1);
    const auto period = std::find_if(m_periods.cbegin(), m_periods.cend(),
                                     [&](const Period &candidate) { return candidate.word == word; });
    if (period == m_periods.cend()) {
        ctx.response->setError(Response::RE_InvalidApiEndpoint, word);
        return;
    }
    const QString filter = words.size() < 3 ? QStringLiteral("0") : filterDigits(words.at(2));
    const QDate date = parsePeriodFilter(filter, period->monthly);
    if (!date.isValid()) {
        ctx.response->setError(period->monthly ? Response::RE_InvalidMonth : Response::RE_InvalidDate, filter);
        return;
    }
    if (ctx.header.debugLevel)
        qDebug("%s/%s: %s aid: %u", m_endpoint.data(), qPrintable(word), qPrintable(date.toString(Qt::ISODate)),
               uint(ctx.admin.aid));
    period->handle(ctx, date);
}

bool IEndpointController::execOrReport(AdminRequestContext &ctx, QSqlQuery &query, const QString &sql,
                                       const char *failureFormat)
{
    if (query.exec(sql))
        return true;
    ctx.response->setSqlError(query.lastError().text(), sql, failureFormat, Response::SqlLog::Warning);
    return false;
}

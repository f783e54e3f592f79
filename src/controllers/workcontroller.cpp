#include "controllers/workcontroller.h"

#include "controllers/controllerhelpers.h"
#include "response/response.h"

#include <QSqlQuery>
#include <QSqlRecord>

namespace {

void setRows(AdminRequestContext &ctx, QSqlQuery &query)
{
    const RowLayout layout(query.record(), {QStringLiteral("worked")});
    ctx.response->setData(layout.rowsBody(query, ctx.header.prettyJson));
}

} // namespace

WorkController::WorkController()
    : IEndpointController(QLatin1String("work"), {{QLatin1String("daily"), false, &processDailyData},
                                                  {QLatin1String("monthly"), true, &processMonthlyData}})
{
}

void WorkController::processDailyData(AdminRequestContext &ctx, const QDate &date)
{
    // No blank before WHERE and AND: the server takes it so, and the text stays as it is.
    const QString sql = QStringLiteral(
        "SELECT p.pid personId, CONCAT(p.surname, ' ', p.name) personName, a.work worked FROM atten a LEFT JOIN people "
        "p USING(uid)WHERE uid IN (SELECT ap.uid FROM admins_people ap WHERE ap.aid = %1)AND a.date = %2 ORDER BY "
        "surname, p.name, p.pid")
                            .arg(ctx.admin.aid)
                            .arg(localMidnight(date));
    QSqlQuery query(ctx.db);
    if (execOrReport(ctx, query, sql, "WorkController::processDailyData() failed! Error: %s"))
        setRows(ctx, query);
}

void WorkController::processMonthlyData(AdminRequestContext &ctx, const QDate &date)
{
    const QString head = QStringLiteral(
        "SELECT p.pid personId, CONCAT_WS(' ',  p.surname, p.name) personName, a.work worked FROM atten_month a LEFT "
        "JOIN people p ON p.uid = a.uid WHERE a.month = %1 ");
    const QString sql =
        (head + monthPeopleRestriction(ctx.admin.aid) + QStringLiteral("ORDER BY p.surname, p.name")).arg(monthNumber(date));
    QSqlQuery query(ctx.db);
    if (execOrReport(ctx, query, sql, "WorkController::processMonthlyData() failed! Error: %s"))
        setRows(ctx, query);
}

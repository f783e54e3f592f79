#include "controllers/admincontextrouter.h"

#include "controllers/attendancecontroller.h"
#include "controllers/reportcontroller.h"
#include "controllers/workcontroller.h"
#include "request/requestheader.h"
#include "response/response.h"

#include <QSqlError>
#include <QSqlQuery>

namespace {

bool lookUpAdmin(AdminRequestContext &ctx)
{
    QSqlQuery query(ctx.db);
    query.prepare(QStringLiteral("SELECT aid, status, perms FROM admins WHERE apiToken = ? AND !del"));
    query.addBindValue(ctx.header.aid);
    if (!query.exec()) {
        // Reported as a bad id on purpose, with the token as the offending value.
        qWarning("AdminContextBuilder::getAdminId from ZMTDB failed! Error: %s", qPrintable(query.lastError().text()));
        ctx.response->setError(Response::RE_InvalidID, ctx.header.aid);
        return false;
    }
    if (!query.next()) {
        ctx.response->setError(Response::RE_NoAdmin);
        return false;
    }
    if (!query.value(1).toBool()) {
        ctx.response->setError(Response::RE_InvalidAdmin);
        return false;
    }
    ctx.admin.aid = quint16(query.value(0).toUInt());
    ctx.admin.setStatus(quint16(query.value(1).toUInt()));
    ctx.admin.setPerms(query.value(2).toUInt());
    return true;
}

// Built once and shared by every thread: the controllers keep nothing of a request.
const IEndpointController *controllerFor(const QString &word)
{
    static const AttendanceController attendance;
    static const ReportController report;
    static const WorkController work;
    static const IEndpointController *const controllers[] = {&attendance, &report, &work};
    for (const IEndpointController *controller : controllers) {
        if (controller->endpoint() == word)
            return controller;
    }
    return nullptr;
}

} // namespace

void routeAdminRequest(AdminRequestContext &ctx)
{
    const QString endpoint = urlPathWords(ctx.url).value(0);
    if (ctx.header.debugLevel)
        qDebug("AdminContextRouter::build() endpoint: '%s' data size: %i", qPrintable(endpoint), int(ctx.data.size()));
    // The administrator comes first: a bad token never learns whether an endpoint exists.
    if (!lookUpAdmin(ctx))
        return;
    if (const IEndpointController *controller = controllerFor(endpoint))
        controller->process(ctx);
    else
        ctx.response->setError(Response::RE_InvalidApiEndpoint, endpoint);
}

#include "controllers/admincontextrouter.h"

#include "controllers/controllerfactory.h"
#include "controllers/iendpointcontroller.h"
#include "response/response.h"
#include "request/requestheader.h"

#include <QSqlError>
#include <QSqlQuery>

AdminContextRouter::AdminContextRouter(QObject *parent)
    : QObject(parent)
    , m_factory(new ControllerFactory(this))
{
}

AdminContextRouter::~AdminContextRouter()
{
    // The factory is a child as well, so it goes with the router in any case.
    m_factory->deleteLater();
}

void AdminContextRouter::build(AdminRequestContext &ctx)
{
    const QStringList words = urlPathWords(ctx.url);
    const QString endpoint = words.value(0);
    if (ctx.header.debugLevel)
        qDebug("AdminContextRouter::build() endpoint: '%s' data size: %i", qPrintable(endpoint), int(ctx.data.size()));
    // The administrator comes first: a bad token never learns whether an endpoint exists.
    if (!getAdminId(ctx))
        return;
    IEndpointController *controller = m_factory->getController(endpoint);
    if (!controller) {
        ctx.response->setError(Response::RE_InvalidApiEndpoint, endpoint);
        return;
    }
    controller->process(ctx);
}

bool AdminContextRouter::getAdminId(AdminRequestContext &ctx)
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

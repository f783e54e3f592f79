#include "controllers/admincontextrouter.h"

#include "response/response.h"

// Placeholder until the admin endpoints land: every admin request is refused.
AdminContextRouter::AdminContextRouter(QObject *parent)
    : QObject(parent)
{
}

AdminContextRouter::~AdminContextRouter() = default;

void AdminContextRouter::build(AdminRequestContext &ctx)
{
    ctx.response->setError(Response::RE_NoAdmin);
}

bool AdminContextRouter::getAdminId(AdminRequestContext &)
{
    return false;
}

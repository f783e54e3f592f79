#ifndef ADMINCONTEXTROUTER_H
#define ADMINCONTEXTROUTER_H

#include "controllers/adminrequestcontext.h"

// Ties an admin request to its administrator by API token and hands it to the controller of
// its first path word. The result or the error is on ctx.response.
void routeAdminRequest(AdminRequestContext &ctx);

#endif

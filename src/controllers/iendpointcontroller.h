#ifndef IENDPOINTCONTROLLER_H
#define IENDPOINTCONTROLLER_H

#include "controllers/adminrequestcontext.h"

#include <QDate>
#include <QStringList>

class QSqlQuery;

// An endpoint of the admin context: serves the first path word(s) that endpoints() names
// and writes its result or its error to the request's Response.
class IEndpointController
{
public:
    virtual ~IEndpointController() = default;
    virtual void process(AdminRequestContext &ctx) = 0;
    virtual QStringList endpoints() const = 0;

protected:
    // The checks every controller makes before its own work: debug flag, verb, permission
    // and endpoint word. On false the error is already on the Response.
    bool acceptRequest(AdminRequestContext &ctx, const QString &endpoint, QString &period, QString &filter);
    // The date a filter names; invalid (and reported) when the filter names none.
    static QDate periodDate(AdminRequestContext &ctx, const QString &filter, bool monthly);
    // Runs a substituted statement; a failure is logged with `failureFormat` and reported
    // as RE_SQLError.
    static bool execOrReport(AdminRequestContext &ctx, QSqlQuery &query, const QString &sql,
                             const char *failureFormat);

    quint8 m_debug = 0;
};

#endif

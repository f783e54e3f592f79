#ifndef IENDPOINTCONTROLLER_H
#define IENDPOINTCONTROLLER_H

#include "controllers/adminrequestcontext.h"

#include <QDate>
#include <QLatin1String>
#include <QVector>

class QSqlQuery;

// An endpoint of the admin context: <endpoint>/<period>/<filter>. The shape is the same for
// every endpoint: the checks, the period word looked up in the endpoint's table, the date the
// filter names, then the period's handler, which writes its result or its error to the
// request's Response. Holds nothing of a request, so one instance serves every thread.
class IEndpointController
{
public:
    QLatin1String endpoint() const { return m_endpoint; }
    void process(AdminRequestContext &ctx) const;

protected:
    using Handler = void (*)(AdminRequestContext &ctx, const QDate &date);
    struct Period
    {
        QLatin1String word;
        bool monthly;  // the filter names a month, not a day
        Handler handle;
    };

    IEndpointController(QLatin1String endpoint, QVector<Period> periods);
    ~IEndpointController() = default;

    // Runs a substituted statement; a failure is logged with `failureFormat` and reported
    // as RE_SQLError.
    static bool execOrReport(AdminRequestContext &ctx, QSqlQuery &query, const QString &sql,
                             const char *failureFormat);

private:
    const QLatin1String m_endpoint;
    const QVector<Period> m_periods;
};

#endif

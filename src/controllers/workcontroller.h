#ifndef WORKCONTROLLER_H
#define WORKCONTROLLER_H

#include "controllers/iendpointcontroller.h"

class QSqlQuery;

// work/daily/<filter> and work/monthly/<filter>: hours worked per person of the
// administrator, for one day or one month.
class WorkController : public IEndpointController
{
public:
    WorkController();

    void process(AdminRequestContext &ctx) override;
    QStringList endpoints() const override;

    void processDailyData(AdminRequestContext &ctx, const QString &filter);
    void processMonthlyData(AdminRequestContext &ctx, const QString &filter);

private:
    static void setRows(AdminRequestContext &ctx, QSqlQuery &query);

    QString m_endpoint;
};

#endif

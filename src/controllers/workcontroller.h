#ifndef WORKCONTROLLER_H
#define WORKCONTROLLER_H

#include "controllers/iendpointcontroller.h"

// work/daily/<filter> and work/monthly/<filter>: hours worked per person of the
// administrator, for one day or one month.
class WorkController : public IEndpointController
{
public:
    WorkController();

private:
    static void processDailyData(AdminRequestContext &ctx, const QDate &date);
    static void processMonthlyData(AdminRequestContext &ctx, const QDate &date);
};

#endif

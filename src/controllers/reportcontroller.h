#ifndef REPORTCONTROLLER_H
#define REPORTCONTROLLER_H

#include "controllers/iendpointcontroller.h"

// report/daily, report/monthly and their -detailed forms: active and present counts of the
// administrator's people and each person's absences and overtime for a day or a month,
// folded from the attendance intervals.
class ReportController : public IEndpointController
{
public:
    ReportController();
};

#endif

#ifndef ATTENDANCECONTROLLER_H
#define ATTENDANCECONTROLLER_H

#include "controllers/iendpointcontroller.h"

// attendance/daily/<filter> and attendance/monthly/<filter>: the day and month sheets of
// the administrator's people, durations in hours.
class AttendanceController : public IEndpointController
{
public:
    AttendanceController();

private:
    static void collectDayData(AdminRequestContext &ctx, const QDate &date);
    static void collectMonthData(AdminRequestContext &ctx, const QDate &date);
};

#endif

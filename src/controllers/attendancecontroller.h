#ifndef ATTENDANCECONTROLLER_H
#define ATTENDANCECONTROLLER_H

#include "controllers/iendpointcontroller.h"

// attendance/daily/<filter> and attendance/monthly/<filter>: the day and month sheets of
// the administrator's people, durations in hours.
class AttendanceController : public IEndpointController
{
public:
    AttendanceController();

    void process(AdminRequestContext &ctx) override;
    QStringList endpoints() const override;

    void collectDayData(AdminRequestContext &ctx, const QString &filter);
    void collectMonthData(AdminRequestContext &ctx, const QString &filter);

private:
    QString m_endpoint;
};

#endif

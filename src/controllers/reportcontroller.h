#ifndef REPORTCONTROLLER_H
#define REPORTCONTROLLER_H

#include "controllers/iendpointcontroller.h"

#include <QSqlDatabase>
#include <QVariant>

class JsonWriter;

// report/daily, report/monthly and their -detailed forms: active and present counts of the
// administrator's people and each person's absences and overtime for a day or a month,
// folded from the attendance intervals.
class ReportController : public IEndpointController
{
public:
    ReportController();

    void process(AdminRequestContext &ctx) override;
    QStringList endpoints() const override;

    void buildDailyData(AdminRequestContext &ctx, const QString &filter);
    void buildMonthlyData(AdminRequestContext &ctx, const QString &filter);
    void buildDailyDetailedData(AdminRequestContext &ctx, const QString &filter);
    void buildMonthlyDetailedData(AdminRequestContext &ctx, const QString &filter);

    void buildEmployeeData(AdminRequestContext &ctx, const QDate &from, const QDate &to);
    void buildEmployeeDetailedData(AdminRequestContext &ctx, const QDate &from, const QDate &to);

    QVariant collectActiveEmployees(QSqlDatabase db, const QDate &from, const QDate &to, uint aid);
    // The summary (`detailed` false) or the per-interval form as the next value of `json`;
    // null on a failed query.
    void writeEmployeeData(JsonWriter &json, QSqlDatabase db, const QDate &from, const QDate &to, uint aid,
                           uint &presentCount, bool detailed);

private:
    void buildPeriod(AdminRequestContext &ctx, const QString &filter, bool monthly, bool detailed);
    void buildPayload(AdminRequestContext &ctx, const QDate &from, const QDate &to, bool detailed);

    QString m_endpoint;
};

#endif

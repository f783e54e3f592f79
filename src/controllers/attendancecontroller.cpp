#include "controllers/attendancecontroller.h"

#include "controllers/controllerhelpers.h"
#include "response/jsonwriter.h"
#include "response/response.h"

#include <QSqlQuery>
#include <QSqlRecord>

namespace {

// Overtime of a row: the difference to plan (seconds in the row) in hours when positive.
void writeExtra(JsonWriter &json, const QVariant &diff)
{
    const double hours = secondsToHours(diff.toLongLong());
    json.number(hours > 0 ? hours : 0.0);
}

} // namespace

AttendanceController::AttendanceController()
    : IEndpointController(QLatin1String("attendance"), {{QLatin1String("daily"), false, &collectDayData},
                                                        {QLatin1String("monthly"), true, &collectMonthData}})
{
}

void AttendanceController::collectDayData(AdminRequestContext &ctx, const QDate &date)
{
    QSqlQuery query(ctx.db);
    const QString sql = QStringLiteral(
        "SELECT p.pid personId, p.pamId, CONCAT(p.surname, ' ', p.name) personName, DATE(FROM_UNIXTIME(a.date)) day, "
        "a.dow dayOfWeek, a.entry clockIn, a.leave clockOut, a.total, a.work worked, a.shift shiftNo, a.night nightWork, "
        "a.vouchers foodUnits, a.lunch break, a.diff, a.saldo, a.wta workTimeAccount, saldo_p paid, saldo_c cancelled, "
        "a.ok status, IF(h.localName IS NULL OR h.localName='', h.name, CONCAT_WS('', h.name, ' (', h.localName, ')')) "
        "holiday, a.lock locked, a.inters interruptions, a.bonus, a.note, a.freeDay isFreeDay, a.fond, a.man isManual, "
        "a.checked isChecked, readBegin readinessBegin, IF(readEnd < readBegin, readEnd + 86400, readEnd) readinessEnd, "
        "wore readinessWorked, manOvertime isManualOvertime, overtimeNote, (flags & 1) isPlan FROM atten a LEFT JOIN "
        "people p USING(uid) LEFT JOIN holidays h USING(hid) WHERE uid IN (SELECT ap.uid FROM admins_people ap WHERE "
        "ap.aid = %1) AND a.date = %2 ORDER BY surname, p.name, p.pid")
                            .arg(ctx.admin.aid)
                            .arg(localMidnight(date));
    if (!execOrReport(ctx, query, sql, "AttendanceController::collectDayData() failed! Error: %s"))
        return;

    const QSet<QString> durationColumns = {
        QStringLiteral("clockIn"), QStringLiteral("clockOut"), QStringLiteral("total"),
        QStringLiteral("worked"), QStringLiteral("nightWork"), QStringLiteral("break"),
        QStringLiteral("diff"), QStringLiteral("saldo"), QStringLiteral("workTimeAccount"),
        QStringLiteral("paid"), QStringLiteral("cancelled"), QStringLiteral("bonus"),
        QStringLiteral("fond"), QStringLiteral("readinessBegin"), QStringLiteral("readinessEnd"),
        QStringLiteral("readinessWorked")};
    const QSqlRecord record = query.record();
    const RowLayout layout(record, durationColumns, {QStringLiteral("shift"), QStringLiteral("extra")});
    const int shiftNo = record.indexOf(QStringLiteral("shiftNo"));
    const int isPlan = record.indexOf(QStringLiteral("isPlan"));
    const int fond = record.indexOf(QStringLiteral("fond"));
    const int isFreeDay = record.indexOf(QStringLiteral("isFreeDay"));
    const int diff = record.indexOf(QStringLiteral("diff"));
    ctx.response->setData(layout.rowsBody(query, ctx.header.prettyJson, [&](JsonWriter &out, int computed) {
        if (computed == 0)
            out.string(formatShift(quint8(query.value(shiftNo).toUInt()), query.value(isPlan).toBool(),
                                   query.value(fond).toLongLong() != 0, query.value(isFreeDay).toBool()));
        else
            writeExtra(out, query.value(diff));
    }));
}

void AttendanceController::collectMonthData(AdminRequestContext &ctx, const QDate &date)
{
    // ref_fond stands twice under one alias; in the row it is one key.
    const QString head = QStringLiteral(
        "SELECT a.month, p.pid personId, p.pamId, CONCAT_WS(' ',  p.surname, p.name) personName, a.gid groupId, "
        "g.name groupName, mg.name masterGroupName, p.did departmentId, a.status lockedStatus, a.locks daysLocked, "
        "a.days, a.oks daysOK, a.checks daysChecked, a.fond, a.work worked, a.vouchers foodUnits, a.diff, a.saldo, "
        "a.saldo_p paid, a.saldo_c cancelled, adm.login editor, FROM_UNIXTIME(a.edited) edited, a.ref_fond "
        "referenceFond, a.night nightWork, a.break, a.bonus, a.workDays, a.holidays, a.wfond weekFond, a.ref_workDays "
        "referenceWorkDays, a.ref_holidays referenceHolidays, a.ref_wFond referenceWeekFond, a.ref_fond referenceFond, "
        "a.curSaldo saldoCurrent, a.planSaldo saldoPlaned, a.totalSaldo saldoTotal, a.workDaysVal workDaysWorked, "
        "a.day6sum day6worked, a.day7sum day7worked, a.holidayFond, a.holidaySum holidaysWorked, a.wta "
        "workTimeAccount, a.wtaPlus workTimeAccountPlus, a.wtaMinus workTimeAccountMinus, a.wtaTotal "
        "workTimeAccountTotal, a.readiness, a.readWorked readinessWorked, a.acv versionAC FROM atten_month a LEFT JOIN "
        "people p ON p.uid = a.uid ");
    const QString joins = QStringLiteral(
        "LEFT JOIN groups g ON a.gid = g.gid  LEFT JOIN mastergroups mg ON g.parent = mg.mgId ");
    const QString tail = QStringLiteral(" LEFT JOIN admins adm On a.editorID = adm.aid WHERE a.month = %1 ");
    const QString sql = (head + joins + tail + monthPeopleRestriction(ctx.admin.aid)
                         + QStringLiteral("ORDER BY p.surname, p.name"))
                            .arg(monthNumber(date));
    QSqlQuery query(ctx.db);
    if (!execOrReport(ctx, query, sql, "AttendanceController::collectMonthData() failed! Error: %s"))
        return;

    const QSet<QString> durationColumns = {
        QStringLiteral("fond"), QStringLiteral("worked"), QStringLiteral("diff"),
        QStringLiteral("saldo"), QStringLiteral("paid"), QStringLiteral("cancelled"),
        QStringLiteral("nightWork"), QStringLiteral("break"), QStringLiteral("bonus"),
        QStringLiteral("weekFond"), QStringLiteral("referenceWeekFond"), QStringLiteral("referenceFond"),
        QStringLiteral("saldoCurrent"), QStringLiteral("saldoPlaned"), QStringLiteral("saldoTotal"),
        QStringLiteral("workDaysWorked"), QStringLiteral("day6worked"), QStringLiteral("day7worked"),
        QStringLiteral("holidayFond"), QStringLiteral("holidaysWorked"), QStringLiteral("workTimeAccount"),
        QStringLiteral("workTimeAccountPlus"), QStringLiteral("workTimeAccountMinus"),
        QStringLiteral("workTimeAccountTotal"), QStringLiteral("readiness"), QStringLiteral("readinessWorked")};
    const QSqlRecord record = query.record();
    const RowLayout layout(record, durationColumns, {QStringLiteral("extra")});
    const int diff = record.indexOf(QStringLiteral("diff"));
    ctx.response->setData(
        layout.rowsBody(query, ctx.header.prettyJson, [&](JsonWriter &out, int) { writeExtra(out, query.value(diff)); }));
}

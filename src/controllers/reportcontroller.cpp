#include "controllers/reportcontroller.h"

#include "controllers/controllerhelpers.h"
#include "response/response.h"

#include <QDateTime>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>

namespace {

const QString kIntervalTimeFormat = QStringLiteral("yyyy.MM.dd hh:mm:ss");

QString intervalTime(uint secs)
{
    return QDateTime::fromSecsSinceEpoch(secs).toString(kIntervalTimeFormat);
}

} // namespace

ReportController::ReportController()
    : m_endpoint(QStringLiteral("report"))
{
}

QStringList ReportController::endpoints() const
{
    return {m_endpoint};
}

void ReportController::process(AdminRequestContext &ctx)
{
    QString period;
    QString filter;
    if (!acceptRequest(ctx, m_endpoint, period, filter))
        return;
    if (period == QLatin1String("daily"))
        buildDailyData(ctx, filter);
    else if (period == QLatin1String("monthly"))
        buildMonthlyData(ctx, filter);
    else if (period == QLatin1String("daily-detailed"))
        buildDailyDetailedData(ctx, filter);
    else if (period == QLatin1String("monthly-detailed"))
        buildMonthlyDetailedData(ctx, filter);
    else
        ctx.response->setError(Response::RE_InvalidApiEndpoint, period);
}

void ReportController::buildDailyData(AdminRequestContext &ctx, const QString &filter)
{
    if (m_debug)
        qDebug("ReportController::buildDailyData() period: '%s' aid: %u", qPrintable(filter), uint(ctx.admin.aid));
    buildPeriod(ctx, filter, false, false);
}

void ReportController::buildMonthlyData(AdminRequestContext &ctx, const QString &filter)
{
    if (m_debug)
        qDebug("ReportController::buildMonthlyData() period: '%s' aid: %u", qPrintable(filter), uint(ctx.admin.aid));
    buildPeriod(ctx, filter, true, false);
}

void ReportController::buildDailyDetailedData(AdminRequestContext &ctx, const QString &filter)
{
    if (m_debug)
        qDebug("ReportController::buildDailyDetailedData() period: '%s' aid: %u", qPrintable(filter),
               uint(ctx.admin.aid));
    buildPeriod(ctx, filter, false, true);
}

void ReportController::buildMonthlyDetailedData(AdminRequestContext &ctx, const QString &filter)
{
    if (m_debug)
        qDebug("ReportController::buildMonthlyDetailedData() period: '%s' aid: %u", qPrintable(filter),
               uint(ctx.admin.aid));
    buildPeriod(ctx, filter, true, true);
}

void ReportController::buildPeriod(AdminRequestContext &ctx, const QString &filter, bool monthly, bool detailed)
{
    const QDate date = periodDate(ctx, filter, monthly);
    if (!date.isValid())
        return;
    // An offset lands in a month, and the whole month is taken.
    const QDate from = monthly ? QDate(date.year(), date.month(), 1) : date;
    const QDate to = monthly ? QDate(date.year(), date.month(), date.daysInMonth()) : date;
    if (detailed)
        buildEmployeeDetailedData(ctx, from, to);
    else
        buildEmployeeData(ctx, from, to);
}

void ReportController::buildEmployeeData(AdminRequestContext &ctx, const QDate &from, const QDate &to)
{
    if (m_debug)
        qDebug("ReportController::buildEmployeeData() '%s' .. '%s'", qPrintable(from.toString(Qt::ISODate)),
               qPrintable(to.toString(Qt::ISODate)));
    buildPayload(ctx, from, to, false);
}

void ReportController::buildEmployeeDetailedData(AdminRequestContext &ctx, const QDate &from, const QDate &to)
{
    if (m_debug)
        qDebug("ReportController::buildEmployeeDetailedData() '%s' .. '%s'", qPrintable(from.toString(Qt::ISODate)),
               qPrintable(to.toString(Qt::ISODate)));
    buildPayload(ctx, from, to, true);
}

void ReportController::buildPayload(AdminRequestContext &ctx, const QDate &from, const QDate &to, bool detailed)
{
    QVariantMap payload;
    payload.insert(QStringLiteral("activeEmployees"), collectActiveEmployees(ctx.db, from, to, ctx.admin.aid));
    payload.insert(QStringLiteral("dateFrom"), from);
    payload.insert(QStringLiteral("dateTo"), to);
    uint presentCount = 0;
    payload.insert(QStringLiteral("employeeData"),
                   collectEmployeeData(ctx.db, from, to, ctx.admin.aid, presentCount, detailed));
    payload.insert(QStringLiteral("presentEmployees"), presentCount);
    ctx.response->setData(payload);
}

QVariant ReportController::collectActiveEmployees(QSqlDatabase db, const QDate &from, const QDate &to, uint aid)
{
    if (m_debug)
        qDebug("EmployeeAttendanceBuilder::collectActiveEmployees() '%s' .. '%s' aid: %u",
               qPrintable(from.toString(Qt::ISODate)), qPrintable(to.toString(Qt::ISODate)), aid);
    QSqlQuery query(db);
    query.prepare(QStringLiteral(
        "SELECT COUNT(uid) FROM people p LEFT JOIN admins_people ap USING(uid) WHERE aid = :aid AND status AND begin <= "
        "UNIX_TIMESTAMP(:date1) AND (end IS NULL OR end >= UNIX_TIMESTAMP(:date2))"));
    query.bindValue(QStringLiteral(":date1"), from);
    query.bindValue(QStringLiteral(":date2"), to);
    query.bindValue(QStringLiteral(":aid"), aid);
    uint count = 0;
    if (!query.exec())
        qWarning("EmployeeAttendanceBuilder::collectActiveEmployees() - SQL ERROR: %s",
                 qPrintable(query.lastError().text()));
    else if (query.next())
        count = query.value(0).toUInt();
    if (m_debug)
        qDebug("AdminContextBuilder::collectActiveEmployees() SQL: %s", qPrintable(query.lastQuery()));
    return count;
}

QVariant ReportController::collectEmployeeData(QSqlDatabase db, const QDate &from, const QDate &to, uint aid,
                                               uint &presentCount, bool detailed)
{
    if (m_debug)
        qDebug("EmployeeAttendanceBuilder::collectEmployeeData() '%s' .. '%s' aid: %u",
               qPrintable(from.toString(Qt::ISODate)), qPrintable(to.toString(Qt::ISODate)), aid);
    QSqlQuery query(db);
    if (detailed)
        query.prepare(QStringLiteral(
            "SELECT p.uid, p.pid, p.pamId, p.surname, p.name, i.shortcut, ad.from `from`, ad.from+ad.duration `to`, "
            "ad.duration,ad.iid, i.present, i.work, (SELECT SUM(diff) FROM atten a WHERE a.uid = ad.uid AND a.date >= "
            "UNIX_TIMESTAMP(:date1) and a.date <= UNIX_TIMESTAMP(:date2)) as diff FROM atten_data ad LEFT JOIN inters i "
            "ON ad.iid = i.iid  LEFT JOIN people p ON p.uid = ad.uid WHERE ad.iid < 1000 AND ad.del=0 AND ad.from >= "
            "UNIX_TIMESTAMP(:date1) AND ad.from < UNIX_TIMESTAMP(:date3) and ad.uid IN (SELECT ap.uid FROM "
            "admins_people ap WHERE ap.aid = :aid)"));
    else
        query.prepare(QStringLiteral(
            "SELECT p.uid, p.pid, p.pamId, p.surname, p.name, i.shortcut, SUM(duration) duration, ad.iid, i.present, "
            "i.work, (SELECT SUM(diff) FROM atten a WHERE a.uid = ad.uid AND a.date >= UNIX_TIMESTAMP(:date1) and "
            "a.date <= UNIX_TIMESTAMP(:date2)) as diff FROM atten_data ad LEFT JOIN inters i ON ad.iid = i.iid  LEFT "
            "JOIN people p ON p.uid = ad.uid WHERE ad.iid < 1000 AND ad.del=0 AND ad.from >= UNIX_TIMESTAMP(:date1) "
            "AND ad.from < UNIX_TIMESTAMP(:date3) and ad.uid IN (SELECT ap.uid FROM admins_people ap WHERE ap.aid = "
            ":aid) GROUP BY ad.uid, ad.iid;"));
    query.bindValue(QStringLiteral(":date1"), from);
    query.bindValue(QStringLiteral(":date2"), to);
    query.bindValue(QStringLiteral(":date3"), to.addDays(1));
    query.bindValue(QStringLiteral(":aid"), aid);
    if (!query.exec()) {
        // The report still answers, with no employee data.
        qWarning("AdminContextBuilder::collectEmployeeData() failed! Error: %s", qPrintable(query.lastError().text()));
        return QVariant();
    }
    if (m_debug)
        qDebug("AdminContextBuilder::collectEmployeeData() SQL: %s", qPrintable(query.lastQuery()));

    const QSqlRecord record = query.record();
    const int cUid = record.indexOf(QStringLiteral("uid"));
    const int cPid = record.indexOf(QStringLiteral("pid"));
    const int cPamId = record.indexOf(QStringLiteral("pamId"));
    const int cSurname = record.indexOf(QStringLiteral("surname"));
    const int cName = record.indexOf(QStringLiteral("name"));
    const int cShortcut = record.indexOf(QStringLiteral("shortcut"));
    const int cFrom = record.indexOf(QStringLiteral("from"));
    const int cTo = record.indexOf(QStringLiteral("to"));
    const int cDuration = record.indexOf(QStringLiteral("duration"));
    const int cPresent = record.indexOf(QStringLiteral("present"));
    const int cWork = record.indexOf(QStringLiteral("work"));
    const int cDiff = record.indexOf(QStringLiteral("diff"));

    const QString keyPresent = QStringLiteral("present");
    const QString keyIntervals = QStringLiteral("attendanceData");
    QVariantList result;
    QVariantList intervals;
    QVariantMap person;
    uint lastUid = 0;
    // People are told apart by a change of uid between neighbouring rows.
    auto flush = [&]() {
        if (person.value(keyPresent).toBool())
            ++presentCount;
        if (detailed) {
            person.insert(keyIntervals, intervals);
            intervals.clear();
        }
        result.append(person);
        person.clear();
    };
    while (query.next()) {
        const uint uid = query.value(cUid).toUInt();
        if (lastUid != 0 && lastUid != uid)
            flush();

        const bool present = query.value(cPresent).toBool();
        // The summary keeps presence once seen; the detail takes the last row's.
        if (detailed)
            person.insert(keyPresent, present);
        else if (present)
            person.insert(keyPresent, true);
        person.insert(QStringLiteral("personId"), storedValue(query.value(cPid)));
        person.insert(QStringLiteral("pamId"), storedValue(query.value(cPamId)));
        person.insert(QStringLiteral("name"), QStringLiteral("%1 %2").arg(query.value(cSurname).toString(),
                                                                          query.value(cName).toString()));
        const double diff = query.value(cDiff).toDouble();
        person.insert(QStringLiteral("extra"), diff > 0 ? secondsToHours(qint64(diff)) : QVariant(0));

        // Reasons that count as work are not listed.
        if (!query.value(cWork).toBool()) {
            if (detailed) {
                QVariantMap interval;
                interval.insert(QStringLiteral("shortcut"), storedValue(query.value(cShortcut)));
                interval.insert(QStringLiteral("from"), intervalTime(query.value(cFrom).toUInt()));
                interval.insert(QStringLiteral("to"), intervalTime(query.value(cTo).toUInt()));
                interval.insert(QStringLiteral("duration"), secondsToHours(query.value(cDuration).toUInt()));
                intervals.append(interval);
            } else {
                person.insert(query.value(cShortcut).toString(), secondsToHours(query.value(cDuration).toInt()));
            }
        }
        lastUid = uid;
    }
    if (!person.isEmpty())
        flush();
    return result;
}

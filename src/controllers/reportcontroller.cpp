#include "controllers/reportcontroller.h"

#include "controllers/controllerhelpers.h"
#include "response/jsonwriter.h"
#include "response/response.h"
#include "response/sqlrow.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>

namespace {

QString quotedDate(const QDate &date)
{
    return QLatin1Char('\'') + date.toString(Qt::ISODate) + QLatin1Char('\'');
}

QVariant collectActiveEmployees(const QSqlDatabase &db, const QDate &from, const QDate &to, uint aid)
{
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
    return count;
}

// The summary (`detailed` false) or the per-interval form as the next value of `json`; null
// on a failed query.
void writeEmployeeData(JsonWriter &json, const QSqlDatabase &db, const QDate &from, const QDate &to, uint aid,
                       uint &presentCount, bool detailed)
{
    // The dates and the administrator's number are the server's own values, never client
    // text: the statement goes as text, so that its rows can be read in place.
    const QString sql = detailed
        ? QStringLiteral(
            "SELECT p.uid, p.pid, p.pamId, p.surname, p.name, i.shortcut, ad.from `from`, ad.from+ad.duration `to`, "
            "ad.duration,ad.iid, i.present, i.work, (SELECT SUM(diff) FROM atten a WHERE a.uid = ad.uid AND a.date >= "
            "UNIX_TIMESTAMP(:date1) and a.date <= UNIX_TIMESTAMP(:date2)) as diff FROM atten_data ad LEFT JOIN inters i "
            "ON ad.iid = i.iid  LEFT JOIN people p ON p.uid = ad.uid WHERE ad.iid < 1000 AND ad.del=0 AND ad.from >= "
            "UNIX_TIMESTAMP(:date1) AND ad.from < UNIX_TIMESTAMP(:date3) and ad.uid IN (SELECT ap.uid FROM "
            "admins_people ap WHERE ap.aid = :aid)")
        : QStringLiteral(
            "SELECT p.uid, p.pid, p.pamId, p.surname, p.name, i.shortcut, SUM(duration) duration, ad.iid, i.present, "
            "i.work, (SELECT SUM(diff) FROM atten a WHERE a.uid = ad.uid AND a.date >= UNIX_TIMESTAMP(:date1) and "
            "a.date <= UNIX_TIMESTAMP(:date2)) as diff FROM atten_data ad LEFT JOIN inters i ON ad.iid = i.iid  LEFT "
            "JOIN people p ON p.uid = ad.uid WHERE ad.iid < 1000 AND ad.del=0 AND ad.from >= UNIX_TIMESTAMP(:date1) "
            "AND ad.from < UNIX_TIMESTAMP(:date3) and ad.uid IN (SELECT ap.uid FROM admins_people ap WHERE ap.aid = "
            ":aid) GROUP BY ad.uid, ad.iid;");
    QSqlQuery query(db);
    if (!query.exec(QString(sql)
                        .replace(QLatin1String(":date1"), quotedDate(from))
                        .replace(QLatin1String(":date2"), quotedDate(to))
                        .replace(QLatin1String(":date3"), quotedDate(to.addDays(1)))
                        .replace(QLatin1String(":aid"), QString::number(aid)))) {
        // The report still answers, with no employee data.
        qWarning("AdminContextBuilder::collectEmployeeData() failed! Error: %s", qPrintable(query.lastError().text()));
        json.null();
        return;
    }

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

    // What a person's row says of the person; the last row of a person wins.
    struct PersonFields
    {
        bool present = false;
        QVariant personId;
        QVariant pamId;
        QString name;
        double extra = 0;
    } last;
    // The summary keys its reasons by their own shortcuts, which may take any name, even
    // that of a field; a map keeps those collisions as they always were. The detail streams
    // its intervals first ("attendanceData" sorts first) and the fields after them.
    QVariantMap summary;
    bool open = false;
    uint lastUid = 0;
    // People are told apart by a change of uid between neighbouring rows.
    auto flush = [&]() {
        if (detailed) {
            json.endArray();
            json.key("extra").number(last.extra);
            json.key("name").string(last.name);
            json.key("pamId").stored(last.pamId);
            json.key("personId").stored(last.personId);
            json.key("present").boolean(last.present);
            json.endObject();
            presentCount += last.present ? 1 : 0;
        } else {
            presentCount += summary.value(QStringLiteral("present")).toBool() ? 1 : 0;
            json.variant(summary);
            summary.clear();
        }
        open = false;
    };
    SqlRow row(query);
    json.beginArray();
    while (row.next()) {
        const uint uid = row.toUInt(cUid);
        if (lastUid != 0 && lastUid != uid)
            flush();
        if (!open && detailed) {
            json.beginObject();
            json.key("attendanceData").beginArray();
        }
        if (!open) {
            // The person's own columns and the sum are the same on all of the person's rows.
            last.personId = row.value(cPid);
            last.pamId = row.value(cPamId);
            last.name = QStringLiteral("%1 %2").arg(row.value(cSurname).toString(), row.value(cName).toString());
            const double diff = row.value(cDiff).toDouble();
            last.extra = diff > 0 ? secondsToHours(qint64(diff)) : 0;
        }
        open = true;

        last.present = row.toBool(cPresent);
        const bool listed = !row.toBool(cWork);  // reasons that count as work are not
        if (detailed && listed) {
            json.beginObject();
            json.key("duration").number(secondsToHours(row.toUInt(cDuration)));
            json.key("from").localTime(row.toUInt(cFrom), JsonWriter::DottedDateTime);
            json.key("shortcut");
            row.writeStored(json, cShortcut);
            json.key("to").localTime(row.toUInt(cTo), JsonWriter::DottedDateTime);
            json.endObject();
        } else if (!detailed) {
            // The summary keeps presence once seen.
            if (last.present)
                summary.insert(QStringLiteral("present"), true);
            summary.insert(QStringLiteral("personId"), storedValue(last.personId));
            summary.insert(QStringLiteral("pamId"), storedValue(last.pamId));
            summary.insert(QStringLiteral("name"), last.name);
            summary.insert(QStringLiteral("extra"), last.extra);
            if (listed)
                summary.insert(row.value(cShortcut).toString(), secondsToHours(row.toInt(cDuration)));
        }
        lastUid = uid;
    }
    if (open)
        flush();
    json.endArray();
}

// A day, or the whole month an offset or a literal month lands in.
template <bool monthly, bool detailed>
void buildPeriod(AdminRequestContext &ctx, const QDate &date)
{
    const QDate from = monthly ? QDate(date.year(), date.month(), 1) : date;
    const QDate to = monthly ? QDate(date.year(), date.month(), date.daysInMonth()) : date;
    JsonWriter json(ctx.header.prettyJson);
    json.beginObject();
    json.key("activeEmployees").variant(collectActiveEmployees(ctx.db, from, to, ctx.admin.aid));
    json.key("dateFrom").variant(from);
    json.key("dateTo").variant(to);
    uint presentCount = 0;
    writeEmployeeData(json.key("employeeData"), ctx.db, from, to, ctx.admin.aid, presentCount, detailed);
    json.key("presentEmployees").number(presentCount);
    json.endObject();
    ctx.response->setData(json.takeBody());
}

} // namespace

ReportController::ReportController()
    : IEndpointController(QLatin1String("report"), {{QLatin1String("daily"), false, &buildPeriod<false, false>},
                                                    {QLatin1String("monthly"), true, &buildPeriod<true, false>},
                                                    {QLatin1String("daily-detailed"), false, &buildPeriod<false, true>},
                                                    {QLatin1String("monthly-detailed"), true, &buildPeriod<true, true>}})
{
}

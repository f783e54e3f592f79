#include "terminal/syncfeed.h"

#include "terminal/entrances.h"
#include "terminal/terminals.h"
#include "terminal/terminalsql.h"

#include "response/jsonwriter.h"
#include "response/response.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QtDebug>

// The terminal synchronisation feed: marks in term_sync, summarised by the bits of term.syn,
// read by a terminal and removed when it acknowledges them. Keys are bare numbers here,
// not composite identifiers: the terminals of the feed read them so.

namespace {

// One keyed section of the feed: its statements and how a row becomes an entry.
struct SyncSection
{
    const char *name;        // the operation, for the trace line
    const char *errorLine;   // the failure line of its statement
    QString full;            // every row, each as a fresh 'U' stamped now
    QString incremental;     // the pending marks, oldest first
    int keyColumn;           // the column whose number keys the entry
    QVariant (*entry)(const QSqlQuery &query);
};


// Section bits of term.syn, term.flags and term_sync.flags.
enum SyncBit : uint {
    SyncInters = 1,
    SyncPeople = 2,
    SyncSaldo = 4,
    SyncPresent = 8,
    SyncTimezones = 64,
    SyncGroups = 256,
};

// Text columns are sent up to their first zero byte, as the terminals store them.
QString zeroEndedText(const QVariant &value)
{
    return QString::fromUtf8(value.toByteArray().constData());
}

bool isDeleted(const QSqlQuery &query)
{
    return query.value(0).toString() == QLatin1String("D");
}

// Columns: type, created, iid, name, shortcut, weight, start, stop, color.
QVariant interEntry(const QSqlQuery &query)
{
    QVariantMap row;
    row.insert(QStringLiteral("type"), query.value(0).toString());
    row.insert(QStringLiteral("tsc"), query.value(1).toUInt());
    if (!isDeleted(query)) {
        row.insert(QStringLiteral("name"), zeroEndedText(query.value(3)));
        row.insert(QStringLiteral("shortcut"), query.value(4).toString());
        row.insert(QStringLiteral("weight"), query.value(5).toInt());
        row.insert(QStringLiteral("start"), query.value(6).toString());
        row.insert(QStringLiteral("stop"), query.value(7).toString());
        row.insert(QStringLiteral("color"), query.value(8).toString());
    }
    return row;
}

// Columns: type, created, uid, pid, name, surname, title, title2, admin, card, saldo,
// access, grp, present, begin, end.
QVariant personEntry(const QSqlQuery &query)
{
    QVariantMap row;
    row.insert(QStringLiteral("type"), query.value(0).toString());
    row.insert(QStringLiteral("tsc"), query.value(1).toUInt());
    row.insert(QStringLiteral("pid"), query.value(3).toUInt());
    if (!isDeleted(query)) {
        row.insert(QStringLiteral("name"), zeroEndedText(query.value(4)));
        row.insert(QStringLiteral("surname"), zeroEndedText(query.value(5)));
        row.insert(QStringLiteral("title"), query.value(6).toString());
        row.insert(QStringLiteral("title2"), query.value(7).toString());
        row.insert(QStringLiteral("admin"), query.value(8).toBool());
        row.insert(QStringLiteral("card"), query.value(9).toString());
        row.insert(QStringLiteral("saldo"), query.value(10).toInt());
        row.insert(QStringLiteral("access"), query.value(11).toBool());
        row.insert(QStringLiteral("grp"), query.value(12).toUInt());  // NULL without a link: 0
        row.insert(QStringLiteral("present"), query.value(13).toUInt());
        row.insert(QStringLiteral("begin"), storedValue(query.value(14)));
        row.insert(QStringLiteral("end"), storedValue(query.value(15)));
    }
    return row;
}

// The three value sections: uid, then the value.
QVariant saldoEntry(const QSqlQuery &query)
{
    return query.value(1).toInt();
}

QVariant presentEntry(const QSqlQuery &query)
{
    return query.value(1).toBool();
}

QVariant groupEntry(const QSqlQuery &query)
{
    return query.value(1).toUInt();
}

const SyncSection kInters = {
    "WebApiWorker::dbGetSyncInters", "WebApiWorker::dbGetSyncInters() SQl ERROR:",
    QStringLiteral("SELECT 'U' type, UNIX_TIMESTAMP() created, i.iid, i.name, i.shortcut, i.weight, i.start, "
                   "i.stop, i.color FROM inters_term it JOIN inters i ON it.iid = i.iid WHERE it.tid = %1"),
    QStringLiteral("SELECT s.type, s.created, i.iid, i.name, i.shortcut, i.weight, i.start, i.stop, i.color "
                   "FROM term_sync s JOIN inters i ON ref_id = iid WHERE s.tid = %1 AND s.flags = 1 AND "
                   "ref_col = 'iid'ORDER BY s.created"),
    2, interEntry};

const SyncSection kPeople = {
    "WebApiWorker::dbGetSyncPeople", "WebApiWorker::dbGetSyncPeople() SQl ERROR:",
    QStringLiteral("SELECT 'U' type, UNIX_TIMESTAMP() created, p.uid, p.pid, p.name, p.surname, p.title, "
                   "p.title2, p.admin, p.card, p.saldo, p.access, pt.grp, p.present, p.begin, p.end FROM "
                   "people_term pt JOIN people p ON pt.uid = p.uid WHERE pt.tid = %1 AND (p.end IS NULL OR "
                   "p.end > UNIX_TIMESTAMP())"),
    QStringLiteral("SELECT s.type, s.created, p.uid, p.pid, p.name, p.surname, p.title, p.title2, p.admin, "
                   "p.card, p.saldo, p.access, pt.grp, p.present, p.begin, p.end FROM term_sync s JOIN people p "
                   "ON ref_id = uid LEFT JOIN people_term pt ON pt.uid = p.uid AND pt.tid = s.tid WHERE "
                   "s.tid = %1 AND s.flags = 2 AND ref_col = 'uid'ORDER BY s.created"),
    2, personEntry};

const SyncSection kSaldo = {
    "WebApiWorker::dbGetSyncSaldo", "WebApiWorker::dbGetSyncSaldo() SQl ERROR:",
    QStringLiteral("SELECT p.uid, p.saldo FROM people_term pt JOIN people p ON pt.uid = p.uid WHERE pt.tid = %1 "),
    QStringLiteral("SELECT p.uid, p.saldo FROM term_sync s JOIN people p ON ref_id = uid WHERE s.tid = %1 AND "
                   "s.flags = 4 AND s.type = 'U' AND ref_col = 'uid'ORDER BY s.created"),
    0, saldoEntry};

const SyncSection kPresent = {
    "WebApiWorker::dbGetSyncPresent", "WebApiWorker::dbGetSyncPresent() SQl ERROR:",
    QStringLiteral("SELECT p.uid, p.present FROM people_term pt JOIN people p ON pt.uid = p.uid WHERE pt.tid = %1"),
    QStringLiteral("SELECT p.uid, p.present FROM term_sync s JOIN people p ON ref_id = uid WHERE s.tid = %1 AND "
                   "s.flags = 8 AND s.type = 'U' AND ref_col = 'uid'ORDER BY s.created"),
    0, presentEntry};

const SyncSection kGroups = {
    "WebApiWorker::dbGetClrGrp", "WebApiWorker::dbGetClrGrp() SQl ERROR:",
    QStringLiteral("SELECT pt.uid, pt.grp FROM people_term pt WHERE pt.tid = %1"),
    QStringLiteral("SELECT pt.uid, pt.grp FROM term_sync s JOIN people_term pt ON s.tid = pt.tid AND s.ref_id = "
                   "pt.uid WHERE s.tid = %1 AND s.flags = 256 AND s.type = 'U' AND ref_col = 'uid'ORDER BY "
                   "s.created"),
    0, groupEntry};

QVariantMap dbGetSyncSection(const TerminalRequestContext &ctx, const SyncSection &section, uint tid, bool force)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("%s(%u, %i)", section.name, tid, force);
    QVariantMap result;
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query, (force ? section.full : section.incremental).arg(tid), section.errorLine))
        return result;
    // A later row of one key replaces the earlier: the latest mark wins.
    while (query.next())
        result.insert(query.value(section.keyColumn).toString(), section.entry(query));
    if (force) {
        // The pending marks lie over the full copy, so a 'D' replaces the full row.
        const QVariantMap pending = dbGetSyncSection(ctx, section, tid, false);
        for (auto it = pending.cbegin(); it != pending.cend(); ++it)
            result.insert(it.key(), it.value());
    }
    return result;
}

QVariantMap dbGetSyncTimezones(const TerminalRequestContext &ctx, uint tid, bool force)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbGetSyncTimezones(%u, %i)", tid, force);
    // Both parts render as null until their statement has run.
    QVariantMap result;
    result.insert(QStringLiteral("zones"), QVariant());
    result.insert(QStringLiteral("pzt"), QVariant());

    QSqlQuery query(ctx.db);
    // The full form has no terminal: every zone goes to every terminal.
    const QString zonesSql = force
        ? QStringLiteral("SELECT 'U' type, UNIX_TIMESTAMP() created, z.* FROM zones z")
        : QStringLiteral("SELECT s.type, s.created, z.* FROM term_sync s JOIN zones z ON ref_id = zid WHERE tid = %1 "
                         "AND s.flags = 64 AND ref = 'zones'ORDER BY s.created").arg(tid);
    if (!runQuery(ctx, query, zonesSql, "WebApiWorker::dbGetSyncTimezones() SQl-1 ERROR:"))
        return result;
    const QSqlRecord record = query.record();
    const int zid = record.indexOf(QStringLiteral("zid"));
    const int name = record.indexOf(QStringLiteral("name"));
    const int fromTime = record.indexOf(QStringLiteral("from_time"));
    const int toTime = record.indexOf(QStringLiteral("to_time"));
    const int days = record.indexOf(QStringLiteral("days"));
    const int status = record.indexOf(QStringLiteral("status"));
    QVariantMap zones;
    while (query.next()) {
        QVariantMap zone;
        zone.insert(QStringLiteral("type"), query.value(0).toString());
        zone.insert(QStringLiteral("tsc"), query.value(1).toUInt());
        zone.insert(QStringLiteral("zid"), query.value(zid).toUInt());
        zone.insert(QStringLiteral("name"), query.value(name).toString());
        zone.insert(QStringLiteral("from_time"), query.value(fromTime).toUInt());
        zone.insert(QStringLiteral("to_time"), query.value(toTime).toUInt());
        zone.insert(QStringLiteral("days"), query.value(days).toUInt());
        zone.insert(QStringLiteral("status"), query.value(status).toUInt());
        zones.insert(query.value(zid).toString(), zone);
    }
    result.insert(QStringLiteral("zones"), zones);

    const QString pztSql = force
        ? QStringLiteral("SELECT 'U' type, UNIX_TIMESTAMP() created, zid, uid FROM pzt WHERE tid = %1")
        : QStringLiteral("SELECT s.type, s.created, ref_id zid, ref_id2 uid FROM term_sync s WHERE tid = %1 AND "
                         "s.flags = 64 AND ref = 'pzt'ORDER BY s.created");
    if (!runQuery(ctx, query, pztSql.arg(tid), "WebApiWorker::dbGetSyncTimezones() SQl-2 ERROR:"))
        return result;
    // A person may hold many assignments: a list, not keyed.
    QVariantList assignments;
    while (query.next()) {
        QVariantMap assignment;
        assignment.insert(QStringLiteral("type"), query.value(0).toString());
        assignment.insert(QStringLiteral("tsc"), query.value(1).toUInt());
        assignment.insert(QStringLiteral("zid"), query.value(2).toUInt());
        assignment.insert(QStringLiteral("uid"), query.value(3).toUInt());
        assignments.append(assignment);
    }
    result.insert(QStringLiteral("pzt"), assignments);
    return result;
}

QVariantMap dbGetVars(const TerminalRequestContext &ctx, uint tid)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbGetVars(%u)", tid);
    // No full form: even a forced feed shows only the marked variables.
    QVariantMap vars;
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query,
                  QStringLiteral("SELECT name, value FROM term_sync s JOIN vars v ON  v.name = s.ref_col WHERE "
                                 "s.tid = %1 AND s.flags = 256 AND s.type = 'U' AND ref = 'vars'ORDER BY s.created")
                      .arg(tid),
                  "WebApiWorker::dbGetVars() SQl ERROR:"))
        return vars;
    while (query.next())
        vars.insert(query.value(0).toString(), storedValue(query.value(1)));
    return vars;
}

} // namespace

bool dbGetSync(const TerminalRequestContext &ctx, uint tid, bool force)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbGetSync(tid=%u, force=%i)", tid, force);
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query, QStringLiteral("SELECT syn, status, flags FROM term WHERE tid = %1").arg(tid),
                  "WebApiWorker::dbGetSync() SQl ERROR:"))
        return false;
    uint syn = 0;
    bool status = false;
    uint flags = 0;
    if (query.next()) {
        syn = query.value(0).toUInt();
        status = query.value(1).toBool();
        flags = query.value(2).toUInt();
    }
    // Forcing asks for a full copy of every section the terminal takes part in.
    const uint mask = force ? (syn | flags) : syn;

    // Asking for the feed is what marks a terminal as alive, known or not.
    QVariantMap alive;
    alive.insert(QStringLiteral("setOnline"), dbSetTermOnline(ctx, tid));
    alive.insert(QStringLiteral("flags"), flags);
    ctx.response->setData(alive);
    if (mask == 0)
        return false;

    QVariantMap feed;
    feed.insert(QStringLiteral("sync"), mask);
    feed.insert(QStringLiteral("status"), status);
    if (status) {
        if (mask & SyncInters)
            feed.insert(QStringLiteral("inters"), dbGetSyncSection(ctx, kInters, tid, force));
        if (mask & SyncPeople)
            feed.insert(QStringLiteral("people"), dbGetSyncSection(ctx, kPeople, tid, force));
        if (mask & SyncSaldo)
            feed.insert(QStringLiteral("saldo"), dbGetSyncSection(ctx, kSaldo, tid, force));
        if (mask & SyncPresent)
            feed.insert(QStringLiteral("present"), dbGetSyncSection(ctx, kPresent, tid, force));
        if (mask & SyncTimezones)
            feed.insert(QStringLiteral("timezones"), dbGetSyncTimezones(ctx, tid, force));
        if (mask & SyncGroups) {
            feed.insert(QStringLiteral("grp"), dbGetSyncSection(ctx, kGroups, tid, force));
            const QVariantMap vars = dbGetVars(ctx, tid);
            if (!vars.isEmpty())
                feed.insert(QStringLiteral("vars"), vars);
        }
        if (force)
            feed.insert(QStringLiteral("lastId"), dbGetEntranceMaxRefId(ctx, tid));
    }
    ctx.response->setData(feed);
    return true;
}

int dbDeleteSync(const TerminalRequestContext &ctx, uint tid, uint created, quint16 flags)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbDeleteSync(%u, %u, %u)", tid, created, uint(flags));
    static const char *const kErrorLine = "WebApiWorker::dbDeleteSync() SQl ERROR:";
    QSqlQuery query(ctx.db);
    // The limit is strict: a mark of exactly `created` stays.
    if (!runQuery(ctx, query, QStringLiteral("DELETE FROM term_sync WHERE tid = %1 AND created < %2 AND (flags & %3)")
                                  .arg(tid)
                                  .arg(created)
                                  .arg(flags),
                  kErrorLine))
        return -1;
    // From here on the marks are gone, whether or not syn can be recomputed.
    const int deleted = query.numRowsAffected();
    if (!runQuery(ctx, query, QStringLiteral("SELECT DISTINCT flags FROM term_sync WHERE tid = %1").arg(tid),
                  kErrorLine))
        return deleted;
    uint left = 0;
    while (query.next())
        left |= query.value(0).toUInt();
    // Only ever clears: a bit stays while marks of it are left, and none is raised here.
    runQuery(ctx, query, QStringLiteral("UPDATE term SET syn = (syn & %2) WHERE tid = %1").arg(tid).arg(left),
             kErrorLine);
    return deleted;
}

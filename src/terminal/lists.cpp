#include "terminal/lists.h"

#include "terminal/identifiers.h"
#include "terminal/terminalsql.h"

#include "response/jsonwriter.h"
#include "response/response.h"
#include "response/sqlrow.h"

#include <QSqlQuery>
#include <QtDebug>

namespace {

// A reason code; both statements select iid, name, shortcut, weight, color.
void writeInter(JsonWriter &json, const SqlRow &row)
{
    json.beginObject();
    json.key("color");
    row.writeText(json, 4);
    json.key("iid").integer(row.toUInt(0));
    json.key("name");
    row.writeText(json, 1);
    json.key("shortcut");
    row.writeText(json, 2);
    json.key("weight").integer(row.toInt(3));
    json.endObject();
}

// A group as stored, under the names its statement gives the columns, in key order.
void writeGroup(JsonWriter &json, const SqlRow &row)
{
    static const struct
    {
        const char *key;
        int column;
    } columns[] = {{"gid", 0}, {"masterGroup", 4}, {"masterGroupId", 3}, {"name", 1},
                   {"region", 6}, {"regionId", 5}, {"shifts", 2}};
    json.beginObject();
    for (const auto &column : columns) {
        json.key(column.key);
        row.writeStored(json, column.column);
    }
    json.endObject();
}

// Presence of one person from uid, pid, present; with `entrance` also the time and reason
// of the presence entrance (columns 3 and 4).
void writePresence(JsonWriter &json, const SqlRow &row, bool entrance)
{
    json.beginObject();
    if (entrance) {
        json.key("date");
        row.isNull(3) ? json.null() : json.localTime(row.toLongLong(3), JsonWriter::IsoDateTime);
        json.key("iid");
        row.isNull(4) ? json.null() : json.integer(row.toUInt(4));
    }
    json.key("present").boolean(row.toBool(2));
    json.key("uid").string(encodeId(row.toUInt(0), row.toUInt(1)));
    json.endObject();
}

// The conditions of the per-terminal reads: the terminal's active people, or one of them.
QStringList terminalPeopleWhere(uint tid, uint uid)
{
    QStringList where = {QStringLiteral("pt.tid=%1 AND p.status = 1").arg(tid)};
    if (uid != 0)
        where << QStringLiteral("pt.uid=%1").arg(uid);
    return where;
}

} // namespace

QVariant dbGetInters4Terminal(const TerminalRequestContext &ctx, uint tid, uint vorixID)
{
    if (ctx.header.debugLevel >= 1)
        qDebug() << "WebApiWorker::dbGetInters4Terminal(" << tid << vorixID << ")";
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query,
                  QStringLiteral("SELECT it.iid, i.name, i.shortcut, i.weight, i.color FROM inters_term it JOIN inters "
                                 "i USING(iid) JOIN term t USING(tid)WHERE it.tid=%1 AND t.status = 1 AND vorixId=%2 "
                                 "ORDER BY weight")
                      .arg(tid)
                      .arg(vorixID),
                  "WebApiWorker::dbGetInters4Terminal() SQl ERROR:"))
        return QVariant();
    return collectRows(ctx, query, false, writeInter);
}

QVariant dbGetInter(const TerminalRequestContext &ctx)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbGetInter()");
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query,
                  QStringLiteral("SELECT iid, name, shortcut, weight, color FROM inters ORDER BY weight, iid"),
                  "WebApiWorker::dbGetInter() SQl ERROR:"))
        return QVariant();
    return collectRows(ctx, query, false, writeInter);
}

QVariant dbGetAttendanceGroups(const TerminalRequestContext &ctx)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbGetAttendanceGroups()");
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query,
                  QStringLiteral("SELECT gid, g.name, shifts, parent masterGroupId, mg.name masterGroup, rid regionId, "
                                 "r.name region FROM groups g LEFT JOIN mastergroups mg ON g.parent = mg.mgid LEFT "
                                 "JOIN regions r USING(rid)"),
                  "WebApiWorker::dbGetAttendanceGroups() SQl ERROR:"))
        return QVariant();
    return collectRows(ctx, query, false, writeGroup);
}

bool dbGetSaldo(const TerminalRequestContext &ctx, uint tid, uint uid)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbGetSaldo(%u, %u)", tid, uid);
    const QStringList where = terminalPeopleWhere(tid, uid);
    if (ctx.header.debugLevel >= 3)
        qDebug() << "WebApiWorker::dbGetSaldo() where:" << where;
    QSqlQuery query(ctx.db);
    // The balance as the database computes it at noon of the previous day, not the stored one.
    if (!runQuery(ctx, query,
                  QStringLiteral("SELECT p.uid,  p.pid, getSaldo(p.uid, midnightFromTs(UNIX_TIMESTAMP()) - 43200) saldo "
                                 "FROM people_term pt JOIN people p USING(uid) WHERE %1")
                      .arg(where.join(QStringLiteral(" AND "))),
                  "WebApiWorker::dbGetSaldo() SQl ERROR:"))
        return false;
    QVariantMap saldo;
    while (query.next())
        saldo.insert(query.value(0).toString(), query.value(2).toInt());
    ctx.response->setData(saldo);
    ctx.response->setHeader(QStringLiteral("X-WEBAPI-COUNT"), saldo.size());
    return !saldo.isEmpty();
}

QVariant dbGetPresent4Terminal(const TerminalRequestContext &ctx, uint tid, uint uid)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbGetPresent4Terminal(%u, %u)", tid, uid);
    const QStringList where = terminalPeopleWhere(tid, uid);
    if (ctx.header.debugLevel >= 3)
        qDebug() << "WebApiWorker::dbGetPresent4Terminal() where:" << where;
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query,
                  QStringLiteral("SELECT p.uid,  p.pid, present FROM people_term pt JOIN people p USING(uid) WHERE %1")
                      .arg(where.join(QStringLiteral(" AND "))),
                  "WebApiWorker::dbGetPresent4Terminal() SQl ERROR:"))
        return QVariant();
    return collectRows(ctx, query, uid != 0,
                       [](JsonWriter &json, const SqlRow &row) { writePresence(json, row, false); });
}

QVariant dbGetPresent(const TerminalRequestContext &ctx, uint uid)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbGetPresent(%u)", uid);
    QStringList where = {QStringLiteral("status = 1")};
    if (uid != 0)
        where << QStringLiteral("p.uid=%1").arg(uid);
    if (ctx.header.debugLevel >= 3)
        qDebug() << "WebApiWorker::dbGetPresent() where:" << where;
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query,
                  QStringLiteral("SELECT p.uid, pid, present, e.date, e.iid FROM people p LEFT JOIN inters_data e ON "
                                 "p.presentID = e.id WHERE %1")
                      .arg(where.join(QStringLiteral(" AND "))),
                  "WebApiWorker::dbGetPresent() SQl ERROR:"))
        return QVariant();
    return collectRows(ctx, query, uid != 0,
                       [](JsonWriter &json, const SqlRow &row) { writePresence(json, row, true); });
}

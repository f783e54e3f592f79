#include "terminal/lists.h"

#include "terminal/identifiers.h"
#include "terminal/terminalsql.h"

#include "response/jsonwriter.h"
#include "response/response.h"

#include <QSqlQuery>
#include <QtDebug>

namespace {

// A reason code; both statements select iid, name, shortcut, weight, color.
void writeInter(JsonWriter &json, const QSqlQuery &query)
{
    json.beginObject();
    json.key("color").string(query.value(4).toString());
    json.key("iid").number(query.value(0).toUInt());
    json.key("name").string(query.value(1).toString());
    json.key("shortcut").string(query.value(2).toString());
    json.key("weight").number(query.value(3).toInt());
    json.endObject();
}

// A group as stored, under the names its statement gives the columns, in key order.
void writeGroup(JsonWriter &json, const QSqlQuery &query)
{
    static const struct
    {
        const char *key;
        int column;
    } columns[] = {{"gid", 0}, {"masterGroup", 4}, {"masterGroupId", 3}, {"name", 1},
                   {"region", 6}, {"regionId", 5}, {"shifts", 2}};
    json.beginObject();
    for (const auto &column : columns)
        json.key(column.key).stored(query.value(column.column));
    json.endObject();
}

// Presence of one person from uid, pid, present; with `entrance` also the time and reason
// of the presence entrance (columns 3 and 4).
void writePresence(JsonWriter &json, const QSqlQuery &query, bool entrance)
{
    json.beginObject();
    if (entrance) {
        const QVariant date = query.value(3);
        const QVariant iid = query.value(4);
        json.key("date");
        date.isNull() ? json.null() : json.localTime(date.toLongLong(), JsonWriter::IsoDateTime);
        json.key("iid");
        iid.isNull() ? json.null() : json.number(iid.toUInt());
    }
    json.key("present").boolean(query.value(2).toBool());
    json.key("uid").string(encodeId(query.value(0).toUInt(), query.value(1).toUInt()));
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
                       [](JsonWriter &json, const QSqlQuery &row) { writePresence(json, row, false); });
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
                       [](JsonWriter &json, const QSqlQuery &row) { writePresence(json, row, true); });
}

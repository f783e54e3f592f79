#include "worker/webapiworker.h"

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
    json.key("uid").string(WebApiWorker::encodeId(query.value(0).toUInt(), query.value(1).toUInt()));
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

QVariant WebApiWorker::collectRows(QSqlQuery &query, bool single, const RowWriter &writeRow)
{
    JsonWriter json(m_header.prettyJson);
    if (single && query.next()) {
        writeRow(json, query);
        return json.takeBody();
    }
    int count = 0;
    json.beginArray();
    for (; query.next(); ++count)
        writeRow(json, query);
    json.endArray();
    m_response->setHeader(QStringLiteral("X-WEBAPI-COUNT"), count);
    return json.takeBody();
}

bool WebApiWorker::queryCount(const QString &sql, const char *failureLine, uint &count)
{
    QSqlQuery query(m_db);
    if (!query.exec(sql)) {
        reportSqlError(query, failureLine);
        return false;
    }
    count = query.next() ? query.value(0).toUInt() : 0;
    return true;
}

bool WebApiWorker::execWrite(const QString &sql, const char *failureLine)
{
    QSqlQuery query(m_db);
    if (!query.exec(sql)) {
        reportSqlError(query, failureLine);
        return false;
    }
    return query.numRowsAffected() > 0;
}

QVariant WebApiWorker::dbGetInters4Terminal(uint tid, uint vorixID)
{
    if (m_debugLevel >= 1)
        qDebug() << "WebApiWorker::dbGetInters4Terminal(" << tid << vorixID << ")";
    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("SELECT it.iid, i.name, i.shortcut, i.weight, i.color FROM inters_term it JOIN inters "
                                   "i USING(iid) JOIN term t USING(tid)WHERE it.tid=%1 AND t.status = 1 AND vorixId=%2 "
                                   "ORDER BY weight")
                        .arg(tid)
                        .arg(vorixID))) {
        reportSqlError(query, "WebApiWorker::dbGetInters4Terminal() SQl ERROR:");
        return QVariant();
    }
    return collectRows(query, false, writeInter);
}

QVariant WebApiWorker::dbGetInter()
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbGetInter()");
    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("SELECT iid, name, shortcut, weight, color FROM inters ORDER BY weight, iid"))) {
        reportSqlError(query, "WebApiWorker::dbGetInter() SQl ERROR:");
        return QVariant();
    }
    return collectRows(query, false, writeInter);
}

QVariant WebApiWorker::dbGetAttendanceGroups()
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbGetAttendanceGroups()");
    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("SELECT gid, g.name, shifts, parent masterGroupId, mg.name masterGroup, rid regionId, "
                                   "r.name region FROM groups g LEFT JOIN mastergroups mg ON g.parent = mg.mgid LEFT "
                                   "JOIN regions r USING(rid)"))) {
        reportSqlError(query, "WebApiWorker::dbGetAttendanceGroups() SQl ERROR:");
        return QVariant();
    }
    return collectRows(query, false, writeGroup);
}

bool WebApiWorker::dbGetSaldo(uint tid, uint uid)
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbGetSaldo(%u, %u)", tid, uid);
    const QStringList where = terminalPeopleWhere(tid, uid);
    if (m_debugLevel >= 3)
        qDebug() << "WebApiWorker::dbGetSaldo() where:" << where;
    QSqlQuery query(m_db);
    // The balance as the database computes it at noon of the previous day, not the stored one.
    if (!query.exec(QStringLiteral("SELECT p.uid,  p.pid, getSaldo(p.uid, midnightFromTs(UNIX_TIMESTAMP()) - 43200) saldo "
                                   "FROM people_term pt JOIN people p USING(uid) WHERE %1")
                        .arg(where.join(QStringLiteral(" AND "))))) {
        reportSqlError(query, "WebApiWorker::dbGetSaldo() SQl ERROR:");
        return false;
    }
    QVariantMap saldo;
    while (query.next())
        saldo.insert(query.value(0).toString(), query.value(2).toInt());
    m_response->setData(saldo);
    m_response->setHeader(QStringLiteral("X-WEBAPI-COUNT"), saldo.size());
    return !saldo.isEmpty();
}

QVariant WebApiWorker::dbGetPresent4Terminal(uint tid, uint uid)
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbGetPresent4Terminal(%u, %u)", tid, uid);
    const QStringList where = terminalPeopleWhere(tid, uid);
    if (m_debugLevel >= 3)
        qDebug() << "WebApiWorker::dbGetPresent4Terminal() where:" << where;
    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("SELECT p.uid,  p.pid, present FROM people_term pt JOIN people p USING(uid) WHERE %1")
                        .arg(where.join(QStringLiteral(" AND "))))) {
        reportSqlError(query, "WebApiWorker::dbGetPresent4Terminal() SQl ERROR:");
        return QVariant();
    }
    return collectRows(query, uid != 0, [](JsonWriter &json, const QSqlQuery &row) { writePresence(json, row, false); });
}

QVariant WebApiWorker::dbGetPresent(uint uid)
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbGetPresent(%u)", uid);
    QStringList where = {QStringLiteral("status = 1")};
    if (uid != 0)
        where << QStringLiteral("p.uid=%1").arg(uid);
    if (m_debugLevel >= 3)
        qDebug() << "WebApiWorker::dbGetPresent() where:" << where;
    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("SELECT p.uid, pid, present, e.date, e.iid FROM people p LEFT JOIN inters_data e ON "
                                   "p.presentID = e.id WHERE %1")
                        .arg(where.join(QStringLiteral(" AND "))))) {
        reportSqlError(query, "WebApiWorker::dbGetPresent() SQl ERROR:");
        return QVariant();
    }
    return collectRows(query, uid != 0, [](JsonWriter &json, const QSqlQuery &row) { writePresence(json, row, true); });
}

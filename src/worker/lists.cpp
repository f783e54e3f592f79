#include "worker/webapiworker.h"

#include "response/response.h"

#include <QSqlQuery>
#include <QSqlRecord>
#include <QtDebug>

namespace {

QVariantMap interMap(const QSqlQuery &query, const QSqlRecord &)
{
    QVariantMap inter;
    inter.insert(QStringLiteral("iid"), query.value(0).toUInt());
    inter.insert(QStringLiteral("name"), query.value(1).toString());
    inter.insert(QStringLiteral("shortcut"), query.value(2).toString());
    inter.insert(QStringLiteral("weight"), query.value(3).toInt());
    inter.insert(QStringLiteral("color"), query.value(4).toString());
    return inter;
}

// Every column under the name the statement gives it.
QVariantMap storedRowMap(const QSqlQuery &query, const QSqlRecord &columns)
{
    QVariantMap row;
    for (int i = 0; i < columns.count(); ++i)
        row.insert(columns.fieldName(i), WebApiWorker::storedValue(query.value(i)));
    return row;
}

// Presence of one person; the time and reason of the presence entrance only where selected.
QVariantMap presenceMap(const QSqlQuery &query, const QSqlRecord &columns)
{
    QVariantMap presence;
    presence.insert(QStringLiteral("uid"), WebApiWorker::encodeId(query.value(0).toUInt(), query.value(1).toUInt()));
    presence.insert(QStringLiteral("present"), query.value(2).toBool());
    if (columns.count() > 3) {
        const QVariant date = query.value(3);
        const QVariant iid = query.value(4);
        presence.insert(QStringLiteral("date"),
                        date.isNull() ? QVariant() : QVariant(WebApiWorker::secsToIsoDateTime(date.toLongLong())));
        presence.insert(QStringLiteral("iid"), iid.isNull() ? QVariant() : QVariant(iid.toUInt()));
    }
    return presence;
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

QVariant WebApiWorker::storedValue(const QVariant &value)
{
    return value.isNull() ? QVariant() : value;
}

QVariant WebApiWorker::collectRows(QSqlQuery &query, bool single, RowMap rowMap)
{
    const QSqlRecord columns = query.record();
    QVariantList rows;
    while (query.next()) {
        if (single)
            return rowMap(query, columns);
        rows.append(rowMap(query, columns));
    }
    m_response->setHeader(QStringLiteral("X-WEBAPI-COUNT"), rows.size());
    return rows;
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
    return collectRows(query, false, interMap);
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
    return collectRows(query, false, interMap);
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
    return collectRows(query, false, storedRowMap);
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
    return collectRows(query, uid != 0, presenceMap);
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
    return collectRows(query, uid != 0, presenceMap);
}

#include "terminal/entrances.h"

#include "terminal/identifiers.h"
#include "terminal/people.h"
#include "terminal/terminalsql.h"

#include "database/statementcache.h"
#include "response/jsonwriter.h"
#include "response/response.h"

#include <QDateTime>
#include <QSqlError>
#include <QSqlQuery>
#include <QtDebug>

namespace {

// The first stored row of the event in `values` under this refId (0: none) in `id`; the
// date counts only when `values` has one. False when the lookup failed (reported).
bool findRepeatedEntrance(const TerminalRequestContext &ctx, uint tid, uint refId, const QVariantMap &values, uint &id)
{
    const bool dated = values.contains(QStringLiteral("date"));
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query,
                  QStringLiteral("SELECT id, uid, iid, type, date FROM inters_data WHERE tid = %1 AND refId = %2 "
                                 "ORDER BY id")
                      .arg(tid)
                      .arg(refId),
                  "WebApiWorker::dbInsertEntrance() SQl ERROR:"))
        return false;
    id = 0;
    uint lastId = 0;
    uint lastUid = 0;
    while (query.next()) {
        lastId = query.value(0).toUInt();
        lastUid = query.value(1).toUInt();
        // As numbers: a non-numeric type reads as 0 on either side. A retry without a date is
        // the stored event whatever its date.
        if (lastUid == values.value(QStringLiteral("uid")).toUInt()
            && query.value(2).toUInt() == values.value(QStringLiteral("iid")).toUInt()
            && query.value(3).toUInt() == values.value(QStringLiteral("type")).toUInt()
            && (!dated || query.value(4).toLongLong() == values.value(QStringLiteral("date")).toLongLong())) {
            id = lastId;
            return true;
        }
    }
    if (lastId != 0)
        qWarning("WebApiWorker::dbInsertEntrance() - different entrance with same refId from Terminal ID: %u! \n(id: "
                 "%u, refId: %u, uid [ZMTDB]: %u)",
                 tid, lastId, refId, lastUid);
    return true;
}

} // namespace

bool dbCheckEntrance(const TerminalRequestContext &ctx, uint id, uint refId)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbCheckEntrance(%u, %u)", id, refId);
    return rowExists(ctx,
                     QStringLiteral("SELECT COUNT(*) FROM inters_data WHERE id = %1 AND refId = %2").arg(id).arg(refId),
                     "WebApiWorker::dbCheckEntrance() SQl ERROR:");
}

bool dbDeleteEntrance(const TerminalRequestContext &ctx, uint tid, uint id)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbDeleteEntrance(%u, %u)", tid, id);
    // Withdrawn, never removed: the row stays for the attendance computation's history.
    return execWrite(ctx, QStringLiteral("UPDATE inters_data SET del = 1 WHERE id = %1 AND tid = %2").arg(id).arg(tid),
                     "WebApiWorker::dbDeleteEntrance() SQl ERROR:");
}

uint dbGetEntranceMaxRefId(const TerminalRequestContext &ctx, uint tid)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbGetEntranceMaxRefId(%u)", tid);
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query, QStringLiteral("SELECT MAX(refId) FROM inters_data WHERE tid = %1").arg(tid),
                  "WebApiWorker::dbGetEntranceMaxRefId() SQl ERROR:"))
        return 0;
    return query.next() ? query.value(0).toUInt() : 0;
}

PostedEntrance dbInsertEntrance(const TerminalRequestContext &ctx, uint tid, const QVariantMap &data)
{
    const uint refId = data.value(QStringLiteral("refId")).toUInt();
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbInsertEntrance(%u, %u)", tid, refId);
    const QString uidText = data.value(QStringLiteral("uid")).toString();
    if (uidText.isEmpty()) {
        ctx.response->setError(Response::RE_RequiredUID);
        return {};
    }
    // A terminal posts only as itself: its composite identifier or its number, if anything.
    const QString bodyTid = data.value(QStringLiteral("tid")).toString().trimmed();
    if (data.contains(QStringLiteral("tid")) && bodyTid != ctx.header.tid && bodyTid != QString::number(tid)) {
        ctx.response->setError(Response::RE_InvalidID, bodyTid);
        return {};
    }
    uint uid = 0;
    uint pid = 0;
    // One error for an unreadable and an unknown person alike.
    if (!decodeId(uidText, uid, pid) || !dbCheckPerson(ctx, uid, pid)) {
        ctx.response->setError(Response::RE_InvalidID, uidText);
        return {};
    }

    QVariantMap values;
    values.insert(QStringLiteral("tid"), tid);
    values.insert(QStringLiteral("uid"), uid);
    int required = 0;
    for (const QString &key : {QStringLiteral("iid"), QStringLiteral("type"), QStringLiteral("date"),
                               QStringLiteral("description"), QStringLiteral("refId")}) {
        if (!data.contains(key))
            continue;
        const bool numeric = key == QLatin1String("iid") || key == QLatin1String("refId");
        if (numeric && data.value(key).toUInt() == 0)
            continue;
        const QString text = data.value(key).toString().trimmed();
        if (key == QLatin1String("iid") || key == QLatin1String("type"))
            ++required;
        if (key == QLatin1String("date"))
            values.insert(key, isoToSecs(text));
        else
            values.insert(key, text);
    }
    if (required < 2) {
        ctx.response->setError(Response::RE_RequiredField);
        return {};
    }

    // The same event again answers with the first row; a different one under a used refId is
    // a row of its own. Without a refId nothing is a repeat.
    const bool dated = values.contains(QStringLiteral("date"));
    uint repeated = 0;
    if (refId != 0 && !findRepeatedEntrance(ctx, tid, refId, values, repeated))
        return {};
    if (repeated != 0) {
        ctx.response->setStatus(208);
        return {repeated, false};
    }

    const qint64 now = QDateTime::currentSecsSinceEpoch();
    values.insert(QStringLiteral("created"), now);
    // The date as the terminal sent it, 0 for none: with the event's other values it makes the
    // unique key that settles two copies posted at the same moment.
    values.insert(QStringLiteral("sentDate"), dated ? values.value(QStringLiteral("date")) : QVariant(0));
    if (!dated)
        values.insert(QStringLiteral("date"), now);
    // Decoded once and bound as bytes; the image never passes through the statement text.
    const QVariant image = data.value(QStringLiteral("image"));
    const QByteArray photo = !data.contains(QStringLiteral("image")) ? QByteArray()
        : image.userType() == QMetaType::QString ? decodeBase64(image.toString())
                                                 : QByteArray::fromBase64(image.toByteArray());
    QVariantMap bound = values;  // `values` stays without the photo for the log line below
    if (!photo.isEmpty())
        bound.insert(QStringLiteral("photo"), photo);
    // A copy that lost the race to the key changes nothing and leaves its twin's id behind.
    // One text for each set of columns, kept prepared on the connection.
    const QString sql = QStringLiteral("INSERT INTO inters_data (%1) VALUES(%2) ON DUPLICATE KEY UPDATE id = LAST_INSERT_ID(id)")
                            .arg(boundAssignments(bound, QStringLiteral("`%1`")), boundAssignments(bound, QStringLiteral(":%1")));
    QSqlQuery query(ctx.db);
    if (!prepareBound(query, sql, bound, ctx.statements)) {
        ctx.response->setSqlError(query.lastError().text(), query.lastQuery(),
                                  "WebApiWorker::dbInsertEntrance() Prepare failed! ERROR:");
        return {};
    }
    const bool ran = query.exec();
    // A kept statement would hold the photo's bytes until its next run.
    if (!photo.isEmpty())
        query.bindValue(QStringLiteral(":photo"), QVariant());
    if (!ran) {
        if (ctx.statements)
            ctx.statements->drop(sql);
        const QString error = query.lastError().text();
        if (isMissingIID(ctx, error)) {
            // The reason code is not created here: the event is refused, and this line keeps it.
            qWarning() << "WebApiWorker::dbInsertEntrance(" << tid << "," << refId << ") - IID "
                       << values.value(QStringLiteral("iid")).toUInt() << "missing in ZMTDB! data:" << values;
            ctx.response->setError(Response::RE_InvalidID, values.value(QStringLiteral("iid")).toString());
            return {};
        }
        // Code 500 rather than RE_SQLError, so that the terminal reads the server's words.
        ctx.response->setErrorBody(error, 500, 400);
        qCritical() << "WebApiWorker::dbInsertEntrance() SQl ERROR:" << error << "\nSQL:" << query.lastQuery();
        return {};
    }
    const uint id = query.lastInsertId().toUInt();
    if (id == 0)
        return {};
    if (query.numRowsAffected() < 1) {  // the twin's row
        ctx.response->setStatus(208);
        return {id, false};
    }
    ctx.response->setStatus(201);
    return {id, !photo.isEmpty()};
}

QVariant dbGetEntrance(const TerminalRequestContext &ctx, uint id)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbGetEntrance(%u)", id);
    QSqlQuery query(ctx.db);
    if (!query.exec(QStringLiteral("SELECT i.uid,p.pid,i.iid,i.type,i.date,i.created,i.description,i.del,i.refId "
                                   "FROM inters_data i JOIN people p USING(uid) WHERE id = %1 LIMIT 1")
                        .arg(id))) {
        // The line it has always shared with the terminal read.
        ctx.response->setSqlError(query.lastError().text(), query.lastQuery(), "WebApiWorker::dbGetTerm() SQl ERROR:");
        // Invalid, so that the error body stays: an empty row would replace it with {}.
        return QVariant();
    }
    if (!query.next())
        return QVariantMap();
    enum Column { Uid, Pid, Iid, Type, Date, Created, Description, Del, RefId };
    JsonWriter json(ctx.header.prettyJson);
    json.beginObject();
    json.key("created").localTime(query.value(Created).toLongLong(), JsonWriter::IsoDateTime);
    json.key("date").localTime(query.value(Date).toLongLong(), JsonWriter::IsoDateTime);
    json.key("del").stored(query.value(Del));
    json.key("description").stored(query.value(Description));
    json.key("eid").string(encodeId(id, query.value(RefId).toUInt()));
    json.key("iid").stored(query.value(Iid));
    json.key("refId").stored(query.value(RefId));
    json.key("type").stored(query.value(Type));
    json.key("uid").string(encodeId(query.value(Uid).toUInt(), query.value(Pid).toUInt()));
    json.endObject();
    return json.takeBody();
}

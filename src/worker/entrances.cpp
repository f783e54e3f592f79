#include "worker/webapiworker.h"

#include "response/jsonwriter.h"
#include "response/response.h"

#include <QDateTime>
#include <QSqlError>
#include <QSqlQuery>
#include <QtDebug>

bool WebApiWorker::dbCheckEntrance(uint id, uint refId)
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbCheckEntrance(%u, %u)", id, refId);
    uint count = 0;
    return queryCount(QStringLiteral("SELECT COUNT(*) FROM inters_data WHERE id = %1 AND refId = %2").arg(id).arg(refId),
                      "WebApiWorker::dbCheckEntrance() SQl ERROR:", count)
        && count != 0;
}

bool WebApiWorker::dbDeleteEntrance(uint tid, uint id)
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbDeleteEntrance(%u, %u)", tid, id);
    // Withdrawn, never removed: the row stays for the attendance computation's history.
    return execWrite(QStringLiteral("UPDATE inters_data SET del = 1 WHERE id = %1 AND tid = %2").arg(id).arg(tid),
                     "WebApiWorker::dbDeleteEntrance() SQl ERROR:");
}

uint WebApiWorker::dbGetEntranceMaxRefId(uint tid)
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbGetEntranceMaxRefId(%u)", tid);
    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("SELECT MAX(refId) FROM inters_data WHERE tid = %1").arg(tid))) {
        reportSqlError(query, "WebApiWorker::dbGetEntranceMaxRefId() SQl ERROR:");
        return 0;
    }
    return query.next() ? query.value(0).toUInt() : 0;
}

uint WebApiWorker::dbInsertEntrance(uint tid, const QVariantMap &data)
{
    const uint refId = data.value(QStringLiteral("refId")).toUInt();
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbInsertEntrance(%u, %u)", tid, refId);
    const QString uidText = data.value(QStringLiteral("uid")).toString();
    if (uidText.isEmpty()) {
        m_response->setError(Response::RE_RequiredUID);
        return 0;
    }
    uint uid = 0;
    uint pid = 0;
    // One error for an unreadable and an unknown person alike.
    if (!decodeId(uidText, uid, pid) || !dbCheckPerson(uid, pid)) {
        m_response->setError(Response::RE_InvalidID, uidText);
        return 0;
    }

    QVariantMap values;
    values.insert(QStringLiteral("tid"), tid);
    values.insert(QStringLiteral("uid"), uid);
    int required = 0;
    for (const QString &key : {QStringLiteral("iid"), QStringLiteral("type"), QStringLiteral("tid"),
                               QStringLiteral("date"), QStringLiteral("description"), QStringLiteral("refId")}) {
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
        m_response->setError(Response::RE_RequiredField);
        return 0;
    }

    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("SELECT id, uid, iid, type, date FROM inters_data WHERE tid = %1 AND refId = %2 ORDER "
                                   "BY id DESC LIMIT 1")
                        .arg(tid)
                        .arg(refId))) {
        reportSqlError(query, "WebApiWorker::dbInsertEntrance() SQl ERROR:");
        return 0;
    }
    if (query.next() && query.value(0).toUInt() != 0) {
        const uint storedId = query.value(0).toUInt();
        const uint storedUid = query.value(1).toUInt();
        if (storedUid == values.value(QStringLiteral("uid")).toUInt()
            && query.value(2).toUInt() == values.value(QStringLiteral("iid")).toUInt()
            && query.value(3).toUInt() == values.value(QStringLiteral("type")).toUInt()
            && query.value(4).toUInt() == values.value(QStringLiteral("date")).toUInt()) {
            m_response->setStatus(208);  // the same event posted again
            return storedId;
        }
        // A terminal that reuses its numbers must not lose the new event.
        qWarning("WebApiWorker::dbInsertEntrance() - different entrance with same refId from Terminal ID: %u! \n(id: "
                 "%u, refId: %u, uid [ZMTDB]: %u)",
                 tid, storedId, refId, storedUid);
    }

    const qint64 now = QDateTime::currentSecsSinceEpoch();
    values.insert(QStringLiteral("created"), now);
    if (!values.contains(QStringLiteral("date")))
        values.insert(QStringLiteral("date"), now);

    QStringList columns;
    QStringList placeholders;
    QStringList updates;
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        columns << QStringLiteral("`%1`").arg(it.key());
        placeholders << QStringLiteral(":%1").arg(it.key());
        updates << QStringLiteral("`%1`=VALUES(`%1`)").arg(it.key());
    }
    // Decoded once and bound as bytes; the image never passes through the statement text.
    const QByteArray photo = data.contains(QStringLiteral("image"))
        ? QByteArray::fromBase64(data.value(QStringLiteral("image")).toByteArray())
        : QByteArray();
    if (!photo.isEmpty()) {
        columns << QStringLiteral("photo");
        placeholders << QStringLiteral(":photo");
        updates << QStringLiteral("photo=VALUES(photo)");
    }
    const QString separator = QStringLiteral(", ");
    if (!query.prepare(QStringLiteral("INSERT INTO inters_data (%1) VALUES(%2)  ON DUPLICATE KEY UPDATE %3")
                           .arg(columns.join(separator), placeholders.join(separator), updates.join(separator)))) {
        reportSqlError(query, "WebApiWorker::dbInsertEntrance() Prepare failed! ERROR:");
        return 0;
    }
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        query.bindValue(QLatin1Char(':') + it.key(), it.value());
    if (!photo.isEmpty())
        query.bindValue(QStringLiteral(":photo"), photo);

    if (!query.exec()) {
        const QString error = query.lastError().text();
        if (isMissingIID(error)) {
            // The reason code is not created here: the event is refused, and this line keeps it.
            qWarning() << "WebApiWorker::dbInsertEntrance(" << tid << "," << refId << ") - IID "
                       << values.value(QStringLiteral("iid")).toUInt() << "missing in ZMTDB! data:" << values;
            m_response->setError(Response::RE_InvalidID, values.value(QStringLiteral("iid")).toString());
            return 0;
        }
        // Code 500 rather than RE_SQLError, so that the terminal reads the server's words.
        m_response->setErrorBody(error, 500, 400);
        qCritical() << "WebApiWorker::dbInsertEntrance() SQl ERROR:" << error << "\nSQL:" << query.lastQuery();
        return 0;
    }
    const uint id = query.lastInsertId().toUInt();
    if (id == 0)
        return 0;
    m_response->setStatus(201);
    if (!photo.isEmpty())
        emit recordCreated(QStringLiteral("inters_data"), id, m_header.token, 1);
    return id;
}

QVariant WebApiWorker::dbGetEntrance(uint id)
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbGetEntrance(%u)", id);
    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("SELECT i.uid,p.pid,i.iid,i.type,i.date,i.created,i.description,i.del,i.refId "
                                   "FROM inters_data i JOIN people p USING(uid) WHERE id = %1 LIMIT 1")
                        .arg(id))) {
        // The line it has always shared with the terminal read.
        reportSqlError(query, "WebApiWorker::dbGetTerm() SQl ERROR:");
        return QVariantMap();
    }
    if (!query.next())
        return QVariantMap();
    enum Column { Uid, Pid, Iid, Type, Date, Created, Description, Del, RefId };
    JsonWriter json(m_header.prettyJson);
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

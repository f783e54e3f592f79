#include "worker/webapiworker.h"

#include "response/jsonwriter.h"
#include "response/response.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QtDebug>

namespace {

// The text columns a terminal describes itself with, in the order they are written and read.
const QStringList &termInfoFields()
{
    static const QStringList fields = {QStringLiteral("name"), QStringLiteral("mac"), QStringLiteral("ip"),
                                       QStringLiteral("ver")};
    return fields;
}

QString compactJson(const QVariantMap &values)
{
    return QString::fromUtf8(QJsonDocument::fromVariant(values).toJson(QJsonDocument::Compact));
}

} // namespace

bool WebApiWorker::dbCheckTerm(uint tid, uint vorixID)
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbCheckTerm(%u, %u)", tid, vorixID);
    uint count = 0;
    return queryCount(QStringLiteral("SELECT COUNT(*) FROM term WHERE tid = %1 AND vorixID = %2 AND status = 1 AND "
                                     "type='API' LIMIT 1")
                          .arg(tid)
                          .arg(vorixID),
                      "WebApiWorker::dbCheckTerm() SQl ERROR:", count)
        && count != 0;
}

bool WebApiWorker::dbSetTermOnline(uint tid)
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbSetTermOnline(%u)", tid);
    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("UPDATE term SET online = UNIX_TIMESTAMP() WHERE tid = %1").arg(tid))) {
        reportSqlError(query, "WebApiWorker::dbSetTermOnline() SQl ERROR:");
        return false;
    }
    return true;
}

uint WebApiWorker::dbInsertTerm(const QVariantMap &data)
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbInsertTerm()");
    const uint vid = data.value(QStringLiteral("vid")).toUInt();
    if (vid == 0) {
        m_response->setError(Response::RE_RequiredVorixID);
        return 0;
    }
    const QString name = data.value(QStringLiteral("name")).toString();
    if (name.isEmpty()) {
        m_response->setError(Response::RE_RequiredName);
        return 0;
    }

    QVariantMap values;
    values.insert(QStringLiteral("online"), QDateTime::currentSecsSinceEpoch());
    values.insert(QStringLiteral("status"), 1);
    values.insert(QStringLiteral("type"), QStringLiteral("API"));
    values.insert(QStringLiteral("vorixID"), vid);
    // `name` is always among them: it was required above.
    for (const QString &key : termInfoFields()) {
        if (!data.contains(key))
            continue;
        const QString value = data.value(key).toString().trimmed();
        // An empty address never overwrites a stored one.
        if (value.isEmpty() && (key == QLatin1String("mac") || key == QLatin1String("ip")))
            continue;
        values.insert(key, value);
    }
    if (!values.contains(QStringLiteral("flags")))
        values.insert(QStringLiteral("flags"), 0);
    if (m_debugLevel >= 2)
        qDebug() << "WebApiWorker::dbInsertTerm() data:" << compactJson(values);

    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("SELECT tid, status FROM term WHERE vorixID = %1 ORDER BY tid DESC LIMIT 1").arg(vid))) {
        reportSqlError(query, "WebApiWorker::dbInsertTerm() SQl ERROR:");
        return 0;
    }
    const bool known = query.next();
    const uint tid = known ? query.value(0).toUInt() : 0;
    // An administrator's switch-off outlives the device's attempts to come back.
    if (known && query.value(1).toInt() == 0) {
        m_response->setError(Response::RE_BadVID);
        return 0;
    }
    const QString assignments = boundAssignments(values);
    const QString sql = tid != 0
        ? QStringLiteral("UPDATE term SET %1 WHERE tid = %2").arg(assignments, QString::number(tid))
        : QStringLiteral("INSERT INTO term SET %1 ON DUPLICATE KEY UPDATE %2")
              .arg(assignments, boundAssignments(values, QStringLiteral("%1=VALUES(%1)")));
    if (!execBound(query, sql, values, "WebApiWorker::dbInsertTerm() SQl ERROR:"))
        return 0;
    if (tid != 0) {
        if (query.numRowsAffected() < 1)
            m_response->setStatus(208);
        return tid;
    }
    const uint newTid = query.lastInsertId().toUInt();
    if (newTid == 0)
        return 0;
    m_response->setStatus(201);
    return newTid;
}

QVariantMap WebApiWorker::dbGetTerm(uint tid)
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbGetTerm(%u)", tid);
    const QStringList columns = termInfoFields() + QStringList{QStringLiteral("vorixID")};
    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("SELECT %1 FROM term WHERE tid = %2 AND status = 1 AND type='API' LIMIT 1")
                        .arg(columns.join(QLatin1Char(',')), QString::number(tid)))) {
        reportSqlError(query, "WebApiWorker::dbGetTerm() SQl ERROR:");
        return QVariantMap();
    }
    QVariantMap result;
    if (!query.next())
        return result;
    uint vorixID = 0;
    const QSqlRecord record = query.record();
    for (int i = 0; i < record.count(); ++i) {
        const QString column = record.fieldName(i);
        if (column == QLatin1String("vorixID"))
            vorixID = query.value(i).toUInt();
        else if (column == QLatin1String("online"))
            result.insert(column, secsToIsoDateTime(query.value(i).toLongLong()));
        else
            result.insert(column, storedValue(query.value(i)));
    }
    if (vorixID != 0)
        result.insert(QStringLiteral("tid"), encodeId(tid, vorixID));
    return result;
}

bool WebApiWorker::dbUpdateTerm(uint tid, const QVariantMap &data)
{
    if (m_debugLevel >= 1)
        qDebug("WebApiWorker::dbUpdateTerm(%u)", tid);
    QVariantMap values;
    values.insert(QStringLiteral("status"), 1);
    for (const QString &key : termInfoFields()) {
        if (!data.contains(key))
            continue;
        const QString value = data.value(key).toString().trimmed();
        if (value.isEmpty() && (key == QLatin1String("mac") || key == QLatin1String("ip")))
            continue;
        values.insert(key, value);
    }
    if (m_debugLevel >= 2)
        qDebug() << "WebApiWorker::dbUpdateTerm() data:" << compactJson(values);
    if (values.isEmpty()) {
        m_response->setError(Response::RE_NoData4Update);
        return false;
    }
    values.insert(QStringLiteral("online"), QDateTime::currentSecsSinceEpoch());

    QSqlQuery query(m_db);
    return execBound(query,
                     QStringLiteral("UPDATE term SET %1 WHERE tid = %2").arg(boundAssignments(values), QString::number(tid)),
                     values, "WebApiWorker::dbUpdateTerm() SQl ERROR:")
        && query.numRowsAffected() > 0;
}

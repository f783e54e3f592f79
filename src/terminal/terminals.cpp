#include "terminal/terminals.h"

#include "terminal/identifiers.h"
#include "terminal/terminalsql.h"

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

const QStringList &addressFields()
{
    static const QStringList fields = {QStringLiteral("mac"), QStringLiteral("ip")};
    return fields;
}

QString compactJson(const QVariantMap &values)
{
    return QString::fromUtf8(QJsonDocument::fromVariant(values).toJson(QJsonDocument::Compact));
}

} // namespace

bool dbCheckTerm(const TerminalRequestContext &ctx, uint tid, uint vorixID)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbCheckTerm(%u, %u)", tid, vorixID);
    return rowExists(ctx,
                     QStringLiteral("SELECT COUNT(*) FROM term WHERE tid = %1 AND vorixID = %2 AND status = 1 AND "
                                    "type='API' LIMIT 1")
                         .arg(tid)
                         .arg(vorixID),
                     "WebApiWorker::dbCheckTerm() SQl ERROR:");
}

bool dbSetTermOnline(const TerminalRequestContext &ctx, uint tid)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbSetTermOnline(%u)", tid);
    QSqlQuery query(ctx.db);
    return runQuery(ctx, query, QStringLiteral("UPDATE term SET online = UNIX_TIMESTAMP() WHERE tid = %1").arg(tid),
                    "WebApiWorker::dbSetTermOnline() SQl ERROR:");
}

uint dbInsertTerm(const TerminalRequestContext &ctx, const QVariantMap &data)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbInsertTerm()");
    const uint vid = data.value(QStringLiteral("vid")).toUInt();
    if (vid == 0) {
        ctx.response->setError(Response::RE_RequiredVorixID);
        return 0;
    }
    const QString name = data.value(QStringLiteral("name")).toString();
    if (name.isEmpty()) {
        ctx.response->setError(Response::RE_RequiredName);
        return 0;
    }

    // `name` is always among them: it was required above. An empty address never overwrites
    // a stored one.
    QVariantMap values = pickTrimmed(data, termInfoFields(), addressFields());
    values.insert(QStringLiteral("online"), QDateTime::currentSecsSinceEpoch());
    values.insert(QStringLiteral("status"), 1);
    values.insert(QStringLiteral("type"), QStringLiteral("API"));
    values.insert(QStringLiteral("vorixID"), vid);
    if (!values.contains(QStringLiteral("flags")))
        values.insert(QStringLiteral("flags"), 0);
    if (ctx.header.debugLevel >= 2)
        qDebug() << "WebApiWorker::dbInsertTerm() data:" << compactJson(values);

    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query,
                  QStringLiteral("SELECT tid, status FROM term WHERE vorixID = %1 ORDER BY tid DESC LIMIT 1").arg(vid),
                  "WebApiWorker::dbInsertTerm() SQl ERROR:"))
        return 0;
    const bool known = query.next();
    const uint tid = known ? query.value(0).toUInt() : 0;
    // An administrator's switch-off outlives the device's attempts to come back.
    if (known && query.value(1).toInt() == 0) {
        ctx.response->setError(Response::RE_BadVID);
        return 0;
    }
    return writeFoundRow(ctx, QStringLiteral("term"), QStringLiteral("tid"), tid, values,
                         "WebApiWorker::dbInsertTerm() SQl ERROR:");
}

QVariantMap dbGetTerm(const TerminalRequestContext &ctx, uint tid)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbGetTerm(%u)", tid);
    const QStringList columns = termInfoFields() + QStringList{QStringLiteral("vorixID")};
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query, QStringLiteral("SELECT %1 FROM term WHERE tid = %2 AND status = 1 AND type='API' LIMIT 1")
                                  .arg(columns.join(QLatin1Char(',')), QString::number(tid)),
                  "WebApiWorker::dbGetTerm() SQl ERROR:"))
        return QVariantMap();
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

bool dbUpdateTerm(const TerminalRequestContext &ctx, uint tid, const QVariantMap &data)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbUpdateTerm(%u)", tid);
    QVariantMap values = pickTrimmed(data, termInfoFields(), addressFields());
    values.insert(QStringLiteral("status"), 1);
    if (ctx.header.debugLevel >= 2)
        qDebug() << "WebApiWorker::dbUpdateTerm() data:" << compactJson(values);
    if (values.isEmpty()) {
        ctx.response->setError(Response::RE_NoData4Update);
        return false;
    }
    values.insert(QStringLiteral("online"), QDateTime::currentSecsSinceEpoch());

    QSqlQuery query(ctx.db);
    return execBound(ctx, query,
                     QStringLiteral("UPDATE term SET %1 WHERE tid = %2")
                         .arg(boundAssignments(values), QString::number(tid)),
                     values, "WebApiWorker::dbUpdateTerm() SQl ERROR:")
        && query.numRowsAffected() > 0;
}

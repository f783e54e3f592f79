#include "terminal/terminalsql.h"

#include "database/statementcache.h"
#include "response/jsonwriter.h"
#include "response/response.h"
#include "response/sqlrow.h"

#include <QSqlError>
#include <QSqlQuery>

bool runQuery(const TerminalRequestContext &ctx, QSqlQuery &query, const QString &sql, const char *failureLine)
{
    if (query.exec(sql))
        return true;
    ctx.response->setSqlError(query.lastError().text(), query.lastQuery(), failureLine);
    return false;
}

QString boundAssignments(const QVariantMap &values, const QString &shape)
{
    QStringList parts;
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        parts << shape.arg(it.key());
    return parts.join(QStringLiteral(", "));
}

bool prepareBound(QSqlQuery &query, const QString &sql, const QVariantMap &values, StatementCache *kept)
{
    if (!(kept ? kept->prepare(query, sql) : query.prepare(sql)))
        return false;
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        query.bindValue(QLatin1Char(':') + it.key(), it.value());
    return true;
}

bool execBound(const TerminalRequestContext &ctx, QSqlQuery &query, const QString &sql, const QVariantMap &values,
               const char *failureLine)
{
    if (prepareBound(query, sql, values) && query.exec())
        return true;
    ctx.response->setSqlError(query.lastError().text(), sql, failureLine);
    return false;
}

bool queryCount(const TerminalRequestContext &ctx, const QString &sql, const char *failureLine, uint &count)
{
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query, sql, failureLine))
        return false;
    count = query.next() ? query.value(0).toUInt() : 0;
    return true;
}

bool rowExists(const TerminalRequestContext &ctx, const QString &sql, const char *failureLine)
{
    uint count = 0;
    return queryCount(ctx, sql, failureLine, count) && count != 0;
}

bool execWrite(const TerminalRequestContext &ctx, const QString &sql, const char *failureLine)
{
    QSqlQuery query(ctx.db);
    return runQuery(ctx, query, sql, failureLine) && query.numRowsAffected() > 0;
}

QVariant collectRows(const TerminalRequestContext &ctx, QSqlQuery &query, bool single, const RowWriter &writeRow)
{
    SqlRow row(query);
    JsonWriter json(ctx.header.prettyJson);
    if (single && row.next()) {
        writeRow(json, row);
        return json.takeBody();
    }
    int count = 0;
    json.beginArray();
    for (; row.next(); ++count) {
        writeRow(json, row);
        // The first row's size tells that of them all: the text grows once, not by doubling.
        if (count == 0 && query.size() > 1)
            json.reserve(int(qMin<qint64>(qint64(json.size()) * query.size() * 9 / 8, 64 << 20)));
    }
    json.endArray();
    ctx.response->setHeader(QStringLiteral("X-WEBAPI-COUNT"), count);
    return json.takeBody();
}

QVariantMap pickTrimmed(const QVariantMap &data, const QStringList &keys, const QStringList &keepStored)
{
    QVariantMap values;
    for (const QString &key : keys) {
        if (!data.contains(key))
            continue;
        const QString value = data.value(key).toString().trimmed();
        if (value.isEmpty() && keepStored.contains(key))
            continue;
        values.insert(key, value);
    }
    return values;
}

uint writeFoundRow(const TerminalRequestContext &ctx, const QString &table, const QString &keyColumn, uint id,
                   const QVariantMap &values, const char *failureLine, QString *error)
{
    const QString assignments = boundAssignments(values);
    const QString sql = id != 0
        ? QStringLiteral("UPDATE %1 SET %2 WHERE %3 = %4").arg(table, assignments, keyColumn, QString::number(id))
        : QStringLiteral("INSERT INTO %1 SET %2 ON DUPLICATE KEY UPDATE %3")
              .arg(table, assignments, boundAssignments(values, QStringLiteral("%1=VALUES(%1)")));
    QSqlQuery query(ctx.db);
    if (!execBound(ctx, query, sql, values, failureLine)) {
        if (error)
            *error = query.lastError().text();
        return 0;
    }
    if (id != 0) {
        if (query.numRowsAffected() < 1)
            ctx.response->setStatus(208);
        return id;
    }
    const uint newId = query.lastInsertId().toUInt();
    if (newId != 0)
        ctx.response->setStatus(201);
    return newId;
}

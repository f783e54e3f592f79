#ifndef TERMINALSQL_H
#define TERMINALSQL_H

#include "terminal/terminalrequestcontext.h"

#include <QStringList>
#include <QVariant>

#include <functional>

class JsonWriter;
class QSqlQuery;
class SqlRow;
class StatementCache;

// The shapes the terminal operations share: a statement and its failure report, bound
// values, the list pattern of the reads, and the two write patterns of the registrations.

// Runs `sql`; on failure RE_SQLError with the driver's text, and `failureLine` logged with
// the statement. False when it failed.
bool runQuery(const TerminalRequestContext &ctx, QSqlQuery &query, const QString &sql, const char *failureLine);

// "key=:key" (or another `shape` with one "%1") for every value, in key order, joined by
// ", ": the column lists of statements whose values are all bound.
QString boundAssignments(const QVariantMap &values, const QString &shape = QStringLiteral("%1=:%1"));
// Prepares `sql` and binds every value under ":" and its key: no client text becomes part
// of a statement. With `kept`, a statement of the same text prepared before on this
// connection is bound anew instead. False when the prepare failed (the query holds the error).
bool prepareBound(QSqlQuery &query, const QString &sql, const QVariantMap &values, StatementCache *kept = nullptr);
// prepareBound and exec; a failure of either is reported with `failureLine`.
bool execBound(const TerminalRequestContext &ctx, QSqlQuery &query, const QString &sql, const QVariantMap &values,
               const char *failureLine);

// First column of a COUNT statement in `count`; false (and reported) when it failed.
bool queryCount(const TerminalRequestContext &ctx, const QString &sql, const char *failureLine, uint &count);
// True when the COUNT statement counts a row; false also when it failed (reported).
bool rowExists(const TerminalRequestContext &ctx, const QString &sql, const char *failureLine);
// A write statement: true when it changed a row; false also when it failed (reported).
bool execWrite(const TerminalRequestContext &ctx, const QString &sql, const char *failureLine);

// The list pattern of the read operations: each row written as an object by `writeRow`,
// which resolved its columns once for the statement. With `single` the first row's
// object is the body alone; otherwise, and when `single` found no row, the array, with
// X-WEBAPI-COUNT. Returns the written body (JsonText).
using RowWriter = std::function<void(JsonWriter &json, const SqlRow &row)>;
QVariant collectRows(const TerminalRequestContext &ctx, QSqlQuery &query, bool single, const RowWriter &writeRow);

// The values of `keys` that `data` holds, as trimmed text; an empty one of `keepStored` is
// left out, so that it never overwrites what is stored.
QVariantMap pickTrimmed(const QVariantMap &data, const QStringList &keys, const QStringList &keepStored);

// The row `id` of `table` (0: none yet) gets `values`: an update answers 208 when nothing
// changed, an insert 201. The row's number, or 0 when the write failed (reported; the
// driver's text in `error`).
uint writeFoundRow(const TerminalRequestContext &ctx, const QString &table, const QString &keyColumn, uint id,
                   const QVariantMap &values, const char *failureLine, QString *error = nullptr);

#endif

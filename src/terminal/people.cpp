#include "terminal/people.h"

#include "terminal/identifiers.h"
#include "terminal/terminalsql.h"

#include "response/jsonwriter.h"
#include "response/response.h"
#include "response/sqlrow.h"

#include <QDate>
#include <QDateTime>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QtDebug>

namespace {

const QString kForeignKeyFailure = QStringLiteral("foreign key constraint fails");

// An empty one of these never overwrites what is stored.
const QStringList &keptNames()
{
    static const QStringList names = {QStringLiteral("name"), QStringLiteral("surname"), QStringLiteral("card")};
    return names;
}

// One person as a terminal sees it, from either people statement, whose columns are found
// by name once; `grp` only where the statement selects it.
RowWriter personWriter(const QSqlRecord &record)
{
    const auto column = [&](const char *name) { return record.indexOf(QLatin1String(name)); };
    const int uid = column("uid"), pid = column("pid"), gid = column("gid"), name = column("name");
    const int surname = column("surname"), title = column("title"), title2 = column("title2");
    const int card = column("card"), saldo = column("saldo"), grp = column("grp"), present = column("present");
    const int begin = column("begin"), end = column("end");
    return [=](JsonWriter &json, const SqlRow &row) {
        const uint pidValue = row.toUInt(pid);
        json.beginObject();
        json.key("begin").localTime(row.toLongLong(begin), JsonWriter::IsoDate);
        json.key("card");
        row.writeText(json, card);
        json.key("end");
        row.isNull(end) ? json.null() : json.localTime(row.toLongLong(end), JsonWriter::IsoDate);
        json.key("gid").integer(row.toUInt(gid));
        if (grp >= 0)
            json.key("grp").integer(row.toUInt(grp));
        json.key("name");
        row.writeText(json, name);
        json.key("pid").integer(pidValue);
        json.key("present").boolean(row.toBool(present));
        json.key("saldo").integer(row.toInt(saldo));
        json.key("surname");
        row.writeText(json, surname);
        json.key("title");
        row.writeText(json, title);
        json.key("title2");
        row.writeText(json, title2);
        json.key("uid").string(encodeId(row.toUInt(uid), pidValue));
        json.endObject();
    };
}

// Links a person to a terminal unless linked already; false only when the link test failed.
bool dbLinkPerson(const TerminalRequestContext &ctx, uint uid, uint tid, const char *failureLine)
{
    uint count = 0;
    // Both callers report a failed link test in the words of dbInsertPerson.
    if (!queryCount(ctx,
                    QStringLiteral("SELECT COUNT(*) FROM people_term WHERE uid= %1 AND tid = %2 LIMIT 1").arg(uid).arg(tid),
                    "WebApiWorker::dbInsertPerson() SQl ERROR:", count))
        return false;
    if (count == 0) {
        // A failed link is reported, and the person stays without it.
        QSqlQuery query(ctx.db);
        runQuery(ctx, query,
                 QStringLiteral("INSERT INTO people_term SET uid=%1, tid=%2 ON DUPLICATE KEY UPDATE uid=VALUES(uid)").arg(uid).arg(tid),
                 failureLine);
    }
    return true;
}

} // namespace

bool dbCheckPerson(const TerminalRequestContext &ctx, uint uid, uint pid)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbCheckPerson(%u, %u)", uid, pid);
    return rowExists(ctx,
                     QStringLiteral("SELECT COUNT(*) FROM people WHERE uid = %1 AND pid = %2 AND status = 1").arg(uid).arg(pid),
                     "WebApiWorker::dbCheckPerson() SQl ERROR:");
}

bool dbDeletePerson(const TerminalRequestContext &ctx, uint tid, uint uid)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbDeletePerson(%u, %u)", tid, uid);
    return execWrite(ctx, QStringLiteral("DELETE FROM `people_term` WHERE tid= %1 AND uid = %2").arg(tid).arg(uid),
                     "WebApiWorker::dbDeletePerson() SQl ERROR:");
}

QVariant dbGetPeople(const TerminalRequestContext &ctx, uint uid)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbGetPeople(%u)", uid);
    QStringList where = {QStringLiteral("p.status = 1")};
    if (uid != 0)
        where << QStringLiteral("p.uid=%1").arg(uid);
    if (ctx.header.debugLevel >= 3)
        qDebug() << "WebApiWorker::dbGetPeople() where:" << where;
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query,
                  QStringLiteral("SELECT p.uid,  pid, p.name, p.surname, p.title, p.title2, p.admin, p.card, saldo, "
                                 "p.access, p.present, p.presentID, p.begin, p.end, gid FROM people p WHERE ")
                  + where.join(QStringLiteral(" AND ")),
                  "WebApiWorker::dbGetPeople() SQl ERROR:"))
        return false;
    return collectRows(ctx, query, uid != 0, personWriter(query.record()));
}

QVariant dbGetPeople4Terminal(const TerminalRequestContext &ctx, uint tid, uint uid)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbGetPeople4Terminal(%u, %u)", tid, uid);
    // A terminal sees only its own people, and only while they are valid.
    QStringList where = {QStringLiteral("pt.tid=%1 AND p.status = 1 AND p.begin < UNIX_TIMESTAMP() AND (p.end IS NULL "
                                        "OR p.end > UNIX_TIMESTAMP())")
                             .arg(tid)};
    if (uid != 0)
        where << QStringLiteral("pt.uid=%1").arg(uid);
    if (ctx.header.debugLevel >= 3)
        qDebug() << "WebApiWorker::dbGetPeople4Terminal() where:" << where;
    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query,
                  QStringLiteral("SELECT p.uid,  pid, p.name, p.surname, p.title, p.title2, p.admin, p.card, saldo, "
                                 "p.access, pt.grp, p.present, p.begin, p.end, gid FROM people_term pt JOIN people p "
                                 "USING(uid) WHERE ")
                  + where.join(QStringLiteral(" AND ")),
                  "WebApiWorker::dbGetPeople4Terminal() SQl ERROR:"))
        return false;
    return collectRows(ctx, query, uid != 0, personWriter(query.record()));
}

uint dbInsertPerson(const TerminalRequestContext &ctx, uint tid, const QVariantMap &data)
{
    const uint pid = data.value(QStringLiteral("pid")).toUInt();
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbInsertPerson(%u, %u)", tid, pid);
    if (pid == 0) {
        ctx.response->setError(Response::RE_RequiredPID);
        return 0;
    }
    if (data.value(QStringLiteral("name")).toString().isEmpty()
        && data.value(QStringLiteral("surname")).toString().isEmpty()) {
        ctx.response->setError(Response::RE_RequiredName);
        return 0;
    }

    QVariantMap values = pickTrimmed(data,
                                     {QStringLiteral("title"), QStringLiteral("name"), QStringLiteral("surname"),
                                      QStringLiteral("title2"), QStringLiteral("card"), QStringLiteral("gid"),
                                      QStringLiteral("end")},
                                     keptNames());
    values.insert(QStringLiteral("pid"), pid);

    QSqlQuery query(ctx.db);
    if (!runQuery(ctx, query, QStringLiteral("SELECT uid FROM people WHERE pid = %1 LIMIT 1").arg(pid),
                  "WebApiWorker::dbInsertPerson() SQl ERROR:"))
        return 0;
    uint uid = query.next() ? query.value(0).toUInt() : 0;
    if (uid == 0 && !values.contains(QStringLiteral("begin")))
        values.insert(QStringLiteral("begin"), uint(QDateTime(QDate::currentDate(), QTime(0, 0)).toSecsSinceEpoch()));

    // The person's other terminals learn of the change; a failed mark does not stop it.
    if (uid != 0)
        dbSetOtherTermsPeopleSync(ctx, tid, uid, 'U');
    QString error;
    uid = writeFoundRow(ctx, QStringLiteral("people"), QStringLiteral("uid"), uid, values,
                        "WebApiWorker::dbInsertPerson() SQl ERROR:", &error);
    if (uid == 0) {
        if (isForeignKeyError(ctx, error))
            ctx.response->setError(Response::RE_ForeignKeyError, error);
        return 0;
    }
    if (!dbLinkPerson(ctx, uid, tid, "WebApiWorker::dbInsertPerson() SQl ERROR:"))
        return 0;
    return uid;
}

bool dbUpdatePerson(const TerminalRequestContext &ctx, uint tid, uint uid, const QVariantMap &data)
{
    if (ctx.header.debugLevel == 1)
        qDebug("WebApiWorker::dbUpdatePerson(%u, %u)", tid, uid);
    else if (ctx.header.debugLevel >= 2)
        qDebug() << "WebApiWorker::dbUpdatePerson(" << tid << uid << data << ")";

    QVariantMap values = pickTrimmed(data,
                                     {QStringLiteral("title"), QStringLiteral("name"), QStringLiteral("surname"),
                                      QStringLiteral("admin"), QStringLiteral("card")},
                                     keptNames());
    // Meant for `admin`, whose JSON booleans read as text, but it applies to every key.
    for (QVariant &value : values) {
        const QString lower = value.toString().toLower();
        if (lower == QLatin1String("true"))
            value = QStringLiteral("1");
        else if (lower == QLatin1String("false"))
            value = QStringLiteral("0");
    }

    QSqlQuery query(ctx.db);
    if (!execBound(ctx, query,
                   QStringLiteral("UPDATE people SET %1 WHERE uid = %2")
                       .arg(boundAssignments(values), QString::number(uid)),
                   values, "WebApiWorker::dbUpdatePerson() SQl ERROR:"))
        return false;
    const int changed = query.numRowsAffected();
    if (ctx.header.debugLevel >= 2)
        qDebug("WebApiWorker::dbUpdatePerson(%u, %u) SQL: %s", tid, uid, qUtf8Printable(query.lastQuery()));
    if (!dbLinkPerson(ctx, uid, tid, "WebApiWorker::dbUpdatePerson() SQl ERROR:"))
        return false;
    return changed > 0;
}

bool dbSetOtherTermsPeopleSync(const TerminalRequestContext &ctx, uint tid, uint uid, char type)
{
    if (ctx.header.debugLevel >= 1)
        qDebug("WebApiWorker::dbSetOtherTermsPeopleSync(tid: %u, uid: %u)", tid, uid);
    QSqlQuery query(ctx.db);
    query.exec(QStringLiteral("INSERT INTO `term_sync` (tid, type, ref, ref_col, ref_id, created, flags) SELECT tid, "
                              "'%1' type, 'people_term' ref, 'uid' ref_col, `uid` ref_id, UNIX_TIMESTAMP() created, 2 "
                              "flags FROM people_term pt JOIN people p USING(uid) WHERE p.status = 1 AND pt.uid = %2 AND "
                              "pt.tid != %3;")
                   .arg(QString(QLatin1Char(type)), QString::number(uid), QString::number(tid)));
    if (query.lastError().isValid()) {
        qCritical("WebApiWorker::dbSetOtherTermsPeopleSync() ERROR: %s", qUtf8Printable(query.lastError().text()));
        return false;
    }
    query.exec(QStringLiteral("Update `term` SET syn = syn | 2 WHERE status = 1 AND tid IN(SELECT tid FROM people_term "
                              "WHERE uid = %1 AND tid != %2)")
                   .arg(uid)
                   .arg(tid));
    if (query.lastError().isValid()) {
        qCritical("WebApiWorker::dbSetOtherTermsPeopleSync() ERROR: %s", qUtf8Printable(query.lastError().text()));
        return false;
    }
    return true;
}

bool isForeignKeyError(const TerminalRequestContext &ctx, const QString &text)
{
    const bool yes = text.contains(kForeignKeyFailure);
    if (ctx.header.debugLevel >= 3)
        qDebug("WebApiWorker::isForeignKeyError(%s) : %s", qUtf8Printable(text), yes ? "YES" : "NO");
    return yes;
}

bool isMissingIID(const TerminalRequestContext &ctx, const QString &text)
{
    const bool yes = text.contains(kForeignKeyFailure) && text.contains(QLatin1String("(`iid`)"));
    if (ctx.header.debugLevel >= 3)
        qDebug("WebApiWorker::isMissingIID(%s) : %s", qUtf8Printable(text), yes ? "YES" : "NO");
    return yes;
}

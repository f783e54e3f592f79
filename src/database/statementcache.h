#ifndef STATEMENTCACHE_H
#define STATEMENTCACHE_H

#include <QHash>
#include <QSqlQuery>
#include <QString>

// The prepared statements of one connection, by their text: a statement run on every request
// is prepared once and then only bound and run again. Its owner clears it before the
// connection closes, since a statement never outlives its session.
class StatementCache
{
public:
    // `query` (made on the connection) becomes the statement `sql`, prepared: the kept one, or
    // one prepared now and kept. False when the prepare failed: the error is in `query`, and
    // nothing is kept.
    bool prepare(QSqlQuery &query, const QString &sql);
    // Forgets `sql`'s statement after its exec failed: the session may have gone with it, so
    // the next prepare() starts afresh.
    void drop(const QString &sql) { m_statements.remove(sql); }
    void clear() { m_statements.clear(); }

private:
    QHash<QString, QSqlQuery> m_statements;
};

#endif

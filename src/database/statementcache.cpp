#include "database/statementcache.h"

bool StatementCache::prepare(QSqlQuery &query, const QString &sql)
{
    const auto kept = m_statements.constFind(sql);
    if (kept != m_statements.cend()) {
        query = kept.value();
        return true;
    }
    if (!query.prepare(sql))
        return false;
    m_statements.insert(sql, query);
    return true;
}

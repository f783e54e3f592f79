#include "database/zmtdbsettings.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QtDebug>

namespace {

// Only the writes bind parameters; names in the other statements go in as they are.
const QString kUpsert = QStringLiteral(
    "INSERT INTO vars (name, value) VALUES(:name, :value) ON DUPLICATE KEY UPDATE value=VALUES(value);");

// Two messages: the literal, then the driver's text without quotes.
void logSqlError(const char *line, const QSqlQuery &query)
{
    if (!query.lastError().isValid())
        return;
    qCritical() << line;
    qCritical() << query.lastError().text().toLocal8Bit().constData();
}

void logSetError(const QSqlQuery &query)
{
    if (query.lastError().isValid())
        qCritical() << "variableSet ERROR:" << query.lastError().text();
}

bool bindAndExec(QSqlQuery &query, const QString &name, const QVariant &value)
{
    query.bindValue(QStringLiteral(":name"), QVariant(name), QSql::In);
    query.bindValue(QStringLiteral(":value"), value, QSql::In);
    return query.exec();
}

} // namespace

ZmtDbSettings::ZmtDbSettings() = default;

ZmtDbSettings::ZmtDbSettings(const QSqlDatabase &db)
{
    m_db = db;
}

void ZmtDbSettings::setDb(const QSqlDatabase &db)
{
    m_db = db;
}

bool ZmtDbSettings::open()
{
    const bool opened = m_db.open();
    if (m_db.lastError().isValid())
        qCritical() << "ZmtDbSettings Database Error:" << m_db.lastError().text();
    return opened;
}

void ZmtDbSettings::close()
{
    m_db.close();
}

QVariant ZmtDbSettings::variableGet(const QString &name, QVariant defaultValue)
{
    QSqlQuery query(m_db);
    if (query.exec(QStringLiteral("SELECT value FROM vars WHERE name='%1' LIMIT 1").arg(name)) && query.next())
        return query.value(QStringLiteral("value"));
    logSqlError("ZmtDbSettings::variableGet - SQL ERROR:", query);
    return defaultValue;
}

bool ZmtDbSettings::variableSet(const QString &name, const QVariant &value)
{
    QSqlQuery query(m_db);
    if (query.prepare(kUpsert) && bindAndExec(query, name, value))
        return true;
    logSetError(query);
    return false;
}

bool ZmtDbSettings::variableSet(const QMap<QString, QVariant> &values)
{
    QSqlQuery query(m_db);
    if (!query.prepare(kUpsert)) {
        logSetError(query);
        return false;
    }
    // One failed entry doesn't stop the others; nothing is rolled back.
    quint16 written = 0;
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        if (bindAndExec(query, it.key(), it.value()))
            ++written;
        logSetError(query);
    }
    return values.size() == written;
}

bool ZmtDbSettings::variableDel(const QString &name, bool prefix)
{
    // With a prefix the '%' after the name stays as the LIKE wildcard.
    const QString sql = prefix ? QStringLiteral("DELETE FROM vars WHERE name LIKE '%1%'")
                               : QStringLiteral("DELETE FROM vars WHERE name='%1'");
    QSqlQuery query(m_db);
    const bool deleted = query.exec(sql.arg(name)) && query.numRowsAffected() > 0;
    logSqlError("ZmtDbSettings::variableDel - SQL ERROR:", query);
    return deleted;
}

QMap<QString, QVariant> ZmtDbSettings::variableGetMultiple(const QStringList &names)
{
    if (names.isEmpty())
        return QMap<QString, QVariant>();
    QStringList quoted;
    quoted.reserve(names.size());
    for (const QString &name : names)
        quoted.append(QLatin1Char('\'') + name + QLatin1Char('\''));
    return selectVariables(QStringLiteral("SELECT name, value FROM vars WHERE name IN(%1)").arg(quoted.join(QLatin1Char(','))));
}

QMap<QString, QVariant> ZmtDbSettings::variableGetMultiple(const QString &prefix)
{
    return selectVariables(QStringLiteral("SELECT name, value FROM vars WHERE name LIKE '%1%'").arg(prefix));
}

QMap<QString, QVariant> ZmtDbSettings::selectVariables(const QString &sql)
{
    QMap<QString, QVariant> values;
    QSqlQuery query(m_db);
    if (query.exec(sql)) {
        while (query.next())
            values.insert(query.value(QStringLiteral("name")).toString(), query.value(QStringLiteral("value")));
    }
    logSqlError("ZmtDbSettings::variableGetMultiple - SQL ERROR:", query);
    return values;
}

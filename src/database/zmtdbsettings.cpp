#include "database/zmtdbsettings.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QtDebug>

namespace {

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

// Names are always bound; a prefix goes to LIKE with its wildcards and the escape character
// escaped, so "a_b" matches only names that start with "a_b".
const QString kLikePrefix = QStringLiteral("name LIKE ? ESCAPE '!'");

QString likePrefix(QString prefix)
{
    prefix.replace(QLatin1Char('!'), QLatin1String("!!"));
    prefix.replace(QLatin1Char('%'), QLatin1String("!%"));
    prefix.replace(QLatin1Char('_'), QLatin1String("!_"));
    return prefix + QLatin1Char('%');
}

bool execBound(QSqlQuery &query, const QString &sql, const QVariantList &values)
{
    if (!query.prepare(sql))
        return false;
    for (const QVariant &value : values)
        query.addBindValue(value);
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
    if (execBound(query, QStringLiteral("SELECT value FROM vars WHERE name = ? LIMIT 1"), {name}) && query.next())
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
    QSqlQuery query(m_db);
    const bool done = prefix
        ? execBound(query, QStringLiteral("DELETE FROM vars WHERE ") + kLikePrefix, {likePrefix(name)})
        : execBound(query, QStringLiteral("DELETE FROM vars WHERE name = ?"), {name});
    const bool deleted = done && query.numRowsAffected() > 0;
    logSqlError("ZmtDbSettings::variableDel - SQL ERROR:", query);
    return deleted;
}

QMap<QString, QVariant> ZmtDbSettings::variableGetMultiple(const QStringList &names)
{
    if (names.isEmpty())
        return QMap<QString, QVariant>();
    QStringList marks;
    QVariantList values;
    for (const QString &name : names) {
        marks.append(QStringLiteral("?"));
        values.append(name);
    }
    return selectVariables(QStringLiteral("name IN(%1)").arg(marks.join(QLatin1Char(','))), values);
}

QMap<QString, QVariant> ZmtDbSettings::variableGetMultiple(const QString &prefix)
{
    return selectVariables(kLikePrefix, {likePrefix(prefix)});
}

QMap<QString, QVariant> ZmtDbSettings::selectVariables(const QString &where, const QVariantList &values)
{
    QMap<QString, QVariant> found;
    QSqlQuery query(m_db);
    if (execBound(query, QStringLiteral("SELECT name, value FROM vars WHERE ") + where, values)) {
        while (query.next())
            found.insert(query.value(QStringLiteral("name")).toString(), query.value(QStringLiteral("value")));
    }
    logSqlError("ZmtDbSettings::variableGetMultiple - SQL ERROR:", query);
    return found;
}

#ifndef ZMTDBSETTINGS_H
#define ZMTDBSETTINGS_H

#include <QMap>
#include <QSqlDatabase>
#include <QString>
#include <QStringList>
#include <QVariant>

// Accessor of a customer database's `vars` key-value table, for hosts. No cache: every call
// goes to the database. The caller opens the handle first.
class ZmtDbSettings
{
public:
    ZmtDbSettings();
    explicit ZmtDbSettings(const QSqlDatabase &db);

    void setDb(const QSqlDatabase &db);
    bool open();
    void close();

    QVariant variableGet(const QString &name, QVariant defaultValue);
    bool variableSet(const QString &name, const QVariant &value);
    bool variableSet(const QMap<QString, QVariant> &values);
    bool variableDel(const QString &name, bool prefix);
    QMap<QString, QVariant> variableGetMultiple(const QStringList &names);
    QMap<QString, QVariant> variableGetMultiple(const QString &prefix);

private:
    // `where` holds only placeholders; `values` are bound to them in order.
    QMap<QString, QVariant> selectVariables(const QString &where, const QVariantList &values);

    QSqlDatabase m_db;
};

#endif

#ifndef LICENCE_H
#define LICENCE_H

#include <QHash>
#include <QSqlDatabase>
#include <QString>

class Response;

// The licence checks of a customer, read from the rows of its `vars` table:
//   webapi.enabled   1 switches the REST interface on
//   webapi.key.*     lower-case hex SHA-256 of a client key, one row per client
//   webapi.devices   "*" or a list of device numbers and ranges, e.g. "1000-1999,2500"
// The rows are read once per request, in load().
class Licence
{
public:
    static QString notLicensedText();

    // False when the rows cannot be read (the database is gone): no verdict, not a refusal.
    bool load(const QSqlDatabase &db);
    bool webApiEnabled() const;
    // Accepts "Bearer <key>"; on refusal sets RE_BadAuthorization or RE_BadApiToken.
    bool checkAuth(const QString &authorization, Response *response) const;
    bool deviceAllowed(uint vid) const;

    static QString keyDigest(const QString &key);
    static bool deviceListAllows(const QString &list, uint vid);

private:
    QHash<QString, QString> m_rows;
};

#endif

#ifndef LICENCE_H
#define LICENCE_H

#include <QHash>
#include <QSqlDatabase>
#include <QString>

// The licence checks of a customer, read from the rows of its `vars` table:
//   webapi.enabled   1 switches the REST interface on
//   webapi.key.*     lower-case hex SHA-256 of a client key, one row per client; with a
//                    prefix "terminal:" or "admin:" the key serves that context only
//   webapi.devices   "*" or a list of device numbers and ranges, e.g. "1000-1999,2500"
//   webapi.devel     lower-case hex SHA-256 of the X-WEBAPI-DEVEL-ENV value that switches
//                    on development mode; without the row there is none
// The rows are read once per request, in load().
class Licence
{
public:
    // The context a request runs in, which a scoped key must match.
    enum class Scope { Terminal, Admin };

    static QString notLicensedText();

    // False when the rows cannot be read (the database is gone): no verdict, not a refusal.
    bool load(const QSqlDatabase &db);
    bool webApiEnabled() const;
    // The verdict on an Authorization value: accepted, or why not with what of the value may
    // be shown back (the scheme, or the start of the key; never a whole key).
    struct Auth
    {
        enum Outcome { Accepted, BadScheme, UnknownKey };
        Outcome outcome = Accepted;
        QString shown;
    };
    // Accepts "Bearer <key>" of a key for `scope`; a key of the other scope is an unknown one.
    Auth checkAuth(const QString &authorization, Scope scope) const;
    // The customer consented to development mode with this value.
    bool developmentAllowed(const QString &sent) const;
    bool deviceAllowed(uint vid) const;

    static QString keyDigest(const QString &key);
    static bool deviceListAllows(const QString &list, uint vid);

private:
    QHash<QString, QString> m_rows;
};

#endif

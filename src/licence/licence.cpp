#include "licence/licence.h"

#include <QCryptographicHash>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QtDebug>

namespace {

const QString kEnabledRow = QStringLiteral("webapi.enabled");
const QString kKeyPrefix = QStringLiteral("webapi.key.");
const QString kDevicesRow = QStringLiteral("webapi.devices");
const QString kDevelRow = QStringLiteral("webapi.devel");

// Equal-length comparison that does not stop at the first difference, so the time taken
// says nothing about how much of a digest matched.
bool constantTimeEquals(const QByteArray &a, const QByteArray &b)
{
    if (a.size() != b.size())
        return false;
    unsigned char diff = 0;
    for (int i = 0; i < a.size(); ++i)
        diff |= static_cast<unsigned char>(a.at(i) ^ b.at(i));
    return diff == 0;
}

} // namespace

QString Licence::notLicensedText()
{
    return QStringLiteral("REST interface not licensed");
}

bool Licence::load(const QSqlDatabase &db)
{
    m_rows.clear();
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("SELECT name, value FROM vars WHERE name LIKE 'webapi.%'"))) {
        qCritical() << "Licence::load() SQL ERROR:" << query.lastError().text();
        return false;
    }
    while (query.next())
        m_rows.insert(query.value(0).toString(), query.value(1).toString());
    return true;
}

bool Licence::webApiEnabled() const
{
    return m_rows.value(kEnabledRow).trimmed() == QLatin1String("1");
}

Licence::Auth Licence::checkAuth(const QString &authorization, Scope scope) const
{
    // A lone word may be a key sent without its scheme, so it is never echoed; "Bearer"
    // alone is the scheme with an empty key.
    const int blank = authorization.indexOf(QLatin1Char(' '));
    const bool bareBearer = authorization.compare(QLatin1String("Bearer"), Qt::CaseInsensitive) == 0;
    const QString scheme = blank < 0 ? (bareBearer ? authorization : QString()) : authorization.left(blank);
    if (scheme.compare(QLatin1String("Bearer"), Qt::CaseInsensitive) != 0)
        return {Auth::BadScheme, scheme};
    const QString key = blank < 0 ? QString() : authorization.mid(blank + 1).trimmed();
    const QByteArray digest = keyDigest(key).toLatin1();
    const QString wanted = scope == Scope::Admin ? QStringLiteral("admin:") : QStringLiteral("terminal:");
    bool known = false;
    for (auto it = m_rows.constBegin(); it != m_rows.constEnd(); ++it) {
        if (!it.key().startsWith(kKeyPrefix) || key.isEmpty())
            continue;
        QString stored = it.value().trimmed();
        // A digest is hex, so a colon can only end a scope; another scope's key is no key here.
        if (stored.contains(QLatin1Char(':'))) {
            if (!stored.startsWith(wanted))
                continue;
            stored = stored.mid(wanted.size());
        }
        known |= constantTimeEquals(digest, stored.toLatin1());
    }
    if (!known)
        return {Auth::UnknownKey, key.left(4) + QStringLiteral("...")};
    return {};
}

bool Licence::developmentAllowed(const QString &sent) const
{
    const auto it = m_rows.constFind(kDevelRow);
    return it != m_rows.constEnd() && !sent.isEmpty() && !it->trimmed().isEmpty()
        && constantTimeEquals(keyDigest(sent).toLatin1(), it->trimmed().toLatin1());
}

bool Licence::deviceAllowed(uint vid) const
{
    const auto it = m_rows.constFind(kDevicesRow);
    return it != m_rows.constEnd() && deviceListAllows(*it, vid);
}

QString Licence::keyDigest(const QString &key)
{
    return QString::fromLatin1(QCryptographicHash::hash(key.toUtf8(), QCryptographicHash::Sha256).toHex());
}

bool Licence::deviceListAllows(const QString &list, uint vid)
{
    const QStringList items = list.split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString &raw : items) {
        const QString item = raw.trimmed();
        if (item == QLatin1String("*"))
            return true;
        const int dash = item.indexOf(QLatin1Char('-'));
        bool okFrom = false;
        bool okTo = false;
        const uint from = (dash < 0 ? item : item.left(dash)).trimmed().toUInt(&okFrom);
        const uint to = dash < 0 ? from : item.mid(dash + 1).trimmed().toUInt(&okTo);
        if (okFrom && (dash < 0 || okTo) && vid >= from && vid <= to)
            return true;
    }
    return false;
}

#include "settings/envirosettings.h"

#include <QtDebug>

EnviroSettings::EnviroSettings(QObject *parent)
    : QSettings(parent)
{
}

EnviroSettings::EnviroSettings(QSettings::Scope scope, const QString &organization,
                               const QString &application, QObject *parent)
    : QSettings(scope, organization, application, parent)
{
}

EnviroSettings::EnviroSettings(const QString &fileName, QSettings::Format format, QObject *parent)
    : QSettings(fileName, format, parent)
{
}

EnviroSettings::EnviroSettings(const QString &organization, const QString &application, QObject *parent)
    : QSettings(organization, application, parent)
{
}

const QString &EnviroSettings::prefix() const
{
    return m_prefix;
}

void EnviroSettings::setPrefix(const QString &prefix)
{
    if (prefix == m_prefix)
        return;
    m_prefix = prefix;
    emit prefixChanged();
}

QString EnviroSettings::environmentKey(QString key) const
{
    if (!m_prefix.isEmpty())
        key.prepend(m_prefix + QLatin1Char('/'));
    // Only the slash is replaced: dots, hyphens and blanks stay as they are.
    return key.replace(QLatin1Char('/'), QLatin1Char('_'), Qt::CaseSensitive).toUpper();
}

QVariant EnviroSettings::value(const QString &key, const QVariant &defaultValue) const
{
    const QString full = group().isEmpty() ? key : group() + QLatin1Char('/') + key;
    const QString envKey = environmentKey(full);
    qDebug("EnviroSettings::value() - key: '%s', environment key: %s", qUtf8Printable(full),
           qUtf8Printable(envKey));
    const QString envValue = m_env.value(envKey, defaultValue.toString());
    // QSettings applies the group itself, so it gets the key as it came in.
    return QSettings::value(key, QVariant(envValue));
}

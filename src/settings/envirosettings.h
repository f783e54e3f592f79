#ifndef ENVIROSETTINGS_H
#define ENVIROSETTINGS_H

#include <QProcessEnvironment>
#include <QSettings>

// A QSettings whose missing keys fall back on the process environment before the default,
// so a deployment can configure a value without any settings file. The key db/host under
// the prefix svc is read from SVC_DB_HOST.
class EnviroSettings : public QSettings
{
    Q_OBJECT
    Q_PROPERTY(QString prefix READ prefix WRITE setPrefix NOTIFY prefixChanged)

public:
    explicit EnviroSettings(QObject *parent = nullptr);
    EnviroSettings(QSettings::Scope scope, const QString &organization,
                   const QString &application = QString(), QObject *parent = nullptr);
    EnviroSettings(const QString &fileName, QSettings::Format format, QObject *parent = nullptr);
    EnviroSettings(const QString &organization, const QString &application = QString(),
                   QObject *parent = nullptr);

    const QString &prefix() const;
    void setPrefix(const QString &prefix);

    QString environmentKey(QString key) const;

    // Hides QSettings::value: stored value first, then the environment, then the default.
    // From the last two the result always holds a string.
    QVariant value(const QString &key, const QVariant &defaultValue = QVariant()) const;

signals:
    void prefixChanged();

private:
    QProcessEnvironment m_env = QProcessEnvironment::systemEnvironment();
    QString m_prefix;
};

#endif

#include "plugin/webapi.h"

#include "plugin/buildstamp.h"
#include "worker/webapiworker.h"

WebAPI::WebAPI(QObject *parent)
    : QObject(parent)
{
}

QStringList WebAPI::paths() const
{
    return {QStringLiteral("/webapi")};
}

QString WebAPI::getVersion() const
{
    return QStringLiteral("2.4.1");
}

WebApiWorker *WebAPI::createWorker(QObject *parent)
{
    auto *worker = new WebApiWorker(getVersion(), parent);
    connect(worker, SIGNAL(recordCreated(QString,uint,QString,quint8)),
            this, SIGNAL(recordCreated(QString,uint,QString,quint8)));
    return worker;
}

HttpPluginWorker *WebAPI::getNewWorker(QObject *parent)
{
    return createWorker(parent);
}

HttpPluginWorker *WebAPI::getWorker()
{
    if (!m_worker)
        m_worker = createWorker(this);
    return m_worker;
}

QMap<QString, QString> WebAPI::getVerInfo() const
{
    QMap<QString, QString> info;
    info.insert(QStringLiteral("VER"), getVersion());
    info.insert(QStringLiteral("vorixType"), QStringLiteral("PLG.WA"));
    const QString stamp = buildStamp(QStringLiteral(__DATE__), QStringLiteral(__TIME__));
    if (!stamp.isEmpty())
        info.insert(QStringLiteral("BUILD"), stamp);
    info.insert(QStringLiteral("ZMTDB"), QStringLiteral("22.03.21"));
    return info;
}

#include "module/webapi.h"

#include "module/buildstamp.h"
#include "worker/webapiworker.h"

#include <QtPlugin>

// Plug-in metadata as moc would write it for Q_PLUGIN_METADATA(IID ...), plus the key
// "MetaData" with an empty object, which hosts expect and which moc of Qt 5.15 leaves out
// when it is empty. CBOR: an open map of IID (key 2), className (key 3), MetaData (key 4).
QT_PLUGIN_METADATA_SECTION
static constexpr unsigned char qt_pluginMetaData[] = {
    'Q', 'T', 'M', 'E', 'T', 'A', 'D', 'A', 'T', 'A', ' ', '!',
    // metadata version, Qt version, architectural requirements (the debug mark among them)
    0, QT_VERSION_MAJOR, QT_VERSION_MINOR, qPluginArchRequirements(),
    0xbf,
    0x02, 0x78, 37,
    'c', 'o', 'm', '.', 'n', 'o', 'r', 'v', 'a', '-', 't', 'e', 'k', '.', 'q', 'h', 'x', '.', 'H',
    't', 't', 'p', 'P', 'l', 'u', 'g', 'i', 'n', 'I', 'n', 't', 'e', 'r', 'f', 'a', 'c', 'e',
    0x03, 0x66, 'W', 'e', 'b', 'A', 'P', 'I',
    0x04, 0xa0,
    0xff,
};
QT_MOC_EXPORT_PLUGIN(WebAPI, WebAPI)

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

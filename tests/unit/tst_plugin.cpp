// The built plug-in as a host meets it: loaded from its file through QPluginLoader, its
// metadata, interfaces, version data, workers and the relayed signal.
#include "module/buildstamp.h"
#include "plugin/httpplugininterface.h"
#include "plugin/httppluginworker.h"
#include "plugin/verinfointerface.h"

#include <QPluginLoader>
#include <QSignalSpy>
#include <QThread>
#include <QtTest>

class TestPlugin : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void metadataAndVersion();
    void workersRelayRecordCreated();

private:
    QPluginLoader m_loader{QStringLiteral(WEBAPI_PLUGIN_DIR "/libwebapi.so")};
    QObject *m_instance = nullptr;
    HttpPluginInterface *m_plugin = nullptr;
};

void TestPlugin::initTestCase()
{
    QVERIFY2(m_loader.load(), qPrintable(m_loader.errorString()));
    m_instance = m_loader.instance();
    m_plugin = qobject_cast<HttpPluginInterface *>(m_instance);
    QVERIFY(m_plugin);
}

void TestPlugin::metadataAndVersion()
{
    QJsonObject meta = m_loader.metaData();
    meta.remove(QStringLiteral("archreq"));  // Qt's loader adds its own
    const QJsonObject expected{{"IID", "com.norva-tek.qhx.HttpPluginInterface"}, {"className", "WebAPI"},
                               {"version", int(QT_VERSION & 0xffff00)}, {"debug", false}, {"MetaData", QJsonObject()}};
    QCOMPARE(meta, expected);
    QCOMPARE(m_plugin->paths(), QStringList{QStringLiteral("/webapi")});
    auto *verInfo = qobject_cast<VerInfoInterface *>(m_instance);
    QVERIFY(verInfo);
    QMap<QString, QString> info = verInfo->getVerInfo();
    QVERIFY(!info.take(QStringLiteral("BUILD")).isEmpty());
    QCOMPARE(info, (QMap<QString, QString>{{"VER", "2.4.1"}, {"vorixType", "PLG.WA"}, {"ZMTDB", "22.03.21"}}));
    // The compiler pads a one-digit day with a blank; month names are English whatever the locale.
    QCOMPARE(buildStamp("Apr  3 2024", "09:05:59"), QStringLiteral("2404030905"));
    QCOMPARE(buildStamp("Dub 30 2024", "15:43:02"), QString());
    QCOMPARE(buildStamp("Apr 30 2024", "quarter past"), QString());
}

void TestPlugin::workersRelayRecordCreated()
{
    HttpPluginWorker *shared = m_plugin->getWorker();
    QVERIFY(shared && shared->isReady());
    QCOMPARE(m_plugin->getWorker(), shared);
    QCOMPARE(shared->parent(), m_instance);
    QObject owner;
    QCOMPARE(m_plugin->getNewWorker(&owner)->parent(), &owner);

    // Each worker is connected once; a worker on another thread reaches the plug-in queued.
    QSignalSpy spy(m_instance, SIGNAL(recordCreated(QString,uint,QString,quint8)));
    QThread thread;
    HttpPluginWorker *moved = m_plugin->getNewWorker(nullptr);
    moved->moveToThread(&thread);
    connect(&thread, &QThread::finished, moved, &QObject::deleteLater);
    thread.start();
    uint id = 0;
    for (QObject *worker : {static_cast<QObject *>(shared), static_cast<QObject *>(moved)}) {
        // The interface headers give a worker no meta-object; the signal is reached by name.
        QVERIFY(QMetaObject::invokeMethod(worker, "recordCreated", Qt::QueuedConnection,
                                          Q_ARG(QString, QStringLiteral("inters_data")), Q_ARG(uint, ++id),
                                          Q_ARG(QString, QStringLiteral("token-a")), Q_ARG(quint8, quint8(1))));
        QVERIFY(spy.wait(5000));
    }
    thread.quit();
    QVERIFY(thread.wait(5000));
    const QList<QVariantList> seen = spy;
    QCOMPARE(seen, (QList<QVariantList>{{"inters_data", 1u, "token-a", QVariant::fromValue(quint8(1))},
                                       {"inters_data", 2u, "token-a", QVariant::fromValue(quint8(1))}}));
}

QTEST_GUILESS_MAIN(TestPlugin)
#include "tst_plugin.moc"

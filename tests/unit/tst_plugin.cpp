// The built plug-in as a host meets it: loaded from its file through QPluginLoader, its
// metadata, casts, interfaces, version data, workers and the relayed signal.
#include "plugin/buildstamp.h"
#include "plugin/httpplugininterface.h"
#include "plugin/httppluginworker.h"
#include "plugin/verinfointerface.h"

#include <QPluginLoader>
#include <QSignalSpy>
#include <QThread>
#include <QtTest>

namespace {

// A worker has no meta-object in the interface headers; its signal is reached by name, as
// the entrance handler's emit would reach it.
bool emitRecordCreated(QObject *worker, Qt::ConnectionType type, uint id)
{
    return QMetaObject::invokeMethod(worker, "recordCreated", type, Q_ARG(QString, QStringLiteral("inters_data")),
                                     Q_ARG(uint, id), Q_ARG(QString, QStringLiteral("token-a")),
                                     Q_ARG(quint8, quint8(1)));
}

} // namespace

class TestPlugin : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void metadataAndVersion();
    void casts_data();
    void casts();
    void buildStamp_data();
    void buildStamp();
    void workers();
    void recordCreatedReachesPluginOnce();
    void recordCreatedAcrossThreads();

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
    // Qt's loader adds its own architecture key; everything else is the plug-in's.
    meta.remove(QStringLiteral("archreq"));
    const QJsonObject expected{
        {"IID", "com.norva-tek.qhx.HttpPluginInterface"},
        {"className", "WebAPI"},
        {"version", int(QT_VERSION & 0xffff00)},  // what moc writes: major and minor
        {"debug", false},
        {"MetaData", QJsonObject()},
    };
    QCOMPARE(meta, expected);

    QCOMPARE(m_plugin->paths(), QStringList{QStringLiteral("/webapi")});
    QCOMPARE(m_plugin->getVersion(), QStringLiteral("2.4.1"));
    auto *verInfo = qobject_cast<VerInfoInterface *>(m_instance);
    QVERIFY(verInfo);
    QMap<QString, QString> info = verInfo->getVerInfo();
    const QString build = info.take(QStringLiteral("BUILD"));
    QVERIFY2(QDateTime::fromString(build, QStringLiteral("yyMMddhhmm")).isValid(), qPrintable(build));
    QCOMPARE(info, (QMap<QString, QString>{{"VER", "2.4.1"}, {"vorixType", "PLG.WA"}, {"ZMTDB", "22.03.21"}}));
}

void TestPlugin::casts_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("known");
    QTest::newRow("class") << QByteArray("WebAPI") << true;
    QTest::newRow("plug-in interface") << QByteArray("HttpPluginInterface") << true;
    QTest::newRow("version interface") << QByteArray("VerInfoInterface") << true;
    QTest::newRow("plug-in interface id") << QByteArray("com.norva-tek.qhx.HttpPluginInterface") << true;
    QTest::newRow("version interface id") << QByteArray("com.norva-tek.VerInfoInterface") << true;
    QTest::newRow("unknown") << QByteArray("WebApiWorker") << false;
    QTest::newRow("case differs") << QByteArray("webapi") << false;
}

void TestPlugin::casts()
{
    QFETCH(QByteArray, name);
    QFETCH(bool, known);
    QCOMPARE(m_instance->qt_metacast(name.constData()) != nullptr, known);
}

void TestPlugin::buildStamp_data()
{
    QTest::addColumn<QString>("date");
    QTest::addColumn<QString>("time");
    QTest::addColumn<QString>("stamp");
    QTest::newRow("sample") << "Apr 30 2024" << "15:43:02" << "2404301543";
    QTest::newRow("padded day") << "Apr  3 2024" << "09:05:59" << "2404030905";
    QTest::newRow("garbage time") << "Apr 30 2024" << "quarter past" << "";
    QTest::newRow("local month name") << "Dub 30 2024" << "15:43:02" << "";
}

void TestPlugin::buildStamp()
{
    QFETCH(QString, date);
    QFETCH(QString, time);
    QFETCH(QString, stamp);
    QCOMPARE(::buildStamp(date, time), stamp);
}

void TestPlugin::workers()
{
    HttpPluginWorker *first = m_plugin->getWorker();
    QVERIFY(first && first->isReady());
    QCOMPARE(m_plugin->getWorker(), first);
    QCOMPARE(first->parent(), m_instance);

    QObject owner;
    HttpPluginWorker *owned = m_plugin->getNewWorker(&owner);
    QScopedPointer<HttpPluginWorker> free(m_plugin->getNewWorker(nullptr));
    QVERIFY(owned && free && owned != free.data() && owned != first);
    QCOMPARE(owned->parent(), &owner);
}

void TestPlugin::recordCreatedReachesPluginOnce()
{
    QSignalSpy spy(m_instance, SIGNAL(recordCreated(QString,uint,QString,quint8)));
    QVERIFY(spy.isValid());
    // getWorker twice: still one connection.
    m_plugin->getWorker();
    QVERIFY(emitRecordCreated(m_plugin->getWorker(), Qt::DirectConnection, 42));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0), (QVariantList{QStringLiteral("inters_data"), 42u, QStringLiteral("token-a"),
                                      QVariant::fromValue(quint8(1))}));

    // Each new worker is connected once.
    QScopedPointer<HttpPluginWorker> a(m_plugin->getNewWorker(nullptr));
    QVERIFY(emitRecordCreated(a.data(), Qt::DirectConnection, 1));
    QCOMPARE(spy.count(), 2);
    QCOMPARE(spy.at(1).at(1).toUInt(), 1u);
}

void TestPlugin::recordCreatedAcrossThreads()
{
    QSignalSpy spy(m_instance, SIGNAL(recordCreated(QString,uint,QString,quint8)));
    QThread thread;
    HttpPluginWorker *worker = m_plugin->getNewWorker(nullptr);
    worker->moveToThread(&thread);
    connect(&thread, &QThread::finished, worker, &QObject::deleteLater);
    thread.start();
    // The worker emits on its own thread; the relay reaches the plug-in's thread queued.
    QVERIFY(emitRecordCreated(worker, Qt::QueuedConnection, 7));
    QVERIFY(spy.wait(5000));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(1).toUInt(), 7u);
    thread.quit();
    QVERIFY(thread.wait(5000));
}

QTEST_GUILESS_MAIN(TestPlugin)
#include "tst_plugin.moc"

// The Debian package as cpack makes it from this build, unpacked into a scratch root: the
// host runs from there with the library and the plug-in that came with it and answers
// requests, and what the unit, the example settings and webapi-add-customer name is in the
// package.
#include "support/apifixture.h"
#include "support/hostprocess.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// Runs a program to its end; its exit code, or -1 when it did not end normally.
int run(const QString &program, const QStringList &args, QByteArray *out = nullptr)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, args);
    if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit)
        return -1;
    if (out)
        *out = process.readAll();
    return process.exitCode();
}

} // namespace

class TestPackage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void hostRunsFromTheTree();
    void namedFilesArePackaged_data();
    void namedFilesArePackaged();

private:
    QString root(const QString &path) const { return m_dir.filePath(QStringLiteral("root") + path); }

    QTemporaryDir m_dir;
};

void TestPackage::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QByteArray out;
    QVERIFY2(run("cpack", {"-G", "DEB", "--config", WEBAPI_BIN_DIR "/../CPackConfig.cmake", "-B", m_dir.path()}, &out) == 0,
             out.constData());
    const QStringList debs = QDir(m_dir.path()).entryList({"webapi-host_*.deb"});
    QCOMPARE(debs.size(), 1);
    QVERIFY2(run("dpkg-deb", {"-x", m_dir.filePath(debs.first()), m_dir.filePath("root")}, &out) == 0, out.constData());
    QVERIFY2(run("dpkg-deb", {"-f", m_dir.filePath(debs.first()), "Depends"}, &out) == 0, out.constData());
    // Loaded at run time, so dpkg-shlibdeps cannot see it.
    QVERIFY2(out.contains("libqt5sql5-mysql"), out.constData());
}

void TestPackage::hostRunsFromTheTree()
{
    QByteArray help;
    QCOMPARE(run(root("/usr/bin/webapi-host"), {"--help"}, &help), 0);
    QVERIFY2(help.contains("[" + root("/usr/lib/webapi/plugins/libwebapi.so").toUtf8() + "]"), help.constData());
    ApiFixture fx("package");
    QVERIFY2(fx.setUp(), qPrintable(fx.error()));
    HostProcess host;
    host.setBinary(root("/usr/bin/webapi-host"));
    // Nothing of the build tree on the way.
    qunsetenv("LD_LIBRARY_PATH");
    QVERIFY2(host.start(fx.info().name()), host.log().constData());
    QVERIFY2(host.log().contains("plug-in " + root("/usr/lib/webapi/plugins/libwebapi.so").toUtf8()), host.log().constData());
    QCOMPARE(HttpConnection(host.port()).reply("GET", "/webapi/info", fx.terminalHeaders()).status, 200);
}

void TestPackage::namedFilesArePackaged_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("pattern");  // its first group names a path in the package
    QTest::newRow("unit runs the host") << "/usr/lib/systemd/system/webapi-host.service" << "ExecStart=(\\S+)";
    QTest::newRow("settings name the plug-in") << "/usr/share/doc/webapi-host/examples/webapi-host.ini" << "plugin=(\\S+)";
    QTest::newRow("add-customer finds the schema") << "/usr/bin/webapi-add-customer" << "(/share/webapi/schema)\\n";
}

void TestPackage::namedFilesArePackaged()
{
    QFETCH(QString, file);
    QFETCH(QString, pattern);
    QFile named(root(file));
    QVERIFY2(named.open(QIODevice::ReadOnly), qPrintable(file));
    const QString path = QRegularExpression(pattern).match(QString::fromUtf8(named.readAll())).captured(1);
    QVERIFY2(!path.isEmpty(), qPrintable(pattern));
    // The script's path is relative to the prefix it is installed in.
    QVERIFY2(QFileInfo::exists(root(path.startsWith("/usr") ? path : "/usr" + path)), qPrintable(path));
}

QTEST_GUILESS_MAIN(TestPackage)
#include "tst_package.moc"

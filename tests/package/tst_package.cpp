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

class TestPackage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QByteArray out = run("cpack", {"-G", "DEB", "--config", WEBAPI_BIN_DIR "/../CPackConfig.cmake", "-B", m_dir.path()});
        const QStringList debs = QDir(m_dir.path()).entryList({"webapi-host_*.deb"});
        QVERIFY2(debs.size() == 1, out.constData());
        const QString deb = m_dir.filePath(debs.first());
        out = run("dpkg-deb", {"-x", deb, m_dir.filePath("root")}) + run("dpkg-deb", {"-f", deb, "Depends"});
        // Loaded at run time, so dpkg-shlibdeps cannot see it.
        QVERIFY2(out.contains("libqt5sql5-mysql") && !out.contains("failed: "), out.constData());
    }
    void hostRunsFromTheTree()
    {
        const QByteArray plugin = root("/usr/lib/webapi/plugins/libwebapi.so").toUtf8();
        ApiFixture fx("package");
        QVERIFY2(fx.setUp(), qPrintable(fx.error()));
        HostProcess host;
        host.setBinary(root("/usr/bin/webapi-host"));
        // Nothing of the build tree on the way.
        qunsetenv("LD_LIBRARY_PATH");
        // The plug-in found beside the binary, not named in any setting.
        QVERIFY2(host.start(fx.info().name()) && host.log().contains("plug-in " + plugin), host.log().constData());
        QCOMPARE(HttpConnection(host.port()).reply("GET", "/webapi/info", fx.terminalHeaders()).status, 200);
    }
    void namedFilesArePackaged()
    {
        // Each file names a path (its pattern's first group) that must be in the package; the
        // script's is relative to the prefix it is installed in.
        const QMap<QString, QString> named{{"/usr/lib/systemd/system/webapi-host.service", "ExecStart=(\\S+)"},
            {"/usr/share/doc/webapi-host/examples/webapi-host.ini", "plugin=(\\S+)"}, {"/usr/bin/webapi-add-customer", "(/share/webapi/schema)\\n"}};
        for (auto it = named.cbegin(); it != named.cend(); ++it) {
            QFile file(root(it.key()));
            QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(it.key()));
            const QString path = QRegularExpression(it.value()).match(QString::fromUtf8(file.readAll())).captured(1);
            QVERIFY2(!path.isEmpty() && QFileInfo::exists(root(path.startsWith("/usr") ? path : "/usr" + path)), qPrintable(path));
        }
    }

private:
    QString root(const QString &path) const { return m_dir.filePath("root" + path); }
    // Runs a program to its end; its output, after "failed: " when it failed.
    QByteArray run(const QString &program, const QStringList &args)
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(program, args);
        const bool done = process.waitForFinished(120000) && process.exitStatus() == QProcess::NormalExit;
        return done && process.exitCode() == 0 ? process.readAll() : "failed: " + process.readAll();
    }

    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestPackage)
#include "tst_package.moc"

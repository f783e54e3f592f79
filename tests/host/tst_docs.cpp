// GET /docs as a browser shows it: headless Chromium loads the page from the real host, and
// every routed endpoint is listed in the rendered DOM.
#include "support/apifixture.h"
#include "support/hostprocess.h"
#include "support/routelists.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

class TestDocs : public QObject
{
    Q_OBJECT

private slots:
    void everyRouteListed();
};

void TestDocs::everyRouteListed()
{
    QVERIFY2(!QStandardPaths::findExecutable("chromium").isEmpty(), "chromium is needed (scripts/setup)");
    ApiFixture fx("docs");
    QVERIFY2(fx.setUp(), qPrintable(fx.error()));
    HostProcess host;
    QVERIFY2(host.start(fx.info().name()), host.log().constData());
    // A profile of its own and nothing fetched but the page: the test runs offline.
    QTemporaryDir profile;
    QStringList args{"--headless", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
                     "--disable-component-update", "--disable-sync", "--user-data-dir=" + profile.path(), "--dump-dom",
                     QString("http://127.0.0.1:%1/docs").arg(host.port())};
    if (::geteuid() == 0)
        args << "--no-sandbox";
    QProcess browser;
    browser.start("chromium", args);
    QVERIFY2(browser.waitForFinished(60000) && browser.exitCode() == 0, browser.readAllStandardError().constData());
    const QString dom = QString::fromUtf8(browser.readAllStandardOutput());
    QVERIFY2(dom.contains("</html>"), qPrintable(dom));
    QStringList listed;
    const QRegularExpression heading("<span class=\"method\">(\\w+)</span> <span class=\"path\">/webapi(/[^<]+)</span>");
    for (auto match = heading.globalMatch(dom); match.hasNext();) {
        const QRegularExpressionMatch m = match.next();
        listed << m.captured(1).toLower() + ' ' + m.captured(2);
    }
    listed.sort();
    QCOMPARE(listed, RouteLists().routes());
    // The README's curl lines come with their endpoint.
    const int entrance = dom.indexOf("<span class=\"path\">/webapi/entrance</span>");
    const int example = dom.indexOf("<pre class=\"curl\">", entrance);
    QVERIFY(entrance > 0 && example > entrance && example < dom.indexOf("<section", entrance));
}

QTEST_GUILESS_MAIN(TestDocs)
#include "tst_docs.moc"

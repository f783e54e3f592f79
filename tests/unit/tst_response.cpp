// The plug-in without a database: loaded as a host loads it, the header lines of a request,
// the licence's verdicts, the admin period filter, and the bytes of rendered responses.
#include "controllers/controllerhelpers.h"
#include "licence/licence.h"
#include "module/buildstamp.h"
#include "plugin/httpplugininterface.h"
#include "plugin/httppluginworker.h"
#include "plugin/verinfointerface.h"
#include "response/response.h"
#include "support/httpreply.h"

#include <QPluginLoader>
#include <QSignalSpy>
#include <QtTest>

class TestResponse : public QObject
{
    Q_OBJECT

private slots:
    void pluginMetadata()
    {
        QVERIFY2(plugin(), qPrintable(m_loader.errorString()));
        QCOMPARE(m_loader.metaData().value("IID").toString(), QStringLiteral("com.norva-tek.qhx.HttpPluginInterface"));
        QCOMPARE(plugin()->paths(), QStringList{QStringLiteral("/webapi")});
        QMap<QString, QString> info = qobject_cast<VerInfoInterface *>(m_loader.instance())->getVerInfo();
        QVERIFY(!info.take(QStringLiteral("BUILD")).isEmpty());
        QCOMPARE(info, (QMap<QString, QString>{{"VER", "2.4.1"}, {"vorixType", "PLG.WA"}, {"ZMTDB", "22.03.21"}}));
        // The compiler pads a one-digit day with a blank.
        QCOMPARE(buildStamp("Apr  3 2024", "09:05:59"), QStringLiteral("2404030905"));
    }
    void workersRelayRecordCreated()
    {
        HttpPluginWorker *shared = plugin()->getWorker();
        QVERIFY(shared && shared->isReady());
        QCOMPARE(plugin()->getWorker(), shared);
        QObject owner;
        HttpPluginWorker *own = plugin()->getNewWorker(&owner);
        // Each worker is connected once. The interface headers give a worker no meta-object; the
        // signal is reached by name.
        QSignalSpy spy(m_loader.instance(), SIGNAL(recordCreated(QString,uint,QString,quint8)));
        uint id = 0;
        for (QObject *worker : {static_cast<QObject *>(shared), static_cast<QObject *>(own)})
            QVERIFY(QMetaObject::invokeMethod(worker, "recordCreated", Q_ARG(QString, QStringLiteral("inters_data")),
                                              Q_ARG(uint, ++id), Q_ARG(QString, QStringLiteral("token-a")), Q_ARG(quint8, quint8(1))));
        const QList<QVariantList> seen = spy;
        QCOMPARE(seen, (QList<QVariantList>{{"inters_data", 1u, "token-a", QVariant::fromValue(quint8(1))},
                                           {"inters_data", 2u, "token-a", QVariant::fromValue(quint8(1))}}));
    }
    void header_data()
    {
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<QString>("expected");  // token|Content-Type|Authorization|TID|AID|valid|devel value
        QTest::newRow("all headers") << QStringList{"Pragma: token-a1", "Content-Type: application/json",
                                                    "Authorization: Bearer k", "X-ZMT-TID: MTIuMzQ1", "X-ZMT-AID: adm-1",
                                                    "X-WEBAPI-DEVEL-ENV: zmt-devel"}
                                     << "token-a1|application/json|Bearer k|MTIuMzQ1|adm-1|1|zmt-devel";
        QTest::newRow("names ignore case") << QStringList{"pragma: my token", "authorization: x", "x-zmt-aid: a"}
                                           << "my token||x||a|1|";
        QTest::newRow("token word respects case") << QStringList{"Pragma: TOKEN"} << "|||||0|";
        QTest::newRow("last line wins, colon cuts") << QStringList{"Authorization: a", "Authorization: b:c"} << "||b|||1|";
        QTest::newRow("white space collapsed") << QStringList{" Authorization:\t Bearer  k \r\n", "X"} << "||Bearer k|||1|";
    }
    void header()
    {
        QFETCH(QStringList, lines);
        QFETCH(QString, expected);
        const RequestHeader h = parseRequestHeader(lines);
        const QStringList parts{h.token, h.contentType, h.authorization, h.tid, h.aid, QString::number(h.valid),
                                h.develToken};
        QCOMPARE(parts.join(QLatin1Char('|')), expected);
    }
    void deviceList_data()
    {
        QTest::addColumn<QString>("list");
        QTest::addColumn<uint>("vid");
        QTest::addColumn<bool>("allowed");
        QTest::newRow("star in a list") << "5, *" << 7u << true;
        QTest::newRow("range ends") << "1000-1999,2500" << 1999u << true;
        QTest::newRow("blanks and empty items") << ", 1000 - 1999 ,, 2500 " << 1000u << true;
        QTest::newRow("open range") << "1000-" << 5000u << false;
    }
    void deviceList()
    {
        QFETCH(QString, list);
        QFETCH(uint, vid);
        QFETCH(bool, allowed);
        QCOMPARE(Licence::deviceListAllows(list, vid), allowed);
    }
    void auth_data()
    {
        QTest::addColumn<QString>("authorization");
        QTest::addColumn<int>("outcome");
        QTest::addColumn<QString>("shown");
        const int scheme = Licence::Auth::BadScheme;
        const int key = Licence::Auth::UnknownKey;
        QTest::newRow("basic") << "Basic dXNlcjpwYXNz" << scheme << "Basic";
        QTest::newRow("bearer alone") << "Bearer" << key << "...";
        QTest::newRow("non-ascii key") << QStringLiteral("Bearer ключ-1234") << key << QStringLiteral("ключ...");
    }
    void auth()
    {
        QFETCH(QString, authorization);
        QFETCH(int, outcome);
        QFETCH(QString, shown);
        const Licence licence;  // no rows: nothing enabled, no key known
        QVERIFY(!licence.webApiEnabled() && !licence.deviceAllowed(1000) && !licence.developmentAllowed(QString()));
        const Licence::Auth auth = licence.checkAuth(authorization, Licence::Scope::Terminal);
        QCOMPARE(int(auth.outcome), outcome);
        QCOMPARE(auth.shown, shown);
    }
    void periodFilter_data()
    {
        QTest::addColumn<QString>("word");
        QTest::addColumn<bool>("monthly");
        QTest::addColumn<QDate>("today");
        QTest::addColumn<QDate>("expected");  // invalid: refused
        const QDate may15(2024, 5, 15);
        QTest::newRow("yesterday over new year") << "-1" << false << QDate(2024, 1, 1) << QDate(2023, 12, 31);
        QTest::newRow("digits are days") << "2024" << false << may15 << may15.addDays(2024);
        QTest::newRow("month in day mode") << "2024-05" << false << may15 << QDate();
        QTest::newRow("minus alone") << "-" << false << may15 << QDate();
        QTest::newRow("last month in january") << "-1" << true << QDate(2024, 1, 10) << QDate(2023, 12, 10);
    }
    void periodFilter()
    {
        QFETCH(QString, word);
        QFETCH(bool, monthly);
        QFETCH(QDate, today);
        QFETCH(QDate, expected);
        QCOMPARE(parsePeriodFilter(filterDigits(word), monthly, today), expected);
    }
    void errorBodies_data()
    {
        QTest::addColumn<bool>("develEnv");
        QTest::addColumn<uint>("code");
        QTest::addColumn<int>("status");  // asked for; the status line's is `shown`'s
        QTest::addColumn<int>("shown");
        QTest::addColumn<bool>("withMessage");
        // Codes 500-599 hide their text outside development; a status outside 100-599 is ignored.
        QTest::newRow("code 500 hidden") << false << 500u << 400 << 400 << false;
        QTest::newRow("code 599 in development") << true << 599u << 400 << 400 << true;
        QTest::newRow("code 600, status 599") << false << 600u << 599 << 599 << true;
        QTest::newRow("code 499, status 600") << false << 499u << 600 << 200 << true;
        QTest::newRow("status 99") << false << 4242u << 99 << 200 << true;
    }
    void errorBodies()
    {
        QFETCH(bool, develEnv);
        QFETCH(uint, code);
        QFETCH(int, status);
        QFETCH(int, shown);
        QFETCH(bool, withMessage);
        RequestHeader header;
        header.develEnv = develEnv;
        Response response(header);
        response.setData(QVariantMap{{"earlier", true}});
        response.setErrorBody(QStringLiteral("decode failed"), code, quint16(status));
        QVariantMap expected{{"code", code}};
        if (withMessage)
            expected.insert(QStringLiteral("message"), QStringLiteral("decode failed"));
        const HttpReply reply = HttpReply::parse(response.renderResponse(true));
        QCOMPARE(reply.status, shown);
        QCOMPARE(reply.json().toVariant().toMap(), expected);
    }
    void renderedBytes()
    {
        Response fresh{RequestHeader()};
        COMPARE_EXPECTED(maskTms(fresh.renderResponse(true)), "response/fresh.http");
        // Extra headers in key order, a '%' and non-ASCII text kept, Content-Length in bytes; an
        // invalid value keeps the body.
        Response response{RequestHeader()};
        response.setHeader(QStringLiteral("X-WEBAPI-VER"), QStringLiteral("2.4.1"));
        response.setHeader(QStringLiteral("X-WEBAPI-COUNT"), 2);
        response.setStatus(208);
        response.setData(QVariantList{QVariantMap{{"name", QStringLiteral("Příliš žluťoučký %1 %2")}, {"uid", 1}},
                                      QVariantMap{{"name", QStringLiteral("100%")}, {"uid", 2}}});
        response.setData(QVariant());
        const QByteArray raw = response.renderResponse(true);
        COMPARE_EXPECTED(maskTms(raw), "response/list.http");
        QCOMPARE(response.renderResponse(false), raw.mid(raw.indexOf("\r\n\r\n") + 4));
    }

private:
    QPluginLoader m_loader{QStringLiteral(WEBAPI_PLUGIN_DIR "/libwebapi.so")};
    HttpPluginInterface *plugin() { return qobject_cast<HttpPluginInterface *>(m_loader.instance()); }
};

QTEST_GUILESS_MAIN(TestResponse)
#include "tst_response.moc"

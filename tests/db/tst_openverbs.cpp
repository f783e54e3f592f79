// The PUT and DELETE handlers, which no route reaches: called on a worker whose path lists
// are opened, after a request has given it its connection.
#include "support/apifixture.h"

#include "database/dbmanager.h"
#include "response/response.h"
#include "worker/webapiworker.h"

#include <QtTest>

namespace {

class OpenWorker : public WebApiWorker
{
public:
    explicit OpenWorker(DBManager *manager)
        : WebApiWorker(QStringLiteral("2.4.1"))
    {
        setDbManager(manager);
        m_putPaths = QStringList{QStringLiteral("term"), QStringLiteral("person")};
        m_deletePaths = QStringList{QStringLiteral("person"), QStringLiteral("entrance"), QStringLiteral("sync")};
    }

    // A fresh response for the next handler call.
    void reset() { m_response.reset(new Response(m_header)); }
};

} // namespace

class TestOpenVerbs : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void putTerm();
    void putPerson();
    void deleteRefusals_data();
    void deleteRefusals();
    void deletePersonAndEntrance();

private:
    QScopedPointer<ApiFixture> m_fx;
    QScopedPointer<OpenWorker> m_worker;
    QString m_tid;
    uint m_tidNumber = 0;
};

void TestOpenVerbs::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("openverbs")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    m_tid = m_fx->addTerminal(401, QStringLiteral("Old"));
    TestDatabase &db = m_fx->customer();
    m_tidNumber = db.scalar(QStringLiteral("SELECT tid FROM term WHERE vorixID = 401")).toUInt();
    QVERIFY(db.exec(QStringLiteral("UPDATE term SET mac = 'aa:bb' WHERE tid = %1").arg(m_tidNumber)));
    QVERIFY(db.exec(QStringLiteral("INSERT INTO people (uid, pid, status, name, surname, title) VALUES (1, 1001, 1, "
                                   "'Jana', 'Malá', 'Ing.')")));
    QVERIFY(db.exec(QStringLiteral("INSERT INTO people_term (uid, tid) VALUES (1, %1)").arg(m_tidNumber)));
    QVERIFY(db.exec(QStringLiteral("INSERT INTO inters (iid, name, shortcut) VALUES (1, 'A', 'A')")));
    QVERIFY(db.exec(QStringLiteral("INSERT INTO inters_data (id, tid, refId, uid, iid) VALUES (60, %1, 6, 1, 1)").arg(m_tidNumber)));

    m_worker.reset(new OpenWorker(m_fx->manager()));
    const QByteArray raw = m_worker->buildResponse(QStringLiteral("PUT"), QUrl(QStringLiteral("http://h/webapi/term")),
                                                   m_fx->terminalHeaders(m_tid), QByteArray("{}"));
    QCOMPARE(HttpReply::parse(raw).status, 405);  // still unrouted, whatever the lists hold
}

void TestOpenVerbs::cleanupTestCase()
{
    m_worker.reset();
}

void TestOpenVerbs::putTerm()
{
    TestDatabase &db = m_fx->customer();
    m_worker->reset();
    m_worker->buildPutResponse({QStringLiteral("term"), m_tid}, R"({"name": " New ", "mac": "", "ver": "2.0"})");
    QCOMPARE(m_worker->response()->status(), quint16(200));
    const QVariantMap row = db.rows(QStringLiteral("SELECT name, mac, ver FROM term WHERE tid = %1").arg(m_tidNumber)).value(0);
    QCOMPARE(row.value("name").toString(), QStringLiteral("New"));
    QCOMPARE(row.value("mac").toString(), QStringLiteral("aa:bb"));  // an empty address leaves the stored one
    QCOMPARE(row.value("ver").toString(), QStringLiteral("2.0"));

    m_worker->reset();
    m_worker->buildPutResponse({QStringLiteral("term"), QStringLiteral("bad")}, "{");
    QCOMPARE(m_worker->response()->errorCode(), int(Response::RE_InvalidID));  // the identifier before the body
    m_worker->reset();
    m_worker->buildPutResponse({QStringLiteral("term"), m_tid}, "{");
    QCOMPARE(m_worker->response()->errorCode(), int(Response::RE_JsonParseError));
}

void TestOpenVerbs::putPerson()
{
    TestDatabase &db = m_fx->customer();
    const QStringList path = {QStringLiteral("person"), m_tid, WebApiWorker::encodeId(1, 1001)};
    m_worker->reset();
    m_worker->buildPutResponse(path, R"({"admin": true, "name": "", "title": "True"})");
    QCOMPARE(m_worker->response()->status(), quint16(200));
    const QVariantMap body = m_worker->response()->data().toMap();
    QCOMPARE(body.value("uid").toUInt(), 1u);
    QCOMPARE(body.value("pid").toUInt(), 1001u);
    QCOMPARE(body.value("setOtherTerms").toBool(), true);
    const QVariantMap row = db.rows(QStringLiteral("SELECT admin, name, title FROM people WHERE uid = 1")).value(0);
    QCOMPARE(row.value("admin").toInt(), 1);
    QCOMPARE(row.value("name").toString(), QStringLiteral("Jana"));
    QCOMPARE(row.value("title").toString(), QStringLiteral("1"));

    m_worker->reset();
    m_worker->buildPutResponse(path, R"({"admin": "TRUE"})");
    QCOMPARE(m_worker->response()->status(), quint16(208));  // nothing changed

    m_worker->reset();
    QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(QStringLiteral("^WebApiWorker::dbUpdatePerson\\(\\) SQl ERROR:")));
    m_worker->buildPutResponse(path, R"({"gid": 5})");
    QCOMPARE(m_worker->response()->errorCode(), int(Response::RE_SQLError));  // none of its keys
}

void TestOpenVerbs::deleteRefusals_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<int>("code");

    const QString future = WebApiWorker::encodeId(uint(QDateTime::currentSecsSinceEpoch() + 3600), 2);
    QTest::newRow("short path") << QStringList{"person", m_tid} << int(Response::RE_InvalidApiEndpoint);
    QTest::newRow("unknown word") << QStringList{"zone", m_tid, "x"} << int(Response::RE_InvalidApiEndpoint);
    QTest::newRow("unknown terminal") << QStringList{"person", WebApiWorker::encodeId(9, 9), "x"}
                                      << int(Response::RE_NoTerminal);
    QTest::newRow("unreadable person") << QStringList{"person", m_tid, "x"} << int(Response::RE_InvalidID);
    QTest::newRow("unknown person") << QStringList{"person", m_tid, WebApiWorker::encodeId(1, 5)}
                                    << int(Response::RE_NoPerson);
    QTest::newRow("unknown entrance") << QStringList{"entrance", m_tid, WebApiWorker::encodeId(60, 7)}
                                      << int(Response::RE_NoEntrance);
    QTest::newRow("sync in the future") << QStringList{"sync", m_tid, future} << int(Response::RE_InvalidID);
}

void TestOpenVerbs::deleteRefusals()
{
    QFETCH(QStringList, words);
    QFETCH(int, code);
    m_worker->reset();
    m_worker->buildDeleteResponse(words);
    QCOMPARE(m_worker->response()->errorCode(), code);
}

void TestOpenVerbs::deletePersonAndEntrance()
{
    TestDatabase &db = m_fx->customer();
    m_worker->reset();
    m_worker->buildDeleteResponse({QStringLiteral("entrance"), m_tid, WebApiWorker::encodeId(60, 6)});
    QCOMPARE(m_worker->response()->status(), quint16(200));
    QCOMPARE(db.scalar(QStringLiteral("SELECT del FROM inters_data WHERE id = 60")).toInt(), 1);
    m_worker->reset();
    m_worker->buildDeleteResponse({QStringLiteral("entrance"), m_tid, WebApiWorker::encodeId(60, 6)});
    QCOMPARE(m_worker->response()->status(), quint16(208));  // withdrawn already

    const QStringList person = {QStringLiteral("person"), m_tid, WebApiWorker::encodeId(1, 1001)};
    m_worker->reset();
    m_worker->buildDeleteResponse(person);
    QCOMPARE(m_worker->response()->status(), quint16(200));
    QCOMPARE(db.scalar(QStringLiteral("SELECT COUNT(*) FROM people_term WHERE uid = 1")).toInt(), 0);
    QCOMPARE(db.scalar(QStringLiteral("SELECT COUNT(*) FROM people WHERE uid = 1")).toInt(), 1);
    m_worker->reset();
    m_worker->buildDeleteResponse(person);
    QCOMPARE(m_worker->response()->status(), quint16(208));
}

QTEST_GUILESS_MAIN(TestOpenVerbs)
#include "tst_openverbs.moc"

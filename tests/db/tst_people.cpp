// People as terminals read and post them, through buildResponse on the private MariaDB; and
// two terminals posting one new person at the same moment.
#include "support/apifixture.h"

#include "database/dbmanager.h"
#include "response/response.h"
#include "worker/webapiworker.h"

#include <QSemaphore>
#include <QThread>
#include <QtTest>

namespace {

// Local midnights of 2024-01-01 and 2030-01-01 in Europe/Prague.
const qint64 kBegin2024 = 1704063600;
const qint64 kEnd2030 = 1893452400;

// A worker that serves one POST on the calling thread's own DBManager connection. The
// worker's usual clone is named per database only, and Qt refuses to share a connection
// between threads, so two threads cannot both go through initDatabase.
class ThreadWorker : public WebApiWorker
{
public:
    using WebApiWorker::WebApiWorker;

    QByteArray post(const QString &word, const QStringList &headers, const QByteArray &body)
    {
        m_header = parseHeader(headers);
        m_response.reset(new Response(m_header));
        m_db = m_dbManager->getDatabase(m_header.token);
        routeInTerminalContext(QStringLiteral("POST"), {word}, body);
        const QByteArray raw = m_response->renderResponse(true);
        // Removed here, on its own thread: a sweep from another thread cannot tell it is open.
        const QString name = m_db.connectionName();
        m_db.close();
        m_db = QSqlDatabase();
        QSqlDatabase::removeDatabase(name);
        return raw;
    }
};

} // namespace

class TestPeople : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void wholeResponses_data();
    void wholeResponses();
    void peopleListHasCountAndNulls();
    void knownPidFromSecondTerminal();
    void badInput_data();
    void badInput();
    void nonAsciiNamesIntact();
    void samePidOnTwoThreads();

private:
    HttpReply post(const QString &tid, const QByteArray &body);
    int peopleRows();

    QScopedPointer<ApiFixture> m_fx;
    QString m_t1;
    QString m_t2;
    QString m_t3;
};

void TestPeople::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("people")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    m_t1 = m_fx->addTerminal(101, QStringLiteral("T1"));
    m_t2 = m_fx->addTerminal(102, QStringLiteral("T2"));
    m_t3 = m_fx->addTerminal(103, QStringLiteral("T3"));
    QVERIFY(!m_t3.isEmpty());
    TestDatabase &db = m_fx->customer();
    QVERIFY2(db.exec(QStringLiteral("INSERT INTO groups (gid, name) VALUES (1, 'Staff')")), qPrintable(db.error()));
    QVERIFY2(db.exec(QStringLiteral(
                 "INSERT INTO people (uid, pid, gid, status, name, surname, title, title2, card, saldo, present, begin, end) "
                 "VALUES (1, 1001, 1, 1, 'Jana', 'Nováková', 'Ing.', 'Ph.D.', '0001', -30, 1, %1, NULL), "
                 "(2, 1002, NULL, 1, 'Petr', NULL, NULL, NULL, NULL, 0, 0, %1, %2), "
                 "(3, 1003, NULL, 0, 'Gone', 'Away', NULL, NULL, NULL, 0, 0, %1, NULL)")
                         .arg(kBegin2024)
                         .arg(kEnd2030)),
             qPrintable(db.error()));
}

HttpReply TestPeople::post(const QString &tid, const QByteArray &body)
{
    return m_fx->request(QStringLiteral("POST"), QStringLiteral("/webapi/person"), m_fx->terminalHeaders(tid), body);
}

int TestPeople::peopleRows()
{
    return m_fx->customer().scalar(QStringLiteral("SELECT COUNT(*) FROM people")).toInt();
}

void TestPeople::wholeResponses_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("expectedFile");

    const QString person = QStringLiteral("/webapi/person/");
    QTest::newRow("people") << "GET" << "/webapi/people" << QByteArray() << "terminal/people.http";
    QTest::newRow("person") << "GET" << person + WebApiWorker::encodeId(1, 1001) << QByteArray()
                            << "terminal/person.http";
    QTest::newRow("inactive person") << "GET" << person + WebApiWorker::encodeId(3, 1003) << QByteArray()
                                     << "terminal/person-none.http";
    QTest::newRow("unreadable person") << "GET" << person + "xyz" << QByteArray() << "terminal/person-invalid.http";
    QTest::newRow("post new") << "POST" << "/webapi/person"
                              << QByteArray(R"({"pid": 2001, "name": "Eva", "surname": "Malá", "title": "Mgr.", "gid": 1})")
                              << "terminal/post-person-new.http";
    QTest::newRow("post unknown group") << "POST" << "/webapi/person"
                                        << QByteArray(R"({"pid": 2002, "name": "Ivo", "gid": 99})")
                                        << "terminal/post-person-bad-group.http";
}

void TestPeople::wholeResponses()
{
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(QByteArray, body);
    QFETCH(QString, expectedFile);
    QVERIFY(m_fx->customer().exec(QStringLiteral("ALTER TABLE people AUTO_INCREMENT = 500")));
    QByteArray raw = maskTms(m_fx->call(method, path, m_fx->terminalHeaders(m_t1), body));
    // A new person begins at today's midnight.
    raw.replace(QDate::currentDate().toString(Qt::ISODate).toLatin1(), "<TODAY>");
    COMPARE_EXPECTED(raw, expectedFile);
}

void TestPeople::peopleListHasCountAndNulls()
{
    const HttpReply reply = m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/people/ignored"),
                                          m_fx->terminalHeaders(m_t2));
    QCOMPARE(reply.status, 200);
    const QJsonArray list = reply.json().array();
    QCOMPARE(reply.header("X-WEBAPI-COUNT").toInt(), list.size());
    QCOMPARE(list.size(), m_fx->customer().scalar(QStringLiteral("SELECT COUNT(*) FROM people WHERE status = 1")).toInt());
    for (const QJsonValue &value : list) {
        const QJsonObject person = value.toObject();
        if (person.value("pid").toInt() == 1001) {
            QVERIFY(person.value("end").isNull());
            QCOMPARE(person.value("begin").toString(), QStringLiteral("2024-01-01"));
        }
        if (person.value("pid").toInt() == 1002) {
            QCOMPARE(person.value("end").toString(), QStringLiteral("2030-01-01"));
            QCOMPARE(person.value("surname").toString(), QString(""));
            QCOMPARE(person.value("gid").toInt(), 0);
        }
    }
}

void TestPeople::knownPidFromSecondTerminal()
{
    TestDatabase &db = m_fx->customer();
    const HttpReply created = post(m_t1, R"({"pid": 4001, "name": "Karel", "card": "77"})");
    QCOMPARE(created.status, 201);
    const uint uid = db.scalar(QStringLiteral("SELECT uid FROM people WHERE pid = 4001")).toUInt();
    const uint t1 = db.scalar(QStringLiteral("SELECT tid FROM term WHERE vorixID = 101")).toUInt();
    const uint t2 = db.scalar(QStringLiteral("SELECT tid FROM term WHERE vorixID = 102")).toUInt();
    const uint t3 = db.scalar(QStringLiteral("SELECT tid FROM term WHERE vorixID = 103")).toUInt();
    QVERIFY(db.exec(QStringLiteral("INSERT INTO people_term (uid, tid) VALUES (%1, %2)").arg(uid).arg(t3)));
    QVERIFY(db.exec(QStringLiteral("UPDATE term SET syn = 0")));

    const HttpReply updated = post(m_t2, R"({"pid": 4001, "name": "Karel", "surname": "Novák", "card": ""})");
    QCOMPARE(updated.status, 200);
    QCOMPARE(updated.json().object().value("uid").toString(), WebApiWorker::encodeId(uid, 4001));
    QCOMPARE(db.scalar(QStringLiteral("SELECT COUNT(*) FROM people WHERE pid = 4001")).toInt(), 1);
    QCOMPARE(db.scalar(QStringLiteral("SELECT surname FROM people WHERE uid = %1").arg(uid)).toString(),
             QStringLiteral("Novák"));
    QCOMPARE(db.scalar(QStringLiteral("SELECT card FROM people WHERE uid = %1").arg(uid)).toString(),
             QStringLiteral("77"));  // an empty card leaves the stored one
    QCOMPARE(db.scalar(QStringLiteral("SELECT GROUP_CONCAT(tid ORDER BY tid) FROM people_term WHERE uid = %1").arg(uid))
                 .toString(),
             QStringLiteral("%1,%2,%3").arg(t1).arg(t2).arg(t3));
    // Every other linked terminal gets a mark and the people bit; the posting one does not.
    QCOMPARE(db.scalar(QStringLiteral("SELECT GROUP_CONCAT(tid ORDER BY tid) FROM term_sync WHERE type = 'U' AND ref = "
                                      "'people_term' AND ref_col = 'uid' AND ref_id = %1 AND flags = 2")
                           .arg(uid))
                 .toString(),
             QStringLiteral("%1,%2").arg(t1).arg(t3));
    QCOMPARE(db.scalar(QStringLiteral("SELECT GROUP_CONCAT(tid ORDER BY tid) FROM term WHERE syn & 2")).toString(),
             QStringLiteral("%1,%2").arg(t1).arg(t3));

    // The same again changes no column.
    QCOMPARE(post(m_t2, R"({"pid": 4001, "name": "Karel", "surname": "Novák"})").status, 208);
}

void TestPeople::badInput_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("code");  // -1: not checked

    const int pidCode = Response::RE_RequiredPID;
    const int nameCode = Response::RE_RequiredName;
    QTest::newRow("no pid") << QByteArray(R"({"name": "A"})") << 422 << pidCode;
    QTest::newRow("pid 0") << QByteArray(R"({"pid": 0, "name": "A"})") << 422 << pidCode;
    QTest::newRow("pid text") << QByteArray(R"({"pid": "abc", "name": "A"})") << 422 << pidCode;
    QTest::newRow("no names") << QByteArray(R"({"pid": 5001})") << 422 << nameCode;
    QTest::newRow("empty names") << QByteArray(R"({"pid": 5001, "name": "", "surname": ""})") << 422 << nameCode;
    QTest::newRow("not json") << QByteArray("pid=1") << 400 << -1;
    QTest::newRow("array") << QByteArray(R"([{"pid": 6001, "name": "x"}])") << 422 << -1;
    QTest::newRow("pid object") << QByteArray(R"({"pid": {"a": 1}, "name": "x"})") << 422 << -1;
    QTest::newRow("pid huge") << QByteArray(R"({"pid": 1e300, "name": "x"})") << 422 << -1;
    QTest::newRow("surname only") << QByteArray(R"({"pid": 6002, "surname": "Only"})") << 201 << 0;
    QTest::newRow("name number") << QByteArray(R"({"pid": 6003, "name": 42})") << 201 << 0;
    QTest::newRow("name with quote") << QByteArray(R"({"pid": 6004, "name": "O\"Neil"})") << 500 << -1;
    QTest::newRow("gid not a number") << QByteArray(R"({"pid": 6005, "name": "x", "gid": "abc"})") << 500 << -1;
    QTest::newRow("empty end") << QByteArray(R"({"pid": 6006, "name": "x", "end": ""})") << 500 << -1;
    QTest::newRow("title array") << QByteArray(R"({"pid": 6007, "name": "x", "title": [1, 2]})") << 201 << 0;
}

void TestPeople::badInput()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(int, code);
    if (status == 500)
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(QStringLiteral("^WebApiWorker::dbInsertPerson\\(\\) SQl ERROR:")));
    const int before = peopleRows();
    const HttpReply reply = post(m_t1, body);
    QVERIFY(reply.valid);
    QCOMPARE(reply.status, status);
    if (code >= 0)
        QCOMPARE(reply.errorCode(), code);
    QCOMPARE(peopleRows(), before + (status == 201 ? 1 : 0));
}

void TestPeople::nonAsciiNamesIntact()
{
    const QString name = QStringLiteral("Žofie");
    const QString surname = QStringLiteral("Šťastná-Ďurišová «ß» Привет");
    QJsonObject body;
    body.insert("pid", 7001);
    body.insert("name", name);
    body.insert("surname", surname);
    const HttpReply reply = post(m_t1, QJsonDocument(body).toJson());
    QCOMPARE(reply.status, 201);
    QCOMPARE(reply.json().object().value("name").toString(), name);
    QCOMPARE(reply.json().object().value("surname").toString(), surname);
    QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT surname FROM people WHERE pid = 7001")).toString(), surname);

    // Characters beyond the BMP need the connection's full utf8mb4 set.
    body.insert("pid", 7002);
    body.insert("surname", QStringLiteral("Smile 😀"));
    const HttpReply smile = post(m_t1, QJsonDocument(body).toJson());
    QCOMPARE(smile.status, 201);
    QCOMPARE(smile.json().object().value("surname").toString(), QStringLiteral("Smile 😀"));
    QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT surname FROM people WHERE pid = 7002")).toString(),
             QStringLiteral("Smile 😀"));
}

void TestPeople::samePidOnTwoThreads()
{
    TestDatabase &db = m_fx->customer();
    for (uint pid = 8001; pid <= 8010; ++pid) {
        QSemaphore ready;
        QSemaphore go;
        QByteArray replies[2];
        const QString tids[2] = {m_t1, m_t2};
        QThread *threads[2];
        for (int i = 0; i < 2; ++i) {
            threads[i] = QThread::create([&, i]() {
                ThreadWorker worker(QStringLiteral("2.4.1"));
                worker.setDbManager(m_fx->manager());
                // Each terminal sends its own card, so a late duplicate still changes the row.
                const QByteArray body = QStringLiteral(R"({"pid": %1, "name": "Race", "card": "%2"})").arg(pid).arg(i).toUtf8();
                m_fx->manager()->getDatabase(m_fx->token());  // the thread's connection, opened before the start
                ready.release();
                go.acquire();
                replies[i] = worker.post(QStringLiteral("person"), m_fx->terminalHeaders(tids[i]), body);
            });
            threads[i]->start();
        }
        ready.acquire(2);
        go.release(2);
        for (QThread *thread : threads) {
            QVERIFY(thread->wait(30000));
            delete thread;
        }

        for (const QByteArray &raw : replies) {
            const HttpReply reply = HttpReply::parse(raw);
            QVERIFY2(reply.status == 200 || reply.status == 201, raw.constData());
            QCOMPARE(reply.json().object().value("pid").toInt(), int(pid));
        }
        QCOMPARE(db.scalar(QStringLiteral("SELECT COUNT(*) FROM people WHERE pid = %1").arg(pid)).toInt(), 1);
        QCOMPARE(db.scalar(QStringLiteral("SELECT COUNT(*) FROM people_term JOIN people USING(uid) WHERE pid = %1").arg(pid))
                     .toInt(),
                 2);
    }
}

QTEST_GUILESS_MAIN(TestPeople)
#include "tst_people.moc"

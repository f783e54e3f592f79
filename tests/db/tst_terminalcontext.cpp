// The terminal side through buildResponse on the private MariaDB: registration, people,
// entrances, reference lists and presence, on the rows of tests/data/terminal/fixture.sql.
#include "support/apifixture.h"

#include "database/dbmanager.h"
#include "response/jsonwriter.h"
#include "response/response.h"
#include "worker/webapiworker.h"

#include <QSemaphore>
#include <QSignalSpy>
#include <QThread>
#include <QtTest>

namespace {

// Serves one POST on a connection of its own, straight to the handler.
class ThreadWorker : public WebApiWorker
{
public:
    using WebApiWorker::WebApiWorker;

    QByteArray post(const QString &word, const QStringList &headers, const QByteArray &body)
    {
        m_header = parseRequestHeader(headers);
        m_response.reset(new Response(m_header));
        initDatabase();
        routeInTerminalContext(QStringLiteral("POST"), {word}, body);
        return m_response->renderResponse(true);
    }
};

const QString kT1 = WebApiWorker::encodeId(1, 101);
const QString kT2 = WebApiWorker::encodeId(2, 102);
const QString kUid1 = WebApiWorker::encodeId(1, 1001);

} // namespace

class TestTerminalContext : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void wholeResponses_data();
    void wholeResponses();
    void unroutedReads();
    void badInput_data();
    void badInput();
    void repeatRegistrationWithinSecondIs208();
    void knownPidFromSecondTerminal();
    void nonAsciiNamesIntact();
    void samePidOnTwoThreads();
    void repeats_data();
    void repeats();
    void sameEntranceOnTwoThreads_data();
    void sameEntranceOnTwoThreads();

private:
    HttpReply post(const QString &word, const QByteArray &body, const QString &tid = kT1);
    // Two posts at the same moment, each on a thread and connection of its own.
    QList<HttpReply> race(const QString &word, const QByteArray bodies[2], const QString tids[2]);
    QString sql(const QString &query) { return m_fx->customer().scalar(query).toString(); }
    QJsonObject entrance(int refId, int iid = 1) const;

    QScopedPointer<ApiFixture> m_fx;
};

void TestTerminalContext::initTestCase()
{
    qRegisterMetaType<quint8>("quint8");
    m_fx.reset(new ApiFixture(QStringLiteral("terminalcontext")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    QString error;
    QVERIFY2(TestServer::loadSqlFile(m_fx->customer().name(), QStringLiteral(WEBAPI_TEST_DATA "/terminal/fixture.sql"),
                                     &error),
             qPrintable(error));
}

HttpReply TestTerminalContext::post(const QString &word, const QByteArray &body, const QString &tid)
{
    return m_fx->request(QStringLiteral("POST"), QStringLiteral("/webapi/") + word, m_fx->terminalHeaders(tid), body);
}

QJsonObject TestTerminalContext::entrance(int refId, int iid) const
{
    QJsonObject body{{"uid", kUid1}, {"iid", iid}, {"type", 1}, {"date", "2024-05-01T08:00:00"},
                     {"description", "Front door"}};
    if (refId != 0)
        body.insert("refId", refId);
    return body;
}

void TestTerminalContext::wholeResponses_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("tid");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("away");     // a table renamed for the request, to fail its statement
    QTest::addColumn<QString>("log");      // an expected warning, or critical SQL error line
    QTest::addColumn<QString>("check");    // a statement on the database after the request...
    QTest::addColumn<QString>("rowsAfter"); // ...and its answer
    QTest::addColumn<QString>("expectedFile");

    const auto get = [](const char *tag, const QString &path, const QString &tid, const char *file) {
        QTest::newRow(tag) << "GET" << path << tid << QByteArray() << QString() << QString() << QString() << QString()
                           << QString::fromLatin1(file);
    };
    get("people", "/webapi/people", kT1, "terminal/people.http");
    get("person", "/webapi/person/" + kUid1, kT1, "terminal/person.http");
    get("person inactive", "/webapi/person/" + WebApiWorker::encodeId(4, 1004), kT1, "terminal/person-none.http");
    get("person unreadable", "/webapi/person/xyz", kT1, "terminal/person-invalid.http");
    get("inters", "/webapi/inters", QString(), "terminal/inters.http");
    get("groups", "/webapi/groups", QString(), "terminal/groups.http");
    get("present", "/webapi/present", kT1, "terminal/present.http");
    get("present of one", "/webapi/present/" + kUid1, kT1, "terminal/present-one.http");
    get("present, unknown terminal", "/webapi/present", WebApiWorker::encodeId(99, 101),
        "terminal/present-no-terminal.http");
    QTest::newRow("inters failing") << "GET" << "/webapi/inters" << QString() << QByteArray() << "inters"
                                    << "^WebApiWorker::dbGetInter\\(\\) SQl ERROR:" << QString() << QString()
                                    << "terminal/list-sql-error.http";
    QTest::newRow("groups failing") << "GET" << "/webapi/groups" << QString() << QByteArray() << "regions"
                                    << "^WebApiWorker::dbGetAttendanceGroups\\(\\) SQl ERROR:" << QString() << QString()
                                    << "terminal/list-sql-error.http";

    const QString terminal = QStringLiteral("/webapi/terminal");
    // The row is active, typed API, online now.
    QTest::newRow("register")
        << "POST" << terminal << QString()
        << QByteArray(R"({"vid": 4711, "name": " Main door ", "mac": "00:1A:2B:3C:4D:5E", "ip": "10.0.0.5", "ver": "1.2"})")
        << QString() << QString()
        << "SELECT CONCAT_WS('|', name, IFNULL(ip, 'NULL'), type, status, flags, ABS(online - UNIX_TIMESTAMP()) < 5) "
           "FROM term WHERE vorixID = 4711"
        << "Main door|10.0.0.5|API|1|0|1" << "terminal/register-new.http";
    // A failed registration still answers the empty map of the lookup, under the error's status.
    QTest::newRow("register, no vid") << "POST" << terminal << QString() << QByteArray(R"({"vid": 0})") << QString()
                                      << QString() << "SELECT COUNT(*) FROM term WHERE vorixID = 0" << "0" << "terminal/register-no-vid.http";
    QTest::newRow("register, broken") << "POST" << terminal << QString() << QByteArray("{\"vid\": ") << QString()
                                      << QString() << QString() << QString() << "terminal/register-broken.http";
    // Switched off by an administrator: registering does not switch it on again.
    QTest::newRow("register, disabled")
        << "POST" << terminal << QString() << QByteArray(R"({"vid": 104, "name": "Back on"})") << QString() << QString()
        << "SELECT CONCAT_WS('|', COUNT(*), MAX(status), MAX(name)) FROM term WHERE vorixID = 104" << "1|0|Off"
        << "terminal/register-bad-vid.http";
    QTest::newRow("register, not licensed")
        << "POST" << terminal << QString() << QByteArray(R"({"vid": 12345, "name": "Foreign"})") << QString() << QString()
        << "SELECT COUNT(*) FROM term WHERE vorixID = 12345" << "0" << "terminal/register-bad-vid.http";

    QTest::newRow("post person")
        << "POST" << "/webapi/person" << kT1
        << QByteArray(R"({"pid": 2001, "name": "Eva", "surname": "Malá", "title": "Mgr.", "gid": 1})") << QString()
        << QString()
        << "SELECT CONCAT_WS('|', (SELECT GROUP_CONCAT(tid) FROM people_term WHERE uid = 500), "
           "begin = UNIX_TIMESTAMP(CURDATE())) FROM people WHERE uid = 500"
        << "1|1" << "terminal/post-person-new.http";
    QTest::newRow("post person, unknown group")
        << "POST" << "/webapi/person" << kT1 << QByteArray(R"({"pid": 2002, "name": "Ivo", "gid": 99})") << QString()
        << "^WebApiWorker::dbInsertPerson\\(\\) SQl ERROR:" << "SELECT COUNT(*) FROM people WHERE pid = 2002" << "0" << "terminal/post-person-bad-group.http";

    const auto json = [](const QJsonObject &body) { return QJsonDocument(body).toJson(); };
    QTest::newRow("entrance") << "POST" << "/webapi/entrance" << kT1 << json(entrance(5)) << QString() << QString()
                              << "SELECT CONCAT_WS('|', tid, uid, iid, photo IS NULL) FROM inters_data WHERE id = 700"
                              << "1|1|1|1" << "terminal/entrance-new.http";
    QTest::newRow("entrance, unknown reason")
        << "POST" << "/webapi/entrance" << kT1 << json(entrance(6, 999)) << QString()
        << "^WebApiWorker::dbInsertEntrance\\( \\d+ , 6 \\) - IID  999 missing in ZMTDB! data:"
        << "SELECT COUNT(*) FROM inters_data WHERE refId = 6" << "0" << "terminal/entrance-unknown-iid.http";
}

void TestTerminalContext::wholeResponses()
{
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(QString, tid);
    QFETCH(QByteArray, body);
    QFETCH(QString, away);
    QFETCH(QString, log);
    QFETCH(QString, check);
    QFETCH(QString, rowsAfter);
    QFETCH(QString, expectedFile);
    TestDatabase &db = m_fx->customer();
    // Fixed numbers for new rows, whatever ran before.
    for (const char *next : {"term AUTO_INCREMENT = 9000", "people AUTO_INCREMENT = 500", "inters_data AUTO_INCREMENT = 700"})
        QVERIFY(db.exec(QStringLiteral("ALTER TABLE ") + QLatin1String(next)));
    if (!log.isEmpty())
        QTest::ignoreMessage(log.contains(QLatin1String("SQl ERROR")) ? QtCriticalMsg : QtWarningMsg, QRegularExpression(log));
    if (!away.isEmpty())
        QVERIFY(db.exec(QStringLiteral("RENAME TABLE %1 TO %1_away").arg(away)));
    QByteArray raw = maskTms(m_fx->call(method, path, m_fx->terminalHeaders(tid), body));
    if (!away.isEmpty())
        QVERIFY(db.exec(QStringLiteral("RENAME TABLE %1_away TO %1").arg(away)));
    // A new person begins at today's midnight; an entrance is created now.
    raw.replace(QDate::currentDate().toString(Qt::ISODate).toLatin1(), "<TODAY>");
    raw = QString::fromUtf8(raw).replace(QRegularExpression(QStringLiteral("\"created\": \"[^\"]+\"")),
                                         QStringLiteral("\"created\": \"<NOW>\"")).toUtf8();
    COMPARE_EXPECTED(raw, expectedFile);
    if (!check.isEmpty())
        QCOMPARE(sql(check), rowsAfter);
}

void TestTerminalContext::badInput_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("code");  // -1: not checked
    QTest::addColumn<QString>("log"); // the critical line of a statement the server refused

    const auto row = [](const char *tag, const char *word, const QByteArray &body, int status, int code = -1,
                        const char *log = "") {
        QTest::newRow(tag) << QString::fromLatin1(word) << body << status << code << QString::fromLatin1(log);
    };
    row("term: vid 0, no name", "terminal", R"({"vid": 0})", 422, Response::RE_RequiredVorixID);
    row("term: vid text", "terminal", R"({"vid": "abc", "name": "A"})", 422, Response::RE_RequiredVorixID);
    row("term: empty name", "terminal", R"({"vid": 6001, "name": ""})", 422, Response::RE_RequiredName);
    row("term: not json", "terminal", "vid=1&name=x", 400);
    row("term: array", "terminal", R"([{"vid": 7001, "name": "x"}])", 422);
    row("term: vid object", "terminal", R"({"vid": {"a": 1}, "name": "x"})", 422);
    row("term: vid huge", "terminal", R"({"vid": 1e300, "name": "x"})", 422);
    row("term: name array", "terminal", R"({"vid": 7002, "name": ["x"]})", 422);
    row("term: name number", "terminal", R"({"vid": 7003, "name": 12})", 201, 0);
    row("term: mac object, percent name", "terminal", R"({"vid": 7004, "name": "50%1 %2", "mac": {"a": 1}})", 201, 0);
    row("term: empty body", "terminal", QByteArray(), 400);

    const char *personError = "^WebApiWorker::dbInsertPerson\\(\\) SQl ERROR:";
    row("person: no pid", "person", R"({"name": "A"})", 422, Response::RE_RequiredPID);
    row("person: pid text", "person", R"({"pid": "abc", "name": "A"})", 422, Response::RE_RequiredPID);
    row("person: empty names", "person", R"({"pid": 5001, "name": "", "surname": ""})", 422, Response::RE_RequiredName);
    row("person: not json", "person", "pid=1", 400);
    row("person: array", "person", R"([{"pid": 6001, "name": "x"}])", 422);
    row("person: pid object", "person", R"({"pid": {"a": 1}, "name": "x"})", 422);
    row("person: pid huge", "person", R"({"pid": 1e300, "name": "x"})", 422);
    row("person: surname only", "person", R"({"pid": 6002, "surname": "Only"})", 201, 0);
    row("person: name number, title array", "person", R"({"pid": 6003, "name": 42, "title": [1, 2]})", 201, 0);
    row("person: gid text", "person", R"({"pid": 6005, "name": "x", "gid": "abc"})", 500, -1, personError);
    row("person: empty end", "person", R"({"pid": 6006, "name": "x", "end": ""})", 500, -1, personError);

    const char *entranceError = "^WebApiWorker::dbInsertEntrance\\(\\) SQl ERROR:";
    const auto json = [](QJsonObject body, const char *key, const QJsonValue &value) {
        if (value.isUndefined())
            body.remove(key);
        else
            body.insert(key, value);
        return QJsonDocument(body).toJson();
    };
    const QJsonObject good = entrance(20);
    row("entrance: no uid", "entrance", json(good, "uid", QJsonValue::Undefined), 422, Response::RE_RequiredUID);
    row("entrance: empty uid", "entrance", json(good, "uid", ""), 422, Response::RE_RequiredUID);
    row("entrance: unreadable uid", "entrance", json(good, "uid", "garbage"), 400, Response::RE_InvalidID);
    row("entrance: unknown person", "entrance", json(good, "uid", WebApiWorker::encodeId(1, 9999)), 400,
        Response::RE_InvalidID);
    row("entrance: uid number", "entrance", json(good, "uid", 5), 400);
    row("entrance: uid object", "entrance", json(good, "uid", QJsonObject{{"a", 1}}), 422);
    row("entrance: no iid", "entrance", json(good, "iid", QJsonValue::Undefined), 422, Response::RE_RequiredField);
    row("entrance: iid text", "entrance", json(good, "iid", "abc"), 422, Response::RE_RequiredField);
    row("entrance: iid huge", "entrance", json(good, "iid", 1e30), 422);
    row("entrance: no type", "entrance", json(good, "type", QJsonValue::Undefined), 422, Response::RE_RequiredField);
    row("entrance: type text", "entrance", json(good, "type", "in"), 400, -1, entranceError);
    row("entrance: date garbage", "entrance", json(good, "date", "soon"), 400, -1, entranceError);
    row("entrance: not json", "entrance", "uid=1", 400);
    row("entrance: array", "entrance", "[1, 2]", 422);
    row("entrance: quotes and colons", "entrance", json(good, "description", "a \"b\" :c 'd' %1"), 201, 0);
    // A terminal posts only as itself: its identifier or its number, nothing else.
    row("entrance: other terminal's tid", "entrance", json(entrance(21), "tid", kT2), 400, Response::RE_InvalidID);
    row("entrance: tid number of another", "entrance", json(entrance(21), "tid", 2), 400, Response::RE_InvalidID);
    row("entrance: own tid", "entrance", json(entrance(22), "tid", kT1), 201, 0);
    row("entrance: own tid number", "entrance", json(entrance(23), "tid", 1), 201, 0);
}

void TestTerminalContext::badInput()
{
    QFETCH(QString, word);
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(int, code);
    QFETCH(QString, log);
    const QString table = word == QLatin1String("terminal") ? QStringLiteral("term")
                          : word == QLatin1String("person") ? QStringLiteral("people")
                                                            : QStringLiteral("inters_data");
    const QString count = QStringLiteral("SELECT COUNT(*) FROM ") + table;
    const int before = sql(count).toInt();
    if (!log.isEmpty())
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(log));
    const HttpReply reply = post(word, body, word == QLatin1String("terminal") ? QString() : kT1);
    QVERIFY(reply.valid);
    QCOMPARE(reply.status, status);
    // A failed registration answers an empty map: the code is on the Response.
    if (code >= 0)
        QCOMPARE(m_fx->worker()->response()->errorCode(), code);
    QCOMPARE(sql(count).toInt(), before + (status == 201 ? 1 : 0));
    if (status == 201 && word == QLatin1String("entrance"))
        QCOMPARE(reply.json().object().value("description"), QJsonDocument::fromJson(body).object().value("description"));
}

void TestTerminalContext::repeatRegistrationWithinSecondIs208()
{
    // The repeat must land in the same second as the registration, or `online` changes.
    for (uint vid = 5100; vid < 5105; ++vid) {
        const QByteArray body = QStringLiteral(R"({"vid": %1, "name": "Twice"})").arg(vid).toUtf8();
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        const HttpReply first = post(QStringLiteral("terminal"), body, QString());
        const HttpReply second = post(QStringLiteral("terminal"), body, QString());
        if (QDateTime::currentSecsSinceEpoch() != before)
            continue;
        QCOMPARE(first.status, 201);
        QCOMPARE(second.status, 208);
        QCOMPARE(second.body, first.body);
        QCOMPARE(sql(QStringLiteral("SELECT COUNT(*) FROM term WHERE vorixID = %1").arg(vid)), QStringLiteral("1"));
        return;
    }
    QFAIL("no two requests within one second");
}

void TestTerminalContext::knownPidFromSecondTerminal()
{
    QCOMPARE(post(QStringLiteral("person"), R"({"pid": 4001, "name": "Karel", "card": "77"})").status, 201);
    const QString uid = sql(QStringLiteral("SELECT uid FROM people WHERE pid = 4001"));
    QVERIFY(m_fx->customer().exec(QStringLiteral("INSERT INTO people_term (uid, tid) VALUES (%1, 3)").arg(uid)));
    QVERIFY(m_fx->customer().exec(QStringLiteral("UPDATE term SET syn = 0")));

    const HttpReply updated = post(QStringLiteral("person"), R"({"pid": 4001, "name": "Karel", "surname": "Novák", "card": ""})", kT2);
    QCOMPARE(updated.status, 200);
    QCOMPARE(updated.json().object().value("uid").toString(), WebApiWorker::encodeId(uid.toUInt(), 4001));
    // An empty card leaves the stored one.
    QCOMPARE(sql(QStringLiteral("SELECT CONCAT_WS('|', COUNT(*), MAX(surname), MAX(card)) FROM people WHERE pid = 4001")),
             QStringLiteral("1|Novák|77"));
    QCOMPARE(sql(QStringLiteral("SELECT GROUP_CONCAT(tid ORDER BY tid) FROM people_term WHERE uid = %1").arg(uid)),
             QStringLiteral("1,2,3"));
    // Every other linked terminal gets a mark and the people bit; the posting one does not.
    QCOMPARE(sql(QStringLiteral("SELECT GROUP_CONCAT(tid ORDER BY tid) FROM term_sync WHERE type = 'U' AND ref = "
                                "'people_term' AND ref_col = 'uid' AND ref_id = %1 AND flags = 2")
                     .arg(uid)),
             QStringLiteral("1,3"));
    QCOMPARE(sql(QStringLiteral("SELECT GROUP_CONCAT(tid ORDER BY tid) FROM term WHERE syn & 2")), QStringLiteral("1,3"));
    // The same again changes no column.
    QCOMPARE(post(QStringLiteral("person"), R"({"pid": 4001, "name": "Karel", "surname": "Novák"})", kT2).status, 208);
}

void TestTerminalContext::nonAsciiNamesIntact()
{
    // Characters beyond the BMP need the connection's full utf8mb4 set.
    const QStringList surnames = {QStringLiteral("Šťastná-Ďurišová «ß» Привет"), QStringLiteral("Smile 😀")};
    for (int i = 0; i < surnames.size(); ++i) {
        const QJsonObject body{{"pid", 7001 + i}, {"name", QStringLiteral("Žofie")}, {"surname", surnames.at(i)}};
        const HttpReply reply = post(QStringLiteral("person"), QJsonDocument(body).toJson());
        QCOMPARE(reply.status, 201);
        QCOMPARE(reply.json().object().value("name").toString(), QStringLiteral("Žofie"));
        QCOMPARE(reply.json().object().value("surname").toString(), surnames.at(i));
        QCOMPARE(sql(QStringLiteral("SELECT surname FROM people WHERE pid = %1").arg(7001 + i)), surnames.at(i));
    }
}

QList<HttpReply> TestTerminalContext::race(const QString &word, const QByteArray bodies[2], const QString tids[2])
{
    QSemaphore ready;
    QSemaphore go;
    QByteArray replies[2];
    QThread *threads[2];
    for (int i = 0; i < 2; ++i) {
        threads[i] = QThread::create([&, i]() {
            ThreadWorker worker(QStringLiteral("2.4.1"));
            worker.setDbManager(m_fx->manager());
            m_fx->manager()->getDatabase(m_fx->token());  // the InfoDB asked before the start
            ready.release();
            go.acquire();
            replies[i] = worker.post(word, m_fx->terminalHeaders(tids[i]), bodies[i]);
            // The manager's handle of this thread goes with it: a later thread may get its id.
            QSqlDatabase::removeDatabase(m_fx->manager()->connectionNameFor(m_fx->token()));
        });
        threads[i]->start();
    }
    ready.acquire(2);
    go.release(2);
    QList<HttpReply> parsed;
    for (int i = 0; i < 2; ++i) {
        threads[i]->wait(30000);
        delete threads[i];
        parsed.append(HttpReply::parse(replies[i]));
    }
    return parsed;
}

void TestTerminalContext::samePidOnTwoThreads()
{
    const QString tids[2] = {kT1, kT2};
    for (uint pid = 8001; pid <= 8010; ++pid) {
        // Each terminal sends its own card, so a late duplicate still changes the row.
        const QByteArray bodies[2] = {QStringLiteral(R"({"pid": %1, "name": "Race", "card": "0"})").arg(pid).toUtf8(),
                                      QStringLiteral(R"({"pid": %1, "name": "Race", "card": "1"})").arg(pid).toUtf8()};
        for (const HttpReply &reply : race(QStringLiteral("person"), bodies, tids)) {
            QVERIFY2(reply.status == 200 || reply.status == 201, reply.body.constData());
            QCOMPARE(reply.json().object().value("pid").toInt(), int(pid));
        }
        QCOMPARE(sql(QStringLiteral("SELECT CONCAT(COUNT(DISTINCT uid), '|', COUNT(*)) FROM people_term JOIN people "
                                    "USING(uid) WHERE pid = %1").arg(pid)),
                 QStringLiteral("1|2"));
    }
}

void TestTerminalContext::sameEntranceOnTwoThreads_data()
{
    QTest::addColumn<bool>("dated");
    QTest::newRow("dated") << true;
    QTest::newRow("without date") << false;
}

void TestTerminalContext::sameEntranceOnTwoThreads()
{
    QFETCH(bool, dated);
    const QString tids[2] = {kT1, kT1};
    // Both copies may pass the lookup; the key lets one row through and hands its id to the other.
    for (int refId = dated ? 100 : 200, last = refId + 10; refId < last; ++refId) {
        QJsonObject body = entrance(refId);
        if (!dated)
            body.remove("date");
        const QByteArray bodies[2] = {QJsonDocument(body).toJson(), QJsonDocument(body).toJson()};
        const QList<HttpReply> replies = race(QStringLiteral("entrance"), bodies, tids);
        QCOMPARE(replies.at(0).status + replies.at(1).status, 201 + 208);
        QCOMPARE(replies.at(0).json().object().value("eid"), replies.at(1).json().object().value("eid"));
        QCOMPARE(sql(QStringLiteral("SELECT COUNT(*) FROM inters_data WHERE refId = %1").arg(refId)), QStringLiteral("1"));
    }
}

void TestTerminalContext::repeats_data()
{
    QTest::addColumn<QJsonObject>("first");
    QTest::addColumn<QJsonObject>("second");
    QTest::addColumn<int>("status");  // of the second post; 208 answers with the first eid
    const auto with = [this](int refId, const char *key, const QJsonValue &value) {
        QJsonObject body = entrance(refId);
        if (value.isUndefined())
            body.remove(key);
        else
            body.insert(key, value);
        return body;
    };
    QTest::newRow("same event") << entrance(40) << entrance(40) << 208;
    QTest::newRow("other reason") << entrance(41) << entrance(41, 2) << 201;
    QTest::newRow("other type") << entrance(42) << with(42, "type", 2) << 201;
    QTest::newRow("other date") << entrance(43) << with(43, "date", "2024-05-01T08:00:01") << 201;
    QTest::newRow("no date, twice") << with(44, "date", QJsonValue::Undefined) << with(44, "date", QJsonValue::Undefined)
                                    << 208;
    QTest::newRow("retry without date") << entrance(45) << with(45, "date", QJsonValue::Undefined) << 208;
    QTest::newRow("dated after undated") << with(46, "date", QJsonValue::Undefined) << entrance(46) << 201;
    QTest::newRow("no refId, twice") << entrance(0) << entrance(0) << 201;
}

void TestTerminalContext::repeats()
{
    QFETCH(QJsonObject, first);
    QFETCH(QJsonObject, second);
    QFETCH(int, status);
    // Each post with a photo of its own; the tag keeps this row's entrances apart.
    const QString tag = QTest::currentDataTag();
    first.insert("description", tag);
    second.insert("description", tag);
    const QByteArray photos[2] = {"first " + tag.toUtf8(), "second " + tag.toUtf8()};
    first.insert("image", QString::fromLatin1(photos[0].toBase64()));
    second.insert("image", QString::fromLatin1(photos[1].toBase64()));
    QSignalSpy created(m_fx->worker(), &WebApiWorker::recordCreated);
    if (status == 201 && first.value("refId").toInt() != 0)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                               "^WebApiWorker::dbInsertEntrance\\(\\) - different entrance with same refId "
                                               "from Terminal ID: 1! \n\\(id: \\d+, refId: %1, uid \\[ZMTDB\\]: 1\\)$")
                                               .arg(first.value("refId").toInt())));

    const HttpReply replies[2] = {post(QStringLiteral("entrance"), QJsonDocument(first).toJson()),
                                  post(QStringLiteral("entrance"), QJsonDocument(second).toJson())};
    QCOMPARE(replies[0].status, 201);
    QCOMPARE(replies[1].status, status);
    const QString eids[2] = {replies[0].json().object().value("eid").toString(),
                             replies[1].json().object().value("eid").toString()};
    QCOMPARE(eids[0] == eids[1], status == 208);
    // No photo of one event lands on another, and only new rows are announced.
    QCOMPARE(created.count(), status == 201 ? 2 : 1);
    const auto photoOf = [&](const QString &eid) {
        uint id = 0;
        uint refId = 0;
        WebApiWorker::decodeId(eid, id, refId);
        return m_fx->customer().scalar(QStringLiteral("SELECT photo FROM inters_data WHERE id = %1").arg(id)).toByteArray();
    };
    QCOMPARE(photoOf(eids[0]), photos[0]);
    if (status == 201)
        QCOMPARE(photoOf(eids[1]), photos[1]);
    QCOMPARE(sql(QStringLiteral("SELECT COUNT(*) FROM inters_data WHERE description = '%1'").arg(tag)).toInt(),
             status == 201 ? 2 : 1);
}

void TestTerminalContext::unroutedReads()
{
    TestDatabase &db = m_fx->customer();
    QVERIFY(db.exec(QStringLiteral("INSERT INTO inters_term (tid, iid) VALUES (2, 1), (2, 3)")));
    QVERIFY(db.exec(QStringLiteral("INSERT INTO people_term (uid, tid) VALUES (1, 2), (2, 2), (4, 2)")));
    QVERIFY(db.exec(QStringLiteral("UPDATE people SET saldo = 90 WHERE uid = 2")));
    // A request first, so that the worker has its connection and a response to write to.
    QCOMPARE(m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/info"), m_fx->terminalHeaders()).status, 200);
    WebApiWorker *worker = m_fx->worker();

    // The reads give written bodies.
    const auto json = [](const QVariant &body) { return QJsonDocument::fromJson(body.value<JsonText>().bytes).toVariant(); };
    const QVariantList inters = json(worker->dbGetInters4Terminal(2, 102)).toList();
    QCOMPARE(inters.size(), 2);
    QCOMPARE(inters.at(0).toMap().value("iid").toUInt(), 3u);  // lighter first
    QCOMPARE(json(worker->dbGetInters4Terminal(2, 103)).toList().size(), 0);
    QCOMPARE(json(worker->dbGetPresent4Terminal(2, 0)).toList().size(), 2);  // the inactive person is left out
    const QVariantMap one = json(worker->dbGetPresent4Terminal(2, 1)).toMap();
    QCOMPARE(one.value("uid").toString(), kUid1);
    QVERIFY(one.value("present").toBool() && !one.contains("date"));
    QVERIFY(worker->dbGetSaldo(2, 0));
    QCOMPARE(worker->response()->data().toMap(), QVariantMap({{"1", -30}, {"2", 90}}));
    QVERIFY(!worker->dbGetSaldo(2, 3));
    QCOMPARE(worker->response()->data().toMap().size(), 0);
    QCOMPARE(worker->response()->errorCode(), 0);
}

QTEST_GUILESS_MAIN(TestTerminalContext)
#include "tst_terminalcontext.moc"

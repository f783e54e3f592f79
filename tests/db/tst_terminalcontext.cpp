// The terminal side through buildResponse on the private MariaDB: registration, people,
// entrances, reference lists and presence, on the rows of tests/data/terminal/fixture.sql.
#include "support/apifixture.h"
#include "support/terminalunit.h"

#include "database/dbmanager.h"
#include "response/jsonwriter.h"
#include "terminal/identifiers.h"
#include "terminal/lists.h"
#include "worker/webapiworker.h"

#include <QSemaphore>
#include <QSignalSpy>
#include <QThread>
#include <QtTest>

namespace {

const QString kT1 = encodeId(1, 101);
const QString kT2 = encodeId(2, 102);
const QString kUid1 = encodeId(1, 1001);

QByteArray doc(const QJsonObject &body)
{
    return QJsonDocument(body).toJson();
}

QByteArray with(QJsonObject body, const char *key, const QJsonValue &value)
{
    if (value.isUndefined())
        body.remove(key);
    else
        body.insert(key, value);
    return QJsonDocument(body).toJson();
}

QJsonObject entrance(int refId, int iid = 1)
{
    QJsonObject body{{"uid", kUid1}, {"iid", iid}, {"type", 1}, {"date", "2024-05-01T08:00:00"}, {"description", "Front door"}};
    if (refId != 0)
        body.insert("refId", refId);
    return body;
}

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
    void knownPidFromSecondTerminal();
    void repeats_data();
    void repeats();
    void racesLeaveOneRow_data();
    void racesLeaveOneRow();

private:
    HttpReply post(const QString &word, const QByteArray &body, const QString &tid = kT1)
    {
        return m_fx->request(QStringLiteral("POST"), QStringLiteral("/webapi/") + word, m_fx->terminalHeaders(tid), body);
    }
    QString sql(const QString &query) { return m_fx->customer().scalar(query).toString(); }

    QScopedPointer<ApiFixture> m_fx;
};

void TestTerminalContext::initTestCase()
{
    qRegisterMetaType<quint8>("quint8");
    m_fx.reset(new ApiFixture(QStringLiteral("terminalcontext")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    QString error;
    QVERIFY2(TestServer::loadSqlFile(m_fx->customer().name(), QStringLiteral(WEBAPI_TEST_DATA "/terminal/fixture.sql"), &error),
             qPrintable(error));
}

void TestTerminalContext::wholeResponses_data()
{
    QTest::addColumn<QString>("request");  // method and path below /webapi/
    QTest::addColumn<QString>("tid");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("away");  // a table renamed for the request, to fail its statement
    QTest::addColumn<QString>("log");   // an expected warning, or critical SQL error line
    QTest::addColumn<QString>("check"); // a statement on the database after the request...
    QTest::addColumn<QString>("rows");  // ...and its answer
    QTest::addColumn<QString>("file");

    const auto row = [](const char *tag, const QString &request, const QString &tid, const QByteArray &body, const char *file,
                        const char *check = "", const char *rows = "", const char *away = "", const char *log = "") {
        QTest::newRow(tag) << request << tid << body << away << log << check << QString::fromUtf8(rows)
                           << QStringLiteral("terminal/%1.http").arg(QLatin1String(file));
    };
    row("people", "GET people", kT1, {}, "people");
    row("person", "GET person/" + kUid1, kT1, {}, "person");
    row("person inactive", "GET person/" + encodeId(4, 1004), kT1, {}, "person-none");
    row("person unreadable", "GET person/xyz", kT1, {}, "person-invalid");
    row("inters", "GET inters", {}, {}, "inters");
    row("groups", "GET groups", {}, {}, "groups");
    row("present", "GET present", kT1, {}, "present");
    row("present of one", "GET present/" + kUid1, kT1, {}, "present-one");
    row("present, unknown terminal", "GET present", encodeId(99, 101), {}, "present-no-terminal");
    row("inters failing", "GET inters", {}, {}, "list-sql-error", "", "", "inters", "^WebApiWorker::dbGetInter\\(\\) SQl ERROR:");
    // The row is active, typed API, online now.
    row("register", "POST terminal", {}, R"({"vid": 4711, "name": " Main door ", "mac": "00:1A:2B:3C:4D:5E", "ip": "10.0.0.5", "ver": "1.2"})",
        "register-new",
        "SELECT CONCAT_WS('|', name, IFNULL(ip, 'NULL'), type, status, flags, ABS(online - UNIX_TIMESTAMP()) < 5) "
        "FROM term WHERE vorixID = 4711",
        "Main door|10.0.0.5|API|1|0|1");
    // A failed registration still answers the empty map of the lookup, under the error's status.
    row("register, no vid", "POST terminal", {}, R"({"vid": 0})", "register-no-vid", "SELECT COUNT(*) FROM term WHERE vorixID = 0", "0");
    row("register, broken", "POST terminal", {}, "{\"vid\": ", "register-broken");
    // Switched off by an administrator: registering does not switch it on again.
    row("register, disabled", "POST terminal", {}, R"({"vid": 104, "name": "Back on"})", "register-bad-vid",
        "SELECT CONCAT_WS('|', COUNT(*), MAX(status), MAX(name)) FROM term WHERE vorixID = 104", "1|0|Off");
    row("register, not licensed", "POST terminal", {}, R"({"vid": 12345, "name": "Foreign"})", "register-bad-vid",
        "SELECT COUNT(*) FROM term WHERE vorixID = 12345", "0");
    row("post person", "POST person", kT1, R"({"pid": 2001, "name": "Eva", "surname": "Malá", "title": "Mgr.", "gid": 1})",
        "post-person-new",
        "SELECT CONCAT_WS('|', (SELECT GROUP_CONCAT(tid) FROM people_term WHERE uid = 500), "
        "begin = UNIX_TIMESTAMP(CURDATE())) FROM people WHERE uid = 500",
        "1|1");
    row("post person, unknown group", "POST person", kT1, R"({"pid": 2002, "name": "Ivo", "gid": 99})",
        "post-person-bad-group", "SELECT COUNT(*) FROM people WHERE pid = 2002", "0", "",
        "^WebApiWorker::dbInsertPerson\\(\\) SQl ERROR:");
    row("entrance", "POST entrance", kT1, doc(entrance(5)), "entrance-new",
        "SELECT CONCAT_WS('|', tid, uid, iid, photo IS NULL) FROM inters_data WHERE id = 700", "1|1|1|1");
    row("entrance, unknown reason", "POST entrance", kT1, doc(entrance(6, 999)), "entrance-unknown-iid",
        "SELECT COUNT(*) FROM inters_data WHERE refId = 6", "0", "",
        "^WebApiWorker::dbInsertEntrance\\( \\d+ , 6 \\) - IID  999 missing in ZMTDB! data:");
}

void TestTerminalContext::wholeResponses()
{
    QFETCH(QString, request);
    QFETCH(QString, tid);
    QFETCH(QByteArray, body);
    QFETCH(QString, away);
    QFETCH(QString, log);
    QFETCH(QString, check);
    QFETCH(QString, rows);
    QFETCH(QString, file);
    TestDatabase &db = m_fx->customer();
    // Fixed numbers for new rows, whatever ran before.
    for (const char *next : {"term AUTO_INCREMENT = 9000", "people AUTO_INCREMENT = 500", "inters_data AUTO_INCREMENT = 700"})
        QVERIFY(db.exec(QStringLiteral("ALTER TABLE ") + QLatin1String(next)));
    if (!log.isEmpty())
        QTest::ignoreMessage(log.contains(QLatin1String("SQl ERROR")) ? QtCriticalMsg : QtWarningMsg, QRegularExpression(log));
    if (!away.isEmpty())
        QVERIFY(db.exec(QStringLiteral("RENAME TABLE %1 TO %1_away").arg(away)));
    QByteArray raw = maskTms(m_fx->call(request.section(' ', 0, 0), "/webapi/" + request.section(' ', 1),
                                        m_fx->terminalHeaders(tid), body));
    if (!away.isEmpty())
        QVERIFY(db.exec(QStringLiteral("RENAME TABLE %1_away TO %1").arg(away)));
    // A new person begins at today's midnight; an entrance is created now.
    raw.replace(QDate::currentDate().toString(Qt::ISODate).toLatin1(), "<TODAY>");
    raw = QString::fromUtf8(raw)
              .replace(QRegularExpression(QStringLiteral("\"created\": \"[^\"]+\"")), QStringLiteral("\"created\": \"<NOW>\""))
              .toUtf8();
    COMPARE_EXPECTED(raw, file);
    if (!check.isEmpty())
        QCOMPARE(sql(check), rows);
}

void TestTerminalContext::badInput_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("code");   // of the error body; -1: not checked
    QTest::addColumn<QString>("log"); // the critical line of a statement the server refused

    const auto row = [](const char *tag, const char *word, const QByteArray &body, int status, int code = -1, const char *log = "") {
        QTest::newRow(tag) << QString::fromLatin1(word) << body << status << code << QString::fromLatin1(log);
    };
    row("term: vid text", "terminal", R"({"vid": "abc", "name": "A"})", 422);
    row("term: empty name", "terminal", R"({"vid": 6001, "name": ""})", 422);
    row("person: no pid", "person", R"({"name": "A"})", 422, Response::RE_RequiredPID);
    row("person: empty names", "person", R"({"pid": 5001, "name": "", "surname": ""})", 422, Response::RE_RequiredName);
    row("person: not json", "person", "pid=1", 400, Response::RE_JsonParseError);
    // Characters beyond the BMP need the connection's full utf8mb4 set.
    row("person: surname only, non-ASCII", "person", R"({"pid": 7001, "surname": "Šťastná «ß» Привет 😀"})", 201, 0);
    row("person: gid text", "person", R"({"pid": 6005, "name": "x", "gid": "abc"})", 500, -1,
        "^WebApiWorker::dbInsertPerson\\(\\) SQl ERROR:");
    const QJsonObject good = entrance(20);
    row("entrance: no uid", "entrance", with(good, "uid", QJsonValue::Undefined), 422, Response::RE_RequiredUID);
    row("entrance: unknown person", "entrance", with(good, "uid", encodeId(1, 9999)), 400, Response::RE_InvalidID);
    row("entrance: iid text", "entrance", with(good, "iid", "abc"), 422, Response::RE_RequiredField);
    row("entrance: no type", "entrance", with(good, "type", QJsonValue::Undefined), 422, Response::RE_RequiredField);
    row("entrance: type text", "entrance", with(good, "type", "in"), 400, 500, "^WebApiWorker::dbInsertEntrance\\(\\) SQl ERROR:");
    row("entrance: quotes and colons", "entrance", with(good, "description", "a \"b\" :c 'd' %1"), 201, 0);
    // A terminal posts only as itself: its identifier or its number, nothing else.
    row("entrance: other terminal's tid", "entrance", with(entrance(21), "tid", kT2), 400, Response::RE_InvalidID);
    row("entrance: tid number of another", "entrance", with(entrance(21), "tid", 2), 400, Response::RE_InvalidID);
    row("entrance: own tid number", "entrance", with(entrance(23), "tid", 1), 201, 0);
}

void TestTerminalContext::badInput()
{
    QFETCH(QString, word);
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(int, code);
    QFETCH(QString, log);
    const QString table = word == "terminal" ? "term" : word == "person" ? "people" : "inters_data";
    const QString count = QStringLiteral("SELECT COUNT(*) FROM ") + table;
    const int before = sql(count).toInt();
    if (!log.isEmpty())
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(log));
    const HttpReply reply = post(word, body, word == "terminal" ? QString() : kT1);
    QCOMPARE(reply.status, status);
    if (code >= 0)
        QCOMPARE(reply.errorCode(), code);
    QCOMPARE(sql(count).toInt(), before + (status == 201 ? 1 : 0));
    // What was sent is what is stored and answered.
    const QString key = word == "person" ? "surname" : "description";
    const QJsonValue sent = QJsonDocument::fromJson(body).object().value(key);
    if (status == 201) {
        QCOMPARE(reply.json().object().value(key), sent);
        QCOMPARE(sql(QStringLiteral("SELECT %1 FROM %2 ORDER BY %3 DESC LIMIT 1").arg(key, table, word == "person" ? "uid" : "id")),
                 sent.toString());
    }
}

void TestTerminalContext::knownPidFromSecondTerminal()
{
    QCOMPARE(post(QStringLiteral("person"), R"({"pid": 4001, "name": "Karel", "card": "77"})").status, 201);
    const QString uid = sql(QStringLiteral("SELECT uid FROM people WHERE pid = 4001"));
    QVERIFY(m_fx->customer().exec(QStringLiteral("INSERT INTO people_term (uid, tid) VALUES (%1, 3)").arg(uid)));
    QVERIFY(m_fx->customer().exec(QStringLiteral("UPDATE term SET syn = 0")));

    const HttpReply updated = post(QStringLiteral("person"), R"({"pid": 4001, "name": "Karel", "surname": "Novák", "card": ""})", kT2);
    QCOMPARE(updated.status, 200);
    QCOMPARE(updated.json().object().value("uid").toString(), encodeId(uid.toUInt(), 4001));
    // An empty card leaves the stored one.
    QCOMPARE(sql(QStringLiteral("SELECT CONCAT_WS('|', COUNT(*), MAX(surname), MAX(card)) FROM people WHERE pid = 4001")),
             QStringLiteral("1|Novák|77"));
    // Linked to the posting terminal; every other linked terminal gets a mark, the posting one not.
    QCOMPARE(sql(QStringLiteral("SELECT CONCAT((SELECT GROUP_CONCAT(tid ORDER BY tid) FROM people_term WHERE uid = %1), ' ', "
                                "(SELECT GROUP_CONCAT(tid ORDER BY tid) FROM term_sync WHERE ref_id = %1 AND flags = 2))").arg(uid)),
             QStringLiteral("1,2,3 1,3"));
    // The same again changes no column.
    QCOMPARE(post(QStringLiteral("person"), R"({"pid": 4001, "name": "Karel", "surname": "Novák"})", kT2).status, 208);
}

void TestTerminalContext::repeats_data()
{
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QByteArray>("second");
    QTest::addColumn<int>("status");  // of the second post; 208 answers with the first eid
    const QJsonValue none = QJsonValue::Undefined;
    QTest::newRow("same event") << doc(entrance(40)) << doc(entrance(40)) << 208;
    QTest::newRow("other reason") << doc(entrance(41)) << doc(entrance(41, 2)) << 201;
    QTest::newRow("other type") << doc(entrance(42)) << with(entrance(42), "type", 2) << 201;
    QTest::newRow("other date") << doc(entrance(43)) << with(entrance(43), "date", "2024-05-01T08:00:01") << 201;
    QTest::newRow("no date, twice") << with(entrance(44), "date", none) << with(entrance(44), "date", none) << 208;
    QTest::newRow("retry without date") << doc(entrance(45)) << with(entrance(45), "date", none) << 208;
    QTest::newRow("dated after undated") << with(entrance(46), "date", none) << doc(entrance(46)) << 201;
    QTest::newRow("no refId, twice") << doc(entrance(0)) << doc(entrance(0)) << 201;
}

void TestTerminalContext::repeats()
{
    QFETCH(QByteArray, first);
    QFETCH(QByteArray, second);
    QFETCH(int, status);
    // Each post with a photo of its own; the tag keeps this row's entrances apart.
    const QString tag = QTest::currentDataTag();
    const QByteArray photos[2] = {"first " + tag.toUtf8(), "second " + tag.toUtf8()};
    QJsonObject bodies[2] = {QJsonDocument::fromJson(first).object(), QJsonDocument::fromJson(second).object()};
    QSignalSpy created(m_fx->worker(), &WebApiWorker::recordCreated);
    if (status == 201 && bodies[0].value("refId").toInt() != 0)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^WebApiWorker::dbInsertEntrance\\(\\) - different entrance "
                                                              "with same refId from Terminal ID: 1!"));
    QString eids[2];
    for (int i = 0; i < 2; ++i) {
        bodies[i].insert("description", tag);
        bodies[i].insert("image", QString::fromLatin1(photos[i].toBase64()));
        const HttpReply reply = post(QStringLiteral("entrance"), QJsonDocument(bodies[i]).toJson());
        QCOMPARE(reply.status, i == 0 ? 201 : status);
        eids[i] = reply.json().object().value("eid").toString();
    }
    QCOMPARE(eids[0] == eids[1], status == 208);
    // No photo of one event lands on another, and only new rows are announced.
    QCOMPARE(created.count(), status == 201 ? 2 : 1);
    QCOMPARE(created.first().at(0).toString(), QStringLiteral("inters_data"));
    for (int i = 0; i < (status == 201 ? 2 : 1); ++i) {
        uint id = 0;
        uint refId = 0;
        decodeId(eids[i], id, refId);  // refId 0 without one: only the id counts
        QCOMPARE(created.at(i).at(1).toUInt(), id);
        QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT photo FROM inters_data WHERE id = %1").arg(id)).toByteArray(),
                 photos[i]);
    }
    QCOMPARE(sql(QStringLiteral("SELECT COUNT(*) FROM inters_data WHERE description = '%1'").arg(tag)).toInt(),
             status == 201 ? 2 : 1);
}

void TestTerminalContext::racesLeaveOneRow_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<QString>("otherTid");  // of the second post
    QTest::addColumn<int>("firstKey");      // refId or pid of the first round
    // Both copies may pass the lookup; the key lets one row through and hands its id to the other.
    QTest::newRow("entrance") << "entrance" << kT1 << 100;
    QTest::newRow("entrance without date") << "entrance" << kT1 << 200;
    // Each terminal sends its own card, so a late duplicate still changes the row.
    QTest::newRow("person") << "person" << kT2 << 8001;
}

void TestTerminalContext::racesLeaveOneRow()
{
    QFETCH(QString, word);
    QFETCH(QString, otherTid);
    QFETCH(int, firstKey);
    const bool person = word == QLatin1String("person");
    const bool dated = firstKey != 200;
    for (int key = firstKey; key < firstKey + 5; ++key) {
        const QString tids[2] = {kT1, otherTid};
        QByteArray bodies[2];
        for (int i = 0; i < 2; ++i)
            bodies[i] = person ? QStringLiteral(R"({"pid": %1, "name": "Race", "card": "%2"})").arg(key).arg(i).toUtf8()
                               : with(entrance(key), dated ? "" : "date", QJsonValue::Undefined);
        // Each post on a thread and connection of its own, released together.
        QSemaphore ready;
        QSemaphore go;
        QByteArray replies[2];
        QThread *threads[2];
        for (int i = 0; i < 2; ++i) {
            threads[i] = QThread::create([&, i]() {
                WebApiWorker worker(QStringLiteral("2.4.1"));
                worker.setDbManager(m_fx->manager());
                m_fx->manager()->getDatabase(m_fx->token());  // the InfoDB asked before the start
                ready.release();
                go.acquire();
                replies[i] = worker.buildResponse(QStringLiteral("POST"), QUrl("http://h/webapi/" + word),
                                                  m_fx->terminalHeaders(tids[i]), bodies[i]);
                // The manager's handle of this thread goes with it: a later thread may get its id.
                QSqlDatabase::removeDatabase(m_fx->manager()->connectionNameFor(m_fx->token()));
            });
            threads[i]->start();
        }
        ready.acquire(2);
        go.release(2);
        QList<int> statuses;
        QSet<QString> ids;
        for (int i = 0; i < 2; ++i) {
            threads[i]->wait();
            delete threads[i];
            const HttpReply reply = HttpReply::parse(replies[i]);
            statuses << reply.status;
            ids << reply.json().object().value(person ? "pid" : "eid").toVariant().toString();
        }
        std::sort(statuses.begin(), statuses.end());
        QCOMPARE(ids.size(), 1);
        QVERIFY2(person ? !statuses.contains(208) && !statuses.contains(500) : statuses == (QList<int>{201, 208}),
                 replies[0].constData());
        QCOMPARE(sql(person ? QStringLiteral("SELECT CONCAT(COUNT(DISTINCT uid), '|', COUNT(*)) FROM people_term JOIN people "
                                             "USING(uid) WHERE pid = %1").arg(key)
                            : QStringLiteral("SELECT COUNT(*) FROM inters_data WHERE refId = %1").arg(key)),
                 person ? QStringLiteral("1|2") : QStringLiteral("1"));
    }
}

void TestTerminalContext::unroutedReads()
{
    for (const char *rows : {"inters_term (tid, iid) VALUES (2, 1), (2, 3)", "people_term (uid, tid) VALUES (1, 2), (2, 2), (4, 2)"})
        QVERIFY(m_fx->customer().exec(QStringLiteral("INSERT INTO ") + rows));
    TerminalUnit unit(*m_fx);
    const auto json = [](const QVariant &body) { return QJsonDocument::fromJson(body.value<JsonText>().bytes).toVariant(); };
    // Lighter first; only the terminal's own reasons; the inactive person is left out.
    QCOMPARE(json(dbGetInters4Terminal(unit.ctx, 2, 102)).toList().value(0).toMap().value("iid").toUInt(), 3u);
    QCOMPARE(json(dbGetInters4Terminal(unit.ctx, 2, 103)).toList().size(), 0);
    QCOMPARE(json(dbGetPresent4Terminal(unit.ctx, 2, 0)).toList().size(), 2);
    QCOMPARE(json(dbGetPresent4Terminal(unit.ctx, 2, 1)).toMap(), QVariantMap({{"present", true}, {"uid", kUid1}}));
    QVERIFY(dbGetSaldo(unit.ctx, 2, 0));
    QCOMPARE(unit.response.data().toMap(), QVariantMap({{"1", -30}, {"2", 0}}));
    QVERIFY(!dbGetSaldo(unit.ctx, 2, 3));
    QCOMPARE(unit.response.errorCode(), 0);
}

QTEST_GUILESS_MAIN(TestTerminalContext)
#include "tst_terminalcontext.moc"

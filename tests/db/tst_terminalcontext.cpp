// The terminal side on the private MariaDB: registration, people, entrances, reference lists
// and presence through buildResponse on the rows of tests/data/terminal/fixture.sql; the
// synchronisation feed and the PUT and DELETE verbs, which the plug-in does not route, through
// the units with a request context.
#include "support/apifixture.h"

#include "database/dbmanager.h"
#include "response/response.h"
#include "terminal/identifiers.h"
#include "terminal/lists.h"
#include "terminal/syncfeed.h"
#include "terminal/terminalrouter.h"
#include "worker/webapiworker.h"

#include <QSemaphore>
#include <QSignalSpy>
#include <QThread>
#include <QtTest>

namespace {

const QString kT1 = encodeId(1, 101), kT2 = encodeId(2, 102), kUid1 = encodeId(1, 1001);

QByteArray with(QJsonObject body, const QString &key, const QJsonValue &value)
{
    value.isUndefined() ? body.remove(key) : void(body.insert(key, value));
    return QJsonDocument(body).toJson();
}

QJsonObject entrance(int refId, int iid = 1)
{
    QJsonObject body{{"uid", kUid1}, {"iid", iid}, {"type", 1}, {"date", "2024-05-01T08:00:00"}, {"description", "Front door"}};
    if (refId != 0)
        body.insert("refId", refId);
    return body;
}

void columns()
{
    QTest::addColumn<QString>("setup");    // files below tests/data and statements run first, ";" between
    QTest::addColumn<QString>("request");  // method and path below /webapi/; FEED, FULL, ACK: see sync_data
    QTest::addColumn<QString>("tid"); QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("expect");   // "status[ code]", a whole response below tests/data, or nothing
    QTest::addColumn<QString>("check"); QTest::addColumn<QString>("rows");  // a statement on the database after the request, its answer
}

} // namespace

class TestTerminalContext : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qRegisterMetaType<quint8>("quint8");
        m_fx.reset(new ApiFixture(QStringLiteral("terminalcontext")));
        QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
        QString error;
        QVERIFY2(TestServer::loadSqlFile(m_fx->customer().name(), QStringLiteral(WEBAPI_TEST_DATA "/terminal/fixture.sql"), &error),
                 qPrintable(error));
    }

    void requests_data()
    {
        columns();
        const auto row = [](const char *tag, const QString &request, const QString &tid, const QByteArray &body,
                            const char *expect, const QString &check = {}, const char *rows = "") {
            QTest::newRow(tag) << QString() << request << tid << body
                               << (expect[0] > '9' ? QStringLiteral("terminal/") : QString()) + expect << check << QString::fromUtf8(rows);
        };
        const QString t = kT1;
        row("people", "GET people", t, {}, "people");
        row("person", "GET person/" + kUid1, t, {}, "person");
        row("person inactive", "GET person/" + encodeId(4, 1004), t, {}, "person-none");
        row("person unreadable", "GET person/xyz", t, {}, "person-invalid");
        row("inters", "GET inters", {}, {}, "inters");
        row("groups", "GET groups", {}, {}, "groups");
        row("present", "GET present", t, {}, "present");
        row("present of one", "GET present/" + kUid1, t, {}, "present-one");
        row("present, unknown terminal", "GET present", encodeId(99, 101), {}, "present-no-terminal");
        // The row is active, typed API, online; a failed registration answers an empty map.
        row("register", "POST terminal", {}, R"({"vid": 4711, "name": " Main door ", "mac": "00:1A:2B:3C:4D:5E", "ip": "10.0.0.5", "ver": "1.2"})",
            "register-new", "SELECT CONCAT_WS('|', name, ip, type, status, flags, online > 0) FROM term WHERE vorixID = 4711",
            "Main door|10.0.0.5|API|1|0|1");
        row("register, no vid", "POST terminal", {}, R"({"vid": 0})", "register-no-vid", "SELECT COUNT(*) FROM term WHERE vorixID = 0", "0");
        row("register, broken", "POST terminal", {}, "{\"vid\": ", "register-broken");
        row("register, empty name", "POST terminal", {}, R"({"vid": 6001, "name": ""})", "422");
        // Switched off by an administrator: registering does not switch it on again.
        row("register, disabled", "POST terminal", {}, R"({"vid": 104, "name": "Back on"})", "register-bad-vid",
            "SELECT CONCAT_WS('|', COUNT(*), MAX(status), MAX(name)) FROM term WHERE vorixID = 104", "1|0|Off");
        row("register, not licensed", "POST terminal", {}, R"({"vid": 12345, "name": "Foreign"})", "register-bad-vid",
            "SELECT COUNT(*) FROM term WHERE vorixID = 12345", "0");
        row("post person", "POST person", t, R"({"pid": 2001, "name": "Eva", "surname": "Malá", "title": "Mgr.", "gid": 1})",
            "post-person-new", "SELECT CONCAT_WS('|', (SELECT GROUP_CONCAT(tid) FROM people_term WHERE uid = 500), "
            "begin = UNIX_TIMESTAMP(CURDATE())) FROM people WHERE uid = 500", "1|1");
        row("post person, unknown group", "POST person", t, R"({"pid": 2002, "name": "Ivo", "gid": 99})", "post-person-bad-group",
            "SELECT COUNT(*) FROM people WHERE pid = 2002", "0");
        row("person: no pid", "POST person", t, R"({"name": "A"})", "422 100302");
        row("person: empty names", "POST person", t, R"({"pid": 5001, "name": "", "surname": ""})", "422 100304");
        // Characters beyond the BMP need the connection's full utf8mb4 set.
        row("person: non-ASCII", "POST person", t, R"({"pid": 7001, "surname": "Šťastná «ß» Привет 😀"})", "201",
            "SELECT surname FROM people WHERE pid = 7001", "Šťastná «ß» Привет 😀");
        row("entrance", "POST entrance", t, QJsonDocument(entrance(5)).toJson(), "entrance-new",
            "SELECT CONCAT_WS('|', tid, uid, iid, photo IS NULL) FROM inters_data WHERE id = 700", "1|1|1|1");
        // Repeats under refId 5: the same event answers with the first row and leaves its photo
        // alone; a retry without a date is the same event; any other field makes a row of its own.
        const QString five = QStringLiteral("SELECT GROUP_CONCAT(IFNULL(photo, '-') ORDER BY id) FROM inters_data WHERE refId = 5");
        const QJsonValue none = QJsonValue::Undefined;
        row("same event", "POST entrance", t, with(entrance(5), "image", "eA=="), "entrance-repeat", five, "-");
        row("retry without date", "POST entrance", t, with(entrance(5), "date", none), "208", five, "-");
        row("other reason", "POST entrance", t, with(entrance(5, 2), "image", "Qg=="), "201", five, "-,B");
        row("other type", "POST entrance", t, with(entrance(5), "type", 2), "201", five, "-,B,-");
        row("other date", "POST entrance", t, with(entrance(5), "date", "2024-05-01T08:00:01"), "201", five, "-,B,-,-");
        row("undated", "POST entrance", t, with(entrance(7), "date", none), "201");
        row("dated after undated", "POST entrance", t, QJsonDocument(entrance(7)).toJson(), "201", "SELECT COUNT(*) FROM inters_data WHERE refId = 7", "2");
        const QString noRef = QStringLiteral("SELECT COUNT(*) FROM inters_data WHERE IFNULL(refId, 0) = 0");
        row("no refId", "POST entrance", t, QJsonDocument(entrance(0)).toJson(), "201", noRef, "1");
        row("no refId, again", "POST entrance", t, QJsonDocument(entrance(0)).toJson(), "201", noRef, "2");
        row("entrance, unknown reason", "POST entrance", t, QJsonDocument(entrance(6, 999)).toJson(), "entrance-unknown-iid",
            "SELECT COUNT(*) FROM inters_data WHERE refId = 6", "0");
        const QJsonObject good = entrance(20);
        const QString stored = QStringLiteral("SELECT GROUP_CONCAT(description) FROM inters_data WHERE refId = 20");
        row("entrance: no uid", "POST entrance", t, with(good, "uid", QJsonValue::Undefined), "422 100301", stored);
        row("entrance: unknown person", "POST entrance", t, with(good, "uid", encodeId(1, 9999)), "400 100102", stored);
        row("entrance: iid text", "POST entrance", t, with(good, "iid", "abc"), "422 100305", stored);
        row("entrance: type text", "POST entrance", t, with(good, "type", "in"), "400 500", stored);
        // A terminal posts only as itself: its identifier or its number, nothing else.
        row("entrance: other terminal's tid", "POST entrance", t, with(good, "tid", kT2), "400 100102", stored);
        row("entrance: own tid number", "POST entrance", t, with(good, "tid", 1), "201", stored, "Front door");
        // Jana is known and linked to terminal 3: from terminal 2 she is updated, linked to it and
        // marked for every other linked terminal, before the write, so a repeat marks again; an empty
        // card leaves the stored one.
        const QString jana = QStringLiteral("SELECT CONCAT_WS(' ', surname, card, (SELECT GROUP_CONCAT(tid ORDER BY tid) FROM "
                                            "people_term WHERE uid = 1), (SELECT GROUP_CONCAT(tid ORDER BY tid) FROM term_sync "
                                            "WHERE ref_id = 1 AND flags = 2)) FROM people WHERE uid = 1");
        row("known pid, other terminal", "POST person", kT2, R"({"pid": 1001, "name": "Jana", "surname": "Nová", "card": ""})",
            "post-person-known", jana, "Nová 0001 2,3 3");
        row("known pid, unchanged", "POST person", kT2, R"({"pid": 1001, "name": "Jana", "surname": "Nová"})", "208", jana, "Nová 0001 2,3 3,3");
        // Crafted values are bound, stored as sent: closing a quote to set a column the statement
        // does not name (a terminal's pending marks, a person's admin flag); a backslash; a leading
        // colon, once a placeholder; percent signs with digits, once markers of the statement's text.
        const QString term = "SELECT CONCAT_WS('|', %1, syn) FROM term WHERE vorixID = ";
        const QString person = "SELECT CONCAT_WS('|', %1, admin) FROM people WHERE pid = ";
        const QList<std::tuple<const char *, QString, QJsonObject, QString>> operations = {
            {"register new", "POST terminal", {{"vid", 5001}, {"name", "Door"}}, term + "5001"},
            {"register known", "POST terminal", {{"vid", 101}, {"name", "Door"}}, term + "101"},
            {"update term", "PUT term/" + kT1, {}, term + "101"},
            {"post new person", "POST person", {{"pid", 3001}, {"name", "Eva"}}, person + "3001"},
            {"post known person", "POST person", {{"pid", 1001}, {"name", "Eva"}}, person + "1001"},
            {"update person", "PUT person/" + kT1 + "/" + kUid1, {}, person + "1001"}};
        for (const auto &[tag, request, base, check] : operations) {
            const bool isPerson = check.contains("admin");
            const QStringList fields = isPerson ? QStringList{"title", "name", "surname", "card"} : QStringList{"name", "mac", "ip", "ver"};
            const QStringList values = {isPerson ? "x\", admin=\"1" : "x\", syn=\"7", "x\\", ":vid", isPerson ? "A%2B x%1y %3" : "50%1 %2"};
            for (int i = 0; i < 4; ++i)
                QTest::addRow("%s %d", tag, i) << QString() << request << kT1 << with(base, fields.at(i), values.at(i)) << QString()
                                               << check.arg(fields.at(i)) << values.at(i) + "|0";
        }
    }

    void requests() { run(); }

    void unroutedReadsOfOnePerson()
    {
        // Reads no route serves yet, asked for one of a terminal's two people: that one only. The
        // link stays; the races and the feed use other terminals' rows.
        QVERIFY(m_fx->customer().exec("INSERT INTO people_term (uid, tid) VALUES (2, 3)"));
        TerminalRequestContext ctx;
        Response response(ctx.header);
        ctx.db = m_fx->customer().db(); ctx.response = &response;
        QVERIFY(dbGetSaldo(ctx, 3, 2) && response.data().toMap().keys() == QStringList{"2"});
        response.setData(dbGetPresent4Terminal(ctx, 3, 2));
        QCOMPARE(HttpReply::parse(response.renderResponse(true)).json().object().value("uid").toString(), encodeId(2, 1002));
    }
    void racesLeaveOneRow_data()
    {
        QTest::addColumn<QString>("word"); QTest::addColumn<QString>("otherTid");  // the path, the second copy's terminal
        QTest::addColumn<QString>("body");      // %1: the round's key, %2: the copy
        QTest::addColumn<QString>("check"); QTest::addColumn<QString>("expect");  // the key's rows after the round; both statuses, then those
        // Both copies may pass the lookup; the key lets one row through and hands its id to the other.
        QTest::newRow("entrance") << "entrance" << kT1 << "{\"uid\": \"" + kUid1 + "\", \"iid\": 1, \"type\": 1, \"refId\": %1, \"description\": \"%2\"}"
                                  << "SELECT COUNT(*) FROM inters_data WHERE refId = %1" << "201 208 1";
        // Each terminal sends its own card, so a late duplicate still changes the row.
        QTest::newRow("person") << "person" << kT2 << R"({"pid": %1, "name": "Race", "card": "%2"})"
                                << "SELECT CONCAT(COUNT(DISTINCT uid), '|', COUNT(*)) FROM people_term JOIN people USING(uid) WHERE pid = %1"
                                << "20[01] 201 1\\|2";
    }

    void racesLeaveOneRow()
    {
        QFETCH(QString, word); QFETCH(QString, otherTid); QFETCH(QString, body); QFETCH(QString, check); QFETCH(QString, expect);
        for (int key = 8001; key < 8006; ++key) {
            // Each copy on a thread and connection of its own, released together.
            QSemaphore ready, go;
            HttpReply replies[2]; QThread *threads[2];
            for (int i = 0; i < 2; ++i) {
                threads[i] = QThread::create([&, i]() {
                    WebApiWorker worker(QStringLiteral("2.4.1"));
                    worker.setDbManager(m_fx->manager());
                    m_fx->manager()->getDatabase(m_fx->token());  // the InfoDB asked before the start
                    ready.release();
                    go.acquire();
                    replies[i] = HttpReply::parse(worker.buildResponse("POST", QUrl("http://h/webapi/" + word),
                                                                       m_fx->terminalHeaders(i ? otherTid : kT1), body.arg(key).arg(i).toUtf8()));
                    // The manager's handle of this thread goes with it: a later thread may get its id.
                    QSqlDatabase::removeDatabase(m_fx->manager()->connectionNameFor(m_fx->token()));
                });
                threads[i]->start();
            }
            ready.acquire(2);
            go.release(2);
            for (QThread *thread : threads) { thread->wait(); delete thread; }
            const QString id = word == "person" ? "pid" : "eid";
            QCOMPARE(replies[0].json().object().value(id), replies[1].json().object().value(id));
            const QString got = QStringLiteral("%1 %2 %3").arg(std::min(replies[0].status, replies[1].status))
                                    .arg(std::max(replies[0].status, replies[1].status)).arg(sql(check.arg(key)));
            QVERIFY2(QRegularExpression("^" + expect + "$").match(got).hasMatch(), qPrintable(got));
        }
    }

    void sync_data()
    {
        // "FEED tid" and "FULL tid" read the feed and "ACK tid created flags" acknowledges it, on
        // tests/data/sync/feed.sql; the other rows run on writes.sql.
        columns();
        const auto row = [](const char *tag, const QString &request, const char *file, const QString &check = {},
                            const char *value = "", const QByteArray &body = {}, const char *before = "") {
            const QString data = request.startsWith('F') || request.startsWith('A') ? "sync/feed.sql;" : "sync/writes.sql;";
            QTest::newRow(tag) << data + before << request << QString() << body << (*file ? "sync/" + QString(file) : "200") << check
                               << QString::fromUtf8(value);
        };
        // Reading marks the terminal online, known or not, and removes no mark.
        const QString read = QStringLiteral("SELECT CONCAT_WS(' ', (SELECT COUNT(*) FROM term_sync), (SELECT GROUP_CONCAT(syn "
                                            "ORDER BY tid) FROM term), (SELECT GROUP_CONCAT(tid) FROM term WHERE online > 0))");
        row("nothing pending", "FEED 1", "nothing-pending", read, "17 0,479,20,2 1");
        row("forced full copy", "FULL 1", "forced-full", read, "17 0,479,20,2 1");
        row("switched off", "FEED 3", "switched-off", read, "17 0,479,20,2 3");
        row("every section pending", "FEED 2", "pending", read, "17 0,479,20,2 2");
        row("forced over a pending D", "FULL 4", "forced-over-delete", read, "17 0,479,20,2 4");
        row("unknown terminal", "FULL 99", "unknown-terminal", read, "17 0,479,20,2");
        // Terminal 2 starts with syn 479: bits 1, 2, 4, 8, 64, 256 marked, 16 and 128 not.
        const QString marks = QStringLiteral("SELECT CONCAT_WS(' ', syn, (SELECT COUNT(*) FROM term_sync s WHERE s.tid = t.tid)) "
                                             "FROM term t WHERE tid = %1");
        row("limit is strict", "ACK 2 1700000150 2", "", marks.arg(2), "335 14");
        row("named bit only", "ACK 2 1700000300 2", "", marks.arg(2), "333 11");
        row("mark of two bits goes by AND", "ACK 2 1700000300 1", "", marks.arg(2), "334 13");
        row("bit without marks", "ACK 2 1700000300 16", "", marks.arg(2), "335 15");
        row("last mark gone", "ACK 3 1700000500 4", "", marks.arg(3), "0 0");

        const QString t1 = encodeId(1, 201), jana = encodeId(1, 2001);
        const QString termRow = QStringLiteral("SELECT CONCAT_WS('|', name, mac, ip, ver, status) FROM term WHERE tid = 1");
        const QString janaRow = QStringLiteral("SELECT CONCAT_WS('|', name, surname, title, admin) FROM people WHERE uid = 1");
        const QString deleted = QStringLiteral("SELECT GROUP_CONCAT(del ORDER BY id SEPARATOR '') FROM inters_data");
        const QString links = QStringLiteral("SELECT CONCAT((SELECT COUNT(*) FROM people_term WHERE uid = 1), '|', "
                                             "(SELECT COUNT(*) FROM people WHERE uid = 1))");
        // An empty ip is no update; name and ver are trimmed.
        row("put term", "PUT term/" + t1, "empty", termRow, "Door 2|aa:bb|10.0.0.1|2.0|1", R"({"name": " Door 2 ", "ip": "", "ver": "2.0"})");
        row("put term of nobody", "PUT term/" + encodeId(9, 209), "no-terminal", termRow, "Door|aa:bb|10.0.0.1|1.0|1", R"({"name": "X"})");
        row("put term retired", "PUT term/" + encodeId(3, 203), "no-terminal", "SELECT name FROM term WHERE tid = 3", "Retired", R"({"name": "X"})");
        row("put term bad body", "PUT term/" + t1, "put-bad-body", termRow, "Door|aa:bb|10.0.0.1|1.0|1", R"({"name": )");
        // admin true is 1, and so is any value spelled true; an empty name changes nothing.
        row("put person", "PUT person/" + t1 + "/" + jana, "put-person", janaRow, "Jana|Nová|1|1",
            R"({"admin": true, "title": "True", "name": "", "surname": " Nová "})");
        row("put person admin FALSE", "PUT person/" + t1 + "/" + encodeId(2, 2002), "put-person-petr",
            "SELECT admin FROM people WHERE uid = 2", "0", R"({"admin": "FALSE"})");
        // From terminal 2: every other linked terminal gets a mark; only the active ones the bit.
        row("put person from another terminal", "PUT person/" + encodeId(2, 202) + "/" + jana, "",
            "SELECT CONCAT_WS(' ', (SELECT GROUP_CONCAT(CONCAT_WS(':', tid, type, flags) ORDER BY tid) FROM term_sync WHERE "
            "ref = 'people_term' AND ref_id = 1 AND created > 1700000100), (SELECT GROUP_CONCAT(syn ORDER BY tid) FROM term), "
            "(SELECT card FROM people WHERE uid = 1))",
            "1:U:2,3:U:2 2,0,0 C-99", R"({"card": "C-99"})", "UPDATE term SET syn = 0");
        row("put person unchanged", "PUT person/" + t1 + "/" + jana, "already-reported",
            "SELECT COUNT(*) FROM term_sync WHERE ref = 'people_term' AND tid != 1", "0", R"({"name": "Jana"})");
        row("put person unknown", "PUT person/" + t1 + "/" + encodeId(1, 2002), "no-person", janaRow, "Jana|Nováková|Ing.|0", R"({"name": "X"})");
        // A person is never deleted: only the link to this terminal goes.
        row("delete person", "DELETE person/" + t1 + "/" + jana, "empty", links, "2|1");
        row("delete person not linked", "DELETE person/" + t1 + "/" + jana, "already-reported", links, "2|1", {},
            "DELETE FROM people_term WHERE uid = 1 AND tid = 1");
        row("delete entrance", "DELETE entrance/" + t1 + "/" + encodeId(1, 7), "empty", deleted, "101");
        row("delete entrance of another terminal", "DELETE entrance/" + t1 + "/" + encodeId(2, 3), "already-reported", deleted, "001");
        // Acknowledges the two people marks before 1700000250; the balance mark keeps bit 4.
        const QString ownMarks = QStringLiteral("SELECT CONCAT(COUNT(*), '|', (SELECT syn FROM term WHERE tid = 1)) FROM term_sync WHERE tid = 1");
        row("delete sync", "DELETE sync/" + t1 + "/" + encodeId(1700000250, 2), "delete-sync", ownMarks, "1|4");
        row("delete sync in the future", "DELETE sync/" + t1 + "/" + encodeId(uint(QDateTime::currentSecsSinceEpoch() + 3600), 2),
            "delete-sync-future", ownMarks, "3|6");
    }

    void sync() { run(); }

private:
    void run()
    {
        QFETCH(QString, setup); QFETCH(QString, request); QFETCH(QString, tid); QFETCH(QByteArray, body);
        QFETCH(QString, expect); QFETCH(QString, check); QFETCH(QString, rows);
        QString error;
        for (const QString &step : setup.split(';', Qt::SkipEmptyParts))
            QVERIFY2(step.endsWith(".sql") ? TestServer::loadSqlFile(m_fx->customer().name(), WEBAPI_TEST_DATA "/" + step, &error)
                                           : m_fx->customer().exec(step), qPrintable(error));
        const qint64 start = QDateTime::currentSecsSinceEpoch();
        const QStringList words = request.split(' ');
        // One terminal request's context on the fixture's customer database, for the units.
        TerminalRequestContext ctx;
        ctx.header = parseRequestHeader(m_fx->terminalHeaders(tid));
        Response response(ctx.header);
        response.setHeader(QStringLiteral("X-WEBAPI-VER"), QStringLiteral("2.4.1"));
        ctx.db = m_fx->customer().db(); ctx.response = &response;
        QSignalSpy created(m_fx->worker(), &WebApiWorker::recordCreated);
        QByteArray raw;
        if (words.first() == "ACK")
            dbDeleteSync(ctx, words.at(1).toUInt(), words.at(2).toUInt(), quint16(words.at(3).toUInt()));
        else if (words.first().startsWith('F'))
            dbGetSync(ctx, words.at(1).toUInt(), words.first() == "FULL");
        else if (words.first() == "PUT" || words.first() == "DELETE")
            TerminalRouter(TerminalRoutes::withUnrouted()).route(ctx, words.first(), words.at(1).split('/'), body);
        else
            raw = m_fx->call(words.first(), "/webapi/" + words.at(1), m_fx->terminalHeaders(tid), body);
        if (raw.isEmpty())
            raw = response.renderResponse(true);
        const HttpReply reply = HttpReply::parse(raw);
        // Only a new entrance with a photo goes on to the host.
        QCOMPARE(created.count(), int(reply.status == 201 && body.contains("\"image\"")));
        if (!expect.isEmpty() && expect.at(0).isDigit()) {
            // The status, and the code where one is given.
            QCOMPARE(QStringLiteral("%1 %2").arg(reply.status).arg(reply.errorCode()).left(expect.size()), expect);
        } else if (!expect.isEmpty()) {
            // New rows are stamped now: a person begins at today's midnight, an entrance is created
            // now, a full copy's rows carry the present time, marks their fixed past one.
            QString text = QString::fromUtf8(maskTms(raw)).replace(QDate::currentDate().toString(Qt::ISODate), "<TODAY>");
            text.replace(QRegularExpression("\"created\": \"[^\"]+\""), "\"created\": \"<NOW>\"");
            for (qint64 now = start; now <= QDateTime::currentSecsSinceEpoch(); ++now)
                text.replace("\"tsc\": " + QString::number(now), "\"tsc\": \"<now>\"");
            if (words.first().startsWith('F'))
                text.replace(QRegularExpression("Content-Length: \\d+"), "Content-Length: <n>");
            // The future limit of a refused acknowledgement moves with the clock; its identifier is
            // always 16 characters, which the expected Content-Length counts.
            if (expect.endsWith("future"))
                text.replace(request.section('/', -1), "<ID>");
            COMPARE_EXPECTED(text.toUtf8(), expect + ".http");
        }
        if (!check.isEmpty())
            QCOMPARE(sql(check), rows);
    }
    QString sql(const QString &query) { return m_fx->customer().scalar(query).toString(); }
    QScopedPointer<ApiFixture> m_fx;
};

QTEST_GUILESS_MAIN(TestTerminalContext)
#include "tst_terminalcontext.moc"

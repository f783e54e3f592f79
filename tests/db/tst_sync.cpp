// The terminal synchronisation feed, its acknowledgement, and PUT and DELETE of the terminal
// context: not routed by the plug-in, so called through the units with a request context.
#include "support/apifixture.h"
#include "support/terminalunit.h"

#include "terminal/identifiers.h"
#include "terminal/syncfeed.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QtTest>

class TestSync : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void requests_data();
    void requests();

private:
    QString sql(const QString &query) { return m_fx->customer().scalar(query).toString(); }

    QScopedPointer<ApiFixture> m_fx;
};

void TestSync::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("sync")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
}

void TestSync::requests_data()
{
    // "FEED tid" and "FULL tid" read the feed and "ACK tid created flags" acknowledges it, on
    // tests/data/sync/feed.sql; anything else is a method and a path, on writes.sql.
    QTest::addColumn<QString>("request");
    QTest::addColumn<QString>("before");  // a statement run first
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("file");    // the whole response expected, if any
    QTest::addColumn<QString>("check");   // a statement on the database after the request...
    QTest::addColumn<QString>("value");   // ...and its answer

    const auto row = [](const char *tag, const QString &request, const char *file, const QString &check = {},
                        const char *value = "", const QByteArray &body = {}, const char *before = "") {
        QTest::newRow(tag) << request << QString::fromLatin1(before) << body << QString::fromLatin1(file) << check
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

    const QString t1 = encodeId(1, 201);
    const QString jana = encodeId(1, 2001);
    const QString termRow = QStringLiteral("SELECT CONCAT_WS('|', name, mac, ip, ver, status) FROM term WHERE tid = 1");
    const QString janaRow = QStringLiteral("SELECT CONCAT_WS('|', name, surname, title, admin) FROM people WHERE uid = 1");
    const QString deleted = QStringLiteral("SELECT GROUP_CONCAT(del ORDER BY id SEPARATOR '') FROM inters_data");
    const QString links = QStringLiteral("SELECT CONCAT((SELECT COUNT(*) FROM people_term WHERE uid = 1), '|', "
                                         "(SELECT COUNT(*) FROM people WHERE uid = 1))");
    // An empty ip is no update; name and ver are trimmed.
    row("put term", "PUT term/" + t1, "empty", termRow, "Door 2|aa:bb|10.0.0.1|2.0|1", R"({"name": " Door 2 ", "ip": "", "ver": "2.0"})");
    row("put term of nobody", "PUT term/" + encodeId(9, 209), "no-terminal", termRow, "Door|aa:bb|10.0.0.1|1.0|1", R"({"name": "X"})");
    row("put term retired", "PUT term/" + encodeId(3, 203), "no-terminal", "SELECT name FROM term WHERE tid = 3", "Retired",
        R"({"name": "X"})");
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
    row("put person unknown", "PUT person/" + t1 + "/" + encodeId(1, 2002), "no-person", janaRow, "Jana|Nováková|Ing.|0",
        R"({"name": "X"})");
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

void TestSync::requests()
{
    QFETCH(QString, request);
    QFETCH(QString, before);
    QFETCH(QByteArray, body);
    QFETCH(QString, file);
    QFETCH(QString, check);
    QFETCH(QString, value);
    const QStringList words = request.split(QLatin1Char(' '));
    const QString verb = words.first();
    const bool feed = verb == "FEED" || verb == "FULL" || verb == "ACK";
    QString error;
    QVERIFY2(TestServer::loadSqlFile(m_fx->customer().name(),
                                     QStringLiteral(WEBAPI_TEST_DATA "/sync/") + (feed ? "feed.sql" : "writes.sql"), &error),
             qPrintable(error));
    if (!before.isEmpty())
        QVERIFY(m_fx->customer().exec(before));
    const qint64 start = QDateTime::currentSecsSinceEpoch();
    TerminalUnit unit(*m_fx);
    QByteArray raw;
    if (verb == "ACK")
        dbDeleteSync(unit.ctx, words.at(1).toUInt(), words.at(2).toUInt(), quint16(words.at(3).toUInt()));
    else if (feed)
        dbGetSync(unit.ctx, words.at(1).toUInt(), verb == "FULL");
    raw = maskTms(feed ? unit.response.renderResponse(true) : unit.route(verb, words.at(1), body));
    // Full rows carry the server's present time, marks their fixed past one.
    QString text = QString::fromUtf8(raw);
    QRegularExpressionMatchIterator it = QRegularExpression(QStringLiteral("\"tsc\": (\\d+)")).globalMatch(text);
    QList<QRegularExpressionMatch> now;
    while (it.hasNext()) {
        const QRegularExpressionMatch match = it.next();
        if (match.captured(1).toLongLong() >= start)
            now.prepend(match);  // replaced back to front, so offsets stay right
    }
    for (const QRegularExpressionMatch &match : now)
        text.replace(match.capturedStart(1), match.capturedLength(1), QStringLiteral("\"<now>\""));
    if (feed)
        text.replace(QRegularExpression(QStringLiteral("Content-Length: \\d+")), QStringLiteral("Content-Length: <n>"));
    // The future limit of a refused acknowledgement moves with the clock; its identifier is
    // always 16 characters, which the expected Content-Length counts.
    if (file == "delete-sync-future")
        text.replace(request.section(QLatin1Char('/'), -1), QStringLiteral("<ID>"));
    if (!file.isEmpty())
        COMPARE_EXPECTED(text.toUtf8(), "sync/" + file + ".http");
    QCOMPARE(sql(check), value);
}

QTEST_GUILESS_MAIN(TestSync)
#include "tst_sync.moc"

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
    void init();
    void feed_data();
    void feed();
    void acknowledge_data();
    void acknowledge();
    void writes_data();
    void writes();

private:
    QString sql(const QString &query) { return m_fx->customer().scalar(query).toString(); }

    QScopedPointer<ApiFixture> m_fx;
    qint64 m_start = 0;
};

void TestSync::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("sync")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
}

void TestSync::init()
{
    const bool write = QTest::currentTestFunction() == QByteArray("writes");
    QString error;
    QVERIFY2(TestServer::loadSqlFile(m_fx->customer().name(),
                                     QStringLiteral(WEBAPI_TEST_DATA "/sync/") + (write ? "writes.sql" : "feed.sql"), &error),
             qPrintable(error));
    m_start = QDateTime::currentSecsSinceEpoch();
}

void TestSync::feed_data()
{
    QTest::addColumn<uint>("tid");
    QTest::addColumn<bool>("force");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QString>("expectedFile");

    QTest::newRow("nothing pending") << 1u << false << false << "sync/nothing-pending.http";
    QTest::newRow("forced full copy") << 1u << true << true << "sync/forced-full.http";
    QTest::newRow("switched off") << 3u << false << true << "sync/switched-off.http";
    QTest::newRow("every section pending") << 2u << false << true << "sync/pending.http";
    QTest::newRow("forced over a pending D") << 4u << true << true << "sync/forced-over-delete.http";
    QTest::newRow("unknown terminal") << 99u << true << false << "sync/unknown-terminal.http";
}

void TestSync::feed()
{
    QFETCH(uint, tid);
    QFETCH(bool, force);
    QFETCH(bool, result);
    QFETCH(QString, expectedFile);
    const QString marks = QStringLiteral("SELECT CONCAT((SELECT COUNT(*) FROM term_sync), (SELECT GROUP_CONCAT(syn) FROM term))");
    const QString before = sql(marks);
    TerminalUnit unit(*m_fx);
    QCOMPARE(dbGetSync(unit.ctx, tid, force), result);
    // Full rows carry the server's present time, marks their fixed past one.
    QString text = QString::fromUtf8(maskTms(unit.response.renderResponse(true)));
    QRegularExpressionMatchIterator it = QRegularExpression(QStringLiteral("\"tsc\": (\\d+)")).globalMatch(text);
    QList<QRegularExpressionMatch> now;
    while (it.hasNext()) {
        const QRegularExpressionMatch match = it.next();
        if (match.captured(1).toLongLong() >= m_start)
            now.prepend(match);  // replaced back to front, so offsets stay right
    }
    for (const QRegularExpressionMatch &match : now)
        text.replace(match.capturedStart(1), match.capturedLength(1), QStringLiteral("\"<now>\""));
    text.replace(QRegularExpression(QStringLiteral("Content-Length: \\d+")), QStringLiteral("Content-Length: <n>"));
    COMPARE_EXPECTED(text.toUtf8(), expectedFile);
    // Reading marks the terminal online, known or not, and removes no mark.
    QVERIFY(sql(QStringLiteral("SELECT online FROM term WHERE tid = %1").arg(tid)).toLongLong() >= (tid == 99 ? 0 : m_start));
    QCOMPARE(sql(marks), before);
}

void TestSync::acknowledge_data()
{
    QTest::addColumn<uint>("tid");
    QTest::addColumn<uint>("created");
    QTest::addColumn<uint>("flags");
    QTest::addColumn<int>("deleted");
    QTest::addColumn<uint>("syn");
    QTest::addColumn<int>("remaining");

    // Terminal 2 starts with syn 479: bits 1, 2, 4, 8, 64, 256 marked, 16 and 128 not.
    QTest::newRow("limit is strict") << 2u << 1700000150u << 2u << 1 << 335u << 14;
    QTest::newRow("named bit only") << 2u << 1700000300u << 2u << 4 << 333u << 11;
    QTest::newRow("mark of two bits goes by AND") << 2u << 1700000300u << 1u << 2 << 334u << 13;
    QTest::newRow("bit without marks") << 2u << 1700000300u << 16u << 0 << 335u << 15;
    QTest::newRow("last mark gone") << 3u << 1700000500u << 4u << 1 << 0u << 0;
}

void TestSync::acknowledge()
{
    QFETCH(uint, tid);
    QFETCH(uint, created);
    QFETCH(uint, flags);
    QFETCH(int, deleted);
    QFETCH(uint, syn);
    QFETCH(int, remaining);
    TerminalUnit unit(*m_fx);
    QCOMPARE(dbDeleteSync(unit.ctx, tid, created, quint16(flags)), deleted);
    QCOMPARE(sql(QStringLiteral("SELECT syn FROM term WHERE tid = %1").arg(tid)).toUInt(), syn);
    QCOMPARE(sql(QStringLiteral("SELECT COUNT(*) FROM term_sync WHERE tid = %1").arg(tid)).toInt(), remaining);
    QCOMPARE(unit.response.errorCode(), 0);
}

void TestSync::writes_data()
{
    QTest::addColumn<QString>("request");  // method and path below /webapi/
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("times");
    QTest::addColumn<QString>("expectedFile");
    QTest::addColumn<QString>("check");
    QTest::addColumn<QString>("value");

    const QString t1 = encodeId(1, 201);
    const QString jana = encodeId(1, 2001);
    const QString termRow = QStringLiteral("SELECT CONCAT_WS('|', name, mac, ip, ver, status) FROM term WHERE tid = 1");
    const QString janaRow = QStringLiteral("SELECT CONCAT_WS('|', name, surname, title, admin) FROM people WHERE uid = 1");
    const QString marks = QStringLiteral("SELECT CONCAT(COUNT(*), '|', (SELECT syn FROM term WHERE tid = 1)) FROM term_sync WHERE tid = 1");
    const QString deleted = QStringLiteral("SELECT GROUP_CONCAT(del ORDER BY id SEPARATOR '') FROM inters_data");
    const QString janaLinks = QStringLiteral("SELECT CONCAT((SELECT COUNT(*) FROM people_term WHERE uid = 1), '|', "
                                             "(SELECT COUNT(*) FROM people WHERE uid = 1))");
    const auto row = [](const char *tag, const QString &request, const QByteArray &body, int times, const char *file,
                        const QString &check, const char *value) {
        QTest::newRow(tag) << request << body << times << QString::fromLatin1(file) << check << QString::fromUtf8(value);
    };
    // An empty ip is no update; name and ver are trimmed.
    row("put term", "PUT term/" + t1, R"({"name": " Door 2 ", "ip": "", "ver": "2.0"})", 1, "sync/empty.http", termRow,
        "Door 2|aa:bb|10.0.0.1|2.0|1");
    row("put term of nobody", "PUT term/" + encodeId(9, 209), R"({"name": "X"})", 1, "sync/no-terminal.http", termRow,
        "Door|aa:bb|10.0.0.1|1.0|1");
    row("put term retired", "PUT term/" + encodeId(3, 203), R"({"name": "X"})", 1, "sync/no-terminal.http",
        "SELECT name FROM term WHERE tid = 3", "Retired");
    row("put term bad body", "PUT term/" + t1, R"({"name": )", 1, "sync/put-bad-body.http", termRow, "Door|aa:bb|10.0.0.1|1.0|1");
    // admin true is 1, and so is any value spelled true; an empty name changes nothing.
    row("put person", "PUT person/" + t1 + "/" + jana, R"({"admin": true, "title": "True", "name": "", "surname": " Nová "})",
        1, "sync/put-person.http", janaRow, "Jana|Nová|1|1");
    row("put person admin FALSE", "PUT person/" + t1 + "/" + encodeId(2, 2002), R"({"admin": "FALSE"})", 1,
        "sync/put-person-petr.http", "SELECT admin FROM people WHERE uid = 2", "0");
    // From terminal 2: every other linked terminal gets a mark; only the active ones the bit.
    row("put person from another terminal", "PUT person/" + encodeId(2, 202) + "/" + jana, R"({"card": "C-99"})", 1, nullptr,
        "SELECT CONCAT_WS(' ', (SELECT GROUP_CONCAT(CONCAT_WS(':', tid, type, flags) ORDER BY tid) FROM term_sync WHERE "
        "ref = 'people_term' AND ref_id = 1 AND created > 1700000100), (SELECT GROUP_CONCAT(syn ORDER BY tid) FROM term), "
        "(SELECT card FROM people WHERE uid = 1))",
        "1:U:2,3:U:2 2,0,0 C-99");
    row("put person unchanged", "PUT person/" + t1 + "/" + jana, R"({"name": "Jana"})", 1, "sync/already-reported.http",
        "SELECT COUNT(*) FROM term_sync WHERE ref = 'people_term' AND tid != 1", "0");
    row("put person unknown", "PUT person/" + t1 + "/" + encodeId(1, 2002), R"({"name": "X"})", 1, "sync/no-person.http",
        janaRow, "Jana|Nováková|Ing.|0");
    // A person is never deleted: only the link to this terminal goes.
    row("delete person", "DELETE person/" + t1 + "/" + jana, {}, 1, "sync/empty.http", janaLinks, "2|1");
    row("delete person twice", "DELETE person/" + t1 + "/" + jana, {}, 2, "sync/already-reported.http", janaLinks, "2|1");
    row("delete entrance", "DELETE entrance/" + t1 + "/" + encodeId(1, 7), {}, 1, "sync/empty.http", deleted, "101");
    row("delete entrance of another terminal", "DELETE entrance/" + t1 + "/" + encodeId(2, 3), {}, 1,
        "sync/already-reported.http", deleted, "001");
    // Acknowledges the two people marks before 1700000250; the balance mark keeps bit 4.
    row("delete sync", "DELETE sync/" + t1 + "/" + encodeId(1700000250, 2), {}, 1, "sync/delete-sync.http", marks, "1|4");
    row("delete sync in the future",
        "DELETE sync/" + t1 + "/" + encodeId(uint(QDateTime::currentSecsSinceEpoch() + 3600), 2), {}, 1,
        "sync/delete-sync-future.http", marks, "3|6");
}

void TestSync::writes()
{
    QFETCH(QString, request);
    QFETCH(QByteArray, body);
    QFETCH(int, times);
    QFETCH(QString, expectedFile);
    QFETCH(QString, check);
    QFETCH(QString, value);
    if (QTest::currentDataTag() == QByteArray("put person from another terminal"))
        QVERIFY(m_fx->customer().exec(QStringLiteral("UPDATE term SET syn = 0")));
    QByteArray raw;
    for (int i = 0; i < times; ++i)
        raw = TerminalUnit(*m_fx).route(request.section(QLatin1Char(' '), 0, 0), request.section(QLatin1Char(' '), 1), body);
    // The future limit of a refused acknowledgement moves with the clock; its identifier is
    // always 16 characters, which the expected Content-Length counts.
    raw = maskTms(raw);
    if (QTest::currentDataTag() == QByteArray("delete sync in the future"))
        raw.replace(request.section(QLatin1Char('/'), -1).toUtf8(), "<ID>");
    if (!expectedFile.isEmpty())
        COMPARE_EXPECTED(raw, expectedFile);
    QCOMPARE(sql(check), value);
}

QTEST_GUILESS_MAIN(TestSync)
#include "tst_sync.moc"

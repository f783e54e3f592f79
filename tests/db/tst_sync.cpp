// The terminal synchronisation feed, its acknowledgement, and PUT and DELETE of the terminal
// context. The shipped routing refuses all of them; SeamWorker calls them after the spine's
// own checks, so the rows they change can be checked.
#include "support/apifixture.h"
#include "support/seamworker.h"

#include "response/response.h"
#include "worker/webapiworker.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QtTest>

namespace {

const QString kTerm1 = WebApiWorker::encodeId(1, 201);
const QString kJana = WebApiWorker::encodeId(1, 2001);
const QString kPetr = WebApiWorker::encodeId(2, 2002);

QString path(const QStringList &words)
{
    return QStringLiteral("/webapi/") + words.join(QLatin1Char('/'));
}

} // namespace

class TestSync : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void feed_data();
    void feed();
    void inactiveTerminalIsStillOnline();
    void readingTwiceChangesNothing();
    void acknowledge_data();
    void acknowledge();
    void shippedRoutingRefuses_data();
    void shippedRoutingRefuses();
    void writes_data();
    void writes();
    void putPersonMarksOtherTerminals();

private:
    // The feed's response text with the stamps of this run masked: full rows carry the
    // server's present time, marks their fixed past time.
    QByteArray renderedFeed();
    uint termColumn(uint tid, const QString &column);

    QScopedPointer<ApiFixture> m_fx;
    QScopedPointer<SeamWorker> m_worker;
    qint64 m_start = 0;
};

void TestSync::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("sync")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    m_worker.reset(new SeamWorker());
    m_worker->setDbManager(m_fx->manager());
}

void TestSync::init()
{
    // The writes have rows of their own.
    const QByteArray test = QTest::currentTestFunction();
    const bool write = test == "writes" || test == "shippedRoutingRefuses" || test == "putPersonMarksOtherTerminals";
    const QString fixture = write ? QStringLiteral("writes.sql") : QStringLiteral("feed.sql");
    QString error;
    QVERIFY2(TestServer::loadSqlFile(m_fx->customer().name(), QStringLiteral(WEBAPI_TEST_DATA "/sync/") + fixture, &error),
             qPrintable(error));
    m_start = QDateTime::currentSecsSinceEpoch();
    QVERIFY(m_worker->prepare(m_fx->terminalHeaders()));
}

QByteArray TestSync::renderedFeed()
{
    QByteArray text = maskTms(m_worker->response()->renderResponse(true));
    static const QRegularExpression tsc(QStringLiteral("\"tsc\": (\\d+)"));
    QString masked = QString::fromUtf8(text);
    QRegularExpressionMatchIterator it = tsc.globalMatch(masked);
    QList<QRegularExpressionMatch> now;
    while (it.hasNext()) {
        const QRegularExpressionMatch match = it.next();
        if (match.captured(1).toLongLong() >= m_start)
            now.prepend(match);  // replaced back to front, so offsets stay right
    }
    for (const QRegularExpressionMatch &match : now)
        masked.replace(match.capturedStart(1), match.capturedLength(1), QStringLiteral("\"<now>\""));
    // Content-Length follows the real stamps; the masked text would not match it.
    masked.replace(QRegularExpression(QStringLiteral("Content-Length: \\d+")), QStringLiteral("Content-Length: <n>"));
    return masked.toUtf8();
}

uint TestSync::termColumn(uint tid, const QString &column)
{
    return m_fx->customer().scalar(QStringLiteral("SELECT %1 FROM term WHERE tid = %2").arg(column).arg(tid)).toUInt();
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
    QCOMPARE(m_worker->dbGetSync(tid, force), result);
    COMPARE_EXPECTED(renderedFeed(), expectedFile);
}

void TestSync::inactiveTerminalIsStillOnline()
{
    QVERIFY(m_worker->dbGetSync(3, true));
    QVERIFY(termColumn(3, QStringLiteral("online")) >= m_start);
    QCOMPARE(termColumn(2, QStringLiteral("online")), 0u);
}

void TestSync::readingTwiceChangesNothing()
{
    const QString marks = QStringLiteral("SELECT COUNT(*) FROM term_sync");
    const uint before = m_fx->customer().scalar(marks).toUInt();
    QVERIFY(m_worker->dbGetSync(2, false));
    const QVariant first = m_worker->response()->data();
    QVERIFY(m_worker->dbGetSync(2, false));
    QCOMPARE(m_worker->response()->data(), first);
    QCOMPARE(m_fx->customer().scalar(marks).toUInt(), before);
    QCOMPARE(termColumn(2, QStringLiteral("syn")), 479u);
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
    QCOMPARE(m_worker->dbDeleteSync(tid, created, quint16(flags)), deleted);
    QCOMPARE(termColumn(tid, QStringLiteral("syn")), syn);
    QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT COUNT(*) FROM term_sync WHERE tid = %1").arg(tid)).toInt(),
             remaining);
    QCOMPARE(m_worker->response()->errorCode(), 0);
}



void TestSync::shippedRoutingRefuses_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expectedFile");

    QTest::newRow("put person") << "PUT" << path({"person", kTerm1, kJana}) << "sync/shipped-put.http";
    QTest::newRow("delete sync") << "DELETE" << path({"sync", kTerm1, WebApiWorker::encodeId(1700000250, 2)})
                                 << "sync/shipped-delete.http";
}

void TestSync::shippedRoutingRefuses()
{
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(QString, expectedFile);
    const QByteArray body = method == QLatin1String("PUT") ? QByteArray("{\"name\": \"X\"}") : QByteArray();
    COMPARE_EXPECTED(maskTms(m_fx->call(method, path, m_fx->terminalHeaders(), body)), expectedFile);
    QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT COUNT(*) FROM term_sync")).toInt(), 3);
    QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT name FROM people WHERE uid = 1")).toString(),
             QStringLiteral("Jana"));
}

void TestSync::writes_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("times");
    QTest::addColumn<QString>("expectedFile");
    QTest::addColumn<QString>("checkSql");
    QTest::addColumn<QString>("checkValue");

    const QString termRow = QStringLiteral("SELECT CONCAT_WS('|', name, mac, ip, ver, status) FROM term WHERE tid = 1");
    const QString janaRow = QStringLiteral("SELECT CONCAT_WS('|', name, surname, title, admin) FROM people WHERE uid = 1");
    const QString marks = QStringLiteral("SELECT CONCAT(COUNT(*), '|', (SELECT syn FROM term WHERE tid = 1)) "
                                         "FROM term_sync WHERE tid = 1");
    const QString put = QStringLiteral("PUT");
    const QString del = QStringLiteral("DELETE");

    // An empty ip is no update; name and ver are trimmed.
    QTest::newRow("put term") << put << path({"term", kTerm1}) << QByteArray("{\"name\": \" Door 2 \", \"ip\": \"\", \"ver\": \"2.0\"}")
                              << 1 << "sync/empty.http" << termRow << "Door 2|aa:bb|10.0.0.1|2.0|1";
    QTest::newRow("put term of nobody") << put << path({"term", WebApiWorker::encodeId(9, 209)}) << QByteArray("{\"name\": \"X\"}")
                                        << 1 << "sync/no-terminal.http" << termRow << "Door|aa:bb|10.0.0.1|1.0|1";
    QTest::newRow("put term retired") << put << path({"term", WebApiWorker::encodeId(3, 203)}) << QByteArray("{\"name\": \"X\"}")
                                      << 1 << "sync/no-terminal.http"
                                      << "SELECT name FROM term WHERE tid = 3" << "Retired";
    QTest::newRow("put term bad body") << put << path({"term", kTerm1}) << QByteArray("{\"name\": ")
                                       << 1 << "sync/put-bad-body.http" << termRow << "Door|aa:bb|10.0.0.1|1.0|1";
    // admin true is 1, and so is any value spelled true; an empty name changes nothing.
    QTest::newRow("put person") << put << path({"person", kTerm1, kJana})
                                << QByteArray("{\"admin\": true, \"title\": \"True\", \"name\": \"\", \"surname\": \" Nová \"}")
                                << 1 << "sync/put-person.http" << janaRow << "Jana|Nová|1|1";
    QTest::newRow("put person admin FALSE") << put << path({"person", kTerm1, kPetr}) << QByteArray("{\"admin\": \"FALSE\"}")
                                            << 1 << "sync/put-person-petr.http"
                                            << "SELECT admin FROM people WHERE uid = 2" << "0";
    QTest::newRow("put person unchanged") << put << path({"person", kTerm1, kJana}) << QByteArray("{\"name\": \"Jana\"}")
                                          << 1 << "sync/already-reported.http"
                                          << "SELECT COUNT(*) FROM term_sync WHERE ref = 'people_term' AND tid != 1" << "0";
    QTest::newRow("put person unknown") << put << path({"person", kTerm1, WebApiWorker::encodeId(1, 2002)})
                                        << QByteArray("{\"name\": \"X\"}") << 1 << "sync/no-person.http" << janaRow
                                        << "Jana|Nováková|Ing.|0";

    // A person is never deleted: only the link to this terminal goes.
    const QString janaLinks = QStringLiteral("SELECT CONCAT((SELECT COUNT(*) FROM people_term WHERE uid = 1), '|', "
                                             "(SELECT COUNT(*) FROM people WHERE uid = 1))");
    QTest::newRow("delete person") << del << path({"person", kTerm1, kJana}) << QByteArray()
                                   << 1 << "sync/empty.http" << janaLinks << "2|1";
    QTest::newRow("delete person twice") << del << path({"person", kTerm1, kJana}) << QByteArray()
                                         << 2 << "sync/already-reported.http" << janaLinks << "2|1";
    const QString deleted = QStringLiteral("SELECT GROUP_CONCAT(del ORDER BY id SEPARATOR '') FROM inters_data");
    QTest::newRow("delete entrance") << del << path({"entrance", kTerm1, WebApiWorker::encodeId(1, 7)}) << QByteArray()
                                     << 1 << "sync/empty.http" << deleted << "101";
    QTest::newRow("delete entrance twice") << del << path({"entrance", kTerm1, WebApiWorker::encodeId(1, 7)})
                                           << QByteArray() << 2 << "sync/already-reported.http" << deleted << "101";
    QTest::newRow("delete entrance withdrawn") << del << path({"entrance", kTerm1, WebApiWorker::encodeId(3, 8)})
                                               << QByteArray() << 1 << "sync/already-reported.http" << deleted << "001";
    QTest::newRow("delete entrance of another terminal") << del << path({"entrance", kTerm1, WebApiWorker::encodeId(2, 3)})
                                                         << QByteArray() << 1 << "sync/already-reported.http" << deleted
                                                         << "001";
    // Acknowledges the two people marks before 1700000250; the balance mark keeps bit 4.
    QTest::newRow("delete sync") << del << path({"sync", kTerm1, WebApiWorker::encodeId(1700000250, 2)}) << QByteArray()
                                 << 1 << "sync/delete-sync.http" << marks << "1|4";
    QTest::newRow("delete sync in the future")
        << del << path({"sync", kTerm1, WebApiWorker::encodeId(uint(QDateTime::currentSecsSinceEpoch() + 3600), 2)})
        << QByteArray() << 1 << "sync/delete-sync-future.http" << marks << "3|6";
}

void TestSync::writes()
{
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(QByteArray, body);
    QFETCH(int, times);
    QFETCH(QString, expectedFile);
    QFETCH(QString, checkSql);
    QFETCH(QString, checkValue);

    QByteArray raw;
    for (int i = 0; i < times; ++i) {
        raw = method == QLatin1String("PUT") ? m_worker->put(path, m_fx->terminalHeaders(), body)
                                             : m_worker->del(path, m_fx->terminalHeaders());
    }
    // The future limit of a refused acknowledgement moves with the clock; its identifier is
    // always 16 characters, which the expected Content-Length counts.
    QByteArray masked = maskTms(raw);
    if (QTest::currentDataTag() == QByteArray("delete sync in the future"))
        masked.replace(path.section(QLatin1Char('/'), -1).toUtf8(), "<ID>");
    COMPARE_EXPECTED(masked, expectedFile);
    QCOMPARE(m_fx->customer().scalar(checkSql).toString(), checkValue);
}

void TestSync::putPersonMarksOtherTerminals()
{
    QVERIFY(m_fx->customer().exec(QStringLiteral("UPDATE term SET syn = 0")));
    const HttpReply reply = HttpReply::parse(
        m_worker->put(path({"person", WebApiWorker::encodeId(2, 202), kJana}), m_fx->terminalHeaders(),
                      QByteArray("{\"card\": \"C-99\"}")));
    QCOMPARE(reply.status, 200);
    // Every other linked terminal gets a mark; only the active ones get the bit.
    QCOMPARE(m_fx->customer().scalar(QStringLiteral(
                 "SELECT GROUP_CONCAT(CONCAT_WS(':', tid, type, flags) ORDER BY tid) FROM term_sync "
                 "WHERE ref = 'people_term' AND ref_id = 1 AND created > 1700000100")).toString(),
             QStringLiteral("1:U:2,3:U:2"));
    QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT GROUP_CONCAT(syn ORDER BY tid) FROM term")).toString(),
             QStringLiteral("2,0,0"));
    QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT card FROM people WHERE uid = 1")).toString(),
             QStringLiteral("C-99"));
}

QTEST_GUILESS_MAIN(TestSync)
#include "tst_sync.moc"

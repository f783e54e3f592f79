// The terminal synchronisation feed and its acknowledgement, on real marks in term_sync.
// Nothing routes to them yet, so SeamWorker calls them after the spine's own checks.
#include "support/apifixture.h"
#include "support/seamworker.h"

#include "response/response.h"

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
    void inactiveTerminalIsStillOnline();
    void readingTwiceChangesNothing();
    void acknowledge_data();
    void acknowledge();

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
    QString error;
    QVERIFY2(TestServer::loadSqlFile(m_fx->customer().name(), QStringLiteral(WEBAPI_TEST_DATA "/sync/feed.sql"), &error),
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
    QTest::newRow("limit is strict") << 2u << 1700000150u << 2u << 1 << 335u << 13;
    QTest::newRow("named bit only") << 2u << 1700000300u << 2u << 4 << 333u << 10;
    QTest::newRow("mark of two bits goes by AND") << 2u << 1700000300u << 1u << 2 << 334u << 12;
    QTest::newRow("bit without marks") << 2u << 1700000300u << 16u << 0 << 335u << 14;
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



QTEST_GUILESS_MAIN(TestSync)
#include "tst_sync.moc"

// Reference lists and presence as terminals read them, through buildResponse on the private
// MariaDB; and the reads that no route reaches yet, on the worker after a request.
#include "support/apifixture.h"

#include "response/response.h"
#include "worker/webapiworker.h"

#include <QtTest>

class TestLists : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void wholeResponses_data();
    void wholeResponses();
    void failingStatement_data();
    void failingStatement();
    void unroutedReads();

private:
    QScopedPointer<ApiFixture> m_fx;
    QString m_tid;
};

void TestLists::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("lists")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    m_tid = m_fx->addTerminal(301);
    TestDatabase &db = m_fx->customer();
    const QStringList fixture = {
        QStringLiteral("INSERT INTO inters (iid, name, shortcut, weight, color) VALUES (3, 'Lunch', 'L', 1, '#f00'), "
                       "(1, 'Arrival', 'A', 2, NULL), (2, 'Doctor', 'D', 1, '#0f0')"),
        QStringLiteral("INSERT INTO mastergroups (mgId, name) VALUES (1, 'Plant')"),
        QStringLiteral("INSERT INTO regions (rid, name) VALUES (1, 'North')"),
        QStringLiteral("INSERT INTO groups (gid, name, shifts, parent, rid) VALUES (1, 'Day', 'D1', 1, 1), "
                       "(2, 'Night', NULL, NULL, NULL)"),
        QStringLiteral("INSERT INTO people (uid, pid, status, name, present, begin) VALUES (1, 1001, 1, 'In', 1, 0), "
                       "(2, 1002, 1, 'Never', 0, 0), (3, 1003, 1, 'Lost', 0, 0), (4, 1004, 0, 'Gone', 1, 0)"),
        // 2024-05-01 08:00 in Prague.
        QStringLiteral("INSERT INTO inters_data (id, tid, refId, uid, iid, type, date, created) "
                       "SELECT 50, tid, 1, 1, 1, 1, 1714543200, 1714543200 FROM term WHERE vorixID = 301"),
        QStringLiteral("UPDATE people SET presentID = 50 WHERE uid = 1"),
        QStringLiteral("UPDATE people SET presentID = 9999 WHERE uid = 3"),  // its entrance is gone
    };
    for (const QString &sql : fixture)
        QVERIFY2(db.exec(sql), qPrintable(db.error()));
}

void TestLists::wholeResponses_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("tid");
    QTest::addColumn<QString>("expectedFile");

    QTest::newRow("inters") << "/webapi/inters" << QString() << "terminal/inters.http";
    QTest::newRow("groups") << "/webapi/groups" << QString() << "terminal/groups.http";
    QTest::newRow("present") << "/webapi/present" << m_tid << "terminal/present.http";
    QTest::newRow("present of one") << "/webapi/present/" + WebApiWorker::encodeId(1, 1001) << m_tid
                                    << "terminal/present-one.http";
    QTest::newRow("present, unknown terminal") << "/webapi/present" << WebApiWorker::encodeId(99, 301)
                                               << "terminal/present-no-terminal.http";
}

void TestLists::wholeResponses()
{
    QFETCH(QString, path);
    QFETCH(QString, tid);
    QFETCH(QString, expectedFile);
    COMPARE_EXPECTED(maskTms(m_fx->call(QStringLiteral("GET"), path, m_fx->terminalHeaders(tid))), expectedFile);
}

void TestLists::failingStatement_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("logLine");

    QTest::newRow("inters") << "inters" << "/webapi/inters" << "WebApiWorker::dbGetInter() SQl ERROR:";
    QTest::newRow("groups") << "regions" << "/webapi/groups" << "WebApiWorker::dbGetAttendanceGroups() SQl ERROR:";
}

void TestLists::failingStatement()
{
    QFETCH(QString, table);
    QFETCH(QString, path);
    QFETCH(QString, logLine);
    TestDatabase &db = m_fx->customer();
    QVERIFY(db.exec(QStringLiteral("RENAME TABLE %1 TO %1_away").arg(table)));
    QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(QLatin1Char('^') + QRegularExpression::escape(logLine)));
    const QByteArray raw = m_fx->call(QStringLiteral("GET"), path, m_fx->terminalHeaders());
    QVERIFY(db.exec(QStringLiteral("RENAME TABLE %1_away TO %1").arg(table)));
    COMPARE_EXPECTED(maskTms(raw), QStringLiteral("terminal/list-sql-error.http"));
}

void TestLists::unroutedReads()
{
    TestDatabase &db = m_fx->customer();
    const uint tid = db.scalar(QStringLiteral("SELECT tid FROM term WHERE vorixID = 301")).toUInt();
    QVERIFY(db.exec(QStringLiteral("INSERT INTO inters_term (tid, iid) VALUES (%1, 1), (%1, 3)").arg(tid)));
    QVERIFY(db.exec(QStringLiteral("INSERT INTO people_term (uid, tid) VALUES (1, %1), (2, %1), (4, %1)").arg(tid)));
    QVERIFY(db.exec(QStringLiteral("UPDATE people SET saldo = 90 WHERE uid = 2")));

    // A request first, so that the worker has its connection and a response to write to.
    QCOMPARE(m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/info"), m_fx->terminalHeaders()).status, 200);
    WebApiWorker *worker = m_fx->worker();

    const QVariantList inters = worker->dbGetInters4Terminal(tid, 301).toList();
    QCOMPARE(inters.size(), 2);
    QCOMPARE(inters.at(0).toMap().value("iid").toUInt(), 3u);  // lighter first
    QCOMPARE(worker->dbGetInters4Terminal(tid, 302).toList().size(), 0);

    const QVariantList present = worker->dbGetPresent4Terminal(tid, 0).toList();
    QCOMPARE(present.size(), 2);  // the inactive person is left out
    const QVariantMap one = worker->dbGetPresent4Terminal(tid, 1).toMap();
    QCOMPARE(one.value("uid").toString(), WebApiWorker::encodeId(1, 1001));
    QCOMPARE(one.value("present").toBool(), true);
    QVERIFY(!one.contains("date"));

    QVERIFY(worker->dbGetSaldo(tid, 0));
    QVariantMap saldo = worker->response()->data().toMap();
    QCOMPARE(saldo.size(), 2);
    QCOMPARE(saldo.value("2").toInt(), 90);
    QVERIFY(!worker->dbGetSaldo(tid, 3));
    QCOMPARE(worker->response()->data().toMap().size(), 0);
    QCOMPARE(worker->response()->errorCode(), 0);
}

QTEST_GUILESS_MAIN(TestLists)
#include "tst_lists.moc"

// The admin context through buildResponse: administrator lookup and routing, and the
// attendance, report and work sheets of tests/data/admin/fixture.sql.
#include "support/apifixture.h"

#include <QtTest>

class TestAdmin : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void requests_data();
    void requests();
    void relativeFilters_data();
    void relativeFilters();

private:
    HttpReply get(const QString &path)
    {
        return m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/") + path, m_fx->adminHeaders("tok-boss"));
    }

    QScopedPointer<ApiFixture> m_fx;
};

void TestAdmin::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("admin")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    QString error;
    QVERIFY2(TestServer::loadSqlFile(m_fx->customer().name(), QStringLiteral(WEBAPI_TEST_DATA "/admin/fixture.sql"), &error),
             qPrintable(error));
}

void TestAdmin::requests_data()
{
    QTest::addColumn<QString>("request");  // method, path below /webapi/, token (tok-boss when none)
    // .http: the whole response; .json: the body; else the status and the error message
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QString>("failingTable");  // renamed away during the request
    // The administrator is looked up before the endpoint word; permission and verb are each
    // endpoint's checks, the verb first.
    QTest::newRow("unknown token") << "GET attendance/daily tok-nobody" << "admin/no-admin.http" << "";
    QTest::newRow("status 0, unknown endpoint") << "GET nothing tok-disabled" << "admin/invalid-admin.http" << "";
    QTest::newRow("no permission") << "GET report/monthly tok-noperm" << "admin/no-permission.http" << "";
    QTest::newRow("no endpoint") << "GET nothing tok-noperm" << "admin/invalid-endpoint-nothing.http" << "";
    QTest::newRow("post before permission") << "POST attendance/daily tok-noperm" << "admin/bad-method-post.http" << "";
    // One row per shift label, hours as fractions, readiness over midnight, holidays with
    // and without a local name, NULL durations as 0 and other NULLs as null.
    QTest::newRow("attendance day") << "GET attendance/daily/2024-05-14" << "admin/attendance-daily.http" << "";
    QTest::newRow("attendance month") << "GET attendance/monthly/2024-05" << "admin/attendance-monthly.json" << "";
    QTest::newRow("report day") << "GET report/daily/2024-05-14" << "admin/report-daily.http" << "";
    // The summary keeps presence once seen, the detail takes each person's last row.
    // Person 108 has only a reason that counts as work on that day: listed, present, no reason.
    QTest::newRow("work reasons only") << "GET report/daily/2024-05-22" << "admin/report-daily-work-only.json" << "";
    QTest::newRow("report month") << "GET report/monthly/2024-05" << "admin/report-monthly.json" << "";
    QTest::newRow("day, detail") << "GET report/daily-detailed/2024-05-14" << "admin/report-daily-detailed.json" << "";
    QTest::newRow("month, detail") << "GET report/monthly-detailed/2024-05" << "admin/report-monthly-detailed.json" << "";
    // The day's CONCAT gives null for a missing first name, the month's CONCAT_WS the surname
    // alone; a NULL work is 0 hours; person 104 is the other administrator's.
    QTest::newRow("work day") << "GET work/daily/2024-05-14" << "admin/work-daily.http" << "";
    QTest::newRow("work month") << "GET work/monthly/2024-05" << "admin/work-monthly.json" << "";
    QTest::newRow("second admin") << "GET work/monthly/2024-05 tok-second" << "admin/work-monthly-second.json" << "";
    // The argument is the filter as the digit filter left it, never the raw word; each period
    // reads its filter as a day or a month.
    QTest::newRow("filtered word") << "GET attendance/daily/x2024-02-30y" << "400 Invalid date '2024-02-30'!" << "";
    QTest::newRow("a day as month") << "GET attendance/monthly/2024-05-01" << "400 Invalid month '2024-05-01'!" << "";
    QTest::newRow("no period") << "GET attendance" << "400 Invalid API endpoint ''!" << "";
    QTest::newRow("common year") << "GET report/daily-detailed/2023-02-29" << "400 Invalid date '2023-02-29'!" << "";
    QTest::newRow("month 13") << "GET report/monthly-detailed/2024-13" << "400 Invalid month '2024-13'!" << "";
    QTest::newRow("work day, month 13") << "GET work/daily/2024-13-01" << "400 Invalid date '2024-13-01'!" << "";
    QTest::newRow("work, period case") << "GET work/Daily" << "400 Invalid API endpoint 'Daily'!" << "";
    // With an administrator's token, only the terminal's own lists stay in the terminal context.
    QTest::newRow("terminal list") << "GET inters" << "200" << "";
    QTest::newRow("list in capitals") << "GET Inters" << "400 Invalid API endpoint 'Inters'!" << "";
    QTest::newRow("people") << "GET people" << "400 Invalid API endpoint 'people'!" << "";
    // A failed statement: the sheets answer 500, the report still 200 with no employee data,
    // a failed administrator lookup is a bad id.
    QTest::newRow("sheet, failing") << "GET attendance/daily/2024-05-14" << "500 Database error" << "atten";
    QTest::newRow("month, failing") << "GET work/monthly/2024-05" << "500 Database error" << "atten_month";
    QTest::newRow("report failing") << "GET report/monthly/2024-05" << "admin/report-failed-query.json" << "atten_data";
    QTest::newRow("lookup, failing") << "GET attendance/daily" << "400 Invalid ID 'tok-boss'!" << "admins";
}

void TestAdmin::requests()
{
    QFETCH(QString, request);
    QFETCH(QString, expected);
    QFETCH(QString, failingTable);
    if (!failingTable.isEmpty())
        QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE %1 TO %1_away").arg(failingTable)));
    const QStringList words = request.split(QLatin1Char(' '));
    const QString token = words.value(2, QStringLiteral("tok-boss"));
    const QByteArray raw = m_fx->call(words.at(0), "/webapi/" + words.at(1), m_fx->adminHeaders(token));
    if (!failingTable.isEmpty())
        QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE %1_away TO %1").arg(failingTable)));
    const HttpReply reply = HttpReply::parse(raw);
    if (expected.endsWith(QLatin1String(".http"))) {
        COMPARE_EXPECTED(maskTms(raw), expected);
    } else if (expected.endsWith(QLatin1String(".json"))) {
        QCOMPARE(reply.status, 200);
        COMPARE_EXPECTED(reply.body, expected);
    } else {
        QCOMPARE(QStringLiteral("%1 %2").arg(reply.status).arg(reply.message()).trimmed(), expected);
    }
}

void TestAdmin::relativeFilters_data()
{
    QTest::addColumn<QString>("relative");
    QTest::addColumn<QString>("literal");  // the fixture has rows today, yesterday, this and last month
    const QDate today = QDate::currentDate();
    const QString yesterday = today.addDays(-1).toString(Qt::ISODate);
    const QString lastMonth = today.addMonths(-1).toString(QStringLiteral("yyyy-MM"));
    QTest::newRow("attendance, no filter") << "attendance/daily" << "attendance/daily/" + today.toString(Qt::ISODate);
    QTest::newRow("attendance, last month") << "attendance/monthly/-1" << "attendance/monthly/" + lastMonth;
    QTest::newRow("work, this month") << "work/monthly/zzz" << "work/monthly/" + today.toString("yyyy-MM");
    QTest::newRow("report, yesterday") << "report/daily-detailed/-1" << "report/daily-detailed/" + yesterday;
    QTest::newRow("report, this month") << "report/monthly" << "report/monthly/" + today.toString("yyyy-MM");
}

void TestAdmin::relativeFilters()
{
    QFETCH(QString, relative);
    QFETCH(QString, literal);
    const HttpReply byOffset = get(relative);
    QCOMPARE(byOffset.status, 200);
    QVERIFY(byOffset.body.contains("\"personId\""));
    QCOMPARE(byOffset.body, get(literal).body);
}

QTEST_GUILESS_MAIN(TestAdmin)
#include "tst_admin.moc"

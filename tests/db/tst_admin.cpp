// The admin context through buildResponse: administrator lookup and routing, and the
// attendance, report and work sheets of tests/data/admin/fixture.sql.
#include "support/apifixture.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QtTest>

namespace {

// The people rows of a sheet (an array) or of a report (its employeeData).
QJsonArray people(const HttpReply &reply)
{
    const QJsonDocument doc = reply.json();
    return doc.isArray() ? doc.array() : doc.object().value(QStringLiteral("employeeData")).toArray();
}

} // namespace

class TestAdmin : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void wholeResponses_data();
    void wholeResponses();
    void refusals_data();
    void refusals();
    void relativeFilters_data();
    void relativeFilters();
    void peopleOfTheAdministrator_data();
    void peopleOfTheAdministrator();
    void failingQueries_data();
    void failingQueries();

private:
    HttpReply get(const QString &path, const QString &apiToken = QStringLiteral("tok-boss"))
    {
        return m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/") + path, m_fx->adminHeaders(apiToken));
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

void TestAdmin::wholeResponses_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("apiToken");
    QTest::addColumn<QString>("expectedFile");  // .http: the whole response; .json: the body of a 200
    // The administrator is looked up before the endpoint word; permission and verb are each
    // endpoint's checks, the verb first.
    QTest::newRow("unknown token") << "GET" << "attendance/daily" << "tok-nobody" << "admin/no-admin.http";
    QTest::newRow("deleted admin") << "GET" << "work/daily" << "tok-deleted" << "admin/no-admin.http";
    QTest::newRow("status 0, unknown endpoint") << "GET" << "nothing" << "tok-disabled" << "admin/invalid-admin.http";
    QTest::newRow("no permission") << "GET" << "report/monthly" << "tok-noperm" << "admin/no-permission.http";
    QTest::newRow("no permission, unknown endpoint") << "GET" << "nothing" << "tok-noperm"
                                                     << "admin/invalid-endpoint-nothing.http";
    QTest::newRow("post before permission") << "POST" << "attendance/daily" << "tok-noperm" << "admin/bad-method-post.http";
    // One row per shift label, hours as fractions, readiness over midnight, holidays with
    // and without a local name, NULL durations as 0 and other NULLs as null.
    QTest::newRow("attendance day") << "GET" << "attendance/daily/2024-05-14" << "tok-boss" << "admin/attendance-daily.http";
    QTest::newRow("attendance month") << "GET" << "attendance/monthly/2024-05" << "tok-boss" << "admin/attendance-monthly.json";
    QTest::newRow("attendance no such day") << "GET" << "attendance/daily/2024-02-30" << "tok-boss"
                                            << "admin/attendance-invalid-date.http";
    QTest::newRow("report day") << "GET" << "report/daily/2024-05-14" << "tok-boss" << "admin/report-daily.http";
    // The summary keeps presence once seen, the detail takes each person's last row.
    // Person 108 has only a reason that counts as work on that day: listed, present, no reason.
    QTest::newRow("report work reasons only") << "GET" << "report/daily/2024-05-22" << "tok-boss"
                                              << "admin/report-daily-work-only.json";
    QTest::newRow("report month") << "GET" << "report/monthly/2024-05" << "tok-boss" << "admin/report-monthly.json";
    QTest::newRow("report day detailed") << "GET" << "report/daily-detailed/2024-05-14" << "tok-boss"
                                         << "admin/report-daily-detailed.json";
    QTest::newRow("report month detailed") << "GET" << "report/monthly-detailed/2024-05" << "tok-boss"
                                           << "admin/report-monthly-detailed.json";
    QTest::newRow("report unknown period") << "GET" << "report/weekly" << "tok-boss" << "admin/report-weekly.http";
    // The day's CONCAT gives null for a missing first name, the month's CONCAT_WS the surname
    // alone; a NULL work is 0 hours; person 104 is the other administrator's.
    QTest::newRow("work day") << "GET" << "work/daily/2024-05-14" << "tok-boss" << "admin/work-daily.http";
    QTest::newRow("work month") << "GET" << "work/monthly/2024-05" << "tok-boss" << "admin/work-monthly.json";
    QTest::newRow("work month, second") << "GET" << "work/monthly/2024-05" << "tok-second" << "admin/work-monthly-second.json";
    QTest::newRow("work month 13") << "GET" << "work/monthly/2024-13" << "tok-boss" << "admin/work-invalid-month.http";
}

void TestAdmin::wholeResponses()
{
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(QString, apiToken);
    QFETCH(QString, expectedFile);
    const QByteArray raw = m_fx->call(method, QStringLiteral("/webapi/") + path, m_fx->adminHeaders(apiToken));
    if (expectedFile.endsWith(QLatin1String(".http"))) {
        COMPARE_EXPECTED(maskTms(raw), expectedFile);
    } else {
        const HttpReply reply = HttpReply::parse(raw);
        QCOMPARE(reply.status, 200);
        COMPARE_EXPECTED(reply.body, expectedFile);
    }
}

void TestAdmin::refusals_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("message");  // all with status 400
    // The argument is the filter as the digit filter left it, never the raw word; each period
    // reads its filter as a day or a month.
    QTest::newRow("filtered word") << "attendance/daily/x2024-02-30y" << "Invalid date '2024-02-30'!";
    QTest::newRow("attendance month, a day") << "attendance/monthly/2024-05-01" << "Invalid month '2024-05-01'!";
    QTest::newRow("no period") << "attendance" << "Invalid API endpoint ''!";
    QTest::newRow("report day detailed") << "report/daily-detailed/2023-02-29" << "Invalid date '2023-02-29'!";
    QTest::newRow("report month detailed") << "report/monthly-detailed/2024-13" << "Invalid month '2024-13'!";
    QTest::newRow("work day, month 13") << "work/daily/2024-13-01" << "Invalid date '2024-13-01'!";
    QTest::newRow("work, period case") << "work/Daily" << "Invalid API endpoint 'Daily'!";
}

void TestAdmin::refusals()
{
    QFETCH(QString, path);
    QFETCH(QString, message);
    const HttpReply reply = get(path);
    QCOMPARE(reply.status, 400);
    QCOMPARE(reply.message(), message);
}

void TestAdmin::relativeFilters_data()
{
    QTest::addColumn<QString>("relative");
    QTest::addColumn<QString>("literal");
    QTest::addColumn<QString>("key");  // of person 101's row; empty: bodies only
    QTest::addColumn<double>("value");
    const QDate today = QDate::currentDate();
    const QString day = today.toString(Qt::ISODate);
    const QString yesterday = today.addDays(-1).toString(Qt::ISODate);
    const QString lastMonth = today.addMonths(-1).toString(QStringLiteral("yyyy-MM"));
    QTest::newRow("attendance, no filter") << "attendance/daily" << "attendance/daily/" + day << "worked" << 8.0;
    QTest::newRow("attendance, yesterday") << "attendance/daily/-1" << "attendance/daily/" + yesterday << "worked" << 4.0;
    QTest::newRow("attendance, last month") << "attendance/monthly/-1" << "attendance/monthly/" + lastMonth << "worked"
                                            << 50.0;
    QTest::newRow("work, this month") << "work/monthly/zzz" << "work/monthly/" + today.toString("yyyy-MM") << "worked"
                                      << 100.0;
    QTest::newRow("work, yesterday") << "work/daily/-1" << "work/daily/" + yesterday << "worked" << 4.0;
    QTest::newRow("report, today") << "report/daily-detailed" << "report/daily-detailed/" + day << "extra" << 1.0;
    QTest::newRow("report, last month") << "report/monthly/-1" << "report/monthly/" + lastMonth << "" << 0.0;
}

void TestAdmin::relativeFilters()
{
    QFETCH(QString, relative);
    QFETCH(QString, literal);
    QFETCH(QString, key);
    QFETCH(double, value);
    const HttpReply byOffset = get(relative);
    QCOMPARE(byOffset.status, 200);
    QCOMPARE(byOffset.body, get(literal).body);
    if (!key.isEmpty()) {
        const QJsonObject first = people(byOffset).first().toObject();
        QCOMPARE(first.value(QStringLiteral("personId")).toInt(), 101);
        QCOMPARE(first.value(key).toDouble(), value);
    }
}

void TestAdmin::peopleOfTheAdministrator_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("apiToken");
    QTest::addColumn<QString>("dateTo");  // of a report
    QTest::addColumn<QList<int>>("pids");
    // Person 102 belongs to both administrators, 104 to the second only; the leap day's one
    // interval is person 101's.
    QTest::newRow("attendance day") << "attendance/daily/2024-05-14" << "tok-second" << "" << QList<int>{102, 104};
    QTest::newRow("attendance month") << "attendance/monthly/2024-05" << "tok-second" << "" << QList<int>{102, 104};
    QTest::newRow("report day") << "report/daily/2024-05-14" << "tok-second" << "2024-05-14" << QList<int>{102, 104};
    QTest::newRow("leap february") << "report/monthly/2024-02" << "tok-boss" << "2024-02-29" << QList<int>{101};
    QTest::newRow("common february") << "report/monthly-detailed/2023-02" << "tok-boss" << "2023-02-28" << QList<int>();
}

void TestAdmin::peopleOfTheAdministrator()
{
    QFETCH(QString, path);
    QFETCH(QString, apiToken);
    QFETCH(QString, dateTo);
    QFETCH(QList<int>, pids);
    const HttpReply reply = get(path, apiToken);
    QCOMPARE(reply.status, 200);
    QList<int> seen;
    for (const QJsonValue &row : people(reply))
        seen.append(row.toObject().value(QStringLiteral("personId")).toInt());
    QCOMPARE(seen, pids);
    if (!dateTo.isEmpty())
        QCOMPARE(reply.json().object().value(QStringLiteral("dateTo")).toString(), dateTo);
}

void TestAdmin::failingQueries_data()
{
    QTest::addColumn<QString>("table");  // renamed away during the request
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("expectedFile");
    QTest::newRow("attendance day") << "atten" << "attendance/daily/2024-05-14" << 500 << "admin/db-error.json";
    QTest::newRow("attendance month") << "atten_month" << "attendance/monthly/2024-05" << 500 << "admin/db-error.json";
    QTest::newRow("work day") << "atten" << "work/daily/2024-05-14" << 500 << "admin/db-error.json";
    QTest::newRow("work month") << "atten_month" << "work/monthly/2024-05" << 500 << "admin/db-error.json";
    // The report still answers 200, with the count of active people and no employee data.
    QTest::newRow("report") << "atten_data" << "report/monthly/2024-05" << 200 << "admin/report-failed-query.json";
    QTest::newRow("admin lookup") << "admins" << "attendance/daily" << 400 << "admin/lookup-failed.json";
}

void TestAdmin::failingQueries()
{
    QFETCH(QString, table);
    QFETCH(QString, path);
    QFETCH(int, status);
    QFETCH(QString, expectedFile);
    QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE %1 TO %1_away").arg(table)));
    const HttpReply reply = get(path);
    QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE %1_away TO %1").arg(table)));
    QCOMPARE(reply.status, status);
    COMPARE_EXPECTED(reply.body, expectedFile);
}

QTEST_GUILESS_MAIN(TestAdmin)
#include "tst_admin.moc"

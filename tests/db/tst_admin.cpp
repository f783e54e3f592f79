// The admin context through buildResponse: administrator lookup and routing, and the
// attendance, report and work sheets of tests/data/admin/fixture.sql.
#include "support/apifixture.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QtTest>

namespace {

QString isoDay(const QDate &date) { return date.toString(QStringLiteral("yyyy-MM-dd")); }
QString isoMonth(const QDate &date) { return date.toString(QStringLiteral("yyyy-MM")); }

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
    void periodRefusals_data();
    void periodRefusals();
    void relativeFilters_data();
    void relativeFilters();
    void reportPeriods_data();
    void reportPeriods();
    void otherAdministrator_data();
    void otherAdministrator();
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

    // The administrator is looked up before the endpoint word is.
    QTest::newRow("unknown token") << "GET" << "attendance/daily" << "tok-nobody" << "admin/no-admin.http";
    QTest::newRow("unknown token, unknown endpoint") << "GET" << "nothing" << "tok-nobody" << "admin/no-admin.http";
    QTest::newRow("token in other case") << "GET" << "attendance/daily" << "TOK-BOSS" << "admin/no-admin.http";
    QTest::newRow("deleted admin") << "GET" << "work/daily" << "tok-deleted" << "admin/no-admin.http";
    QTest::newRow("status 0") << "GET" << "report/daily" << "tok-disabled" << "admin/invalid-admin.http";
    QTest::newRow("status 0, unknown endpoint") << "GET" << "nothing" << "tok-disabled" << "admin/invalid-admin.http";
    // Permission is each controller's check, so an unknown word is reported as such.
    QTest::newRow("no permission, attendance") << "GET" << "attendance/daily" << "tok-noperm" << "admin/no-permission.http";
    QTest::newRow("no permission, report") << "GET" << "report/monthly" << "tok-noperm" << "admin/no-permission.http";
    QTest::newRow("no permission, work") << "GET" << "work/daily" << "tok-noperm" << "admin/no-permission.http";
    QTest::newRow("no permission, unknown endpoint") << "GET" << "nothing" << "tok-noperm"
                                                     << "admin/invalid-endpoint-nothing.http";
    QTest::newRow("post") << "POST" << "attendance/daily" << "tok-boss" << "admin/bad-method-post.http";
    QTest::newRow("post before permission") << "POST" << "work/daily" << "tok-noperm" << "admin/bad-method-post.http";
    QTest::newRow("post, unknown endpoint") << "POST" << "nothing" << "tok-boss" << "admin/invalid-endpoint-nothing.http";
    QTest::newRow("endpoint case") << "GET" << "Attendance/daily" << "tok-boss" << "admin/invalid-endpoint-Attendance.http";
    QTest::newRow("no endpoint") << "GET" << "" << "tok-boss" << "admin/invalid-endpoint-empty.http";

    // One row per shift label, hours as fractions, readiness over midnight, holidays with
    // and without a local name, NULL durations as 0 and other NULLs as null.
    QTest::newRow("attendance day") << "GET" << "attendance/daily/2024-05-14" << "tok-boss" << "admin/attendance-daily.http";
    QTest::newRow("attendance month") << "GET" << "attendance/monthly/2024-05" << "tok-boss" << "admin/attendance-monthly.json";
    QTest::newRow("attendance no such day") << "GET" << "attendance/daily/2024-02-30" << "tok-boss"
                                            << "admin/attendance-invalid-date.http";
    QTest::newRow("attendance empty day") << "GET" << "attendance/daily/2001-01-01" << "tok-boss" << "admin/empty.json";
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
    QTest::newRow("work empty month") << "GET" << "work/monthly/2001-01" << "tok-boss" << "admin/empty.json";
}

void TestAdmin::wholeResponses()
{
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(QString, apiToken);
    QFETCH(QString, expectedFile);
    const QString url = path.isEmpty() ? QStringLiteral("/webapi") : QStringLiteral("/webapi/") + path;
    const QByteArray raw = m_fx->call(method, url, m_fx->adminHeaders(apiToken));
    if (expectedFile.endsWith(QLatin1String(".http"))) {
        COMPARE_EXPECTED(maskTms(raw), expectedFile);
    } else {
        const HttpReply reply = HttpReply::parse(raw);
        QCOMPARE(reply.status, 200);
        COMPARE_EXPECTED(reply.body, expectedFile);
    }
}

void TestAdmin::periodRefusals_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("message");  // all with status 400
    // The argument is the filter as the digit filter left it, never the raw word.
    QTest::newRow("no such day") << "attendance/daily/2024-02-30" << "Invalid date '2024-02-30'!";
    QTest::newRow("filtered word") << "attendance/daily/x2024-02-30y" << "Invalid date '2024-02-30'!";
    QTest::newRow("minus alone") << "attendance/daily/-" << "Invalid date '-'!";
    QTest::newRow("month 13") << "attendance/monthly/2024-13" << "Invalid month '2024-13'!";
    QTest::newRow("day in month mode") << "attendance/monthly/2024-05-01" << "Invalid month '2024-05-01'!";
    QTest::newRow("unknown period") << "attendance/yearly" << "Invalid API endpoint 'yearly'!";
    QTest::newRow("period case") << "attendance/Daily" << "Invalid API endpoint 'Daily'!";
    QTest::newRow("no period") << "attendance" << "Invalid API endpoint ''!";
    QTest::newRow("report, common year") << "report/daily-detailed/2023-02-29" << "Invalid date '2023-02-29'!";
    QTest::newRow("report, month 13") << "report/monthly-detailed/2024-13" << "Invalid month '2024-13'!";
    QTest::newRow("report, no period") << "report" << "Invalid API endpoint ''!";
    QTest::newRow("work, month 13 in a day") << "work/daily/2024-13-01" << "Invalid date '2024-13-01'!";
    QTest::newRow("work, unknown period") << "work/weekly" << "Invalid API endpoint 'weekly'!";
}

void TestAdmin::periodRefusals()
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
    QTest::addColumn<QString>("key");    // of the first person row; empty: bodies only
    QTest::addColumn<double>("value");

    const QDate today = QDate::currentDate();
    const QString day = isoDay(today);
    const QString yesterday = isoDay(today.addDays(-1));
    const QString month = isoMonth(today);
    const QString lastMonth = isoMonth(today.addMonths(-1));
    QTest::newRow("attendance, no filter") << "attendance/daily" << "attendance/daily/" + day << "worked" << 8.0;
    QTest::newRow("attendance, zero") << "attendance/daily/0" << "attendance/daily/" + day << "worked" << 8.0;
    QTest::newRow("attendance, letters") << "attendance/daily/abc" << "attendance/daily/" + day << "worked" << 8.0;
    QTest::newRow("attendance, yesterday") << "attendance/daily/-1" << "attendance/daily/" + yesterday << "worked" << 4.0;
    QTest::newRow("attendance, trailing letter") << "attendance/daily/2024-05-14x" << "attendance/daily/2024-05-14"
                                                 << "worked" << 7.5;
    QTest::newRow("attendance, this month") << "attendance/monthly" << "attendance/monthly/" + month << "worked" << 100.0;
    QTest::newRow("attendance, last month") << "attendance/monthly/-1" << "attendance/monthly/" + lastMonth << "worked"
                                            << 50.0;
    QTest::newRow("work, today") << "work/daily" << "work/daily/" + day << "worked" << 8.0;
    QTest::newRow("work, yesterday") << "work/daily/-1" << "work/daily/" + yesterday << "worked" << 4.0;
    QTest::newRow("work, this month") << "work/monthly/zzz" << "work/monthly/" + month << "worked" << 100.0;
    QTest::newRow("work, last month") << "work/monthly/-1" << "work/monthly/" + lastMonth << "worked" << 50.0;
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

void TestAdmin::reportPeriods_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("dateFrom");
    QTest::addColumn<QString>("dateTo");
    QTest::addColumn<int>("people");  // -1: not checked
    // The leap day's one interval belongs to person 101 in every period that holds it.
    const QString yesterday = isoDay(QDate::currentDate().addDays(-1));
    QTest::newRow("leap february") << "report/monthly/2024-02" << "2024-02-01" << "2024-02-29" << 1;
    QTest::newRow("common february") << "report/monthly-detailed/2023-02" << "2023-02-01" << "2023-02-28" << 0;
    QTest::newRow("yesterday") << "report/daily/-1" << yesterday << yesterday << -1;
    QTest::newRow("day") << "report/daily-detailed/2024-02-29" << "2024-02-29" << "2024-02-29" << 1;
}

void TestAdmin::reportPeriods()
{
    QFETCH(QString, path);
    QFETCH(QString, dateFrom);
    QFETCH(QString, dateTo);
    QFETCH(int, people);
    const HttpReply reply = get(path);
    const QJsonObject body = reply.json().object();
    QCOMPARE(body.value(QStringLiteral("dateFrom")).toString(), dateFrom);
    QCOMPARE(body.value(QStringLiteral("dateTo")).toString(), dateTo);
    const QJsonArray rows = ::people(reply);
    if (people >= 0)
        QCOMPARE(rows.size(), people);
    if (people > 0)
        QCOMPARE(rows.first().toObject().value(QStringLiteral("personId")).toInt(), 101);
}

void TestAdmin::otherAdministrator_data()
{
    QTest::addColumn<QString>("path");
    // Person 102 belongs to both administrators, 104 to the second only.
    QTest::newRow("attendance day") << "attendance/daily/2024-05-14";
    QTest::newRow("attendance month") << "attendance/monthly/2024-05";
    QTest::newRow("report day") << "report/daily/2024-05-14";
}

void TestAdmin::otherAdministrator()
{
    QFETCH(QString, path);
    const HttpReply reply = get(path, QStringLiteral("tok-second"));
    QCOMPARE(reply.status, 200);
    QList<int> pids;
    for (const QJsonValue &row : people(reply))
        pids.append(row.toObject().value(QStringLiteral("personId")).toInt());
    QCOMPARE(pids, (QList<int>{102, 104}));
    if (!reply.json().isArray())
        QCOMPARE(reply.json().object().value(QStringLiteral("activeEmployees")).toInt(), 2);
}

void TestAdmin::failingQueries_data()
{
    QTest::addColumn<QStringList>("tables");  // renamed away during the request
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("warning");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("expectedFile");

    const QStringList sheets = {QStringLiteral("atten"), QStringLiteral("atten_month")};
    QTest::newRow("attendance day") << sheets << "attendance/daily/2024-05-14"
                                    << "AttendanceController::collectDayData" << 500 << "admin/db-error.json";
    QTest::newRow("attendance month") << sheets << "attendance/monthly/2024-05"
                                      << "AttendanceController::collectMonthData" << 500 << "admin/db-error.json";
    QTest::newRow("work day") << sheets << "work/daily/2024-05-14"
                              << "WorkController::processDailyData" << 500 << "admin/db-error.json";
    QTest::newRow("work month") << sheets << "work/monthly/2024-05"
                                << "WorkController::processMonthlyData" << 500 << "admin/db-error.json";
    // The report still answers 200, with the count of active people and no employee data.
    QTest::newRow("report") << QStringList{"atten_data"} << "report/monthly/2024-05"
                            << "AdminContextBuilder::collectEmployeeData" << 200 << "admin/report-failed-query.json";
    QTest::newRow("admin lookup") << QStringList{"admins"} << "attendance/daily"
                                  << "AdminContextBuilder::getAdminId from ZMTDB" << 400 << "admin/lookup-failed.json";
}

void TestAdmin::failingQueries()
{
    QFETCH(QStringList, tables);
    QFETCH(QString, path);
    QFETCH(QString, warning);
    QFETCH(int, status);
    QFETCH(QString, expectedFile);
    QStringList away;
    QStringList back;
    for (const QString &table : tables) {
        away << QStringLiteral("%1 TO %1_away").arg(table);
        back << QStringLiteral("%1_away TO %1").arg(table);
    }
    QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE ") + away.join(QStringLiteral(", "))));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QLatin1Char('^') + QRegularExpression::escape(warning)
                                                          + QStringLiteral("(\\(\\))? failed! Error: .+")));
    const HttpReply reply = get(path);
    QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE ") + back.join(QStringLiteral(", "))));
    QCOMPARE(reply.status, status);
    COMPARE_EXPECTED(reply.body, expectedFile);
}

QTEST_GUILESS_MAIN(TestAdmin)
#include "tst_admin.moc"

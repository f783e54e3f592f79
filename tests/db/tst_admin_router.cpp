// Administrator lookup and endpoint routing of the admin context, through buildResponse.
#include "support/adminfixture.h"

#include "worker/webapiworker.h"

#include <QRegularExpression>
#include <QtTest>

class TestAdminRouter : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void refusals_data();
    void refusals();
    void periodRefusals_data();
    void periodRefusals();
    void failedLookupIsInvalidId();
    void debugLinesAtLevelOne();

private:
    QScopedPointer<ApiFixture> m_fx;
};

void TestAdminRouter::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("adm_router")));
    QString error;
    QVERIFY2(AdminFixture::setUp(*m_fx, &error), qPrintable(error));
}

void TestAdminRouter::refusals_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("apiToken");
    QTest::addColumn<QString>("expectedFile");

    // The administrator is looked up before the endpoint word is.
    QTest::newRow("unknown token") << "GET" << "/webapi/attendance/daily" << "tok-nobody" << "admin/no-admin.http";
    QTest::newRow("unknown token, unknown endpoint") << "GET" << "/webapi/nothing" << "tok-nobody"
                                                     << "admin/no-admin.http";
    QTest::newRow("deleted admin") << "GET" << "/webapi/work/daily" << "tok-deleted" << "admin/no-admin.http";
    QTest::newRow("status 0") << "GET" << "/webapi/report/daily" << "tok-disabled" << "admin/invalid-admin.http";
    QTest::newRow("status 0, unknown endpoint") << "GET" << "/webapi/nothing" << "tok-disabled"
                                                << "admin/invalid-admin.http";
    // Permission is each controller's check, so an unknown word is reported as such.
    QTest::newRow("no permission, attendance") << "GET" << "/webapi/attendance/daily" << "tok-noperm"
                                               << "admin/no-permission.http";
    QTest::newRow("no permission, report") << "GET" << "/webapi/report/monthly" << "tok-noperm"
                                           << "admin/no-permission.http";
    QTest::newRow("no permission, work") << "GET" << "/webapi/work/daily" << "tok-noperm"
                                         << "admin/no-permission.http";
    QTest::newRow("no permission, unknown endpoint") << "GET" << "/webapi/nothing" << "tok-noperm"
                                                     << "admin/invalid-endpoint-nothing.http";
    QTest::newRow("post") << "POST" << "/webapi/attendance/daily" << "tok-boss" << "admin/bad-method-post.http";
    QTest::newRow("post before permission") << "POST" << "/webapi/work/daily" << "tok-noperm"
                                            << "admin/bad-method-post.http";
    QTest::newRow("post, unknown endpoint") << "POST" << "/webapi/nothing" << "tok-boss"
                                            << "admin/invalid-endpoint-nothing.http";
    QTest::newRow("endpoint case") << "GET" << "/webapi/Attendance/daily" << "tok-boss"
                                   << "admin/invalid-endpoint-Attendance.http";
    QTest::newRow("no endpoint") << "GET" << "/webapi" << "tok-boss" << "admin/invalid-endpoint-empty.http";
}

void TestAdminRouter::refusals()
{
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(QString, apiToken);
    QFETCH(QString, expectedFile);
    COMPARE_EXPECTED(maskTms(m_fx->call(method, path, m_fx->adminHeaders(apiToken))), expectedFile);
}

void TestAdminRouter::periodRefusals_data()
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

void TestAdminRouter::periodRefusals()
{
    QFETCH(QString, path);
    QFETCH(QString, message);
    const HttpReply reply = AdminFixture::get(*m_fx, path);
    QCOMPARE(reply.status, 400);
    QCOMPARE(reply.message(), message);
}

void TestAdminRouter::failedLookupIsInvalidId()
{
    QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE admins TO admins_away")));
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral("^AdminContextBuilder::getAdminId from ZMTDB failed! Error: .+")));
    const HttpReply reply = m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/attendance/daily"),
                                          m_fx->adminHeaders(QStringLiteral("tok-boss")));
    QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE admins_away TO admins")));
    QCOMPARE(reply.status, 400);
    QCOMPARE(reply.errorCode(), 100102);
    QCOMPARE(reply.message(), QStringLiteral("Invalid ID 'tok-boss'!"));
}

void TestAdminRouter::debugLinesAtLevelOne()
{
    // Any non-zero level switches on the admin context's trace; the request still succeeds.
    m_fx->worker()->setDebugLevel(1);
    QTest::ignoreMessage(QtDebugMsg, "AdminContextRouter::build() endpoint: 'report' data size: 0");
    QTest::ignoreMessage(QtDebugMsg, "ReportController::process() endpoint: 'report'");
    QTest::ignoreMessage(QtDebugMsg, "ReportController::buildMonthlyData() period: '2024-05' aid: 1");
    QTest::ignoreMessage(QtDebugMsg, "EmployeeAttendanceBuilder::collectActiveEmployees() '2024-05-01' .. '2024-05-31' aid: 1");
    QTest::ignoreMessage(QtDebugMsg, "EmployeeAttendanceBuilder::collectEmployeeData() '2024-05-01' .. '2024-05-31' aid: 1");
    const HttpReply reply = m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/report/monthly/2024-05"),
                                          m_fx->adminHeaders(QStringLiteral("tok-boss")));
    m_fx->worker()->setDebugLevel(0);
    QCOMPARE(reply.status, 200);
}

QTEST_GUILESS_MAIN(TestAdminRouter)
#include "tst_admin_router.moc"

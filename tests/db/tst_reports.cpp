// The four reports: active and present counts and each person's folded intervals.
#include "support/adminfixture.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QtTest>

class TestReports : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void dailySummaryWholeResponse();
    void variants_data();
    void variants();
    void periods_data();
    void periods();
    void relativeFilterMatchesLiteral();
    void otherAdministrator();
    void failingQueryLeavesEmployeeDataNull();

private:
    QScopedPointer<ApiFixture> m_fx;
};

void TestReports::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("adm_report")));
    QString error;
    QVERIFY2(AdminFixture::setUp(*m_fx, &error), qPrintable(error));
}

void TestReports::dailySummaryWholeResponse()
{
    const QByteArray raw = m_fx->call(QStringLiteral("GET"), QStringLiteral("/webapi/report/daily/2024-05-14"),
                                      m_fx->adminHeaders(QStringLiteral("tok-boss")));
    COMPARE_EXPECTED(maskTms(raw), QStringLiteral("admin/report-daily.http"));
}

void TestReports::variants_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expectedFile");
    QTest::addColumn<int>("activeEmployees");
    QTest::addColumn<int>("presentEmployees");
    // The summary keeps presence once seen, the detail takes each person's last row.
    // Person 108 has only a reason that counts as work on that day: listed, present, no reason.
    QTest::newRow("work reasons only") << "report/daily/2024-05-22" << "admin/report-daily-work-only.json" << 5 << 1;
    QTest::newRow("monthly") << "report/monthly/2024-05" << "admin/report-monthly.json" << 4 << 3;
    QTest::newRow("daily-detailed") << "report/daily-detailed/2024-05-14" << "admin/report-daily-detailed.json" << 5
                                    << 1;
    QTest::newRow("monthly-detailed") << "report/monthly-detailed/2024-05" << "admin/report-monthly-detailed.json"
                                      << 4 << 0;
}

void TestReports::variants()
{
    QFETCH(QString, path);
    QFETCH(QString, expectedFile);
    QFETCH(int, activeEmployees);
    QFETCH(int, presentEmployees);
    const HttpReply reply = AdminFixture::get(*m_fx, path);
    QCOMPARE(reply.status, 200);
    COMPARE_EXPECTED(reply.body, expectedFile);
    const QJsonObject body = reply.json().object();
    QCOMPARE(body.value(QStringLiteral("activeEmployees")).toInt(), activeEmployees);
    QCOMPARE(body.value(QStringLiteral("presentEmployees")).toInt(), presentEmployees);
}

void TestReports::periods_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("dateFrom");
    QTest::addColumn<QString>("dateTo");
    const QString yesterday = AdminFixture::isoDay(QDate::currentDate().addDays(-1));
    QTest::newRow("leap february") << "report/monthly/2024-02" << "2024-02-01" << "2024-02-29";
    QTest::newRow("common february") << "report/monthly-detailed/2023-02" << "2023-02-01" << "2023-02-28";
    QTest::newRow("yesterday") << "report/daily/-1" << yesterday << yesterday;
    QTest::newRow("day") << "report/daily-detailed/2024-02-29" << "2024-02-29" << "2024-02-29";
}

void TestReports::periods()
{
    QFETCH(QString, path);
    QFETCH(QString, dateFrom);
    QFETCH(QString, dateTo);
    const QJsonObject body = AdminFixture::get(*m_fx, path).json().object();
    QCOMPARE(body.value(QStringLiteral("dateFrom")).toString(), dateFrom);
    QCOMPARE(body.value(QStringLiteral("dateTo")).toString(), dateTo);
    // The leap day's one interval belongs to person 101 in every period that holds it.
    const QJsonArray people = body.value(QStringLiteral("employeeData")).toArray();
    if (dateTo.startsWith(QLatin1String("2024-02"))) {
        QCOMPARE(people.size(), 1);
        QCOMPARE(people.first().toObject().value(QStringLiteral("personId")).toInt(), 101);
    } else if (dateTo.startsWith(QLatin1String("2023"))) {
        QVERIFY(people.isEmpty());
    }
}

void TestReports::relativeFilterMatchesLiteral()
{
    const QDate today = QDate::currentDate();
    const HttpReply byOffset = AdminFixture::get(*m_fx, QStringLiteral("report/daily-detailed"));
    const HttpReply byDate = AdminFixture::get(*m_fx, QStringLiteral("report/daily-detailed/") + AdminFixture::isoDay(today));
    QCOMPARE(byOffset.body, byDate.body);
    const QJsonArray people = byOffset.json().object().value(QStringLiteral("employeeData")).toArray();
    QCOMPARE(people.size(), 1);
    QCOMPARE(people.first().toObject().value(QStringLiteral("extra")).toDouble(), 1.0);

    const HttpReply lastMonth = AdminFixture::get(*m_fx, QStringLiteral("report/monthly/-1"));
    const HttpReply literal = AdminFixture::get(*m_fx, QStringLiteral("report/monthly/")
                                                          + AdminFixture::isoMonth(today.addMonths(-1)));
    QCOMPARE(lastMonth.body, literal.body);
}

void TestReports::otherAdministrator()
{
    const HttpReply reply = AdminFixture::get(*m_fx, QStringLiteral("report/daily/2024-05-14"), QStringLiteral("tok-second"));
    const QJsonObject body = reply.json().object();
    QCOMPARE(body.value(QStringLiteral("activeEmployees")).toInt(), 2);
    QList<int> pids;
    for (const QJsonValue &person : body.value(QStringLiteral("employeeData")).toArray())
        pids.append(person.toObject().value(QStringLiteral("personId")).toInt());
    QCOMPARE(pids, (QList<int>{102, 104}));
}

void TestReports::failingQueryLeavesEmployeeDataNull()
{
    COMPARE_EXPECTED(maskTms(m_fx->call(QStringLiteral("GET"), QStringLiteral("/webapi/report/weekly"),
                                        m_fx->adminHeaders(QStringLiteral("tok-boss")))),
                     QStringLiteral("admin/report-weekly.http"));

    // The report still answers 200, with the count of active people and no employee data.
    QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE atten_data TO atten_data_away")));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(
                                           QStringLiteral("^AdminContextBuilder::collectEmployeeData\\(\\) failed! Error: .+")));
    const HttpReply reply = AdminFixture::get(*m_fx, QStringLiteral("report/monthly/2024-05"));
    QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE atten_data_away TO atten_data")));
    QCOMPARE(reply.status, 200);
    COMPARE_EXPECTED(reply.body, QStringLiteral("admin/report-failed-query.json"));
}

QTEST_GUILESS_MAIN(TestReports)
#include "tst_reports.moc"

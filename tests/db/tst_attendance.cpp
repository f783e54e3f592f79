// Day and month attendance sheets of an administrator's people, through buildResponse.
#include "support/adminfixture.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QtTest>

class TestAttendance : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void daySheet();
    void monthSheet();
    void otherAdministratorsPeopleNeverListed();
    void emptyDay();
    void relativeFilters_data();
    void relativeFilters();
    void sqlFailure();

private:
    QScopedPointer<ApiFixture> m_fx;
};

void TestAttendance::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("adm_atten")));
    QString error;
    QVERIFY2(AdminFixture::setUp(*m_fx, &error), qPrintable(error));
}

void TestAttendance::daySheet()
{
    // One row per shift label, hours as fractions, readiness over midnight, holidays with
    // and without a local name, NULL durations as 0 and other NULLs as null.
    const QByteArray raw = m_fx->call(QStringLiteral("GET"), QStringLiteral("/webapi/attendance/daily/2024-05-14"),
                                      m_fx->adminHeaders(QStringLiteral("tok-boss")));
    COMPARE_EXPECTED(maskTms(raw), QStringLiteral("admin/attendance-daily.http"));
}

void TestAttendance::monthSheet()
{
    const HttpReply reply = AdminFixture::get(*m_fx, QStringLiteral("attendance/monthly/2024-05"));
    QCOMPARE(reply.status, 200);
    COMPARE_EXPECTED(reply.body, QStringLiteral("admin/attendance-monthly.json"));
}

void TestAttendance::otherAdministratorsPeopleNeverListed()
{
    // Person 102 belongs to both administrators, 104 to the second only.
    for (const QString &path : {QStringLiteral("attendance/daily/2024-05-14"), QStringLiteral("attendance/monthly/2024-05")}) {
        const HttpReply reply = AdminFixture::get(*m_fx, path, QStringLiteral("tok-second"));
        QCOMPARE(reply.status, 200);
        QList<int> pids;
        for (const QJsonValue &row : reply.json().array())
            pids.append(row.toObject().value(QStringLiteral("personId")).toInt());
        QCOMPARE(pids, (QList<int>{102, 104}));
    }
}

void TestAttendance::emptyDay()
{
    const HttpReply reply = AdminFixture::get(*m_fx, QStringLiteral("attendance/daily/2001-01-01"));
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.body, QByteArray("[\n]\n"));
}

void TestAttendance::relativeFilters_data()
{
    QTest::addColumn<QString>("relative");
    QTest::addColumn<QString>("literal");
    QTest::addColumn<double>("worked");  // of person 1 in that period
    const QDate today = QDate::currentDate();
    const QString today_ = AdminFixture::isoDay(today);
    QTest::newRow("no filter") << "attendance/daily" << today_ << 8.0;
    QTest::newRow("zero") << "attendance/daily/0" << today_ << 8.0;
    QTest::newRow("letters") << "attendance/daily/abc" << today_ << 8.0;
    QTest::newRow("yesterday") << "attendance/daily/-1" << AdminFixture::isoDay(today.addDays(-1)) << 4.0;
    QTest::newRow("trailing letter") << "attendance/daily/2024-05-14x" << "2024-05-14" << 7.5;
    QTest::newRow("this month") << "attendance/monthly" << AdminFixture::isoMonth(today) << 100.0;
    QTest::newRow("last month") << "attendance/monthly/-1" << AdminFixture::isoMonth(today.addMonths(-1)) << 50.0;
}

void TestAttendance::relativeFilters()
{
    QFETCH(QString, relative);
    QFETCH(QString, literal);
    QFETCH(double, worked);
    const HttpReply byOffset = AdminFixture::get(*m_fx, relative);
    const QString base = relative.section(QLatin1Char('/'), 0, 1);
    const HttpReply byDate = AdminFixture::get(*m_fx, base + QLatin1Char('/') + literal);
    QCOMPARE(byOffset.status, 200);
    QCOMPARE(byOffset.body, byDate.body);
    const QJsonObject first = byOffset.json().array().first().toObject();
    QCOMPARE(first.value(QStringLiteral("personId")).toInt(), 101);
    QCOMPARE(first.value(QStringLiteral("worked")).toDouble(), worked);
}

void TestAttendance::sqlFailure()
{
    COMPARE_EXPECTED(maskTms(m_fx->call(QStringLiteral("GET"), QStringLiteral("/webapi/attendance/daily/2024-02-30"),
                                        m_fx->adminHeaders(QStringLiteral("tok-boss")))),
                     QStringLiteral("admin/attendance-invalid-date.http"));

    QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE atten TO atten_away, atten_month TO atten_month_away")));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(
                                           QStringLiteral("^AttendanceController::collectDayData\\(\\) failed! Error: .+")));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(
                                           QStringLiteral("^AttendanceController::collectMonthData\\(\\) failed! Error: .+")));
    const HttpReply day = AdminFixture::get(*m_fx, QStringLiteral("attendance/daily/2024-05-14"));
    const HttpReply month = AdminFixture::get(*m_fx, QStringLiteral("attendance/monthly/2024-05"));
    QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE atten_away TO atten, atten_month_away TO atten_month")));
    for (const HttpReply &reply : {day, month}) {
        QCOMPARE(reply.status, 500);
        QCOMPARE(reply.errorCode(), 100501);
        QCOMPARE(reply.message(), QStringLiteral("Database error"));
    }
}

QTEST_GUILESS_MAIN(TestAttendance)
#include "tst_attendance.moc"

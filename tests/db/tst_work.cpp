// Hours worked per person for a day or a month, through buildResponse.
#include "support/adminfixture.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QtTest>

class TestWork : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void dayWholeResponse();
    void monthSheet();
    void relativeFilters_data();
    void relativeFilters();
    void emptyPeriod();
    void sqlFailure();

private:
    QScopedPointer<ApiFixture> m_fx;
};

void TestWork::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("adm_work")));
    QString error;
    QVERIFY2(AdminFixture::setUp(*m_fx, &error), qPrintable(error));
}

void TestWork::dayWholeResponse()
{
    // The day's CONCAT gives null for a missing first name; a NULL work is 0 hours.
    const QByteArray raw = m_fx->call(QStringLiteral("GET"), QStringLiteral("/webapi/work/daily/2024-05-14"),
                                      m_fx->adminHeaders(QStringLiteral("tok-boss")));
    COMPARE_EXPECTED(maskTms(raw), QStringLiteral("admin/work-daily.http"));
}

void TestWork::monthSheet()
{
    // The month's CONCAT_WS gives the surname alone; person 104 is the other administrator's.
    const HttpReply mine = AdminFixture::get(*m_fx, QStringLiteral("work/monthly/2024-05"));
    QCOMPARE(mine.status, 200);
    COMPARE_EXPECTED(mine.body, QStringLiteral("admin/work-monthly.json"));
    const HttpReply theirs = AdminFixture::get(*m_fx, QStringLiteral("work/monthly/2024-05"), QStringLiteral("tok-second"));
    COMPARE_EXPECTED(theirs.body, QStringLiteral("admin/work-monthly-second.json"));
}

void TestWork::relativeFilters_data()
{
    QTest::addColumn<QString>("relative");
    QTest::addColumn<QString>("literal");
    QTest::addColumn<double>("worked");
    const QDate today = QDate::currentDate();
    QTest::newRow("today") << "work/daily" << "work/daily/" + AdminFixture::isoDay(today) << 8.0;
    QTest::newRow("yesterday") << "work/daily/-1" << "work/daily/" + AdminFixture::isoDay(today.addDays(-1)) << 4.0;
    QTest::newRow("this month") << "work/monthly/zzz" << "work/monthly/" + AdminFixture::isoMonth(today) << 100.0;
    QTest::newRow("last month") << "work/monthly/-1" << "work/monthly/" + AdminFixture::isoMonth(today.addMonths(-1))
                                << 50.0;
}

void TestWork::relativeFilters()
{
    QFETCH(QString, relative);
    QFETCH(QString, literal);
    QFETCH(double, worked);
    const HttpReply byOffset = AdminFixture::get(*m_fx, relative);
    QCOMPARE(byOffset.status, 200);
    QCOMPARE(byOffset.body, AdminFixture::get(*m_fx, literal).body);
    const QJsonArray rows = byOffset.json().array();
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows.first().toObject().value(QStringLiteral("worked")).toDouble(), worked);
}

void TestWork::emptyPeriod()
{
    const HttpReply reply = AdminFixture::get(*m_fx, QStringLiteral("work/monthly/2001-01"));
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.body, QByteArray("[\n]\n"));
}

void TestWork::sqlFailure()
{
    COMPARE_EXPECTED(maskTms(m_fx->call(QStringLiteral("GET"), QStringLiteral("/webapi/work/monthly/2024-13"),
                                        m_fx->adminHeaders(QStringLiteral("tok-boss")))),
                     QStringLiteral("admin/work-invalid-month.http"));

    QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE atten TO atten_away, atten_month TO atten_month_away")));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(
                                           QStringLiteral("^WorkController::processDailyData\\(\\) failed! Error: .+")));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(
                                           QStringLiteral("^WorkController::processMonthlyData\\(\\) failed! Error: .+")));
    const HttpReply day = AdminFixture::get(*m_fx, QStringLiteral("work/daily/2024-05-14"));
    const HttpReply month = AdminFixture::get(*m_fx, QStringLiteral("work/monthly/2024-05"));
    QVERIFY(m_fx->customer().exec(QStringLiteral("RENAME TABLE atten_away TO atten, atten_month_away TO atten_month")));
    for (const HttpReply &reply : {day, month}) {
        QCOMPARE(reply.status, 500);
        QCOMPARE(reply.errorCode(), 100501);
        QCOMPARE(reply.message(), QStringLiteral("Database error"));
    }
}

QTEST_GUILESS_MAIN(TestWork)
#include "tst_work.moc"

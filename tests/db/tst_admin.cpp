// The admin context through buildResponse: administrator lookup and routing, and the
// attendance, report and work sheets of tests/data/admin/fixture.sql.
#include "support/apifixture.h"

#include <QtTest>

class TestAdmin : public QObject
{
    Q_OBJECT

    QScopedPointer<ApiFixture> m_fx;

private slots:
    void initTestCase()
    {
        m_fx.reset(new ApiFixture(QStringLiteral("admin")));
        QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
        QString error;
        QVERIFY2(TestServer::loadSqlFile(m_fx->customer().name(), QStringLiteral(WEBAPI_TEST_DATA "/admin/fixture.sql"), &error),
                 qPrintable(error));
    }

    void requests_data()
    {
        // method, path below /webapi/, token (tok-boss when none), a table renamed away during the request
        QTest::addColumn<QString>("request");
        // .http: the whole response; .json: the body; a path: the body of that path; else the status and the error message
        QTest::addColumn<QString>("expected");
        // The administrator is looked up before the endpoint word; permission and verb are each
        // endpoint's checks, the verb first.
        QTest::newRow("unknown token") << "GET attendance/daily tok-nobody" << "admin/no-admin.http";
        QTest::newRow("status 0, unknown endpoint") << "GET nothing tok-disabled" << "admin/invalid-admin.http";
        QTest::newRow("no permission") << "GET report/monthly tok-noperm" << "admin/no-permission.http";
        QTest::newRow("no endpoint") << "GET nothing tok-noperm" << "admin/invalid-endpoint-nothing.http";
        QTest::newRow("post before permission") << "POST attendance/daily tok-noperm" << "admin/bad-method-post.http";
        // One row per shift label, hours as fractions, readiness over midnight, holidays with
        // and without a local name, NULL durations as 0 and other NULLs as null.
        QTest::newRow("attendance day") << "GET attendance/daily/2024-05-14" << "admin/attendance-daily.http";
        QTest::newRow("attendance month") << "GET attendance/monthly/2024-05" << "admin/attendance-monthly.json";
        QTest::newRow("report day") << "GET report/daily/2024-05-14" << "admin/report-daily.http";
        // The summary keeps presence once seen, the detail takes each person's last row.
        // Person 108 has only a reason that counts as work on that day: listed, present, no reason.
        QTest::newRow("work reasons only") << "GET report/daily/2024-05-22" << "admin/report-daily-work-only.json";
        QTest::newRow("report month") << "GET report/monthly/2024-05" << "admin/report-monthly.json";
        QTest::newRow("day, detail") << "GET report/daily-detailed/2024-05-14" << "admin/report-daily-detailed.json";
        QTest::newRow("month, detail") << "GET report/monthly-detailed/2024-05" << "admin/report-monthly-detailed.json";
        // The day's CONCAT gives null for a missing first name, the month's CONCAT_WS the surname
        // alone; a NULL work is 0 hours; person 104 is the other administrator's.
        QTest::newRow("work day") << "GET work/daily/2024-05-14" << "admin/work-daily.http";
        QTest::newRow("work month") << "GET work/monthly/2024-05" << "admin/work-monthly.json";
        QTest::newRow("second admin") << "GET work/monthly/2024-05 tok-second" << "admin/work-monthly-second.json";
        // The argument is the filter as the digit filter left it, never the raw word; each period
        // reads its filter as a day or a month.
        QTest::newRow("filtered word") << "GET attendance/daily/x2024-02-30y" << "400 Invalid date '2024-02-30'!";
        QTest::newRow("a day as month") << "GET attendance/monthly/2024-05-01" << "400 Invalid month '2024-05-01'!";
        QTest::newRow("no period") << "GET attendance" << "400 Invalid API endpoint ''!";
        QTest::newRow("common year") << "GET report/daily-detailed/2023-02-29" << "400 Invalid date '2023-02-29'!";
        // With an administrator's token, only the terminal's own lists stay in the terminal context.
        QTest::newRow("terminal list") << "GET inters" << "200";
        QTest::newRow("people") << "GET people" << "400 Invalid API endpoint 'people'!";
        // A failed statement: the sheets answer 500, the report still 200 with no employee data,
        // a failed administrator lookup is a bad id.
        QTest::newRow("sheet, failing") << "GET attendance/daily/2024-05-14 tok-boss atten" << "500 Database error";
        QTest::newRow("month, failing") << "GET work/monthly/2024-05 tok-boss atten_month" << "500 Database error";
        QTest::newRow("report failing") << "GET report/monthly/2024-05 tok-boss atten_data" << "admin/report-failed-query.json";
        QTest::newRow("lookup, failing") << "GET attendance/daily tok-boss admins" << "400 Invalid ID 'tok-boss'!";
        // A relative filter reads as its literal date: the fixture has rows today, yesterday, this and last month.
        const QDate today = QDate::currentDate();
        QTest::newRow("attendance, no filter") << "GET attendance/daily" << "attendance/daily/" + today.toString(Qt::ISODate);
        QTest::newRow("last month") << "GET attendance/monthly/-1" << "attendance/monthly/" + today.addMonths(-1).toString("yyyy-MM");
        QTest::newRow("work, this month") << "GET work/monthly/zzz" << "work/monthly/" + today.toString("yyyy-MM");
    }

    void requests()
    {
        QFETCH(QString, request);
        QFETCH(QString, expected);
        const QStringList words = request.split(QLatin1Char(' '));
        const auto rename = [&](const char *from, const char *to) {
            return words.size() < 4 || m_fx->customer().exec(QString("RENAME TABLE %1%2 TO %1%3").arg(words.at(3), from, to));
        };
        QVERIFY(rename("", "_away"));
        const QByteArray raw = m_fx->call(words.at(0), "/webapi/" + words.at(1), m_fx->adminHeaders(words.value(2, "tok-boss")));
        QVERIFY(rename("_away", ""));
        const HttpReply reply = HttpReply::parse(raw);
        if (expected.endsWith(QLatin1String(".http"))) {
            COMPARE_EXPECTED(maskTms(raw), expected);
        } else if (expected.endsWith(QLatin1String(".json"))) {
            QCOMPARE(reply.status, 200);
            COMPARE_EXPECTED(reply.body, expected);
        } else if (expected.at(0).isLower()) {
            QVERIFY(reply.status == 200 && reply.body.contains("\"personId\""));
            QCOMPARE(reply.body, HttpReply::parse(m_fx->call("GET", "/webapi/" + expected, m_fx->adminHeaders("tok-boss"))).body);
        } else {
            QCOMPARE(QStringLiteral("%1 %2").arg(reply.status).arg(reply.message()).trimmed(), expected);
        }
    }
};

QTEST_GUILESS_MAIN(TestAdmin)
#include "tst_admin.moc"

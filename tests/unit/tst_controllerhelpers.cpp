// The helpers the admin controllers share: the filter word, period parsing, hours and
// shift labels.
#include "controllers/controllerhelpers.h"

#include <QtTest>

class TestControllerHelpers : public QObject
{
    Q_OBJECT

private slots:
    void filterDigitsKeepsDigitsAndMinus_data();
    void filterDigitsKeepsDigitsAndMinus();
    void periodFilter_data();
    void periodFilter();
    void periodFilterDefaultsToToday();
    void secondsToHoursIsDouble();
    void formatShiftTable_data();
    void formatShiftTable();
};

void TestControllerHelpers::filterDigitsKeepsDigitsAndMinus_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<QString>("expected");
    QTest::newRow("date") << "2024-05-01" << "2024-05-01";
    QTest::newRow("trailing letter") << "2024-05-01x" << "2024-05-01";
    QTest::newRow("letters only") << "abc" << "";
    QTest::newRow("offset") << "-1" << "-1";
    QTest::newRow("mixed") << "a1b-2c" << "1-2";
    QTest::newRow("dots") << "2024.05.01" << "20240501";
    QTest::newRow("other script digits") << QString::fromUtf8("٢٠x") << QString::fromUtf8("٢٠");
    QTest::newRow("empty") << "" << "";
}

void TestControllerHelpers::filterDigitsKeepsDigitsAndMinus()
{
    QFETCH(QString, word);
    QFETCH(QString, expected);
    QCOMPARE(filterDigits(word), expected);
}

void TestControllerHelpers::periodFilter_data()
{
    QTest::addColumn<QString>("filter");
    QTest::addColumn<bool>("monthly");
    QTest::addColumn<QDate>("today");
    QTest::addColumn<QDate>("expected");  // invalid: refused
    const QDate may15(2024, 5, 15);
    const QDate jan10(2024, 1, 10);
    QTest::newRow("empty is today") << "" << false << may15 << may15;
    QTest::newRow("zero is today") << "0" << false << may15 << may15;
    QTest::newRow("yesterday") << "-1" << false << may15 << QDate(2024, 5, 14);
    QTest::newRow("yesterday over new year") << "-1" << false << QDate(2024, 1, 1) << QDate(2023, 12, 31);
    QTest::newRow("tomorrow") << "1" << false << may15 << QDate(2024, 5, 16);
    QTest::newRow("digits are days") << "2024" << false << may15 << may15.addDays(2024);
    QTest::newRow("literal day") << "2024-02-29" << false << may15 << QDate(2024, 2, 29);
    QTest::newRow("no such day") << "2024-02-30" << false << may15 << QDate();
    QTest::newRow("common year") << "2023-02-29" << false << may15 << QDate();
    QTest::newRow("month in day mode") << "2024-05" << false << may15 << QDate();
    QTest::newRow("minus alone") << "-" << false << may15 << QDate();
    QTest::newRow("this month") << "0" << true << may15 << may15;
    QTest::newRow("last month") << "-1" << true << may15 << QDate(2024, 4, 15);
    QTest::newRow("last month in january") << "-1" << true << jan10 << QDate(2023, 12, 10);
    QTest::newRow("literal month") << "2024-05" << true << jan10 << QDate(2024, 5, 1);
    QTest::newRow("month 13") << "2024-13" << true << may15 << QDate();
    QTest::newRow("day in month mode") << "2024-05-01" << true << may15 << QDate();
}

void TestControllerHelpers::periodFilter()
{
    QFETCH(QString, filter);
    QFETCH(bool, monthly);
    QFETCH(QDate, today);
    QFETCH(QDate, expected);
    QCOMPARE(parsePeriodFilter(filter, monthly, today), expected);
}

void TestControllerHelpers::periodFilterDefaultsToToday()
{
    const QDate today = QDate::currentDate();
    QCOMPARE(parsePeriodFilter(QString(), false), today);
    QCOMPARE(parsePeriodFilter(QStringLiteral("-1"), false), today.addDays(-1));
}

void TestControllerHelpers::secondsToHoursIsDouble()
{
    const QVariant hours = secondsToHours(27000);
    QCOMPARE(hours.userType(), int(QMetaType::Double));
    QCOMPARE(hours.toDouble(), 7.5);
    QCOMPARE(secondsToHours(-5400).toDouble(), -1.5);
    QCOMPARE(secondsToHours(90000).toDouble(), 25.0);
}

void TestControllerHelpers::formatShiftTable_data()
{
    QTest::addColumn<int>("shiftNo");
    QTest::addColumn<bool>("isPlan");
    QTest::addColumn<bool>("hasFond");
    QTest::addColumn<bool>("isFreeDay");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<bool>("isNull");
    QTest::newRow("no shift") << 0 << false << true << false << QString() << true;
    QTest::newRow("planned no shift") << 0 << true << true << false << "P" << false;
    QTest::newRow("255") << 255 << true << false << true << "UD" << false;
    QTest::newRow("255 plain") << 255 << false << false << false << "UD" << false;
    QTest::newRow("planned 1 without fond") << 1 << true << false << false << "P V" << false;
    QTest::newRow("planned free day without fond") << 0 << true << false << true << "P V" << false;
    QTest::newRow("free day") << 0 << false << true << true << "" << false;
    QTest::newRow("planned free day with fond") << 0 << true << true << true << "" << false;
    QTest::newRow("planned 1 with fond") << 1 << true << true << false << "P 1." << false;
    QTest::newRow("planned 3") << 3 << true << false << false << "P 3." << false;
    QTest::newRow("1") << 1 << false << false << false << "1." << false;
    QTest::newRow("12 on a free day") << 12 << false << true << true << "12." << false;
}

void TestControllerHelpers::formatShiftTable()
{
    QFETCH(int, shiftNo);
    QFETCH(bool, isPlan);
    QFETCH(bool, hasFond);
    QFETCH(bool, isFreeDay);
    QFETCH(QString, expected);
    QFETCH(bool, isNull);
    const QString label = formatShift(quint8(shiftNo), isPlan, hasFond, isFreeDay);
    QCOMPARE(label, expected);
    QCOMPARE(label.isNull(), isNull);
}

QTEST_GUILESS_MAIN(TestControllerHelpers)
#include "tst_controllerhelpers.moc"

// The helpers the admin controllers share: the filter word as a period, and shift labels.
#include "controllers/controllerhelpers.h"

#include <QtTest>

class TestControllerHelpers : public QObject
{
    Q_OBJECT

private slots:
    void periodFilter_data();
    void periodFilter();
    void formatShiftTable_data();
    void formatShiftTable();
};

void TestControllerHelpers::periodFilter_data()
{
    QTest::addColumn<QString>("filter");
    QTest::addColumn<bool>("monthly");
    QTest::addColumn<QDate>("today");
    QTest::addColumn<QDate>("expected");  // invalid: refused
    const QDate may15(2024, 5, 15);
    const QDate jan10(2024, 1, 10);
    QTest::newRow("empty is today") << "" << false << may15 << may15;
    QTest::newRow("letters are today") << "abc" << false << may15 << may15;
    QTest::newRow("trailing letter dropped") << "2024-05-01x" << false << may15 << QDate(2024, 5, 1);
    QTest::newRow("yesterday") << "-1" << false << may15 << QDate(2024, 5, 14);
    QTest::newRow("yesterday over new year") << "-1" << false << QDate(2024, 1, 1) << QDate(2023, 12, 31);
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
    // As the controllers call it: the word filtered first.
    QCOMPARE(parsePeriodFilter(filterDigits(filter), monthly, today), expected);
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

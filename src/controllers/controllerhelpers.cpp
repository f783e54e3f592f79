#include "controllers/controllerhelpers.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QSqlField>
#include <QSqlQuery>
#include <QSqlRecord>

const QString kDayFormat = QStringLiteral("yyyy-MM-dd");
const QString kMonthFormat = QStringLiteral("yyyy-MM");

QString filterDigits(const QString &word)
{
    QString digits;
    digits.reserve(word.size());
    for (const QChar ch : word) {
        if (ch.isDigit() || ch == QLatin1Char('-'))
            digits.append(ch);
    }
    return digits;
}

QDate parsePeriodFilter(const QString &filter, bool monthly)
{
    return parsePeriodFilter(filter, monthly, QDate::currentDate());
}

QDate parsePeriodFilter(const QString &filter, bool monthly, const QDate &today)
{
    bool isNumber = false;
    const int offset = filter.toInt(&isNumber, 10);
    // Digits alone are always an offset, never a date.
    QDate date = today;
    if (!isNumber && !filter.isEmpty())
        date = QDate::fromString(filter, monthly ? kMonthFormat : kDayFormat);
    if (offset != 0)
        date = monthly ? date.addMonths(offset) : date.addDays(offset);
    return date;
}

QVariant secondsToHours(qint64 seconds)
{
    return QVariant(double(seconds) / 3600.0);
}

QString formatShift(quint8 shiftNo, bool isPlan, bool hasFond, bool isFreeDay)
{
    if (shiftNo == 0 && !isFreeDay)
        return isPlan ? QStringLiteral("P") : QString();
    if (shiftNo == 255)
        return QStringLiteral("UD");
    if (shiftNo <= 1 && isPlan && !hasFond)
        return QCoreApplication::translate("formatShift", "P V");
    if (shiftNo == 0)
        return QLatin1String("");
    return isPlan ? QStringLiteral("P %1.").arg(shiftNo) : QStringLiteral("%1.").arg(shiftNo);
}

QVariant storedValue(const QVariant &value)
{
    // The driver gives NULL as a typed null, which JSON would render as 0 or "".
    return value.isNull() ? QVariant() : value;
}

QVariantMap recordToMap(const QSqlQuery &query, const QSet<QString> &durationColumns)
{
    QVariantMap map;
    if (!query.isValid() || !query.isActive() || !query.isSelect())
        return map;
    const QSqlRecord record = query.record();
    for (int i = 0; i < record.count(); ++i) {
        const QSqlField field = record.field(i);
        const QString name = field.name();
        if (durationColumns.contains(name))
            map.insert(name, secondsToHours(field.value().toLongLong()));
        else if (name.startsWith(QLatin1String("is")))
            map.insert(name, field.value().toBool());
        else
            map.insert(name, storedValue(field.value()));
    }
    return map;
}

qint64 localMidnight(const QDate &date)
{
    return date.startOfDay().toSecsSinceEpoch();
}

uint monthNumber(const QDate &date)
{
    return date.toString(QStringLiteral("yyyyMM")).toUInt();
}

QString monthPeopleRestriction(uint aid)
{
    return QStringLiteral(" AND (a.uid IN (SELECT uid FROM `admins_people` WHERE aid = %1)) ").arg(aid);
}

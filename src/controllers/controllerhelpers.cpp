#include "controllers/controllerhelpers.h"

#include "response/jsonwriter.h"

#include <QCoreApplication>
#include <QDateTime>
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

double secondsToHours(qint64 seconds)
{
    return double(seconds) / 3600.0;
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

RowLayout::RowLayout(const QSqlRecord &record, const QSet<QString> &durationColumns, const QStringList &computed)
{
    // A map as the rows once were: keys in order, and a later column or a computed key wins.
    QMap<QString, Key> keys;
    for (int i = 0; i < record.count(); ++i) {
        const QString name = record.fieldName(i);
        const Kind kind = durationColumns.contains(name) ? Hours
            : name.startsWith(QLatin1String("is"))      ? Flag
                                                        : Stored;
        keys.insert(name, {name, kind, i});
    }
    for (int i = 0; i < computed.size(); ++i)
        keys.insert(computed.at(i), {computed.at(i), Computed, i});
    m_keys = keys.values().toVector();
}

void RowLayout::writeRow(JsonWriter &json, const QSqlQuery &query, const ComputedWriter &writeComputed) const
{
    json.beginObject();
    for (const Key &key : m_keys) {
        json.key(key.name);
        switch (key.kind) {
        case Hours: json.number(secondsToHours(query.value(key.index).toLongLong())); break;
        case Flag: json.boolean(query.value(key.index).toBool()); break;
        case Stored: json.stored(query.value(key.index)); break;
        case Computed: writeComputed(json, key.index); break;
        }
    }
    json.endObject();
}

QVariant RowLayout::rowsBody(QSqlQuery &query, bool pretty, const ComputedWriter &writeComputed) const
{
    JsonWriter json(pretty);
    json.beginArray();
    while (query.next())
        writeRow(json, query, writeComputed);
    json.endArray();
    return json.takeBody();
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

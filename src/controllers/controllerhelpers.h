#ifndef CONTROLLERHELPERS_H
#define CONTROLLERHELPERS_H

// Free functions shared by the admin-context controllers: the period filter, hours and
// the conversion of result rows.

#include <QDate>
#include <QSet>
#include <QString>
#include <QVariant>
#include <QVector>

#include <functional>

class JsonWriter;
class QSqlQuery;
class QSqlRecord;

// Formats of a literal period word.
extern const QString kDayFormat;   // "yyyy-MM-dd"
extern const QString kMonthFormat; // "yyyy-MM"

// Keeps decimal digits (any script) and '-', in order.
QString filterDigits(const QString &word);

// A signed offset from today (days or months), or a literal date; invalid when the filter
// is neither.
QDate parsePeriodFilter(const QString &filter, bool monthly);
// The same against a given today, so that month and year boundaries can be checked.
QDate parsePeriodFilter(const QString &filter, bool monthly, const QDate &today);

double secondsToHours(qint64 seconds);

// Label of a day's shift.
QString formatShift(quint8 shiftNo, bool isPlan, bool hasFond, bool isFreeDay);

// The columns of a statement as the keys of one JSON object per row, sorted and resolved
// once per statement: durations as hours, "is" columns as bool, everything else as the
// driver gives it, with NULL as a JSON null. A key of `computed` is written by the caller
// (`writeComputed` with its position in `computed`) and replaces a column of that name.
class RowLayout
{
public:
    using ComputedWriter = std::function<void(JsonWriter &json, int computed)>;

    RowLayout(const QSqlRecord &record, const QSet<QString> &durationColumns, const QStringList &computed = {});
    void writeRow(JsonWriter &json, const QSqlQuery &query, const ComputedWriter &writeComputed = nullptr) const;
    // The rows left in `query`, one object each, as a JSON array for Response::setData.
    QVariant rowsBody(QSqlQuery &query, bool pretty, const ComputedWriter &writeComputed = nullptr) const;

private:
    enum Kind { Stored, Hours, Flag, Computed };
    struct Key
    {
        QString name;
        Kind kind;
        int index;  // column, or position in `computed`
    };
    QVector<Key> m_keys;
};

// Local midnight of `date`, as the day is keyed in the database.
qint64 localMidnight(const QDate &date);

// yyyyMM, the key of a month in the database.
uint monthNumber(const QDate &date);

// The restriction of a month statement to the administrator's people.
QString monthPeopleRestriction(uint aid);

#endif

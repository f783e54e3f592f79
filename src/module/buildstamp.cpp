#include "module/buildstamp.h"

#include <QDateTime>
#include <QLocale>

QString buildStamp(const QString &date, const QString &time)
{
    // The compiler pads a one-digit day with a blank; en_US keeps month names fixed.
    const QTime t = QTime::fromString(time.simplified(), QStringLiteral("hh:mm:ss"));
    const QDate d = QLocale(QStringLiteral("en_US")).toDate(date.simplified(), QStringLiteral("MMM d yyyy"));
    // QDateTime would take an invalid time for midnight and still be valid.
    const QDateTime stamp(d, t, Qt::LocalTime);
    return stamp.isValid() && t.isValid() ? stamp.toString(QStringLiteral("yyMMddhhmm")) : QString();
}

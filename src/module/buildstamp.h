#ifndef BUILDSTAMP_H
#define BUILDSTAMP_H

#include <QString>

// The build stamp "yyMMddhhmm" from the compiler's date and time texts ("Apr 30 2024",
// "15:43:02"), read as local time; empty when either does not parse.
QString buildStamp(const QString &date, const QString &time);

#endif

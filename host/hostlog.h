#ifndef HOSTLOG_H
#define HOSTLOG_H

#include <QString>

// One line on stderr with the local time in front; stdio writes each line whole, so lines of
// several threads do not mix.
void hostLog(const QString &line);

#endif

#ifndef HTTPSTATUS_H
#define HTTPSTATUS_H

#include <QString>

// Reason phrase of an HTTP status; unknown codes get the name of their class.
QString httpStatusName(int status);

#endif

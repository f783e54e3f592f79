#ifndef TERMINALREQUESTCONTEXT_H
#define TERMINALREQUESTCONTEXT_H

#include "request/requestheader.h"

#include <QSqlDatabase>
#include <QString>

class Licence;
class Response;
class StatementCache;

// The one record that travels through the terminal context for a single request: the units
// read the database through it and write their errors to its response.
struct TerminalRequestContext
{
    RequestHeader header;
    QSqlDatabase db;                  // handle copy of the worker's open connection
    Response *response = nullptr;     // owned by the worker
    const Licence *licence = nullptr; // the customer's licence rows, read for this request
    QString version;                  // of the plug-in, for the info endpoint
    // The connection's kept prepared statements, owned by the worker; none: prepared each time.
    StatementCache *statements = nullptr;
};

#endif

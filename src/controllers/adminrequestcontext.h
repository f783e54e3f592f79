#ifndef ADMINREQUESTCONTEXT_H
#define ADMINREQUESTCONTEXT_H

#include "controllers/admininfo.h"
#include "request/requestheader.h"

#include <QByteArray>
#include <QSqlDatabase>
#include <QUrl>

class Response;

// The one record that travels through the admin context for a single request.
struct AdminRequestContext
{
    RequestHeader header;
    QString method;
    QUrl url;
    QByteArray data;              // only its size is used, in a log line
    Response *response = nullptr; // owned by the worker
    QSqlDatabase db;              // handle copy of the worker's open connection
    AdminInfo admin;              // filled by the administrator lookup
};

#endif

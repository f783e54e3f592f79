#ifndef ADMINREQUESTCONTEXT_H
#define ADMINREQUESTCONTEXT_H

#include "worker/requestheader.h"

#include <QByteArray>
#include <QSqlDatabase>
#include <QUrl>

class Response;

// The authenticated administrator of an admin request.
struct AdminInfo
{
    quint16 aid = 0;
    quint32 perms = 0;
    quint16 status = 0;

    void setPerms(quint32 value) { perms = value; }
    void setStatus(quint16 value) { status = value; }
    // The status is looked at only when a permission bit matches.
    bool hasPermission(int mask, int minStatus) const
    {
        return (perms & quint32(mask)) != 0 && status >= minStatus;
    }
};

// The one record that travels through the admin context for a single request.
struct AdminRequestContext
{
    RequestHeader header;
    QString method;
    QUrl url;
    QByteArray data;
    Response *response = nullptr;
    QSqlDatabase db;
    AdminInfo admin;
};

#endif

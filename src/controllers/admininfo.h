#ifndef ADMININFO_H
#define ADMININFO_H

#include <QtGlobal>

// The authenticated administrator of an admin request. The id and the status are kept in
// 16 bits; wider database values are cut without a word.
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

#endif

#ifndef ENTRANCES_H
#define ENTRANCES_H

#include "terminal/terminalrequestcontext.h"

#include <QVariant>

// Entrances: the events a terminal posts, by refId its own number of the event.

// The row a post ended in (0: refused, the error on the response), and whether it is new and
// holds a photo, which a host processes further.
struct PostedEntrance
{
    uint id = 0;
    bool newPhoto = false;
};

bool dbCheckEntrance(const TerminalRequestContext &ctx, uint id, uint refId);
// Withdraws the terminal's entrance; true when the row changed.
bool dbDeleteEntrance(const TerminalRequestContext &ctx, uint tid, uint id);
uint dbGetEntranceMaxRefId(const TerminalRequestContext &ctx, uint tid);
// Stores the event of `data`; the same event again (by refId) answers 208 with the first row.
PostedEntrance dbInsertEntrance(const TerminalRequestContext &ctx, uint tid, const QVariantMap &data);
// The entrance as a written body; an empty map when none, invalid when the read failed.
QVariant dbGetEntrance(const TerminalRequestContext &ctx, uint id);

#endif

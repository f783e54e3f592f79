#ifndef SYNCFEED_H
#define SYNCFEED_H

#include "terminal/terminalrequestcontext.h"

#include <QtGlobal>

// The terminal synchronisation feed: marks in term_sync, summarised by the bits of term.syn,
// read by a terminal and removed when it acknowledges them.

// The feed of the terminal (with `force` a full copy of its sections) as the response's
// data; asking marks the terminal online. False when nothing was pending.
bool dbGetSync(const TerminalRequestContext &ctx, uint tid, bool force);
// Removes the marks of the `flags` sections older than `created` and clears the bits no
// mark is left for; the number removed, -1 when the removal failed.
int dbDeleteSync(const TerminalRequestContext &ctx, uint tid, uint created, quint16 flags);

#endif

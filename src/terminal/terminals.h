#ifndef TERMINALS_H
#define TERMINALS_H

#include "terminal/terminalrequestcontext.h"

#include <QVariantMap>

// Terminal records: the registration of a device, its row, its liveness.

// True for an active API terminal of this number and device; false also when the read failed.
bool dbCheckTerm(const TerminalRequestContext &ctx, uint tid, uint vorixID);
bool dbSetTermOnline(const TerminalRequestContext &ctx, uint tid);
// Registers the device of `data` (or updates its row, 208 when nothing changed); its number,
// 0 when refused (the error on the response).
uint dbInsertTerm(const TerminalRequestContext &ctx, const QVariantMap &data);
// The terminal's row as it describes itself, with its composite identifier; empty when none.
QVariantMap dbGetTerm(const TerminalRequestContext &ctx, uint tid);
// True when the update changed the row.
bool dbUpdateTerm(const TerminalRequestContext &ctx, uint tid, const QVariantMap &data);

#endif

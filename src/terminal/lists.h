#ifndef LISTS_H
#define LISTS_H

#include "terminal/terminalrequestcontext.h"

#include <QVariant>

// Reference lists, presence and balances, as written bodies (invalid when the read failed).

QVariant dbGetInters4Terminal(const TerminalRequestContext &ctx, uint tid, uint vorixID);
QVariant dbGetInter(const TerminalRequestContext &ctx);
QVariant dbGetAttendanceGroups(const TerminalRequestContext &ctx);
// The balances of the terminal's people (or of `uid`) as the response's data; false when none.
bool dbGetSaldo(const TerminalRequestContext &ctx, uint tid, uint uid);
QVariant dbGetPresent4Terminal(const TerminalRequestContext &ctx, uint tid, uint uid);
QVariant dbGetPresent(const TerminalRequestContext &ctx, uint uid);

#endif

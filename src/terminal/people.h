#ifndef PEOPLE_H
#define PEOPLE_H

#include "terminal/terminalrequestcontext.h"

#include <QVariant>

// People as terminals see them, and their links to terminals.

// True for an active person of this number and personal number; false also when the read failed.
bool dbCheckPerson(const TerminalRequestContext &ctx, uint uid, uint pid);
// Unlinks the person from the terminal; true when a link went.
bool dbDeletePerson(const TerminalRequestContext &ctx, uint tid, uint uid);
// Every active person, or the one of `uid` (0: all), as a written body.
QVariant dbGetPeople(const TerminalRequestContext &ctx, uint uid);
// The terminal's valid people, or the one of `uid` (0: all), as a written body.
QVariant dbGetPeople4Terminal(const TerminalRequestContext &ctx, uint tid, uint uid);
// Adds the person of `data` by personal number (or updates it, 208 when nothing changed) and
// links it to the terminal; its number, 0 when refused (the error on the response).
uint dbInsertPerson(const TerminalRequestContext &ctx, uint tid, const QVariantMap &data);
// True when the update changed the row.
bool dbUpdatePerson(const TerminalRequestContext &ctx, uint tid, uint uid, const QVariantMap &data);
// Marks the person's change for every other terminal linked to it.
bool dbSetOtherTermsPeopleSync(const TerminalRequestContext &ctx, uint tid, uint uid, char type);
// The driver's texts of a missing referenced row, and of a missing reason code.
bool isForeignKeyError(const TerminalRequestContext &ctx, const QString &text);
bool isMissingIID(const TerminalRequestContext &ctx, const QString &text);

#endif

#ifndef JSONVALUETREE_H
#define JSONVALUETREE_H

#include <QByteArray>
#include <QVariant>

// Arbitrary bytes read as a tree of the values a response can hold: maps with any keys,
// lists, strings of any UTF-16 units (lone surrogates too) or of decoded bytes (invalid
// UTF-8 as a database hands it over), doubles of any bit pattern, 32- and 64-bit integers,
// booleans, null and the dates and bytes a driver gives. The same bytes give the same tree,
// so the fuzz target and the seeded unit test share one decoder.
QVariant decodeValueTree(const QByteArray &bytes);

// The body as JsonWriter writes it and as QJsonDocument does; equal when the writer is right.
QByteArray writtenByJsonWriter(const QVariant &body, bool indented);
QByteArray writtenByQt(const QVariant &body, bool indented);

#endif

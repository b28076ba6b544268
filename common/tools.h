#ifndef TOOLS_H
#define TOOLS_H

#include <QByteArray>

// Byte arrays hold little-endian numbers: least significant byte first.

// 0 for an empty array; otherwise the first min(size, 4) bytes as a
// little-endian number, zero-extended when fewer than four.
int QByteArrayToInt(const QByteArray& a);

#endif

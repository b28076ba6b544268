#ifndef PACKING_H
#define PACKING_H

#include <QByteArray>
#include <cstdarg>

// Binary frames described by a format string, one character per field:
//   C c     1 byte                 S s v  2 bytes little-endian
//   n       2 bytes big-endian     I L V i l  4 bytes little-endian
//   N       4 bytes big-endian     x  a zero byte (unpack: skip)
//   X       skip one byte (ByteArrayPack: one more byte, zero)
// A decimal count before C c v n V N moves a whole array (one pointer
// argument); before x or X it moves that many bytes and takes no argument.
// Packing takes an int per single field, unpacking a pointer to unsigned
// char / unsigned short / unsigned int. Buffers are trusted to be large
// enough. Counts above 2^24 are refused like a malformed count.

// Returns the bytes written or skipped; 0 for an unknown format character,
// -1 for a count without a counted form or a zero-element array.
int DataPack(unsigned char* buf, const char* fmt, ...);
int VDataPack(unsigned char* buf, const char* fmt, va_list ap);

// The packed bytes; an empty array for any format error, and for a counted
// x or X, which this form does not accept.
QByteArray ByteArrayPack(const char* fmt, ...);
QByteArray VByteArrayPack(const char* fmt, va_list ap);

// Returns the bytes consumed, or -1 for any format error.
int DataUnpack(const unsigned char* buf, const char* fmt, ...);
int VDataUnpack(const unsigned char* buf, const char* fmt, va_list ap);

#endif

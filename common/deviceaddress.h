#ifndef DEVICEADDRESS_H
#define DEVICEADDRESS_H

#include <QByteArray>
#include <QString>

// Device addresses are a prefix followed by a register number ("D100",
// "TN_5"); port names end in their number ("COM1") or start with ETHERNET.
// The QString forms work on the Latin-1 text of the address.

// The leading letters and underscores; empty when the address starts otherwise.
QByteArray ExtractPrefixSymbol(const QByteArray& addr);
QByteArray ExtractPrefixSymbol(const QString& addr);

// The number that starts at the first digit of `base` (8, 10 or 16) and runs
// to the end of the address; 0 when that rest is not a number in the base
// (for example "D10.5"); -1 for any other base. In base 16 a prefix letter
// that is a hex digit counts as part of the number: strip such prefixes first.
int ExtractPLCDeviceAddress(const QByteArray& addr, int base);
int ExtractPLCDeviceAddress(const QString& addr, int base);

// The hexadecimal number in the first `len` characters of `text` (an optional
// leading "0x" counted among them); 0 when a character is not a hex digit.
// Wraps at 32 bits.
unsigned int HexToUInt(const char* text, int len);

// The panel's port identifier: 2000 for a name starting with ETHERNET (any
// case), otherwise 1001 plus the decimal number the name ends in. A name with
// no trailing digits, one made of digits only, or one whose number does not
// fit gives -1.
int DevStrToHmiPort(const QString& dev_str);

#endif

#ifndef TOOLS_H
#define TOOLS_H

#include <QByteArray>
#include <QString>

// The rest of the toolkit, so that one include brings all of it.
#include "common/deviceaddress.h"
#include "common/packing.h"
#include "common/timefunctions.h"

class CommunicatorCommand;

// Conversions shared by the drivers of this family. The host is little-endian;
// "little-endian bytes" means least significant byte first. Bit n of a packed
// bit array lives in byte n / 8 at position n % 8 (bit 0 = least significant).
// All functions are stateless and thread-safe.

// Always true: the devices this family talks to are big-endian.
bool isBigEndian();

// Single values. A bit number at or beyond the width of the value has no
// effect: set and clear return the value unchanged, get answers false.
unsigned short setBit(unsigned short v, unsigned short n);
unsigned short clearBit(unsigned short v, unsigned short n);
bool getBit(unsigned short v, unsigned short n);
unsigned char setBit(unsigned char v, unsigned short n);
unsigned char clearBit(unsigned char v, unsigned short n);
bool getBit(unsigned char v, unsigned short n);
unsigned int setBit(unsigned int v, unsigned short n);
unsigned int clearBit(unsigned int v, unsigned short n);
bool getBit(unsigned int v, unsigned short n);

// Byte arrays <-> integers, little-endian. Missing bytes count as zero
// (zero-extension, never sign-extension); bytes beyond the width are ignored.
int QByteArrayToInt(const QByteArray& a);
unsigned short QByteArrayToWord(const QByteArray& a);
// Two or more bytes: signed 16-bit; a single byte: 0..255.
short QByteArrayToShort(const QByteArray& a);
QByteArray wordToByteArray(unsigned short v);
QByteArray shortToByteArray(short v);
QByteArray intToByteArray(int v);
// Appends the high byte, then the low byte.
void appendBigEndianUShort(QByteArray& a, unsigned short v);

// Byte order of arrays of 16-bit and 32-bit elements. The copying forms take
// n elements at p (nothing for n <= 0 or a null p).
QByteArray fromBigEndianUShortArray(const unsigned char* p, int n);
QByteArray fromBigEndianULongArray(const unsigned char* p, int n);
// In place; a trailing partial element is left as it is.
void toLittleEndianUShortArray(QByteArray& a);
void toLittleEndianULongArray(QByteArray& a);
// Copies, zero-padded to whole elements first.
QByteArray toBigEndianUShortArray(const QByteArray& a);
QByteArray toBigEndianULongArray(const QByteArray& a);
QByteArray reverseArray(const QByteArray& a);

// Rotates the n + m elements at p so that the last m come first.
template <typename T> void RotateArray(T* p, int n, int m)
{
    if (!p || n < 0 || m < 0)
        return;
    auto reverse = [](T* first, T* last) {
        while (first < last) {
            --last;
            T t = *first;
            *first = *last;
            *last = t;
            ++first;
        }
    };
    reverse(p, p + n);
    reverse(p + n, p + n + m);
    reverse(p, p + n + m);
}

// Zero-padded to a multiple of 2, 4 or 8 bytes.
QByteArray To16bitsData(const QByteArray& a);
QByteArray To32bitsData(const QByteArray& a);
QByteArray To64bitsData(const QByteArray& a);
// Unit counts, rounded up.
unsigned int NumOfBitsToNumOfBytes(unsigned int bits, unsigned int offset);
unsigned int NumOfBitsToNumOfWords(unsigned int bits, unsigned int offset);
unsigned int NumOfBitsToNumOfDWords(unsigned int bits, unsigned int offset);
unsigned int NumOfBytesToNumOfWords(unsigned int bytes);
unsigned int NumOfBytesToNumOfDWords(unsigned int bytes);
unsigned int NumOfBytesToNumOfQuadWords(unsigned int bytes);

// Packed bit arrays. The QByteArray forms treat a bit outside the array (or a
// negative bit number) as 0 when read and ignore it when written; the pointer
// forms trust the caller for the upper bound and ignore negative bit numbers.
bool getBit(const QByteArray& a, int n);
bool getBit(const unsigned char* p, int n);
void setBit(QByteArray& a, int n, bool on);
void setBit(unsigned char* p, int n, bool on);
// Resizes to bits / 8 rounded up; added bytes are zero.
void FitBitArray(QByteArray& a, int bits);
// Clears the bits above position bits % 8 in byte bits / 8 (when that byte
// exists and bits is not a multiple of 8); later bytes are not touched.
void clearUnnecessaryBits(QByteArray& a, int bits);
// One byte (0 or 1) per bit, for bits start .. start + count - 1.
QByteArray ExpandBitsToBytes(const QByteArray& a, unsigned short start, int count);
// Bit i of src goes to bit dstStart + i of dst, for i in 0 .. count - 1.
void CopyBits(QByteArray& dst, QByteArray& src, int dstStart, int count);
// Shifts the array, read as one little-endian number, by n bits towards bit 0.
// For n >= 8 the whole bytes shifted out of the front are rotated to the end
// (the family's established behaviour); a shift of the whole width or more
// clears the array.
void RightShiftNBits(QByteArray& a, int n);
// Bit 0 of the first byte; false for an empty array.
bool getBitData(const QByteArray& a);

// Command kinds (CommunicatorCommand::dataType).
bool isBitCommand(const CommunicatorCommand& c);
bool isByteCommand(const CommunicatorCommand& c);
bool isWordCommand(const CommunicatorCommand& c);
bool isDoubleWordCommand(const CommunicatorCommand& c);
bool isBlockCommand(const CommunicatorCommand& c);
// Bytes a command's data occupies: kinds 0 and 6 count bits, 1 and 5 bytes,
// 2 words, 3 double words, 4 quad words; 0 for any other kind.
int GetSafeDataLen(const CommunicatorCommand& c);
// data cut or zero-padded to GetSafeDataLen(c) bytes.
QByteArray ToSafeData(const CommunicatorCommand& c, const QByteArray& data);

// "(0X41 0Xa ) : A\n" - every byte in hex, then the bytes as text up to the
// first zero byte.
QString dumpByteArray(const QByteArray& a);

#endif

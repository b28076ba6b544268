#include "common/tools.h"

#include "driver/communicatorcommand.h"

#include <algorithm>

namespace
{

inline unsigned char byteAt(const QByteArray& a, int i)
{
    return static_cast<unsigned char>(a.at(i));
}

// Little-endian value of the first `width` bytes (fewer when a is shorter).
quint32 littleEndianValue(const QByteArray& a, int width)
{
    quint32 v = 0;
    for (int i = qMin(a.size(), width) - 1; i >= 0; --i)
        v = (v << 8) | byteAt(a, i);
    return v;
}

QByteArray littleEndianBytes(quint32 v, int width)
{
    QByteArray a(width, '\0');
    for (int i = 0; i < width; ++i)
        a[i] = static_cast<char>((v >> (8 * i)) & 0xFF);
    return a;
}

QByteArray padToMultiple(const QByteArray& a, int unit)
{
    const int rest = a.size() % unit;
    return rest == 0 ? a : a + QByteArray(unit - rest, '\0');
}

// Reverses the bytes of every whole element of `width` bytes; a trailing
// partial element stays as it is.
void reverseElements(char* p, int size, int width)
{
    for (int start = 0; start + width <= size; start += width)
        std::reverse(p + start, p + start + width);
}

unsigned int roundUpDivide(quint64 value, unsigned int unit)
{
    return static_cast<unsigned int>((value + unit - 1) / unit);
}

template <typename T> T setBitOf(T v, unsigned short n)
{
    return n < sizeof(T) * 8 ? static_cast<T>(v | (T(1) << n)) : v;
}

template <typename T> T clearBitOf(T v, unsigned short n)
{
    return n < sizeof(T) * 8 ? static_cast<T>(v & ~(T(1) << n)) : v;
}

template <typename T> bool getBitOf(T v, unsigned short n)
{
    return n < sizeof(T) * 8 && ((v >> n) & 1u) != 0;
}

// Step 1 of RightShiftNBits on the first `size` bytes, for 0 <= n <= 7.
void shiftBytesRight(unsigned char* p, int size, int n)
{
    if (size <= 0)
        return;
    p[0] = static_cast<unsigned char>(p[0] >> n);
    for (int i = 0; i + 1 < size; ++i) {
        p[i] = static_cast<unsigned char>(p[i] | (p[i + 1] << (8 - n)));
        p[i + 1] = static_cast<unsigned char>(p[i + 1] >> n);
    }
}

} // namespace

bool isBigEndian()
{
    return true;
}

unsigned short setBit(unsigned short v, unsigned short n)
{
    return setBitOf(v, n);
}

unsigned short clearBit(unsigned short v, unsigned short n)
{
    return clearBitOf(v, n);
}

bool getBit(unsigned short v, unsigned short n)
{
    return getBitOf(v, n);
}

unsigned char setBit(unsigned char v, unsigned short n)
{
    return setBitOf(v, n);
}

unsigned char clearBit(unsigned char v, unsigned short n)
{
    return clearBitOf(v, n);
}

bool getBit(unsigned char v, unsigned short n)
{
    return getBitOf(v, n);
}

unsigned int setBit(unsigned int v, unsigned short n)
{
    return setBitOf(v, n);
}

unsigned int clearBit(unsigned int v, unsigned short n)
{
    return clearBitOf(v, n);
}

bool getBit(unsigned int v, unsigned short n)
{
    return getBitOf(v, n);
}

int QByteArrayToInt(const QByteArray& a)
{
    return static_cast<int>(littleEndianValue(a, 4));
}

unsigned short QByteArrayToWord(const QByteArray& a)
{
    return static_cast<unsigned short>(littleEndianValue(a, 2));
}

short QByteArrayToShort(const QByteArray& a)
{
    const quint32 v = littleEndianValue(a, 2);
    // A lone byte is not a 16-bit value: it stays 0..255.
    return a.size() < 2 ? static_cast<short>(v) : static_cast<short>(static_cast<qint16>(v));
}

QByteArray wordToByteArray(unsigned short v)
{
    return littleEndianBytes(v, 2);
}

QByteArray shortToByteArray(short v)
{
    return littleEndianBytes(static_cast<unsigned short>(v), 2);
}

QByteArray intToByteArray(int v)
{
    return littleEndianBytes(static_cast<quint32>(v), 4);
}

void appendBigEndianUShort(QByteArray& a, unsigned short v)
{
    a.append(static_cast<char>(v >> 8));
    a.append(static_cast<char>(v & 0xFF));
}

QByteArray fromBigEndianUShortArray(const unsigned char* p, int n)
{
    if (!p || n <= 0)
        return QByteArray();
    QByteArray a(reinterpret_cast<const char*>(p), 2 * n);
    reverseElements(a.data(), a.size(), 2);
    return a;
}

QByteArray fromBigEndianULongArray(const unsigned char* p, int n)
{
    if (!p || n <= 0)
        return QByteArray();
    QByteArray a(reinterpret_cast<const char*>(p), 4 * n);
    reverseElements(a.data(), a.size(), 4);
    return a;
}

void toLittleEndianUShortArray(QByteArray& a)
{
    reverseElements(a.data(), a.size(), 2);
}

void toLittleEndianULongArray(QByteArray& a)
{
    reverseElements(a.data(), a.size(), 4);
}

QByteArray toBigEndianUShortArray(const QByteArray& a)
{
    QByteArray b = To16bitsData(a);
    reverseElements(b.data(), b.size(), 2);
    return b;
}

QByteArray toBigEndianULongArray(const QByteArray& a)
{
    QByteArray b = To32bitsData(a);
    reverseElements(b.data(), b.size(), 4);
    return b;
}

QByteArray reverseArray(const QByteArray& a)
{
    QByteArray b = a;
    std::reverse(b.begin(), b.end());
    return b;
}

QByteArray To16bitsData(const QByteArray& a)
{
    return padToMultiple(a, 2);
}

QByteArray To32bitsData(const QByteArray& a)
{
    return padToMultiple(a, 4);
}

QByteArray To64bitsData(const QByteArray& a)
{
    return padToMultiple(a, 8);
}

// The sums are taken in 64 bits, so large arguments cannot wrap to a small count.
unsigned int NumOfBitsToNumOfBytes(unsigned int bits, unsigned int offset)
{
    return roundUpDivide(quint64(bits) + offset, 8);
}

unsigned int NumOfBitsToNumOfWords(unsigned int bits, unsigned int offset)
{
    return roundUpDivide(quint64(bits) + offset, 16);
}

unsigned int NumOfBitsToNumOfDWords(unsigned int bits, unsigned int offset)
{
    return roundUpDivide(quint64(bits) + offset, 32);
}

unsigned int NumOfBytesToNumOfWords(unsigned int bytes)
{
    return roundUpDivide(bytes, 2);
}

unsigned int NumOfBytesToNumOfDWords(unsigned int bytes)
{
    return roundUpDivide(bytes, 4);
}

unsigned int NumOfBytesToNumOfQuadWords(unsigned int bytes)
{
    return roundUpDivide(bytes, 8);
}

bool getBit(const QByteArray& a, int n)
{
    if (n < 0 || n / 8 >= a.size())
        return false;
    return (byteAt(a, n / 8) >> (n % 8)) & 1u;
}

bool getBit(const unsigned char* p, int n)
{
    if (!p || n < 0)
        return false;
    return (p[n / 8] >> (n % 8)) & 1u;
}

void setBit(QByteArray& a, int n, bool on)
{
    // An index outside the array is ignored rather than growing it: the array
    // is sized to the command by the caller and must keep that size.
    if (n < 0 || n / 8 >= a.size())
        return;
    setBit(reinterpret_cast<unsigned char*>(a.data()), n, on);
}

void setBit(unsigned char* p, int n, bool on)
{
    if (!p || n < 0)
        return;
    const unsigned char mask = static_cast<unsigned char>(1u << (n % 8));
    if (on)
        p[n / 8] = static_cast<unsigned char>(p[n / 8] | mask);
    else
        p[n / 8] = static_cast<unsigned char>(p[n / 8] & ~mask);
}

void FitBitArray(QByteArray& a, int bits)
{
    const int oldSize = a.size();
    const int newSize = bits <= 0 ? 0 : int(NumOfBitsToNumOfBytes(unsigned(bits), 0));
    a.resize(newSize);
    if (newSize > oldSize)
        std::fill(a.begin() + oldSize, a.end(), '\0');
}

void clearUnnecessaryBits(QByteArray& a, int bits)
{
    if (bits < 0 || bits % 8 == 0 || bits / 8 >= a.size())
        return;
    const int i = bits / 8;
    a[i] = static_cast<char>(byteAt(a, i) & ((1u << (bits % 8)) - 1));
}

QByteArray ExpandBitsToBytes(const QByteArray& a, unsigned short start, int count)
{
    QByteArray out;
    if (count <= 0)
        return out;
    out.reserve(count);
    for (int i = 0; i < count; ++i)
        out.append(getBit(a, int(start) + i) ? '\1' : '\0');
    return out;
}

void CopyBits(QByteArray& dst, QByteArray& src, int dstStart, int count)
{
    for (int i = 0; i < count; ++i)
        setBit(dst, dstStart + i, getBit(src, i));
}

void RightShiftNBits(QByteArray& a, int n)
{
    if (n <= 0 || a.isEmpty())
        return;
    auto* p = reinterpret_cast<unsigned char*>(a.data());
    const int size = a.size();
    if (n <= 7) {
        shiftBytesRight(p, size, n);
        return;
    }
    const int k = n / 8;
    if (k >= size) {
        a.fill('\0');
        return;
    }
    RotateArray(p, k, size - k);
    if (n % 8 != 0)
        shiftBytesRight(p, size - k, n % 8);
}

bool getBitData(const QByteArray& a)
{
    return getBit(a, 0);
}

bool isBitCommand(const CommunicatorCommand& c)
{
    return c.dataType == CommunicatorCommand::BitKind;
}

bool isByteCommand(const CommunicatorCommand& c)
{
    return c.dataType == CommunicatorCommand::ByteKind;
}

bool isWordCommand(const CommunicatorCommand& c)
{
    return c.dataType == CommunicatorCommand::WordKind;
}

bool isDoubleWordCommand(const CommunicatorCommand& c)
{
    return c.dataType == CommunicatorCommand::DoubleWordKind;
}

bool isBlockCommand(const CommunicatorCommand& c)
{
    return c.dataType == CommunicatorCommand::BlockKind;
}

int GetSafeDataLen(const CommunicatorCommand& c)
{
    // Unsigned arithmetic: a huge count wraps instead of overflowing.
    switch (c.dataType) {
    case 0:
    case 6: // a second bit kind, counted like kind 0
        return int(NumOfBitsToNumOfBytes(c.count, 0));
    case 1:
    case 5:
        return int(c.count);
    case 2:
        return int(2u * c.count);
    case 3:
        return int(4u * c.count);
    case 4:
        return int(8u * c.count);
    default:
        return 0;
    }
}

QByteArray ToSafeData(const CommunicatorCommand& c, const QByteArray& data)
{
    const int len = qMax(GetSafeDataLen(c), 0);
    if (data.size() >= len)
        return data.left(len);
    return data + QByteArray(len - data.size(), '\0');
}

QString dumpByteArray(const QByteArray& a)
{
    QString s = QStringLiteral("(");
    for (char c : a)
        s += QStringLiteral("0X") + QString::number(static_cast<unsigned char>(c), 16) +
             QLatin1Char(' ');
    s += QStringLiteral(") : ");
    s += QString::fromLatin1(a.constData());
    return s;
}

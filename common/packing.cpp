#include "common/packing.h"

#include <cstring>

namespace
{

enum class FormatError { None, UnknownCharacter, BadCount, CountedSkipRefused };

// Largest accepted count; far beyond any frame, small enough that count * 4
// cannot overflow.
constexpr long MaxCount = 1L << 24;

// Writes `width` bytes of v, least significant first or last.
void putValue(unsigned char* p, quint32 v, int width, bool bigEndian)
{
    for (int i = 0; i < width; ++i) {
        const int shift = 8 * (bigEndian ? width - 1 - i : i);
        p[i] = static_cast<unsigned char>((v >> shift) & 0xFF);
    }
}

quint32 getValue(const unsigned char* p, int width, bool bigEndian)
{
    quint32 v = 0;
    for (int i = 0; i < width; ++i) {
        const int shift = 8 * (bigEndian ? width - 1 - i : i);
        v |= quint32(p[i]) << shift;
    }
    return v;
}

// The caller's arrays of unsigned short or unsigned int come through pointers
// that need not be aligned for their type (a field inside a packed frame, say):
// ARM cores fault or tear on such typed loads, so they go through memcpy.
quint32 loadValue(const unsigned char* source, int width)
{
    if (width == 2) {
        unsigned short value;
        std::memcpy(&value, source, sizeof value);
        return value;
    }
    unsigned int value;
    std::memcpy(&value, source, sizeof value);
    return value;
}

struct FieldKind {
    int width = 0; // bytes per element; 0: not a field character
    bool bigEndian = false;
    bool skip = false; // x or X: no argument
    bool countable = false;
};

FieldKind kindOf(char c)
{
    FieldKind k;
    switch (c) {
    case 'C':
    case 'c':
        k.width = 1, k.countable = true;
        break;
    case 'S':
    case 's':
        k.width = 2;
        break;
    case 'v':
        k.width = 2, k.countable = true;
        break;
    case 'n':
        k.width = 2, k.bigEndian = true, k.countable = true;
        break;
    case 'I':
    case 'L':
    case 'i':
    case 'l':
        k.width = 4;
        break;
    case 'V':
        k.width = 4, k.countable = true;
        break;
    case 'N':
        k.width = 4, k.bigEndian = true, k.countable = true;
        break;
    case 'x':
    case 'X':
        k.width = 1, k.skip = true, k.countable = true;
        break;
    default:
        break;
    }
    return k;
}

// Reads an optional decimal count at *fmt. Returns -1 when there is none and
// -2 when it exceeds MaxCount.
long readCount(const char*& fmt)
{
    if (*fmt < '0' || *fmt > '9')
        return -1;
    long n = 0;
    while (*fmt >= '0' && *fmt <= '9') {
        n = n * 10 + (*fmt++ - '0');
        if (n > MaxCount)
            return -2;
    }
    return n;
}

// Where packed bytes go: the caller's buffer, or a growing QByteArray. The
// buffer form may skip bytes without writing them; the array form cannot.
class PackTarget
{
public:
    explicit PackTarget(unsigned char* buf) : buf(buf) {}
    explicit PackTarget(QByteArray* array) : array(array) {}

    bool isArray() const { return array != nullptr; }
    int position() const { return pos; }
    // Room for `len` more bytes at the current position.
    unsigned char* reserve(int len)
    {
        if (array) {
            array->resize(pos + len);
            return reinterpret_cast<unsigned char*>(array->data()) + pos;
        }
        return buf + pos;
    }
    void advance(int len) { pos += len; }

private:
    unsigned char* buf = nullptr;
    QByteArray* array = nullptr;
    int pos = 0;
};

FormatError pack(PackTarget& out, const char* fmt, va_list ap)
{
    while (fmt && *fmt) {
        const long count = readCount(fmt);
        if (count == -2)
            return FormatError::BadCount;
        const char c = *fmt++;
        const FieldKind k = kindOf(c);
        if (count < 0) {
            if (k.width == 0)
                return FormatError::UnknownCharacter;
            unsigned char* p = out.reserve(k.width);
            if (c == 'x' || (c == 'X' && out.isArray()))
                *p = 0;
            else if (!k.skip)
                putValue(p, static_cast<quint32>(va_arg(ap, int)), k.width, k.bigEndian);
            out.advance(k.width);
            continue;
        }
        if (!k.countable)
            return FormatError::BadCount;
        if (k.skip) {
            if (out.isArray())
                return FormatError::CountedSkipRefused;
            unsigned char* p = out.reserve(int(count));
            if (c == 'x')
                std::memset(p, 0, size_t(count));
            out.advance(int(count));
            continue;
        }
        if (count == 0)
            return FormatError::BadCount;
        const int len = int(count) * k.width;
        unsigned char* p = out.reserve(len);
        if (k.width == 1) {
            std::memcpy(p, va_arg(ap, const unsigned char*), size_t(len));
        } else {
            const auto* src = static_cast<const unsigned char*>(va_arg(ap, const void*));
            for (long i = 0; i < count; ++i)
                putValue(p + k.width * i, loadValue(src + k.width * i, k.width), k.width,
                         k.bigEndian);
        }
        out.advance(len);
    }
    return FormatError::None;
}

// Unpacking stores into the caller's unsigned char / short / int.
void storeValue(unsigned char* target, quint32 v, int width)
{
    if (width == 1) {
        *target = static_cast<unsigned char>(v);
    } else if (width == 2) {
        const unsigned short value = static_cast<unsigned short>(v);
        std::memcpy(target, &value, sizeof value);
    } else {
        const unsigned int value = v;
        std::memcpy(target, &value, sizeof value);
    }
}

} // namespace

int VDataPack(unsigned char* buf, const char* fmt, va_list ap)
{
    PackTarget out(buf);
    switch (pack(out, fmt, ap)) {
    case FormatError::None:
        return out.position();
    case FormatError::UnknownCharacter:
        return 0;
    default:
        return -1;
    }
}

int DataPack(unsigned char* buf, const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int n = VDataPack(buf, fmt, ap);
    va_end(ap);
    return n;
}

QByteArray VByteArrayPack(const char* fmt, va_list ap)
{
    QByteArray array;
    PackTarget out(&array);
    if (pack(out, fmt, ap) != FormatError::None)
        return QByteArray();
    return array;
}

QByteArray ByteArrayPack(const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    QByteArray a = VByteArrayPack(fmt, ap);
    va_end(ap);
    return a;
}

int VDataUnpack(const unsigned char* buf, const char* fmt, va_list ap)
{
    int pos = 0;
    while (fmt && *fmt) {
        const long count = readCount(fmt);
        if (count == -2)
            return -1;
        const FieldKind k = kindOf(*fmt++);
        if (k.width == 0 || (count >= 0 && !k.countable))
            return -1;
        if (k.skip) {
            pos += count < 0 ? 1 : int(count);
            continue;
        }
        if (count == 0)
            return -1;
        const long elements = count < 0 ? 1 : count;
        auto* target = static_cast<unsigned char*>(va_arg(ap, void*));
        for (long i = 0; i < elements; ++i) {
            storeValue(target + i * k.width, getValue(buf + pos, k.width, k.bigEndian), k.width);
            pos += k.width;
        }
    }
    return pos;
}

int DataUnpack(const unsigned char* buf, const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int n = VDataUnpack(buf, fmt, ap);
    va_end(ap);
    return n;
}

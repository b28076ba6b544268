#include "common/crc.h"

#include <array>
#include <cstdint>

namespace
{

template <typename T> using Table = std::array<T, 256>;

template <typename T> Table<T> reflectedTable(T polynomial)
{
    Table<T> t{};
    for (unsigned i = 0; i < 256; ++i) {
        T crc = static_cast<T>(i);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1u) ? static_cast<T>((crc >> 1) ^ polynomial) : static_cast<T>(crc >> 1);
        t[i] = crc;
    }
    return t;
}

Table<std::uint16_t> msbFirstTable(std::uint16_t polynomial)
{
    Table<std::uint16_t> t{};
    for (unsigned i = 0; i < 256; ++i) {
        std::uint16_t crc = static_cast<std::uint16_t>(i << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000u) ? static_cast<std::uint16_t>((crc << 1) ^ polynomial)
                                  : static_cast<std::uint16_t>(crc << 1);
        t[i] = crc;
    }
    return t;
}

// Each table is a function-local static: C++ initialises it exactly once, and
// a thread making the first call together with another waits for the build
// instead of reading a half-filled table.
const Table<std::uint16_t>& crc16Table()
{
    static const Table<std::uint16_t> t = reflectedTable<std::uint16_t>(0xA001);
    return t;
}

const Table<std::uint16_t>& kermitTable()
{
    static const Table<std::uint16_t> t = reflectedTable<std::uint16_t>(0x8408);
    return t;
}

const Table<std::uint16_t>& dnpTable()
{
    static const Table<std::uint16_t> t = reflectedTable<std::uint16_t>(0xA6BC);
    return t;
}

const Table<std::uint32_t>& crc32Table()
{
    static const Table<std::uint32_t> t = reflectedTable<std::uint32_t>(0xEDB88320u);
    return t;
}

const Table<std::uint16_t>& ccittTable()
{
    static const Table<std::uint16_t> t = msbFirstTable(0x1021);
    return t;
}

inline unsigned byteValue(char c)
{
    return static_cast<unsigned char>(c);
}

unsigned short reflectedUpdate(const Table<std::uint16_t>& t, unsigned short crc, char c)
{
    return static_cast<unsigned short>((crc >> 8) ^ t[(crc ^ byteValue(c)) & 0xFF]);
}

} // namespace

unsigned char UInt8CheckSum(const unsigned char* p, int len)
{
    return static_cast<unsigned char>(UShortCheckSum(p, len));
}

unsigned short UShortCheckSum(const unsigned char* p, int len)
{
    unsigned short sum = 0;
    for (int i = 0; p && i < len; ++i)
        sum = static_cast<unsigned short>(sum + p[i]);
    return sum;
}

unsigned char XorUInt8CheckSum(const unsigned char* p, int len)
{
    unsigned char x = 0;
    for (int i = 0; p && i < len; ++i)
        x ^= p[i];
    return x;
}

unsigned short CRC16Calculate(const unsigned char* p, int len)
{
    unsigned short crc = 0;
    for (int i = 0; p && i < len; ++i)
        crc = update_crc_16(crc, static_cast<char>(p[i]));
    return crc;
}

unsigned short update_crc_16(unsigned short crc, char c)
{
    return reflectedUpdate(crc16Table(), crc, c);
}

unsigned short update_crc_kermit(unsigned short crc, char c)
{
    return reflectedUpdate(kermitTable(), crc, c);
}

unsigned short update_crc_dnp(unsigned short crc, char c)
{
    return reflectedUpdate(dnpTable(), crc, c);
}

unsigned long update_crc_32(unsigned long crc, char c)
{
    // unsigned long is 32 bits on the panel and 64 on a PC: only the low 32
    // bits take part, so a start value of ~0ul gives the same CRC on both.
    const std::uint32_t low = static_cast<std::uint32_t>(crc);
    return (low >> 8) ^ crc32Table()[(low ^ byteValue(c)) & 0xFF];
}

unsigned short update_crc_ccitt(unsigned short crc, char c)
{
    return static_cast<unsigned short>((crc << 8) ^
                                       ccittTable()[((crc >> 8) ^ byteValue(c)) & 0xFF]);
}

unsigned short update_crc_sick(unsigned short crc, char c, char prev)
{
    const bool topBit = (crc & 0x8000u) != 0;
    unsigned next = (unsigned(crc) << 1) & 0xFFFFu;
    if (topBit)
        next ^= 0x8005u;
    next ^= byteValue(c) | (byteValue(prev) << 8);
    return static_cast<unsigned short>(next);
}

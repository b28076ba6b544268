#include "common/deviceaddress.h"

#include <cctype>
#include <climits>

namespace
{

bool isDigitOfBase(char c, int base)
{
    switch (base) {
    case 8:
        return c >= '0' && c <= '7';
    case 10:
        return c >= '0' && c <= '9';
    case 16:
        return std::isxdigit(static_cast<unsigned char>(c)) != 0;
    default:
        return false;
    }
}

int hexDigitValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

} // namespace

QByteArray ExtractPrefixSymbol(const QByteArray& addr)
{
    int n = 0;
    while (n < addr.size() &&
           (std::isalpha(static_cast<unsigned char>(addr.at(n))) || addr.at(n) == '_'))
        ++n;
    return addr.left(n);
}

QByteArray ExtractPrefixSymbol(const QString& addr)
{
    return ExtractPrefixSymbol(addr.toLatin1());
}

int ExtractPLCDeviceAddress(const QByteArray& addr, int base)
{
    if (base != 8 && base != 10 && base != 16)
        return -1;
    int start = 0;
    while (start < addr.size() && !isDigitOfBase(addr.at(start), base))
        ++start;
    bool ok = false;
    const int value = addr.mid(start).toInt(&ok, base);
    return ok ? value : 0;
}

int ExtractPLCDeviceAddress(const QString& addr, int base)
{
    return ExtractPLCDeviceAddress(addr.toLatin1(), base);
}

unsigned int HexToUInt(const char* text, int len)
{
    if (!text || len <= 0)
        return 0;
    const char* p = text;
    int remaining = len;
    if (p[0] == '0') {
        if (len == 1)
            return 0;
        const bool prefixed = p[1] == 'x' || p[1] == 'X';
        p += prefixed ? 2 : 1;
        remaining -= prefixed ? 2 : 1;
    }
    if (remaining <= 0 || *p == '\0')
        return 0;
    unsigned int value = 0;
    for (; remaining > 0 && *p != '\0'; --remaining, ++p) {
        const int digit = hexDigitValue(*p);
        if (digit < 0)
            return 0;
        value = (value << 4) | unsigned(digit);
    }
    return value;
}

int DevStrToHmiPort(const QString& dev_str)
{
    if (dev_str.startsWith(QLatin1String("ETHERNET"), Qt::CaseInsensitive))
        return 2000;
    int start = dev_str.size();
    while (start > 0 && dev_str.at(start - 1) >= QLatin1Char('0') &&
           dev_str.at(start - 1) <= QLatin1Char('9'))
        --start;
    if (start == 0 || start == dev_str.size())
        return -1;
    bool ok = false;
    const int number = dev_str.mid(start).toInt(&ok, 10);
    if (!ok || number > INT_MAX - 1001)
        return -1;
    return number + 1001;
}

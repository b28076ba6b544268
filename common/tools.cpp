#include "common/tools.h"

int QByteArrayToInt(const QByteArray& a)
{
    quint32 v = 0;
    const int n = qMin(a.size(), 4);
    for (int i = n - 1; i >= 0; --i)
        v = (v << 8) | static_cast<unsigned char>(a.at(i));
    return static_cast<int>(v);
}

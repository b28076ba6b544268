#ifndef SIM_DECIMAL_H
#define SIM_DECIMAL_H

#include <QByteArray>

// Parses the controller's numbers: decimal digits only (no sign, no blanks),
// at most five of them. False, value untouched, for anything else.
inline bool parseControllerNumber(const QByteArray& text, int* value)
{
    if (text.isEmpty() || text.size() > 5)
        return false;
    int v = 0;
    for (char c : text) {
        if (c < '0' || c > '9')
            return false;
        v = v * 10 + (c - '0');
    }
    *value = v;
    return true;
}

#endif

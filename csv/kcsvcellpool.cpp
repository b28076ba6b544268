#include "csv/kcsvcellpool.h"

#include <utility>

namespace kcsv
{

namespace
{

// Up to eight Latin-1 characters other than NUL, packed one per byte: no two
// such strings share a key, and no key is 0.
constexpr int MaxPooledChars = 8;
constexpr int SlotBits = 14;
constexpr int WindowLookups = 1024;

bool packKey(const QChar* p, int n, quint64* key)
{
    if (n <= 0 || n > MaxPooledChars)
        return false;
    quint64 packed = 0;
    for (int k = 0; k < n; ++k) {
        const ushort c = p[k].unicode();
        if (c == 0 || c > 0xFF)
            return false;
        packed |= quint64(c) << (8 * k);
    }
    *key = packed;
    return true;
}

} // namespace

CellPool::CellPool() : m_slots(new Slot[size_t(1) << SlotBits]) {}

CellPool::~CellPool() = default;

QString CellPool::make(int columnIndex, const QChar* p, int n)
{
    quint64 key = 0;
    if (!packKey(p, n, &key))
        return QString(p, n); // an empty piece gives the shared empty string
    // Columns past the tracked ones are judged together: a row of a million
    // cells must not cost a million entries.
    Column& column = m_columns[size_t(qBound(0, columnIndex, TrackedColumns - 1))];
    // A column that seldom repeats (serial numbers, measurements) is only
    // sampled: a lookup that mostly misses costs more than the copy it
    // would save.
    if (!column.admits && (++column.skipped & 7) != 0)
        return QString(p, n);
    if (++column.lookups == WindowLookups) {
        column.admits = column.hits * 4 >= WindowLookups;
        column.lookups = column.hits = 0;
    }
    // A cache of recent values, two to a hash: a value is likelier to have
    // stayed than in a direct-mapped one, and the two slots lie side by side.
    Slot* const pair = &m_slots[((key * 0x9E3779B97F4A7C15ull) >> (64 - SlotBits + 1)) * 2];
    if (pair[1].key == key)
        std::swap(pair[0], pair[1]); // the latest use first
    if (pair[0].key == key) {
        ++column.hits;
        return pair[0].text;
    }
    // Nor do its values push out those of columns that repeat.
    if (!column.admits)
        return QString(p, n);
    std::swap(pair[0], pair[1]); // the one used longer ago makes way
    pair[0].key = key;
    pair[0].text = QString(p, n);
    return pair[0].text;
}

} // namespace kcsv

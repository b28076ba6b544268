#pragma once

// Short cells recur all over a program table: times, setpoints, event
// numbers, flags. The loader hands out one shared string per recently seen
// short value instead of a fresh copy per cell, which saves much of a
// table's memory (and the page faults of first touching it). Private to the
// CSV module.

#include <QString>

#include <memory>

namespace kcsv
{

class CellPool
{
public:
    CellPool();
    ~CellPool();
    CellPool(const CellPool&) = delete;
    CellPool& operator=(const CellPool&) = delete;

    // The cell p[0..n) of the given column as QString(p, n) would give it,
    // possibly sharing its data with an equal cell handed out earlier.
    QString make(int column, const QChar* p, int n);

private:
    struct Slot {
        quint64 key = 0; // 0: empty
        QString text;
    };
    // Whether a column's values repeat, judged over windows of lookups.
    struct Column {
        int lookups = 0;
        int hits = 0;
        unsigned skipped = 0;
        bool admits = true;
    };
    static constexpr int TrackedColumns = 256;

    std::unique_ptr<Slot[]> m_slots;
    Column m_columns[TrackedColumns];
};

} // namespace kcsv

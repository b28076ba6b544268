#ifndef DCP30CTL_VALUECOMPARE_H
#define DCP30CTL_VALUECOMPARE_H

#include "driver/segmentcodec.h"

#include <QList>
#include <QString>
#include <QStringList>

// Two programs compared by what the controller would receive: each segment
// row is turned into its segment record by the panel's own encoder, and the
// records are compared word by word. "01:00" and "1:00", "heat-t01" and
// "HEAT-T01", "+10" and "10" are the same; the cells a segment other than 1
// never sends (P.STA, CYCL, P.LIN, Tag) do not count.
namespace ValueCompare
{

// One difference. column is the program table's column title, empty for a
// segment present in one file only (a then says which); a and b are the values in the table's own
// notation as a read would show them (TIME 01:30, T 1.30, the tag's 8 characters), or, where a
// side's row cannot be sent, why.
struct Difference {
    int segment = 0;
    QString column;
    QString a;
    QString b;

    // "segment 2, SP1: A 200, B 300" or "segment 5: only in A".
    QString text() const;
};

// Rows of A and B (label first; row s - 1 is segment s), encoded with
// params. A row that does not pass the checks in either file is reported
// as such ("A not sent: <first problem>"); when it fails in both, their
// cells are compared as text.
QList<Difference> compare(const SegmentCodec::WriteParameters& params, const QList<QStringList>& a,
                          const QList<QStringList>& b);

// Cell by cell, exactly; titles from headerA, then headerB, then "column N".
QList<Difference> compareText(int segment, const QStringList& a, const QStringList& b,
                              const QStringList& headerA, const QStringList& headerB);

} // namespace ValueCompare

#endif

#ifndef DCP30CTL_CELLWARNINGS_H
#define DCP30CTL_CELLWARNINGS_H

#include "driver/segmentcodec.h"

#include <QStringList>

// Cells the panel's checks let pass although the controller will not hold
// what the file seems to say, or that are likely mistakes. The checks
// themselves stay the panel's; these are words on top of them.
namespace CellWarnings
{

// Warnings about one segment row (label first; row of segment `segment`),
// each naming the column and quoting the cell:
// - always: minutes of 60 or more in TIME or a T cell (TIME 1:75 is taken
//   as 2:15), a tag longer than 8 characters (the controller keeps 8);
// - with strict also: a T cell with a one-digit minute part ("1.5" is 1 h
//   05 min, not an hour and a half), a tag with lower-case letters (sent
//   upper-cased), and a value at the very end of its range other than 0
//   (an SP1 on a setpoint limit, an event at the end of its kind's span,
//   G.S 1000, G.S.TO 5999, CYCL 9999), except the time event's "off" pair
//   5999 / ----.
// Cells with format or range errors are left to the checks.
QStringList forRow(const SegmentCodec::WriteParameters& params, int segment, const QStringList& row,
                   bool strict);

} // namespace CellWarnings

#endif

#ifndef SIM_PROGRAMTABLES_H
#define SIM_PROGRAMTABLES_H

#include "driver/segmentcodec.h"

#include <QString>

class ProgramStore;

// Programs as panel engineers keep them: the program table file a panel
// writes on its medium ("PROG_N.txt", tab-delimited UTF-16 with byte-order
// mark), read and written with the panel's own CSV classes and segment
// codec.
namespace ProgramTables
{

// "PROG_N.txt".
QString fileName(int program);

// Replaces program `program` of store by the table file at path, every row
// encoded as a panel would before writing it (with params). All or
// nothing: on any problem the store is unchanged and error says what (the
// file, and the checks' messages of the first row that fails).
bool load(const QString& path, int program, const SegmentCodec::WriteParameters& params,
          ProgramStore& store, QString* error);

// Writes program `program` of store as dir/PROG_N.txt, as a read of all its
// segments would save it (a gap in the program is a row of "----"). The
// file is written under a temporary name and renamed, so a reader never
// sees half a file; a program without segments removes the file. False
// with error, leaving no temporary file behind.
bool dump(const ProgramStore& store, int program, const QString& dir, QString* error);

} // namespace ProgramTables

#endif

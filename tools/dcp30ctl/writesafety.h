#ifndef DCP30CTL_WRITESAFETY_H
#define DCP30CTL_WRITESAFETY_H

#include "driver/segmentcodec.h"

#include <QMap>
#include <QString>
#include <QStringList>

class PluginSession;

// What dcp30ctl write does around the driver's own write so that a file
// with faulty rows never leaves the controller with a mix of old and new
// segments, and a write can be confirmed by reading it back.

// The five write parameters, read through the plug-in on the session's
// communication thread exactly as the driver reads them. False (error set)
// when any answer came back short.
bool readControllerLimits(PluginSession& session, SegmentCodec::WriteParameters* params,
                          QString* error);

// The checks the driver runs before a write, on segments 1..segments of the
// program file: true when every one would be written. Otherwise lines holds
// the write log's messages (or why the file could not be loaded).
bool rowsPassChecks(const QString& programFile, const SegmentCodec::WriteParameters& params,
                    int segments, QStringList* lines);

// The records the controller receives for segments 1..segments of a
// program file (rows that fail the checks have none). False (error set)
// when the file cannot be loaded.
bool encodedRecords(const QString& programFile, const SegmentCodec::WriteParameters& params,
                    int segments, QMap<int, QString>* records, QString* error);

// One line per segment whose records differ ("segment 3: written ...,
// read back ..."); empty when the two agree on segments 1..segments.
QStringList recordDifferences(const QMap<int, QString>& written, const QMap<int, QString>& readBack,
                              int segments);

// "program 12: segments 1-11 written, 12-30 not written ..." for a write
// stopped after `done` of `segments` segments, or "nothing written".
QString interruptedWriteState(int program, int segments, int done);

#endif

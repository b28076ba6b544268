#ifndef DCP30CTL_PROGRESSDISPLAY_H
#define DCP30CTL_PROGRESSDISPLAY_H

#include "transferwatch.h"

#include <QString>

// The progress of a transfer on stderr. On a terminal, one line redrawn in
// place:
//
//   read [############..................]  40%  segment 12/30  about 7 s left
//
// with "retrying" while the driver repeats a command. Otherwise (a log
// file, a test harness) plain lines: "progress P%" per change of the
// driver's progress value and "retrying segment N" when a repeat begins.
// Quiet: nothing but the driver's messages (line()).
class ProgressDisplay
{
public:
    ProgressDisplay(const char* verb, int segments, bool quiet);

    // percent: the driver's progress value (0 before the first segment).
    void update(int percent, qint64 elapsedMs, const TransferWatch::State& line);
    // Prints a line of its own, keeping the bar below it.
    void line(const QString& text);
    void finish();

private:
    void draw(const QString& text);
    void clear();

    const char* verb;
    const int segments;
    const bool quiet;
    const bool terminal;
    int shownPercent = -1;
    int shownRetries = 0;
    QString drawnText;
    bool drawn = false;
};

#endif

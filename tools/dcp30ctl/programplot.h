#ifndef DCP30CTL_PROGRAMPLOT_H
#define DCP30CTL_PROGRAMPLOT_H

#include <QColor>
#include <QImage>
#include <QList>
#include <QPointF>
#include <QRectF>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QVector>

class QIODevice;
class QPainter;

// The picture of a program: SP1 against time, segment by segment, with the
// time events T1..T5 as bars below. Times are minutes from the program's
// start, setpoints the controller's raw integers (no scaling).
namespace ProgramPlot
{

constexpr int TimeEventCount = 5;

// One segment on the time axis. The curve ramps from `from` at `start` to
// `to` at `end`; segment 1 (or the first segment with a usable SP1) starts
// at its own setpoint, so it is flat.
struct SegmentSpan {
    int segment = 0;
    double start = 0;
    double end = 0;
    bool drawn = false; // false until a usable SP1 has been seen
    double from = 0;
    double to = 0;
    // Marked in the picture: a cell of the segment could not be used (or the
    // panel would refuse the row), or the row is a hole in the program (no
    // value set at all, as a read leaves a segment the controller refused).
    bool problem = false;
    bool hole = false;
};

// A time event switched on within a segment, clipped to the segment.
struct EventBar {
    int event = 0; // 1..5: T1..T5
    int segment = 0;
    double start = 0;
    double end = 0;
};

struct Program {
    QVector<SegmentSpan> segments;
    QVector<EventBar> bars;
    // One line per cell that could not be used ("segment 3, SP1 ...").
    QStringList notes;

    double totalMinutes() const { return segments.isEmpty() ? 0 : segments.last().end; }
};

// Builds the picture's model from segment rows (label first, in the column
// order of the program table; row s - 1 is segment s). SP1 is a signed
// integer; TIME "h:m" (0..5999 minutes); T cells "h.mm" or "h" (0..5999
// minutes from the segment's start) or "----". A cell that cannot be used is
// skipped with a note: a segment without a usable SP1 holds the previous
// setpoint, one without a usable TIME lasts no time, a time event without a
// usable ON time draws no bar, one without an OFF time (or "----") stays on
// to the segment's end.
Program buildProgram(const QList<QStringList>& rows);

struct Options {
    QSize size{1200, 700};
    bool limitsKnown = false;
    qint32 spLow = 0;
    qint32 spHigh = 0;
    QString title;
};

// Where each segment's number goes above the curve: 0 the lower row, 1 the
// upper row (where a narrow segment's number moves when the lower row has no
// room beside its neighbour's), -1 no room in either. Needs the font of the
// picture, hence a QGuiApplication.
QVector<int> segmentLabelRows(const Program& program, const Options& options);

// Smallest picture the layout can place its parts in.
constexpr int MinWidth = 320;
constexpr int MinHeight = 240;

// Where things go in a picture of options.size: the curve area on top, the
// five event lanes below it, the time labels at the bottom. The setpoint
// axis spans the limits when they are known (widened to take in setpoints
// beyond them), else the program's setpoints.
class Layout
{
public:
    Layout(const Program& program, const Options& options);

    QRectF curveArea() const { return m_curve; }
    QRectF eventLane(int event) const; // event 1..5
    double x(double minutes) const;
    double y(double setpoint) const;
    QPointF map(double minutes, double setpoint) const { return {x(minutes), y(setpoint)}; }
    double timeSpan() const { return m_timeMax; }
    double setpointMin() const { return m_spMin; }
    double setpointMax() const { return m_spMax; }

private:
    QRectF m_curve;
    QRectF m_events;
    double m_timeMax = 60;
    double m_spMin = 0;
    double m_spMax = 100;
};

QColor curveColor();
QColor eventColor();

// "h:mm" for a number of minutes.
QString hoursMinutes(double minutes);

// Paints the whole picture onto a device of options.size.
void paint(QPainter& painter, const Program& program, const Options& options);
QImage renderImage(const Program& program, const Options& options);
// Writes a PNG or an SVG onto an open device; false with a one-line error.
bool writePng(const Program& program, const Options& options, QIODevice& device, QString& error);
bool writeSvg(const Program& program, const Options& options, QIODevice& device, QString& error);

} // namespace ProgramPlot

#endif

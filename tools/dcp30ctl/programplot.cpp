#include "programplot.h"

#include <QFontMetricsF>
#include <QImageWriter>
#include <QPainter>
#include <QPolygonF>
#include <QSvgGenerator>

#include <algorithm>
#include <cmath>

namespace ProgramPlot
{

namespace
{

// Positions in a segment row (label first), as in the program table.
constexpr int SpColumn = 1;
constexpr int TimeColumn = 2;
constexpr int FirstTimeEventColumn = 9;
constexpr int MaxMinutes = 5999;
const QLatin1String NotSet("----");

// Picture geometry in pixels.
constexpr double LeftMargin = 78;
constexpr double RightMargin = 24;
constexpr double TopMargin = 66;
constexpr double LabelRowHeight = 16;
constexpr int LabelPixelSize = 12;
constexpr double LaneHeight = 16;
constexpr double EventGap = 12;
constexpr double BottomMargin = 44;
constexpr double CurveWidth = 3;

const QColor MarkColor(200, 0, 0);

QFont labelFont()
{
    QFont font;
    font.setPixelSize(LabelPixelSize);
    return font;
}

QString quoted(const QString& cell)
{
    return QLatin1Char('"') + cell + QLatin1Char('"');
}

// TIME "h:m": unsigned hours and minutes (minutes may pass 59). Returns the
// reason when the cell cannot be used.
QString parseSegmentTime(const QString& cell, int& minutes)
{
    if (!cell.contains(QLatin1Char(':')))
        return QStringLiteral("not h:mm");
    const QStringList parts = cell.split(QLatin1Char(':'));
    bool hoursOk = false;
    bool minutesOk = false;
    const qint64 total = qint64(parts.at(0).toUInt(&hoursOk)) * 60 + parts.at(1).toUInt(&minutesOk);
    if (!hoursOk || !minutesOk)
        return QStringLiteral("not h:mm");
    if (total > MaxMinutes)
        return QStringLiteral("over 99:59");
    minutes = int(total);
    return QString();
}

// A time-event cell "h.mm" or "h" (signed parts, as the panel reads them).
QString parseEventTime(const QString& cell, int& minutes)
{
    bool ok = false;
    qint64 total = 0;
    const int dot = cell.indexOf(QLatin1Char('.'));
    if (dot < 0) {
        total = qint64(cell.toInt(&ok)) * 60;
    } else {
        const QStringList parts = cell.split(QLatin1Char('.'));
        const qint64 hours = parts.at(0).toInt(&ok);
        if (ok)
            total = hours * 60 + parts.at(1).toInt(&ok);
    }
    if (!ok)
        return QStringLiteral("not h.mm");
    if (total < 0 || total > MaxMinutes)
        return QStringLiteral("outside 0.00..99.59");
    minutes = int(total);
    return QString();
}

// Round steps for a time axis, in minutes.
double timeStep(double span, int maxTicks)
{
    static const int steps[] = {1,   2,   5,   10,  15,   20,   30,   60,   120,  180,
                                240, 360, 480, 720, 1440, 2880, 4320, 7200, 14400};
    for (int s : steps)
        if (span / s <= maxTicks)
            return s;
    return 1440.0 * std::ceil(span / 1440.0 / std::max(1, maxTicks));
}

// 1, 2 or 5 times a power of ten.
double niceStep(double span, int maxTicks)
{
    const double raw = span / std::max(1, maxTicks);
    const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
    for (double m : {1.0, 2.0, 5.0, 10.0})
        if (m * magnitude >= raw)
            return m * magnitude;
    return 10 * magnitude;
}

QString number(double value)
{
    return QString::number(value, 'g', 12);
}

void drawEvents(QPainter& painter, const Program& program, const Layout& layout)
{
    painter.setPen(Qt::NoPen);
    for (int n = 1; n <= TimeEventCount; ++n) {
        if (n % 2 == 0)
            painter.fillRect(layout.eventLane(n), QColor(245, 245, 245));
    }
    for (const EventBar& bar : program.bars) {
        const QRectF lane = layout.eventLane(bar.event);
        const double left = layout.x(bar.start);
        // A bar of a minute on a long program is still visible.
        const double width = std::max(1.0, layout.x(bar.end) - left);
        painter.fillRect(QRectF(left, lane.top() + 3, width, lane.height() - 6), eventColor());
    }
    painter.setPen(Qt::black);
    for (int n = 1; n <= TimeEventCount; ++n) {
        const QRectF lane = layout.eventLane(n);
        painter.drawText(QRectF(0, lane.top(), lane.left() - 8, lane.height()),
                         Qt::AlignRight | Qt::AlignVCenter, QStringLiteral("T%1").arg(n));
    }
}

void drawAxes(QPainter& painter, const Program& program, const Options& options,
              const Layout& layout)
{
    const QRectF curve = layout.curveArea();
    const QRectF lanes = layout.eventLane(1).united(layout.eventLane(TimeEventCount));
    const QFontMetricsF metrics(painter.font());
    const QPen grid(QColor(225, 225, 225), 1);

    // Setpoint axis.
    const int spTicks = std::max(1, int(curve.height() / 40));
    const double spStep = niceStep(layout.setpointMax() - layout.setpointMin(), spTicks);
    for (double v = std::ceil(layout.setpointMin() / spStep) * spStep; v <= layout.setpointMax();
         v += spStep) {
        const double y = layout.y(v);
        painter.setPen(grid);
        painter.drawLine(QPointF(curve.left(), y), QPointF(curve.right(), y));
        painter.setPen(Qt::black);
        painter.drawText(QRectF(0, y - 10, curve.left() - 6, 20), Qt::AlignRight | Qt::AlignVCenter,
                         number(v));
    }
    painter.drawText(QRectF(4, curve.top() - 24, curve.left(), 18),
                     Qt::AlignLeft | Qt::AlignVCenter, QStringLiteral("SP1"));

    // Time axis: hours and minutes from the program's start.
    const int timeTicks = std::max(1, int(curve.width() / 90));
    const double step = timeStep(layout.timeSpan(), timeTicks);
    for (double m = 0; m <= layout.timeSpan() + 1e-9; m += step) {
        const double x = layout.x(m);
        painter.setPen(grid);
        painter.drawLine(QPointF(x, curve.top()), QPointF(x, lanes.bottom()));
        painter.setPen(Qt::black);
        painter.drawText(QRectF(x - 40, lanes.bottom() + 4, 80, 16), Qt::AlignCenter,
                         hoursMinutes(m));
    }
    // A narrow picture gets the short form rather than a clipped one.
    QString timeTitle = QStringLiteral("time (h:mm from the program's start)");
    if (metrics.horizontalAdvance(timeTitle) > curve.width())
        timeTitle = QStringLiteral("time (h:mm)");
    painter.drawText(QRectF(curve.left(), lanes.bottom() + 22, curve.width(), 16), Qt::AlignCenter,
                     timeTitle);

    // The controller's setpoint limits.
    if (options.limitsKnown) {
        QPen limitPen(QColor(200, 0, 0), 1, Qt::DashLine);
        const struct {
            qint32 value;
            const char* label;
            bool above;
        } limits[] = {{options.spHigh, "HI", false}, {options.spLow, "LO", true}};
        for (const auto& limit : limits) {
            const double y = layout.y(limit.value);
            painter.setPen(limitPen);
            painter.drawLine(QPointF(curve.left(), y), QPointF(curve.right(), y));
            const QString text =
                QStringLiteral("%1 %2").arg(QLatin1String(limit.label)).arg(limit.value);
            const QRectF box(curve.right() - metrics.horizontalAdvance(text) - 6,
                             limit.above ? y - 17 : y + 1, metrics.horizontalAdvance(text) + 4, 16);
            painter.setPen(QColor(200, 0, 0));
            painter.drawText(box, Qt::AlignCenter, text);
        }
    }

    // Segment boundaries and numbers.
    painter.setPen(QPen(QColor(150, 150, 150), 1, Qt::DotLine));
    for (const SegmentSpan& span : program.segments) {
        const double x = layout.x(span.start);
        painter.drawLine(QPointF(x, curve.top() - 18), QPointF(x, lanes.bottom()));
    }
    if (!program.segments.isEmpty()) {
        const double x = layout.x(program.totalMinutes());
        painter.drawLine(QPointF(x, curve.top() - 18), QPointF(x, lanes.bottom()));
    }
    // Marked segments: a red triangle on the curve area's top edge, a hole
    // also a dashed red line through curve and lanes.
    for (const SegmentSpan& span : program.segments) {
        if (!span.problem && !span.hole)
            continue;
        const double x = layout.x((span.start + span.end) / 2);
        painter.setPen(Qt::NoPen);
        painter.setBrush(MarkColor);
        QPolygonF triangle;
        triangle << QPointF(x - 5, curve.top()) << QPointF(x + 5, curve.top())
                 << QPointF(x, curve.top() + 8);
        painter.drawPolygon(triangle);
        if (span.hole) {
            painter.setPen(QPen(MarkColor, 1, Qt::DashLine));
            painter.drawLine(QPointF(x, curve.top()), QPointF(x, lanes.bottom()));
        }
    }
    painter.setBrush(Qt::NoBrush);
    const QVector<int> rows = segmentLabelRows(program, options);
    for (int i = 0; i < program.segments.size(); ++i) {
        if (rows.at(i) < 0)
            continue;
        const SegmentSpan& span = program.segments.at(i);
        const QString label = QString::number(span.segment);
        const double center = layout.x((span.start + span.end) / 2);
        const double width = metrics.horizontalAdvance(label) + 2;
        const double top = curve.top() - LabelRowHeight * (rows.at(i) + 1) - 2;
        painter.setPen(span.problem || span.hole ? MarkColor : QColor(Qt::black));
        painter.drawText(QRectF(center - width / 2, top, width, LabelRowHeight), Qt::AlignCenter,
                         label);
    }

    painter.setPen(Qt::black);
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(curve);
    painter.drawRect(lanes);
}

void drawCurve(QPainter& painter, const Program& program, const Layout& layout)
{
    QPen pen(curveColor(), CurveWidth);
    pen.setJoinStyle(Qt::RoundJoin);
    pen.setCapStyle(Qt::RoundCap);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    QPolygonF line;
    for (const SegmentSpan& span : program.segments) {
        if (!span.drawn) {
            if (line.size() > 1)
                painter.drawPolyline(line);
            line.clear();
            continue;
        }
        const QPointF from = layout.map(span.start, span.from);
        if (line.isEmpty() || line.last() != from)
            line << from;
        line << layout.map(span.end, span.to);
    }
    if (line.size() > 1)
        painter.drawPolyline(line);
}

} // namespace

Program buildProgram(const QList<QStringList>& rows)
{
    Program program;
    double time = 0;
    bool haveSetpoint = false;
    double previous = 0;
    for (int i = 0; i < rows.size(); ++i) {
        const QStringList& row = rows.at(i);
        SegmentSpan span;
        span.segment = i + 1;
        span.start = time;
        span.hole = std::all_of(row.begin() + std::min(1, int(row.size())), row.end(),
                                [](const QString& cell) { return cell == NotSet; });
        if (span.hole) {
            program.notes << QStringLiteral("segment %1 has no value set (a hole in the program); "
                                            "it is marked and lasts no time")
                                 .arg(span.segment);
            span.drawn = haveSetpoint;
            span.from = span.to = previous;
            span.end = time;
            program.segments << span;
            continue;
        }
        auto note = [&](const QString& what, const QString& consequence) {
            span.problem = true;
            program.notes
                << QStringLiteral("segment %1, %2; %3").arg(span.segment).arg(what, consequence);
        };

        int minutes = 0;
        const QString timeCell = row.value(TimeColumn);
        const QString timeProblem = parseSegmentTime(timeCell, minutes);
        if (!timeProblem.isEmpty())
            note(QStringLiteral("TIME %1 is %2").arg(quoted(timeCell), timeProblem),
                 QStringLiteral("the segment is drawn without duration"));
        span.end = time + minutes;

        bool spOk = false;
        const QString spCell = row.value(SpColumn);
        const qint32 setpoint = spCell.toInt(&spOk);
        if (spOk) {
            span.drawn = true;
            span.from = haveSetpoint ? previous : setpoint;
            span.to = setpoint;
            previous = setpoint;
            haveSetpoint = true;
        } else {
            const QString what = spCell == NotSet
                                     ? QStringLiteral("SP1 is not set")
                                     : QStringLiteral("SP1 %1 is no number").arg(quoted(spCell));
            note(what, haveSetpoint ? QStringLiteral("the previous setpoint is held")
                                    : QStringLiteral("no curve until a setpoint is known"));
            span.drawn = haveSetpoint;
            span.from = span.to = previous;
        }

        for (int n = 1; n <= TimeEventCount; ++n) {
            const QString onCell = row.value(FirstTimeEventColumn + 2 * (n - 1));
            const QString offCell = row.value(FirstTimeEventColumn + 2 * (n - 1) + 1);
            if (onCell == NotSet)
                continue;
            int on = 0;
            int off = minutes;
            QString problem = parseEventTime(onCell, on);
            if (!problem.isEmpty()) {
                note(QStringLiteral("T%1 1st %2 is %3").arg(n).arg(quoted(onCell), problem),
                     QStringLiteral("no bar"));
                continue;
            }
            if (offCell != NotSet) {
                problem = parseEventTime(offCell, off);
                if (!problem.isEmpty()) {
                    note(QStringLiteral("T%1 2nd %2 is %3").arg(n).arg(quoted(offCell), problem),
                         QStringLiteral("no bar"));
                    continue;
                }
                if (off <= on) {
                    note(QStringLiteral("T%1 2nd %2 is not after T%1 1st %3")
                             .arg(n)
                             .arg(quoted(offCell), quoted(onCell)),
                         QStringLiteral("no bar"));
                    continue;
                }
            }
            // Times count from the segment's start; what lies past its end
            // never happens in this segment.
            const int start = std::min(on, minutes);
            const int end = std::min(off, minutes);
            if (end > start)
                program.bars << EventBar{n, span.segment, time + start, time + end};
        }
        program.segments << span;
        time = span.end;
    }
    return program;
}

QVector<int> segmentLabelRows(const Program& program, const Options& options)
{
    const Layout layout(program, options);
    const QFontMetricsF metrics(labelFont());
    QVector<int> rows;
    double rowEnd[2] = {-1e9, -1e9}; // right edge of the last label in each row
    for (const SegmentSpan& span : program.segments) {
        const double width = metrics.horizontalAdvance(QString::number(span.segment)) + 2;
        const double center = layout.x((span.start + span.end) / 2);
        int row = -1;
        for (int r = 0; r < 2 && row < 0; ++r) {
            if (center - width / 2 >= rowEnd[r] + 2)
                row = r;
        }
        if (row >= 0)
            rowEnd[row] = center + width / 2;
        rows << row;
    }
    return rows;
}

Layout::Layout(const Program& program, const Options& options)
{
    const double width = std::max(options.size.width(), MinWidth);
    const double height = std::max(options.size.height(), MinHeight);
    const double lanesHeight = LaneHeight * TimeEventCount;
    const double curveBottom = height - BottomMargin - lanesHeight - EventGap;
    m_curve =
        QRectF(LeftMargin, TopMargin, width - LeftMargin - RightMargin, curveBottom - TopMargin);
    m_events = QRectF(LeftMargin, curveBottom + EventGap, m_curve.width(), lanesHeight);
    m_timeMax = program.totalMinutes() > 0 ? program.totalMinutes() : 60;

    bool any = false;
    double low = 0;
    double high = 0;
    auto take = [&](double v) {
        low = any ? std::min(low, v) : v;
        high = any ? std::max(high, v) : v;
        any = true;
    };
    for (const SegmentSpan& span : program.segments) {
        if (span.drawn) {
            take(span.from);
            take(span.to);
        }
    }
    if (options.limitsKnown) {
        take(options.spLow);
        take(options.spHigh);
    }
    if (!any) {
        low = 0;
        high = 100;
    }
    // A flat program still gets an axis with some room around its line.
    if (high - low < 10) {
        const double mid = (high + low) / 2;
        low = mid - 5;
        high = mid + 5;
    }
    const double pad = (high - low) * 0.05;
    m_spMin = low - pad;
    m_spMax = high + pad;
}

QRectF Layout::eventLane(int event) const
{
    return QRectF(m_events.left(), m_events.top() + (event - 1) * LaneHeight, m_events.width(),
                  LaneHeight);
}

double Layout::x(double minutes) const
{
    return m_curve.left() + minutes / m_timeMax * m_curve.width();
}

double Layout::y(double setpoint) const
{
    return m_curve.bottom() - (setpoint - m_spMin) / (m_spMax - m_spMin) * m_curve.height();
}

QColor curveColor()
{
    return QColor(0, 90, 200);
}

QColor eventColor()
{
    return QColor(230, 140, 0);
}

QString hoursMinutes(double minutes)
{
    const qint64 total = qRound64(minutes);
    return QStringLiteral("%1:%2").arg(total / 60).arg(total % 60, 2, 10, QLatin1Char('0'));
}

void paint(QPainter& painter, const Program& program, const Options& options)
{
    const Layout layout(program, options);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.fillRect(QRectF(QPointF(0, 0), QSizeF(options.size)), Qt::white);

    const QFont font = labelFont();
    painter.setFont(font);
    drawAxes(painter, program, options, layout);
    drawEvents(painter, program, layout);
    drawCurve(painter, program, layout);

    QFont titleFont = font;
    titleFont.setPixelSize(15);
    titleFont.setBold(true);
    painter.setFont(titleFont);
    painter.setPen(Qt::black);
    // The whole picture's width is the title's; what does not fit ends in
    // an ellipsis instead of being cut mid-letter.
    const double titleWidth = options.size.width() - 2 * 6.0;
    painter.drawText(
        QRectF(6, 4, titleWidth, 20), Qt::AlignLeft | Qt::AlignVCenter,
        QFontMetricsF(titleFont).elidedText(options.title, Qt::ElideRight, titleWidth));
}

QImage renderImage(const Program& program, const Options& options)
{
    QImage image(options.size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::white);
    QPainter painter(&image);
    paint(painter, program, options);
    painter.end();
    return image;
}

bool writePng(const Program& program, const Options& options, QIODevice& device, QString& error)
{
    QImageWriter writer(&device, "png");
    if (writer.write(renderImage(program, options)))
        return true;
    error = writer.errorString();
    return false;
}

bool writeSvg(const Program& program, const Options& options, QIODevice& device, QString& error)
{
    QSvgGenerator generator;
    generator.setOutputDevice(&device);
    // 96 dots an inch: the nominal size in a browser is the pixel size.
    generator.setResolution(96);
    generator.setSize(options.size);
    generator.setViewBox(QRect(QPoint(0, 0), options.size));
    generator.setTitle(options.title);
    generator.setDescription(QStringLiteral("SP1 against time"));
    QPainter painter;
    if (!painter.begin(&generator)) {
        error = QStringLiteral("the SVG cannot be started");
        return false;
    }
    paint(painter, program, options);
    painter.end();
    return true;
}

} // namespace ProgramPlot

#include "cellwarnings.h"
#include "programfile.h"

namespace CellWarnings
{

namespace
{

// Positions in a segment row (label first), as in the program table.
constexpr int SpColumn = 1;
constexpr int TimeColumn = 2;
constexpr int FirstEventColumn = 3;
constexpr int FirstTimeEventColumn = 9;
constexpr int GsColumn = 20;
constexpr int CyclColumn = 23;
constexpr int TagColumn = 25;
constexpr int TagLength = 8;
const QLatin1String NotSet("----");

// The title under which the checks report a column: its header, except
// G.S, which they call "G.S.".
QString cellTitle(int column)
{
    if (column == GsColumn)
        return QStringLiteral("G.S.");
    return SegmentCodec::headerRow().value(column);
}

QString hoursMinutes(int minutes, const QString& separator, int hourWidth)
{
    return QStringLiteral("%1%2%3")
        .arg(minutes / 60, hourWidth, 10, QLatin1Char('0'))
        .arg(separator)
        .arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

// True when value passes the range check of title but a value one step
// further out would not.
bool atRangeEnd(const SegmentCodec::WriteParameters& params, const QString& title, qint32 value)
{
    QString ignored;
    if (!SegmentCodec::checkValueRange(params, title, value, ignored))
        return false;
    return (value > INT_MIN && !SegmentCodec::checkValueRange(params, title, value - 1, ignored)) ||
           (value < INT_MAX && !SegmentCodec::checkValueRange(params, title, value + 1, ignored));
}

class RowWarnings
{
public:
    RowWarnings(const SegmentCodec::WriteParameters& params, int segment, const QStringList& row,
                bool strict)
        : params(params), segment(segment), row(row), strict(strict)
    {
    }

    QStringList run()
    {
        segmentTime();
        for (int column = FirstTimeEventColumn; column < FirstTimeEventColumn + 10; ++column)
            eventTime(column);
        if (strict) {
            edge(SpColumn);
            for (int column = FirstEventColumn; column < FirstTimeEventColumn; ++column)
                edge(column);
            edge(GsColumn);
            edge(GsColumn + 1);
            if (segment == 1)
                edge(CyclColumn);
        }
        if (segment == 1)
            tag();
        return warnings;
    }

private:
    void add(int column, const QString& text)
    {
        warnings << QStringLiteral("%1 %2: %3")
                        .arg(cellTitle(column), quotedCell(row.value(column)), text);
    }

    void segmentTime()
    {
        const QStringList parts = row.value(TimeColumn).split(QLatin1Char(':'));
        bool hoursOk = false;
        bool minutesOk = false;
        const uint hours = parts.value(0).toUInt(&hoursOk);
        const uint minutes = parts.value(1).toUInt(&minutesOk);
        if (parts.size() < 2 || !hoursOk || !minutesOk || minutes < 60 ||
            hours * 60 + minutes > 5999)
            return;
        add(TimeColumn, QStringLiteral("%1 minutes; the controller takes it as %2")
                            .arg(minutes)
                            .arg(hoursMinutes(int(hours * 60 + minutes), QStringLiteral(":"), 2)));
    }

    void eventTime(int column)
    {
        const QString cell = row.value(column);
        const QStringList parts = cell.split(QLatin1Char('.'));
        if (cell == NotSet || parts.size() < 2)
            return;
        bool hoursOk = false;
        bool minutesOk = false;
        const int hours = parts.at(0).toInt(&hoursOk);
        const int minutes = parts.at(1).toInt(&minutesOk);
        const int total = hours * 60 + minutes;
        if (!hoursOk || !minutesOk || hours < 0 || minutes < 0 || total > 5999)
            return;
        if (minutes >= 60)
            add(column, QStringLiteral("%1 minutes; the controller takes it as %2")
                            .arg(minutes)
                            .arg(hoursMinutes(total, QStringLiteral("."), 1)));
        else if (strict && parts.at(1).trimmed().size() == 1)
            add(column, QStringLiteral("means %1 h %2 min (h.mm), not %3 hours")
                            .arg(hours)
                            .arg(minutes, 2, 10, QLatin1Char('0'))
                            .arg(cell.trimmed()));
    }

    void edge(int column)
    {
        bool ok = false;
        const qint32 value = row.value(column).toInt(&ok);
        if (!ok || value == 0 || !atRangeEnd(params, cellTitle(column), value))
            return;
        // 5999 / ---- is how a time event says "off".
        const int event = (column - FirstEventColumn) / 2 + 1;
        const bool firstOfEvent = column >= FirstEventColumn && column < FirstTimeEventColumn &&
                                  (column - FirstEventColumn) % 2 == 0;
        if (firstOfEvent && value == 5999 && row.value(column + 1) == NotSet &&
            SegmentCodec::eventKind(params.eventType(event)) == SegmentCodec::EventKind::Time)
            return;
        add(column, QStringLiteral("at the very end of its range"));
    }

    void tag()
    {
        const QString cell = row.value(TagColumn);
        if (cell.size() > TagLength)
            add(TagColumn, QStringLiteral("%1 characters; the controller keeps the first %2: %3")
                               .arg(cell.size())
                               .arg(TagLength)
                               .arg(quotedCell(cell.left(TagLength))));
        else if (strict && cell != cell.toUpper())
            add(TagColumn, QStringLiteral("sent upper-cased: %1").arg(quotedCell(cell.toUpper())));
    }

    const SegmentCodec::WriteParameters& params;
    const int segment;
    const QStringList& row;
    const bool strict;
    QStringList warnings;
};

} // namespace

QStringList forRow(const SegmentCodec::WriteParameters& params, int segment, const QStringList& row,
                   bool strict)
{
    return RowWarnings(params, segment, row, strict).run();
}

} // namespace CellWarnings

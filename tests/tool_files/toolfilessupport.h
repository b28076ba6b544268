#pragma once

// Shared by the program-file tool suites: dcp30ctl run as a process, and
// program files written by the panel's own saver.

#include "../e2e_support/e2eprocesses.h"
#include "csv/kcsvloader.h"
#include "driver/segmentcodec.h"

#include <QTemporaryDir>

Q_DECLARE_METATYPE(QList<QStringList>)

namespace tooltest
{

// Positions in a segment row.
enum Column {
    Sp1 = 1,
    Time = 2,
    Ev1First = 3,
    Ev2First = 5,
    Ev3First = 7,
    T1First = 9,
    Pid = 19,
    GuaranteedSoak = 20,
    Tag = 25
};

// A row the write workflow accepts with SP1 limits -1999..9999 and event
// kinds 0,4,50: EV1 a PV alarm, EV2 a deviation, EV3 the time event "off".
inline QStringList validRow(int segment, const QString& sp = QStringLiteral("200"),
                            const QString& time = QStringLiteral("01:00"))
{
    const QString rest = QStringLiteral("900|----|50|----|5999|----|0.10|0.40|----|----|----|----|"
                                        "----|----|----|----|1|----|----|") +
                         (segment == 1 ? "0|1|0|TAG1    " : "----|----|----|----");
    return QStringList{QStringLiteral("SEG%1").arg(segment), sp, time} +
           rest.split(QLatin1Char('|'));
}

inline QList<QStringList> validRows(int count)
{
    QList<QStringList> rows;
    for (int s = 1; s <= count; ++s)
        rows << validRow(s);
    return rows;
}

struct Edit {
    int segment;
    int column;
    QString text;
};

inline QList<QStringList> edited(QList<QStringList> rows, const QList<Edit>& edits)
{
    for (const Edit& e : edits)
        rows[e.segment - 1][e.column] = e.text;
    return rows;
}

// Header plus rows, saved by the panel's saver (tab, UTF-16LE with BOM).
inline QString writeProgram(const QTemporaryDir& dir, const QString& name,
                            const QList<QStringList>& rows,
                            const QStringList& header = SegmentCodec::headerRow())
{
    QList<QStringList> table{header};
    table << rows;
    const QString path = dir.filePath(name);
    return KCSVSaver(nullptr).saveFile(table, path) ? path : QString();
}

// Qt never frees the screen objects of the platform plug-in a painting
// command loads; lsan.supp names the plug-in's start-up, which only shows in
// stacks unwound the slow way (Qt has no frame pointers). Children inherit
// it; it costs them little.
inline void unwindChildrenSlowly()
{
#if defined(__SANITIZE_ADDRESS__)
    qputenv("ASAN_OPTIONS", qgetenv("ASAN_OPTIONS") + ":fast_unwind_on_malloc=0");
#endif
}

inline E2e::ToolRun runTool(const QStringList& args, int waitPercent = 0)
{
    return E2e::runTool(args, waitPercent, 60000);
}

inline bool ranToEnd(const E2e::ToolRun& run)
{
    return run.finished && run.status == QProcess::NormalExit;
}

// The part of `check`'s output that mirrors the write log: without the
// loader's warnings before it and the summary line after it.
inline QString checkLogPart(const QString& out, QStringList* warnings, QString* summary)
{
    QStringList lines = out.split(QLatin1Char('\n'));
    lines.removeLast(); // after the final line break
    while (!lines.isEmpty() && lines.first().startsWith(QLatin1String("Warning: ")))
        *warnings << lines.takeFirst().mid(9);
    *summary = lines.isEmpty() ? QString() : lines.takeLast();
    return lines.join(QLatin1Char('\n'));
}

} // namespace tooltest

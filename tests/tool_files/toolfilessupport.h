#pragma once

// Shared by the program-file tool suites: running build/bin/dcp30ctl, and
// program files written the way the panel writes them.

#include "csv/kcsvloader.h"
#include "driver/segmentcodec.h"

#include <QDir>
#include <QList>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

Q_DECLARE_METATYPE(QList<QStringList>)

namespace tooltest
{

// Positions in a segment row.
enum Column {
    Label = 0,
    Sp1 = 1,
    Time = 2,
    Ev1First = 3,
    Ev2First = 5,
    Ev3First = 7,
    Ev3Second = 8,
    T1First = 9,
    T2First = 11,
    T2Second = 12,
    T3Second = 14,
    Pid = 19,
    GuaranteedSoak = 20,
    Tag = 25
};

// A row the write workflow accepts with SP1 limits -1999..9999 and event
// kinds 0,4,50: EV1 a PV alarm, EV2 a deviation, EV3 the time event "off".
inline QStringList validRow(int segment, const QString& sp = QStringLiteral("200"),
                            const QString& time = QStringLiteral("01:00"))
{
    QStringList row{QStringLiteral("SEG%1").arg(segment),
                    sp,
                    time,
                    "900",
                    "----",
                    "50",
                    "----",
                    "5999",
                    "----",
                    "0.10",
                    "0.40"};
    for (int i = 0; i < 8; ++i)
        row << "----";
    row << "1"
        << "----"
        << "----";
    if (segment == 1)
        row << "0"
            << "1"
            << "0"
            << "TAG1    ";
    else
        row << "----"
            << "----"
            << "----"
            << "----";
    return row;
}

inline QList<QStringList> validRows(int count)
{
    QList<QStringList> rows;
    for (int s = 1; s <= count; ++s)
        rows << validRow(s);
    return rows;
}

// Header plus rows, saved by the panel's saver (tab, UTF-16LE with BOM).
inline QString writeProgram(const QTemporaryDir& dir, const QString& name,
                            const QList<QStringList>& rows)
{
    QList<QStringList> table{SegmentCodec::headerRow()};
    table << rows;
    KCSVSaver saver(nullptr);
    const QString path = dir.filePath(name);
    return saver.saveFile(table, path) ? path : QString();
}

struct ToolRun {
    int exitCode = -1;
    bool crashed = true;
    QString out;
    QString err;
};

inline QString toolPath()
{
    return qEnvironmentVariable("DCP_BUILD_DIR") + QStringLiteral("/bin/dcp30ctl");
}

inline ToolRun runTool(const QStringList& args, const QProcessEnvironment& extra = {},
                       int timeoutMs = 20000)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    // Without it a painting command's platform start-up adds a line to
    // stderr.
    static QTemporaryDir runtimeDir;
    QFile::setPermissions(runtimeDir.path(),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtimeDir.path());
#if defined(__SANITIZE_ADDRESS__)
    // Qt never frees the screen objects of the platform plug-in a painting
    // command loads; lsan.supp names the plug-in's start-up, which only
    // shows in stacks unwound the slow way (Qt has no frame pointers).
    if (!args.isEmpty() && args.first() == QLatin1String("plot"))
        env.insert(QStringLiteral("ASAN_OPTIONS"), env.value(QStringLiteral("ASAN_OPTIONS")) +
                                                       QStringLiteral(":fast_unwind_on_malloc=0"));
#endif
    for (const QString& key : extra.keys())
        env.insert(key, extra.value(key));
    process.setProcessEnvironment(env);
    process.start(toolPath(), args);
    ToolRun run;
    if (!process.waitForStarted(5000))
        return run;
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(2000);
        return run;
    }
    run.crashed = process.exitStatus() != QProcess::NormalExit;
    run.exitCode = process.exitCode();
    run.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    run.err = QString::fromLocal8Bit(process.readAllStandardError());
    return run;
}

// The part of `check`'s output that mirrors the write log: without the
// loader's warnings before it and the summary line after it.
inline QString checkLogPart(const QString& out, QStringList* warnings = nullptr,
                            QString* summary = nullptr)
{
    QStringList lines = out.split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    while (!lines.isEmpty() && lines.first().startsWith(QLatin1String("Warning: "))) {
        if (warnings)
            *warnings << lines.first().mid(9);
        lines.removeFirst();
    }
    if (!lines.isEmpty()) {
        if (summary)
            *summary = lines.last();
        lines.removeLast();
    }
    return lines.join(QLatin1Char('\n'));
}

} // namespace tooltest

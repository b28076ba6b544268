#include "writesafety.h"

#include "pluginsession.h"
#include "programfile.h"

bool readControllerLimits(PluginSession& session, SegmentCodec::WriteParameters* params,
                          QString* error)
{
    QList<int> values;
    bool complete = false;
    session.runOnCommunicationThread([&] { values = session.readWriteParameters(&complete); });
    if (!complete) {
        *error = QStringLiteral("the controller did not answer the reads of its SP1 limits and "
                                "event kinds (RAM4509, RAM3501, RAM3505, RAM3509)");
        return false;
    }
    *params = SegmentCodec::WriteParameters::fromList(values);
    return true;
}

bool rowsPassChecks(const QString& programFile, const SegmentCodec::WriteParameters& params,
                    int segments, QStringList* lines)
{
    ProgramFile file;
    QString error;
    if (!loadProgramFile(programFile, file, error)) {
        *lines << error;
        return false;
    }
    QStringList log;
    const int passing = SegmentCodec::checkSegments(params, file.rows, segments, log).size();
    *lines << log;
    return passing == segments;
}

bool encodedRecords(const QString& programFile, const SegmentCodec::WriteParameters& params,
                    int segments, QMap<int, QString>* records, QString* error)
{
    ProgramFile file;
    if (!loadProgramFile(programFile, file, *error))
        return false;
    QStringList unused;
    *records = SegmentCodec::checkSegments(params, file.rows, segments, unused);
    return true;
}

QStringList recordDifferences(const QMap<int, QString>& written, const QMap<int, QString>& readBack,
                              int segments)
{
    QStringList lines;
    const QString none = QStringLiteral("(nothing)");
    for (int s = 1; s <= segments; ++s) {
        const QString a = written.value(s), b = readBack.value(s);
        if (a != b || a.isEmpty())
            lines << QStringLiteral("segment %1: written %2, read back %3")
                         .arg(s)
                         .arg(a.isEmpty() ? none : a, b.isEmpty() ? none : b);
    }
    return lines;
}

QString interruptedWriteState(int program, int segments, int done)
{
    if (done <= 0)
        return QStringLiteral("program %1: nothing written; the controller's program is as it "
                              "was")
            .arg(program);
    if (done >= segments)
        return QStringLiteral("program %1: all %2 segments written").arg(program).arg(segments);
    const QString written =
        done == 1 ? QStringLiteral("segment 1") : QStringLiteral("segments 1-%1").arg(done);
    const QString rest = done + 1 == segments
                             ? QStringLiteral("segment %1").arg(segments)
                             : QStringLiteral("segments %1-%2").arg(done + 1).arg(segments);
    return QStringLiteral("program %1: %2 written, %3 not written; the program in the controller "
                          "is incomplete (segment %4 was on the line when the write stopped)")
        .arg(program)
        .arg(written, rest)
        .arg(done + 1);
}

// dcp30ctl check: the cell checks of a program write, run on a PC before the
// file goes to the panel. The messages are the write log's own, built by the
// validator the write workflow calls.
#include "cellwarnings.h"
#include "jsonreport.h"
#include "parameteroptions.h"
#include "pluginsession.h"
#include "programfile.h"
#include "subcommand.h"
#include "tooloutput.h"
#include "writesafety.h"

#include "driver/segmentcodec.h"

#include <QCommandLineParser>
#include <QJsonArray>
#include <QLoggingCategory>
#include <QTextStream>

namespace
{

constexpr int MaxSegments = 30;

const char Usage[] =
    "usage: dcp30ctl check FILE|- [--segments N] [--sp-limits LO,HI]\n"
    "                     [--event-kinds K1,K2,K3] [--port DEV] [--strict] [--json]\n"
    "\n"
    "Checks every segment row of the program file FILE (- reads standard input)\n"
    "exactly as the panel does before it writes the program into the controller,\n"
    "and prints the messages the panel's write error log would hold for it: the\n"
    "warnings first (lines starting with \"Warning: \"), then, segment by segment,\n"
    "the messages of the log, then one summary line.\n"
    "\n"
    "Besides the loader's warnings, cells the panel accepts but the controller will\n"
    "not hold as written are always named: minutes of 60 or more (TIME 1:75 is taken\n"
    "as 02:15) and a tag over 8 characters (cut to 8).\n"
    "\n"
    "  --segments N           check segments 1..N (1..30), as a write of N segments\n"
    "                         would; default: every segment row of the file (at most 30)\n"
    "  --sp-limits LO,HI      SP1 limits (the controller's setpoint limits)\n"
    "  --event-kinds K1,K2,K3 event type codes of EV1..EV3: 0,1 PV event; 4,5 absolute\n"
    "                         value deviation event; 8..11 MV/MFB event; 50 time event;\n"
    "                         any other code: no specific kind\n"
    "  --port DEV             read the limits and event kinds from the controller on the\n"
    "                         serial port DEV (RS485,9600,EVEN,8,1), through the dcp30\n"
    "                         plug-in, as the panel reads them before a write\n"
    "  --strict               also warn about likely mistakes among cells that pass: a\n"
    "                         T cell like 1.5 (1 h 05 min, not an hour and a half), a\n"
    "                         lower-case tag, a value at the very end of its range;\n"
    "                         any warning then makes the check fail (exit 1)\n"
    "  --json                 print one JSON object instead of text (see README)\n"
    "\n"
    "--sp-limits and --event-kinds override what --port reads. Without either and\n"
    "without --port the sample controller's parameters apply (the simulator's\n"
    "defaults): --sp-limits -1999,9999 --event-kinds 0,4,50.\n"
    "\n"
    "Exit status: 0 every requested segment would be written; 1 at least one would\n"
    "not (or, with --strict, a warning); 2 bad usage, a file that cannot be loaded,\n"
    "or a controller that cannot be asked.\n";

// The five parameters as the driver reads them before a program write.
bool readControllerParameters(const QString& portName, SegmentCodec::WriteParameters& params,
                              QString& error)
{
    // The port's own log lines would repeat what error and the notes say;
    // QT_LOGGING_RULES still turns them back on.
    QLoggingCategory::setFilterRules(QStringLiteral("dcp.host.serial.info=false\n"
                                                    "dcp.host.serial.warning=false"));
    PluginSessionOptions options;
    options.portName = portName;
    PluginSession session(options);
    if (!session.load(&error) || !session.openPort(&error))
        return false;
    for (const QString& warning : session.portWarnings())
        ToolOutput::note(
            QStringLiteral("check"),
            QStringLiteral("%1 is a pseudo-terminal: going on without %2").arg(portName, warning));
    QString why;
    if (!readControllerLimits(session, &params, &why)) {
        error =
            QStringLiteral("%1: the controller did not answer the parameter reads").arg(portName);
        return false;
    }
    return true;
}

// Where the parameters come from, for the summary.
QString parameterSource(bool fromPort, bool fromOptions)
{
    if (fromPort)
        return fromOptions ? QStringLiteral("the controller and options")
                           : QStringLiteral("the controller");
    return fromOptions ? QStringLiteral("options") : QStringLiteral("defaults");
}

// One element of the report's "segments": the row's own problems (as the
// log lists them under the segment's heading) and the tool's warnings.
QJsonObject segmentResult(const SegmentCodec::WriteParameters& params, const ProgramFile& file,
                          int segment, const QStringList& warnings)
{
    QJsonObject result{{QStringLiteral("segment"), segment}};
    QStringList problems;
    if (segment > file.segmentCount()) {
        result.insert(QStringLiteral("result"), QStringLiteral("missing"));
        problems << QStringLiteral("Segment %1 has no data in the csv file. Please check it.")
                        .arg(segment);
    } else {
        QString record;
        const bool passes =
            SegmentCodec::validateDataRow(params, segment, file.rows, record, problems);
        result.insert(QStringLiteral("result"),
                      passes ? QStringLiteral("written") : QStringLiteral("refused"));
        if (passes)
            result.insert(QStringLiteral("record"), record);
    }
    result.insert(QStringLiteral("messages"), QJsonArray::fromStringList(problems));
    result.insert(QStringLiteral("warnings"), QJsonArray::fromStringList(warnings));
    return result;
}

int runCheck(const QStringList& args)
{
    const QString command = QStringLiteral("check");
    QCommandLineParser parser;
    const QCommandLineOption segmentsOption(QStringLiteral("segments"), QString(),
                                            QStringLiteral("N"));
    const QCommandLineOption portOption(QStringLiteral("port"), QString(), QStringLiteral("DEV"));
    const QCommandLineOption strictOption(QStringLiteral("strict"));
    const QCommandLineOption jsonOption(QStringLiteral("json"));
    const ParameterOptions parameterOptions;
    parser.addOptions({segmentsOption, portOption, strictOption, jsonOption});
    parameterOptions.addTo(parser);
    if (!parser.parse(QStringList{command} + args))
        return ToolOutput::usageError(command, parser.errorText());
    if (parser.positionalArguments().size() != 1)
        return ToolOutput::usageError(command, QStringLiteral("needs exactly one program file"));

    // Parsed before anything is loaded or asked: a usage error costs nothing.
    QString error;
    SegmentCodec::WriteParameters fromOptions = ParameterOptions::SampleController;
    if (!parameterOptions.apply(parser, fromOptions, error))
        return ToolOutput::usageError(command, error);
    if (parser.isSet(portOption) && parser.value(portOption).isEmpty())
        return ToolOutput::usageError(command, QStringLiteral("--port needs a serial device"));
    int segmentCnt = -1;
    if (parser.isSet(segmentsOption)) {
        bool ok = false;
        segmentCnt = parser.value(segmentsOption).toInt(&ok);
        if (!ok || segmentCnt < 1 || segmentCnt > MaxSegments)
            return ToolOutput::usageError(command,
                                          QStringLiteral("--segments needs a number from 1 to 30"));
    }
    const bool json = parser.isSet(jsonOption);
    const bool strict = parser.isSet(strictOption);
    JsonReport report(command);
    auto stop = [&](const QString& message) {
        ToolOutput::error(command, message, 2);
        return json ? report.fail(2, message) : 2;
    };

    ProgramFile file;
    if (!loadProgramFile(parser.positionalArguments().first(), file, error))
        return stop(error);
    report.set(QStringLiteral("file"), file.displayName());

    SegmentCodec::WriteParameters params = ParameterOptions::SampleController;
    if (parser.isSet(portOption) &&
        !readControllerParameters(parser.value(portOption), params, error))
        return stop(error);
    parameterOptions.apply(parser, params, error); // checked above
    const QString source =
        parameterSource(parser.isSet(portOption), parameterOptions.anySet(parser));
    if (segmentCnt < 0)
        segmentCnt = qBound(1, file.segmentCount(), MaxSegments);

    QStringList warnings = file.loaderWarnings;
    if (!file.headerMatches)
        warnings << QStringLiteral(
            "the first line is not the program table header; the panel skips it all the same.");
    QList<QStringList> cellWarnings;
    int cellWarningCount = 0;
    for (int s = 1; s <= segmentCnt; ++s) {
        cellWarnings << (s <= file.segmentCount()
                             ? CellWarnings::forRow(params, s, file.rows.at(s - 1), strict)
                             : QStringList());
        cellWarningCount += cellWarnings.last().size();
    }

    QStringList log;
    const int written = SegmentCodec::checkSegments(params, file.rows, segmentCnt, log).size();
    const bool failed = written != segmentCnt || (strict && cellWarningCount > 0);
    QString summary = QStringLiteral("check: %1 of %2 would be written (%3 from %4")
                          .arg(written)
                          .arg(ToolOutput::count(segmentCnt, QStringLiteral("segment")),
                               ParameterOptions::describe(params), source);
    if (file.segmentCount() > segmentCnt)
        summary += QStringLiteral("; rows after segment %1 not checked").arg(segmentCnt);
    if (cellWarningCount > 0)
        summary += QStringLiteral("; %1").arg(
            ToolOutput::count(cellWarningCount, QStringLiteral("cell warning")));
    summary += QLatin1Char(')');
    const int status = failed ? 1 : 0;

    if (json) {
        report.set(QStringLiteral("parameters"),
                   QJsonObject{{QStringLiteral("spLowLimit"), params.spLowLimit},
                               {QStringLiteral("spHighLimit"), params.spHighLimit},
                               {QStringLiteral("eventKinds"),
                                QJsonArray{params.ev1Type, params.ev2Type, params.ev3Type}},
                               {QStringLiteral("source"), source}});
        report.set(QStringLiteral("segmentsChecked"), segmentCnt);
        report.set(QStringLiteral("segmentsWritten"), written);
        report.set(QStringLiteral("strict"), strict);
        report.set(QStringLiteral("log"), QJsonArray::fromStringList(log));
        for (const QString& w : warnings)
            report.addWarning(w);
        for (int s = 1; s <= segmentCnt; ++s)
            report.addSegment(segmentResult(params, file, s, cellWarnings.at(s - 1)));
        if (written == 0)
            report.addMessage(log.last().trimmed());
        return report.finish(status, summary);
    }

    if (ToolOutput::quiet())
        return status;
    QTextStream out(stdout);
    for (const QString& w : warnings)
        out << "Warning: " << w << '\n';
    for (int s = 1; s <= segmentCnt; ++s)
        for (const QString& w : cellWarnings.at(s - 1))
            out << "Warning: segment " << s << ", " << w << '\n';
    if (!log.isEmpty())
        out << log.join(QLatin1Char('\n')) << '\n';
    out << summary << '\n';
    return status;
}

const SubcommandRegistration registration{
    Subcommand{QStringLiteral("check"),
               QStringLiteral("check a program file as the panel does before a write"),
               QString::fromLatin1(Usage), runCheck}};

} // namespace

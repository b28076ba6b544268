// dcp30ctl check: the cell checks of a program write, run on a PC before the
// file goes to the panel. The messages are the write log's own, built by the
// validator the write workflow calls.
#include "pluginsession.h"
#include "programfile.h"
#include "subcommand.h"

#include "driver/segmentcodec.h"

#include <QCommandLineParser>
#include <QLoggingCategory>
#include <QTextStream>

namespace
{

constexpr int MaxSegments = 30;

// The sample controller's parameters (what the simulator answers unless
// told otherwise): SP1 from -1999 to 9999, EV1 a PV event, EV2 an absolute
// value deviation event, EV3 a time event.
const SegmentCodec::WriteParameters DefaultParameters{-1999, 9999, 0, 4, 50};

const char Usage[] =
    "usage: dcp30ctl check FILE [--segments N] [--sp-limits LO,HI] [--event-kinds K1,K2,K3]\n"
    "                     [--port DEV]\n"
    "\n"
    "Checks every segment row of the program file FILE exactly as the panel does\n"
    "before it writes the program into the controller, and prints the messages the\n"
    "panel's write error log would hold for it: the loader's warnings first (lines\n"
    "starting with \"Warning: \"), then, segment by segment, the messages of the log,\n"
    "then one summary line.\n"
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
    "\n"
    "--sp-limits and --event-kinds override what --port reads. Without either and\n"
    "without --port the sample controller's parameters apply (the simulator's\n"
    "defaults): --sp-limits -1999,9999 --event-kinds 0,4,50.\n"
    "\n"
    "Exit status: 0 every requested segment would be written; 1 at least one would\n"
    "not; 2 bad usage, a file that cannot be loaded, or a controller that cannot\n"
    "be asked.\n";

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
        QTextStream(stderr) << "dcp30ctl check: note: " << portName
                            << " is a pseudo-terminal: going on without " << warning << '\n';
    QList<int> values;
    bool complete = false;
    session.runOnCommunicationThread([&] { values = session.readWriteParameters(&complete); });
    if (!complete) {
        error =
            QStringLiteral("%1: the controller did not answer the parameter reads").arg(portName);
        return false;
    }
    params = SegmentCodec::WriteParameters::fromList(values);
    return true;
}

int runCheck(const QStringList& args)
{
    QTextStream out(stdout);
    QTextStream err(stderr);
    QCommandLineParser parser;
    const QCommandLineOption segmentsOption(QStringLiteral("segments"), QString(),
                                            QStringLiteral("N"));
    const QCommandLineOption limitsOption(QStringLiteral("sp-limits"), QString(),
                                          QStringLiteral("LO,HI"));
    const QCommandLineOption kindsOption(QStringLiteral("event-kinds"), QString(),
                                         QStringLiteral("K1,K2,K3"));
    const QCommandLineOption portOption(QStringLiteral("port"), QString(), QStringLiteral("DEV"));
    parser.addOptions({segmentsOption, limitsOption, kindsOption, portOption});
    auto usageError = [&](const QString& message) {
        err << "dcp30ctl check: " << message << "\n(see 'dcp30ctl check --help')\n";
        return 2;
    };
    if (!parser.parse(QStringList{QStringLiteral("check")} + args))
        return usageError(parser.errorText());
    if (parser.positionalArguments().size() != 1)
        return usageError(QStringLiteral("needs exactly one program file"));

    // Parsed before anything is loaded or asked: a usage error costs nothing.
    SegmentCodec::WriteParameters fromOptions = DefaultParameters;
    if (parser.isSet(limitsOption) &&
        !parseSetpointLimits(parser.value(limitsOption), fromOptions.spLowLimit,
                             fromOptions.spHighLimit))
        return usageError(QStringLiteral("--sp-limits needs LO,HI with LO <= HI"));
    if (parser.isSet(kindsOption) &&
        !parseEventKinds(parser.value(kindsOption), fromOptions.ev1Type, fromOptions.ev2Type,
                         fromOptions.ev3Type))
        return usageError(QStringLiteral("--event-kinds needs three integers K1,K2,K3"));
    if (parser.isSet(portOption) && parser.value(portOption).isEmpty())
        return usageError(QStringLiteral("--port needs a serial device"));
    int segmentCnt = -1;
    if (parser.isSet(segmentsOption)) {
        bool ok = false;
        segmentCnt = parser.value(segmentsOption).toInt(&ok);
        if (!ok || segmentCnt < 1 || segmentCnt > MaxSegments)
            return usageError(QStringLiteral("--segments needs a number from 1 to 30"));
    }

    ProgramFile file;
    QString error;
    if (!loadProgramFile(parser.positionalArguments().first(), file, error)) {
        err << "dcp30ctl check: " << error << '\n';
        return 2;
    }

    SegmentCodec::WriteParameters params = DefaultParameters;
    QString source = QStringLiteral("defaults");
    if (parser.isSet(portOption)) {
        if (!readControllerParameters(parser.value(portOption), params, error)) {
            err << "dcp30ctl check: " << error << '\n';
            return 2;
        }
        source = QStringLiteral("the controller");
    }
    if (parser.isSet(limitsOption)) {
        params.spLowLimit = fromOptions.spLowLimit;
        params.spHighLimit = fromOptions.spHighLimit;
    }
    if (parser.isSet(kindsOption)) {
        params.ev1Type = fromOptions.ev1Type;
        params.ev2Type = fromOptions.ev2Type;
        params.ev3Type = fromOptions.ev3Type;
    }
    if (parser.isSet(limitsOption) || parser.isSet(kindsOption))
        source = parser.isSet(portOption) ? QStringLiteral("the controller and options")
                                          : QStringLiteral("options");
    if (segmentCnt < 0)
        segmentCnt = qBound(1, file.segmentCount(), MaxSegments);

    for (const QString& w : file.loaderWarnings)
        out << "Warning: " << w << '\n';
    if (!file.headerMatches)
        out << "Warning: the first line is not the program table header; the panel skips it "
               "all the same.\n";

    QStringList log;
    const int written = SegmentCodec::checkSegments(params, file.rows, segmentCnt, log).size();
    if (!log.isEmpty())
        out << log.join(QLatin1Char('\n')) << '\n';

    const QString parameters = QStringLiteral("SP1 %1..%2, event kinds %3,%4,%5 from %6")
                                   .arg(params.spLowLimit)
                                   .arg(params.spHighLimit)
                                   .arg(params.ev1Type)
                                   .arg(params.ev2Type)
                                   .arg(params.ev3Type)
                                   .arg(source);
    QString ignored;
    if (file.segmentCount() > segmentCnt)
        ignored = QStringLiteral("; rows after segment %1 not checked").arg(segmentCnt);
    out << QStringLiteral("check: %1 of %2 segments would be written (%3%4)\n")
               .arg(written)
               .arg(segmentCnt)
               .arg(parameters, ignored);
    return written == segmentCnt ? 0 : 1;
}

const SubcommandRegistration registration{
    Subcommand{QStringLiteral("check"),
               QStringLiteral("check a program file as the panel does before a write"),
               QString::fromLatin1(Usage), runCheck}};

} // namespace

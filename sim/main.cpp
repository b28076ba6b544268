// dcp30-sim: a DCP30 program controller on a pseudo-terminal.
#include "sim/controllerengine.h"
#include "sim/programtables.h"
#include "sim/ptyfrontend.h"

#include "driver/controllerframes.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>

#include <csignal>
#include <cstdio>

namespace
{

// "a,b[,c]" of signed 32-bit numbers, exactly count of them.
bool parseList(const QString& text, int count, QList<qint32>* values)
{
    const QStringList parts = text.split(QLatin1Char(','));
    if (parts.size() != count)
        return false;
    values->clear();
    for (const QString& part : parts) {
        bool ok = false;
        *values << part.toInt(&ok);
        if (!ok)
            return false;
    }
    return true;
}

int usageError(const QString& message)
{
    fprintf(stderr, "dcp30-sim: %s\n", qPrintable(message));
    return 2;
}

void onSignal(int)
{
    PtyFrontEnd::stop();
}

// A controller closes a file its panel has left open; half a minute is far
// longer than any pause of a transfer (a few hundred ms between segments,
// seconds of retries), so only an abandoned transfer meets it.
constexpr int DefaultOpenTimeoutMs = 30000;

QString description()
{
    QString text = QStringLiteral(
        "Simulates a DCP30 program controller (station 01) on a pseudo-terminal.\n"
        "Prints \"dcp30-sim: listening on <device>\" as its first line.\n\n"
        "Sample programs it starts with (unless --programs or --load replace them):\n");
    for (const QString& line : ProgramStore::sampleDescriptions())
        text += QStringLiteral("  ") + line + QLatin1Char('\n');
    text += QStringLiteral("\nStatus codes it answers (the panel shows the message):\n");
    const struct {
        const char* code;
        const char* when;
    } codes[] = {{"00", "accepted"},
                 {"40", "a request it cannot decode"},
                 {"41", "more than 16 words in a register request"},
                 {"42", "a register address it does not define"},
                 {"44", "a word value above 65535"},
                 {"50", "an open while a file is open"},
                 {"51", "read, write or close of a file that is not open"},
                 {"52", "a program or segment out of range, or a segment the program lacks"},
                 {"54", "a read of a file open for write, or the other way round"},
                 {"57", "a record of the wrong length or with non-hex digits"},
                 {"99", "an unknown command"}};
    for (const auto& c : codes) {
        const QString code = QString::fromLatin1(c.code);
        const QString message = ControllerFrames::getErrorMessageByStatusCodeFromPLC(code);
        text += QStringLiteral("  %1  %2%3\n")
                    .arg(code, QString::fromLatin1(c.when),
                         message.isEmpty() ? QString() : QStringLiteral(": \"%1\"").arg(message));
    }
    return text + QLatin1Char('\n') + FaultRule::syntaxHelp();
}

// "N=FILE" of --load.
bool parseLoad(const QString& text, int* program, QString* path)
{
    const int equals = text.indexOf(QLatin1Char('='));
    bool ok = false;
    *program = text.left(equals).toInt(&ok);
    *path = text.mid(equals + 1);
    return equals > 0 && ok && !path->isEmpty();
}

// Writes every program that differs from `last` into dir; false (with a
// message on stderr) when one cannot be written.
bool dumpChanged(const ProgramStore& store, ProgramStore& last, const QString& dir, bool all)
{
    bool ok = true;
    for (int p = 1; p <= ProgramStore::ProgramCount; ++p) {
        bool same = !all && store.segmentCount(p) == last.segmentCount(p);
        for (int s = 1; same && s <= store.segmentCount(p); ++s)
            same = store.segment(p, s) == last.segment(p, s);
        QString error;
        if (!same && !ProgramTables::dump(store, p, dir, &error)) {
            fprintf(stderr, "dcp30-sim: %s\n", qPrintable(error));
            ok = false;
        }
    }
    last = store;
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("dcp30-sim"));
    QCoreApplication::setApplicationVersion(QStringLiteral(DCP30_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(description());
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption link(QStringLiteral("link"),
                                  QStringLiteral("Create a symlink to the device at <path> "
                                                 "(removed on exit)."),
                                  QStringLiteral("path"));
    const QCommandLineOption baud(QStringLiteral("baud"),
                                  QStringLiteral("Pace replies at <rate> (8E1, 11 bits a byte); "
                                                 "0 sends at once. Default 9600."),
                                  QStringLiteral("rate"), QStringLiteral("9600"));
    const QCommandLineOption turnaround(
        QStringLiteral("turnaround"),
        QStringLiteral("Silence before each reply, in ms. Default 5."), QStringLiteral("ms"),
        QStringLiteral("5"));
    const QCommandLineOption programs(
        QStringLiteral("programs"),
        QStringLiteral("Load the programs from <file> (lines \"program segment record\"); "
                       "a missing file starts from the sample programs."),
        QStringLiteral("file"));
    const QCommandLineOption saveOnExit(QStringLiteral("save-on-exit"),
                                        QStringLiteral("Write the programs back to the "
                                                       "--programs file after every segment "
                                                       "written, and on exit."));
    const QCommandLineOption load(
        QStringLiteral("load"),
        QStringLiteral("Load program N from the program table file FILE (PROG_N.txt as a panel "
                       "writes it), checked as a panel checks it before a write (repeatable)."),
        QStringLiteral("N=FILE"));
    const QCommandLineOption dump(
        QStringLiteral("dump"),
        QStringLiteral("Keep every program that has segments as <dir>/PROG_N.txt in the panel's "
                       "table format: written at start and again after every segment written."),
        QStringLiteral("dir"));
    const QCommandLineOption spLimits(QStringLiteral("sp-limits"),
                                      QStringLiteral("Setpoint limits (double words at 4509 "
                                                     "and 4511). Default -1999,9999."),
                                      QStringLiteral("lo,hi"));
    const QCommandLineOption eventKinds(
        QStringLiteral("event-kinds"),
        QStringLiteral("Kinds of events 1..3 (double words at 3501, 3505, 3509). Default "
                       "0,4,50 (PV, absolute deviation, time event)."),
        QStringLiteral("k1,k2,k3"));
    const QCommandLineOption fault(QStringLiteral("fault"),
                                   QStringLiteral("Add a fault rule (repeatable; see above)."),
                                   QStringLiteral("rule"));
    const QCommandLineOption openTimeout(
        QStringLiteral("open-timeout"),
        QStringLiteral("Close a file left open <ms> without traffic; 0: never. Default %1.")
            .arg(DefaultOpenTimeoutMs),
        QStringLiteral("ms"), QString::number(DefaultOpenTimeoutMs));
    const QCommandLineOption stdinEof(
        QStringLiteral("exit-on-stdin-eof"),
        QStringLiteral("Exit when stdin closes (for test harnesses). Lines on stdin steer the "
                       "fault plan: \"faults off\" suspends it, \"faults on\" resumes it; "
                       "each is echoed on stdout once it applies."));
    const QCommandLineOption frameLog(QStringLiteral("frame-log"),
                                      QStringLiteral("Append the text of every request frame "
                                                     "heard on the line to <file>, one per line."),
                                      QStringLiteral("file"));
    const QCommandLineOption paceRequests(
        QStringLiteral("pace-requests"),
        QStringLiteral("Answer a request only once its bytes would have arrived at the baud "
                       "rate (a pseudo-terminal delivers them at once)."));
    const QCommandLineOption verbose(
        QStringLiteral("verbose"),
        QStringLiteral("Trace every frame on stderr, both directions, with the time and its "
                       "meaning (the logging category dcp.sim.wire)."));
    parser.addOptions({link, baud, turnaround, programs, saveOnExit, load, dump, spLimits,
                       eventKinds, fault, openTimeout, stdinEof, frameLog, paceRequests, verbose});
    parser.process(app);
    if (!parser.positionalArguments().isEmpty())
        return usageError(QStringLiteral("unexpected argument %1")
                              .arg(parser.positionalArguments().constFirst()));

    ControllerEngine engine;
    FrontEndOptions options;
    options.linkPath = parser.value(link);
    options.exitOnStdinEof = parser.isSet(stdinEof);
    options.paceRequests = parser.isSet(paceRequests);
    bool ok = false;
    options.baud = parser.value(baud).toInt(&ok);
    if (!ok || options.baud < 0)
        return usageError(QStringLiteral("--baud needs a rate of 0 or more"));
    options.turnaroundMs = parser.value(turnaround).toInt(&ok);
    if (!ok || options.turnaroundMs < 0)
        return usageError(QStringLiteral("--turnaround needs a time of 0 or more"));
    options.openTimeoutMs = parser.value(openTimeout).toInt(&ok);
    if (!ok || options.openTimeoutMs < 0)
        return usageError(QStringLiteral("--open-timeout needs a time of 0 or more"));

    QList<qint32> values;
    if (parser.isSet(spLimits)) {
        if (!parseList(parser.value(spLimits), 2, &values) || values[0] > values[1])
            return usageError(QStringLiteral("--sp-limits needs LO,HI with LO <= HI"));
        engine.setSpLimits(values[0], values[1]);
    }
    if (parser.isSet(eventKinds)) {
        if (!parseList(parser.value(eventKinds), 3, &values))
            return usageError(QStringLiteral("--event-kinds needs K1,K2,K3"));
        engine.setEventKinds(values[0], values[1], values[2]);
    }
    for (const QString& text : parser.values(fault)) {
        FaultRule rule;
        QString error;
        if (!FaultRule::parse(text, &rule, &error))
            return usageError(error);
        engine.addFault(rule);
    }
    const QString programFile = parser.value(programs);
    if (parser.isSet(saveOnExit) && programFile.isEmpty())
        return usageError(QStringLiteral("--save-on-exit needs --programs FILE"));
    if (!programFile.isEmpty() && QFileInfo::exists(programFile)) {
        QString error;
        if (!engine.programs().load(programFile, &error))
            return usageError(error);
    }
    const SegmentCodec::WriteParameters tableParameters{
        engine.doubleWord(ControllerEngine::SpLowLimitAddress),
        engine.doubleWord(ControllerEngine::SpHighLimitAddress),
        engine.doubleWord(ControllerEngine::EventKindAddresses[0]),
        engine.doubleWord(ControllerEngine::EventKindAddresses[1]),
        engine.doubleWord(ControllerEngine::EventKindAddresses[2])};
    for (const QString& text : parser.values(load)) {
        int program = 0;
        QString path;
        QString error;
        if (!parseLoad(text, &program, &path))
            return usageError(QStringLiteral("--load needs N=FILE"));
        if (!ProgramTables::load(path, program, tableParameters, engine.programs(), &error))
            return usageError(error);
    }
    const QString dumpDir = parser.value(dump);
    ProgramStore dumped;
    if (!dumpDir.isEmpty()) {
        if (!QFileInfo(dumpDir).isDir())
            return usageError(QStringLiteral("--dump: %1 is not a folder").arg(dumpDir));
        if (!dumpChanged(engine.programs(), dumped, dumpDir, true))
            return 1;
    }
    // Saved as each segment arrives: a simulator killed mid-test keeps
    // what it had accepted.
    bool saveFailed = false;
    options.onProgramsChanged = [&] {
        QString error;
        if (parser.isSet(saveOnExit) && !engine.programs().save(programFile, &error)) {
            fprintf(stderr, "dcp30-sim: %s\n", qPrintable(error));
            saveFailed = true;
        }
        if (!dumpDir.isEmpty() && !dumpChanged(engine.programs(), dumped, dumpDir, false))
            saveFailed = true;
    };
    if (parser.isSet(verbose))
        QLoggingCategory::setFilterRules(QStringLiteral("dcp.sim*.debug=true"));

    QFile frames(parser.value(frameLog));
    if (parser.isSet(frameLog)) {
        if (!frames.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
            return usageError(
                QStringLiteral("--frame-log: cannot write %1").arg(frames.fileName()));
        engine.frameHeard = [&frames](const QByteArray& text) { frames.write(text + '\n'); };
    }
    options.stdinLine = [&engine](const QByteArray& line) {
        const QByteArray command = line.trimmed();
        if (command != "faults off" && command != "faults on")
            return;
        engine.setFaultsEnabled(command == "faults on");
        printf("dcp30-sim: %s\n", command.constData());
        fflush(stdout);
    };
    PtyFrontEnd frontEnd(engine, options);
    QString error;
    if (!frontEnd.open(&error))
        return usageError(error);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);

    printf("dcp30-sim: listening on %s\n", qPrintable(frontEnd.devicePath()));
    fflush(stdout);
    for (const FaultRule& rule : engine.faultRules())
        fprintf(stderr, "dcp30-sim: fault %s\n", qPrintable(rule.toString()));

    const int code = frontEnd.run();
    if (parser.isSet(saveOnExit) && !engine.programs().save(programFile, &error)) {
        fprintf(stderr, "dcp30-sim: %s\n", qPrintable(error));
        return 1;
    }
    return saveFailed ? 1 : code;
}

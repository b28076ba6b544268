// dcp30-sim: a DCP30 program controller on a pseudo-terminal.
#include "sim/controllerengine.h"
#include "sim/ptyfrontend.h"

#include <QCommandLineParser>
#include <QCoreApplication>
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

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("dcp30-sim"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Simulates a DCP30 program controller (station 01) on a pseudo-terminal.\n"
                       "Prints \"dcp30-sim: listening on <device>\" as its first line.\n\n") +
        FaultRule::syntaxHelp());
    parser.addHelpOption();
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
                                                       "--programs file on exit."));
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
        QStringLiteral("Close a file left open <ms> without traffic. Default 0: never."),
        QStringLiteral("ms"), QStringLiteral("0"));
    const QCommandLineOption stdinEof(QStringLiteral("exit-on-stdin-eof"),
                                      QStringLiteral("Exit when stdin closes (for test "
                                                     "harnesses)."));
    const QCommandLineOption paceRequests(
        QStringLiteral("pace-requests"),
        QStringLiteral("Answer a request only once its bytes would have arrived at the baud "
                       "rate (a pseudo-terminal delivers them at once)."));
    const QCommandLineOption verbose(QStringLiteral("verbose"),
                                     QStringLiteral("Dump the wire traffic on stderr."));
    parser.addOptions({link, baud, turnaround, programs, saveOnExit, spLimits, eventKinds, fault,
                       openTimeout, stdinEof, paceRequests, verbose});
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
    if (parser.isSet(verbose))
        QLoggingCategory::setFilterRules(QStringLiteral("dcp.sim*.debug=true"));

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
    return code;
}

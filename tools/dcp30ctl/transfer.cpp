// dcp30ctl read / write: one program transfer through the plug-in, driven
// like a panel screen drives it. The screen's part runs on the session's
// communication thread (the runtime calls the driver from there): it sets
// "ProgramID0", "SegCnt0" and "StorageType0", writes 1 to "RF0" or "WF0",
// then looks at the running flag, the progress value and the message centre
// every poll period until the flag drops. What the transfer left behind
// (error flag, error log, program file) is judged afterwards.
#include "transfer.h"

#include "host/runtime/messagecentre.h"
#include "host/serial/serialsettings.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QRegularExpression>
#include <QTextCodec>
#include <QThread>

#include <cstdio>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr int MaxProgram = 19;
constexpr int MaxSegments = 30;
constexpr int MaxRetries = 20;
// After the running flag drops the worker may still be raising the error
// flag and writing the log (the flag's queued call can overtake them).
constexpr int SettleMs = 250;
// How long the error log may take to reach the medium once the flag is up.
constexpr int LogWaitMs = 3000;

struct Names {
    const char* verb;      // "read" / "write"
    const char* running;   // "RF0" / "WF0"
    const char* failed;    // "RE0" / "WE0"
    const char* progress;  // "ReadProgress0" / "WriteProgress0"
    const char* logPrefix; // "READ" / "WRITE"
};

Names namesOf(TransferDirection direction)
{
    if (direction == TransferDirection::Read)
        return {"read", "RF0", "RE0", "ReadProgress0", "READ"};
    return {"write", "WF0", "WE0", "WriteProgress0", "WRITE"};
}

// stderr is shared by this thread and the communication thread: whole lines,
// flushed at once.
void say(const QString& text)
{
    std::fputs(qUtf8Printable(text + QLatin1Char('\n')), stderr);
    std::fflush(stderr);
}

QString prefixOf(TransferDirection direction)
{
    return QStringLiteral("dcp30ctl %1: ").arg(QLatin1String(namesOf(direction).verb));
}

bool parseNumber(const QString& text, int* value)
{
    static const QRegularExpression plain(QStringLiteral("^-?[0-9]{1,9}$"));
    if (!plain.match(text).hasMatch())
        return false;
    *value = text.toInt();
    return true;
}

// A file as it was: enough to tell whether the transfer wrote it.
struct FileStamp {
    bool exists = false;
    qint64 size = 0;
    qint64 modifiedNs = 0;
    quint64 inode = 0;

    static FileStamp of(const QString& path)
    {
        FileStamp stamp;
        struct stat st {
        };
        if (::stat(QFile::encodeName(path).constData(), &st) != 0)
            return stamp;
        stamp.exists = true;
        stamp.size = st.st_size;
        stamp.modifiedNs = qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
        stamp.inode = st.st_ino;
        return stamp;
    }
    bool newerThan(const FileStamp& before) const
    {
        return exists && (!before.exists || size != before.size ||
                          modifiedNs != before.modifiedNs || inode != before.inode);
    }
};

// Rows of a program file (UTF-16 with byte-order mark, tab-delimited, cells
// with line feeds quoted), header included; -1 when it is not UTF-16 text.
int countRows(const QByteArray& bytes)
{
    if (!bytes.startsWith("\xFF\xFE") || bytes.size() % 2 != 0)
        return -1;
    const QString text = QTextCodec::codecForName("UTF-16LE")->toUnicode(bytes.mid(2));
    int rows = 0;
    bool quoted = false;
    bool rowOpen = false;
    for (QChar c : text) {
        if (c == QLatin1Char('"'))
            quoted = !quoted; // a doubled quote toggles twice
        if (c == QLatin1Char('\n') && !quoted) {
            ++rows;
            rowOpen = false;
        } else {
            rowOpen = true;
        }
    }
    return rows + (rowOpen ? 1 : 0);
}

// The progress bar: redrawn in place on a terminal, a plain line per change
// otherwise (a log file or a test harness reads it).
class ProgressDisplay
{
public:
    explicit ProgressDisplay(const char* verb) : verb(verb), terminal(::isatty(2) == 1) {}

    void update(int percent, qint64 elapsedMs)
    {
        if (percent == shown)
            return;
        shown = percent;
        lastElapsedMs = elapsedMs;
        if (!terminal) {
            say(QStringLiteral("progress %1%").arg(percent));
            return;
        }
        const int width = 30;
        const int filled = qBound(0, percent * width / 100, width);
        const QString bar =
            QString(filled, QLatin1Char('#')) + QString(width - filled, QLatin1Char('.'));
        std::fprintf(stderr, "\r%s [%s] %3d%%  %.1f s", verb, qPrintable(bar), percent,
                     elapsedMs / 1000.0);
        std::fflush(stderr);
        drawn = true;
    }
    // Prints a line of its own, keeping the bar below it.
    void line(const QString& text)
    {
        clear();
        say(text);
        if (terminal && shown >= 0) {
            const int keep = shown;
            shown = -1;
            update(keep, lastElapsedMs);
        }
    }
    void finish() { clear(); }

private:
    void clear()
    {
        if (!drawn)
            return;
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
        drawn = false;
    }

    const char* verb;
    const bool terminal;
    int shown = -1;
    qint64 lastElapsedMs = 0;
    bool drawn = false;
};

// What the screen saw.
struct ScreenOutcome {
    QString refusal; // set when the transfer could not be started
    bool timedOut = false;
    bool errorFlag = false;
    qint64 elapsedMs = 0; // from the start request until the running flag dropped
    QList<int> parameters;
    bool parametersComplete = true;
};

// The screen's part, on the communication thread.
ScreenOutcome driveScreen(PluginSession& session, const TransferRequest& request)
{
    const Names names = namesOf(request.direction);
    ScreenOutcome outcome;
    ProgressDisplay display(names.verb);
    int messagesShown = 0;
    auto showMessages = [&] {
        const QList<MessageCentre::Message> all = session.messageCentre().messages();
        for (; messagesShown < all.size(); ++messagesShown) {
            const MessageCentre::Message& m = all.at(messagesShown);
            display.line(QStringLiteral("%1: %2").arg(m.title, m.text));
        }
    };

    const int rf = session.readVariable(QStringLiteral("RF0"));
    const int wf = session.readVariable(QStringLiteral("WF0"));
    if (rf < 0 || wf < 0) {
        outcome.refusal = QStringLiteral("the plug-in does not serve RF0/WF0");
        return outcome;
    }
    if (rf != 0 || wf != 0) {
        outcome.refusal = QStringLiteral("the driver is busy with another transfer");
        return outcome;
    }
    // A screen acknowledges an earlier failure before it starts again.
    session.writeVariable(QLatin1String(names.failed), 0);
    session.writeVariable(QStringLiteral("ProgramID0"), quint8(request.program));
    session.writeVariable(QStringLiteral("SegCnt0"), quint8(request.segments));
    session.writeVariable(QStringLiteral("StorageType0"), quint8(request.storage));
    const int program = session.readVariable(QStringLiteral("ProgramID0"));
    const int segments = session.readVariable(QStringLiteral("SegCnt0"));
    const int storage = session.readVariable(QStringLiteral("StorageType0"));
    if (program != request.program || segments != request.segments || storage != request.storage) {
        outcome.refusal = QStringLiteral("the driver took program %1, %2 segments, storage %3 "
                                         "instead of %4, %5, %6")
                              .arg(program)
                              .arg(segments)
                              .arg(storage)
                              .arg(request.program)
                              .arg(request.segments)
                              .arg(request.storage);
        return outcome;
    }
    if (request.verbose && request.direction == TransferDirection::Write) {
        outcome.parameters = session.readWriteParameters(&outcome.parametersComplete);
        say(QStringLiteral("controller: SP1 limits %1..%2, event kinds %3, %4, %5%6")
                .arg(outcome.parameters.value(0))
                .arg(outcome.parameters.value(1))
                .arg(outcome.parameters.value(2))
                .arg(outcome.parameters.value(3))
                .arg(outcome.parameters.value(4))
                .arg(outcome.parametersComplete ? QString()
                                                : QStringLiteral(" (incomplete answers)")));
    }

    const qint64 deadlineMs = qint64(request.timeoutSeconds) * 1000;
    QElapsedTimer clock;
    clock.start();
    session.writeVariable(QLatin1String(names.running), 1);
    for (;;) {
        const int running = session.readVariable(QLatin1String(names.running));
        const int progress = session.readVariable(QLatin1String(names.progress));
        showMessages();
        if (running == 0)
            break;
        if (progress > 0)
            display.update(progress, clock.elapsed());
        if (clock.elapsed() > deadlineMs) {
            outcome.timedOut = true;
            break;
        }
        QThread::msleep(ulong(request.pollMs));
    }
    outcome.elapsedMs = clock.elapsed();
    display.finish();

    QElapsedTimer settle;
    settle.start();
    while (settle.elapsed() < SettleMs && !outcome.timedOut) {
        QThread::msleep(25);
        showMessages();
    }
    outcome.errorFlag = session.readVariable(QLatin1String(names.failed)) == 1;
    showMessages();
    return outcome;
}

// Waits (serving the event loop, so late messages still arrive) until the
// error log has been written in this run and holds still; its text, or a
// null string.
QString awaitErrorLog(const QString& path, const FileStamp& before)
{
    QElapsedTimer clock;
    clock.start();
    FileStamp last;
    while (clock.elapsed() < LogWaitMs) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        const FileStamp now = FileStamp::of(path);
        if (now.newerThan(before) && now.size > 0 && now.size == last.size &&
            now.modifiedNs == last.modifiedNs)
            break;
        last = now;
        QThread::msleep(30);
    }
    if (!FileStamp::of(path).newerThan(before))
        return QString();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QString();
    return QString::fromLocal8Bit(file.readAll());
}

const char ReadUsage[] =
    "usage: dcp30ctl read --port DEV --program N --segments K --usb DIR [options]\n"
    "\n"
    "Reads program N (K segments) out of the controller on DEV into PROG_N.txt on the\n"
    "chosen medium, through the dcp30 plug-in hosted as the panel runtime hosts it.\n";

const char WriteUsage[] =
    "usage: dcp30ctl write --port DEV --program N --segments K --usb DIR [options]\n"
    "\n"
    "Writes PROG_N.txt from the chosen medium into program N (K segments) of the\n"
    "controller on DEV, through the dcp30 plug-in hosted as the panel runtime hosts\n"
    "it. The driver checks every cell against the controller's limits first.\n";

const char CommonUsage[] =
    "\n"
    "options:\n"
    "  --port DEV          serial port of the controller (a pseudo-terminal works)\n"
    "  --program N         program number, 1..19\n"
    "  --segments K        segment count, 1..30\n"
    "  --usb DIR           directory standing for the USB stick\n"
    "  --sd DIR            directory standing for the SD card\n"
    "  --storage usb|sd    medium of the program file (default usb); its directory\n"
    "                      must be given\n"
    "  --retries R         the port's retry count, 0..20 (default 3)\n"
    "  --settings S        line settings (default \"RS485,9600,EVEN,8,1\")\n"
    "  --clamp             take an out-of-range program number or segment count as a\n"
    "                      panel does (0 gives 1, above the range its maximum) and\n"
    "                      say so; without it such a number is refused\n"
    "  --poll-ms MS        how often the flags are looked at (default 100)\n"
    "  --timeout S         give up when the running flag has not dropped after S\n"
    "                      seconds (default: the worst case of the retry budget)\n"
    "  --plugin PATH       the driver plug-in (default ../lib/libdcp30.so beside\n"
    "                      this program)\n"
    "  --companion PATH    the companion driver library (default ../lib/libsdc35.so\n"
    "                      beside this program)\n"
    "  --verbose           say more (plug-in, port, controller parameters)\n"
    "  --paced             line-paced transfer: the driver reads each reply as soon as\n"
    "                      it is complete (the fixed wait stays the limit) and keeps\n"
    "                      5 ms of quiet line before the next command\n"
    "\n"
    "Progress goes to stderr (a bar on a terminal, \"progress P%\" lines otherwise),\n"
    "with every message of the driver (\"DCP30: ...\"). When the driver raises its\n"
    "error flag (RE0 / WE0) the error log from the medium is printed. A missing\n"
    "directory is passed on as an unmounted medium; the driver's complaint and the\n"
    "missing directory are both named.\n"
    "\n"
    "Exit status: 0 the transfer completed without any complaint; 1 it failed (the\n"
    "error flag was raised, even if retries overcame the problem; the driver showed\n"
    "a message; a read left no complete file; or the plug-in or the port could not\n"
    "be used); 2 bad usage.\n"
    "\n"
    "Test setting: DCP30_WAIT_PERCENT=1..100 in the environment shortens the driver's\n"
    "fixed waits to that percentage.\n";

} // namespace

QString transferUsage(TransferDirection direction)
{
    return QString::fromLatin1(direction == TransferDirection::Read ? ReadUsage : WriteUsage) +
           QString::fromLatin1(CommonUsage);
}

int worstCaseSeconds(TransferDirection direction, int segments, int retries)
{
    const int attempts = retries + 1;
    const int segmentMs = direction == TransferDirection::Read ? 350 : 300;
    const qint64 attemptMs = 600 + qint64(segments) * attempts * segmentMs;
    return int((attempts * attemptMs + 999) / 1000) + 10;
}

int parseTransferArguments(TransferDirection direction, const QStringList& args,
                           TransferRequest* request, QStringList* notes, QString* error)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption port(QStringLiteral("port"), QString(), QStringLiteral("DEV"));
    const QCommandLineOption program(QStringLiteral("program"), QString(), QStringLiteral("N"));
    const QCommandLineOption segments(QStringLiteral("segments"), QString(), QStringLiteral("K"));
    const QCommandLineOption usb(QStringLiteral("usb"), QString(), QStringLiteral("DIR"));
    const QCommandLineOption sd(QStringLiteral("sd"), QString(), QStringLiteral("DIR"));
    const QCommandLineOption storage(QStringLiteral("storage"), QString(), QStringLiteral("M"));
    const QCommandLineOption retries(QStringLiteral("retries"), QString(), QStringLiteral("R"));
    const QCommandLineOption settings(QStringLiteral("settings"), QString(), QStringLiteral("S"));
    const QCommandLineOption clamp(QStringLiteral("clamp"));
    const QCommandLineOption pollMs(QStringLiteral("poll-ms"), QString(), QStringLiteral("MS"));
    const QCommandLineOption timeout(QStringLiteral("timeout"), QString(), QStringLiteral("S"));
    const QCommandLineOption plugin(QStringLiteral("plugin"), QString(), QStringLiteral("PATH"));
    const QCommandLineOption companion(QStringLiteral("companion"), QString(),
                                       QStringLiteral("PATH"));
    const QCommandLineOption verbose(QStringLiteral("verbose"));
    const QCommandLineOption paced(QStringLiteral("paced"));
    parser.addOptions({port, program, segments, usb, sd, storage, retries, settings, clamp, pollMs,
                       timeout, plugin, companion, verbose, paced});
    if (!parser.parse(QStringList{QStringLiteral("dcp30ctl")} + args)) {
        *error = parser.errorText();
        return 2;
    }
    if (!parser.positionalArguments().isEmpty()) {
        *error = QStringLiteral("unexpected argument %1").arg(parser.positionalArguments().first());
        return 2;
    }
    for (const QCommandLineOption& option : {port, program, segments}) {
        if (!parser.isSet(option)) {
            *error = QStringLiteral("--%1 is needed").arg(option.names().first());
            return 2;
        }
    }
    for (const QCommandLineOption& option : {port, program, segments, usb, sd, storage, retries,
                                             settings, pollMs, timeout, plugin, companion}) {
        if (parser.values(option).size() > 1) {
            *error = QStringLiteral("--%1 is given more than once").arg(option.names().first());
            return 2;
        }
    }

    TransferRequest r;
    r.direction = direction;
    r.verbose = parser.isSet(verbose);
    // About four character times at 9600 baud.
    r.session.pacedGuardMs = parser.isSet(paced) ? 5 : -1;
    // The panel clamps what a screen writes; a person typing a number more
    // likely mistyped it, and a write into the wrong program overwrites it.
    auto ranged = [&](const QCommandLineOption& option, const char* what, int max,
                      int* value) -> bool {
        const QString text = parser.value(option);
        if (!parseNumber(text, value)) {
            *error = QStringLiteral("--%1 needs a whole number, not \"%2\"")
                         .arg(option.names().first(), text);
            return false;
        }
        if (*value >= 1 && *value <= max)
            return true;
        const int taken = *value < 1 ? 1 : max;
        if (!parser.isSet(clamp)) {
            *error = QStringLiteral("%1 %2 is out of range 1..%3 (--clamp takes %4, as a panel "
                                    "would)")
                         .arg(QLatin1String(what))
                         .arg(*value)
                         .arg(max)
                         .arg(taken);
            return false;
        }
        *notes << QStringLiteral("%1 %2 is out of range 1..%3; using %4")
                      .arg(QLatin1String(what))
                      .arg(*value)
                      .arg(max)
                      .arg(taken);
        *value = taken;
        return true;
    };
    if (!ranged(program, "program", MaxProgram, &r.program) ||
        !ranged(segments, "segment count", MaxSegments, &r.segments))
        return 2;

    const QString medium = parser.isSet(storage) ? parser.value(storage) : QStringLiteral("usb");
    if (medium == QLatin1String("usb")) {
        r.storage = 0;
    } else if (medium == QLatin1String("sd")) {
        r.storage = 1;
    } else {
        *error = QStringLiteral("--storage takes usb or sd, not \"%1\"").arg(medium);
        return 2;
    }
    r.session.usbDirectory = parser.value(usb);
    r.session.sdDirectory = parser.value(sd);
    if ((r.storage == 0 ? r.session.usbDirectory : r.session.sdDirectory).isEmpty()) {
        *error = r.storage == 0 ? QStringLiteral("--usb DIR is needed for --storage usb")
                                : QStringLiteral("--sd DIR is needed for --storage sd");
        return 2;
    }
    for (QString* directory : {&r.session.usbDirectory, &r.session.sdDirectory}) {
        if (!directory->isEmpty())
            *directory = QDir::cleanPath(QDir::current().absoluteFilePath(*directory));
    }

    r.session.portName = parser.value(port);
    if (r.session.portName.isEmpty()) {
        *error = QStringLiteral("--port needs a device");
        return 2;
    }
    if (parser.isSet(settings)) {
        r.session.settings = parser.value(settings);
        SerialSettings parsed;
        QString why;
        if (!SerialSettings::parse(r.session.settings, &parsed, &why)) {
            *error = QStringLiteral("bad --settings \"%1\": %2").arg(r.session.settings, why);
            return 2;
        }
    }
    r.session.pluginPath = parser.value(plugin);
    r.session.companionPath = parser.value(companion);
    r.session.retries = 3;
    if (parser.isSet(retries) && (!parseNumber(parser.value(retries), &r.session.retries) ||
                                  r.session.retries < 0 || r.session.retries > MaxRetries)) {
        *error = QStringLiteral("--retries takes 0..%1, not \"%2\"")
                     .arg(MaxRetries)
                     .arg(parser.value(retries));
        return 2;
    }
    if (parser.isSet(pollMs) &&
        (!parseNumber(parser.value(pollMs), &r.pollMs) || r.pollMs < 1 || r.pollMs > 10000)) {
        *error = QStringLiteral("--poll-ms takes 1..10000, not \"%1\"").arg(parser.value(pollMs));
        return 2;
    }
    r.timeoutSeconds = worstCaseSeconds(direction, r.segments, r.session.retries);
    if (parser.isSet(timeout) &&
        (!parseNumber(parser.value(timeout), &r.timeoutSeconds) || r.timeoutSeconds < 1)) {
        *error = QStringLiteral("--timeout takes a number of seconds, not \"%1\"")
                     .arg(parser.value(timeout));
        return 2;
    }
    *request = r;
    return 0;
}

int runTransfer(TransferDirection direction, const QStringList& args)
{
    const QString prefix = prefixOf(direction);
    const Names names = namesOf(direction);
    TransferRequest request;
    QStringList notes;
    QString error;
    if (parseTransferArguments(direction, args, &request, &notes, &error) != 0) {
        say(prefix + error);
        say(QStringLiteral("(see 'dcp30ctl %1 --help')").arg(QLatin1String(names.verb)));
        return 2;
    }
    for (const QString& note : notes)
        say(prefix + note);
    // The port's complaints reach the user as this tool's own error lines.
    if (!request.verbose)
        QLoggingCategory::setFilterRules(
            QStringLiteral("dcp*.info=false\ndcp.host.serial.warning=false"));

    PluginSession session(request.session);
    if (!session.openPort(&error)) {
        say(prefix + error);
        return 1;
    }
    if (!session.load(&error)) {
        say(prefix + error);
        return 1;
    }
    if (request.verbose) {
        say(QStringLiteral("plug-in %1, companion %2")
                .arg(request.session.pluginPath.isEmpty() ? PluginSession::defaultPluginPath()
                                                          : request.session.pluginPath,
                     request.session.companionPath.isEmpty() ? PluginSession::defaultCompanionPath()
                                                             : request.session.companionPath));
    }

    const QString directory =
        request.storage == 0 ? request.session.usbDirectory : request.session.sdDirectory;
    const QString mediumName = request.storage == 0 ? QStringLiteral("USB") : QStringLiteral("SD");
    const QString programFile = directory + QStringLiteral("/PROG_%1.txt").arg(request.program);
    const QString logFile = directory + QStringLiteral("/%1_PROG_%2_ERROR.txt")
                                            .arg(QLatin1String(names.logPrefix))
                                            .arg(request.program);
    const FileStamp programBefore = FileStamp::of(programFile);
    const FileStamp logBefore = FileStamp::of(logFile);

    ScreenOutcome outcome;
    session.runOnCommunicationThread([&] { outcome = driveScreen(session, request); });

    QStringList reasons;
    if (!outcome.refusal.isEmpty()) {
        say(prefix + outcome.refusal);
        return 1;
    }
    if (outcome.timedOut)
        reasons << QStringLiteral("%1 still set after %2 s; the transfer did not end")
                       .arg(QLatin1String(names.running))
                       .arg(request.timeoutSeconds);
    if (outcome.errorFlag) {
        const QString log = awaitErrorLog(logFile, logBefore);
        if (log.isNull()) {
            reasons << QStringLiteral("the driver raised %1 but left no error log")
                           .arg(QLatin1String(names.failed));
        } else {
            reasons << QStringLiteral("the driver raised %1").arg(QLatin1String(names.failed));
            say(prefix + QStringLiteral("error log %1:").arg(logFile));
            for (const QString& line : log.split(QLatin1Char('\n')))
                say(line.isEmpty() ? QString() : QStringLiteral("    ") + line);
        }
    }
    // Messages queued in the last moments still belong to this transfer.
    QCoreApplication::processEvents();
    const QStringList messages = session.messageCentre().texts();
    if (!messages.isEmpty())
        reasons
            << QStringLiteral("the driver reported: %1").arg(messages.join(QStringLiteral(" / ")));

    if (direction == TransferDirection::Read && !outcome.timedOut) {
        const FileStamp after = FileStamp::of(programFile);
        if (!after.newerThan(programBefore)) {
            reasons << QStringLiteral("no program file was written");
        } else {
            QFile file(programFile);
            const int rows = file.open(QIODevice::ReadOnly) ? countRows(file.readAll()) : -1;
            if (rows < 0)
                reasons << QStringLiteral("%1 is not a UTF-16 program file").arg(programFile);
            else if (rows - 1 != request.segments)
                reasons << QStringLiteral("%1 holds %2 of %3 segments")
                               .arg(programFile)
                               .arg(qMax(0, rows - 1))
                               .arg(request.segments);
            else if (outcome.errorFlag)
                reasons << QStringLiteral("%1 was written with %2 segment rows")
                               .arg(programFile)
                               .arg(rows - 1);
        }
    }
    if (!reasons.isEmpty() && direction == TransferDirection::Write &&
        QFileInfo(directory).isDir() && !QFileInfo::exists(programFile))
        reasons << QStringLiteral("%1 does not exist").arg(programFile);
    if (!reasons.isEmpty() && !QFileInfo(directory).isDir())
        reasons << QStringLiteral("%1 directory %2 does not exist").arg(mediumName, directory);

    const QString seconds = QString::number(outcome.elapsedMs / 1000.0, 'f', 1);
    if (!reasons.isEmpty()) {
        say(prefix + QStringLiteral("program %1 failed: %2")
                         .arg(request.program)
                         .arg(reasons.join(QStringLiteral("; "))));
        return 1;
    }
    const QString summary =
        direction == TransferDirection::Read
            ? QStringLiteral("read program %1 (%2 segments) from %3 into %4 in %5 s\n")
                  .arg(request.program)
                  .arg(request.segments)
                  .arg(request.session.portName, programFile, seconds)
            : QStringLiteral("wrote %1 (%2 segments) into program %3 on %4 in %5 s\n")
                  .arg(programFile)
                  .arg(request.segments)
                  .arg(request.program)
                  .arg(request.session.portName, seconds);
    std::fputs(qUtf8Printable(summary), stdout);
    std::fflush(stdout);
    return 0;
}

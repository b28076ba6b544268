// dcp30ctl read / write: one program transfer through the plug-in, driven
// like a panel screen drives it. The screen's part runs on the session's
// communication thread (the runtime calls the driver from there): it sets
// "ProgramID0", "SegCnt0" and "StorageType0", writes 1 to "RF0" or "WF0",
// then looks at the running flag, the progress value and the message centre
// every poll period until the flag drops. What the transfer left behind
// (error flag, error log, program file) is judged afterwards.
#include "transfer.h"

#include "interruption.h"
#include "jsonreport.h"
#include "programfile.h"
#include "progressdisplay.h"
#include "tooloutput.h"
#include "transferwatch.h"
#include "writesafety.h"

#include "common/durablefile.h"
#include "driver/fileaccessor.h"
#include "host/runtime/deviceobject.h"
#include "host/runtime/messagecentre.h"
#include "host/serial/serialsettings.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QMap>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QThread>

#include <cstdio>
#include <memory>

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

// What the screen saw.
struct ScreenOutcome {
    QString refusal; // set when the transfer could not be started
    bool timedOut = false;
    bool errorFlag = false;
    qint64 elapsedMs = 0;  // from the start request until the running flag dropped
    int interruptedBy = 0; // the signal that stopped the screen, or 0
    int lastProgress = 0;  // the last progress value above 0 the screen saw
};

// The screen's part, on the communication thread.
ScreenOutcome driveScreen(PluginSession& session, const TransferRequest& request,
                          TransferWatch& watch)
{
    const Names names = namesOf(request.direction);
    ScreenOutcome outcome;
    ProgressDisplay display(names.verb, request.segments, ToolOutput::quiet());
    watch.reset();
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
            outcome.lastProgress = progress;
        display.update(qMax(progress, 0), clock.elapsed(), watch.state());
        if ((outcome.interruptedBy = InterruptGuard::pending()) != 0)
            break; // the driver is taken down next, which stops the transfer
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
    while (settle.elapsed() < SettleMs && !outcome.timedOut && !outcome.interruptedBy) {
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
    "chosen medium, through the dcp30 plug-in hosted as the panel runtime hosts it.\n"
    "The count is needed, as on a panel: a program shorter than K segments reads\n"
    "back with \"No program in the segment.\" for the segments beyond its end.\n";

const char WriteUsage[] =
    "usage: dcp30ctl write --port DEV --program N [--segments K] FILE [options]\n"
    "       dcp30ctl write --port DEV --program N [--segments K] --usb DIR [options]\n"
    "\n"
    "Writes the program file FILE (any name; staged as PROG_N.txt on a medium of\n"
    "its own) or PROG_N.txt from the chosen medium into program N of the\n"
    "controller on DEV, through the dcp30 plug-in hosted as the panel runtime hosts\n"
    "it. K defaults to the file's segment rows (at most 30); a K that differs from\n"
    "them is noted. Before anything is written, the tool reads the controller's SP1 limits and\n"
    "event kinds (the reads the driver makes) and runs the driver's checks on every\n"
    "row: a file with any failing row is refused (exit 1) with the messages the\n"
    "write log would hold, and the controller's program stays as it was.\n"
    "\n"
    "  --force             write all the same: the driver writes the rows that pass\n"
    "                      and logs the others, as a panel does\n"
    "  --verify            read the program back afterwards and compare the segment\n"
    "                      records the controller holds with those of the file;\n"
    "                      exit 1 on any difference\n";

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
    "  --trace             every frame on the line, both directions, with its time\n"
    "                      and meaning (stderr)\n"
    "  --json              one JSON object on stdout when the run ends (README,\n"
    "                      \"Machine-readable output\")\n"
    "  --paced             line-paced transfer: the driver reads each reply as soon as\n"
    "                      it is complete (the fixed wait stays the limit) and keeps\n"
    "                      5 ms of quiet line before the next command\n"
    "\n"
    "Progress goes to stderr (a bar with the segment on the line, the time left and\n"
    "\"retrying\" on a terminal; \"progress P%\" and \"retrying segment S\" lines\n"
    "otherwise), with every message of the driver (\"DCP30: ...\"). When the driver\n"
    "raises its error flag (RE0 / WE0) the error log from the medium is printed,\n"
    "each \"Error Code N.\" line with what it means. A missing\n"
    "directory is passed on as an unmounted medium; the driver's complaint and the\n"
    "missing directory are both named.\n"
    "\n"
    "Ctrl-C (or SIGTERM) stops the transfer after the exchange on the line, closes\n"
    "the controller's program file and says what state the program is in; a second\n"
    "Ctrl-C exits at once. A controller that answers \"File is already open.\" holds\n"
    "a file some transfer left open: 'dcp30ctl close' closes it.\n"
    "\n"
    "Exit status: 0 the transfer completed without any complaint; 1 it failed (the\n"
    "error flag was raised, even if retries overcame the problem; the driver showed\n"
    "a message; a read left no complete file; a write was refused by the checks or\n"
    "failed its verification; or the plug-in or the port could not be used); 2 bad\n"
    "usage; 130 / 143 interrupted by SIGINT / SIGTERM.\n"
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

namespace
{

// The program file a write takes: FILE, or PROG_N.txt on the chosen medium.
QString programFileOf(const TransferRequest& r)
{
    if (!r.sourceFile.isEmpty())
        return r.sourceFile;
    return (r.storage == 0 ? r.session.usbDirectory : r.session.sdDirectory) +
           QStringLiteral("/PROG_%1.txt").arg(r.program);
}

// A write's segment count: the file's segment rows unless given; a given
// count that differs from them is noted. False (error set) when no count
// was given and the file cannot tell one.
bool countSegmentRows(TransferRequest& r, bool given, QStringList* notes, QString* error)
{
    ProgramFile file;
    QString why;
    const bool loaded = loadProgramFile(programFileOf(r), file, why);
    const int rows = loaded ? file.segmentCount() : 0;
    if (!given) {
        if (!loaded || rows < 1) {
            *error = QStringLiteral("--segments K is needed: %1")
                         .arg(loaded ? QStringLiteral("the file holds no segment rows") : why);
            return false;
        }
        r.segments = qMin(rows, MaxSegments);
        if (rows > MaxSegments)
            *notes << QStringLiteral("the file has %1; writing the first %2")
                          .arg(ToolOutput::count(rows, QStringLiteral("segment row")))
                          .arg(MaxSegments);
        return true;
    }
    if (loaded && rows != r.segments)
        *notes << QStringLiteral("the file has %1; writing %2")
                      .arg(ToolOutput::count(rows, QStringLiteral("segment row")),
                           ToolOutput::count(r.segments, QStringLiteral("segment")));
    return true;
}

} // namespace

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
    const QCommandLineOption force(QStringLiteral("force"));
    const QCommandLineOption verify(QStringLiteral("verify"));
    const QCommandLineOption trace(QStringLiteral("trace"));
    const QCommandLineOption json(QStringLiteral("json"));
    const QCommandLineOption paced(QStringLiteral("paced"));
    parser.addOptions({port, program, segments, usb, sd, storage, retries, settings, clamp, pollMs,
                       timeout, plugin, companion, verbose, trace, json, paced});
    if (direction == TransferDirection::Write)
        parser.addOptions({force, verify});
    if (!parser.parse(QStringList{QStringLiteral("dcp30ctl")} + args)) {
        *error = parser.errorText();
        return 2;
    }
    const QStringList positional = parser.positionalArguments();
    const bool fileGiven = direction == TransferDirection::Write && positional.size() == 1;
    if (!positional.isEmpty() && !fileGiven) {
        *error = QStringLiteral("unexpected argument %1").arg(positional.value(fileGiven ? 1 : 0));
        return 2;
    }
    if (fileGiven && (parser.isSet(usb) || parser.isSet(sd) || parser.isSet(storage))) {
        *error = QStringLiteral("a FILE to write and --usb/--sd/--storage do not go together");
        return 2;
    }
    // A write can count the segment rows of its file; a read, like a panel,
    // is told how many to read.
    const QList<QCommandLineOption> needed =
        direction == TransferDirection::Read ? QList<QCommandLineOption>{port, program, segments}
                                             : QList<QCommandLineOption>{port, program};
    for (const QCommandLineOption& option : needed) {
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
    r.force = direction == TransferDirection::Write && parser.isSet(force);
    r.verify = direction == TransferDirection::Write && parser.isSet(verify);
    r.trace = parser.isSet(trace);
    r.json = parser.isSet(json);
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
        (parser.isSet(segments) && !ranged(segments, "segment count", MaxSegments, &r.segments)))
        return 2;
    if (fileGiven) {
        r.sourceFile = QDir::cleanPath(QDir::current().absoluteFilePath(positional.first()));
        // Staged later as PROG_N.txt on a medium of its own; the medium's
        // options do not apply.
        r.session.usbDirectory = QStringLiteral("(staged)");
    }

    const QString medium = parser.isSet(storage) ? parser.value(storage) : QStringLiteral("usb");
    if (medium == QLatin1String("usb")) {
        r.storage = 0;
    } else if (medium == QLatin1String("sd")) {
        r.storage = 1;
    } else {
        *error = QStringLiteral("--storage takes usb or sd, not \"%1\"").arg(medium);
        return 2;
    }
    if (!fileGiven) {
        r.session.usbDirectory = parser.value(usb);
        r.session.sdDirectory = parser.value(sd);
    }
    if ((r.storage == 0 ? r.session.usbDirectory : r.session.sdDirectory).isEmpty()) {
        *error = r.storage == 0 ? QStringLiteral("--usb DIR is needed for --storage usb")
                                : QStringLiteral("--sd DIR is needed for --storage sd");
        return 2;
    }
    for (QString* directory : {&r.session.usbDirectory, &r.session.sdDirectory}) {
        if (!directory->isEmpty() && !fileGiven)
            *directory = QDir::cleanPath(QDir::current().absoluteFilePath(*directory));
    }
    if (direction == TransferDirection::Write &&
        !countSegmentRows(r, parser.isSet(segments), notes, error))
        return 2;

    r.session.portName = parser.value(port);
    if (r.session.portName.isEmpty()) {
        *error = QStringLiteral("--port needs a device");
        return 2;
    }
    // Qt takes a bare name for one under /dev; a device named relative to
    // the current directory ("ttyDCP", a simulator's link) is meant as that.
    if (!r.session.portName.contains(QLatin1Char('/')) &&
        !QFileInfo::exists(QStringLiteral("/dev/") + r.session.portName) &&
        QFileInfo::exists(r.session.portName))
        r.session.portName = QDir::current().absoluteFilePath(r.session.portName);
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

namespace
{

// Segments the driver had written when its progress showed percent: the
// count i of n with progressPercent(i, n) == percent.
int segmentsDone(int percent, int segments)
{
    for (int done = segments; done > 0; --done)
        if (int(float(done) / float(segments) * 100.0f) <= percent)
            return done;
    return 0;
}

QString interruptedState(const TransferRequest& request, int lastProgress)
{
    if (request.direction == TransferDirection::Read)
        return QStringLiteral("interrupted: program %1 in the controller is unchanged; PROG_%1.txt "
                              "was not written (an earlier one is as it was)")
            .arg(request.program);
    return QStringLiteral("interrupted: ") +
           interruptedWriteState(request.program, request.segments,
                                 segmentsDone(lastProgress, request.segments));
}

// The controller's limits, and (unless --force) the driver's row checks
// against them, before the driver is asked to write. False when the write
// must not start; the reason has been said.
bool checkBeforeWriting(PluginSession& session, const TransferRequest& request,
                        const QString& programFile, const QString& prefix,
                        SegmentCodec::WriteParameters* limits)
{
    QString error;
    const bool read = readControllerLimits(session, limits, &error);
    if (request.verbose && read)
        say(QStringLiteral("controller: SP1 limits %1..%2, event kinds %3, %4, %5")
                .arg(limits->spLowLimit)
                .arg(limits->spHighLimit)
                .arg(limits->ev1Type)
                .arg(limits->ev2Type)
                .arg(limits->ev3Type));
    if (!read) {
        if (request.force && !request.verify)
            return true; // the driver reads them again and refuses on its own
        say(prefix + error + QStringLiteral("; nothing was written"));
        return false;
    }
    if (request.force)
        return true;
    QStringList lines;
    if (rowsPassChecks(programFile, *limits, request.segments, &lines))
        return true;
    for (const QString& line : lines)
        say(line.isEmpty() ? QString() : QStringLiteral("    ") + line);
    say(prefix + QStringLiteral("program %1 not written: %2 fails the checks above; the "
                                "controller's program is as it was (--force writes the rows "
                                "that pass)")
                     .arg(request.program)
                     .arg(QFileInfo(programFile).fileName()));
    return false;
}

// Reads the program back through the driver into a scratch medium and
// compares the records with those of the file written. False on a failed
// read or any difference; said.
bool verifyWrite(PluginSession& session, const TransferRequest& request, const QString& programFile,
                 const SegmentCodec::WriteParameters& limits, const QString& prefix,
                 TransferWatch& watch)
{
    QTemporaryDir scratch;
    TransferRequest readBack = request;
    readBack.direction = TransferDirection::Read;
    readBack.storage = 0;
    session.deviceObject().setMountDirectory(DeviceObject::UsbStick, scratch.path());
    ScreenOutcome outcome;
    session.runOnCommunicationThread([&] { outcome = driveScreen(session, readBack, watch); });
    QMap<int, QString> written, read;
    QString error;
    const QString readFile = scratch.filePath(QStringLiteral("PROG_%1.txt").arg(request.program));
    if (outcome.timedOut || outcome.errorFlag || !outcome.refusal.isEmpty() ||
        !encodedRecords(readFile, limits, request.segments, &read, &error) ||
        !encodedRecords(programFile, limits, request.segments, &written, &error)) {
        say(prefix + QStringLiteral("verify: program %1 could not be read back%2")
                         .arg(request.program)
                         .arg(error.isEmpty() ? QString() : QStringLiteral(": ") + error));
        return false;
    }
    const QStringList differences = recordDifferences(written, read, request.segments);
    for (const QString& line : differences)
        say(QStringLiteral("    ") + line);
    if (!differences.isEmpty()) {
        say(prefix + QStringLiteral("verify: program %1 differs from %2 in %3 of %4 segments")
                         .arg(request.program)
                         .arg(programFile)
                         .arg(differences.size())
                         .arg(request.segments));
        return false;
    }
    say(prefix + QStringLiteral("verify: program %1 reads back as written").arg(request.program));
    return true;
}

} // namespace

namespace
{

// "    line", and after an "Error Code N." line what the code means.
QString logLine(const QString& line)
{
    static const QRegularExpression code(QStringLiteral("Error Code (\\d+)\\.$"));
    if (line.isEmpty())
        return QString();
    const QRegularExpressionMatch match = code.match(line);
    const QString meaning =
        match.hasMatch() ? errorCodeMeaning(match.captured(1).toInt()) : QString();
    return QStringLiteral("    ") + line +
           (meaning.isEmpty() ? QString() : QStringLiteral("  [%1]").arg(meaning));
}

// The error log's lines by segment ("Seg4:...", "Segment 4 has ..." and the
// problem lines under it) and the rest, for --json.
void fileLogLines(const QStringList& lines, int segments, JsonReport& report)
{
    static const QRegularExpression segmentLine(
        QStringLiteral("^\\s*(?:Seg(\\d+):|Segment (\\d+) )"));
    QMap<int, QJsonArray> bySegment;
    int current = 0;
    for (const QString& line : lines) {
        if (line.isEmpty() || line == QLatin1String("Program 1:"))
            continue;
        const QRegularExpressionMatch match = segmentLine.match(line);
        if (match.hasMatch())
            current = (match.captured(1) + match.captured(2)).toInt();
        else if (!line.startsWith(QLatin1String("\t\t")))
            current = 0;
        if (current > 0)
            bySegment[current].append(line.trimmed());
        else
            report.addMessage(line.trimmed());
    }
    for (int s = 1; s <= segments; ++s)
        report.addSegment(QJsonObject{
            {"segment", s}, {"messages", bySegment.value(s)}, {"ok", !bySegment.contains(s)}});
}

// Stages FILE as PROG_N.txt in a folder of its own, which stands for the
// USB stick. False (error set) for a file that is no regular file of a
// plausible size or cannot be copied.
bool stageProgramFile(TransferRequest& request, const QTemporaryDir& staging, QString* error)
{
    QString what;
    const QFileInfo info(request.sourceFile);
    if (!info.exists()) {
        *error = QStringLiteral("%1: no such file").arg(request.sourceFile);
        return false;
    }
    if (!DurableFile::isRegularOrAbsent(request.sourceFile, &what)) {
        *error = QStringLiteral("%1 is %2, not a program file").arg(request.sourceFile, what);
        return false;
    }
    if (info.size() > FileAccessor::MaxProgramFileBytes) {
        *error = QStringLiteral("%1 is too large for a program file (%2 bytes)")
                     .arg(request.sourceFile)
                     .arg(info.size());
        return false;
    }
    const QString staged = staging.filePath(QStringLiteral("PROG_%1.txt").arg(request.program));
    if (!staging.isValid() || !QFile::copy(request.sourceFile, staged)) {
        *error = QStringLiteral("%1 cannot be read").arg(request.sourceFile);
        return false;
    }
    request.session.usbDirectory = staging.path();
    request.storage = 0;
    return true;
}

} // namespace

int runTransfer(TransferDirection direction, const QStringList& args)
{
    const QString prefix = prefixOf(direction);
    const Names names = namesOf(direction);
    TransferRequest request;
    QStringList notes;
    QString error;
    if (parseTransferArguments(direction, args, &request, &notes, &error) != 0)
        return ToolOutput::usageError(QLatin1String(names.verb), error);
    for (const QString& note : notes)
        ToolOutput::note(QLatin1String(names.verb), note);
    JsonReport report(QLatin1String(names.verb));
    // Every way out: the summary line (or the JSON document) on stdout,
    // problems on stderr behind the command's prefix.
    auto finish = [&](int status, const QString& summary, const QString& failure = QString()) {
        if (!failure.isEmpty())
            say(prefix + failure);
        if (request.json)
            return failure.isEmpty() || status == 0 ? report.finish(status, summary)
                                                    : report.fail(status, failure);
        if (status == 0)
            ToolOutput::info(summary);
        return status;
    };
    // The port's complaints reach the user as this tool's own error lines.
    if (!request.verbose)
        QLoggingCategory::setFilterRules(
            QStringLiteral("dcp*.info=false\ndcp.host.serial.warning=false"));

    QTemporaryDir staging;
    if (!request.sourceFile.isEmpty() && !stageProgramFile(request, staging, &error))
        return finish(2, QString(), error);
    report.set(QStringLiteral("program"), request.program);
    report.set(QStringLiteral("segmentCount"), request.segments);
    report.set(QStringLiteral("port"), request.session.portName);

    // Made before the session, gone after it: the driver's take-down may
    // still send a close through the observed port.
    TransferWatch watch(request.trace);
    auto sessionOwner = std::make_unique<PluginSession>(request.session);
    PluginSession& session = *sessionOwner;
    if (!session.openPort(&error) || !session.load(&error))
        return finish(1, QString(), error);
    session.observeLine(watch.observers());
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
    const QString shownFile = request.sourceFile.isEmpty() ? programFile : request.sourceFile;
    const QString logFile = directory + QStringLiteral("/%1_PROG_%2_ERROR.txt")
                                            .arg(QLatin1String(names.logPrefix))
                                            .arg(request.program);
    report.set(QStringLiteral("file"), shownFile);
    const FileStamp programBefore = FileStamp::of(programFile);
    const FileStamp logBefore = FileStamp::of(logFile);

    SegmentCodec::WriteParameters limits;
    if (direction == TransferDirection::Write &&
        !checkBeforeWriting(session, request, programFile, prefix, &limits))
        return finish(1, QString(), QStringLiteral("nothing was written"));

    ScreenOutcome outcome;
    {
        const InterruptGuard interruptions;
        session.runOnCommunicationThread([&] { outcome = driveScreen(session, request, watch); });
        if (outcome.interruptedBy) {
            // Taking the driver down stops the transfer at its next wait and
            // closes the controller's program file.
            sessionOwner.reset();
            report.set(QStringLiteral("interruptedBy"), outcome.interruptedBy);
            return finish(InterruptGuard::exitStatus(), QString(),
                          interruptedState(request, outcome.lastProgress));
        }
    }
    report.set(QStringLiteral("retries"), watch.state().retries);

    QStringList reasons;
    if (!outcome.refusal.isEmpty())
        return finish(1, QString(), outcome.refusal);
    if (outcome.timedOut)
        reasons << QStringLiteral("%1 still set after %2 s; the transfer did not end")
                       .arg(QLatin1String(names.running))
                       .arg(request.timeoutSeconds);
    QStringList logLines;
    if (outcome.errorFlag) {
        const QString log = awaitErrorLog(logFile, logBefore);
        if (log.isNull()) {
            reasons << QStringLiteral("the driver raised %1 but left no error log")
                           .arg(QLatin1String(names.failed));
        } else {
            reasons << QStringLiteral("the driver raised %1").arg(QLatin1String(names.failed));
            logLines = log.split(QLatin1Char('\n'));
            say(prefix + QStringLiteral("error log %1:").arg(logFile));
            for (const QString& line : logLines)
                say(logLine(line));
        }
    }
    report.set(QStringLiteral("errorFlag"), outcome.errorFlag);
    fileLogLines(logLines, request.segments, report);
    // Messages queued in the last moments still belong to this transfer.
    QCoreApplication::processEvents();
    const QStringList messages = session.messageCentre().texts();
    for (const QString& message : messages)
        report.addMessage(message);
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
                reasons << QStringLiteral("%1 was written with %2")
                               .arg(programFile,
                                    ToolOutput::count(rows - 1, QStringLiteral("segment row")));
        }
    }
    if (!reasons.isEmpty() && direction == TransferDirection::Write &&
        QFileInfo(directory).isDir() && !QFileInfo::exists(programFile))
        reasons << QStringLiteral("%1 does not exist").arg(programFile);
    if (!reasons.isEmpty() && !QFileInfo(directory).isDir())
        reasons << QStringLiteral("%1 directory %2 does not exist").arg(mediumName, directory);

    const QString seconds = QString::number(outcome.elapsedMs / 1000.0, 'f', 1);
    if (!reasons.isEmpty()) {
        if (reasons.join(QString()).contains(QLatin1String("File is already open.")) ||
            logLines.join(QString()).contains(QLatin1String("File is already open.")))
            say(prefix + QStringLiteral("hint: 'dcp30ctl close --port %1 --program %2' closes a "
                                        "program file the controller holds open")
                             .arg(request.session.portName)
                             .arg(request.program));
        return finish(1, QString(),
                      QStringLiteral("program %1 failed: %2")
                          .arg(request.program)
                          .arg(reasons.join(QStringLiteral("; "))));
    }
    if (request.verify) {
        const bool verified = verifyWrite(session, request, programFile, limits, prefix, watch);
        report.set(QStringLiteral("verified"), verified);
        if (!verified)
            return finish(
                1, QString(),
                QStringLiteral("program %1 does not read back as written").arg(request.program));
    }
    const QString segments = ToolOutput::count(request.segments, QStringLiteral("segment"));
    const QString summary = direction == TransferDirection::Read
                                ? QStringLiteral("read: program %1 (%2) from %3 into %4 in %5 s")
                                      .arg(request.program)
                                      .arg(segments, request.session.portName, programFile, seconds)
                                : QStringLiteral("write: %1 (%2) into program %3 on %4 in %5 s")
                                      .arg(shownFile, segments)
                                      .arg(request.program)
                                      .arg(request.session.portName, seconds);
    return finish(0, summary);
}

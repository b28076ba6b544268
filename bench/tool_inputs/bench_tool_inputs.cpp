// Runs dcp30ctl's file commands (check, show, compare, plot) on inputs that
// are no program files (a 4 MB line of a million cells, an 800 KB line of
// 200,000 cells, a 255 MB file, a
// FIFO nobody writes to, endless standard input) and on a real one, each in
// a child process, and prints its peak resident size and wall time:
//
//   figure tool_rss_kb_<command>_<input> KB
//   figure tool_ms_<command>_<input> MS
//   figure tool_rss_kb_max KB
//
// A run that does not end within 20 s is killed and counted as a hang.
#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr int TimeLimitMs = 20000;

QByteArray utf16(const QString& text)
{
    QByteArray bytes("\xFF\xFE");
    bytes.append(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
    return bytes;
}

QByteArray programFile()
{
    QString text = QStringLiteral("-\tSP1\tTIME\tEV1 1st\tEV1 2nd\tEV2 1st\tEV2 2nd\tEV3 1st\tEV3 "
                                  "2nd\tT1 1st\tT1 2nd\tT2 1st\tT2 2nd\tT3 1st\tT3 2nd\tT4 1st\t"
                                  "T4 2nd\tT5 1st\tT5 2nd\tPID1\tG.S\tG.S.TO\tP.STA\tCYCL\tP.LIN\t"
                                  "Tag\n");
    for (int s = 1; s <= 30; ++s) {
        text += QStringLiteral("SEG%1\t%2\t01:00\t900\t----\t50\t----\t5999\t----").arg(s).arg(s);
        for (int i = 0; i < 10; ++i)
            text += QStringLiteral("\t----");
        text += s == 1 ? QStringLiteral("\t1\t----\t----\t0\t1\t0\tBENCH   \n")
                       : QStringLiteral("\t1\t----\t----\t----\t----\t----\t----\n");
    }
    return utf16(text);
}

struct Run {
    long rssKb = 0;
    qint64 ms = 0;
    bool hung = false;
};

// tool args..., standard input from stdinPath (/dev/zero for endless input).
Run measure(const QByteArray& tool, const QList<QByteArray>& args, const char* stdinPath)
{
    QElapsedTimer clock;
    clock.start();
    const pid_t child = fork();
    if (child == 0) {
        const int in = open(stdinPath, O_RDONLY);
        dup2(in, 0);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        dup2(null, 2);
        std::vector<char*> argv{const_cast<char*>(tool.constData())};
        for (const QByteArray& a : args)
            argv.push_back(const_cast<char*>(a.constData()));
        argv.push_back(nullptr);
        execv(tool.constData(), argv.data());
        _exit(127);
    }
    Run run;
    rusage usage = {};
    int status = 0;
    for (;;) {
        const pid_t done = wait4(child, &status, WNOHANG, &usage);
        if (done == child)
            break;
        if (clock.elapsed() > TimeLimitMs) {
            kill(child, SIGKILL);
            wait4(child, &status, 0, &usage);
            run.hung = true;
            break;
        }
        usleep(2000);
    }
    run.rssKb = usage.ru_maxrss;
    run.ms = clock.elapsed();
    return run;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QByteArray tool =
        QFile::encodeName(QCoreApplication::applicationDirPath() + "/../bin/dcp30ctl");
    QTemporaryDir dir;
    auto path = [&](const char* name) { return QFile::encodeName(dir.filePath(name)); };

    {
        QFile f(dir.filePath("program.txt"));
        f.open(QIODevice::WriteOnly);
        f.write(programFile());
        QFile wide(dir.filePath("wide.txt"));
        wide.open(QIODevice::WriteOnly);
        wide.write(utf16(QString(QStringLiteral("1\t")).repeated(1000000) + '\n'));
        // Within the size bound, far beyond the cell bound.
        QFile within(dir.filePath("wide800k.txt"));
        within.open(QIODevice::WriteOnly);
        within.write(utf16(QString(QStringLiteral("1\t")).repeated(200000) + '\n'));
        QFile big(dir.filePath("big.txt"));
        big.open(QIODevice::WriteOnly);
        big.write(programFile());
        big.resize(255LL * 1024 * 1024); // sparse: costs no disk
    }
    mkfifo(path("fifo.txt").constData(), 0600);
    setenv("QT_QPA_PLATFORM", "offscreen", 1);

    const struct {
        const char* name;
        QByteArray file;
        const char* stdinPath;
    } inputs[] = {{"program", path("program.txt"), "/dev/null"},
                  {"wide_line", path("wide.txt"), "/dev/null"},
                  {"wide_line_800kb", path("wide800k.txt"), "/dev/null"},
                  {"file_255mb", path("big.txt"), "/dev/null"},
                  {"fifo", path("fifo.txt"), "/dev/null"},
                  {"endless_stdin", "-", "/dev/zero"}};
    long maxRss = 0;
    int hangs = 0;
    for (const auto& input : inputs) {
        const QList<QList<QByteArray>> commands{{"check", input.file},
                                                {"show", input.file},
                                                {"compare", input.file, path("program.txt")},
                                                {"plot", input.file, "-o", path("out.png")}};
        for (const QList<QByteArray>& command : commands) {
            const Run run = measure(tool, command, input.stdinPath);
            const QByteArray name = command.first() + '_' + input.name;
            printf("figure tool_rss_kb_%s %ld\n", name.constData(), run.rssKb);
            printf("figure tool_ms_%s %lld%s\n", name.constData(), run.ms,
                   run.hung ? " (killed: hang)" : "");
            maxRss = std::max(maxRss, run.rssKb);
            hangs += run.hung ? 1 : 0;
        }
    }
    printf("figure tool_rss_kb_max %ld\n", maxRss);
    printf("figure tool_hangs %d\n", hangs);
    return hangs == 0 ? 0 : 1;
}

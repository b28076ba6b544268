#include "pluginlocation.h"
#include "subcommand.h"
#include "tooloutput.h"

#include <QCoreApplication>
#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <memory>
#include <vector>

namespace
{

std::vector<Subcommand>& registry()
{
    static std::vector<Subcommand> commands;
    return commands;
}

void printOverview(QTextStream& out)
{
    out << "usage: dcp30ctl <command> [options]\n\n"
           "Transfers DCP30 controller programs through the dcp30 driver plug-in, and checks,\n"
           "shows, compares and plots program files on a PC.\n\ncommands:\n";
    for (const Subcommand& c : registeredSubcommands())
        out << "  " << c.name.leftJustified(10) << c.summary << '\n';
    out << "\ngeneral options (before or after the command):\n"
           "  -q, --quiet  print nothing but errors and the data asked for (a table, a\n"
           "               picture on stdout, --json); the exit status tells the result\n"
           "  --version    the tool's version and the plug-in's identity\n"
           "  -h, --help   this overview; with a command, the command's help\n"
           "\n'dcp30ctl help <command>' or 'dcp30ctl <command> --help' describes a command.\n";
}

// The tool's version, then what the plug-in it would host says of itself.
// Exit 1 when that plug-in cannot be loaded: an installation check.
int printVersion(QTextStream& out)
{
    out << "dcp30ctl " << ToolOutput::toolVersion() << '\n';
    PluginLocation::Identity plugin;
    QString error;
    if (!PluginLocation::identify(PluginLocation::besideExecutable(QStringLiteral("libdcp30.so")),
                                  plugin, error)) {
        out.flush();
        return ToolOutput::error(QString(), error, 1);
    }
    out << "plug-in " << plugin.path << ": " << plugin.name << " driver by " << plugin.vendor
        << ", version " << plugin.version << ", interface " << plugin.interfaceId << '\n';
    return 0;
}

// Takes the general options out of args, wherever they stand.
void takeGeneralOptions(QStringList& args)
{
    const int before = args.size();
    args.removeAll(QStringLiteral("-q"));
    args.removeAll(QStringLiteral("--quiet"));
    ToolOutput::setQuiet(args.size() != before);
}

} // namespace

SubcommandRegistration::SubcommandRegistration(Subcommand command)
{
    registry().push_back(std::move(command));
}

QList<Subcommand> registeredSubcommands()
{
    QList<Subcommand> list(registry().begin(), registry().end());
    std::sort(list.begin(), list.end(),
              [](const Subcommand& a, const Subcommand& b) { return a.name < b.name; });
    return list;
}

// True when the command named on the command line paints. Asked before the
// application object exists, so raw arguments; the registry is complete by
// then (static initialisation).
static bool commandPaints(int argc, char** argv)
{
    QString name;
    for (int i = 1; i < argc && name.isEmpty(); ++i) {
        const QByteArray arg(argv[i]);
        if (arg != "-q" && arg != "--quiet")
            name = QString::fromLocal8Bit(arg);
    }
    return std::any_of(registry().begin(), registry().end(),
                       [&](const Subcommand& c) { return c.paints && c.name == name; });
}

int main(int argc, char** argv)
{
    // Only painting needs QtGui (fonts), and then headless. A GUI
    // application costs a platform plug-in, whose screen objects Qt 5.15
    // never frees; the other commands stay without one.
    std::unique_ptr<QTemporaryDir> runtimeDir;
    std::unique_ptr<QCoreApplication> app;
    if (commandPaints(argc, argv)) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        // The platform layer wants a private runtime folder and warns on
        // every run without one (a login shell has it, cron or ssh may not).
        if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR")) {
            runtimeDir = std::make_unique<QTemporaryDir>();
            if (runtimeDir->isValid())
                qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtimeDir->path()));
        }
        app = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName(QStringLiteral("dcp30ctl"));

    QStringList args = QCoreApplication::arguments().mid(1);
    takeGeneralOptions(args);
    QTextStream out(stdout);
    QTextStream err(stderr);
    if (args.value(0) == QLatin1String("--version"))
        return printVersion(out);
    // "help CMD" is "CMD --help".
    if (args.size() == 2 && args.first() == QLatin1String("help"))
        args = QStringList{args.at(1), QStringLiteral("--help")};
    if (args.isEmpty() || args.first() == QLatin1String("--help") ||
        args.first() == QLatin1String("-h") || args.first() == QLatin1String("help")) {
        printOverview(args.isEmpty() ? err : out);
        return args.isEmpty() ? 2 : 0;
    }
    const QString name = args.takeFirst();
    for (const Subcommand& c : registeredSubcommands()) {
        if (c.name != name)
            continue;
        if (args.contains(QLatin1String("--help")) || args.contains(QLatin1String("-h"))) {
            out << c.usage;
            return 0;
        }
        return c.run(args);
    }
    err << "dcp30ctl " << name << ": unknown command\n";
    printOverview(err);
    return 2;
}

#include "subcommand.h"

#include <QCoreApplication>
#include <QGuiApplication>
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
    out << "\n'dcp30ctl <command> --help' describes a command.\n";
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
    if (argc < 2)
        return false;
    const QString name = QString::fromLocal8Bit(argv[1]);
    return std::any_of(registry().begin(), registry().end(),
                       [&](const Subcommand& c) { return c.paints && c.name == name; });
}

int main(int argc, char** argv)
{
    // Only painting needs QtGui (fonts), and then headless. A GUI
    // application costs a platform plug-in, whose screen objects Qt 5.15
    // never frees; the other commands stay without one.
    std::unique_ptr<QCoreApplication> app;
    if (commandPaints(argc, argv)) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        app = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName(QStringLiteral("dcp30ctl"));

    QStringList args = QCoreApplication::arguments().mid(1);
    QTextStream out(stdout);
    QTextStream err(stderr);
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
    err << "dcp30ctl: unknown command '" << name << "'\n";
    printOverview(err);
    return 2;
}

#ifndef DCP30CTL_SUBCOMMAND_H
#define DCP30CTL_SUBCOMMAND_H

#include <QString>
#include <QStringList>

#include <functional>

// A dcp30ctl subcommand. `run` gets the arguments after the subcommand's
// name and returns the process exit status (0 success, 1 the job failed,
// 2 bad usage). `usage` is the full --help text of the subcommand.
// `paints`: the command draws text with QtGui and needs a QGuiApplication;
// the others run on a QCoreApplication, which loads no platform plug-in.
struct Subcommand {
    QString name;
    QString summary;
    QString usage;
    std::function<int(const QStringList& args)> run;
    bool paints = false;
};

// Registers a subcommand at static-initialisation time; use one
// `static const SubcommandRegistration r{...};` per subcommand source file.
struct SubcommandRegistration {
    explicit SubcommandRegistration(Subcommand command);
};

// All registered subcommands, sorted by name.
QList<Subcommand> registeredSubcommands();

#endif

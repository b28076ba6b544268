#include "tooloutput.h"

#include <QTextStream>

namespace ToolOutput
{

namespace
{

bool quietMode = false;

} // namespace

void setQuiet(bool quiet)
{
    quietMode = quiet;
}

bool quiet()
{
    return quietMode;
}

QString toolVersion()
{
    return QStringLiteral(DCP30_VERSION);
}

int error(const QString& command, const QString& message, int status)
{
    QTextStream(stderr) << (command.isEmpty() ? QStringLiteral("dcp30ctl") : "dcp30ctl " + command)
                        << ": " << message << '\n';
    return status;
}

int usageError(const QString& command, const QString& message)
{
    QTextStream(stderr) << "dcp30ctl " << command << ": " << message << "\n(see 'dcp30ctl "
                        << command << " --help')\n";
    return 2;
}

void note(const QString& command, const QString& message)
{
    if (!quietMode)
        QTextStream(stderr) << "dcp30ctl " << command << ": note: " << message << '\n';
}

void info(const QString& line)
{
    if (!quietMode)
        QTextStream(stdout) << line << '\n';
}

QString count(qint64 n, const QString& singular, const QString& plural)
{
    const QString word = n == 1             ? singular
                         : plural.isEmpty() ? singular + QLatin1Char('s')
                                            : plural;
    return QStringLiteral("%1 %2").arg(n).arg(word);
}

} // namespace ToolOutput

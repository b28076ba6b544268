#ifndef DCP30CTL_TOOLOUTPUT_H
#define DCP30CTL_TOOLOUTPUT_H

#include <QString>

// How every dcp30ctl command speaks: errors on stderr behind one prefix
// ("dcp30ctl CMD: "), results and summaries on stdout, and -q/--quiet,
// which silences everything but errors and the data a command was asked
// to produce (a table, a picture on stdout, a --json document).
namespace ToolOutput
{

void setQuiet(bool quiet);
bool quiet();

// The tool's version (the project's), as --version prints it.
QString toolVersion();

// "dcp30ctl CMD: message" on stderr ("dcp30ctl: message" without a
// command); returns status.
int error(const QString& command, const QString& message, int status);
// A usage error: the message and a pointer to the command's help; returns 2.
int usageError(const QString& command, const QString& message);
// "dcp30ctl CMD: note: message" on stderr unless quiet.
void note(const QString& command, const QString& message);
// A line on stdout unless quiet.
void info(const QString& line);

// "1 segment", "2 segments", "0 segments"; plural defaults to singular + "s".
QString count(qint64 n, const QString& singular, const QString& plural = QString());

} // namespace ToolOutput

#endif

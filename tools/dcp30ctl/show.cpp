// dcp30ctl show: the program table in a terminal. The 26 columns do not fit
// one screen line, so they are dealt into groups that each fit the width,
// every group repeating the segment label.
#include "programfile.h"
#include "subcommand.h"
#include "tooloutput.h"

#include <QCommandLineParser>
#include <QTextStream>

#include <algorithm>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

// Without a terminal (a pipe, a file) and without COLUMNS.
constexpr int DefaultWidth = 100;
constexpr int MinWidth = 20;
constexpr int MaxWidth = 10000;
constexpr int Gap = 2;

const char Usage[] =
    "usage: dcp30ctl show FILE|- [--width N] [--tsv]\n"
    "\n"
    "Prints the program table of the program file FILE (- reads standard input):\n"
    "the header and one line per segment, split into column groups that each fit\n"
    "the terminal's width, every group led by the segment label. Cells are shown as\n"
    "the file holds them (\"----\" is an unset value); empty cells and cells with\n"
    "blanks at either end are quoted, control characters shown as \\xNN, and cells\n"
    "over 30 characters cut short.\n"
    "\n"
    "  --width N   lines of at most N columns (20..10000); default: the terminal's\n"
    "              width, else $COLUMNS, else 100\n"
    "  --tsv       the whole table as tab-separated lines instead, one line per row,\n"
    "              cells whole (control characters, tabs included, as \\xNN)\n"
    "\n"
    "Exit status: 0 shown; 2 bad usage or a file that cannot be loaded.\n";

int terminalWidth()
{
    winsize size = {};
    if (isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return std::max(int(size.ws_col), MinWidth);
    bool ok = false;
    const int columns = qEnvironmentVariableIntValue("COLUMNS", &ok);
    return ok && columns >= MinWidth ? std::min(columns, MaxWidth) : DefaultWidth;
}

QString pad(const QString& text, int width)
{
    return text.leftJustified(width, QLatin1Char(' '));
}

// The table as displayed: header first, every row as wide as the widest.
QList<QStringList> displayTable(const ProgramFile& file)
{
    int columns = file.header.size();
    for (const QStringList& row : file.rows)
        columns = std::max(columns, int(row.size()));
    QList<QStringList> table;
    QStringList head;
    for (int c = 0; c < columns; ++c)
        head << (c < file.header.size() ? displayCell(file.header.at(c))
                                        : QStringLiteral("(col %1)").arg(c + 1));
    table << head;
    for (const QStringList& row : file.rows) {
        QStringList shown;
        for (int c = 0; c < columns; ++c)
            shown << (c < row.size() ? displayCell(row.at(c)) : QString());
        table << shown;
    }
    return table;
}

// Greedy grouping: as many following columns as fit beside the label.
void printGroups(QTextStream& out, const QList<QStringList>& table, int lineWidth)
{
    const int columns = table.first().size();
    QVector<int> widths(columns, 0);
    for (const QStringList& row : table)
        for (int c = 0; c < columns; ++c)
            widths[c] = std::max(widths[c], int(row.at(c).size()));
    int next = 1;
    while (next < columns) {
        int used = widths[0];
        int last = next;
        while (last < columns && (last == next || used + Gap + widths[last] <= lineWidth)) {
            used += Gap + widths[last];
            ++last;
        }
        out << '\n';
        for (const QStringList& row : table) {
            QString line = pad(row.at(0), widths[0]);
            for (int c = next; c < last; ++c)
                line += QString(Gap, QLatin1Char(' ')) + pad(row.at(c), widths[c]);
            while (line.endsWith(QLatin1Char(' ')))
                line.chop(1);
            out << line << '\n';
        }
        next = last;
    }
}

void printTsv(QTextStream& out, const ProgramFile& file)
{
    for (const QStringList& row : QList<QStringList>{file.header} + file.rows) {
        QStringList cells;
        for (const QString& cell : row)
            cells << escapedCell(cell);
        out << cells.join(QLatin1Char('\t')) << '\n';
    }
}

int runShow(const QStringList& args)
{
    const QString command = QStringLiteral("show");
    QCommandLineParser parser;
    const QCommandLineOption widthOption(QStringLiteral("width"), QString(), QStringLiteral("N"));
    const QCommandLineOption tsvOption(QStringLiteral("tsv"));
    parser.addOptions({widthOption, tsvOption});
    if (!parser.parse(QStringList{command} + args))
        return ToolOutput::usageError(command, parser.errorText());
    if (parser.positionalArguments().size() != 1)
        return ToolOutput::usageError(command, QStringLiteral("needs exactly one program file"));
    int width = terminalWidth();
    if (parser.isSet(widthOption)) {
        bool ok = false;
        width = parser.value(widthOption).toInt(&ok);
        if (!ok || width < MinWidth || width > MaxWidth)
            return ToolOutput::usageError(
                command,
                QStringLiteral("--width needs a number from %1 to %2").arg(MinWidth).arg(MaxWidth));
    }
    ProgramFile file;
    QString error;
    if (!loadProgramFile(parser.positionalArguments().first(), file, error))
        return ToolOutput::error(command, error, 2);

    QTextStream out(stdout);
    if (parser.isSet(tsvOption)) {
        for (const QString& w : file.loaderWarnings)
            ToolOutput::note(command, w);
        printTsv(out, file);
        return 0;
    }
    if (!ToolOutput::quiet()) {
        out << file.displayName() << ": "
            << ToolOutput::count(file.segmentCount(), QStringLiteral("segment")) << '\n';
        for (const QString& w : file.loaderWarnings)
            out << "Warning: " << w << '\n';
    }
    printGroups(out, displayTable(file), width);
    return 0;
}

const SubcommandRegistration registration{
    Subcommand{QStringLiteral("show"), QStringLiteral("print a program file as an aligned table"),
               QString::fromLatin1(Usage), runShow}};

} // namespace

// dcp30ctl show: the program table in a terminal. The 26 columns do not fit
// one screen line, so they are dealt into groups that each fit the width,
// every group repeating the segment label.
#include "programfile.h"
#include "subcommand.h"

#include <QTextStream>

#include <algorithm>

namespace
{

constexpr int LineWidth = 100;
constexpr int Gap = 2;

const char Usage[] =
    "usage: dcp30ctl show FILE\n"
    "\n"
    "Prints the program table of the program file FILE: the header and one line per\n"
    "segment, split into column groups that each fit 100 columns, every group led\n"
    "by the segment label. Cells are shown as the file holds them (\"----\" is an\n"
    "unset value); empty cells and cells with blanks at either end are quoted,\n"
    "control characters shown as \\xNN, and cells over 30 characters cut short.\n"
    "\n"
    "Exit status: 0 shown; 2 bad usage or a file that cannot be loaded.\n";

QString pad(const QString& text, int width)
{
    return text.leftJustified(width, QLatin1Char(' '));
}

int runShow(const QStringList& args)
{
    QTextStream out(stdout);
    QTextStream err(stderr);
    if (args.size() != 1 || args.first().startsWith(QLatin1Char('-'))) {
        err << "dcp30ctl show: needs exactly one program file\n(see 'dcp30ctl show --help')\n";
        return 2;
    }
    ProgramFile file;
    QString error;
    if (!loadProgramFile(args.first(), file, error)) {
        err << "dcp30ctl show: " << error << '\n';
        return 2;
    }

    // The table as displayed: header first, every row as wide as the widest.
    QList<QStringList> table;
    int columns = file.header.size();
    for (const QStringList& row : file.rows)
        columns = std::max(columns, int(row.size()));
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
    QVector<int> widths(columns, 0);
    for (const QStringList& row : table)
        for (int c = 0; c < columns; ++c)
            widths[c] = std::max(widths[c], int(row.at(c).size()));

    out << file.path << ": " << file.segmentCount()
        << (file.segmentCount() == 1 ? " segment\n" : " segments\n");
    for (const QString& w : file.loaderWarnings)
        out << "Warning: " << w << '\n';

    // Greedy grouping: as many following columns as fit beside the label.
    int next = 1;
    while (next < columns) {
        int used = widths[0];
        int last = next;
        while (last < columns && (last == next || used + Gap + widths[last] <= LineWidth)) {
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
    return 0;
}

const SubcommandRegistration registration{
    Subcommand{QStringLiteral("show"), QStringLiteral("print a program file as an aligned table"),
               QString::fromLatin1(Usage), runShow}};

} // namespace

// dcp30ctl compare: cell-by-cell differences between two program files, as
// the panel's loader reads them. Nothing is normalised: a blank at the end
// of a tag or "0" against "00" is a difference.
#include "programfile.h"
#include "subcommand.h"

#include <QTextStream>

#include <algorithm>

namespace
{

const char Usage[] =
    "usage: dcp30ctl compare A B\n"
    "\n"
    "Compares the program files A and B cell by cell, as the panel loads them, and\n"
    "prints one line per difference: the segment (the row's position in the file)\n"
    "and the column title, then both cells quoted; header cells, whole rows and\n"
    "columns present in one file only are reported as such. Cell texts are compared\n"
    "exactly (blanks and case count). The loader's warnings (short or long lines)\n"
    "are printed but are no difference: the loader pads a short line with empty cells.\n"
    "\n"
    "Exit status: 0 equal; 1 different; 2 bad usage or a file that cannot be loaded.\n";

QString cellOrNone(const QStringList& row, int column)
{
    return column < row.size() ? quotedCell(row.at(column)) : QStringLiteral("(no cell)");
}

// Appends one line per differing cell of a and b, each prefixed by where.
void compareCells(const QString& where, const QStringList& a, const QStringList& b,
                  const ProgramFile& fa, const ProgramFile& fb, QStringList& differences)
{
    const int columns = std::max(a.size(), b.size());
    for (int c = 0; c < columns; ++c) {
        if (c < a.size() && c < b.size() && a.at(c) == b.at(c))
            continue;
        const QString title =
            c < fa.header.size() || c >= fb.header.size() ? fa.columnTitle(c) : fb.columnTitle(c);
        differences << QStringLiteral("%1, %2: A %3, B %4")
                           .arg(where, title, cellOrNone(a, c), cellOrNone(b, c));
    }
}

int runCompare(const QStringList& args)
{
    QTextStream out(stdout);
    QTextStream err(stderr);
    if (args.size() != 2 || args.at(0).startsWith(QLatin1Char('-')) ||
        args.at(1).startsWith(QLatin1Char('-'))) {
        err << "dcp30ctl compare: needs exactly two program files\n"
               "(see 'dcp30ctl compare --help')\n";
        return 2;
    }
    ProgramFile a;
    ProgramFile b;
    QString error;
    if (!loadProgramFile(args.at(0), a, error) || !loadProgramFile(args.at(1), b, error)) {
        err << "dcp30ctl compare: " << error << '\n';
        return 2;
    }
    for (const QString& w : a.loaderWarnings)
        out << "Warning: A: " << w << '\n';
    for (const QString& w : b.loaderWarnings)
        out << "Warning: B: " << w << '\n';

    QStringList differences;
    compareCells(QStringLiteral("header"), a.header, b.header, a, b, differences);
    const int rows = std::max(a.segmentCount(), b.segmentCount());
    for (int s = 1; s <= rows; ++s) {
        const QString where = QStringLiteral("segment %1").arg(s);
        if (s > b.segmentCount())
            differences << where + QStringLiteral(": only in A");
        else if (s > a.segmentCount())
            differences << where + QStringLiteral(": only in B");
        else
            compareCells(where, a.rows.at(s - 1), b.rows.at(s - 1), a, b, differences);
    }

    out << "A: " << a.path << '\n' << "B: " << b.path << '\n';
    for (const QString& d : differences)
        out << d << '\n';
    if (differences.isEmpty()) {
        out << "equal: " << a.segmentCount() << " segments\n";
        return 0;
    }
    out << differences.size() << (differences.size() == 1 ? " difference\n" : " differences\n");
    return 1;
}

const SubcommandRegistration registration{
    Subcommand{QStringLiteral("compare"), QStringLiteral("compare two program files cell by cell"),
               QString::fromLatin1(Usage), runCompare}};

} // namespace

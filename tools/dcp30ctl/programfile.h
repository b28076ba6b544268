#ifndef DCP30CTL_PROGRAMFILE_H
#define DCP30CTL_PROGRAMFILE_H

#include <QList>
#include <QString>
#include <QStringList>

class QTextStream;

// A program file as the panel's write workflow sees it: loaded with the same
// CSV loader, the first row taken as the header and row s - 1 of the rest
// as segment s, whatever its label says.
struct ProgramFile {
    QString path;
    QStringList header;
    QList<QStringList> rows;
    // The loader's warnings (short or long lines), in its order.
    QStringList loaderWarnings;
    // False when the first row is not the program table header but the rows
    // after it are labelled as segments: the panel would still take the file.
    bool headerMatches = true;

    int segmentCount() const { return rows.size(); }
    // The path, or "standard input" for "-".
    QString displayName() const;
};

// Bounds of what can be a program file (a header and 30 rows of 26 short
// cells is about 16 KB of UTF-16): anything beyond is refused before it is
// loaded, so no input costs the tool much memory.
constexpr qint64 MaxProgramFileBytes = 1024 * 1024;
constexpr int MaxProgramFileLines = 100;
constexpr int MaxProgramFileCells = 100;

// Loads path ("-": standard input) into file. False for a file that is
// missing, not a regular file, unreadable, empty, out of the bounds above,
// binary, or loads but is no program table; error is then one line of the
// form "PATH: reason" ("standard input: reason"). Never opens a dialog (the
// tool runs without a widget application, so the loader only fills its
// message lists).
bool loadProgramFile(const QString& path, ProgramFile& file, QString& error);

// Why path cannot be opened as an input file, naming the real cause (a name
// not valid in the locale's encoding, no such file, a symlink loop, a folder
// that cannot be searched, not a regular file, empty, too large, no read
// permission); empty when it can be.
QString fileProblem(const QString& path);

// "LO,HI" with LO <= HI, both 32-bit integers.
bool parseSetpointLimits(const QString& text, qint32& low, qint32& high);
// "K1,K2,K3", three 32-bit integers.
bool parseEventKinds(const QString& text, qint32& k1, qint32& k2, qint32& k3);

// A cell as a terminal shows it unambiguously: quoted when it is empty or has
// blanks at either end, control characters as \xNN, at most maxChars
// characters (cut with "...").
QString displayCell(const QString& cell, int maxChars = 30);
// Always quoted, control characters as \xNN; for messages naming a value.
QString quotedCell(const QString& cell);
// The cell whole, control characters (tabs and line breaks among them) as
// \xNN: one field of a tab-separated line.
QString escapedCell(const QString& cell);

#endif

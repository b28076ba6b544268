// dcp30ctl compare: two program files compared by what the controller would
// receive (the records the panel's encoder makes of them), or, with --text,
// cell by cell as the panel's loader reads them.
#include "jsonreport.h"
#include "parameteroptions.h"
#include "programfile.h"
#include "subcommand.h"
#include "tooloutput.h"
#include "valuecompare.h"

#include <QCommandLineParser>
#include <QJsonArray>
#include <QTextStream>

#include <algorithm>

namespace
{

const char Usage[] =
    "usage: dcp30ctl compare A B [--text] [--sp-limits LO,HI] [--event-kinds K1,K2,K3]\n"
    "                       [--json]\n"
    "\n"
    "Compares the program files A and B (one of them may be -, standard input) by\n"
    "value: every segment row is turned into the record the panel would send to the\n"
    "controller, with the panel's own encoder, and the records are compared. Text\n"
    "that means the same is equal (01:00 and 1:00, heat-t01 and HEAT-T01, +10 and\n"
    "10); the program-wide cells of segments other than 1, which are never sent, do\n"
    "not count, nor does the header line. One line per difference: the segment,\n"
    "the column title, and both values as a read from the controller would show\n"
    "them. A row that does not pass the panel's checks is not sent: a row sent from\n"
    "one file only is a difference; rows that fail in both files are compared as text.\n"
    "\n"
    "  --text                 compare the cell texts exactly instead (blanks and case\n"
    "                         count), header and the unsent cells included\n"
    "  --sp-limits LO,HI      the checks' SP1 limits (default -1999,9999)\n"
    "  --event-kinds K1,K2,K3 the checks' event kinds (default 0,4,50); see 'check'\n"
    "  --json                 print one JSON object instead of text (see README)\n"
    "\n"
    "The loader's warnings (short or long lines) are printed but are no difference.\n"
    "\n"
    "Exit status: 0 equal; 1 different; 2 bad usage or a file that cannot be loaded.\n";

QList<ValueCompare::Difference> textDifferences(const ProgramFile& a, const ProgramFile& b)
{
    QList<ValueCompare::Difference> differences;
    // Segment 0 stands for the header line.
    differences << ValueCompare::compareText(0, a.header, b.header, a.header, b.header);
    const int rows = std::max(a.segmentCount(), b.segmentCount());
    for (int s = 1; s <= rows; ++s) {
        if (s > a.segmentCount() || s > b.segmentCount())
            differences << ValueCompare::Difference{
                s, QString(),
                s > b.segmentCount() ? QStringLiteral("only in A") : QStringLiteral("only in B"),
                QString()};
        else
            differences << ValueCompare::compareText(s, a.rows.at(s - 1), b.rows.at(s - 1),
                                                     a.header, b.header);
    }
    return differences;
}

QString differenceLine(const ValueCompare::Difference& d)
{
    if (d.segment == 0)
        return QStringLiteral("header, %1: A %2, B %3").arg(d.column, d.a, d.b);
    return d.text();
}

void addSegments(JsonReport& report, const QList<ValueCompare::Difference>& differences,
                 int segments)
{
    for (int s = 0; s <= segments; ++s) {
        QJsonArray cells;
        QStringList lines;
        for (const ValueCompare::Difference& d : differences) {
            if (d.segment != s)
                continue;
            cells.append(QJsonObject{{QStringLiteral("column"), d.column},
                                     {QStringLiteral("a"), d.a},
                                     {QStringLiteral("b"), d.b}});
            lines << differenceLine(d);
        }
        if (s == 0) {
            for (const QString& line : lines)
                report.addMessage(line);
            continue;
        }
        report.addSegment(
            QJsonObject{{QStringLiteral("segment"), s},
                        {QStringLiteral("equal"), cells.isEmpty()},
                        {QStringLiteral("differences"), cells},
                        {QStringLiteral("messages"), QJsonArray::fromStringList(lines)}});
    }
}

int runCompare(const QStringList& args)
{
    const QString command = QStringLiteral("compare");
    QCommandLineParser parser;
    const QCommandLineOption textOption(QStringLiteral("text"));
    const QCommandLineOption jsonOption(QStringLiteral("json"));
    const ParameterOptions parameterOptions;
    parser.addOptions({textOption, jsonOption});
    parameterOptions.addTo(parser);
    if (!parser.parse(QStringList{command} + args))
        return ToolOutput::usageError(command, parser.errorText());
    const QStringList files = parser.positionalArguments();
    if (files.size() != 2)
        return ToolOutput::usageError(command, QStringLiteral("needs exactly two program files"));
    if (files.at(0) == QLatin1String("-") && files.at(1) == QLatin1String("-"))
        return ToolOutput::usageError(command,
                                      QStringLiteral("only one file can be standard input"));
    QString error;
    SegmentCodec::WriteParameters params = ParameterOptions::SampleController;
    if (!parameterOptions.apply(parser, params, error))
        return ToolOutput::usageError(command, error);
    const bool byText = parser.isSet(textOption);
    const bool json = parser.isSet(jsonOption);
    JsonReport report(command);

    ProgramFile a;
    ProgramFile b;
    if (!loadProgramFile(files.at(0), a, error) || !loadProgramFile(files.at(1), b, error)) {
        ToolOutput::error(command, error, 2);
        return json ? report.fail(2, error) : 2;
    }
    QStringList warnings;
    for (const QString& w : a.loaderWarnings)
        warnings << "A: " + w;
    for (const QString& w : b.loaderWarnings)
        warnings << "B: " + w;

    const QList<ValueCompare::Difference> differences =
        byText ? textDifferences(a, b) : ValueCompare::compare(params, a.rows, b.rows);
    const int segments = std::max(a.segmentCount(), b.segmentCount());
    const QString summary =
        differences.isEmpty()
            ? QStringLiteral("compare: equal (%1)")
                  .arg(ToolOutput::count(segments, QStringLiteral("segment")))
            : QStringLiteral("compare: %1")
                  .arg(ToolOutput::count(differences.size(), QStringLiteral("difference")));
    const int status = differences.isEmpty() ? 0 : 1;

    if (json) {
        report.set(QStringLiteral("a"), a.displayName());
        report.set(QStringLiteral("b"), b.displayName());
        report.set(QStringLiteral("by"), byText ? QStringLiteral("text") : QStringLiteral("value"));
        if (!byText)
            report.set(QStringLiteral("parameters"), ParameterOptions::describe(params));
        report.set(QStringLiteral("equal"), differences.isEmpty());
        report.set(QStringLiteral("differenceCount"), differences.size());
        for (const QString& w : warnings)
            report.addWarning(w);
        addSegments(report, differences, segments);
        return report.finish(status, summary);
    }
    if (ToolOutput::quiet())
        return status;
    QTextStream out(stdout);
    for (const QString& w : warnings)
        out << "Warning: " << w << '\n';
    out << "A: " << a.displayName() << '\n' << "B: " << b.displayName() << '\n';
    for (const ValueCompare::Difference& d : differences)
        out << differenceLine(d) << '\n';
    out << summary << '\n';
    return status;
}

const SubcommandRegistration registration{
    Subcommand{QStringLiteral("compare"),
               QStringLiteral("compare two program files by what the controller would receive"),
               QString::fromLatin1(Usage), runCompare}};

} // namespace

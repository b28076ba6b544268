// dcp30ctl plot: a picture of a program file, setpoint against time, as a
// PNG or an SVG. Runs headless (offscreen platform).
#include "parameteroptions.h"
#include "programfile.h"
#include "programplot.h"
#include "subcommand.h"
#include "tooloutput.h"

#include "driver/segmentcodec.h"

#include <QBuffer>
#include <QCommandLineParser>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QTextStream>

namespace
{

constexpr int MaxSide = 10000;

const char Usage[] =
    "usage: dcp30ctl plot FILE|- -o OUT.png|OUT.svg|- [--sp-limits LO,HI]\n"
    "                    [--event-kinds K1,K2,K3] [--width W] [--height H]\n"
    "\n"
    "Draws the program of the program file FILE (- reads standard input): SP1\n"
    "against time, segments marked by dotted lines and numbered above the curve,\n"
    "the time axis in hours and minutes from the program's start, and the time\n"
    "events T1..T5 as bars below the curve. Each segment ramps from the previous\n"
    "segment's SP1 to its own SP1 over its TIME; segment 1 starts at its own SP1,\n"
    "so it is flat. Time events count from the start of their segment and end at\n"
    "its end when their OFF time is \"----\". Values are the controller's raw\n"
    "integers.\n"
    "\n"
    "A red triangle and a red number mark a segment with a cell that cannot be\n"
    "used (skipped, with a note on standard error) or that the panel's checks\n"
    "would refuse (an SP1 beyond the limits, say); a dashed red line marks a hole\n"
    "in the program (a segment with no value set, as a read leaves one the\n"
    "controller refused). Numbers of narrow segments move to a second row; a note\n"
    "names those that fit in neither.\n"
    "\n"
    "  -o, --output OUT       the picture; its suffix (.png or .svg) chooses the\n"
    "                         format; - writes an SVG on standard output. The file\n"
    "                         is written under a temporary name and renamed: a\n"
    "                         failed write leaves no file.\n"
    "  --sp-limits LO,HI      the controller's SP1 limits: drawn, and the setpoint axis\n"
    "                         spans them (without: the program's setpoints); also the\n"
    "                         checks' limits (default -1999,9999)\n"
    "  --event-kinds K1,K2,K3 the checks' event kinds (default 0,4,50); see 'check'\n"
    "  --width W, --height H  picture size in pixels (default 1200 x 700; at least\n"
    "                         320 x 240, at most 10000 x 10000)\n"
    "\n"
    "Exit status: 0 written; 1 the picture cannot be written; 2 bad usage or a file\n"
    "that cannot be loaded.\n";

bool parseSide(const QString& text, int minimum, int& side)
{
    bool ok = false;
    const int value = text.toInt(&ok);
    if (!ok || value < minimum || value > MaxSide)
        return false;
    side = value;
    return true;
}

// Marks the segments the panel's checks would refuse, with a note each.
void markRefused(ProgramPlot::Program& program, const QList<QStringList>& rows,
                 const SegmentCodec::WriteParameters& params)
{
    for (ProgramPlot::SegmentSpan& span : program.segments) {
        QString record;
        QStringList problems;
        if (span.hole ||
            SegmentCodec::validateDataRow(params, span.segment, rows, record, problems))
            continue;
        span.problem = true;
        program.notes << QStringLiteral("segment %1 would not be written: %2")
                             .arg(span.segment)
                             .arg(problems.join(QLatin1Char(' ')));
    }
}

QString unlabeledNote(const ProgramPlot::Program& program, const ProgramPlot::Options& options)
{
    const QVector<int> rows = ProgramPlot::segmentLabelRows(program, options);
    QStringList missing;
    for (int i = 0; i < rows.size(); ++i) {
        if (rows.at(i) < 0)
            missing << QString::number(program.segments.at(i).segment);
    }
    if (missing.isEmpty())
        return QString();
    return QStringLiteral("%1 too narrow at this width to be numbered: %2")
        .arg(missing.size() == 1 ? QStringLiteral("segment is") : QStringLiteral("segments are"),
             missing.join(QStringLiteral(", ")));
}

// A short write is retried for the rest, so that the device says why it
// stopped (a full disk) instead of an unknown error.
bool writeAll(QFileDevice& device, const QByteArray& bytes)
{
    qint64 done = 0;
    while (done < bytes.size()) {
        const qint64 n = device.write(bytes.constData() + done, bytes.size() - done);
        if (n <= 0 || !device.flush())
            return false;
        done += n;
    }
    return true;
}

// The picture onto standard output or into a file by way of a temporary
// one. It is drawn in memory first: the image writers ignore short writes,
// which is how a full disk shows.
bool writePicture(const ProgramPlot::Program& program, const ProgramPlot::Options& options,
                  const QString& output, bool png, QString& error)
{
    QBuffer picture;
    picture.open(QIODevice::WriteOnly);
    if (!(png ? ProgramPlot::writePng(program, options, picture, error)
              : ProgramPlot::writeSvg(program, options, picture, error))) {
        error = QStringLiteral("%1: cannot be drawn: %2").arg(output, error);
        return false;
    }
    const QByteArray bytes = picture.data();
    if (output == QLatin1String("-")) {
        QFile out;
        if (!out.open(stdout, QIODevice::WriteOnly) || !writeAll(out, bytes)) {
            error = QStringLiteral("standard output: %1").arg(out.errorString());
            return false;
        }
        return true;
    }
    QSaveFile file(output);
    // commit() renames even when its own final flush fails: flushed first.
    if (!file.open(QIODevice::WriteOnly) || !writeAll(file, bytes) || !file.commit()) {
        error = QStringLiteral("%1: cannot be written: %2").arg(output, file.errorString());
        file.cancelWriting();
        return false;
    }
    return true;
}

int runPlot(const QStringList& args)
{
    const QString command = QStringLiteral("plot");
    QCommandLineParser parser;
    const QCommandLineOption outputOption({QStringLiteral("o"), QStringLiteral("output")},
                                          QString(), QStringLiteral("OUT"));
    const QCommandLineOption widthOption(QStringLiteral("width"), QString(), QStringLiteral("W"));
    const QCommandLineOption heightOption(QStringLiteral("height"), QString(), QStringLiteral("H"));
    const ParameterOptions parameterOptions;
    parser.addOptions({outputOption, widthOption, heightOption});
    parameterOptions.addTo(parser);
    if (!parser.parse(QStringList{command} + args))
        return ToolOutput::usageError(command, parser.errorText());
    if (parser.positionalArguments().size() != 1)
        return ToolOutput::usageError(command, QStringLiteral("needs exactly one program file"));
    if (!parser.isSet(outputOption))
        return ToolOutput::usageError(command,
                                      QStringLiteral("needs -o OUT.png, -o OUT.svg or -o -"));
    const QString output = parser.value(outputOption);
    const QString suffix = QFileInfo(output).suffix().toLower();
    const bool toStdout = output == QLatin1String("-");
    if (!toStdout && suffix != QLatin1String("png") && suffix != QLatin1String("svg"))
        return ToolOutput::usageError(command,
                                      QStringLiteral("the output must end in .png or .svg"));
    if (toStdout && parser.positionalArguments().first() == QLatin1String("-"))
        return ToolOutput::usageError(
            command, QStringLiteral("standard input and output cannot both be used"));

    QString error;
    SegmentCodec::WriteParameters params = ParameterOptions::SampleController;
    if (!parameterOptions.apply(parser, params, error))
        return ToolOutput::usageError(command, error);
    ProgramPlot::Options options;
    if (parser.isSet(QStringLiteral("sp-limits"))) {
        options.limitsKnown = true;
        options.spLow = params.spLowLimit;
        options.spHigh = params.spHighLimit;
    }
    int width = options.size.width();
    int height = options.size.height();
    if (parser.isSet(widthOption) &&
        !parseSide(parser.value(widthOption), ProgramPlot::MinWidth, width))
        return ToolOutput::usageError(command,
                                      QStringLiteral("--width needs a number from %1 to %2")
                                          .arg(ProgramPlot::MinWidth)
                                          .arg(MaxSide));
    if (parser.isSet(heightOption) &&
        !parseSide(parser.value(heightOption), ProgramPlot::MinHeight, height))
        return ToolOutput::usageError(command,
                                      QStringLiteral("--height needs a number from %1 to %2")
                                          .arg(ProgramPlot::MinHeight)
                                          .arg(MaxSide));
    options.size = QSize(width, height);

    ProgramFile file;
    if (!loadProgramFile(parser.positionalArguments().first(), file, error))
        return ToolOutput::error(command, error, 2);
    ProgramPlot::Program program = ProgramPlot::buildProgram(file.rows);
    markRefused(program, file.rows, params);

    options.title = QFileInfo(file.displayName()).fileName();
    const QString tag = file.rows.isEmpty()
                            ? QString()
                            : file.rows.first().value(SegmentCodec::ColumnCount - 1).trimmed();
    if (!tag.isEmpty() && tag != QLatin1String("----"))
        options.title += QStringLiteral("  [%1]").arg(tag);
    options.title += QStringLiteral("  %1, %2 h:mm")
                         .arg(ToolOutput::count(program.segments.size(), QStringLiteral("segment")))
                         .arg(ProgramPlot::hoursMinutes(program.totalMinutes()));
    const QString unlabeled = unlabeledNote(program, options);
    if (!unlabeled.isEmpty())
        program.notes << unlabeled;
    for (const QString& note : program.notes)
        ToolOutput::note(command, note);

    if (!writePicture(program, options, output, suffix == QLatin1String("png"), error))
        return ToolOutput::error(command, error, 1);
    if (!toStdout)
        ToolOutput::info(
            QStringLiteral("plot: wrote %1 (%2 x %3)").arg(output).arg(width).arg(height));
    return 0;
}

const SubcommandRegistration registration{Subcommand{
    QStringLiteral("plot"), QStringLiteral("draw a program file as a PNG or SVG picture"),
    QString::fromLatin1(Usage), runPlot, /*paints=*/true}};

} // namespace

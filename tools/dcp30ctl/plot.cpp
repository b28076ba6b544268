// dcp30ctl plot: a picture of a program file, setpoint against time, as a
// PNG or an SVG. Runs headless (offscreen platform).
#include "programfile.h"
#include "programplot.h"
#include "subcommand.h"

#include "driver/segmentcodec.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QTextStream>

namespace
{

constexpr int MaxSide = 10000;

const char Usage[] =
    "usage: dcp30ctl plot FILE -o OUT.png|OUT.svg [--sp-limits LO,HI] [--width W]\n"
    "                    [--height H]\n"
    "\n"
    "Draws the program of the program file FILE: SP1 against time, segments marked\n"
    "by dotted lines and numbered above the curve, the time axis in hours and\n"
    "minutes from the program's start, and the time events T1..T5 as bars below the\n"
    "curve. Each segment ramps from the previous segment's SP1 to its own SP1 over\n"
    "its TIME; segment 1 starts at its own SP1, so it is flat. Time events count\n"
    "from the start of their segment and end at its end when their OFF time is\n"
    "\"----\". Values are the controller's raw integers. Cells that cannot be used\n"
    "are skipped, each with a note on standard error.\n"
    "\n"
    "  -o, --output OUT      the picture; its suffix (.png or .svg) chooses the format\n"
    "  --sp-limits LO,HI     draw the controller's SP1 limits; the setpoint axis then\n"
    "                        spans them. Without it the axis spans the program.\n"
    "  --width W, --height H picture size in pixels (default 1200 x 700; at least\n"
    "                        320 x 240, at most 10000 x 10000)\n"
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

int runPlot(const QStringList& args)
{
    QTextStream err(stderr);
    QCommandLineParser parser;
    const QCommandLineOption outputOption({QStringLiteral("o"), QStringLiteral("output")},
                                          QString(), QStringLiteral("OUT"));
    const QCommandLineOption limitsOption(QStringLiteral("sp-limits"), QString(),
                                          QStringLiteral("LO,HI"));
    const QCommandLineOption widthOption(QStringLiteral("width"), QString(), QStringLiteral("W"));
    const QCommandLineOption heightOption(QStringLiteral("height"), QString(), QStringLiteral("H"));
    parser.addOptions({outputOption, limitsOption, widthOption, heightOption});
    auto usageError = [&](const QString& message) {
        err << "dcp30ctl plot: " << message << "\n(see 'dcp30ctl plot --help')\n";
        return 2;
    };
    if (!parser.parse(QStringList{QStringLiteral("plot")} + args))
        return usageError(parser.errorText());
    if (parser.positionalArguments().size() != 1)
        return usageError(QStringLiteral("needs exactly one program file"));
    if (!parser.isSet(outputOption))
        return usageError(QStringLiteral("needs -o OUT.png or -o OUT.svg"));
    const QString output = parser.value(outputOption);
    const QString suffix = QFileInfo(output).suffix().toLower();
    if (suffix != QLatin1String("png") && suffix != QLatin1String("svg"))
        return usageError(QStringLiteral("the output must end in .png or .svg"));

    ProgramPlot::Options options;
    if (parser.isSet(limitsOption)) {
        if (!parseSetpointLimits(parser.value(limitsOption), options.spLow, options.spHigh))
            return usageError(QStringLiteral("--sp-limits needs LO,HI with LO <= HI"));
        options.limitsKnown = true;
    }
    int width = options.size.width();
    int height = options.size.height();
    if (parser.isSet(widthOption) &&
        !parseSide(parser.value(widthOption), ProgramPlot::MinWidth, width))
        return usageError(QStringLiteral("--width needs a number from %1 to %2")
                              .arg(ProgramPlot::MinWidth)
                              .arg(MaxSide));
    if (parser.isSet(heightOption) &&
        !parseSide(parser.value(heightOption), ProgramPlot::MinHeight, height))
        return usageError(QStringLiteral("--height needs a number from %1 to %2")
                              .arg(ProgramPlot::MinHeight)
                              .arg(MaxSide));
    options.size = QSize(width, height);

    ProgramFile file;
    QString error;
    if (!loadProgramFile(parser.positionalArguments().first(), file, error)) {
        err << "dcp30ctl plot: " << error << '\n';
        return 2;
    }
    const ProgramPlot::Program program = ProgramPlot::buildProgram(file.rows);
    for (const QString& note : program.notes)
        err << "dcp30ctl plot: note: " << note << '\n';

    options.title = QFileInfo(file.path).fileName();
    const QString tag = file.rows.isEmpty()
                            ? QString()
                            : file.rows.first().value(SegmentCodec::ColumnCount - 1).trimmed();
    if (!tag.isEmpty() && tag != QLatin1String("----"))
        options.title += QStringLiteral("  [%1]").arg(tag);
    options.title += QStringLiteral("  %1 segments, %2 h:mm")
                         .arg(program.segments.size())
                         .arg(ProgramPlot::hoursMinutes(program.totalMinutes()));

    const bool written = suffix == QLatin1String("png")
                             ? ProgramPlot::writePng(program, options, output, error)
                             : ProgramPlot::writeSvg(program, options, output, error);
    if (!written) {
        err << "dcp30ctl plot: " << error << '\n';
        return 1;
    }
    QTextStream(stdout) << "plot: wrote " << output << " (" << width << " x " << height << ")\n";
    return 0;
}

const SubcommandRegistration registration{Subcommand{
    QStringLiteral("plot"), QStringLiteral("draw a program file as a PNG or SVG picture"),
    QString::fromLatin1(Usage), runPlot, /*paints=*/true}};

} // namespace

// dcp30ctl check, show, compare and plot, run as a user runs them, plus the
// plot's model and pixels in-process.
#include <QtTest>

#include "sim/programstore.h"
#include "toolfilessupport.h"
#include "tools/dcp30ctl/programplot.h"

#include <QSvgRenderer>

using namespace tooltest;

namespace
{

struct Edit {
    int segment;
    int column;
    QString text;
};

QList<QStringList> edited(QList<QStringList> rows, const QList<Edit>& edits)
{
    for (const Edit& e : edits)
        rows[e.segment - 1][e.column] = e.text;
    return rows;
}

QString formatError(int segment, const QStringList& messages)
{
    QString text = QStringLiteral("\n\tSegment %1 has following format error : ").arg(segment);
    for (const QString& m : messages)
        text += QStringLiteral("\n\t\t") + m;
    return text;
}

const QString NoDataToWrite = QStringLiteral(
    "\nThere is no data to write out. Maybe the format of all segments are incorrect.");

// Program `program` of the simulator's samples as a table of rows.
QList<QStringList> sampleProgram(int program)
{
    const ProgramStore store = ProgramStore::samples();
    QList<QStringList> rows;
    for (int s = 1; s <= store.segmentCount(program); ++s)
        rows << SegmentCodec::recordToRow(s, QString::fromLatin1(store.segment(program, s)));
    return rows;
}

// The bytes the panel's saver writes: UTF-16LE after a byte-order mark.
QByteArray utf16(const QString& text)
{
    QByteArray bytes("\xFF\xFE", 2);
    for (const QChar c : text)
        bytes.append(char(c.unicode() & 0xFF)).append(char(c.unicode() >> 8));
    return bytes;
}

bool isCurveColour(QRgb pixel)
{
    const QColor c(pixel);
    const QColor want = ProgramPlot::curveColor();
    return qAbs(c.red() - want.red()) < 40 && qAbs(c.green() - want.green()) < 40 &&
           qAbs(c.blue() - want.blue()) < 40;
}

int curvePixels(const QImage& image)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            count += isCurveColour(image.pixel(x, y)) ? 1 : 0;
    return count;
}

} // namespace

class TestToolFiles : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void badInput_data();
    void badInput();
    void check_data();
    void check();
    void showAlignsEveryCell();
    void compare_data();
    void compare();
    void plotSample_data();
    void plotSample();
    void plotCurvePixels();
    void plotNotesAndUsage_data();
    void plotNotesAndUsage();
    void buildProgram_data();
    void buildProgram();

private:
    QTemporaryDir dir;
    QString good;
};

void TestToolFiles::initTestCase()
{
    QVERIFY(dir.isValid());
    QVERIFY2(QFileInfo(toolPath()).isExecutable(), qPrintable(toolPath()));
    good = writeProgram(dir, QStringLiteral("PROG_1.txt"), validRows(3));
    QVERIFY(!good.isEmpty());
}

void TestToolFiles::badInput_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("reason");

    const QByteArray binary = QByteArray::fromHex("89504e470d0a1a0a0000000d49484452") +
                              QByteArray(200, '\x01') + QByteArray(200, '\0');
    const QByteArray foreign = utf16(QStringLiteral("name\tvalue\tunit\nspeed\t3\tm/s\n"));
    const QByteArray headerOnly = utf16(QStringLiteral("-\tSP1"));
    const QByteArray openQuote = utf16(QStringLiteral("-\tSP1\tTIME\nSEG1\t\"200\t1:00\n"));
    struct Case {
        const char* name;
        QByteArray bytes; // a null array: no file at all; "dir": a directory
        const char* reason;
    } cases[] = {
        {"missing", QByteArray(), "no such file"},
        {"empty", QByteArray(""), "the file is empty"},
        {"bom only", QByteArray("\xFF\xFE", 2), "the file is empty"},
        {"binary", binary, "binary data, not a program file"},
        {"8-bit text", QByteArray("-,SP1,TIME\nSEG1,200,01:00\n"),
         "without a UTF-16 byte-order mark"},
        {"other table", foreign, "not a program file"},
        {"header only", headerOnly, "cannot be loaded: No content found in the imported file."},
        {"open quote", openQuote, "cannot be loaded: Format error at line 3"},
        {"directory", QByteArray("dir"), "is a directory"},
    };
    for (const char* command : {"check", "show", "compare", "plot"}) {
        for (const Case& c : cases)
            QTest::addRow("%s %s", command, c.name)
                << QString::fromLatin1(command) << QString::fromLatin1(c.name) << c.bytes
                << QString::fromLatin1(c.reason);
    }
}

// A clear one-line error on stderr, nothing on stdout, exit status 2, no
// output file, and never a crash or a dialog (a dialog would hang the run).
void TestToolFiles::badInput()
{
    QFETCH(QString, command);
    QFETCH(QString, name);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, reason);

    const QString path = dir.filePath(QStringLiteral("bad-%1-%2").arg(command, name));
    if (bytes == "dir") {
        QVERIFY(QDir().mkpath(path));
    } else if (!bytes.isNull()) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    QStringList args{command, path};
    const QString picture = dir.filePath(QStringLiteral("bad-%1.png").arg(name));
    if (command == QLatin1String("compare"))
        args << good;
    if (command == QLatin1String("plot"))
        args << QStringLiteral("-o") << picture;

    const ToolRun run = runTool(args);
    QVERIFY(!run.crashed);
    QCOMPARE(run.exitCode, 2);
    QCOMPARE(run.out, QString());
    QCOMPARE(run.err.count(QLatin1Char('\n')), 1);
    QVERIFY2(run.err.startsWith(QStringLiteral("dcp30ctl %1: %2: ").arg(command, path)),
             qPrintable(run.err));
    QVERIFY2(run.err.contains(reason), qPrintable(run.err));
    QVERIFY(!QFile::exists(picture));
}

void TestToolFiles::check_data()
{
    QTest::addColumn<QList<QStringList>>("rows");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QStringList>("warnings");
    QTest::addColumn<QString>("log");
    QTest::addColumn<int>("written");
    QTest::addColumn<int>("requested");

    const QList<QStringList> three = validRows(3);
    QTest::newRow("all valid") << three << QStringList() << QStringList() << QString() << 3 << 3;
    QTest::newRow("PV event above 9999")
        << edited(three, {{2, Ev1First, "10000"}}) << QStringList() << QStringList()
        << formatError(2, {"In case of PV type event; EV1 1st [10000] is out of range "
                           "(-1999 ~ 9999)."})
        << 2 << 3;
    QTest::newRow("deviation event below 0")
        << edited(three, {{1, Ev2First, "-1"}}) << QStringList() << QStringList()
        << formatError(1, {"In case of absolute value deviation event; EV2 1st [-1] is out of "
                           "range (0 ~ 9999)."})
        << 2 << 3;
    QTest::newRow("MV/MFB event below -100")
        << edited(three, {{1, Ev1First, "-101"}}) << QStringList{"--event-kinds", "8,4,50"}
        << QStringList()
        << formatError(1, {"In case of MV/MFB event; EV1 1st [-101] is out of range (-100 ~ "
                           "1100)."})
        << 2 << 3;
    QTest::newRow("event of no kind above 5999")
        << edited(three, {{3, Ev3First, "6000"}}) << QStringList{"--event-kinds", "0,4,7"}
        << QStringList() << formatError(3, {" EV3 1st [6000] is out of range (0 ~ 5999)."}) << 2
        << 3;
    QTest::newRow("time event not ascending")
        << edited(three, {{2, Ev3First, "100"}, {2, Ev3Second, "100"}}) << QStringList()
        << QStringList()
        << formatError(2, {"In case of time event;  The value of EV3 2nd must be bigger than the "
                           "value of EV3 1st."})
        << 2 << 3;
    QTest::newRow("time event 5999 with an off time")
        << edited(three, {{2, Ev3Second, "0"}}) << QStringList() << QStringList()
        << formatError(2, {"In case of time event; The value of EV3 2nd must be [----] when the "
                           "value of EV3 1st is 5999."})
        << 2 << 3;
    QTest::newRow("bad segment times, nothing left to write")
        << edited(three, {{1, Time, "1:xx"}, {2, Time, "90"}, {3, Time, "100:00"}}) << QStringList()
        << QStringList()
        << formatError(1, {"The format of TM's minute is incorrect."}) + "\n" +
               formatError(2, {"The format of TM is incorrect. There is no \":\" symbol."}) + "\n" +
               formatError(3, {"TIME [6000] is out of range (0 ~ 5999)."}) + "\n" + NoDataToWrite
        << 0 << 3;
    QTest::newRow("bad time-event cells")
        << edited(three, {{2, T1First, "1.x"}, {2, T2First, "2.00"}, {2, T2Second, "1.00"}})
        << QStringList() << QStringList()
        << formatError(2, {"The format of T1 1st is incorrect.",
                           "The value of T2 2nd must be bigger than the value of T2 1st."})
        << 2 << 3;
    QTest::newRow("bad tag")
        << edited(three, {{1, Tag, "ab{}"}}) << QStringList() << QStringList()
        << formatError(1, {"The each character of Tag can only be Numerics, Capital letters and "
                           "Symbols."})
        << 2 << 3;
    QList<QStringList> wide = three;
    wide[0] << "x";
    wide[2] << "y"
            << "z";
    QTest::newRow("too many cells")
        << wide << QStringList()
        << QStringList{"Line 2 is 1 columns more of header.", "Line 4 is 2 columns more of header."}
        << formatError(1, {"The number of cells is incorrect: found 26, required 25."}) + "\n" +
               formatError(3, {"The number of cells is incorrect: found 23, required 21."})
        << 1 << 3;
    QList<QStringList> narrow = three;
    narrow[1] = narrow[1].mid(0, 20);
    QTest::newRow("short row padded by the loader")
        << narrow << QStringList() << QStringList{"Line 3 is 6 columns short of header."}
        << formatError(2, {"The format of G.S. is incorrect.Maybe the negative symbol is not "
                           "ASCII code or the value is not number.",
                           "The format of G.S.TO is incorrect.Maybe the negative symbol is not "
                           "ASCII code or the value is not number."})
        << 2 << 3;
    QTest::newRow("missing rows") << validRows(2) << QStringList{"--segments", "4"} << QStringList()
                                  << QString(
                                         "Segment 3 has no data in the csv file. Please check it.\n"
                                         "Segment 4 has no data in the csv file. Please check it.")
                                  << 2 << 4;
    QTest::newRow("setpoint limits from the options")
        << edited(three, {{1, Sp1, "101"}, {2, Sp1, "100"}, {3, Sp1, "----"}})
        << QStringList{"--sp-limits", "0,100"} << QStringList()
        << formatError(1, {"SP1 [101] is out of range (0 ~ 100)."}) << 2 << 3;
    QTest::newRow("rows after the requested segments ignored")
        << edited(three, {{3, Sp1, "x"}}) << QStringList{"--segments", "2"} << QStringList()
        << QString() << 2 << 2;
}

void TestToolFiles::check()
{
    QFETCH(QList<QStringList>, rows);
    QFETCH(QStringList, options);
    QFETCH(QStringList, warnings);
    QFETCH(QString, log);
    QFETCH(int, written);
    QFETCH(int, requested);

    const QString path = writeProgram(dir, QStringLiteral("check.txt"), rows);
    QVERIFY(!path.isEmpty());
    const ToolRun run = runTool(QStringList{"check", path} + options);
    QVERIFY(!run.crashed);
    QStringList shownWarnings;
    QString summary;
    QCOMPARE(checkLogPart(run.out, &shownWarnings, &summary), log);
    QCOMPARE(shownWarnings, warnings);
    QVERIFY2(summary.startsWith(QStringLiteral("check: %1 of %2 segments would be written")
                                    .arg(written)
                                    .arg(requested)),
             qPrintable(summary));
    QCOMPARE(run.exitCode, written == requested ? 0 : 1);
    QCOMPARE(run.err, QString());
}

// Every cell of the file comes back from the columns of the printed groups,
// no line is wider than 100 characters and each group leads with the label.
void TestToolFiles::showAlignsEveryCell()
{
    QList<QStringList> rows = validRows(12);
    rows[4][GuaranteedSoak] = QString();
    rows[7][T3Second] = QStringLiteral("12.34");
    const QString path = writeProgram(dir, QStringLiteral("show.txt"), rows);
    const ToolRun run = runTool({"show", path});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.err, QString());

    const QStringList lines = run.out.split(QLatin1Char('\n'));
    QCOMPARE(lines.first(), path + QStringLiteral(": 12 segments"));
    QVector<QStringList> table(13); // header and 12 segments, cells as shown
    int groups = 0;
    for (int i = 1; i < lines.size(); ++i) {
        QVERIFY2(lines.at(i).size() <= 100, qPrintable(lines.at(i)));
        if (!lines.at(i).isEmpty() || i + 13 >= lines.size())
            continue;
        // A group: the header line, then one line per segment.
        ++groups;
        const QString header = lines.at(i + 1);
        QVector<int> starts;
        static const QRegularExpression gap(QStringLiteral("\\S+( \\S+)*"));
        auto it = gap.globalMatch(header);
        while (it.hasNext())
            starts << int(it.next().capturedStart());
        starts << 1000;
        for (int r = 0; r < 13; ++r) {
            const QString line = lines.at(i + 1 + r);
            QCOMPARE(line.mid(0, starts.at(1)).trimmed(),
                     r == 0 ? QStringLiteral("-") : QStringLiteral("SEG%1").arg(r));
            for (int c = 1; c + 1 < starts.size(); ++c)
                table[r] << line.mid(starts.at(c), starts.at(c + 1) - starts.at(c)).trimmed();
        }
        i += 13;
    }
    QVERIFY(groups >= 2);
    QStringList expectedHeader = SegmentCodec::headerRow().mid(1);
    QCOMPARE(table.at(0), expectedHeader);
    for (int s = 1; s <= 12; ++s) {
        QStringList expected = rows.at(s - 1).mid(1);
        for (QString& cell : expected) {
            if (cell.isEmpty() || cell.endsWith(QLatin1Char(' ')))
                cell = QLatin1Char('"') + cell + QLatin1Char('"');
        }
        QCOMPARE(table.at(s), expected);
    }
    QCOMPARE(table.at(1).last(), QStringLiteral("\"TAG1    \""));
    QCOMPARE(table.at(5).at(GuaranteedSoak - 1), QStringLiteral("\"\""));
}

void TestToolFiles::compare_data()
{
    QTest::addColumn<QList<QStringList>>("other");
    QTest::addColumn<QStringList>("otherHeader");
    QTest::addColumn<QStringList>("warnings");
    QTest::addColumn<QStringList>("differences");

    const QList<QStringList> three = validRows(3);
    const QStringList header = SegmentCodec::headerRow();
    QTest::newRow("equal") << three << header << QStringList() << QStringList();
    QTest::newRow("setpoint") << edited(three, {{2, Sp1, "201"}}) << header << QStringList()
                              << QStringList{"segment 2, SP1: A \"200\", B \"201\""};
    QTest::newRow("same number, other spelling")
        << edited(three, {{3, Pid, "01"}}) << header << QStringList()
        << QStringList{"segment 3, PID1: A \"1\", B \"01\""};
    QTest::newRow("blank at the end of the tag")
        << edited(three, {{1, Tag, "TAG1   "}}) << header << QStringList()
        << QStringList{"segment 1, Tag: A \"TAG1    \", B \"TAG1   \""};
    QTest::newRow("time without its zero")
        << edited(three, {{2, Time, "1:00"}}) << header << QStringList()
        << QStringList{"segment 2, TIME: A \"01:00\", B \"1:00\""};
    QTest::newRow("row only in B")
        << validRows(4) << header << QStringList() << QStringList{"segment 4: only in B"};
    QTest::newRow("row only in A")
        << validRows(2) << header << QStringList() << QStringList{"segment 3: only in A"};
    QList<QStringList> wide = three;
    wide[1] << "x";
    QTest::newRow("cell only in B")
        << wide << header << QStringList{"B: Line 3 is 1 columns more of header."}
        << QStringList{"segment 2, column 27: A (no cell), B \"x\""};
    QStringList otherHeader = header;
    otherHeader[Sp1] = QStringLiteral("SP 1");
    QTest::newRow("header") << three << otherHeader << QStringList()
                            << QStringList{"header, SP1: A \"SP1\", B \"SP 1\""};
}

void TestToolFiles::compare()
{
    QFETCH(QList<QStringList>, other);
    QFETCH(QStringList, otherHeader);
    QFETCH(QStringList, warnings);
    QFETCH(QStringList, differences);

    QList<QStringList> table{otherHeader};
    table << other;
    const QString b = dir.filePath(QStringLiteral("compare-b.txt"));
    QVERIFY(KCSVSaver(nullptr).saveFile(table, b));

    const ToolRun run = runTool({"compare", good, b});
    QVERIFY(!run.crashed);
    QCOMPARE(run.err, QString());
    QStringList lines = run.out.split(QLatin1Char('\n'));
    QCOMPARE(lines.takeLast(), QString());
    QStringList shownWarnings;
    while (lines.first().startsWith(QLatin1String("Warning: ")))
        shownWarnings << lines.takeFirst().mid(9);
    QCOMPARE(shownWarnings, warnings);
    QCOMPARE(lines.takeFirst(), QStringLiteral("A: ") + good);
    QCOMPARE(lines.takeFirst(), QStringLiteral("B: ") + b);
    const QString last = lines.takeLast();
    QCOMPARE(lines, differences);
    if (differences.isEmpty()) {
        QCOMPARE(last, QStringLiteral("equal: 3 segments"));
        QCOMPARE(run.exitCode, 0);
    } else {
        QCOMPARE(last, QStringLiteral("%1 difference%2")
                           .arg(differences.size())
                           .arg(differences.size() == 1 ? "" : "s"));
        QCOMPARE(run.exitCode, 1);
    }
}

void TestToolFiles::plotSample_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<QStringList>("sizeOptions");
    QTest::addColumn<QSize>("size");

    for (const char* suffix : {"png", "svg"}) {
        QTest::addRow("%s default size", suffix)
            << QString::fromLatin1(suffix) << QStringList() << QSize(1200, 700);
        QTest::addRow("%s 640 x 400", suffix)
            << QString::fromLatin1(suffix) << QStringList{"--width", "640", "--height", "400"}
            << QSize(640, 400);
    }
}

void TestToolFiles::plotSample()
{
    QFETCH(QString, suffix);
    QFETCH(QStringList, sizeOptions);
    QFETCH(QSize, size);

    const QString program = writeProgram(dir, QStringLiteral("PROG_3.txt"), sampleProgram(3));
    const QString picture = dir.filePath(QStringLiteral("sample.") + suffix);
    QFile::remove(picture);
    const ToolRun run = runTool(
        QStringList{"plot", program, "-o", picture, "--sp-limits", "-1999,9999"} + sizeOptions);
    QVERIFY(!run.crashed);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.err, QString()); // a valid program leaves no notes

    if (suffix == QLatin1String("png")) {
        QImage image;
        QVERIFY(image.load(picture, "PNG"));
        QCOMPARE(image.size(), size);
        // 30 segments of curve, several pixels thick.
        QVERIFY2(curvePixels(image) > size.width(),
                 qPrintable(QString::number(curvePixels(image))));
    } else {
        QSvgRenderer renderer(picture);
        QVERIFY(renderer.isValid());
        QCOMPARE(renderer.viewBox(), QRect(QPoint(0, 0), size));
        QFile file(picture);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray svg = file.readAll();
        QVERIFY(svg.contains("<title>PROG_3.txt"));
        QVERIFY(svg.contains("stroke=\"" + ProgramPlot::curveColor().name().toLatin1() + "\""));
        QVERIFY(svg.contains(">SP1</text>"));
    }
}

// A soak at 100 for an hour, then a ramp to 300 over the next hour: the
// curve's pixels lie on the soak's row and on the ramp's line, and not on
// the rows a wrongly drawn curve would use.
void TestToolFiles::plotCurvePixels()
{
    const QList<QStringList> rows{validRow(1, "100", "01:00"), validRow(2, "300", "01:00")};
    const QString program = writeProgram(dir, QStringLiteral("two.txt"), rows);
    const QString picture = dir.filePath(QStringLiteral("two.png"));
    const ToolRun run = runTool({"plot", program, "-o", picture, "--sp-limits", "0,400", "--width",
                                 "800", "--height", "500"});
    QCOMPARE(run.exitCode, 0);
    QImage image;
    QVERIFY(image.load(picture));
    QCOMPARE(image.size(), QSize(800, 500));

    ProgramPlot::Options options;
    options.size = QSize(800, 500);
    options.limitsKnown = true;
    options.spLow = 0;
    options.spHigh = 400;
    const ProgramPlot::Layout layout(ProgramPlot::buildProgram(rows), options);
    QVERIFY(layout.y(300) < layout.y(100));
    QVERIFY(layout.x(120) > layout.x(60));

    auto pixelAt = [&](double minutes, double setpoint) {
        const QPointF p = layout.map(minutes, setpoint);
        return image.pixel(qRound(p.x() - 0.5), qRound(p.y() - 0.5));
    };
    for (const QPointF& onCurve :
         {QPointF(10, 100), QPointF(30, 100), QPointF(55, 100), QPointF(75, 150), QPointF(90, 200),
          QPointF(105, 250), QPointF(115, 283.3)})
        QVERIFY2(isCurveColour(pixelAt(onCurve.x(), onCurve.y())),
                 qPrintable(QStringLiteral("%1 min, SP %2").arg(onCurve.x()).arg(onCurve.y())));
    for (const QPointF& offCurve :
         {QPointF(30, 300), QPointF(30, 150), QPointF(90, 100), QPointF(90, 300), QPointF(10, 200)})
        QVERIFY2(!isCurveColour(pixelAt(offCurve.x(), offCurve.y())),
                 qPrintable(QStringLiteral("%1 min, SP %2").arg(offCurve.x()).arg(offCurve.y())));
}

void TestToolFiles::plotNotesAndUsage_data()
{
    QTest::addColumn<QList<QStringList>>("rows");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("err");

    const QList<QStringList> two{validRow(1, "100", "01:00"), validRow(2, "300", "01:00")};
    QTest::newRow("unusable SP1 noted, picture written")
        << edited(two, {{2, Sp1, "abc"}}) << QStringList{"-o", "%1.png"} << 0
        << "dcp30ctl plot: note: segment 2, SP1 \"abc\" is no number; the previous setpoint is "
           "held\n";
    QTest::newRow("unusable TIME noted")
        << edited(two, {{1, Time, "x"}}) << QStringList{"-o", "%1.svg"} << 0
        << "dcp30ctl plot: note: segment 1, TIME \"x\" is not h:mm; the segment is drawn without "
           "duration\n";
    QTest::newRow("no output") << two << QStringList() << 2
                               << "dcp30ctl plot: needs -o OUT.png or -o OUT.svg\n"
                                  "(see 'dcp30ctl plot --help')\n";
    QTest::newRow("unknown format") << two << QStringList{"-o", "%1.jpg"} << 2
                                    << "dcp30ctl plot: the output must end in .png or .svg\n"
                                       "(see 'dcp30ctl plot --help')\n";
    QTest::newRow("too small") << two << QStringList{"-o", "%1.png", "--width", "100"} << 2
                               << "dcp30ctl plot: --width needs a number from 320 to 10000\n"
                                  "(see 'dcp30ctl plot --help')\n";
    QTest::newRow("limits reversed")
        << two << QStringList{"-o", "%1.png", "--sp-limits", "5,1"} << 2
        << "dcp30ctl plot: --sp-limits needs LO,HI with LO <= HI\n"
           "(see 'dcp30ctl plot --help')\n";
    QTest::newRow("unwritable output")
        << two << QStringList{"-o", "/nonexistent-dir/x.png"} << 1
        << "dcp30ctl plot: /nonexistent-dir/x.png: cannot be written";
}

void TestToolFiles::plotNotesAndUsage()
{
    QFETCH(QList<QStringList>, rows);
    QFETCH(QStringList, options);
    QFETCH(int, exitCode);
    QFETCH(QString, err);

    const QString program = writeProgram(dir, QStringLiteral("notes.txt"), rows);
    const QString base =
        dir.filePath(QString::fromLatin1(QTest::currentDataTag()).replace(' ', '-'));
    for (QString& o : options)
        o.replace(QLatin1String("%1"), base);
    const ToolRun run = runTool(QStringList{"plot", program} + options);
    QVERIFY(!run.crashed);
    QCOMPARE(run.exitCode, exitCode);
    QVERIFY2(run.err.startsWith(err), qPrintable(run.err));
    if (exitCode == 0) {
        QCOMPARE(run.err, err);
        QVERIFY(QFileInfo(options.at(1)).size() > 0);
    } else {
        QCOMPARE(run.out, QString());
    }
}

void TestToolFiles::buildProgram_data()
{
    QTest::addColumn<QList<QStringList>>("rows");
    QTest::addColumn<QStringList>("spans"); // "start-end:from>to", "start-end:none"
    QTest::addColumn<QStringList>("bars");  // "T<n>:start-end"
    QTest::addColumn<int>("notes");

    auto clearEvents = [](QStringList row) {
        for (int c = T1First; c < Pid; ++c)
            row[c] = QStringLiteral("----");
        return row;
    };
    const QStringList soak = clearEvents(validRow(1, "100", "01:00"));
    const QStringList ramp = clearEvents(validRow(2, "300", "00:30"));
    QTest::newRow("first segment flat, then a ramp")
        << QList<QStringList>{soak, ramp} << QStringList{"0-60:100>100", "60-90:100>300"}
        << QStringList() << 0;
    QTest::newRow("first usable setpoint starts flat")
        << edited({soak, ramp}, {{1, Sp1, "abc"}}) << QStringList{"0-60:none", "60-90:300>300"}
        << QStringList() << 1;
    QTest::newRow("unset setpoint holds the previous one")
        << edited({soak, ramp, clearEvents(validRow(3, "50", "01:00"))}, {{2, Sp1, "----"}})
        << QStringList{"0-60:100>100", "60-90:100>100", "90-150:100>50"} << QStringList() << 1;
    QTest::newRow("unusable times last no time")
        << edited({soak, ramp}, {{1, Time, "1:xx"}, {2, Time, "100:00"}})
        << QStringList{"0-0:100>100", "0-0:100>300"} << QStringList() << 2;
    QStringList events = soak;
    events[T1First] = "0.10";
    events[T1First + 1] = "0.40";
    events[T2First] = "0.30";     // stays on to the segment's end
    events[T2First + 2] = "0.50"; // T3 clipped at the end
    events[T2First + 3] = "1.30";
    events[T2First + 4] = "2.00"; // T4 never inside the segment
    events[T2First + 6] = "0.40"; // T5 off before on
    events[T2First + 7] = "0.20";
    QStringList second = ramp;
    second[T1First] = "0.10";
    second[T1First + 1] = "0.20";
    second[T2First] = "x";
    QTest::newRow("time events from each segment's start")
        << QList<QStringList>{events, second} << QStringList{"0-60:100>100", "60-90:100>300"}
        << QStringList{"T1:10-40", "T2:30-60", "T3:50-60", "T1:70-80"} << 2;
    QTest::newRow("label only") << QList<QStringList>{{"SEG1"}} << QStringList{"0-0:none"}
                                << QStringList() << 7;
}

void TestToolFiles::buildProgram()
{
    QFETCH(QList<QStringList>, rows);
    QFETCH(QStringList, spans);
    QFETCH(QStringList, bars);
    QFETCH(int, notes);

    const ProgramPlot::Program program = ProgramPlot::buildProgram(rows);
    QStringList shownSpans;
    for (const ProgramPlot::SegmentSpan& s : program.segments)
        shownSpans
            << (s.drawn
                    ? QStringLiteral("%1-%2:%3>%4").arg(s.start).arg(s.end).arg(s.from).arg(s.to)
                    : QStringLiteral("%1-%2:none").arg(s.start).arg(s.end));
    QStringList shownBars;
    for (const ProgramPlot::EventBar& b : program.bars)
        shownBars << QStringLiteral("T%1:%2-%3").arg(b.event).arg(b.start).arg(b.end);
    QCOMPARE(shownSpans, spans);
    QCOMPARE(shownBars, bars);
    QCOMPARE(program.notes.size(), notes);
}

// No GUI application: the CSV classes then never open a dialog, and the
// pictures are painted by the tool, not here.
QTEST_GUILESS_MAIN(TestToolFiles)

#include "tst_toolfiles.moc"

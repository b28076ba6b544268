// dcp30ctl check, show, compare and plot run as a user runs them, check held
// against the write log of a real write through the plug-in into the
// simulator; the plot's layout says where its pixels must be.
#include <QtTest>

#include "../e2e_support/e2eprocesses.h"
#include "csv/kcsvloader.h"
#include "driver/segmentcodec.h"
#include "tools/dcp30ctl/programplot.h"

#include <QSvgRenderer>

Q_DECLARE_METATYPE(QList<QStringList>)

namespace
{

// Positions in a segment row.
enum Column { Sp1 = 1, Time = 2, Ev1 = 3, Ev2 = 5, Ev3 = 7, T1 = 9, Pid = 19, Gs = 20, Tag = 25 };

// A row the write workflow accepts with SP1 limits -1999..9999 and event
// kinds 0,4,50: EV1 a PV alarm, EV2 a deviation, EV3 the time event "off".
QStringList validRow(int segment, const QString& sp = QStringLiteral("200"),
                     const QString& time = QStringLiteral("01:00"))
{
    const QString rest = QStringLiteral("900|----|50|----|5999|----|0.10|0.40|----|----|----|----|"
                                        "----|----|----|----|1|----|----|") +
                         (segment == 1 ? "0|1|0|TAG1    " : "----|----|----|----");
    return QStringList{QStringLiteral("SEG%1").arg(segment), sp, time} +
           rest.split(QLatin1Char('|'));
}

struct Edit {
    int segment;
    int column;
    QString text;
};

// Rows 1..count, valid but for the edits.
QList<QStringList> rows(int count, const QList<Edit>& edits = {})
{
    QList<QStringList> rows;
    for (int s = 1; s <= count; ++s)
        rows << validRow(s);
    for (const Edit& e : edits)
        rows[e.segment - 1][e.column] = e.text;
    return rows;
}

// Header plus rows, saved by the panel's saver (tab, UTF-16LE with BOM).
QString writeProgram(const QString& path, const QList<QStringList>& rows,
                     const QStringList& header = SegmentCodec::headerRow())
{
    return KCSVSaver(nullptr).saveFile(QList<QStringList>{header} + rows, path) ? path : QString();
}

// Run to its end without a crash or a hang (a dialog would hang it).
E2e::ToolRun runTool(const QStringList& args, int waitPercent = 0)
{
    const E2e::ToolRun run = E2e::runTool(args, waitPercent, 60000);
    if (!run.finished || run.status != QProcess::NormalExit)
        QTest::qFail(qPrintable(run.describe()), __FILE__, __LINE__);
    return run;
}

// The part of check's output that mirrors the write log: without the
// loader's warnings before it and the summary line after it.
QString checkLogPart(const QString& out, QStringList* warnings, QString* summary)
{
    QStringList lines = out.split(QLatin1Char('\n'));
    lines.removeLast(); // after the final line break
    while (!lines.isEmpty() && lines.first().startsWith(QLatin1String("Warning: ")))
        *warnings << lines.takeFirst().mid(9);
    *summary = lines.isEmpty() ? QString() : lines.takeLast();
    return lines.join(QLatin1Char('\n'));
}

} // namespace

class TestToolFiles : public QObject
{
    Q_OBJECT

    QTemporaryDir dir;
    QString good;

private slots:
    void initTestCase()
    {
#if defined(__SANITIZE_ADDRESS__)
        // Qt never frees the screen objects of the platform plug-in a painting
        // command loads; lsan.supp names its start-up, which only shows in
        // stacks unwound the slow way (Qt has no frame pointers).
        qputenv("ASAN_OPTIONS", qgetenv("ASAN_OPTIONS") + ":fast_unwind_on_malloc=0");
#endif
        QVERIFY(QFileInfo(E2e::toolPath()).isExecutable());
        good = writeProgram(dir.filePath(QStringLiteral("PROG_1.txt")), rows(3));
        QVERIFY(!good.isEmpty());
    }

    void badInput_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("bytes"); // null: no file; "dir": a directory
        QTest::addColumn<QString>("reason");
        const struct {
            const char* name;
            QByteArray bytes;
            const char* reason;
        } cases[] = {
            {"missing", QByteArray(), "no such file"},
            {"empty", QByteArray(""), "the file is empty"},
            {"bom only", QByteArray("\xFF\xFE", 2), "the file is empty"},
            {"binary",
             QByteArray::fromHex("89504e470d0a1a0a0000000d49484452") + QByteArray(99, '\0'),
             "binary data, not a program file"},
            {"8-bit text", "-,SP1,TIME\nSEG1,200,01:00\n", "without a UTF-16 byte-order mark"},
            {"other table", E2e::utf16File("name\tvalue\tunit\nspeed\t3\tm/s\n"),
             "not a program file"},
            {"open quote", E2e::utf16File("-\tSP1\tTIME\nSEG1\t\"200\t1:00\n"),
             "cannot be loaded: Format error at line 3"},
            {"directory", "dir", "is a directory"},
        };
        // Every command loads through the same function: check meets every
        // case, the others one refused before and one refused by the loader.
        for (const char* command : {"check", "show", "compare", "plot"})
            for (const auto& c : cases)
                if (!qstrcmp(command, "check") || !qstrcmp(c.name, "missing") ||
                    !qstrcmp(c.name, "open quote"))
                    QTest::addRow("%s %s", command, c.name)
                        << QString::fromLatin1(command) << QString::fromLatin1(c.name) << c.bytes
                        << QString::fromLatin1(c.reason);
    }
    // One line on stderr saying why, nothing on stdout, exit status 2, no
    // picture.
    void badInput()
    {
        QFETCH(QString, command);
        QFETCH(QString, name);
        QFETCH(QByteArray, bytes);
        QFETCH(QString, reason);
        const QString path = dir.filePath(QStringLiteral("bad-%1-%2").arg(command, name));
        if (bytes == "dir")
            QVERIFY(QDir().mkpath(path));
        else if (!bytes.isNull())
            QVERIFY(E2e::writeFile(path, bytes));
        const QString picture = path + QStringLiteral(".png");
        QStringList args{command, path};
        if (command == QLatin1String("compare"))
            args << good;
        if (command == QLatin1String("plot"))
            args << "-o" << picture;

        const E2e::ToolRun run = runTool(args);
        QCOMPARE(run.exitCode, 2);
        QCOMPARE(run.out, QString());
        QCOMPARE(run.err.count(QLatin1Char('\n')), 1);
        QVERIFY2(run.err.startsWith(QStringLiteral("dcp30ctl %1: %2: ").arg(command, path)) &&
                     run.err.contains(reason),
                 qPrintable(run.err));
        QVERIFY(!QFile::exists(picture));
    }

    // check, its parameters read from the simulator through --port as the
    // driver reads them, then the same file written into the simulator: the
    // write log holds exactly the messages check printed.
    void checkMatchesWriteLog_data()
    {
        QTest::addColumn<QList<QStringList>>("rows");
        QTest::addColumn<QString>("limits");
        QTest::addColumn<QString>("kinds");
        QTest::addColumn<int>("segments");
        QTest::addColumn<QString>("summary");
        QTest::addColumn<QStringList>("warnings");

        QList<QStringList> mixed = rows(4, {{1, Tag, "ab{"},
                                            {1, Ev1, "10000"},
                                            {2, T1, "x"},
                                            {3, Time, "1:xx"},
                                            {3, T1 + 2, "2.00"},
                                            {3, T1 + 3, "1.00"},
                                            {4, Time, "90"}});
        mixed[3] << "extra";            // segment 4 also has a cell too many
        mixed[1] = mixed[1].mid(0, 20); // and segment 2 too few: padded by the loader
        QTest::newRow("PV event, tag, times, cells, missing rows")
            << mixed << "-1999,9999"
            << "0,4,50" << 6 << "0 of 6 segments would be written (%1)"
            << QStringList{"Line 3 is 6 columns short of header.",
                           "Line 5 is 1 columns more of header."};
        // A negative limit survives the double-word reads of check and driver.
        QTest::newRow("MV/MFB, deviation and kindless events, narrow limits")
            << rows(3, {{1, Sp1, "600"},
                        {1, Ev1, "-101"},
                        {2, Ev2, "-1"},
                        {2, Ev3, "6000"},
                        {3, Time, "100:00"}})
            << "-100,500"
            << "8,5,7" << 3 << "0 of 3 segments would be written (%1)" << QStringList();
        QTest::newRow("valid program, rows beyond the count ignored, no log")
            << rows(3, {{3, Sp1, "x"}}) << "-1999,9999"
            << "0,4,50" << 2
            << "2 of 2 segments would be written (%1; rows after segment 2 not checked)"
            << QStringList();
    }
    void checkMatchesWriteLog()
    {
        QFETCH(QList<QStringList>, rows);
        QFETCH(QString, limits);
        QFETCH(QString, kinds);
        QFETCH(int, segments);
        QFETCH(QString, summary);
        QTemporaryDir usb;
        const QString program = writeProgram(usb.filePath(QStringLiteral("PROG_1.txt")), rows);
        E2e::Simulator sim({"--baud", "0", "--sp-limits", limits, "--event-kinds", kinds});
        QVERIFY(sim.started());

        const E2e::ToolRun check = runTool(
            {"check", program, "--port", sim.device(), "--segments", QString::number(segments)});
        QStringList warnings;
        QString shownSummary;
        const QString checkLog = checkLogPart(check.out, &warnings, &shownSummary);
        QTEST(warnings, "warnings");
        // The parameters came from the simulator, not from the defaults.
        QCOMPARE(shownSummary,
                 "check: " + summary.arg(QStringLiteral("SP1 %1, event kinds %2 from "
                                                        "the controller")
                                             .arg(QString(limits).replace(',', ".."), kinds)));

        const E2e::ToolRun write =
            runTool(E2e::transferArgs("write", sim.device(), 1, segments, usb.path()), 10);
        const QString log =
            QString::fromUtf8(E2e::readFile(usb.filePath("WRITE_PROG_1_ERROR.txt")));
        QCOMPARE(log, checkLog.isEmpty() ? QString() : "Program 1:\n" + checkLog);
        QCOMPARE(write.exitCode, checkLog.isEmpty() ? 0 : 1);
        QCOMPARE(check.exitCode, checkLog.isEmpty() ? 0 : 1);
    }

    // Without --port: the parameters from the options, else the defaults.
    // (The messages before the summary are the write log's, compared above.)
    void checkParameters_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("summary");
        // SP1 101 is beyond 0..100, EV1 -101 beyond the range of an MV/MFB event.
        QTest::newRow("options")
            << QStringList{"--sp-limits", "0,100", "--event-kinds", "8,4,50"}
            << "1 of 3 segments would be written (SP1 0..100, event kinds 8,4,50 from options)";
        QTest::newRow("defaults") << QStringList()
                                  << "3 of 3 segments would be written (SP1 -1999..9999, event "
                                     "kinds 0,4,50 from defaults)";
    }
    void checkParameters()
    {
        QFETCH(QStringList, options);
        QFETCH(QString, summary);
        const QString path = writeProgram(
            dir.filePath(QStringLiteral("check.txt")),
            rows(3, {{1, Sp1, "101"}, {2, Sp1, "100"}, {3, Sp1, "0"}, {3, Ev1, "-101"}}));
        const E2e::ToolRun run = runTool(QStringList{"check", path} + options);
        QVERIFY2(run.out.endsWith("check: " + summary + '\n'), qPrintable(run.out));
        QCOMPARE(run.exitCode, summary.startsWith("3 of 3") ? 0 : 1);
        QCOMPARE(run.err, QString());
    }

    // Every cell comes back from the columns of the printed groups, no line is
    // wider than 100 characters and every group leads with the label.
    void showAlignsEveryCell()
    {
        QList<QStringList> shown = rows(12, {{5, Gs, QString()}});
        const QString path = writeProgram(dir.filePath(QStringLiteral("show.txt")), shown);
        const E2e::ToolRun run = runTool({"show", path});
        QCOMPARE(run.exitCode, 0);
        const QStringList lines = run.out.split(QLatin1Char('\n'));
        QCOMPARE(lines.first(), path + QStringLiteral(": 12 segments"));

        QVector<QStringList> table(13); // header and 12 segments, as shown
        int groups = 0;
        for (int i = 1; i + 13 < lines.size(); i += 14, ++groups) {
            QCOMPARE(lines.at(i), QString()); // a group: blank, header, 12 rows
            QVector<int> starts;              // column starts: titles are set two blanks apart
            auto title = QRegularExpression("\\S+( \\S+)*").globalMatch(lines.at(i + 1));
            while (title.hasNext())
                starts << title.next().capturedStart();
            starts << 1000;
            for (int r = 0; r < 13; ++r) {
                const QString line = lines.at(i + 1 + r);
                QVERIFY2(line.size() <= 100, qPrintable(line));
                QCOMPARE(line.left(starts.at(1)).trimmed(),
                         r ? QStringLiteral("SEG%1").arg(r) : "-");
                for (int c = 1; c + 1 < starts.size(); ++c)
                    table[r] << line.mid(starts.at(c), starts.at(c + 1) - starts.at(c)).trimmed();
            }
        }
        QVERIFY(groups >= 2);
        shown.prepend(SegmentCodec::headerRow());
        for (int r = 0; r <= 12; ++r) {
            QStringList expected = shown.at(r).mid(1);
            for (QString& cell : expected) // empty or blank-edged cells are quoted
                if (cell.isEmpty() || cell.endsWith(' '))
                    cell = '"' + cell + '"';
            QCOMPARE(table.at(r), expected);
        }
    }

    void compare_data()
    {
        QTest::addColumn<QList<QStringList>>("other");
        QTest::addColumn<QStringList>("lines"); // the warnings, then what follows "A:" and "B:"
        QList<QStringList> wide = rows(4);
        wide[1] << "x";
        QTest::newRow("equal") << rows(3) << QStringList{"equal: 3 segments"};
        QTest::newRow("same number, other spelling; blank less in the tag")
            << rows(3, {{3, Pid, "01"}, {1, Tag, "TAG1   "}})
            << QStringList{"segment 1, Tag: A \"TAG1    \", B \"TAG1   \"",
                           "segment 3, PID1: A \"1\", B \"01\"", "2 differences"};
        QTest::newRow("cell and row only in B")
            << wide
            << QStringList{"Warning: B: Line 3 is 1 columns more of header.",
                           "segment 2, column 27: A (no cell), B \"x\"", "segment 4: only in B",
                           "2 differences"};
    }
    void compare()
    {
        QFETCH(QList<QStringList>, other);
        QFETCH(QStringList, lines);
        const QString b = writeProgram(dir.filePath(QStringLiteral("compare-b.txt")), other);
        const E2e::ToolRun run = runTool({"compare", good, b});
        const QStringList warnings = lines.filter(QRegularExpression("^Warning: "));
        const QStringList files{"A: " + good, "B: " + b};
        QCOMPARE(run.out, (warnings + files + lines.mid(warnings.size())).join('\n') + '\n');
        QCOMPARE(run.exitCode, lines.size() == 1 ? 0 : 1);
    }

    // A soak at 100 for an hour, then a ramp to 300 over the next hour, as a
    // PNG of the default size and as an SVG of a chosen one: the curve's
    // pixels lie on the soak's row and on the ramp's line, T1's bar (10 to 40
    // minutes into each segment) in its lane, and none where a picture drawn
    // otherwise would put them.
    void plotTwoSegments()
    {
        const QList<QStringList> two{validRow(1, "100", "01:00"), validRow(2, "300", "01:00")};
        const QString program = writeProgram(dir.filePath(QStringLiteral("two.txt")), two);
        const QString png = dir.filePath(QStringLiteral("two.png"));
        const QString svg = dir.filePath(QStringLiteral("two.svg"));
        for (const QStringList& output :
             {QStringList{"-o", png},
              QStringList{"-o", svg, "--width", "640", "--height", "400"}}) {
            const E2e::ToolRun run =
                runTool(QStringList{"plot", program, "--sp-limits", "0,400"} + output);
            QCOMPARE(run.exitCode, 0);
            QCOMPARE(run.err, QString()); // a valid program leaves no notes
        }
        QSvgRenderer renderer(svg);
        QVERIFY(renderer.isValid());
        QCOMPARE(renderer.viewBox(), QRect(0, 0, 640, 400));
        QVERIFY(E2e::readFile(svg).contains("<title>two.txt"));

        QImage image;
        QVERIFY(image.load(png, "PNG"));
        QCOMPARE(image.size(), QSize(1200, 700));
        ProgramPlot::Options options;
        options.size = image.size();
        options.limitsKnown = true;
        options.spHigh = 400;
        const ProgramPlot::Layout layout(ProgramPlot::buildProgram(two), options);
        auto near = [&](QPointF p, const QColor& want) {
            const QColor c(image.pixel(int(p.x()), int(p.y())));
            return qAbs(c.red() - want.red()) < 40 && qAbs(c.green() - want.green()) < 40 &&
                   qAbs(c.blue() - want.blue()) < 40;
        };
        const QColor curve = ProgramPlot::curveColor();
        for (QPointF on : {QPointF(10, 100), QPointF(75, 150), QPointF(115, 283.3)})
            QVERIFY2(near(layout.map(on.x(), on.y()), curve), qPrintable(QString::number(on.x())));
        for (QPointF off : {QPointF(30, 300), QPointF(90, 100)})
            QVERIFY2(!near(layout.map(off.x(), off.y()), curve),
                     qPrintable(QString::number(off.x())));
        const auto bar = [&](int event, double minutes) {
            return near({layout.x(minutes), layout.eventLane(event).center().y()},
                        ProgramPlot::eventColor());
        };
        QVERIFY(bar(1, 25) && bar(1, 85) && !bar(1, 50) && !bar(2, 25));
    }

    void plotNotesAndUsage_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("err");
        QTest::newRow("unusable SP1 noted, picture written")
            << QStringList{"-o", "%1.png"} << 0
            << "dcp30ctl plot: note: segment 2, SP1 \"abc\" is no number; the previous setpoint is "
               "held\n";
        QTest::newRow("no output")
            << QStringList() << 2 << "dcp30ctl plot: needs -o OUT.png or -o OUT.svg\n";
        QTest::newRow("unwritable output")
            << QStringList{"-o", "/nonexistent-dir/x.png"} << 1
            << "dcp30ctl plot: /nonexistent-dir/x.png: cannot be written";
    }
    void plotNotesAndUsage()
    {
        QFETCH(QStringList, options);
        QFETCH(int, exitCode);
        QFETCH(QString, err);
        const QString program = writeProgram(dir.filePath(QStringLiteral("notes.txt")),
                                             {validRow(1, "100"), validRow(2, "abc")});
        options.replaceInStrings("%1", dir.filePath(QStringLiteral("notes")));
        const E2e::ToolRun run = runTool(QStringList{"plot", program} + options);
        QCOMPARE(run.exitCode, exitCode);
        QVERIFY2(run.err.contains(err), qPrintable(run.err));
        QCOMPARE(QFileInfo(options.value(1)).size() > 0, exitCode == 0);
    }
};

QTEST_GUILESS_MAIN(TestToolFiles)
#include "tst_toolfiles.moc"

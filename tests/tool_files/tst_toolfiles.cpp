// dcp30ctl check, show, compare and plot run as a user runs them, plus the
// plot's model in-process. The messages of check per fault kind are held
// against the real write log in tst_checkwritelog.cpp.
#include <QtTest>

#include "sim/programstore.h"
#include "toolfilessupport.h"
#include "tools/dcp30ctl/programplot.h"

#include <QSvgRenderer>

using namespace tooltest;

namespace
{

// UTF-16LE after a byte-order mark, as the panel's saver writes.
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

} // namespace

class TestToolFiles : public QObject
{
    Q_OBJECT

    QTemporaryDir dir;
    QString good;

private slots:
    void initTestCase()
    {
        unwindChildrenSlowly();
        QVERIFY(QFileInfo(E2e::toolPath()).isExecutable());
        good = writeProgram(dir, QStringLiteral("PROG_1.txt"), validRows(3));
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
            {"other table", utf16("name\tvalue\tunit\nspeed\t3\tm/s\n"), "not a program file"},
            {"header only", utf16("-\tSP1"),
             "cannot be loaded: No content found in the imported file."},
            {"open quote", utf16("-\tSP1\tTIME\nSEG1\t\"200\t1:00\n"),
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
    // A clear one-line error on stderr, nothing on stdout, exit status 2, no
    // picture, and never a crash or a dialog (a dialog would hang the run).
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
        QVERIFY(ranToEnd(run));
        QCOMPARE(run.exitCode, 2);
        QCOMPARE(run.out, QString());
        QCOMPARE(run.err.count(QLatin1Char('\n')), 1);
        QVERIFY2(run.err.startsWith(QStringLiteral("dcp30ctl %1: %2: ").arg(command, path)) &&
                     run.err.contains(reason),
                 qPrintable(run.err));
        QVERIFY(!QFile::exists(picture));
    }

    // What the write log cannot show: the loader's warnings first, where the
    // parameters come from, which segments count, the exit status.
    void check_data()
    {
        QTest::addColumn<QList<QStringList>>("rows");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QStringList>("warnings");
        QTest::addColumn<QString>("log");
        QTest::addColumn<QString>("summary");

        const QList<QStringList> three = validRows(3);
        QTest::newRow("all valid")
            << three << QStringList() << QStringList() << QString()
            << "3 of 3 segments would be written (SP1 -1999..9999, event kinds "
               "0,4,50 from defaults)";
        QList<QStringList> narrow = three;
        narrow[1] = narrow[1].mid(0, 20);
        QTest::newRow("short row padded by the loader")
            << narrow << QStringList() << QStringList{"Line 3 is 6 columns short of header."}
            << "\n\tSegment 2 has following format error : "
               "\n\t\tThe format of G.S. is incorrect.Maybe the negative symbol is not ASCII code "
               "or "
               "the value is not number."
               "\n\t\tThe format of G.S.TO is incorrect.Maybe the negative symbol is not ASCII "
               "code or "
               "the value is not number."
            << "2 of 3 segments would be written";
        QTest::newRow("parameters from the options")
            << edited(three, {{1, Sp1, "101"}, {2, Sp1, "100"}, {3, Ev1First, "-101"}})
            << QStringList{"--sp-limits", "0,100", "--event-kinds", "8,4,50"} << QStringList()
            << "\n\tSegment 1 has following format error : "
               "\n\t\tSP1 [101] is out of range (0 ~ 100)."
               "\n\n\tSegment 3 has following format error : "
               "\n\t\tSP1 [200] is out of range (0 ~ 100)."
               "\n\t\tIn case of MV/MFB event; EV1 1st [-101] is out of range (-100 ~ 1100)."
            << "1 of 3 segments would be written (SP1 0..100, event kinds 8,4,50 from options)";
        QTest::newRow("rows after the requested segments ignored")
            << edited(three, {{3, Sp1, "x"}}) << QStringList{"--segments", "2"} << QStringList()
            << QString() << "2 of 2 segments would be written";
    }
    void check()
    {
        QFETCH(QList<QStringList>, rows);
        QFETCH(QStringList, options);
        QFETCH(QStringList, warnings);
        QFETCH(QString, log);
        QFETCH(QString, summary);

        const QString path = writeProgram(dir, QStringLiteral("check.txt"), rows);
        const E2e::ToolRun run = runTool(QStringList{"check", path} + options);
        QVERIFY(ranToEnd(run));
        QStringList shownWarnings;
        QString shownSummary;
        QCOMPARE(checkLogPart(run.out, &shownWarnings, &shownSummary), log);
        QCOMPARE(shownWarnings, warnings);
        QVERIFY2(shownSummary.startsWith("check: " + summary), qPrintable(shownSummary));
        QCOMPARE(run.exitCode, log.isEmpty() ? 0 : 1);
        QCOMPARE(run.err, QString());
    }

    // Every cell comes back from the columns of the printed groups, no line is
    // wider than 100 characters and every group leads with the label.
    void showAlignsEveryCell()
    {
        QList<QStringList> rows = validRows(12);
        rows[4][GuaranteedSoak] = QString();
        const QString path = writeProgram(dir, QStringLiteral("show.txt"), rows);
        const E2e::ToolRun run = runTool({"show", path});
        QCOMPARE(run.exitCode, 0);
        const QStringList lines = run.out.split(QLatin1Char('\n'));
        QCOMPARE(lines.first(), path + QStringLiteral(": 12 segments"));

        QVector<QStringList> table(13); // header and 12 segments, as shown
        int groups = 0;
        for (int i = 1; i + 13 < lines.size(); i += 14) {
            QCOMPARE(lines.at(i), QString()); // a group: blank, header, 12 rows
            ++groups;
            QVector<int> starts; // column starts: titles are set two blanks apart
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
        QCOMPARE(table.at(0), SegmentCodec::headerRow().mid(1));
        for (int s = 1; s <= 12; ++s) {
            QStringList expected = rows.at(s - 1).mid(1);
            for (QString& cell : expected) // empty or blank-edged cells are quoted
                if (cell.isEmpty() || cell.endsWith(' '))
                    cell = '"' + cell + '"';
            QCOMPARE(table.at(s), expected);
        }
    }

    void compare_data()
    {
        QTest::addColumn<QList<QStringList>>("other");
        QTest::addColumn<QStringList>("otherHeader");
        QTest::addColumn<QStringList>("lines"); // after the "A:" and "B:" lines

        const QList<QStringList> three = validRows(3);
        const QStringList header = SegmentCodec::headerRow();
        QStringList otherHeader = header;
        otherHeader[Sp1] = QStringLiteral("SP 1");
        QList<QStringList> wide = three;
        wide[1] << "x";
        QTest::newRow("equal") << three << header << QStringList{"equal: 3 segments"};
        QTest::newRow("same number, other spelling; blank less in the tag")
            << edited(three, {{3, Pid, "01"}, {1, Tag, "TAG1   "}}) << header
            << QStringList{"segment 1, Tag: A \"TAG1    \", B \"TAG1   \"",
                           "segment 3, PID1: A \"1\", B \"01\"", "2 differences"};
        QTest::newRow("row only in B")
            << validRows(4) << header << QStringList{"segment 4: only in B", "1 difference"};
        QTest::newRow("cell only in B")
            << wide << header
            << QStringList{"segment 2, column 27: A (no cell), B \"x\"", "1 difference"};
        QTest::newRow("header") << three << otherHeader
                                << QStringList{"header, SP1: A \"SP1\", B \"SP 1\"",
                                               "1 difference"};
    }
    void compare()
    {
        QFETCH(QList<QStringList>, other);
        QFETCH(QStringList, otherHeader);
        QFETCH(QStringList, lines);

        const QString b = writeProgram(dir, QStringLiteral("compare-b.txt"), other, otherHeader);
        const E2e::ToolRun run = runTool({"compare", good, b});
        QVERIFY(ranToEnd(run));
        QStringList shown = run.out.split(QLatin1Char('\n'));
        QCOMPARE(shown.takeLast(), QString());
        if (other.value(1).size() >
            SegmentCodec::ColumnCount) // the loader's warning, not a difference
            QCOMPARE(shown.takeFirst(),
                     QStringLiteral("Warning: B: Line 3 is 1 columns more of header."));
        QCOMPARE(shown.takeFirst(), "A: " + good);
        QCOMPARE(shown.takeFirst(), "B: " + b);
        QCOMPARE(shown, lines);
        QCOMPARE(run.exitCode, lines.size() == 1 ? 0 : 1);
    }

    // Sample program 3 of the simulator, 30 segments, as a read would save it.
    void plotSample()
    {
        const ProgramStore store = ProgramStore::samples();
        QList<QStringList> rows;
        for (int s = 1; s <= store.segmentCount(3); ++s)
            rows << SegmentCodec::recordToRow(s, QString::fromLatin1(store.segment(3, s)));
        const QString program = writeProgram(dir, QStringLiteral("PROG_3.txt"), rows);
        const QString picture = dir.filePath("sample.svg");
        const E2e::ToolRun run = runTool({"plot", program, "-o", picture, "--sp-limits",
                                          "-1999,9999", "--width", "640", "--height", "400"});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.err, QString()); // a valid program leaves no notes
        QSvgRenderer renderer(picture);
        QVERIFY(renderer.isValid());
        QCOMPARE(renderer.viewBox(), QRect(0, 0, 640, 400));
        const QByteArray svg = E2e::readFile(picture);
        QVERIFY(svg.contains("<title>PROG_3.txt"));
        QVERIFY(svg.contains("stroke=\"" + ProgramPlot::curveColor().name().toLatin1() + '"'));
    }

    // A soak at 100 for an hour, then a ramp to 300 over the next hour: the
    // curve's pixels lie on the soak's row and on the ramp's line, and not where
    // a curve drawn otherwise would go.
    void plotCurvePixels()
    {
        const QList<QStringList> rows{validRow(1, "100", "01:00"), validRow(2, "300", "01:00")};
        const QString program = writeProgram(dir, QStringLiteral("two.txt"), rows);
        const QString picture = dir.filePath(QStringLiteral("two.png"));
        const E2e::ToolRun run = runTool({"plot", program, "-o", picture, "--sp-limits", "0,400"});
        QCOMPARE(run.exitCode, 0);
        QImage image;
        QVERIFY(image.load(picture, "PNG"));
        QCOMPARE(image.size(), QSize(1200, 700)); // the default

        ProgramPlot::Options options;
        options.size = image.size();
        options.limitsKnown = true;
        options.spHigh = 400;
        const ProgramPlot::Layout layout(ProgramPlot::buildProgram(rows), options);
        QVERIFY(layout.y(300) < layout.y(100) && layout.x(120) > layout.x(60));
        auto curveAt = [&](QPointF minutesAndSetpoint) {
            const QPointF p = layout.map(minutesAndSetpoint.x(), minutesAndSetpoint.y());
            return isCurveColour(image.pixel(int(p.x()), int(p.y())));
        };
        for (QPointF on : {QPointF(10, 100), QPointF(55, 100), QPointF(75, 150), QPointF(105, 250),
                           QPointF(115, 283.3)})
            QVERIFY2(curveAt(on),
                     qPrintable(QStringLiteral("%1 min, SP %2").arg(on.x()).arg(on.y())));
        for (QPointF off : {QPointF(30, 300), QPointF(30, 150), QPointF(90, 100), QPointF(90, 300)})
            QVERIFY2(!curveAt(off),
                     qPrintable(QStringLiteral("%1 min, SP %2").arg(off.x()).arg(off.y())));
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
        QTest::newRow("unknown format") << QStringList{"-o", "%1.jpg"} << 2
                                        << "dcp30ctl plot: the output must end in .png or .svg\n";
        QTest::newRow("unwritable output")
            << QStringList{"-o", "/nonexistent-dir/x.png"} << 1
            << "dcp30ctl plot: /nonexistent-dir/x.png: cannot be written";
    }
    void plotNotesAndUsage()
    {
        QFETCH(QStringList, options);
        QFETCH(int, exitCode);
        QFETCH(QString, err);

        const QList<QStringList> rows{validRow(1, "100", "01:00"), validRow(2, "abc", "01:00")};
        const QString program = writeProgram(dir, QStringLiteral("notes.txt"), rows);
        options.replaceInStrings("%1", dir.filePath(QStringLiteral("notes")));
        const E2e::ToolRun run = runTool(QStringList{"plot", program} + options);
        QVERIFY(ranToEnd(run));
        QCOMPARE(run.exitCode, exitCode);
        QVERIFY2(run.err.contains(err), qPrintable(run.err));
        QCOMPARE(QFileInfo(options.value(1)).size() > 0, exitCode == 0);
    }

    void buildProgram_data()
    {
        QTest::addColumn<QList<QStringList>>("rows");
        QTest::addColumn<QStringList>("spans"); // "start-end:from>to" or "start-end:none"
        QTest::addColumn<QStringList>("bars");  // "T<n>:start-end"
        QTest::addColumn<int>("notes");

        QStringList soak = validRow(1, "100", "01:00");
        QStringList ramp = validRow(2, "300", "00:30");
        for (int c = T1First; c < Pid; ++c)
            soak[c] = ramp[c] = QStringLiteral("----");
        QTest::newRow("first segment flat, then a ramp")
            << QList<QStringList>{soak, ramp} << QStringList{"0-60:100>100", "60-90:100>300"}
            << QStringList() << 0;
        QTest::newRow("first usable setpoint starts flat, bad time lasts nothing")
            << edited({soak, ramp, soak}, {{1, Sp1, "abc"}, {3, Time, "100:00"}})
            << QStringList{"0-60:none", "60-90:300>300", "90-90:300>100"} << QStringList() << 2;
        QStringList events = soak;
        const QStringList times{"0.10", "0.40", "0.30", "----", "0.50", "1.30",
                                "2.00", "----", "0.40", "0.20"}; // T2 to the end, T3 cut, T4 after
                                                                 // the end, T5 off before on
        for (int i = 0; i < times.size(); ++i)
            events[T1First + i] = times.at(i);
        QStringList second = ramp;
        second[T1First] = "0.10";
        second[T1First + 1] = "0.20";
        second[T1First + 2] = "x";
        QTest::newRow("time events count from their segment's start")
            << QList<QStringList>{events, second} << QStringList{"0-60:100>100", "60-90:100>300"}
            << QStringList{"T1:10-40", "T2:30-60", "T3:50-60", "T1:70-80"} << 2;
        QTest::newRow("label only")
            << QList<QStringList>{{"SEG1"}} << QStringList{"0-0:none"} << QStringList() << 7;
    }
    void buildProgram()
    {
        QFETCH(QList<QStringList>, rows);
        QFETCH(QStringList, spans);
        QFETCH(QStringList, bars);
        QFETCH(int, notes);

        const ProgramPlot::Program program = ProgramPlot::buildProgram(rows);
        QStringList shownSpans;
        for (const ProgramPlot::SegmentSpan& s : program.segments)
            shownSpans << QStringLiteral("%1-%2:").arg(s.start).arg(s.end) +
                              (s.drawn ? QStringLiteral("%1>%2").arg(s.from).arg(s.to) : "none");
        QStringList shownBars;
        for (const ProgramPlot::EventBar& b : program.bars)
            shownBars << QStringLiteral("T%1:%2-%3").arg(b.event).arg(b.start).arg(b.end);
        QCOMPARE(shownSpans, spans);
        QCOMPARE(shownBars, bars);
        QCOMPARE(program.notes.size(), notes);
    }
};

// No GUI application here: the CSV classes then never open a dialog; the
// pictures are painted by the tool.
QTEST_GUILESS_MAIN(TestToolFiles)

#include "tst_toolfiles.moc"

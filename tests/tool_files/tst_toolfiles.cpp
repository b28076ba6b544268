// dcp30ctl check, compare and plot as a user runs them: check held against
// the write log of a real write through the plug-in into the simulator, the
// plot against where its layout puts the pixels.
#include <QtTest>

#include "../e2e_support/e2eprocesses.h"
#include "csv/kcsvloader.h"
#include "driver/segmentcodec.h"
#include "tools/dcp30ctl/programplot.h"
#include "tools/dcp30ctl/valuecompare.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSvgRenderer>

#include <sys/stat.h>

namespace
{

enum Column { Sp1 = 1, Time = 2, Ev1 = 3, T1 = 9, Pid1 = 19, Gs = 20, PSta = 22, Tag = 25 };

// Valid with SP1 limits -1999..9999 and event kinds 0,4,50: EV1 a PV alarm,
// EV2 a deviation, EV3 the time event "off".
QStringList validRow(int segment, const QString& sp = QStringLiteral("200"))
{
    const QString rest = QStringLiteral("900|----|50|----|5999|----|0.10|0.40|----|----|----|----|"
                                        "----|----|----|----|1|----|----|") +
                         (segment == 1 ? "0|1|0|TAG1    " : "----|----|----|----");
    return QStringList{QStringLiteral("SEG%1").arg(segment), sp, QStringLiteral("01:00")} +
           rest.split(QLatin1Char('|'));
}

struct Edit {
    int segment;
    int column;
    QString text;
};

QList<QStringList> rows(int count, const QList<Edit>& edits = {})
{
    QList<QStringList> rows;
    for (int s = 1; s <= count; ++s)
        rows << validRow(s);
    for (const Edit& e : edits)
        rows[e.segment - 1][e.column] = e.text;
    return rows;
}

// Saved by the panel's saver (tab, UTF-16LE with BOM).
QString writeProgram(const QString& path, const QList<QStringList>& rows)
{
    return KCSVSaver(nullptr).saveFile(QList<QStringList>{SegmentCodec::headerRow()} + rows, path)
               ? path
               : QString();
}

} // namespace

class TestToolFiles : public QObject
{
    Q_OBJECT

    QTemporaryDir dir;

private slots:
    void initTestCase()
    {
#if defined(__SANITIZE_ADDRESS__)
        // Qt never frees the screen objects of the platform plug-in that plot
        // loads; lsan.supp names its start-up, which only shows in stacks
        // unwound the slow way (Qt has no frame pointers).
        qputenv("ASAN_OPTIONS", qgetenv("ASAN_OPTIONS") + ":fast_unwind_on_malloc=0");
#endif
        QVERIFY(QFileInfo(E2e::toolPath()).isExecutable());
    }

    void badInput_data()
    {
        QTest::addColumn<QByteArray>("bytes"); // null: no file
        QTest::addColumn<QString>("reason");
        QTest::newRow("missing") << QByteArray() << "no such file";
        QTest::newRow("empty") << QByteArray("") << "the file is empty";
        QTest::newRow("binary") << QByteArray::fromHex("89504e470d0a1a0a0000000d49484452") +
                                       QByteArray(99, '\0')
                                << "binary data, not a program file";
        QTest::newRow("other table")
            << E2e::utf16File("name\tvalue\tunit\nspeed\t3\tm/s\n") << "not a program file";
        // Would take the loader to gigabytes: refused before it loads.
        QTest::newRow("wide line")
            << E2e::utf16File(QString("x\t").repeated(5000) + '\n') << "line 1 has over 100 cells";
        QTest::newRow("fifo") << QByteArray("fifo") << "is not a regular file";
    }
    // One line on stderr saying why, nothing on stdout, exit status 2.
    void badInput()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, reason);
        const QString path = dir.filePath(QStringLiteral("bad-%1").arg(QTest::currentDataTag()));
        if (bytes == "fifo")
            QCOMPARE(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        else
            QVERIFY(bytes.isNull() || E2e::writeFile(path, bytes));
        const E2e::ToolRun run = E2e::runTool({"check", path});
        QVERIFY2(run.ok(2) && run.out.isEmpty() && run.err.count(QLatin1Char('\n')) == 1 &&
                     run.err.startsWith(QStringLiteral("dcp30ctl check: %1: ").arg(path)) &&
                     run.err.contains(reason),
                 qPrintable(run.describe()));
    }

    // check, its parameters read from the simulator through --port as the
    // driver reads them, then the same file written into the simulator: the
    // write log holds exactly the messages check printed.
    void checkMatchesWriteLog()
    {
        QList<QStringList> faulty = rows(4, {{1, Tag, "ab{"},
                                             {1, Ev1, "10000"},
                                             {2, T1, "x"},
                                             {3, Time, "1:xx"},
                                             {3, T1 + 2, "2.00"},
                                             {3, T1 + 3, "1.00"},
                                             {4, Sp1, "-101"},
                                             {4, Time, "90"}});
        faulty[3] << "extra";             // segment 4 also has a cell too many
        faulty[1] = faulty[1].mid(0, 20); // and segment 2 too few: padded by the loader
        QTemporaryDir usb;
        const QString program = writeProgram(usb.filePath(QStringLiteral("PROG_1.txt")), faulty);
        E2e::Simulator sim({"--baud", "0", "--sp-limits", "-100,500"});
        QVERIFY(sim.started());

        const E2e::ToolRun check =
            E2e::runTool({"check", program, "--port", sim.device(), "--segments", "6"});
        QVERIFY2(check.ok(1), qPrintable(check.describe()));
        QStringList lines = check.out.split(QLatin1Char('\n'));
        QCOMPARE(lines.takeLast(), QString());
        // A negative limit survives the double-word reads of check and driver.
        QCOMPARE(lines.takeLast(), QStringLiteral("check: 0 of 6 segments would be written (SP1 "
                                                  "-100..500, event kinds 0,4,50 from the "
                                                  "controller)"));
        QCOMPARE(lines.mid(0, 2), (QStringList{"Warning: Line 3 is 6 columns short of header.",
                                               "Warning: Line 5 is 1 columns more of header."}));

        const E2e::ToolRun write = E2e::runTool(
            E2e::transferArgs("write", sim.device(), 1, 6, usb.path()) << "--force", 30);
        QVERIFY2(write.ok(1), qPrintable(write.describe()));
        QCOMPARE(QString::fromUtf8(E2e::readFile(usb.filePath("WRITE_PROG_1_ERROR.txt"))),
                 "Program 1:\n" + lines.mid(2).join(QLatin1Char('\n')));
    }

    // A wide table is cut into column groups of at most 100 columns, each led
    // by the labels, with every column aligned under its title.
    void showAlignsColumnGroups()
    {
        const QString file =
            writeProgram(dir.filePath(QStringLiteral("show.txt")), rows(2, {{2, Sp1, "123456"}}));
        const E2e::ToolRun run = E2e::runTool({"show", file});
        QVERIFY2(run.ok(0), qPrintable(run.describe()));
        const QStringList lines = run.out.split(QLatin1Char('\n'));
        const QStringList headers = lines.filter(QRegularExpression("^-  "));
        QVERIFY(headers.size() > 1);
        for (const QString& line : lines)
            QVERIFY2(line.size() <= 100, qPrintable(line));
        const int header = lines.indexOf(headers.first());
        QCOMPARE(lines.at(header + 2).indexOf("123456"), headers.first().indexOf("SP1"));
        QVERIFY(lines.at(header + 2).startsWith("SEG2 ") && lines.at(header + 1).contains("----"));
    }

    void compare_data()
    {
        QTest::addColumn<QString>("sp"); // segment 2's SP1 in B
        QTest::addColumn<QString>("result");
        QTest::newRow("equal") << "+200"
                               << "compare: equal (3 segments)";
        QTest::newRow("one cell changed") << "300"
                                          << "segment 2, SP1: A 200, B 300\n"
                                             "compare: 1 difference";
    }
    void compare()
    {
        QFETCH(QString, sp);
        QFETCH(QString, result);
        const QString a = writeProgram(dir.filePath(QStringLiteral("compare-a.txt")), rows(3));
        const QString b =
            writeProgram(dir.filePath(QStringLiteral("compare-b.txt")), rows(3, {{2, Sp1, sp}}));
        const E2e::ToolRun run = E2e::runTool({"compare", a, b});
        QVERIFY2(run.ok(sp == "+200" ? 0 : 1), qPrintable(run.describe()));
        QCOMPARE(run.out, "A: " + a + "\nB: " + b + '\n' + result + '\n');
    }

    // Cells that differ in text only are equal by value; one unit more in
    // any kind of field is found, named by its column, shown as a read
    // would show it.
    void valueCompare_data()
    {
        QTest::addColumn<int>("segment");
        QTest::addColumn<int>("column");
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<QString>("difference"); // empty: equal
        auto row = [](const char* name, int segment, int column, const char* a, const char* b,
                      const char* difference) {
            QTest::newRow(name) << segment << column << a << b << difference;
        };
        row("TIME zero fill", 1, Time, "01:00", "1:0", "");
        row("TIME 1:75 is 2:15", 2, Time, "2:15", "1:75", "");
        row("plus sign", 2, Sp1, "200", "+200", "");
        row("tag case and padding", 1, Tag, "TAG1    ", "tag1", "");
        row("T one-digit minutes", 2, T1, "0.05", "0.5", "");
        row("unsent program-wide cell", 2, PSta, "----", "7", "");
        row("SP1", 2, Sp1, "200", "201", "segment 2, SP1: A 200, B 201");
        row("TIME", 1, Time, "01:00", "01:01", "segment 1, TIME: A 01:00, B 01:01");
        row("EV", 2, Ev1, "900", "901", "segment 2, EV1 1st: A 900, B 901");
        row("EV unset", 2, Ev1 + 1, "----", "0", "segment 2, EV1 2nd: A ----, B 0");
        row("T", 2, T1, "0.10", "0.11", "segment 2, T1 1st: A 0.10, B 0.11");
        row("PID1", 2, Pid1, "1", "2", "segment 2, PID1: A 1, B 2");
        row("G.S", 2, Gs, "10", "11", "segment 2, G.S: A 10, B 11");
        row("P.STA", 1, PSta, "0", "1", "segment 1, P.STA: A 0, B 1");
        row("Tag", 1, Tag, "TAG1", "TAG2", "segment 1, Tag: A \"TAG1    \", B \"TAG2    \"");
        row("sent from A only", 2, Sp1, "200", "99999",
            "segment 2, row: A sent, B not sent: SP1 [99999] is out of range (-1999 ~ 9999).");
    }
    void valueCompare()
    {
        QFETCH(int, segment);
        QFETCH(int, column);
        QFETCH(QString, a);
        QFETCH(QString, b);
        QList<QStringList> left = rows(2, {{segment, column, a}});
        QList<QStringList> right = rows(2, {{segment, column, b}});
        QStringList found;
        for (const ValueCompare::Difference& d :
             ValueCompare::compare({-1999, 9999, 0, 4, 50}, left, right))
            found << d.text();
        QTEST(found.join('\n'), "difference");
    }

    // check --json of a faulty file: exit 1 as in text, the refused segment
    // with the checks' message, the passing one with its record and a word
    // about its TIME, a missing one, and the log as the panel writes it.
    void checkJson()
    {
        const QString file = writeProgram(dir.filePath(QStringLiteral("json-check.txt")),
                                          rows(2, {{2, Sp1, "99999"}, {1, Time, "1:75"}}));
        const E2e::ToolRun run = E2e::runTool({"check", file, "--json", "--segments", "3"});
        QVERIFY2(run.ok(1), qPrintable(run.describe()));
        const QJsonObject report = QJsonDocument::fromJson(run.out.toUtf8()).object();
        QCOMPARE(report.value("exitStatus").toInt(), 1);
        QCOMPARE(report.value("segmentsWritten").toInt(), 1);
        const QJsonArray segments = report.value("segments").toArray();
        QCOMPARE(segments.size(), 3);
        const QJsonObject first = segments.at(0).toObject();
        QCOMPARE(first.value("result").toString(), "written");
        QCOMPARE(first.value("record").toString().mid(4, 4), "0087");
        QCOMPARE(first.value("warnings").toArray().first().toString(),
                 "TIME \"1:75\": 75 minutes; the controller takes it as 02:15");
        const QJsonObject second = segments.at(1).toObject();
        QCOMPARE(second.value("result").toString(), "refused");
        QCOMPARE(second.value("messages").toArray(),
                 QJsonArray{"SP1 [99999] is out of range (-1999 ~ 9999)."});
        QCOMPARE(segments.at(2).toObject().value("result").toString(), "missing");
        QVERIFY(report.value("log").toArray().contains("\t\tSP1 [99999] is out of range "
                                                       "(-1999 ~ 9999)."));
    }

    // compare --json: the differing segment, its cell by column, and the
    // segments that are equal.
    void compareJson()
    {
        const QString a = writeProgram(dir.filePath(QStringLiteral("json-a.txt")), rows(3));
        const QString b =
            writeProgram(dir.filePath(QStringLiteral("json-b.txt")), rows(3, {{3, Time, "1:01"}}));
        const E2e::ToolRun run = E2e::runTool({"compare", "--json", a, b});
        QVERIFY2(run.ok(1), qPrintable(run.describe()));
        const QJsonObject report = QJsonDocument::fromJson(run.out.toUtf8()).object();
        QCOMPARE(report.value("equal").toBool(), false);
        QCOMPARE(report.value("exitStatus").toInt(), 1);
        const QJsonArray segments = report.value("segments").toArray();
        QCOMPARE(segments.size(), 3);
        QVERIFY(segments.at(0).toObject().value("equal").toBool());
        const QJsonObject third = segments.at(2).toObject();
        QCOMPARE(third.value("differences").toArray(),
                 (QJsonArray{QJsonObject{{"column", "TIME"}, {"a", "01:00"}, {"b", "01:01"}}}));
        QCOMPARE(third.value("messages").toArray(),
                 QJsonArray{"segment 3, TIME: A 01:00, B 01:01"});
    }

    // A soak at 100 for an hour, then a ramp to 300 over the next hour, as a
    // PNG of the default size and as an SVG of a chosen one: the curve's
    // pixels lie on the soak's row and on the ramp's line, and not where a
    // picture drawn otherwise would put them.
    void plotTwoSegments()
    {
        const QList<QStringList> two{validRow(1, "100"), validRow(2, "300")};
        const QString program = writeProgram(dir.filePath(QStringLiteral("two.txt")), two);
        const QString png = dir.filePath(QStringLiteral("two.png"));
        const QString svg = dir.filePath(QStringLiteral("two.svg"));
        for (const QStringList& output :
             {QStringList{"-o", png},
              QStringList{"-o", svg, "--width", "640", "--height", "400"}}) {
            const E2e::ToolRun run =
                E2e::runTool(QStringList{"plot", program, "--sp-limits", "0,400"} + output);
            QVERIFY2(run.ok(0) && run.err.isEmpty(), qPrintable(run.describe()));
        }
        QSvgRenderer renderer(svg);
        QVERIFY(renderer.isValid());
        QCOMPARE(renderer.viewBox(), QRect(0, 0, 640, 400));

        QImage image;
        QVERIFY(image.load(png, "PNG"));
        QCOMPARE(image.size(), QSize(1200, 700));
        ProgramPlot::Options options;
        options.limitsKnown = true;
        options.spHigh = 400;
        const ProgramPlot::Layout layout(ProgramPlot::buildProgram(two), options);
        const QColor curve = ProgramPlot::curveColor();
        auto onCurve = [&](double minutes, double setpoint) {
            const QPointF p = layout.map(minutes, setpoint);
            const QColor c(image.pixel(int(p.x()), int(p.y())));
            return qAbs(c.red() - curve.red()) < 40 && qAbs(c.green() - curve.green()) < 40 &&
                   qAbs(c.blue() - curve.blue()) < 40;
        };
        QVERIFY(onCurve(10, 100) && onCurve(75, 150) && onCurve(115, 283.3));
        QVERIFY(!onCurve(30, 300) && !onCurve(90, 100));
    }

    // A segment the checks refuse (SP1 beyond the limits) and a hole are
    // marked in the picture (a red triangle over the segment) and named on
    // stderr; a narrow picture numbers what it can and names the rest.
    void plotMarksProblems()
    {
        QList<QStringList> program = rows(3, {{2, Sp1, "99999"}});
        program[2] = QStringList{"SEG3"} + QStringList(QVector<QString>(25, "----").toList());
        const QString file = writeProgram(dir.filePath(QStringLiteral("marks.txt")), program);
        const QString png = dir.filePath(QStringLiteral("marks.png"));
        const E2e::ToolRun run =
            E2e::runTool({"plot", file, "-o", png, "--width", "640", "--height", "400"});
        QVERIFY2(run.ok(0), qPrintable(run.describe()));
        QVERIFY2(run.err.contains("segment 2 would not be written: SP1 [99999] is out of range") &&
                     run.err.contains("segment 3 has no value set"),
                 qPrintable(run.err));
        QImage image;
        QVERIFY(image.load(png, "PNG"));
        ProgramPlot::Options options;
        options.size = QSize(640, 400);
        const ProgramPlot::Layout layout(ProgramPlot::buildProgram(program), options);
        auto red = [&](double minutes) {
            const QColor c(image.pixel(int(layout.x(minutes)), int(layout.curveArea().top()) + 2));
            return c.red() > 150 && c.green() < 80 && c.blue() < 80;
        };
        // The hole lasts no time: its mark sits on the right edge at 2:00.
        QVERIFY(red(90) && red(119.5) && !red(30));

        const QString thirty = writeProgram(dir.filePath(QStringLiteral("thirty.txt")), rows(30));
        const E2e::ToolRun narrow = E2e::runTool({"plot", thirty, "-o", dir.filePath("narrow.svg"),
                                                  "--width", "320", "--height", "240"});
        QVERIFY2(narrow.ok(0), qPrintable(narrow.describe()));
        const QString cue = QStringLiteral("too narrow at this width to be numbered: ");
        const int at = narrow.err.indexOf(cue);
        QVERIFY2(at >= 0, qPrintable(narrow.err));
        const QStringList unnumbered =
            narrow.err.mid(at + cue.size()).section('\n', 0, 0).split(", ");
        QVERIFY2(unnumbered.size() > 1 && unnumbered.size() < 30 && !unnumbered.contains("1"),
                 qPrintable(narrow.err));
    }
};

QTEST_GUILESS_MAIN(TestToolFiles)
#include "tst_toolfiles.moc"

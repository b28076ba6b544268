// dcp30ctl check, compare and plot as a user runs them: check held against
// the write log of a real write through the plug-in into the simulator, the
// plot against where its layout puts the pixels.
#include <QtTest>

#include "../e2e_support/e2eprocesses.h"
#include "csv/kcsvloader.h"
#include "driver/segmentcodec.h"
#include "tools/dcp30ctl/programplot.h"

#include <QSvgRenderer>

namespace
{

enum Column { Sp1 = 1, Time = 2, Ev1 = 3, T1 = 9, Tag = 25 };

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
    }
    // One line on stderr saying why, nothing on stdout, exit status 2.
    void badInput()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, reason);
        const QString path = dir.filePath(QStringLiteral("bad-%1").arg(QTest::currentDataTag()));
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
        QTest::newRow("equal") << "200"
                               << "equal: 3 segments";
        QTest::newRow("one cell changed") << "300"
                                          << "segment 2, SP1: A \"200\", B \"300\"\n"
                                             "1 difference";
    }
    void compare()
    {
        QFETCH(QString, sp);
        QFETCH(QString, result);
        const QString a = writeProgram(dir.filePath(QStringLiteral("compare-a.txt")), rows(3));
        const QString b =
            writeProgram(dir.filePath(QStringLiteral("compare-b.txt")), rows(3, {{2, Sp1, sp}}));
        const E2e::ToolRun run = E2e::runTool({"compare", a, b});
        QVERIFY2(run.ok(sp == "200" ? 0 : 1), qPrintable(run.describe()));
        QCOMPARE(run.out, "A: " + a + "\nB: " + b + '\n' + result + '\n');
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
};

QTEST_GUILESS_MAIN(TestToolFiles)
#include "tst_toolfiles.moc"

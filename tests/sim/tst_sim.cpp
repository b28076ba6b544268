// The simulator: its protocol engine in-process, and the executable on a
// pseudo-terminal.
#include <QtTest>

#include "../e2e_support/e2eprocesses.h"
#include "host/serial/serialportdevice.h"
#include "sim/controllerengine.h"

#include <csignal>

namespace
{

QByteArray framed(const QByteArray& text)
{
    return '\x02' + text + "\x03\r\n";
}

// The text between STX and ETX of a well-formed reply, or a marker saying
// what was wrong with it.
QByteArray replyText(const QByteArray& reply)
{
    if (reply.isEmpty())
        return "<none>";
    if (!reply.startsWith('\x02') || !reply.endsWith("\x03\r\n"))
        return "<bad frame " + reply.toHex() + '>';
    return reply.mid(1, reply.size() - 4);
}

QByteArray ask(ControllerEngine& engine, const QByteArray& text)
{
    return replyText(engine.feed(framed(text)));
}

QString simPath()
{
    return qEnvironmentVariable("DCP_BUILD_DIR") + "/bin/dcp30-sim";
}

// What the port holds waitMs after the request went out (none: just waits).
QByteArray exchange(SerialPortDevice& port, const QByteArray& text, int waitMs)
{
    if (!text.isEmpty()) {
        const QByteArray frame = framed(text);
        port.setOption(AbstractDeviceInterface::OptionPrepareCommand, QVariant(0));
        port.writeBytes(frame.constData(), frame.size());
    }
    QThread::msleep(waitMs);
    char buffer[255] = {};
    port.readBytes(buffer, 200);
    return QByteArray(buffer);
}

} // namespace

class TestSim : public QObject
{
    Q_OBJECT
private slots:
    // What the controller answers to input after the requests before (each
    // accepted); the same bytes fed one at a time give the same answer. The
    // commands that succeed are the end-to-end suites'.
    void replies_data()
    {
        QTest::addColumn<QByteArrayList>("before");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QByteArray>("expected"); // replyText
        auto row = [](const char* name, const QByteArrayList& before, const QByteArray& input,
                      const char* expected) {
            QTest::newRow(name) << before << input << QByteArray(expected);
        };
        const QByteArrayList none;
        const QByteArrayList openR1{"0100XFO,1,R,0"};
        const QByteArrayList openW1{"0100XFO,1,W,0"};
        const QByteArrayList closed{"0100XFO,1,R,0", "0100XFC,1"};
        const QByteArray close = framed("0100XFC,1");
        const QByteArray rec2(92, 'A'); // a record for any segment but the first
        auto cmd = [&row](const char* name, const QByteArrayList& before, const QByteArray& text,
                          const char* expected) { row(name, before, framed(text), expected); };
        row("noise, a broken frame, then a good one", none,
            QByteArray("\xFF\x00zz\x02", 5) + "0100XFO,1" + close, "0100X51");
        row("ETX without CR LF is dropped", none, close.left(11) + "xx" + close, "0100X51");
        row("overlong frame", none, framed(QByteArray(600, 'A')), "<none>");
        cmd("another station", none, "0200XFC,1", "<none>");
        cmd("wrong device code", none, "0100YFC,1", "0100X40");
        cmd("open program 19 for write", none, "0100XFO,19,W,0", "0100X00");
        cmd("open while open", openR1, "0100XFO,2,W,0", "0100X50");
        cmd("open program 0", none, "0100XFO,0,R,0", "0100X52");
        cmd("open program 20", none, "0100XFO,20,R,0", "0100X52");
        cmd("open bad mode", none, "0100XFO,1,X,0", "0100X40");
        cmd("read not open", none, "0100XFR,1,1", "0100X51");
        cmd("read segment 31", openR1, "0100XFR,1,31", "0100X52");
        cmd("read segment 0", openR1, "0100XFR,1,0", "0100X52");
        cmd("read on write file", openW1, "0100XFR,1,1", "0100X54");
        cmd("read signed number", openR1, "0100XFR,1,-1", "0100X40");
        cmd("write on read file", openR1, "0100XFW,1,2," + rec2, "0100X54");
        cmd("write short record as segment 1", openW1, "0100XFW,1,1," + rec2, "0100X57");
        cmd("write non-hex", openW1, "0100XFW,1,2,G" + rec2.mid(1), "0100X57");
        cmd("close twice", closed, "0100XFC,1", "0100X51");
        cmd("reopen after close", closed, "0100XFO,2,W,0", "0100X00");
        cmd("unknown command", none, "0100XZZ,1", "0100X99");
        cmd("register read 16", none, "0100XRS,100W,16", "0100X42");
        cmd("register read 17", none, "0100XRS,4509W,17", "0100X41");
        cmd("register write undefined", none, "0100XWS,4512W,1,2", "0100X42");
        cmd("register write above 65535", none, "0100XWS,4509W,65536", "0100X44");
        cmd("register write 17 words", none, "0100XWS,4509W" + QByteArray(",1").repeated(17),
            "0100X41");
    }
    void replies()
    {
        QFETCH(QByteArrayList, before);
        QFETCH(QByteArray, input);
        ControllerEngine whole;
        ControllerEngine trickle;
        for (const QByteArray& text : before) {
            QCOMPARE(ask(whole, text).left(7), QByteArray("0100X00"));
            ask(trickle, text);
        }
        QTEST(replyText(whole.feed(input)), "expected");
        QByteArray reply;
        for (char c : input)
            reply += trickle.feed(QByteArray(1, c));
        QTEST(replyText(reply), "expected");
        QCOMPARE(trickle.pendingBytes(), 0);
    }

    // The kinds that bend a reply the driver still receives (the others, and
    // the late reply's pacing, must show in the end-to-end fault matrix).
    void faultKinds_data()
    {
        QTest::addColumn<QString>("rule");
        QTest::addColumn<QByteArray>("expected"); // replyText of the reply to opening program 2
        QTest::newRow("garble") << "garble:FO-R" << QByteArray("0100x00");
        QTest::newRow("truncate") << "truncate:FO-R" << QByteArray("<bad frame 0230313030>");
        QTest::newRow("noise") << "noise:ANY"
                               << QByteArray("<bad frame 7f55aa0230313030583030030d0a>");
    }
    void faultKinds()
    {
        QFETCH(QString, rule);
        ControllerEngine engine;
        FaultRule parsed;
        QVERIFY(FaultRule::parse(rule, &parsed, nullptr));
        engine.addFault(parsed);
        QTEST(ask(engine, "0100XFO,2,R,0"), "expected");
        // Once means once, and the request itself was carried out.
        QCOMPARE(ask(engine, "0100XFC,2"), QByteArray("0100X00"));
    }

    // When a rule fires (that it fires at all, for the command and segment it
    // names only, shows in the end-to-end fault matrix).
    void triggers_data()
    {
        QTest::addColumn<QString>("rule");
        QTest::addColumn<QString>("pattern"); // per FR request of segments 1,2,1,2...: X = fault
        auto row = [](const char* rule, const char* pattern) {
            QTest::newRow(rule) << QString(rule) << QString(pattern);
        };
        row("drop:FR@at=3", "..X.......");
        row("drop:FR@every=3", "..X..X..X.");
        row("drop:FR:2@every=2", "...X...X..");
    }
    void triggers()
    {
        QFETCH(QString, rule);
        QFETCH(QString, pattern);
        ControllerEngine engine;
        FaultRule parsed;
        QVERIFY(FaultRule::parse(rule, &parsed, nullptr));
        engine.addFault(parsed);
        QCOMPARE(ask(engine, "0100XFO,1,R,0"), QByteArray("0100X00"));
        QString seen;
        for (int i = 0; i < pattern.size(); ++i)
            seen += engine.feed(framed("0100XFR,1," + QByteArray::number(1 + i % 2))).isEmpty()
                        ? QLatin1Char('X')
                        : QLatin1Char('.');
        QCOMPARE(seen, pattern);
    }

    // The same seed, the same faults; about the share asked for.
    void randomTriggerIsReproducible()
    {
        const auto run = [](const char* seed) {
            ControllerEngine engine;
            FaultRule parsed;
            FaultRule::parse(QStringLiteral("drop:RS@random=0.3,seed=") + seed, &parsed, nullptr);
            engine.addFault(parsed);
            QString seen;
            for (int i = 0; i < 200; ++i)
                seen += engine.feed(framed("0100XRS,4509W,1")).isEmpty() ? 'X' : '.';
            return seen;
        };
        const QString first = run("42");
        QCOMPARE(run("42"), first);
        QVERIFY(run("43") != first);
        const int hits = first.count(QLatin1Char('X'));
        QVERIFY2(hits > 30 && hits < 90, qPrintable(QString::number(hits)));
    }

    void faultRuleText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("canonical"); // empty: must be refused
        auto row = [](const char* text, const char* canonical) {
            QTest::newRow(text) << QString(text) << QString(canonical);
        };
        row("drop:FC", "drop:FC@once");
        row("garble:*@always", "garble:ANY@always");
        row("length:FR", "length=-1:FR@once");
        row("late:RS@at=2", "late=500:RS@at=2");
        for (const char* refused :
             {"explode:FR", "drop:FX", "drop", "status=5:FR", "status=AB:FR", "drop=3:FR",
              "drop:FO-R:2", "drop:FR:31", "length:FW", "length=0:FR", "drop:FR@every=0",
              "drop:FR@random=2", "drop:FR@random=0.5,seed=x", "drop:FR@sometimes"})
            row(refused, "");
    }
    void faultRuleText()
    {
        QFETCH(QString, text);
        QFETCH(QString, canonical);
        FaultRule rule;
        QString error;
        const bool ok = FaultRule::parse(text, &rule, &error);
        QCOMPARE(ok, !canonical.isEmpty());
        if (ok)
            QCOMPARE(rule.toString(), canonical);
        else
            QVERIFY2(error.contains(text), qPrintable(error));
    }

    // The link, a program file to start from, replies paced at the line's
    // rate (a segment's record takes over a second at 1200 baud, so the
    // worker's wait sees only its start), and SIGTERM saving the programs and
    // removing the link. (The end-to-end suites end it by closing its stdin.)
    void pacesLinkAndSavesOnTerm()
    {
        QTemporaryDir dir;
        const QString link = dir.filePath(QStringLiteral("ttyDCP"));
        const QString programs = dir.filePath(QStringLiteral("programs.txt"));
        const QByteArray record(120, 'A');
        QVERIFY(E2e::writeFile(programs, "5 1 " + record + "\n"));
        E2e::Simulator sim(
            {"--link", link, "--programs", programs, "--save-on-exit", "--baud", "1200"});
        QVERIFY(sim.started());
        QCOMPARE(QFileInfo(link).symLinkTarget(), sim.device());

        SerialPortDevice port(link);
        QVERIFY2(port.open(), qPrintable(port.errorString()));
        const QByteArray done = framed("0100X00");
        const QByteArray readReply = framed("0100X00,FR,5,1," + record);
        QCOMPARE(exchange(port, "0100XFO,5,R,0", 350), done);
        const QByteArray early = exchange(port, "0100XFR,5,1", 350);
        QVERIFY2(early.size() < readReply.size() && readReply.startsWith(early), early.constData());
        QCOMPARE(early + exchange(port, QByteArray(), 1500), readReply);
        for (const QByteArray& text : {QByteArray("0100XFC,5"), QByteArray("0100XFO,5,W,0"),
                                       "0100XFW,5,2," + QByteArray(92, 'b')})
            QCOMPARE(exchange(port, text, 350), done);
        port.close();

        QVERIFY(sim.stop(SIGTERM));
        QVERIFY(!QFileInfo(link).isSymLink());
        ProgramStore saved;
        QString error;
        QVERIFY2(saved.load(programs, &error), qPrintable(error));
        QCOMPARE(saved.segmentCount(5), 2);
        QCOMPARE(saved.segment(5, 2), QByteArray(92, 'B'));
    }

    // A fault plan or a program file it cannot use stops it before it serves.
    void badCommandLine_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("complaint");
        QTest::newRow("fault") << QStringList{"--fault", "drop:XX"} << "unknown command \"XX\"";
        QTest::newRow("programs unreadable") << QStringList{"--programs", "/"} << "/: ";
    }
    void badCommandLine()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, complaint);
        QProcess sim;
        sim.start(simPath(), arguments);
        QVERIFY(sim.waitForFinished(5000));
        QCOMPARE(sim.exitCode(), 2);
        const QString err = QString::fromLocal8Bit(sim.readAllStandardError());
        QVERIFY2(err.contains(complaint), qPrintable(err));
        QVERIFY(sim.readAllStandardOutput().isEmpty()); // no device announced
    }
};

QTEST_GUILESS_MAIN(TestSim)
#include "tst_sim.moc"

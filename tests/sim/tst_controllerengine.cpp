#include <QtTest>

#include "sim/controllerengine.h"

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

// A record of the right length whose digits say where it belongs.
QByteArray recordFor(int program, int segment)
{
    const QByteArray tag = QByteArray::number(program * 100 + segment, 16).rightJustified(4, '0');
    return tag.repeated(ProgramStore::recordLength(segment) / 4).toUpper();
}

} // namespace

class TestControllerEngine : public QObject
{
    Q_OBJECT
private slots:
    void framing_data();
    void framing();
    void commands_data();
    void commands();
    void readReplyCut_data();
    void readReplyCut();
    void writeReplacesSegments();
    void doubleWords_data();
    void doubleWords();
    void faultKinds_data();
    void faultKinds();
    void triggers_data();
    void triggers();
    void randomTriggerIsReproducible();
    void faultRuleText_data();
    void faultRuleText();
    void storeText_data();
    void storeText();
    void storeSaveLoad();
    void samplesAreWritable();
    void garbageNeverBreaksTheLine();
};

void TestControllerEngine::framing_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("expected");
    const QByteArray close = framed("0100XFC,1");
    QTest::newRow("plain") << close << QByteArray("0100X51");
    QTest::newRow("noise before STX") << "\xFF\x00zz" + close << QByteArray("0100X51");
    QTest::newRow("broken frame, then a good one") << "\x02"
                                                      "0100XFO,1" +
                                                          close
                                                   << QByteArray("0100X51");
    QTest::newRow("ETX without CR LF is dropped") << "\x02"
                                                     "0100XFC,1\x03xx" +
                                                         close
                                                  << QByteArray("0100X51");
    QTest::newRow("another station") << framed("0200XFC,1") << QByteArray("<none>");
    QTest::newRow("wrong device code") << framed("0100YFC,1") << QByteArray("0100X40");
    QTest::newRow("empty text") << framed("") << QByteArray("<none>");
    QTest::newRow("overlong frame") << "\x02" + QByteArray(600, 'A') + "\x03\r\n"
                                    << QByteArray("<none>");
}

void TestControllerEngine::framing()
{
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, expected);
    ControllerEngine whole;
    QCOMPARE(replyText(whole.feed(input)), expected);
    // The same bytes one at a time give the same answer.
    ControllerEngine trickle;
    QByteArray reply;
    for (char c : input)
        reply += trickle.feed(QByteArray(1, c));
    QCOMPARE(replyText(reply), expected);
    QCOMPARE(trickle.pendingBytes(), 0);
}

void TestControllerEngine::commands_data()
{
    QTest::addColumn<QByteArrayList>("before");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("expected");
    const QByteArrayList none;
    const QByteArrayList openR1{"0100XFO,1,R,0"};
    const QByteArrayList openW1{"0100XFO,1,W,0"};
    const QByteArray rec1 = recordFor(1, 1);
    const QByteArray rec2 = recordFor(1, 2);

    QTest::newRow("open read") << none << QByteArray("0100XFO,1,R,0") << QByteArray("0100X00");
    QTest::newRow("open write") << none << QByteArray("0100XFO,19,W,0") << QByteArray("0100X00");
    QTest::newRow("open while open")
        << openR1 << QByteArray("0100XFO,2,W,0") << QByteArray("0100X50");
    QTest::newRow("open program 0") << none << QByteArray("0100XFO,0,R,0") << QByteArray("0100X52");
    QTest::newRow("open program 20")
        << none << QByteArray("0100XFO,20,R,0") << QByteArray("0100X52");
    QTest::newRow("open bad mode") << none << QByteArray("0100XFO,1,X,0") << QByteArray("0100X40");
    QTest::newRow("open missing field")
        << none << QByteArray("0100XFO,1,R") << QByteArray("0100X40");
    QTest::newRow("read not open") << none << QByteArray("0100XFR,1,1") << QByteArray("0100X51");
    QTest::newRow("read other program")
        << openR1 << QByteArray("0100XFR,2,1") << QByteArray("0100X51");
    QTest::newRow("read segment 31")
        << openR1 << QByteArray("0100XFR,1,31") << QByteArray("0100X52");
    QTest::newRow("read segment 0") << openR1 << QByteArray("0100XFR,1,0") << QByteArray("0100X52");
    QTest::newRow("read absent segment")
        << openR1 << QByteArray("0100XFR,1,7") << QByteArray("0100X52");
    QTest::newRow("read on write file")
        << openW1 << QByteArray("0100XFR,1,1") << QByteArray("0100X54");
    QTest::newRow("read signed number")
        << openR1 << QByteArray("0100XFR,1,-1") << QByteArray("0100X40");
    QTest::newRow("write") << openW1 << "0100XFW,1,2," + rec2 << QByteArray("0100X00");
    QTest::newRow("write lower-case hex")
        << openW1 << "0100XFW,1,2," + rec2.toLower() << QByteArray("0100X00");
    QTest::newRow("write on read file") << openR1 << "0100XFW,1,2," + rec2 << QByteArray("0100X54");
    QTest::newRow("write short record as segment 1")
        << openW1 << "0100XFW,1,1," + rec2 << QByteArray("0100X57");
    QTest::newRow("write long record as segment 2")
        << openW1 << "0100XFW,1,2," + rec1 << QByteArray("0100X57");
    QTest::newRow("write non-hex")
        << openW1 << "0100XFW,1,2,G" + rec2.mid(1) << QByteArray("0100X57");
    QTest::newRow("write not open") << none << "0100XFW,1,2," + rec2 << QByteArray("0100X51");
    QTest::newRow("close") << openR1 << QByteArray("0100XFC,1") << QByteArray("0100X00");
    QTest::newRow("close other program")
        << openR1 << QByteArray("0100XFC,2") << QByteArray("0100X51");
    QTest::newRow("close twice") << QByteArrayList{"0100XFO,1,R,0", "0100XFC,1"}
                                 << QByteArray("0100XFC,1") << QByteArray("0100X51");
    QTest::newRow("reopen after close") << QByteArrayList{"0100XFO,1,R,0", "0100XFC,1"}
                                        << QByteArray("0100XFO,2,W,0") << QByteArray("0100X00");
    QTest::newRow("unknown command") << none << QByteArray("0100XZZ,1") << QByteArray("0100X99");
    QTest::newRow("no comma after command")
        << none << QByteArray("0100XFC1") << QByteArray("0100X40");
    QTest::newRow("register read")
        << none << QByteArray("0100XRS,3509W,2") << QByteArray("0100X00,50,0");
    QTest::newRow("register read 16")
        << none << QByteArray("0100XRS,100W,16") << QByteArray("0100X42");
    QTest::newRow("register read 17")
        << none << QByteArray("0100XRS,4509W,17") << QByteArray("0100X41");
    QTest::newRow("register read 0 words")
        << none << QByteArray("0100XRS,4509W,0") << QByteArray("0100X40");
    QTest::newRow("register read without W")
        << none << QByteArray("0100XRS,4509,1") << QByteArray("0100X40");
    QTest::newRow("register read partly undefined")
        << none << QByteArray("0100XRS,4512W,2") << QByteArray("0100X42");
    QTest::newRow("register write")
        << none << QByteArray("0100XWS,4509W,1,2") << QByteArray("0100X00");
    QTest::newRow("register write undefined")
        << none << QByteArray("0100XWS,4512W,1,2") << QByteArray("0100X42");
    QTest::newRow("register write above 65535")
        << none << QByteArray("0100XWS,4509W,65536") << QByteArray("0100X44");
    QTest::newRow("register write not a number")
        << none << QByteArray("0100XWS,4509W,1x") << QByteArray("0100X40");
    QTest::newRow("register write without value")
        << none << QByteArray("0100XWS,4509W") << QByteArray("0100X40");
    QTest::newRow("register write 17 words")
        << none << "0100XWS,4509W" + QByteArray(",1").repeated(17) << QByteArray("0100X41");
}

void TestControllerEngine::commands()
{
    QFETCH(QByteArrayList, before);
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, expected);
    ControllerEngine engine;
    for (const QByteArray& text : before)
        QCOMPARE(ask(engine, text).left(7), QByteArray("0100X00"));
    QCOMPARE(ask(engine, request), expected);
}

void TestControllerEngine::readReplyCut_data()
{
    QTest::addColumn<int>("program");
    for (int p = 1; p <= ProgramStore::ProgramCount; ++p)
        QTest::addRow("program %d", p) << p;
}

void TestControllerEngine::readReplyCut()
{
    QFETCH(int, program);
    ControllerEngine engine;
    for (int s = 1; s <= ProgramStore::MaxSegments; ++s)
        QVERIFY(engine.programs().setSegment(program, s, recordFor(program, s)));
    QCOMPARE(ask(engine, "0100XFO," + QByteArray::number(program) + ",R,0"), QByteArray("0100X00"));
    for (int s = 1; s <= ProgramStore::MaxSegments; ++s) {
        const QByteArray reply = engine.feed(
            framed("0100XFR," + QByteArray::number(program) + ',' + QByteArray::number(s)));
        // Where a panel cuts the record out of the reply.
        const int start = 16 + (program > 9 ? 1 : 0) + (s > 9 ? 1 : 0);
        const QByteArray field = reply.mid(start);
        QCOMPARE(field.size(), s == 1 ? 123 : 95);
        QCOMPARE(field, recordFor(program, s) + "\x03\r\n");
        QCOMPARE(reply.mid(1, 7), QByteArray("0100X00"));
    }
}

void TestControllerEngine::writeReplacesSegments()
{
    ControllerEngine engine;
    ProgramStore& store = engine.programs();
    QCOMPARE(store.segmentCount(1), 6);
    const QByteArray oldSecond = store.segment(1, 2);

    // Opening for write and closing again loses nothing.
    QCOMPARE(ask(engine, "0100XFO,1,W,0"), QByteArray("0100X00"));
    QCOMPARE(ask(engine, "0100XFC,1"), QByteArray("0100X00"));
    QCOMPARE(store.segmentCount(1), 6);

    QCOMPARE(ask(engine, "0100XFO,1,W,0"), QByteArray("0100X00"));
    QCOMPARE(ask(engine, "0100XFW,1,3," + recordFor(1, 3)), QByteArray("0100X00"));
    QCOMPARE(store.segmentCount(1), 3);
    QCOMPARE(ask(engine, "0100XFW,1,1," + recordFor(1, 1)), QByteArray("0100X00"));
    QCOMPARE(store.segmentCount(1), 3); // the highest written so far stays the end
    QCOMPARE(ask(engine, "0100XFW,1,9," + recordFor(1, 9)), QByteArray("0100X00"));
    QCOMPARE(ask(engine, "0100XFC,1"), QByteArray("0100X00"));

    QCOMPARE(store.segmentCount(1), 9);
    QCOMPARE(store.segment(1, 1), recordFor(1, 1));
    QCOMPARE(store.segment(1, 2), oldSecond);
    QCOMPARE(store.segment(1, 3), recordFor(1, 3));
    QVERIFY(!store.hasSegment(1, 4)); // beyond the old end, never written
    QCOMPARE(store.segment(1, 9), recordFor(1, 9));
    QCOMPARE(store.segmentCount(2), 10); // other programs untouched
}

void TestControllerEngine::doubleWords_data()
{
    QTest::addColumn<qint32>("low");
    QTest::addColumn<qint32>("high");
    QTest::addColumn<QByteArray>("words");
    QTest::newRow("defaults") << -1999 << 9999 << QByteArray("63537,65535,9999,0");
    QTest::newRow("both negative") << -200 << -1 << QByteArray("65336,65535,65535,65535");
    QTest::newRow("beyond 16 bits") << 0 << 70000 << QByteArray("0,0,4464,1");
    QTest::newRow("extremes") << std::numeric_limits<qint32>::min()
                              << std::numeric_limits<qint32>::max()
                              << QByteArray("0,32768,65535,32767");
}

void TestControllerEngine::doubleWords()
{
    QFETCH(qint32, low);
    QFETCH(qint32, high);
    QFETCH(QByteArray, words);
    ControllerEngine engine;
    engine.setSpLimits(low, high);
    QCOMPARE(ask(engine, "0100XRS,4509W,4"), "0100X00," + words);

    // Written back word by word, the double words read as the same numbers.
    ControllerEngine other;
    QCOMPARE(ask(other, "0100XWS,4509W," + words), QByteArray("0100X00"));
    QCOMPARE(other.doubleWord(4509), low);
    QCOMPARE(other.doubleWord(4511), high);
}

void TestControllerEngine::faultKinds_data()
{
    QTest::addColumn<QString>("rule");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("expected"); // replyText of the reply
    QTest::addColumn<int>("delayMs");
    QTest::addColumn<bool>("opened"); // whether the open was carried out

    const QByteArray open = "0100XFO,2,R,0";
    QTest::newRow("drop") << "drop:FO-R" << open << QByteArray("<none>") << 0 << true;
    QTest::newRow("deaf") << "deaf:FO-R" << open << QByteArray("<none>") << 0 << false;
    QTest::newRow("garble") << "garble:FO-R" << open << QByteArray("0100x00") << 0 << true;
    QTest::newRow("truncate half")
        << "truncate:FO-R" << open << QByteArray("<bad frame 0230313030>") << 0 << true;
    QTest::newRow("truncate 2") << "truncate=2:FO-R" << open << QByteArray("<bad frame 0230>") << 0
                                << true;
    QTest::newRow("late") << "late:FO-R" << open << QByteArray("0100X00") << 500 << true;
    QTest::newRow("late 900") << "late=900:ANY" << open << QByteArray("0100X00") << 900 << true;
    QTest::newRow("noise") << "noise:FO-R" << open
                           << QByteArray("<bad frame 7f55aa0230313030583030030d0a>") << 0 << true;
    QTest::newRow("status") << "status=59:FO-R" << open << QByteArray("0100X59") << 0 << false;
    QTest::newRow("other command untouched")
        << "drop:FO-W" << open << QByteArray("0100X00") << 0 << true;
}

void TestControllerEngine::faultKinds()
{
    QFETCH(QString, rule);
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, expected);
    QFETCH(int, delayMs);
    QFETCH(bool, opened);
    ControllerEngine engine;
    FaultRule parsed;
    QString error;
    QVERIFY2(FaultRule::parse(rule, &parsed, &error), qPrintable(error));
    engine.addFault(parsed);
    const QList<EngineReply> replies = engine.feedReplies(framed(request));
    QCOMPARE(replyText(replies.isEmpty() ? QByteArray() : replies.first().bytes), expected);
    QCOMPARE(replies.isEmpty() ? 0 : replies.first().delayMs, delayMs);
    QCOMPARE(engine.openMode() != ControllerEngine::OpenMode::None, opened);
    // Once means once: the next request is answered normally.
    QCOMPARE(ask(engine, "0100XFC,2"), opened ? QByteArray("0100X00") : QByteArray("0100X51"));
}

void TestControllerEngine::triggers_data()
{
    QTest::addColumn<QString>("rule");
    QTest::addColumn<QString>("pattern"); // per FR request of segments 1,2,1,2...: X = fault
    QTest::newRow("once") << "drop:FR"
                          << "X.........";
    QTest::newRow("at 3") << "drop:FR@at=3"
                          << "..X.......";
    QTest::newRow("every 3") << "drop:FR@every=3"
                             << "..X..X..X.";
    QTest::newRow("always") << "drop:FR@always"
                            << "XXXXXXXXXX";
    QTest::newRow("segment 2 once") << "drop:FR:2"
                                    << ".X........";
    QTest::newRow("segment 2 every 2") << "drop:FR:2@every=2"
                                       << "...X...X..";
    QTest::newRow("never p=0") << "drop:FR@random=0,seed=3"
                               << "..........";
    QTest::newRow("always p=1") << "drop:FR@random=1"
                                << "XXXXXXXXXX";
    QTest::newRow("other command") << "drop:FW@always"
                                   << "..........";
}

void TestControllerEngine::triggers()
{
    QFETCH(QString, rule);
    QFETCH(QString, pattern);
    ControllerEngine engine;
    FaultRule parsed;
    QVERIFY(FaultRule::parse(rule, &parsed, nullptr));
    engine.addFault(parsed);
    QCOMPARE(ask(engine, "0100XFO,1,R,0"), QByteArray("0100X00"));
    QString seen;
    for (int i = 0; i < pattern.size(); ++i) {
        const QByteArray reply = engine.feed(framed("0100XFR,1," + QByteArray::number(1 + i % 2)));
        seen += reply.isEmpty() ? QLatin1Char('X') : QLatin1Char('.');
    }
    QCOMPARE(seen, pattern);
}

void TestControllerEngine::randomTriggerIsReproducible()
{
    const auto run = [](const QString& rule) {
        ControllerEngine engine;
        FaultRule parsed;
        FaultRule::parse(rule, &parsed, nullptr);
        engine.addFault(parsed);
        QString seen;
        for (int i = 0; i < 200; ++i)
            seen += engine.feed(framed("0100XRS,4509W,1")).isEmpty() ? 'X' : '.';
        return seen;
    };
    const QString first = run(QStringLiteral("drop:RS@random=0.3,seed=42"));
    QCOMPARE(run(QStringLiteral("drop:RS@random=0.3,seed=42")), first);
    QVERIFY(run(QStringLiteral("drop:RS@random=0.3,seed=43")) != first);
    const int hits = first.count(QLatin1Char('X'));
    QVERIFY2(hits > 30 && hits < 90, qPrintable(QString::number(hits)));
}

void TestControllerEngine::faultRuleText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("canonical"); // empty: must be refused
    QTest::newRow("defaults") << "drop:FC"
                              << "drop:FC@once";
    QTest::newRow("star") << "garble:*@always"
                          << "garble:ANY@always";
    QTest::newRow("length") << "length=2:FR:30@every=4"
                            << "length=2:FR:30@every=4";
    QTest::newRow("length default") << "length:FR"
                                    << "length=-1:FR@once";
    QTest::newRow("random") << "status=52:FW:4@random=0.25,seed=9"
                            << "status=52:FW:4@random=0.25,seed=9";
    QTest::newRow("late") << "late:RS@at=2"
                          << "late=500:RS@at=2";
    QTest::newRow("unknown kind") << "explode:FR"
                                  << "";
    QTest::newRow("unknown command") << "drop:FX"
                                     << "";
    QTest::newRow("no command") << "drop"
                                << "";
    QTest::newRow("status one digit") << "status=5:FR"
                                      << "";
    QTest::newRow("status letters") << "status=AB:FR"
                                    << "";
    QTest::newRow("drop with argument") << "drop=3:FR"
                                        << "";
    QTest::newRow("segment for open") << "drop:FO-R:2"
                                      << "";
    QTest::newRow("segment 31") << "drop:FR:31"
                                << "";
    QTest::newRow("length on write") << "length:FW"
                                     << "";
    QTest::newRow("length 0") << "length=0:FR"
                              << "";
    QTest::newRow("every 0") << "drop:FR@every=0"
                             << "";
    QTest::newRow("probability 2") << "drop:FR@random=2"
                                   << "";
    QTest::newRow("bad seed") << "drop:FR@random=0.5,seed=x"
                              << "";
    QTest::newRow("unknown trigger") << "drop:FR@sometimes"
                                     << "";
}

void TestControllerEngine::faultRuleText()
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

void TestControllerEngine::storeText_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("error"); // empty: accepted
    const QByteArray r1 = recordFor(4, 1);
    const QByteArray r2 = recordFor(4, 2);
    QTest::newRow("comments and blanks") << "# x\n\n4 1 " + r1 + "\n  4  2 " + r2 + "  \n"
                                         << "";
    QTest::newRow("program 20") << "20 2 " + r2 << "line 1: program must be 1..19";
    QTest::newRow("segment 0") << "# x\n4 0 " + r2 << "line 2: segment must be 1..30";
    QTest::newRow("short record for 1")
        << "4 1 " + r2 << "line 1: segment 1 needs a record of 120 hex digits";
    QTest::newRow("non-hex") << "4 2 Z" + r2.mid(1)
                             << "line 1: segment 2 needs a record of 92 hex digits";
    QTest::newRow("twice") << "4 2 " + r2 + "\n4 2 " + r2
                           << "line 2: program 4 segment 2 given twice";
    QTest::newRow("missing field") << "4 " + r2 << "line 1: expected \"program segment record\"";
}

void TestControllerEngine::storeText()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, error);
    ProgramStore store = ProgramStore::samples();
    QString why;
    const bool ok = store.fromText(text, &why);
    QCOMPARE(why, error);
    QCOMPARE(ok, error.isEmpty());
    if (ok) {
        QCOMPARE(store.segmentCount(4), 2);
        QCOMPARE(store.segmentCount(1), 0); // loading replaces the whole store
    } else {
        QVERIFY(store == ProgramStore::samples()); // nothing lost
    }
}

void TestControllerEngine::storeSaveLoad()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("programs.txt"));
    ControllerEngine engine;
    QCOMPARE(ask(engine, "0100XFO,12,W,0"), QByteArray("0100X00"));
    QCOMPARE(ask(engine, "0100XFW,12,1," + recordFor(12, 1)), QByteArray("0100X00"));
    QString error;
    QVERIFY2(engine.programs().save(path, &error), qPrintable(error));

    ProgramStore loaded;
    QVERIFY2(loaded.load(path, &error), qPrintable(error));
    QVERIFY(loaded == engine.programs());
    QCOMPARE(loaded.segment(12, 1), recordFor(12, 1));

    QVERIFY(!loaded.load(dir.filePath(QStringLiteral("missing.txt")), &error));
    QVERIFY(error.contains(QLatin1String("missing.txt")));
    QVERIFY(!engine.programs().save(dir.filePath(QStringLiteral("no/such/dir/p.txt")), &error));
}

// Every sample value within what a panel accepts before writing, with the
// default limits and event kinds (EV1 PV, EV2 absolute deviation, EV3 time).
void TestControllerEngine::samplesAreWritable()
{
    const ProgramStore store = ProgramStore::samples();
    QCOMPARE(store.segmentCount(1), 6);
    QCOMPARE(store.segmentCount(2), 10);
    QCOMPARE(store.segmentCount(3), 30);
    const int unset = 0x7FFF;
    const auto inRange = [&](int v, int lo, int hi, bool unsetOk) {
        return (unsetOk && v == unset) || (v >= lo && v <= hi);
    };
    for (int p = 1; p <= 3; ++p) {
        for (int s = 1; s <= store.segmentCount(p); ++s) {
            const QByteArray rec = store.segment(p, s);
            QVERIFY(ProgramStore::isValidRecord(s, rec));
            QVector<int> w;
            for (int i = 0; i + 4 <= rec.size(); i += 4)
                w << qint16(rec.mid(i, 4).toUShort(nullptr, 16));
            const QString where = QStringLiteral("program %1 segment %2").arg(p).arg(s);
            QVERIFY2(inRange(w[0], -1999, 9999, false), qPrintable(where));
            QVERIFY2(inRange(w[1], 0, 5999, false), qPrintable(where));
            QVERIFY2(w[2] == 0 && w[20] == 0, qPrintable(where));
            QVERIFY2(inRange(w[3], -1999, 9999, true) && inRange(w[5], 0, 9999, true),
                     qPrintable(where));
            QVERIFY2(inRange(w[4], 0, 5999, true) && inRange(w[6], 0, 5999, true),
                     qPrintable(where));
            QVERIFY2(
                (w[7] == 5999 && w[8] == unset) ||
                    (inRange(w[7], 0, 5999, false) && inRange(w[8], 0, 5999, false) && w[7] < w[8]),
                qPrintable(where));
            for (int t = 9; t < 19; t += 2) {
                const bool bothUnset = w[t] == unset && w[t + 1] == unset;
                QVERIFY2(bothUnset || (inRange(w[t], 0, 5999, false) &&
                                       inRange(w[t + 1], 0, 5999, false) && w[t] < w[t + 1]),
                         qPrintable(where));
            }
            QVERIFY2(inRange(w[19], 0, 8, false) && inRange(w[21], 0, 1000, true) &&
                         inRange(w[22], 0, 5999, true),
                     qPrintable(where));
            if (s == 1) {
                QVERIFY2(inRange(w[23], 0, 1, false) && inRange(w[24], 0, 9999, false) &&
                             inRange(w[25], 0, 19, false),
                         qPrintable(where));
                for (char c : QByteArray::fromHex(rec.mid(104)))
                    QVERIFY2(uchar(c) >= 32 && uchar(c) <= 95, qPrintable(where));
            }
        }
    }
    QCOMPARE(QByteArray::fromHex(store.segment(1, 1).mid(104)), QByteArray("HEAT-T01"));
}

void TestControllerEngine::garbageNeverBreaksTheLine()
{
    ControllerEngine engine;
    QRandomGenerator random(2024);
    const QByteArray pieces[] = {"\x02", "\x03", "\r\n", "0100X", "FO,", "FR,",
                                 "FW,",  "FC,",  "RS,",  "WS,",   "1",   "99999999",
                                 ",",    "W",    "R",    "-",     "\xFF"};
    for (int round = 0; round < 20000; ++round) {
        QByteArray chunk;
        const int parts = random.bounded(1, 8);
        for (int i = 0; i < parts; ++i)
            chunk += random.bounded(4) == 0 ? QByteArray(1, char(random.bounded(256)))
                                            : pieces[random.bounded(int(std::size(pieces)))];
        engine.feed(chunk);
        QVERIFY(engine.pendingBytes() <= ControllerEngine::MaxFrameLength + 16);
    }
    engine.closeOpenFile();
    engine.feed("\x03\r\n"); // end whatever frame the garbage left open
    QCOMPARE(ask(engine, "0100XRS,3505W,1"), QByteArray("0100X00,4"));
}

QTEST_GUILESS_MAIN(TestControllerEngine)
#include "tst_controllerengine.moc"

// What the product suites cannot notice of the simulator: the fault kinds
// and triggers they never use, the pace of its replies, and its program
// tables and saved state.
#include <QtTest>

#include "../e2e_support/e2eprocesses.h"
#include "host/serial/serialportdevice.h"
#include "sim/controllerengine.h"
#include "sim/programstore.h"

namespace
{

QByteArray framed(const QByteArray& text)
{
    return '\x02' + text + "\x03\r\n";
}

// The text between STX and ETX of a well-formed reply, else what was wrong.
QByteArray replyText(const QByteArray& reply)
{
    if (reply.isEmpty())
        return "<none>";
    if (!reply.startsWith('\x02') || !reply.endsWith("\x03\r\n"))
        return "<bad frame " + reply.toHex() + '>';
    return reply.mid(1, reply.size() - 4);
}

} // namespace

class TestSim : public QObject
{
    Q_OBJECT
private slots:
    // The reply to opening program 1, then what follows to reads of segments
    // 1,2,1,2...: "." a record, X none. A fault kind fires once and the request
    // is still carried out.
    void faults_data()
    {
        QTest::addColumn<QString>("rule");
        QTest::addColumn<QByteArray>("open"); // replyText
        QTest::addColumn<QString>("reads");
        auto row = [](const char* rule, const char* open, const char* reads) {
            QTest::newRow(rule) << QString(rule) << QByteArray(open) << QString(reads);
        };
        row("garble:FO-R", "0100x00", "......");
        row("truncate:FO-R", "<bad frame 0230313030>", "......");
        row("noise:FO-R", "<bad frame 7f55aa0230313030583030030d0a>", "......");
        row("drop:FR@at=3", "0100X00", "..X...");
        row("drop:FR:2@every=2", "0100X00", "...X..");
    }
    void faults()
    {
        QFETCH(QString, rule);
        QFETCH(QString, reads);
        ControllerEngine engine;
        FaultRule parsed;
        QVERIFY(FaultRule::parse(rule, &parsed, nullptr));
        engine.addFault(parsed);
        QTEST(replyText(engine.feed(framed("0100XFO,1,R,0"))), "open");
        QString seen;
        for (int i = 0; i < reads.size(); ++i) {
            const QByteArray reply =
                engine.feed(framed("0100XFR,1," + QByteArray::number(1 + i % 2)));
            seen += reply.isEmpty() ? 'X' : reply.contains(",FR,1,") ? '.' : '?';
        }
        QCOMPARE(seen, reads);
    }

    // At 1200 baud a segment's record takes over a second, so a wait of the
    // driver's length sees only its start.
    void pacesReplies()
    {
        E2e::Simulator sim({"--baud", "1200"});
        QVERIFY(sim.started());
        SerialPortDevice port(sim.device());
        QVERIFY2(port.open(), qPrintable(port.errorString()));
        auto exchange = [&port](const QByteArray& text, int waitMs) {
            if (!text.isEmpty()) {
                const QByteArray frame = framed(text);
                port.setOption(AbstractDeviceInterface::OptionPrepareCommand, QVariant(0));
                port.writeBytes(frame.constData(), frame.size());
            }
            QThread::msleep(waitMs);
            char buffer[255] = {};
            port.readBytes(buffer, 200);
            return QByteArray(buffer);
        };
        QCOMPARE(exchange("0100XFO,1,R,0", 350), framed("0100X00"));
        const QByteArray readReply =
            framed("0100X00,FR,1,1," + ProgramStore::samples().segment(1, 1));
        const QByteArray early = exchange("0100XFR,1,1", 350);
        QVERIFY2(early.size() < readReply.size() && readReply.startsWith(early), early.constData());
        QCOMPARE(early + exchange(QByteArray(), 1500), readReply);
    }

    // A program loaded from a table file is dumped in the same format, byte
    // for byte as a read saves it; a segment written is in the dump and in
    // the saved state while the simulator still runs.
    void tablesAndSavedState()
    {
        QTemporaryDir dir;
        const QString table = dir.filePath("table.txt");
        const QByteArray program2 =
            E2e::expectedProgramFile(ProgramStore::samples(), 2, E2e::segmentRange(10));
        QVERIFY(E2e::writeFile(table, program2));
        const QString state = dir.filePath("state.txt");
        E2e::Simulator sim({"--baud", "0", "--load", "7=" + table, "--dump", dir.path(),
                            "--programs", state, "--save-on-exit"});
        QVERIFY(sim.started());
        QCOMPARE(E2e::readFile(dir.filePath("PROG_7.txt")), program2);

        SerialPortDevice port(sim.device());
        QVERIFY2(port.open(), qPrintable(port.errorString()));
        const QByteArray record = ProgramStore::samples().segment(1, 1);
        for (const QByteArray& text : {QByteArray("0100XFO,9,W,0"), "0100XFW,9,1," + record}) {
            const QByteArray frame = framed(text);
            port.writeBytes(frame.constData(), frame.size());
            QByteArray reply;
            QTRY_VERIFY_WITH_TIMEOUT(
                [&] {
                    char buffer[255] = {};
                    port.readBytes(buffer, 200);
                    reply += buffer;
                    return reply.endsWith("\r\n");
                }(),
                2000);
            QCOMPARE(reply, framed("0100X00"));
        }
        // Saved just after the reply has gone out.
        QTRY_COMPARE(E2e::readFile(dir.filePath("PROG_9.txt")),
                     E2e::expectedProgramFile(ProgramStore::samples(), 1, {1}));
        QTRY_VERIFY(E2e::readFile(state).contains("\n9 1 " + record + '\n'));
        QVERIFY(QDir(dir.path()).entryList(QDir::Hidden | QDir::Files).filter(".part").isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestSim)
#include "tst_sim.moc"

// What the product suites cannot notice of the simulator: the fault kinds
// and triggers they never use, and the pace of its replies.
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
};

QTEST_GUILESS_MAIN(TestSim)
#include "tst_sim.moc"

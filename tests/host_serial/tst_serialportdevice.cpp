#include <QtTest>

#include "host/serial/serialportdevice.h"
#include "tests/e2e_support/e2eprocesses.h"

#include <thread>

namespace
{

QByteArray framed(const QByteArray& text)
{
    return '\x02' + text + "\x03\r\n";
}

// Reads until a whole reply (ending in ETX CR LF) has arrived or time is up.
QByteArray readReply(SerialPortDevice& port, int timeoutMs = 3000)
{
    QByteArray reply;
    QElapsedTimer timer;
    timer.start();
    char buffer[64];
    while (!reply.endsWith("\x03\r\n") && timer.elapsed() < timeoutMs) {
        const int n = port.readBytes(buffer, sizeof buffer);
        if (n > 0)
            reply.append(buffer, n);
        else
            QThread::msleep(2);
    }
    return reply;
}

int send(SerialPortDevice& port, const QByteArray& text)
{
    const QByteArray frame = framed(text);
    return port.writeBytes(frame.constData(), frame.size());
}

} // namespace

class TestSerialPortDevice : public QObject
{
    Q_OBJECT
private slots:
    void settingsStrings_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("canonical"); // empty: refused
        QTest::addColumn<QString>("complaint");
        auto row = [](const char* name, const char* text, const char* canonical,
                      const char* complaint = "") {
            QTest::newRow(name) << QString(text) << QString(canonical) << QString(complaint);
        };
        row("lower-case words", "rs232,19200,none,7,2", "RS232,19200,NONE,7,2");
        row("four fields", "RS485,9600,EVEN,8", "", "found 4");
        row("line type", "RS999,9600,EVEN,8,1", "", "line type \"RS999\"");
        row("odd baud", "RS485,9601,EVEN,8,1", "", "baud rate \"9601\"");
        row("signed baud", "RS485,+9600,EVEN,8,1", "", "baud rate \"+9600\"");
        row("parity", "RS485,9600,MARK,8,1", "", "parity \"MARK\"");
        row("data bits", "RS485,9600,EVEN,9,1", "", "data bits \"9\"");
        row("stop bits", "RS485,9600,EVEN,8,1.5", "", "stop bits \"1.5\"");
    }
    void settingsStrings()
    {
        QFETCH(QString, text);
        QFETCH(QString, canonical);
        QFETCH(QString, complaint);
        SerialPortDevice port(QStringLiteral("/dev/null"));
        port.setSettings(QStringLiteral("RS232,4800,ODD,7,2"));
        const bool ok = port.setSettings(text);
        QCOMPARE(ok, !canonical.isEmpty());
        if (ok) {
            QCOMPARE(port.settings().toString(), canonical);
        } else {
            QVERIFY2(port.errorString().contains(complaint), qPrintable(port.errorString()));
            QCOMPARE(port.settings().toString(), QStringLiteral("RS232,4800,ODD,7,2"));
        }
    }

    // A pty has no parity and only 8 data bits: what it refuses is let pass
    // with a warning. A busy port opens once its holder has let go; settings
    // apply at the next open. (A missing port's message is the tool's.)
    void opensThePseudoTerminal()
    {
        E2e::Simulator sim({"--baud", "0"});
        QVERIFY(sim.started());
        SerialPortDevice port(sim.device());
        QVERIFY2(port.open() && port.isOpen(), qPrintable(port.errorString()));
        QCOMPARE(port.portName(), sim.device());
        QCOMPARE(port.warnings(), QStringList{QStringLiteral("parity EVEN")});
        SerialPortDevice second(sim.device());
        QVERIFY(!second.open());
        QCOMPARE(second.errorString(),
                 QStringLiteral("Port %1 is busy: another program has it open.").arg(sim.device()));
        port.close();
        QVERIFY(!port.isOpen());
        QCOMPARE(send(port, "0100XFC,1"), -1);
        QCOMPARE(port.errorString(), QStringLiteral("Port %1 is not open.").arg(sim.device()));
        QVERIFY(second.setSettings(QStringLiteral("RS485,9600,NONE,7,1")));
        QVERIFY2(second.open(), qPrintable(second.errorString()));
        QCOMPARE(second.warnings(), QStringList{QStringLiteral("7 data bits")});
    }

    // Preparing a command, from whichever thread, drops whatever input nobody
    // has read: the next reply is the next command's own.
    void prepareDropsUnreadInput()
    {
        E2e::Simulator sim({"--baud", "0"});
        SerialPortDevice port(sim.device());
        QVERIFY2(port.open(), qPrintable(port.errorString()));
        QVERIFY(send(port, "0100XRS,3501W,2") > 0);
        QVERIFY(send(port, "0100XRS,3505W,2") > 0);
        QThread::msleep(200); // let both replies arrive unread
        bool prepared = false;
        std::thread([&] {
            prepared = port.setOption(AbstractDeviceInterface::OptionPrepareCommand, QVariant(0));
        }).join();
        QVERIFY(prepared);
        char buffer[64];
        QCOMPARE(port.readBytes(buffer, sizeof buffer), 0);
        QCOMPARE(send(port, "0100XRS,4509W,4"), 19);
        QCOMPARE(readReply(port), framed("0100X00,63537,65535,9999,0"));
    }
};

QTEST_GUILESS_MAIN(TestSerialPortDevice)
#include "tst_serialportdevice.moc"

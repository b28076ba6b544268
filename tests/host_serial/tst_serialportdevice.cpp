#include <QtTest>

#include "host/serial/serialportdevice.h"

#include <thread>

namespace
{

QByteArray framed(const QByteArray& text)
{
    return '\x02' + text + "\x03\r\n";
}

// The simulator as a child process on a fresh pseudo-terminal. Closing its
// stdin ends it, so a failing test never leaves one behind.
class Simulator
{
public:
    explicit Simulator(const QStringList& arguments)
    {
        process.setProgram(qEnvironmentVariable("DCP_BUILD_DIR") + "/bin/dcp30-sim");
        process.setArguments(arguments + QStringList{"--exit-on-stdin-eof"});
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start();
        if (!process.waitForStarted(5000))
            return;
        while (!process.canReadLine() && process.waitForReadyRead(5000)) {
        }
        const QString line = QString::fromLocal8Bit(process.readLine()).trimmed();
        const QString prefix = QStringLiteral("dcp30-sim: listening on ");
        if (line.startsWith(prefix))
            device = line.mid(prefix.size());
    }
    ~Simulator()
    {
        process.closeWriteChannel();
        if (!process.waitForFinished(5000))
            process.kill();
        process.waitForFinished(1000);
    }
    QString device;
    QProcess process;
};

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
        row("default", "RS485,9600,EVEN,8,1", "RS485,9600,EVEN,8,1");
        row("lower-case words", "rs232,19200,none,7,2", "RS232,19200,NONE,7,2");
        row("odd", "RS422,115200,ODD,8,1", "RS422,115200,ODD,8,1");
        row("four fields", "RS485,9600,EVEN,8", "", "found 4");
        row("six fields", "RS485,9600,EVEN,8,1,1", "", "found 6");
        row("empty", "", "", "found 1");
        row("line type", "RS999,9600,EVEN,8,1", "", "line type \"RS999\"");
        row("odd baud", "RS485,9601,EVEN,8,1", "", "baud rate \"9601\"");
        row("signed baud", "RS485,+9600,EVEN,8,1", "", "baud rate \"+9600\"");
        row("blank in baud", "RS485, 9600,EVEN,8,1", "", "baud rate \" 9600\"");
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

    void opensThePseudoTerminal()
    {
        Simulator sim({"--baud", "0"});
        QVERIFY(!sim.device.isEmpty());
        SerialPortDevice port(sim.device);
        QVERIFY2(port.open(), qPrintable(port.errorString()));
        QVERIFY(port.isOpen());
        QCOMPARE(port.portName(), sim.device);
        // A pty has no parity; the default "EVEN" is let pass with a warning.
        QVERIFY2(port.warnings().join(' ').contains(QLatin1String("parity EVEN")),
                 qPrintable(port.warnings().join(' ')));
        QCOMPARE(port.retryCount(), SerialPortDevice::DefaultRetryCount);
        port.setRetryCount(0);
        QCOMPARE(port.retryCount(), 0);
        port.close();
        QVERIFY(!port.isOpen());
        // Settings apply at the next open; 7 data bits are refused by a pty too.
        QVERIFY(port.setSettings(QStringLiteral("RS485,9600,NONE,7,1")));
        QVERIFY2(port.open(), qPrintable(port.errorString()));
        QCOMPARE(port.warnings(), QStringList{QStringLiteral("7 data bits")});
    }

    void writeInOneThreadReadInAnother()
    {
        Simulator sim({"--baud", "0"});
        SerialPortDevice port(sim.device);
        QVERIFY2(port.open(), qPrintable(port.errorString()));
        const QByteArrayList requests{"0100XRS,4509W,4", "0100XFO,3,R,0", "0100XFR,3,12",
                                      "0100XFC,3"};
        const QByteArrayList expected{"0100X00,63537,65535,9999,0", "0100X00", "0100X00,FR,3,12,",
                                      "0100X00"};
        for (int i = 0; i < requests.size(); ++i) {
            int written = 0;
            std::thread writer([&] {
                port.setOption(AbstractDeviceInterface::OptionPrepareCommand, QVariant(0));
                written = send(port, requests.at(i));
            });
            writer.join();
            QCOMPARE(written, requests.at(i).size() + 4);
            const QByteArray reply = readReply(port);
            QVERIFY2(reply.startsWith('\x02' + expected.at(i)), reply.constData());
        }
    }

    void pacedSegmentArrivesWithinTheReadWait()
    {
        Simulator sim({"--baud", "9600"});
        SerialPortDevice port(sim.device, SerialSettings(), 2);
        QVERIFY2(port.open(), qPrintable(port.errorString()));
        QCOMPARE(send(port, "0100XFO,1,R,0"), 17);
        QCOMPARE(readReply(port), framed("0100X00"));
        // As the worker does it: send, wait the fixed time, read once.
        port.setOption(AbstractDeviceInterface::OptionPrepareCommand, QVariant(0));
        QCOMPARE(send(port, "0100XFR,1,1"), 15);
        QThread::msleep(350);
        char buffer[255] = {};
        const int n = port.readBytes(buffer, 200);
        QCOMPARE(n, 16 + 120 + 3);
        QCOMPARE(QByteArray(buffer + 16), QByteArray(buffer + 16, 123));
        QVERIFY(QByteArray(buffer).endsWith("\x03\r\n"));
    }

    void prepareCommandDropsStaleInput()
    {
        Simulator sim({"--baud", "0"});
        SerialPortDevice port(sim.device);
        QVERIFY2(port.open(), qPrintable(port.errorString()));
        QVERIFY(send(port, "0100XRS,3501W,2") > 0);
        QVERIFY(send(port, "0100XRS,3505W,2") > 0);
        QThread::msleep(200); // let both replies arrive unread
        QVERIFY(port.setOption(AbstractDeviceInterface::OptionPrepareCommand, QVariant(0)));
        char buffer[64];
        QCOMPARE(port.readBytes(buffer, sizeof buffer), 0);
        QVERIFY(send(port, "0100XRS,3509W,2") > 0);
        QCOMPARE(readReply(port), framed("0100X00,50,0"));
        QVERIFY(!port.setOption(AbstractDeviceInterface::OptionPrepareCommand, QVariant(1)));
        QVERIFY(!port.setOption(3, QVariant(0)));
    }

    void missingPortRefusesWrites()
    {
        SerialPortDevice port(QStringLiteral("/dev/dcp30-no-such-port"));
        QVERIFY(!port.open());
        QVERIFY(!port.isOpen());
        QCOMPARE(port.errorString(),
                 QStringLiteral("Port /dev/dcp30-no-such-port does not exist."));
        QCOMPARE(send(port, "0100XFC,1"), -1);
        QVERIFY(port.errorString().contains(QLatin1String("is not open")));
        char buffer[8];
        QCOMPARE(port.readBytes(buffer, sizeof buffer), 0);
    }

    void busyPort()
    {
        Simulator sim({"--baud", "0"});
        SerialPortDevice first(sim.device);
        QVERIFY2(first.open(), qPrintable(first.errorString()));
        SerialPortDevice second(sim.device);
        QVERIFY(!second.open());
        QCOMPARE(second.errorString(),
                 QStringLiteral("Port %1 is busy: another program has it open.").arg(sim.device));
        first.close();
        QVERIFY2(second.open(), qPrintable(second.errorString()));
    }
};

QTEST_GUILESS_MAIN(TestSerialPortDevice)
#include "tst_serialportdevice.moc"

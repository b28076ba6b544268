#include <QtTest>

#include "host/serial/serialportdevice.h"
#include "sim/programstore.h"

#include <csignal>

namespace
{

QString simPath()
{
    return qEnvironmentVariable("DCP_BUILD_DIR") + "/bin/dcp30-sim";
}

QString startAndReadDevice(QProcess& process, const QStringList& arguments)
{
    process.setProgram(simPath());
    process.setArguments(arguments);
    process.start();
    if (!process.waitForStarted(5000))
        return QString();
    while (!process.canReadLine() && process.waitForReadyRead(5000)) {
    }
    const QString line = QString::fromLocal8Bit(process.readLine()).trimmed();
    return line.section(QStringLiteral("listening on "), 1);
}

QByteArray framed(const QByteArray& text)
{
    return '\x02' + text + "\x03\r\n";
}

QByteArray exchange(SerialPortDevice& port, const QByteArray& text, int waitMs)
{
    const QByteArray frame = framed(text);
    port.setOption(AbstractDeviceInterface::OptionPrepareCommand, QVariant(0));
    port.writeBytes(frame.constData(), frame.size());
    QThread::msleep(waitMs);
    char buffer[255] = {};
    port.readBytes(buffer, 200);
    return QByteArray(buffer);
}

} // namespace

class TestSimProcess : public QObject
{
    Q_OBJECT
private slots:
    void servesLinkFaultsAndSavesOnTerm()
    {
        QTemporaryDir dir;
        const QString link = dir.filePath(QStringLiteral("ttyDCP"));
        const QString programs = dir.filePath(QStringLiteral("programs.txt"));
        QFile seed(programs);
        QVERIFY(seed.open(QIODevice::WriteOnly));
        seed.write("5 1 " + QByteArray(120, 'A') + "\n");
        seed.close();

        QProcess sim;
        const QString device = startAndReadDevice(
            sim, {"--link", link, "--programs", programs, "--save-on-exit", "--baud", "0",
                  "--sp-limits", "-100,500", "--event-kinds", "1,5,50", "--fault",
                  "late=600:FR@at=2", "--fault", "status=52:FO-W"});
        QVERIFY(device.startsWith(QLatin1String("/dev/")));
        QCOMPARE(QFileInfo(link).symLinkTarget(), device);

        SerialPortDevice port(link);
        QVERIFY2(port.open(), qPrintable(port.errorString()));
        QCOMPARE(exchange(port, "0100XRS,4509W,4", 300), framed("0100X00,65436,65535,500,0"));
        QCOMPARE(exchange(port, "0100XRS,3505W,1", 300), framed("0100X00,5"));
        QCOMPARE(exchange(port, "0100XFO,5,W,0", 300), framed("0100X52"));
        QCOMPARE(exchange(port, "0100XFO,5,R,0", 300), framed("0100X00"));
        QCOMPARE(exchange(port, "0100XFR,5,1", 350).mid(16), QByteArray(120, 'A') + "\x03\r\n");
        // The second read answers after the worker's wait: nothing yet, the
        // whole reply later.
        QCOMPARE(exchange(port, "0100XFR,5,1", 350), QByteArray());
        QThread::msleep(400);
        char buffer[255] = {};
        port.readBytes(buffer, 200);
        QCOMPARE(QByteArray(buffer).mid(16), QByteArray(120, 'A') + "\x03\r\n");
        QCOMPARE(exchange(port, "0100XFC,5", 300), framed("0100X00"));
        QCOMPARE(exchange(port, "0100XFO,5,W,0", 300), framed("0100X00"));
        QCOMPARE(exchange(port, "0100XFW,5,2," + QByteArray(92, 'b'), 300), framed("0100X00"));
        port.close();

        ::kill(pid_t(sim.processId()), SIGTERM);
        QVERIFY(sim.waitForFinished(5000));
        QCOMPARE(sim.exitStatus(), QProcess::NormalExit);
        QCOMPARE(sim.exitCode(), 0);
        QVERIFY(!QFileInfo(link).isSymLink());
        ProgramStore saved;
        QString error;
        QVERIFY2(saved.load(programs, &error), qPrintable(error));
        QCOMPARE(saved.segmentCount(5), 2);
        QCOMPARE(saved.segment(5, 2), QByteArray(92, 'B'));
    }

    void endsWithStdin()
    {
        QProcess sim;
        QVERIFY(!startAndReadDevice(sim, {"--exit-on-stdin-eof"}).isEmpty());
        sim.closeWriteChannel();
        QVERIFY(sim.waitForFinished(5000));
        QCOMPARE(sim.exitCode(), 0);
    }

    void badCommandLine_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("complaint");
        QTest::newRow("fault") << QStringList{"--fault", "drop:XX"} << "unknown command \"XX\"";
        QTest::newRow("limits") << QStringList{"--sp-limits", "9,1"} << "--sp-limits";
        QTest::newRow("kinds") << QStringList{"--event-kinds", "1,2"} << "--event-kinds";
        QTest::newRow("baud") << QStringList{"--baud", "fast"} << "--baud";
        QTest::newRow("save without file") << QStringList{"--save-on-exit"} << "--programs";
        QTest::newRow("stray argument") << QStringList{"extra"} << "unexpected argument extra";
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

QTEST_GUILESS_MAIN(TestSimProcess)
#include "tst_simprocess.moc"

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

QByteArray framed(const QByteArray& text)
{
    return '\x02' + text + "\x03\r\n";
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

class TestSimProcess : public QObject
{
    Q_OBJECT
private slots:
    // The link, a program file to start from, a late reply paced by the front
    // end, and SIGTERM saving the programs and removing the link. (Limits,
    // event kinds and the other faults reach the engine in the end-to-end
    // and tool suites, which also end it by closing its stdin.)
    void servesLinkFaultsAndSavesOnTerm()
    {
        QTemporaryDir dir;
        const QString link = dir.filePath(QStringLiteral("ttyDCP"));
        const QString programs = dir.filePath(QStringLiteral("programs.txt"));
        const QByteArray record(120, 'A');
        QFile seed(programs);
        QVERIFY(seed.open(QIODevice::WriteOnly) && seed.write("5 1 " + record + "\n") > 0);
        seed.close();

        QProcess sim;
        sim.start(simPath(), {"--link", link, "--programs", programs, "--save-on-exit", "--baud",
                              "0", "--fault", "late=600:FR@at=2"});
        QVERIFY(sim.waitForStarted(5000));
        while (!sim.canReadLine() && sim.waitForReadyRead(5000)) {
        }
        const QString device = QString::fromLocal8Bit(sim.readLine()).trimmed().section("on ", 1);
        QVERIFY(device.startsWith(QLatin1String("/dev/")));
        QCOMPARE(QFileInfo(link).symLinkTarget(), device);

        SerialPortDevice port(link);
        QVERIFY2(port.open(), qPrintable(port.errorString()));
        const QByteArray readReply = framed("0100X00,FR,5,1," + record);
        const QList<QPair<QByteArray, QByteArray>> steps{
            {"0100XFO,5,R,0", framed("0100X00")},
            {"0100XFR,5,1", readReply},
            {"0100XFR,5,1", QByteArray()}, // not within the worker's wait ...
            {QByteArray(), readReply},     // ... but a little later
            {"0100XFC,5", framed("0100X00")},
            {"0100XFO,5,W,0", framed("0100X00")},
            {"0100XFW,5,2," + QByteArray(92, 'b'), framed("0100X00")}};
        for (const auto& step : steps)
            QCOMPARE(exchange(port, step.first, 350), step.second);
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

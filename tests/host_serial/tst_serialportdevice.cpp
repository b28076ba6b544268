#include <QtTest>

#include "host/serial/portoptions.h"
#include "host/serial/serialportdevice.h"
#include "tests/e2e_support/e2eprocesses.h"

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
        row("line type", "RS999,9600,EVEN,8,1", "", "line type \"RS999\"");
        row("odd baud", "RS485,9601,EVEN,8,1", "", "baud rate \"9601\"");
        row("signed baud", "RS485,+9600,EVEN,8,1", "", "baud rate \"+9600\"");
        row("parity", "RS485,9600,MARK,8,1", "", "parity \"MARK\"");
        row("data bits", "RS485,9600,EVEN,9,1", "", "data bits \"9\"");
        row("stop bits", "RS485,9600,EVEN,8,1.5", "", "stop bits \"1.5\"");
    }
    // A refused string names the field and keeps the settings there were.
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
        QCOMPARE(port.warnings(), QStringList{QStringLiteral("parity EVEN")});
        SerialPortDevice second(sim.device());
        QVERIFY(!second.open());
        QCOMPARE(second.errorString(),
                 QStringLiteral("Port %1 is busy: another program has it open.").arg(sim.device()));
        port.close();
        QVERIFY(second.setSettings(QStringLiteral("RS485,9600,NONE,7,1")));
        QVERIFY2(second.open(), qPrintable(second.errorString()));
        QCOMPARE(second.warnings(), QStringList{QStringLiteral("7 data bits")});
    }

    // The companion's wait: woken by the reply's first bytes long before the
    // time is up; with nothing coming it returns empty-handed at the end.
    void waitsForInput()
    {
        E2e::Simulator sim({"--baud", "0"});
        QVERIFY(sim.started());
        SerialPortDevice port(sim.device());
        QVERIFY2(port.open(), qPrintable(port.errorString()));
        char buffer[64];
        QVERIFY(port.setOption(HostPortOptions::WaitForInput, 20));
        QCOMPARE(port.readBytes(buffer, int(sizeof buffer)), 0);
        const QByteArray request("\x02"
                                 "0100XRS,3501W,1\x03\r\n");
        QCOMPARE(port.writeBytes(request.constData(), request.size()), request.size());
        QElapsedTimer clock;
        clock.start();
        QVERIFY(port.setOption(HostPortOptions::WaitForInput, 20000));
        QVERIFY(clock.elapsed() < 20000);
        QVERIFY(port.readBytes(buffer, int(sizeof buffer)) > 0);
    }
};

QTEST_GUILESS_MAIN(TestSerialPortDevice)
#include "tst_serialportdevice.moc"

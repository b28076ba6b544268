#ifndef HOST_SDC35COMPANION_H
#define HOST_SDC35COMPANION_H

#include "driver/driverinterface.h"

#include <QByteArray>
#include <QObject>
#include <QVector>

// Stand-in for the companion driver of the register protocol, which the
// DCP30 driver uses for every address it does not serve itself. Speaks a
// small register protocol (framed STX ... ETX CR LF, no checksum):
//   read   "0100XRS,<address>W,<words>"       reply "0100X00,<w1>,<w2>,..."
//   write  "0100XWS,<address>W,<w1>,<w2>,..." reply "0100X00"
// <address> is the decimal number after "RAM"; words are unsigned decimal
// 0..65535; a double word at address a is word a (low) and a+1 (high).
// Status 00 and 01 accept; anything else, a wrong header or no reply fails
// (read: empty array, write: false).
class Sdc35Companion : public QObject, public DriverInterface
{
    Q_OBJECT
    Q_INTERFACES(DriverInterface)

public:
    // Longest request in words; more is refused without asking the line.
    static constexpr int MaxWords = 64;
    // How long a reply may take to arrive completely, and the polling step
    // on a port that cannot wait for input.
    static constexpr int ReplyTimeoutMs = 500;
    static constexpr int PollMs = 10;

    int totalSize() override { return 65535; }
    // Word kind: count words; double-word kind: 2 x count words; other kinds
    // are not supported (empty answer / false). Bytes little-endian, low
    // word first.
    bool write(AbstractDeviceInterface* device, const CommunicatorCommand& command,
               const QByteArray& data) override;
    QByteArray read(AbstractDeviceInterface* device, const CommunicatorCommand& command) override;
    bool initialize(AbstractDeviceInterface*) override { return true; }
    bool validation(const QString&) override { return true; }
    QString name() override { return QStringLiteral("SDC35"); }
    QString vender() override { return QStringLiteral("host stand-in"); }
    QString getVersionNumber() override { return QStringLiteral("0.1.0"); }
    DeviceSetting* getDefaultSerialDeviceSetting() override;
    DriverSetting* getDefaultDriverSetting() override;
    int supportedCommunicationFlags() override { return 64; }
    void setDebugMode(bool) override {}
    int getBlockAccessSize() override { return 0; }
    int getBitBlockAccessSize() override { return 0; }
    bool hasError() override { return false; }
    QString getLastError() override { return QString(); }
    QObject* getThisObject() override { return this; }

    // Pure protocol pieces, public for the tests.
    // Register number of "RAM<digits>", or -1.
    static int registerNumber(const QString& address);
    // Words the command covers, or -1 for an unsupported kind or size.
    static int wordCount(const CommunicatorCommand& command);
    static QByteArray frame(const QByteArray& text);
    // The text between STX and ETX of a reply with status 00/01 behind the
    // header "0100X", or a null array.
    static QByteArray acceptedBody(const QByteArray& reply);
    // The words of a read reply's body ("0100X00,w1,...") when there are
    // exactly expected of them, each 0..65535; otherwise empty.
    static QVector<quint16> parseWords(const QByteArray& body, int expected);

private:
    // Sends the framed text and collects the reply; a null array when the
    // send fails or no complete reply arrives in time.
    QByteArray exchange(AbstractDeviceInterface* device, const QByteArray& text);
};

#endif

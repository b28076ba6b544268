#include <QtTest>

#include "common/devicesetting.h"
#include "common/driversetting.h"

namespace
{

template <typename T> QByteArray streamed(const T& value)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << value;
    return bytes;
}

template <typename T> QDataStream::Status readInto(const QByteArray& bytes, T& target)
{
    QDataStream in(bytes);
    in >> target;
    return in.status();
}

// The default serial port with endpoints "<prefix>1".. on ports 1...
DeviceSetting withEndpoints(int count, const QString& prefix = QStringLiteral("10.0.0."))
{
    DeviceSetting s(device_type(64), QStringLiteral("COM1"), 9600, 8, 0, 2);
    for (int i = 0; i < count; ++i)
        s.socketList.append(qMakePair(prefix + QString::number(i + 1), ushort(i + 1)));
    return s;
}

} // namespace

class TestSettings : public QObject
{
    Q_OBJECT
private slots:
    // Index -1 means the current endpoint. Outside the list the getters give 0
    // or an empty text, and neither the setters nor setCurrentIPIndex act.
    void endpointAccess()
    {
        DeviceSetting s = withEndpoints(0);
        s.setPort(502, -1);
        s.setSocketIP(QStringLiteral("x"), -1);
        s.setCurrentIPIndex(0);
        QVERIFY(s.socketList.isEmpty() && s.port(-1) == 0 && s.socketIP(-1).isEmpty());

        s = withEndpoints(3);
        for (int index : {2, -1, 3})
            s.setCurrentIPIndex(index);
        QCOMPARE(s.currentIPIndex, 2);
        s.setPort(502, -1);
        s.setSocketIP(QStringLiteral("192.168.1.9"), 1);
        s.setPort(9, 3);
        s.setSocketIP(QStringLiteral("y"), 3);
        QCOMPARE(s.socketList, (QList<QPair<QString, unsigned short>>{
                                   {"10.0.0.1", 1}, {"192.168.1.9", 2}, {"10.0.0.3", 502}}));
        QCOMPARE(s.socketIP(-1) + s.socketIP(3), QStringLiteral("10.0.0.3"));
        QCOMPARE(QList<int>({s.port(-1), s.port(1), s.port(3)}), QList<int>({502, 2, 0}));
    }

    void setSocketData()
    {
        DeviceSetting s = withEndpoints(4);
        s.currentIPIndex = 3;
        s.setSocketData({{"h1", "502"}, {"h2", "x"}, {"h3", "65536"}, {"h4", "-1"}});
        QCOMPARE(s.socketList, (QList<QPair<QString, unsigned short>>{
                                   {"h1", 502}, {"h2", 0}, {"h3", 0}, {"h4", 0}}));
        s.setSocketData({{QStringLiteral("h"), QStringLiteral("1")}});
        QCOMPARE(s.socketList.size(), 1);
        QCOMPARE(s.currentIPIndex, 3); // kept even though it now lies outside
        QCOMPARE(s.port(-1), ushort(0));
    }

    // Big-endian Qt stream, as the runtime writes it.
    void deviceStreamLayout()
    {
        const DeviceSetting empty(device_type(64), QString(""), 9600, 8, 0, 2, 5,
                                  QStringLiteral("x"));
        QCOMPARE(streamed(empty), QByteArray::fromHex("00000040 00000000 00002580 00000008 "
                                                      "00000000 00000002 00000005 ffffffff "
                                                      "00000000 00000000"));
        DeviceSetting s = withEndpoints(1);
        s.string = QStringLiteral("A");
        s.linkID = 3;
        QCOMPARE(streamed(s), QByteArray::fromHex("00000040 000000020041 00002580 00000008 "
                                                  "00000000 00000002 00000000 00000003 00000000 "
                                                  "00000001 00000010 00310030002e0030002e0030002e"
                                                  "0031 0001"));
    }

    // Read back into a record that already holds other values. The index is
    // taken only when it lies within the list just read; extraText is never
    // streamed. A cut stream keeps the complete pairs before the cut.
    void deviceStreamRoundTrip_data()
    {
        QTest::addColumn<int>("endpoints");
        QTest::addColumn<int>("index");
        QTest::addColumn<int>("cut"); // bytes removed from the end
        QTest::addColumn<bool>("statusOk");
        QTest::addColumn<int>("expectedEndpoints"); // -1: nothing taken
        QTest::addColumn<int>("expectedIndex");
        // "COM4" and three endpoints "host1".."host3" on 16 bytes each: 44
        // bytes of fields, a 4-byte count and 48 bytes of pairs.
        QTest::newRow("no endpoints: index 0 lies outside") << 0 << 0 << 0 << true << 0 << 1;
        QTest::newRow("index inside the list") << 3 << 2 << 0 << true << 3 << 2;
        QTest::newRow("cut inside the last pair") << 3 << 0 << 1 << false << 2 << 0;
        // The list form stops quietly when the stream ends right after a pair.
        QTest::newRow("last pair gone") << 3 << 2 << 16 << true << 2 << 1;
        QTest::newRow("fields cut: nothing taken") << 3 << 0 << 60 << false << -1 << 1;
    }
    void deviceStreamRoundTrip()
    {
        QFETCH(int, endpoints);
        QFETCH(int, cut);
        QFETCH(int, expectedEndpoints);
        QFETCH(int, index);
        DeviceSetting source(device_type(3), QStringLiteral("COM4"), 38400, 7, 2, 1, 99,
                             QStringLiteral("source extra"));
        source.linkID = 12;
        source.socketList = withEndpoints(endpoints, QStringLiteral("host")).socketList;
        source.currentIPIndex = index;
        DeviceSetting target = withEndpoints(2);
        target.extraText = QStringLiteral("target extra");
        target.currentIPIndex = 1;
        const QByteArray before = streamed(target);

        QTEST(readInto(streamed(source).chopped(cut), target) == QDataStream::Ok, "statusOk");
        QCOMPARE(target.extraText, QStringLiteral("target extra"));
        if (expectedEndpoints < 0) {
            QCOMPARE(streamed(target), before);
            return;
        }
        QTEST(target.currentIPIndex, "expectedIndex");
        QCOMPARE(target.socketList, source.socketList.mid(0, expectedEndpoints));
        // Every other streamed field came across.
        target.currentIPIndex = source.currentIPIndex;
        target.socketList = source.socketList;
        QCOMPARE(streamed(target), streamed(source));
    }

    // The test fails if an expected message does not come.
    void dumps()
    {
        DeviceSetting device = withEndpoints(0);
        device.socketList = {{QStringLiteral("10.0.0.1"), 502}, {QStringLiteral("10.0.0.2"), 503}};
        device.currentIPIndex = 1;
        device.type = device_type(-1); // printed as an unsigned number
        QTest::ignoreMessage(QtDebugMsg, "type: 4294967295 string: \"COM1\" baudrate: 9600 "
                                         "databits: 8 stopbits: 0 parity: 2 linkID: -1 current "
                                         "ip: \"10.0.0.2\" current port: 503");
        device.dump();
        QTest::ignoreMessage(QtDebugMsg, "timeout: 500 retry: 3 stationid: 1 delay: 0");
        DriverSetting(500, 3, 1, 0, QString(), 0, QStringLiteral("hidden"), true).dump();
    }

    void driverSetting()
    {
        QVERIFY(!DriverSetting(500, 3, 1, 0).optionFlag);
        // Four integers, nothing else; reading leaves the option fields alone.
        const QByteArray bytes = streamed(
            DriverSetting(500, 3, -1, 0x01020304, QString(), 0, QStringLiteral("x"), true));
        QCOMPARE(bytes, QByteArray::fromHex("000001f4 00000003 ffffffff 01020304"));
        DriverSetting target(0, 0, 0, 0, QString(), 0, QStringLiteral("keep"), false);
        QCOMPARE(readInto(bytes, target), QDataStream::Ok);
        QCOMPARE(streamed(target), bytes);
        QCOMPARE(target.optionText + QString::number(target.optionFlag), QStringLiteral("keep0"));

        // copy takes the text but not the flag.
        target.copy(DriverSetting(1, 2, 3, 4, QString(), 0, QStringLiteral("opt"), true));
        QCOMPARE(streamed(target), streamed(DriverSetting(1, 2, 3, 4)));
        QCOMPARE(target.optionText + QString::number(target.optionFlag), QStringLiteral("opt0"));

        // Cut short: nothing is taken over.
        QCOMPARE(readInto(bytes.chopped(1), target), QDataStream::ReadPastEnd);
        QCOMPARE(streamed(target), streamed(DriverSetting(1, 2, 3, 4)));
    }
};

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_settings.moc"

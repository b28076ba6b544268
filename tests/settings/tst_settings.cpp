#include <QtTest>

#include "common/devicesetting.h"
#include "common/driversetting.h"

namespace
{

QStringList capturedMessages;

void captureHandler(QtMsgType type, const QMessageLogContext&, const QString& msg)
{
    if (type == QtDebugMsg)
        capturedMessages.append(msg);
}

template <typename F> QStringList captureDebug(F f)
{
    capturedMessages.clear();
    const QtMessageHandler previous = qInstallMessageHandler(captureHandler);
    f();
    qInstallMessageHandler(previous);
    return capturedMessages;
}

template <typename T> QByteArray streamed(const T& value)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << value;
    return bytes;
}

DeviceSetting defaultSerial()
{
    return DeviceSetting(device_type(64), QStringLiteral("COM1"), 9600, 8, 0, 2);
}

DeviceSetting withEndpoints(int count)
{
    DeviceSetting s = defaultSerial();
    for (int i = 0; i < count; ++i)
        s.socketList.append(qMakePair(QStringLiteral("10.0.0.%1").arg(i + 1),
                                      static_cast<unsigned short>(500 + i)));
    return s;
}

} // namespace

class TestSettings : public QObject
{
    Q_OBJECT
private slots:
    void deviceConstructors();
    void endpointAccess_data();
    void endpointAccess();
    void setCurrentIPIndex_data();
    void setCurrentIPIndex();
    void setSocketData();
    void deviceStreamLayout();
    void deviceRoundTrip_data();
    void deviceRoundTrip();
    void deviceTruncatedStream_data();
    void deviceTruncatedStream();
    void dumps();
    void driverConstructorsAndCopy();
    void driverStreamLayout();
    void driverTruncatedStream();
};

void TestSettings::deviceConstructors()
{
    const DeviceSetting full(device_type(7), QStringLiteral("COM2"), 19200, 7, 1, 1, 42,
                             QStringLiteral("extra"));
    QCOMPARE(int(full.type), 7);
    QCOMPARE(full.string, QStringLiteral("COM2"));
    QCOMPARE(full.baudrate, 19200);
    QCOMPARE(full.databits, 7);
    QCOMPARE(full.stopbits, 1);
    QCOMPARE(full.parity, 1);
    QCOMPARE(full.extraNumber, 42);
    QCOMPARE(full.extraText, QStringLiteral("extra"));
    QCOMPARE(full.linkID, -1);
    QCOMPARE(full.currentIPIndex, 0);
    QVERIFY(full.socketList.isEmpty());

    const DeviceSetting s = defaultSerial();
    QCOMPARE(int(s.type), 64);
    QCOMPARE(s.extraNumber, 0);
    QVERIFY(s.extraText.isEmpty());
    QCOMPARE(s.linkID, -1);
}

void TestSettings::endpointAccess_data()
{
    QTest::addColumn<int>("endpoints");
    QTest::addColumn<int>("current");
    QTest::addColumn<int>("index");
    QTest::addColumn<bool>("inside"); // does index name an endpoint?
    QTest::addColumn<int>("resolved");
    QTest::newRow("-1 on an empty list") << 0 << 0 << -1 << false << -1;
    QTest::newRow("0 on an empty list") << 0 << 0 << 0 << false << -1;
    QTest::newRow("-1 follows the current index") << 3 << 2 << -1 << true << 2;
    QTest::newRow("explicit index") << 3 << 2 << 1 << true << 1;
    QTest::newRow("index equal to the size") << 3 << 0 << 3 << false << -1;
    QTest::newRow("-2 is outside") << 3 << 0 << -2 << false << -1;
}

void TestSettings::endpointAccess()
{
    QFETCH(int, endpoints);
    QFETCH(int, current);
    QFETCH(int, index);
    QFETCH(bool, inside);
    QFETCH(int, resolved);
    DeviceSetting s = withEndpoints(endpoints);
    s.currentIPIndex = current;
    const auto before = s.socketList;

    QCOMPARE(s.port(index), inside ? before.at(resolved).second : 0);
    QCOMPARE(s.socketIP(index), inside ? before.at(resolved).first : QString());

    s.setPort(502, index);
    s.setSocketIP(QStringLiteral("192.168.1.9"), index);
    auto expected = before;
    if (inside)
        expected[resolved] = qMakePair(QStringLiteral("192.168.1.9"), (unsigned short)502);
    QCOMPARE(s.socketList, expected);
}

void TestSettings::setCurrentIPIndex_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("expected");
    QTest::newRow("first") << 0 << 0;
    QTest::newRow("last") << 2 << 2;
    QTest::newRow("-1 ignored") << -1 << 1;
    QTest::newRow("size ignored") << 3 << 1;
    QTest::newRow("far beyond ignored") << 1000 << 1;
}

void TestSettings::setCurrentIPIndex()
{
    QFETCH(int, index);
    DeviceSetting s = withEndpoints(3);
    s.currentIPIndex = 1;
    s.setCurrentIPIndex(index);
    QTEST(s.currentIPIndex, "expected");
}

void TestSettings::setSocketData()
{
    DeviceSetting s = withEndpoints(4);
    s.currentIPIndex = 3;
    s.setSocketData({{QStringLiteral("10.1.1.1"), QStringLiteral("502")},
                     {QStringLiteral("10.1.1.2"), QStringLiteral("x")},
                     {QStringLiteral("10.1.1.3"), QStringLiteral("65536")},
                     {QStringLiteral("10.1.1.4"), QStringLiteral("-1")}});
    const QList<QPair<QString, unsigned short>> expected{{QStringLiteral("10.1.1.1"), 502},
                                                         {QStringLiteral("10.1.1.2"), 0},
                                                         {QStringLiteral("10.1.1.3"), 0},
                                                         {QStringLiteral("10.1.1.4"), 0}};
    QCOMPARE(s.socketList, expected);

    s.setSocketData({{QStringLiteral("h"), QStringLiteral("1")}});
    QCOMPARE(s.socketList.size(), 1);
    QCOMPARE(s.currentIPIndex, 3); // kept even though it now lies outside
    QCOMPARE(s.port(-1), (unsigned short)0);
}

void TestSettings::deviceStreamLayout()
{
    // Big-endian Qt stream, as the runtime writes it.
    DeviceSetting empty(device_type(64), QString(""), 9600, 8, 0, 2, 5, QStringLiteral("x"));
    QByteArray expected = QByteArray::fromHex("00000040"
                                              "00000000"
                                              "00002580"
                                              "00000008"
                                              "00000000"
                                              "00000002"
                                              "00000005"
                                              "ffffffff"
                                              "00000000"
                                              "00000000");
    QCOMPARE(streamed(empty).size(), 40);
    QCOMPARE(streamed(empty), expected);

    DeviceSetting s = withEndpoints(1);
    s.string = QStringLiteral("A");
    s.linkID = 3;
    expected = QByteArray::fromHex("00000040"
                                   "000000020041"
                                   "00002580"
                                   "00000008"
                                   "00000000"
                                   "00000002"
                                   "00000000"
                                   "00000003"
                                   "00000000"
                                   "00000001"
                                   "00000010"
                                   "00310030002e0030002e0030002e0031"
                                   "01f4");
    QCOMPARE(streamed(s), expected);
}

void TestSettings::deviceRoundTrip_data()
{
    QTest::addColumn<int>("endpoints");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("expectedIndex");
    QTest::newRow("no endpoints: index 0 lies outside, target keeps its own") << 0 << 0 << 1;
    QTest::newRow("index inside the list") << 3 << 2 << 2;
    QTest::newRow("index outside its own list keeps the target's") << 2 << 5 << 1;
}

void TestSettings::deviceRoundTrip()
{
    QFETCH(int, endpoints);
    QFETCH(int, index);
    DeviceSetting source(device_type(3), QStringLiteral("COM4"), 38400, 7, 2, 1, 99,
                         QStringLiteral("source extra"));
    source.linkID = 12;
    for (int i = 0; i < endpoints; ++i)
        source.socketList.append(
            qMakePair(QStringLiteral("host%1").arg(i), (unsigned short)(i + 1)));
    source.currentIPIndex = index;

    DeviceSetting target(device_type(1), QStringLiteral("old"), 1, 1, 1, 1, 1,
                         QStringLiteral("target extra"));
    target.socketList = {{QStringLiteral("a"), 1}, {QStringLiteral("b"), 2}};
    target.currentIPIndex = 1;

    const QByteArray bytes = streamed(source);
    QDataStream in(bytes);
    in >> target;
    QCOMPARE(in.status(), QDataStream::Ok);
    QVERIFY(in.atEnd());
    QCOMPARE(int(target.type), 3);
    QCOMPARE(target.string, QStringLiteral("COM4"));
    QCOMPARE(target.baudrate, 38400);
    QCOMPARE(target.databits, 7);
    QCOMPARE(target.stopbits, 2);
    QCOMPARE(target.parity, 1);
    QCOMPARE(target.extraNumber, 99);
    QCOMPARE(target.linkID, 12);
    QCOMPARE(target.socketList, source.socketList);
    QCOMPARE(target.extraText, QStringLiteral("target extra"));
    QTEST(target.currentIPIndex, "expectedIndex");
}

void TestSettings::deviceTruncatedStream_data()
{
    QTest::addColumn<int>("cut"); // bytes removed from the end
    QTest::addColumn<int>("expectedEndpoints");
    QTest::addColumn<bool>("headerTaken");
    QTest::addColumn<bool>("statusOk");
    // Three endpoints "h0".."h2": each pair is 4 + 4 + 2 = 10 bytes.
    QTest::newRow("last port cut") << 1 << 2 << true << false;
    // The list form stops quietly when the stream ends right after a pair.
    QTest::newRow("last pair gone") << 10 << 2 << true << true;
    QTest::newRow("inside the second pair") << 13 << 1 << true << false;
    QTest::newRow("count cut") << 32 << 0 << true << false;
    QTest::newRow("header cut") << 40 << 2 << false << false;
}

void TestSettings::deviceTruncatedStream()
{
    QFETCH(int, cut);
    QFETCH(int, expectedEndpoints);
    QFETCH(bool, headerTaken);
    QFETCH(bool, statusOk);
    DeviceSetting source(device_type(9), QString(), 1200, 7, 1, 1);
    for (int i = 0; i < 3; ++i)
        source.socketList.append(qMakePair(QStringLiteral("h%1").arg(i), (unsigned short)(i + 1)));
    source.currentIPIndex = 1;
    QByteArray bytes = streamed(source);
    QCOMPARE(bytes.size(), 40 + 30);
    bytes.chop(cut);

    DeviceSetting target = defaultSerial();
    target.socketList = {{QStringLiteral("a"), 1}, {QStringLiteral("b"), 2}};
    QDataStream in(bytes);
    in >> target;
    QCOMPARE(in.status() == QDataStream::Ok, statusOk);
    QCOMPARE(target.baudrate, headerTaken ? 1200 : 9600);
    QCOMPARE(target.socketList.size(), expectedEndpoints);
    for (int i = 0; headerTaken && i < expectedEndpoints; ++i)
        QCOMPARE(target.socketList.at(i), source.socketList.at(i));
}

void TestSettings::dumps()
{
    DeviceSetting device = defaultSerial();
    QCOMPARE(captureDebug([&] { device.dump(); }),
             QStringList{"type: 64 string: \"COM1\" baudrate: 9600 databits: 8 stopbits: 0 "
                         "parity: 2 linkID: -1 current ip: \"\" current port: 0"});

    device.socketList = {{QStringLiteral("10.0.0.1"), 502}, {QStringLiteral("10.0.0.2"), 503}};
    device.currentIPIndex = 1;
    device.type = device_type(-1); // printed as an unsigned number
    QCOMPARE(captureDebug([&] { device.dump(); }),
             QStringList{"type: 4294967295 string: \"COM1\" baudrate: 9600 databits: 8 "
                         "stopbits: 0 parity: 2 linkID: -1 current ip: \"10.0.0.2\" current "
                         "port: 503"});

    DriverSetting driver(500, 3, 1, 0, QString(), 0, QStringLiteral("hidden"), true);
    QCOMPARE(captureDebug([&] { driver.dump(); }),
             QStringList{"timeout: 500 retry: 3 stationid: 1 delay: 0"});
}

void TestSettings::driverConstructorsAndCopy()
{
    const DriverSetting four(500, 3, 1, 0);
    QVERIFY(four.optionText.isEmpty());
    QCOMPARE(four.optionFlag, false);
    const DriverSetting six(10, 2, 7, 5, QStringLiteral("ignored"), 99);
    QCOMPARE(six.timeout, 10);
    QCOMPARE(six.retry, 2);
    QCOMPARE(six.stationid, 7);
    QCOMPARE(six.delay, 5);
    QVERIFY(six.optionText.isEmpty());
    QCOMPARE(six.optionFlag, false);
    const DriverSetting eight(1, 2, 3, 4, QStringLiteral("ignored"), 99, QStringLiteral("opt"),
                              true);
    QCOMPARE(eight.optionText, QStringLiteral("opt"));
    QCOMPARE(eight.optionFlag, true);

    DriverSetting target(0, 0, 0, 0);
    target.copy(eight);
    QCOMPARE(target.timeout, 1);
    QCOMPARE(target.retry, 2);
    QCOMPARE(target.stationid, 3);
    QCOMPARE(target.delay, 4);
    QCOMPARE(target.optionText, QStringLiteral("opt"));
    QCOMPARE(target.optionFlag, false);
}

void TestSettings::driverStreamLayout()
{
    const DriverSetting s(500, 3, -1, 0x01020304, QString(), 0, QStringLiteral("x"), true);
    const QByteArray bytes = streamed(s);
    QCOMPARE(bytes, QByteArray::fromHex("000001f4 00000003 ffffffff 01020304"));

    QByteArray little;
    QDataStream out(&little, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    out << s;
    QCOMPARE(little, QByteArray::fromHex("f4010000 03000000 ffffffff 04030201"));

    DriverSetting target(0, 0, 0, 0, QString(), 0, QStringLiteral("keep"), true);
    QDataStream in(bytes);
    in >> target;
    QCOMPARE(in.status(), QDataStream::Ok);
    QCOMPARE(target.timeout, 500);
    QCOMPARE(target.retry, 3);
    QCOMPARE(target.stationid, -1);
    QCOMPARE(target.delay, 0x01020304);
    QCOMPARE(target.optionText, QStringLiteral("keep"));
    QCOMPARE(target.optionFlag, true);
}

void TestSettings::driverTruncatedStream()
{
    QByteArray bytes = streamed(DriverSetting(500, 3, 1, 0));
    bytes.chop(1);
    DriverSetting target(7, 7, 7, 7);
    QDataStream in(bytes);
    in >> target;
    QCOMPARE(in.status(), QDataStream::ReadPastEnd);
    QCOMPARE(target.timeout, 7);
    QCOMPARE(target.delay, 7);
}

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_settings.moc"

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
    // Index -1 means the current endpoint; outside the list nothing acts.
    void endpointEdges()
    {
        DeviceSetting s = withEndpoints(3);
        for (int index : {2, -1, 3})
            s.setCurrentIPIndex(index);
        s.setPort(502, -1);
        s.setPort(9, 3);
        QCOMPARE(s.currentIPIndex, 2);
        QCOMPARE(s.socketList.last(), qMakePair(QStringLiteral("10.0.0.3"), ushort(502)));
        QCOMPARE(QList<int>({s.port(3), s.socketIP(3).size()}), QList<int>({0, 0}));
        s.setSocketData({{"h1", "502"}, {"h2", "x"}});
        QCOMPARE(s.socketList, (QList<QPair<QString, unsigned short>>{{"h1", 502}, {"h2", 0}}));
        QCOMPARE(s.port(-1), ushort(0)); // the index is kept though it now lies outside
    }

    // Big-endian Qt stream, as the runtime writes it.
    void streamLayouts()
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
        // Four integers, nothing else; reading leaves the option fields alone.
        const QByteArray bytes = streamed(
            DriverSetting(500, 3, -1, 0x01020304, QString(), 0, QStringLiteral("x"), true));
        QCOMPARE(bytes, QByteArray::fromHex("000001f4 00000003 ffffffff 01020304"));
        DriverSetting target(0, 0, 0, 0, QString(), 0, QStringLiteral("keep"), false);
        QCOMPARE(readInto(bytes, target), QDataStream::Ok);
        QCOMPARE(streamed(target), bytes);
        QCOMPARE(target.optionText + QString::number(target.optionFlag), QStringLiteral("keep0"));
    }

    // Read back into a record that already holds other values: the index is
    // taken only when it lies within the list just read, extraText is never
    // streamed, and a cut stream keeps the complete pairs before the cut.
    void deviceStreamReadBack()
    {
        DeviceSetting source(device_type(3), QStringLiteral("COM4"), 38400, 7, 2, 1, 99,
                             QStringLiteral("source extra"));
        source.linkID = 12;
        source.socketList = withEndpoints(3, QStringLiteral("host")).socketList;
        source.currentIPIndex = 2;
        DeviceSetting target = withEndpoints(2);
        target.extraText = QStringLiteral("target extra");
        QCOMPARE(readInto(streamed(source), target), QDataStream::Ok);
        QCOMPARE(streamed(target), streamed(source));
        QCOMPARE(target.extraText, QStringLiteral("target extra"));

        QCOMPARE(readInto(streamed(withEndpoints(0)), target), QDataStream::Ok);
        QCOMPARE(target.currentIPIndex, 2);
        QVERIFY(target.socketList.isEmpty());
        source.currentIPIndex = 0;
        QCOMPARE(readInto(streamed(source).chopped(1), target), QDataStream::ReadPastEnd);
        QCOMPARE(target.socketList, source.socketList.mid(0, 2));
        QCOMPARE(target.currentIPIndex, 0);
    }
};

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_settings.moc"

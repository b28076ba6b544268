#include <QtTest>

#include "common/crc.h"

#include <atomic>
#include <thread>

namespace
{

const QByteArray checkInput("123456789");

template <typename Crc, typename Update>
Crc runCrc(const QByteArray& data, Crc start, Update update)
{
    Crc crc = start;
    for (char c : data)
        crc = update(crc, c);
    return crc;
}

const unsigned char* bytes(const QByteArray& a)
{
    return reinterpret_cast<const unsigned char*>(a.constData());
}

// All table-driven CRCs over a 256-byte block holding every byte value.
QVector<quint64> allCrcs()
{
    QByteArray all;
    for (int i = 0; i < 256; ++i)
        all.append(char(i));
    return {runCrc<unsigned short>(all, 0, update_crc_16),
            runCrc<unsigned short>(all, 0, update_crc_kermit),
            runCrc<unsigned short>(all, 0, update_crc_dnp),
            runCrc<unsigned long>(all, 0xFFFFFFFFul, update_crc_32),
            runCrc<unsigned short>(all, 0xFFFF, update_crc_ccitt)};
}

} // namespace

class TestToolkitCrc : public QObject
{
    Q_OBJECT
private slots:
    // Must stay the first test: it makes the first call of every update function.
    void firstCallRace()
    {
        std::atomic<int> ready{0};
        QVector<quint64> results[2];
        auto racer = [&](int i) {
            ready.fetch_add(1);
            while (ready.load() < 2) {
            }
            results[i] = allCrcs();
        };
        std::thread a(racer, 0);
        std::thread b(racer, 1);
        a.join();
        b.join();
        QCOMPARE(results[0], results[1]);
        QCOMPARE(results[0], allCrcs());
    }

    void checksums_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<int>("sum8");
        QTest::addColumn<int>("sum16");
        QTest::addColumn<int>("xor8");
        QTest::newRow("empty") << QByteArray() << 0 << 0 << 0;
        QTest::newRow("check input") << checkInput << 0xDD << 0x01DD << 0x31;
        QTest::newRow("both sums wrap") << QByteArray(258, '\xff') << 0xFE << 0x00FE << 0x00;
    }
    void checksums()
    {
        QFETCH(QByteArray, data);
        QTEST(int(UInt8CheckSum(bytes(data), data.size())), "sum8");
        QTEST(int(UShortCheckSum(bytes(data), data.size())), "sum16");
        QTEST(int(XorUInt8CheckSum(bytes(data), data.size())), "xor8");
        // A length below 1 covers nothing.
        QCOMPARE(int(UInt8CheckSum(bytes(data), -1)), 0);
        QCOMPARE(int(UShortCheckSum(bytes(data), 0)), 0);
        QCOMPARE(int(XorUInt8CheckSum(bytes(data), -7)), 0);
    }

    // The catalogue check values; bytes above 0x7F arrive as negative chars
    // and must still index the tables by their value.
    void crcCheckValues()
    {
        QCOMPARE(CRC16Calculate(bytes(checkInput), checkInput.size()), (unsigned short)0xBB3D);
        QCOMPARE(CRC16Calculate(bytes(checkInput), -5), (unsigned short)0);
        QCOMPARE(runCrc<unsigned short>(checkInput, 0, update_crc_16), (unsigned short)0xBB3D);
        QCOMPARE(runCrc<unsigned long>(checkInput, 0xFFFFFFFFul, update_crc_32) ^ 0xFFFFFFFFul,
                 0xCBF43926ul);
        QCOMPARE(runCrc<unsigned short>(checkInput, 0xFFFF, update_crc_ccitt),
                 (unsigned short)0x29B1);
        QCOMPARE(runCrc<unsigned short>(checkInput, 0, update_crc_kermit), (unsigned short)0x2189);
        QCOMPARE((unsigned short)~runCrc<unsigned short>(checkInput, 0, update_crc_dnp),
                 (unsigned short)0xEA82);
        QCOMPARE(runCrc<unsigned short>(QByteArray::fromHex("ffff80"), 0xFFFF, update_crc_ccitt),
                 (unsigned short)0x9188);
        QCOMPARE(runCrc<unsigned long>(QByteArray(1, '\xff'), 0xFFFFFFFFul, update_crc_32) ^
                     0xFFFFFFFFul,
                 0xFF000000ul);
    }

    void sick()
    {
        // Step by step: shift, fold in the polynomial when the top bit fell
        // out, then mix in the byte and its predecessor.
        QCOMPARE(update_crc_sick(0x0000, 0x12, 0x00), (unsigned short)0x0012);
        QCOMPARE(update_crc_sick(0x0012, 0x34, 0x12), (unsigned short)0x1210);
        QCOMPARE(update_crc_sick(0x8000, 0x00, 0x00), (unsigned short)0x8005);
        QCOMPARE(update_crc_sick(0xC000, char(0xFF), char(0x80)), (unsigned short)0x80FA);
    }
};

QTEST_GUILESS_MAIN(TestToolkitCrc)
#include "tst_toolkit_crc.moc"

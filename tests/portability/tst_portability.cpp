// Results that must not depend on the machine: unsigned long is 32 bits on
// the panel and 64 on a PC, and the panel's ARM core does not forgive typed
// loads and stores through misaligned pointers (nor does UBSan on a PC).
#include <QtTest>

#include "common/crc.h"
#include "common/packing.h"

#include <cstring>

class TestPortability : public QObject
{
    Q_OBJECT

private slots:
    void crc32_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<quint32>("crc");
        QTest::newRow("check string") << QByteArray("123456789") << 0xCBF43926u;
        QTest::newRow("sentence") << QByteArray("The quick brown fox jumps over the lazy dog")
                                  << 0x414FA339u;
        QTest::newRow("high bytes") << QByteArray("\xff\x80\x7f\x00\xfe", 5) << 0xE4B776DCu;
    }
    // Started from ~0ul, whatever its width, the usual way: every step stays
    // within 32 bits and the complement's low 32 bits are the standard CRC.
    void crc32()
    {
        QFETCH(QByteArray, data);
        QFETCH(quint32, crc);
        unsigned long running = ~0ul;
        for (char c : data) {
            running = update_crc_32(running, c);
            QVERIFY2(running <= 0xFFFFFFFFul, qPrintable(QString::number(running, 16)));
        }
        QCOMPARE(quint32(~running), crc);
    }

    // Arrays of unsigned short and unsigned int handed in at odd addresses,
    // as a field inside a byte frame would be.
    void packingThroughMisalignedPointers()
    {
        alignas(8) unsigned char source[24] = {};
        const unsigned short shorts[2] = {0x1234, 0xABCD};
        const unsigned int ints[2] = {0x01020304u, 0xA0B0C0D0u};
        std::memcpy(source + 1, shorts, sizeof shorts);
        std::memcpy(source + 7, ints, sizeof ints);
        const auto* shortsAt1 = reinterpret_cast<const unsigned short*>(source + 1);
        const auto* intsAt7 = reinterpret_cast<const unsigned int*>(source + 7);
        const QByteArray packed = ByteArrayPack("2v2n2V2N", shortsAt1, shortsAt1, intsAt7, intsAt7);
        QCOMPARE(packed.toHex(), QByteArray("3412cdab1234abcd04030201d0c0b0a001020304a0b0c0d0"));

        alignas(8) unsigned char target[24] = {};
        auto* shortAt3 = reinterpret_cast<unsigned short*>(target + 3);
        auto* intsAt9 = reinterpret_cast<unsigned int*>(target + 9);
        const auto* frame = reinterpret_cast<const unsigned char*>(packed.constData());
        QCOMPARE(DataUnpack(frame, "v6x2V", shortAt3, intsAt9), 16);
        unsigned short shortBack = 0;
        unsigned int intsBack[2] = {};
        std::memcpy(&shortBack, target + 3, sizeof shortBack);
        std::memcpy(intsBack, target + 9, sizeof intsBack);
        QCOMPARE(shortBack, shorts[0]);
        QCOMPARE(intsBack[0], ints[0]);
        QCOMPARE(intsBack[1], ints[1]);
        QCOMPARE(target[2], (unsigned char)0); // nothing outside the fields is touched
        QCOMPARE(target[17], (unsigned char)0);
    }
};

QTEST_GUILESS_MAIN(TestPortability)
#include "tst_portability.moc"

// Block checksums, the CRC update functions, and the packet builder that
// appends such checks to a frame.

#include <QtTest>

#include "common/crc.h"
#include "common/txpackage.h"

#include <atomic>
#include <cstring>
#include <thread>

namespace
{

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(text);
}

const unsigned char* bytes(const QByteArray& a)
{
    return reinterpret_cast<const unsigned char*>(a.constData());
}

template <typename Crc, typename Update>
Crc runCrc(const QByteArray& data, Crc start, Update update)
{
    Crc crc = start;
    for (char c : data)
        crc = update(crc, c);
    return crc;
}

// All table-driven CRCs over a 256-byte block holding every byte value, so
// every table entry is read, through negative chars for the upper half.
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

class TestTxPackage : public QObject
{
    Q_OBJECT
private slots:
    // Must stay the first test: it makes the first call of every update
    // function. The reference values come from a bitwise computation.
    void crcFirstCallRace()
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
        const QVector<quint64> expected{0xBAD3, 0xD841, 0xBB8D, 0xD6FA738C, 0x3FBD};
        QCOMPARE(results[0], expected);
        QCOMPARE(results[1], expected);
    }

    void crcCheckValues()
    {
        const QByteArray check("123456789");
        QCOMPARE(CRC16Calculate(bytes(check), check.size()), (unsigned short)0xBB3D);
        QCOMPARE(CRC16Calculate(bytes(check), -5), (unsigned short)0);
        QCOMPARE(runCrc<unsigned long>(check, 0xFFFFFFFFul, update_crc_32) ^ 0xFFFFFFFFul,
                 0xCBF43926ul);
        QCOMPARE(runCrc<unsigned short>(check, 0xFFFF, update_crc_ccitt), (unsigned short)0x29B1);
        QCOMPARE(runCrc<unsigned short>(check, 0, update_crc_kermit), (unsigned short)0x2189);
        QCOMPARE((unsigned short)~runCrc<unsigned short>(check, 0, update_crc_dnp),
                 (unsigned short)0xEA82);
        // Shift, fold in the polynomial when the top bit fell out, then mix in
        // the byte and its predecessor.
        QCOMPARE(update_crc_sick(0x0012, 0x34, 0x12), (unsigned short)0x1210);
        QCOMPARE(update_crc_sick(0xC000, char(0xFF), char(0x80)), (unsigned short)0x80FA);
    }

    // Sums wrap, with no complement; a length below 1 covers nothing. The
    // packet's checks cover its whole buffer.
    void checksums_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<int>("sum8");
        QTest::addColumn<int>("sum16");
        QTest::addColumn<int>("xor8");
        QTest::addColumn<QByteArray>("lrcAscii");
        QTest::addColumn<QByteArray>("fcsAscii");
        QTest::newRow("empty") << QByteArray() << 0 << 0 << 0 << QByteArray("00")
                               << QByteArray("00");
        QTest::newRow("80 80 01") << hex("808001") << 0x01 << 0x0101 << 0x01 << QByteArray("01")
                                  << QByteArray("01");
        QTest::newRow("both sums wrap") << QByteArray(258, '\xff') << 0xFE << 0x00FE << 0x00
                                        << QByteArray("FE") << QByteArray("00");
    }
    void checksums()
    {
        QFETCH(QByteArray, data);
        QFETCH(int, sum8);
        QTEST(int(UInt8CheckSum(bytes(data), data.size())), "sum8");
        QTEST(int(UShortCheckSum(bytes(data), data.size())), "sum16");
        QTEST(int(XorUInt8CheckSum(bytes(data), data.size())), "xor8");
        QCOMPARE(UInt8CheckSum(bytes(data), -1) + UShortCheckSum(bytes(data), 0) +
                     XorUInt8CheckSum(bytes(data), -7),
                 0);

        TxPackage lrc, lrcByte, fcs;
        for (TxPackage* p : {&lrc, &lrcByte, &fcs})
            p->appendSection(data);
        lrc.appendLRCAscii();
        lrcByte.appendLRCByte();
        fcs.appendFCSAscii(5); // the argument does not narrow the check
        QTEST(lrc.dataAt(1), "lrcAscii");
        QCOMPARE(lrcByte.dataAt(1), QByteArray(1, char(sum8)));
        QTEST(fcs.dataAt(1), "fcsAscii");
    }

    // The exclusive or up to, not including, the last n bytes.
    void fcsExcludesTail()
    {
        TxPackage p;
        p.appendSection(hex("01020408"));
        QCOMPARE(QList<int>({TxPackage::calculateFCS(&p, 2), TxPackage::calculateFCS(&p, 9),
                             TxPackage::calculateFCS(&p, -3), TxPackage::calculateFCS(nullptr, 0)}),
                 QList<int>({0x03, 0, 0x0F, 0}));
    }

    // Every append is one section; offsets follow the lengths.
    void frameLayout()
    {
        TxPackage p;
        QVERIFY(p.appendByte(0x02) && p.appendString(QStringLiteral("01RD")) && p.appendLRCAscii());
        QCOMPARE(p.byteArrayData(), hex("0230315244") + "F9");
        QCOMPARE(p.dataAt(1), QByteArray("01RD"));
        QVERIFY(p.appendWord(0x1234) && p.appendDWord(0x01020304) && p.appendByte2Ascii(0x0A) &&
                p.appendString(QString::fromLatin1("\xe9")));
        QCOMPARE(p.byteArrayData().mid(7), hex("3412 04030201") + "0A\xe9");
        QCOMPARE(p.numberOfSections(), 7);
        QCOMPARE(QList<int>({p.sectionStartIndex(3), p.sectionStartIndex(4), p.sectionStartIndex(5),
                             p.sectionStartIndex(6)}),
                 QList<int>({7, 9, 13, 15}));
        p.clearAll();
        QCOMPARE(p.totalSize() + p.numberOfSections(), 0);
    }

    void sectionIndexes()
    {
        TxPackage p;
        QCOMPARE(p.sectionStartIndex(0), -1);
        p.setSectionSize({1, 2, 4});
        QCOMPARE(p.byteArrayData(), QByteArray(7, '\0'));
        std::memcpy(p.data(), "\x01\x02\x03\x04\x05\x06\x07", 7);
        QCOMPARE(p.dataAt(2), hex("04050607"));
        QCOMPARE(p.sectionStartIndex(2), 3);
        QVERIFY(p.validSectionNumber(2) && !p.validSectionNumber(3));
        for (int invalid : {3, -1}) {
            QCOMPARE(p.sectionStartIndex(invalid), -1);
            QCOMPARE(p.sectionSize(invalid), 0);
            QVERIFY(p.dataAt(invalid).isEmpty());
        }
        QCOMPARE(p.arrayToInt(hex("ff01")), 255);
    }

    // An entry -k takes the section's length from the first four bytes of
    // section k; offsets add the stored entries.
    void indirectSizes_data()
    {
        QTest::addColumn<QList<int>>("sizes");
        QTest::addColumn<int>("index");
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("start");
        QTest::addColumn<QByteArray>("data");
        // The frame's bytes are always 01 02 03 04 05 06 07 08.
        QTest::newRow("four-byte length")
            << QList<int>{1, 4, -1} << 2 << 0x05040302 << 5 << hex("060708");
        QTest::newRow("points beyond the list") << QList<int>{4, -5} << 1 << 0 << 4 << QByteArray();
        QTest::newRow("chain of indirections")
            << QList<int>{4, -2, -1} << 2 << 0 << 2 << QByteArray();
        QTest::newRow("most negative entry")
            << QList<int>{4, INT_MIN} << 1 << 0 << 4 << QByteArray();
    }
    void indirectSizes()
    {
        QFETCH(QList<int>, sizes);
        QFETCH(int, index);
        TxPackage p;
        p.setSectionSize(sizes);
        p.setData(hex("0102030405060708"));
        QTEST(p.sectionSize(index), "size");
        QTEST(p.sectionStartIndex(index), "start");
        // Only the bytes that lie inside the buffer come back.
        QTEST(p.dataAt(index), "data");
    }

    // The layout stays; data() is the package's own storage, not a shared copy.
    void dataReplacement()
    {
        TxPackage p;
        p.appendByte(1);
        const QByteArray before = QByteArray("abc");
        QVERIFY(p.setData(before) && p.numberOfSections() == 1);
        p.data()[0] = 'X';
        QCOMPARE(p.byteArrayData() + before, QByteArray("Xbcabc"));
        char raw[] = {'a', '\0', 'b'};
        QVERIFY(p.setData(raw, 3));
        QCOMPARE(p.byteArrayData(), QByteArray(raw, 3));
        QVERIFY(p.setData(raw, -1) && p.totalSize() == 0);
        QVERIFY(p.setData(nullptr, 3) && p.totalSize() == 0);
    }
};

QTEST_GUILESS_MAIN(TestTxPackage)
#include "tst_toolkit_txpackage.moc"

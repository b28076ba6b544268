#include <QtTest>

#include "common/txpackage.h"

#include <cstring>
#include <functional>

namespace
{

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(text);
}

} // namespace

class TestTxPackage : public QObject
{
    Q_OBJECT
private slots:
    void requestWithLrc()
    {
        TxPackage p;
        QVERIFY(p.appendByte(0x02));
        QVERIFY(p.appendString(QStringLiteral("01RD")));
        QVERIFY(p.appendLRCAscii());
        QCOMPARE(p.byteArrayData(), hex("0230315244") + "F9");
        QCOMPARE(p.numberOfSections(), 3);
        QCOMPARE(p.dataAt(1), QByteArray("01RD"));
        QCOMPARE(p.dataAt(2), QByteArray("F9"));
        QCOMPARE(p.toString(), QStringLiteral("(0X2 0X30 0X31 0X52 0X44 0X46 0X39 ) : \x02"
                                              "01RDF9"));
        p.clearAll();
        QCOMPARE(p.totalSize(), 0);
        QCOMPARE(p.numberOfSections(), 0);
    }

    // Each append is one section after a first byte.
    void appends()
    {
        using Append = std::function<bool(TxPackage&)>;
        const QList<QPair<Append, QByteArray>> cases{
            {[](TxPackage& p) { return p.appendWord(0x1234); }, hex("3412")},
            {[](TxPackage& p) { return p.appendDWord(0x01020304); }, hex("04030201")},
            {[](TxPackage& p) { return p.appendByte2Ascii(0x0A); }, QByteArray("0A")},
            {[](TxPackage& p) { return p.appendSection(hex("00ff00")); }, hex("00ff00")},
            {[](TxPackage& p) { return p.appendString(QString::fromLatin1("A\xe9")); },
             QByteArray("A\xe9")}};
        for (const auto& c : cases) {
            TxPackage p;
            p.appendByte(0xAA);
            QVERIFY(c.first(p));
            QCOMPARE(p.byteArrayData(), hex("aa") + c.second);
            QCOMPARE(p.numberOfSections(), 2);
            QCOMPARE(p.sectionStartIndex(1), 1);
            QCOMPARE(p.dataAt(1), c.second);
        }
    }

    void blockChecks_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QByteArray>("lrcAscii");
        QTest::addColumn<QByteArray>("fcsAscii");
        QTest::newRow("empty") << QByteArray() << QByteArray("00") << QByteArray("00");
        QTest::newRow("sum wraps, no complement")
            << hex("ff02") << QByteArray("01") << QByteArray("FD");
        QTest::newRow("upper-case digits") << hex("0a") << QByteArray("0A") << QByteArray("0A");
    }
    void blockChecks()
    {
        QFETCH(QByteArray, content);
        QFETCH(QByteArray, lrcAscii);
        TxPackage p;
        p.appendSection(content);
        p.appendLRCAscii();
        QCOMPARE(p.dataAt(1), lrcAscii);

        TxPackage b;
        b.appendSection(content);
        b.appendLRCByte();
        QCOMPARE(b.dataAt(1), hex(lrcAscii.constData()));

        TxPackage f;
        f.appendSection(content);
        f.appendFCSAscii(5); // the argument does not narrow the check
        QTEST(f.dataAt(1), "fcsAscii");
    }

    void fcsExcludesTail_data()
    {
        QTest::addColumn<int>("n");
        QTest::addColumn<int>("fcs");
        QTest::newRow("all") << 0 << 0x0F;
        QTest::newRow("last two excluded") << 2 << 0x03;
        QTest::newRow("more than the buffer") << 9 << 0;
        QTest::newRow("negative counts as 0") << -3 << 0x0F;
    }
    void fcsExcludesTail()
    {
        QFETCH(int, n);
        TxPackage p;
        p.appendSection(hex("01020408"));
        QTEST(TxPackage::calculateFCS(&p, n), "fcs");
        QCOMPARE(TxPackage::calculateFCS(nullptr, n), 0);
    }

    void sectionIndexes()
    {
        TxPackage p;
        QCOMPARE(p.sectionStartIndex(0), -1);
        p.appendByte(1);
        p.appendWord(2);
        p.appendDWord(3);
        QCOMPARE(p.sectionStartIndex(2), 3);
        QCOMPARE(p.sectionStartIndex(3), -1);
        QCOMPARE(p.sectionStartIndex(-1), -1);
        QVERIFY(p.validSectionNumber(2));
        QVERIFY(!p.validSectionNumber(3));
        QCOMPARE(p.sectionSize(3), 0);
        QCOMPARE(p.sectionSize(-1), 0);
        QVERIFY(p.dataAt(3).isEmpty());
        QVERIFY(p.dataAt(-1).isEmpty());
        QCOMPARE(p.arrayToInt(hex("ff01")), 255);
        QVERIFY(EmptyPackageSizeList().isEmpty());
    }

    void layoutAndIndirectSizes()
    {
        TxPackage p;
        p.setSectionSize({1, 2, 4});
        QCOMPARE(p.byteArrayData(), QByteArray(7, '\0'));
        std::memcpy(p.data(), "\x01\x02\x03\x04\x05\x06\x07", 7);
        QCOMPARE(p.dataAt(2), hex("04050607"));

        // Section 2 takes its length from the four bytes of section 1.
        TxPackage frame;
        frame.setData(hex("aa 03000000 414243"));
        frame.setSectionSize({1, 4, -1});
        QCOMPARE(frame.sectionSize(2), 3);
        // Offsets add the stored entries: section 2 starts at 1 + 4.
        QCOMPARE(frame.sectionStartIndex(2), 5);
        // The buffer is sized to the stored sum 1 + 4 - 1, so the data of
        // section 2 lies beyond it and comes back empty rather than out of bounds.
        QCOMPARE(frame.totalSize(), 4);
        QVERIFY(frame.dataAt(2).isEmpty());
    }

    void indirectSizeGuards_data()
    {
        QTest::addColumn<QList<int>>("sizes");
        QTest::addColumn<int>("index");
        QTest::addColumn<int>("size");
        QTest::addColumn<QByteArray>("data");
        // The frame's bytes are always 01 02 03 04 05 06 07 08.
        QTest::newRow("three-byte length zero-extends")
            << QList<int>{1, 3, -1} << 2 << 0x040302 << hex("05060708");
        QTest::newRow("two-byte length")
            << QList<int>{1, 2, -1} << 2 << 0x0302 << hex("0405060708");
        QTest::newRow("points at itself") << QList<int>{1, -1} << 1 << 0 << QByteArray();
        QTest::newRow("points beyond the list") << QList<int>{4, -5} << 1 << 0 << QByteArray();
        QTest::newRow("chain of indirections") << QList<int>{4, -2, -1} << 2 << 0 << QByteArray();
        QTest::newRow("most negative entry") << QList<int>{4, INT_MIN} << 1 << 0 << QByteArray();
        QTest::newRow("length section itself cut short")
            << QList<int>{6, 4, -1} << 2 << 0x0807 << QByteArray();
    }
    void indirectSizeGuards()
    {
        QFETCH(QList<int>, sizes);
        QFETCH(int, index);
        TxPackage p;
        p.setSectionSize(sizes);
        p.setData(hex("0102030405060708"));
        QTEST(p.sectionSize(index), "size");
        // Only the bytes that lie inside the buffer come back.
        QTEST(p.dataAt(index), "data");
    }

    void dataReplacement()
    {
        TxPackage p;
        p.appendByte(1);
        p.appendByte(2);
        QVERIFY(p.setData(QByteArray("xyz")));
        QCOMPARE(p.byteArrayData(), QByteArray("xyz"));
        QCOMPARE(p.numberOfSections(), 2); // the layout stays
        char raw[] = {'a', '\0', 'b'};
        QVERIFY(p.setData(raw, 3));
        QCOMPARE(p.byteArrayData(), QByteArray(raw, 3));
        QVERIFY(p.setData(raw, -1));
        QCOMPARE(p.totalSize(), 0);
        QVERIFY(p.setData(nullptr, 3));
        QCOMPARE(p.totalSize(), 0);

        // data() is the package's own storage, not a shared copy.
        const QByteArray before = QByteArray("abc");
        p.setData(before);
        p.data()[0] = 'X';
        QCOMPARE(p.byteArrayData(), QByteArray("Xbc"));
        QCOMPARE(before, QByteArray("abc"));
    }
};

QTEST_GUILESS_MAIN(TestTxPackage)
#include "tst_toolkit_txpackage.moc"

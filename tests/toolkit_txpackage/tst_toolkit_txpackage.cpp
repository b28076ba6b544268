#include <QtTest>

#include "common/txpackage.h"

#include <cstring>

class TestTxPackage : public QObject
{
    Q_OBJECT
private slots:
    void requestWithLrc();
    void appends_data();
    void appends();
    void blockChecks_data();
    void blockChecks();
    void fcsExcludesTail_data();
    void fcsExcludesTail();
    void sectionIndexes();
    void layoutAndIndirectSizes();
    void indirectSizeGuards_data();
    void indirectSizeGuards();
    void dataReplacement();
};

void TestTxPackage::requestWithLrc()
{
    TxPackage p;
    QVERIFY(p.appendByte(0x02));
    QVERIFY(p.appendString(QStringLiteral("01RD")));
    QVERIFY(p.appendLRCAscii());
    QCOMPARE(p.byteArrayData(), QByteArray::fromHex("0230315244") + "F9");
    QCOMPARE(p.numberOfSections(), 3);
    QCOMPARE(p.sectionSize(0), 1);
    QCOMPARE(p.sectionSize(1), 4);
    QCOMPARE(p.sectionSize(2), 2);
    QCOMPARE(p.dataAt(1), QByteArray("01RD"));
    QCOMPARE(p.dataAt(2), QByteArray("F9"));
    QCOMPARE(p.totalSize(), 7);
    QCOMPARE(p.toString(), QStringLiteral("(0X2 0X30 0X31 0X52 0X44 0X46 0X39 ) : \x02"
                                          "01RDF9"));
    p.clearAll();
    QCOMPARE(p.totalSize(), 0);
    QCOMPARE(p.numberOfSections(), 0);
}

void TestTxPackage::appends_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("word") << "word" << QByteArray::fromHex("3412");
    QTest::newRow("dword") << "dword" << QByteArray::fromHex("04030201");
    QTest::newRow("byte as ascii") << "ascii" << QByteArray("0A");
    QTest::newRow("section") << "section" << QByteArray::fromHex("00ff00");
    QTest::newRow("latin-1 string") << "string" << QByteArray("A\xe9");
}

void TestTxPackage::appends()
{
    QFETCH(QString, operation);
    QFETCH(QByteArray, bytes);
    TxPackage p;
    p.appendByte(0xAA);
    if (operation == "word")
        QVERIFY(p.appendWord(0x1234));
    else if (operation == "dword")
        QVERIFY(p.appendDWord(0x01020304));
    else if (operation == "ascii")
        QVERIFY(p.appendByte2Ascii(0x0A));
    else if (operation == "section")
        QVERIFY(p.appendSection(QByteArray::fromHex("00ff00")));
    else
        QVERIFY(p.appendString(QString::fromLatin1("A\xe9")));
    QCOMPARE(p.byteArrayData(), QByteArray::fromHex("aa") + bytes);
    QCOMPARE(p.numberOfSections(), 2);
    QCOMPARE(p.sectionStartIndex(1), 1);
    QCOMPARE(p.sectionSize(1), bytes.size());
    QCOMPARE(p.dataAt(1), bytes);
}

void TestTxPackage::blockChecks_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("lrcAscii");
    QTest::addColumn<int>("lrcByte");
    QTest::addColumn<QByteArray>("fcsAscii");
    QTest::newRow("empty") << QByteArray() << QByteArray("00") << 0 << QByteArray("00");
    QTest::newRow("sum wraps, no complement")
        << QByteArray::fromHex("ff02") << QByteArray("01") << 0x01 << QByteArray("FD");
    QTest::newRow("upper-case digits")
        << QByteArray::fromHex("0a") << QByteArray("0A") << 0x0A << QByteArray("0A");
}

void TestTxPackage::blockChecks()
{
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, lrcAscii);
    QFETCH(int, lrcByte);
    QFETCH(QByteArray, fcsAscii);
    TxPackage p;
    p.appendSection(content);
    p.appendLRCAscii();
    QCOMPARE(p.dataAt(1), lrcAscii);

    TxPackage b;
    b.appendSection(content);
    b.appendLRCByte();
    QCOMPARE(b.dataAt(1), QByteArray(1, char(lrcByte)));

    TxPackage f;
    f.appendSection(content);
    f.appendFCSAscii(5); // the argument does not narrow the check
    QCOMPARE(f.dataAt(1), fcsAscii);
    QCOMPARE(f.sectionSize(1), 2);
}

void TestTxPackage::fcsExcludesTail_data()
{
    QTest::addColumn<int>("n");
    QTest::addColumn<int>("fcs");
    QTest::newRow("all") << 0 << 0x0F;
    QTest::newRow("last two excluded") << 2 << 0x03;
    QTest::newRow("all excluded") << 4 << 0;
    QTest::newRow("more than the buffer") << 9 << 0;
    QTest::newRow("negative counts as 0") << -3 << 0x0F;
}

void TestTxPackage::fcsExcludesTail()
{
    QFETCH(int, n);
    TxPackage p;
    p.appendSection(QByteArray::fromHex("01020408"));
    QTEST(TxPackage::calculateFCS(&p, n), "fcs");
    QCOMPARE(TxPackage::calculateFCS(nullptr, n), 0);
}

void TestTxPackage::sectionIndexes()
{
    TxPackage p;
    QCOMPARE(p.sectionStartIndex(0), -1);
    QVERIFY(!p.validSectionNumber(0));
    p.appendByte(1);
    p.appendWord(2);
    p.appendDWord(3);
    QCOMPARE(p.sectionStartIndex(0), 0);
    QCOMPARE(p.sectionStartIndex(2), 3);
    QCOMPARE(p.sectionStartIndex(p.numberOfSections()), -1);
    QCOMPARE(p.sectionStartIndex(-1), -1);
    QVERIFY(p.validSectionNumber(2));
    QVERIFY(!p.validSectionNumber(3));
    QCOMPARE(p.sectionSize(3), 0);
    QCOMPARE(p.sectionSize(-1), 0);
    QVERIFY(p.dataAt(3).isEmpty());
    QVERIFY(p.dataAt(-1).isEmpty());
    QCOMPARE(p.arrayToInt(QByteArray::fromHex("ff01")), 255);
    QCOMPARE(p.arrayToInt(QByteArray()), 0);
    QVERIFY(EmptyPackageSizeList().isEmpty());
}

void TestTxPackage::layoutAndIndirectSizes()
{
    TxPackage p;
    p.setSectionSize({1, 2, 4});
    QCOMPARE(p.totalSize(), 7);
    QCOMPARE(p.byteArrayData(), QByteArray(7, '\0'));
    QCOMPARE(p.sectionStartIndex(2), 3);
    std::memcpy(p.data(), "\x01\x02\x03\x04\x05\x06\x07", 7);
    QCOMPARE(p.dataAt(2), QByteArray::fromHex("04050607"));

    // Section 2 takes its length from the four bytes of section 1.
    TxPackage frame;
    frame.setData(QByteArray::fromHex("aa 03000000 414243"));
    frame.setSectionSize({1, 4, -1});
    QCOMPARE(frame.sectionSize(2), 3);
    // Offsets add the stored entries: section 2 starts at 1 + 4.
    QCOMPARE(frame.sectionStartIndex(2), 5);
    // The buffer is sized to the stored sum 1 + 4 - 1, so the data of
    // section 2 lies beyond it and comes back empty rather than out of bounds.
    QCOMPARE(frame.totalSize(), 4);
    QVERIFY(frame.dataAt(2).isEmpty());
}

void TestTxPackage::indirectSizeGuards_data()
{
    QTest::addColumn<QList<int>>("sizes");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("data");
    // The frame's bytes are always 01 02 03 04 05 06 07 08.
    QTest::newRow("three-byte length zero-extends")
        << QList<int>{1, 3, -1} << 2 << 0x040302 << QByteArray::fromHex("05060708");
    QTest::newRow("two-byte length")
        << QList<int>{1, 2, -1} << 2 << 0x0302 << QByteArray::fromHex("0405060708");
    QTest::newRow("points at itself") << QList<int>{1, -1} << 1 << 0 << QByteArray();
    QTest::newRow("points beyond the list") << QList<int>{4, -5} << 1 << 0 << QByteArray();
    QTest::newRow("chain of indirections") << QList<int>{4, -2, -1} << 2 << 0 << QByteArray();
    QTest::newRow("most negative entry") << QList<int>{4, INT_MIN} << 1 << 0 << QByteArray();
    QTest::newRow("length section itself cut short")
        << QList<int>{6, 4, -1} << 2 << 0x0807 << QByteArray();
}

void TestTxPackage::indirectSizeGuards()
{
    QFETCH(QList<int>, sizes);
    QFETCH(int, index);
    QFETCH(QByteArray, data);
    TxPackage p;
    p.setSectionSize(sizes);
    p.setData(QByteArray::fromHex("0102030405060708"));
    QTEST(p.sectionSize(index), "size");
    // Only the bytes that lie inside the buffer come back.
    QCOMPARE(p.dataAt(index), data);
}

void TestTxPackage::dataReplacement()
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

QTEST_GUILESS_MAIN(TestTxPackage)
#include "tst_toolkit_txpackage.moc"

#include <QtTest>

#include "common/tools.h"
#include "driver/communicatorcommand.h"

namespace
{

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(text);
}

CommunicatorCommand command(int kind, unsigned count)
{
    CommunicatorCommand c;
    c.dataType = kind;
    c.count = count;
    return c;
}

} // namespace

class TestToolkitBytes : public QObject
{
    Q_OBJECT
private slots:
    void singleValueBits();
    void arrayToNumber_data();
    void arrayToNumber();
    void numberToArray();
    void byteOrder_data();
    void byteOrder();
    void rotateArray();
    void padding_data();
    void padding();
    void unitCounts();
    void packedBits();
    void bitArrayShaping_data();
    void bitArrayShaping();
    void rightShift_data();
    void rightShift();
    void commands_data();
    void commands();
    void dump_data();
    void dump();
};

void TestToolkitBytes::singleValueBits()
{
    QCOMPARE(setBit((unsigned short)0x0001, (unsigned short)15), (unsigned short)0x8001);
    QCOMPARE(setBit((unsigned short)0x0001, (unsigned short)16), (unsigned short)0x0001);
    QCOMPARE(clearBit((unsigned short)0xFFFF, (unsigned short)0), (unsigned short)0xFFFE);
    QCOMPARE(clearBit((unsigned short)0xFFFF, (unsigned short)16), (unsigned short)0xFFFF);
    QVERIFY(getBit((unsigned short)0x8000, (unsigned short)15));
    QVERIFY(!getBit((unsigned short)0xFFFF, (unsigned short)16));

    QCOMPARE(setBit((unsigned char)0x00, (unsigned short)7), (unsigned char)0x80);
    QCOMPARE(setBit((unsigned char)0x00, (unsigned short)8), (unsigned char)0x00);
    QCOMPARE(clearBit((unsigned char)0xFF, (unsigned short)7), (unsigned char)0x7F);
    QCOMPARE(clearBit((unsigned char)0xFF, (unsigned short)8), (unsigned char)0xFF);
    QVERIFY(getBit((unsigned char)0x80, (unsigned short)7));
    QVERIFY(!getBit((unsigned char)0xFF, (unsigned short)8));

    QCOMPARE(setBit(0u, (unsigned short)31), 0x80000000u);
    QCOMPARE(setBit(0u, (unsigned short)32), 0u);
    QCOMPARE(clearBit(0xFFFFFFFFu, (unsigned short)31), 0x7FFFFFFFu);
    QCOMPARE(clearBit(0xFFFFFFFFu, (unsigned short)40), 0xFFFFFFFFu);
    QVERIFY(getBit(0x80000000u, (unsigned short)31));
    QVERIFY(!getBit(0xFFFFFFFFu, (unsigned short)65535));
    QVERIFY(isBigEndian());
}

void TestToolkitBytes::arrayToNumber_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("asInt");
    QTest::addColumn<int>("asWord"); // unsigned short, widened
    QTest::addColumn<int>("asShort");
    QTest::newRow("empty") << QByteArray() << 0 << 0 << 0;
    QTest::newRow("one byte FF: no sign extension") << hex("ff") << 0xFF << 0xFF << 255;
    QTest::newRow("two bytes") << hex("3412") << 0x1234 << 0x1234 << 0x1234;
    QTest::newRow("FF FF") << hex("ffff") << 0xFFFF << 0xFFFF << -1;
    QTest::newRow("00 80") << hex("0080") << 0x8000 << 0x8000 << -32768;
    QTest::newRow("three bytes zero-extended") << hex("ffffff") << 0xFFFFFF << 0xFFFF << -1;
    QTest::newRow("four bytes") << hex("78563412") << 0x12345678 << 0x5678 << 0x5678;
    QTest::newRow("fifth byte ignored") << hex("785634129a") << 0x12345678 << 0x5678 << 0x5678;
    QTest::newRow("negative int") << hex("feffffff") << -2 << 0xFFFE << -2;
}

void TestToolkitBytes::arrayToNumber()
{
    QFETCH(QByteArray, bytes);
    QTEST(QByteArrayToInt(bytes), "asInt");
    QTEST(int(QByteArrayToWord(bytes)), "asWord");
    QTEST(int(QByteArrayToShort(bytes)), "asShort");
}

void TestToolkitBytes::numberToArray()
{
    QCOMPARE(wordToByteArray(0x1234), hex("3412"));
    QCOMPARE(shortToByteArray(-2), hex("feff"));
    QCOMPARE(intToByteArray(0x01020304), hex("04030201"));
    QCOMPARE(intToByteArray(-1), hex("ffffffff"));
    QCOMPARE(QByteArrayToInt(intToByteArray(INT_MIN)), INT_MIN);
    QByteArray a = hex("aa");
    appendBigEndianUShort(a, 0x1234);
    QCOMPARE(a, hex("aa1234"));
}

void TestToolkitBytes::byteOrder_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("ushortCopy"); // toBigEndianUShortArray
    QTest::addColumn<QByteArray>("ulongCopy");  // toBigEndianULongArray
    QTest::addColumn<QByteArray>("ushortInPlace");
    QTest::addColumn<QByteArray>("ulongInPlace");
    QTest::newRow("empty") << QByteArray() << QByteArray() << QByteArray() << QByteArray()
                           << QByteArray();
    QTest::newRow("odd length pads before swapping")
        << hex("010203") << hex("02010003") << hex("00030201") << hex("020103") << hex("010203");
    QTest::newRow("whole elements")
        << hex("0102030405060708") << hex("0201040306050807") << hex("0403020108070605")
        << hex("0201040306050807") << hex("0403020108070605");
    QTest::newRow("partial long element kept") << hex("010203040506") << hex("020104030605")
                                               << hex("040302010000"
                                                      "0605")
                                               << hex("020104030605") << hex("040302010506");
}

void TestToolkitBytes::byteOrder()
{
    QFETCH(QByteArray, input);
    QTEST(toBigEndianUShortArray(input), "ushortCopy");
    QTEST(toBigEndianULongArray(input), "ulongCopy");
    QByteArray inPlace = input;
    toLittleEndianUShortArray(inPlace);
    QTEST(inPlace, "ushortInPlace");
    inPlace = input;
    toLittleEndianULongArray(inPlace);
    QTEST(inPlace, "ulongInPlace");

    QByteArray reversed = input;
    std::reverse(reversed.begin(), reversed.end());
    QCOMPARE(reverseArray(input), reversed);

    const auto* p = reinterpret_cast<const unsigned char*>(input.constData());
    QCOMPARE(fromBigEndianUShortArray(p, input.size() / 2),
             toBigEndianUShortArray(input.left(input.size() / 2 * 2)));
    QCOMPARE(fromBigEndianULongArray(p, input.size() / 4),
             toBigEndianULongArray(input.left(input.size() / 4 * 4)));
}

void TestToolkitBytes::rotateArray()
{
    unsigned char data[] = {1, 2, 3, 4, 5};
    RotateArray(data, 2, 3);
    const unsigned char expected[] = {3, 4, 5, 1, 2};
    QVERIFY(std::equal(data, data + 5, expected));
    RotateArray(data, 0, 5);
    QVERIFY(std::equal(data, data + 5, expected));
    QVERIFY(fromBigEndianUShortArray(nullptr, 3).isEmpty());
    QVERIFY(fromBigEndianULongArray(data, 0).isEmpty());
}

void TestToolkitBytes::padding_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("size16");
    QTest::addColumn<int>("size32");
    QTest::addColumn<int>("size64");
    QTest::newRow("0") << 0 << 0 << 0 << 0;
    QTest::newRow("1") << 1 << 2 << 4 << 8;
    QTest::newRow("4") << 4 << 4 << 4 << 8;
    QTest::newRow("5") << 5 << 6 << 8 << 8;
    QTest::newRow("8") << 8 << 8 << 8 << 8;
    QTest::newRow("9") << 9 << 10 << 12 << 16;
}

void TestToolkitBytes::padding()
{
    QFETCH(int, size);
    QFETCH(int, size16);
    QFETCH(int, size32);
    QFETCH(int, size64);
    const QByteArray input(size, '\x5a');
    const QPair<QByteArray, int> cases[] = {{To16bitsData(input), size16},
                                            {To32bitsData(input), size32},
                                            {To64bitsData(input), size64}};
    for (const auto& c : cases) {
        QCOMPARE(c.first.size(), c.second);
        QCOMPARE(c.first, input + QByteArray(c.second - size, '\0'));
    }
}

void TestToolkitBytes::unitCounts()
{
    QCOMPARE(NumOfBitsToNumOfBytes(9, 0), 2u);
    QCOMPARE(NumOfBitsToNumOfBytes(8, 0), 1u);
    QCOMPARE(NumOfBitsToNumOfBytes(1, 7), 1u);
    QCOMPARE(NumOfBitsToNumOfBytes(1, 8), 2u);
    QCOMPARE(NumOfBitsToNumOfBytes(0xFFFFFFFFu, 1), 0x20000000u); // no wrap to 0
    QCOMPARE(NumOfBitsToNumOfWords(17, 0), 2u);
    QCOMPARE(NumOfBitsToNumOfWords(16, 0), 1u);
    QCOMPARE(NumOfBitsToNumOfDWords(1, 31), 1u);
    QCOMPARE(NumOfBitsToNumOfDWords(1, 32), 2u);
    QCOMPARE(NumOfBytesToNumOfWords(3), 2u);
    QCOMPARE(NumOfBytesToNumOfWords(0xFFFFFFFFu), 0x80000000u);
    QCOMPARE(NumOfBytesToNumOfDWords(5), 2u);
    QCOMPARE(NumOfBytesToNumOfQuadWords(8), 1u);
    QCOMPARE(NumOfBytesToNumOfQuadWords(9), 2u);
}

void TestToolkitBytes::packedBits()
{
    QByteArray a = hex("0000");
    setBit(a, 9, true);
    setBit(a, 0, true);
    QCOMPARE(a, hex("0102"));
    QVERIFY(getBit(a, 9));
    QVERIFY(!getBit(a, 8));
    setBit(a, 9, false);
    QCOMPARE(a, hex("0100"));
    // Outside the array: reads false, writes change nothing.
    setBit(a, 16, true);
    setBit(a, -1, true);
    QCOMPARE(a, hex("0100"));
    QVERIFY(!getBit(a, 16));
    QVERIFY(!getBit(a, -1));

    unsigned char raw[2] = {0xFF, 0x00};
    setBit(raw, 3, false);
    setBit(raw, 15, true);
    QCOMPARE(raw[0], (unsigned char)0xF7);
    QCOMPARE(raw[1], (unsigned char)0x80);
    QVERIFY(getBit(raw, 15));
    QVERIFY(!getBit(raw, 3));

    QVERIFY(getBitData(hex("03")));
    QVERIFY(!getBitData(hex("02")));
    QVERIFY(!getBitData(QByteArray()));

    QCOMPARE(ExpandBitsToBytes(hex("05"), 0, 4), hex("01000100"));
    QCOMPARE(ExpandBitsToBytes(hex("8001"), 7, 3), hex("010100"));
    QCOMPARE(ExpandBitsToBytes(hex("ff"), 6, 4), hex("01010000")); // beyond the array: 0
    QVERIFY(ExpandBitsToBytes(hex("ff"), 0, -1).isEmpty());

    QByteArray dst = hex("0000");
    QByteArray src = hex("0b"); // bits 0, 1, 3
    CopyBits(dst, src, 6, 4);
    QCOMPARE(dst, hex("c002"));
    CopyBits(dst, src, 14, 4); // bits past the end of dst are dropped
    QCOMPARE(dst, hex("c0c2"));
}

void TestToolkitBytes::bitArrayShaping_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<int>("bits");
    QTest::addColumn<QByteArray>("fitted");
    QTest::addColumn<QByteArray>("cleared");
    QTest::newRow("12 bits") << hex("ffff") << 12 << hex("ffff") << hex("ff0f");
    QTest::newRow("12 bits, later bytes untouched")
        << hex("ffffff") << 12 << hex("ffff") << hex("ff0fff");
    QTest::newRow("multiple of 8") << hex("ffff") << 8 << hex("ff") << hex("ffff");
    QTest::newRow("1 bit") << hex("ff") << 1 << hex("ff") << hex("01");
    QTest::newRow("grows with zeros") << hex("ff") << 17 << hex("ff0000") << hex("ff");
    QTest::newRow("0 bits") << hex("ff") << 0 << QByteArray() << hex("ff");
    QTest::newRow("negative") << hex("ff") << -3 << QByteArray() << hex("ff");
}

void TestToolkitBytes::bitArrayShaping()
{
    QFETCH(QByteArray, input);
    QFETCH(int, bits);
    QByteArray a = input;
    FitBitArray(a, bits);
    QTEST(a, "fitted");
    a = input;
    clearUnnecessaryBits(a, bits);
    QTEST(a, "cleared");
}

void TestToolkitBytes::rightShift_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<int>("n");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("by 0") << hex("2143") << 0 << hex("2143");
    QTest::newRow("by 4") << hex("2143") << 4 << hex("3204");
    QTest::newRow("by 1 across three bytes") << hex("010380") << 1 << hex("800140");
    QTest::newRow("by 7") << hex("80ff") << 7 << hex("ff01");
    QTest::newRow("by 8 rotates the front byte to the end") << hex("112233") << 8 << hex("223311");
    QTest::newRow("by 12") << hex("112233") << 12 << hex("320311");
    QTest::newRow("by 16") << hex("112233") << 16 << hex("331122");
    QTest::newRow("by the whole width") << hex("1122") << 16 << hex("0000");
    QTest::newRow("empty") << QByteArray() << 3 << QByteArray();
    QTest::newRow("negative ignored") << hex("1122") << -1 << hex("1122");
}

void TestToolkitBytes::rightShift()
{
    QFETCH(QByteArray, input);
    QFETCH(int, n);
    RightShiftNBits(input, n);
    QTEST(input, "expected");
}

void TestToolkitBytes::commands_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<uint>("count");
    QTest::addColumn<int>("safeLen");
    QTest::addColumn<QString>("predicate");
    QTest::newRow("bits 9") << 0 << 9u << 2 << "bit";
    QTest::newRow("bits 0") << 0 << 0u << 0 << "bit";
    QTest::newRow("bytes") << 1 << 3u << 3 << "byte";
    QTest::newRow("words") << 2 << 3u << 6 << "word";
    QTest::newRow("double words") << 3 << 3u << 12 << "dword";
    QTest::newRow("quad words") << 4 << 3u << 24 << "";
    QTest::newRow("block") << 5 << 3u << 3 << "block";
    QTest::newRow("kind 6 counts bits") << 6 << 17u << 3 << "";
    QTest::newRow("kind 7 unknown") << 7 << 3u << 0 << "";
    QTest::newRow("negative kind") << -1 << 3u << 0 << "";
}

void TestToolkitBytes::commands()
{
    QFETCH(int, kind);
    QFETCH(uint, count);
    QFETCH(int, safeLen);
    QFETCH(QString, predicate);
    const CommunicatorCommand c = command(kind, count);
    QCOMPARE(GetSafeDataLen(c), safeLen);
    QCOMPARE(isBitCommand(c), predicate == "bit");
    QCOMPARE(isByteCommand(c), predicate == "byte");
    QCOMPARE(isWordCommand(c), predicate == "word");
    QCOMPARE(isDoubleWordCommand(c), predicate == "dword");
    QCOMPARE(isBlockCommand(c), predicate == "block");

    const QByteArray longer(safeLen + 3, '\x11');
    QCOMPARE(ToSafeData(c, longer), longer.left(safeLen));
    const QByteArray shorter = hex("aa");
    const QByteArray fitted = ToSafeData(c, shorter);
    QCOMPARE(fitted.size(), safeLen);
    if (safeLen > 0)
        QCOMPARE(fitted, hex("aa") + QByteArray(safeLen - 1, '\0'));
    QCOMPARE(ToSafeData(c, QByteArray(safeLen, '\x22')), QByteArray(safeLen, '\x22'));
}

void TestToolkitBytes::dump_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("text");
    QTest::newRow("letter and line feed") << hex("410a") << QStringLiteral("(0X41 0Xa ) : A\n");
    QTest::newRow("text stops at a zero byte")
        << hex("4100ff42") << QStringLiteral("(0X41 0X0 0Xff 0X42 ) : A");
    QTest::newRow("empty") << QByteArray() << QStringLiteral("() : ");
}

void TestToolkitBytes::dump()
{
    QFETCH(QByteArray, bytes);
    QTEST(dumpByteArray(bytes), "text");
}

QTEST_GUILESS_MAIN(TestToolkitBytes)
#include "tst_toolkit_bytes.moc"

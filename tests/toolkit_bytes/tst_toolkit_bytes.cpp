#include <QtTest>

#include "common/packing.h"
#include "common/tools.h"

namespace
{

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(text);
}

QByteArray bufferBytes(const unsigned char* buf, int n)
{
    return QByteArray(reinterpret_cast<const char*>(buf), n);
}

} // namespace

// Byte, bit and byte-order conversions, and format-string packing.
class TestToolkitBytes : public QObject
{
    Q_OBJECT
private slots:
    // The widths share one template: the 8-bit form shows the top bit and a
    // bit number equal to the width, which changes nothing and reads false.
    void singleValueBits()
    {
        const unsigned char all = 0xFF;
        QCOMPARE(setBit((unsigned char)1, 7), (unsigned char)0x81);
        QCOMPARE(setBit((unsigned char)1, 8), (unsigned char)1);
        QCOMPARE(clearBit(all, 7), (unsigned char)0x7F);
        QCOMPARE(clearBit(all, 8), all);
        QVERIFY(getBit(all, 7) && !getBit(all, 8) && !getBit((unsigned char)0x7F, 7));
        QVERIFY(isBigEndian());
    }

    void arrayToNumber_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("asInt");
        QTest::addColumn<int>("asWord"); // unsigned short, widened
        QTest::addColumn<int>("asShort");
        QTest::newRow("empty") << QByteArray() << 0 << 0 << 0;
        QTest::newRow("one byte FF: no sign extension") << hex("ff") << 0xFF << 0xFF << 255;
        QTest::newRow("FF FF") << hex("ffff") << 0xFFFF << 0xFFFF << -1;
        QTest::newRow("three bytes zero-extended") << hex("ffffff") << 0xFFFFFF << 0xFFFF << -1;
        QTest::newRow("fifth byte ignored") << hex("785634129a") << 0x12345678 << 0x5678 << 0x5678;
    }
    void arrayToNumber()
    {
        QFETCH(QByteArray, bytes);
        QTEST(QByteArrayToInt(bytes), "asInt");
        QTEST(int(QByteArrayToWord(bytes)), "asWord");
        QTEST(int(QByteArrayToShort(bytes)), "asShort");
    }

    void numberToArray()
    {
        QCOMPARE(wordToByteArray(0x1234) + shortToByteArray(-2), hex("3412 feff"));
        QCOMPARE(intToByteArray(0x01020304), hex("04030201"));
        QByteArray a = hex("aa");
        appendBigEndianUShort(a, 0x1234);
        QCOMPARE(a, hex("aa1234"));
    }

    // The array forms share one element swap: the copies pad to whole
    // elements first, the in-place forms leave a trailing partial one alone.
    void byteOrder()
    {
        const QByteArray six = hex("010203040506");
        QCOMPARE(toBigEndianUShortArray(hex("010203")), hex("02010003"));
        QCOMPARE(toBigEndianULongArray(six), hex("0403020100000605"));
        QByteArray inPlace = six;
        toLittleEndianULongArray(inPlace);
        QCOMPARE(inPlace, hex("040302010506"));
        inPlace = hex("010203");
        toLittleEndianUShortArray(inPlace);
        QCOMPARE(inPlace, hex("020103"));
        QCOMPARE(reverseArray(hex("010203")), hex("030201"));
        const auto* p = reinterpret_cast<const unsigned char*>(six.constData());
        QCOMPARE(fromBigEndianUShortArray(p, 3) + fromBigEndianULongArray(p, 1),
                 hex("020104030605 04030201"));
        QVERIFY(fromBigEndianUShortArray(nullptr, 3).isEmpty());
    }

    void paddingAndUnitCounts()
    {
        const QByteArray five(5, 'Z');
        QCOMPARE(To16bitsData(five), five + QByteArray(1, '\0'));
        QCOMPARE(To32bitsData(five), five + QByteArray(3, '\0'));
        QCOMPARE(To64bitsData(five), five + QByteArray(3, '\0'));
        QCOMPARE(To64bitsData(QByteArray(9, 'Z')).size(), 16);
        QCOMPARE(To32bitsData(QByteArray(8, 'Z')), QByteArray(8, 'Z'));
        // Bits plus offset, rounded up; the largest counts must not wrap to 0.
        QCOMPARE(QList<uint>({NumOfBitsToNumOfBytes(8, 0), NumOfBitsToNumOfBytes(1, 8),
                              NumOfBitsToNumOfBytes(0xFFFFFFFFu, 1), NumOfBitsToNumOfWords(17, 0),
                              NumOfBitsToNumOfDWords(1, 31), NumOfBitsToNumOfDWords(1, 32)}),
                 QList<uint>({1, 2, 0x20000000u, 2, 1, 2}));
        QCOMPARE(QList<uint>({NumOfBytesToNumOfWords(0xFFFFFFFFu), NumOfBytesToNumOfDWords(5),
                              NumOfBytesToNumOfQuadWords(8), NumOfBytesToNumOfQuadWords(9)}),
                 QList<uint>({0x80000000u, 2, 1, 2}));
    }

    // Outside a QByteArray a bit reads false and writes change nothing.
    void packedBits()
    {
        QByteArray a = hex("0000");
        for (int n : {9, 0, 16, -1})
            setBit(a, n, true);
        QCOMPARE(a, hex("0102"));
        QVERIFY(getBit(a, 9) && !getBit(a, 8) && !getBit(a, 16) && !getBit(a, -1));
        setBit(a, 9, false);
        QCOMPARE(a, hex("0100"));

        const unsigned char raw[2] = {0x00, 0x80};
        QVERIFY(getBit(raw, 15) && !getBit(raw, 14) && !getBit(raw, -1));
        QVERIFY(getBitData(hex("03")) && !getBitData(hex("02")) && !getBitData(QByteArray()));

        QCOMPARE(ExpandBitsToBytes(hex("05"), 0, 4), hex("01000100"));
        QCOMPARE(ExpandBitsToBytes(hex("ff"), 6, 4), hex("01010000")); // beyond the array: 0
        QVERIFY(ExpandBitsToBytes(hex("ff"), 0, -1).isEmpty());

        QByteArray dst = hex("0000"), src = hex("0b"); // bits 0, 1, 3
        CopyBits(dst, src, 6, 4);
        QCOMPARE(dst, hex("c002"));
        CopyBits(dst, src, 14, 4); // bits past the end of dst are dropped
        QCOMPARE(dst, hex("c0c2"));
    }

    void bitArrayShaping_data()
    {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("bits");
        QTest::addColumn<QByteArray>("fitted");
        QTest::addColumn<QByteArray>("cleared");
        QTest::newRow("12 bits, later bytes untouched")
            << hex("ffffff") << 12 << hex("ffff") << hex("ff0fff");
        QTest::newRow("multiple of 8") << hex("ffff") << 8 << hex("ff") << hex("ffff");
        QTest::newRow("grows with zeros") << hex("ff") << 17 << hex("ff0000") << hex("ff");
        QTest::newRow("negative") << hex("ff") << -3 << QByteArray() << hex("ff");
    }
    void bitArrayShaping()
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

    // Shifts of 8 or more rotate whole bytes (RotateArray) before the rest.
    void rightShift_data()
    {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("n");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("by 4") << hex("2143") << 4 << hex("3204");
        QTest::newRow("by 7") << hex("80ff") << 7 << hex("ff01");
        QTest::newRow("by 16 rotates two front bytes") << hex("11223344") << 16 << hex("33441122");
        QTest::newRow("by 12") << hex("112233") << 12 << hex("320311");
        QTest::newRow("by the whole width") << hex("1122") << 16 << hex("0000");
        QTest::newRow("empty") << QByteArray() << 3 << QByteArray();
        QTest::newRow("negative ignored") << hex("1122") << -1 << hex("1122");
    }
    void rightShift()
    {
        QFETCH(QByteArray, input);
        QFETCH(int, n);
        RightShiftNBits(input, n);
        QTEST(input, "expected");
    }

    void dump()
    {
        QCOMPARE(dumpByteArray(hex("410a")), QStringLiteral("(0X41 0Xa ) : A\n"));
        // The text stops at a zero byte.
        QCOMPARE(dumpByteArray(hex("4100ff42")), QStringLiteral("(0X41 0X0 0Xff 0X42 ) : A"));
    }

    void packSingleFields_data()
    {
        QTest::addColumn<QByteArray>("format");
        QTest::addColumn<int>("value");
        QTest::addColumn<QByteArray>("bytes");
        // Only the low bytes of the value are used.
        for (const char* format : {"C", "c"})
            QTest::newRow(format) << QByteArray(format) << 0x1241 << hex("41");
        for (const char* format : {"S", "s", "v"})
            QTest::newRow(format) << QByteArray(format) << 0x10201 << hex("0102");
        QTest::newRow("n big-endian") << QByteArray("n") << 0x1234 << hex("1234");
        for (const char* format : {"I", "L", "V", "i", "l"})
            QTest::newRow(format) << QByteArray(format) << -2 << hex("feffffff");
        QTest::newRow("N big-endian") << QByteArray("N") << 0x01020304 << hex("01020304");
    }
    void packSingleFields()
    {
        QFETCH(QByteArray, format);
        QFETCH(int, value);
        QFETCH(QByteArray, bytes);
        unsigned char buf[8];
        std::fill(std::begin(buf), std::end(buf), 0xEE);
        QCOMPARE(DataPack(buf, format.constData(), value), bytes.size());
        // Nothing is written past the field.
        QCOMPARE(bufferBytes(buf, bytes.size() + 1), bytes + '\xEE');
        QCOMPARE(ByteArrayPack(format.constData(), value), bytes);

        // Unpacking reads the field back into a variable of its width.
        const auto* p = reinterpret_cast<const unsigned char*>(bytes.constData());
        unsigned char c = 0;
        unsigned short w = 0;
        unsigned int l = 0;
        const int width = bytes.size();
        QCOMPARE(width == 1   ? DataUnpack(p, format.constData(), &c)
                 : width == 2 ? DataUnpack(p, format.constData(), &w)
                              : DataUnpack(p, format.constData(), &l),
                 width);
        QCOMPARE(c + w + l, uint(value) & (0xFFFFFFFFu >> (32 - 8 * width)));
    }

    void packArraysAndSkips()
    {
        unsigned char buf[16] = {};
        QCOMPARE(DataPack(buf, "nN", 0x1234, 0x01020304), 6);
        QCOMPARE(bufferBytes(buf, 6), hex("123401020304"));
        QCOMPARE(ByteArrayPack("Cv", 0x41, 0x0201), hex("410102"));

        const unsigned int longs[] = {0x01020304, 0x05060708};
        QCOMPARE(ByteArrayPack("2N", longs), hex("0102030405060708"));
        QCOMPARE(ByteArrayPack("2V", longs), hex("0403020108070605"));
        const unsigned short words[] = {0x0102, 0x0304, 0x0506};
        QCOMPARE(ByteArrayPack("3n", words) + ByteArrayPack("3v", words),
                 hex("010203040506 020104030605"));
        const unsigned char text[] = "ABCDEFGHIJKL";
        QCOMPARE(DataPack(buf, "C2cn", 0x02, text, 0xBEEF), 5);
        QCOMPARE(bufferBytes(buf, 5), hex("024142beef"));

        std::fill(std::begin(buf), std::end(buf), 0xEE);
        QCOMPARE(DataPack(buf, "3x"), 3);
        QCOMPARE(bufferBytes(buf, 4), hex("000000ee"));
        std::fill(std::begin(buf), std::end(buf), 0xEE);
        QCOMPARE(DataPack(buf, "CXC2XC", 1, 2, 3), 6);
        QCOMPARE(bufferBytes(buf, 6), hex("01ee02eeee03"));
        QCOMPARE(DataPack(buf, "0x0X"), 0);
        QCOMPARE(ByteArrayPack("CxC", 1, 2), hex("010002"));
        QCOMPARE(ByteArrayPack("CXC", 1, 2).size(), 3);
        QCOMPARE(ByteArrayPack(""), QByteArray());
        // Counted skips are for buffers only.
        QVERIFY(ByteArrayPack("C2x", 1).isEmpty() && ByteArrayPack("C2X", 1).isEmpty());
    }

    // A character outside the table stops DataPack with 0, a bad count with
    // -1; what it packed before stays in the buffer.
    void formatErrors_data()
    {
        QTest::addColumn<QByteArray>("format");
        QTest::addColumn<int>("packResult");
        QTest::newRow("blank between fields") << QByteArray("C C") << 0;
        QTest::newRow("count before S") << QByteArray("2S") << -1;
        QTest::newRow("count at the end") << QByteArray("C3") << -1;
        QTest::newRow("zero count before N") << QByteArray("0N") << -1;
        QTest::newRow("count beyond the limit") << QByteArray("99999999999C") << -1;
    }
    void formatErrors()
    {
        QFETCH(QByteArray, format);
        QFETCH(int, packResult);
        unsigned char buf[8] = {};
        unsigned char sink[8] = {};
        QCOMPARE(DataPack(buf, format.constData(), 0x7A, sink, 3), packResult);
        QCOMPARE(buf[0], (unsigned char)(format.startsWith('C') ? 0x7A : 0));
        QVERIFY(ByteArrayPack(format.constData(), 1, sink, 3).isEmpty());
        unsigned char c = 0;
        QCOMPARE(DataUnpack(buf, format.constData(), &c, sink, &c), -1);
    }

    void unpackArraysAndSkips()
    {
        const QByteArray wire = hex("aabb0102030405060708090a0b0c");
        const auto* p = reinterpret_cast<const unsigned char*>(wire.constData());
        unsigned short words[2] = {};
        unsigned int longs[2] = {};
        unsigned char chars[2] = {};
        QCOMPARE(DataUnpack(p, "2X2n1N2C", words, longs, chars), 12);
        QCOMPARE(QList<uint>({words[1], longs[0], chars[1]}),
                 QList<uint>({0x0304, 0x05060708, 0x0a}));
        QCOMPARE(DataUnpack(p, "2x2v2V", words, longs), 14);
        QCOMPARE(QList<uint>({words[0], longs[1]}), QList<uint>({0x0201, 0x0c0b0a09}));
        QCOMPARE(DataUnpack(p, "0xxX0XC", chars), 3);
        QCOMPARE(chars[0], (unsigned char)0x01);
    }
};

QTEST_GUILESS_MAIN(TestToolkitBytes)
#include "tst_toolkit_bytes.moc"

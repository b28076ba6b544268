#include <QtTest>

#include "common/tools.h"
#include "driver/communicatorcommand.h"

namespace
{

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(text);
}

// The top bit of a width is set, cleared and read; a bit number equal to the
// width changes nothing and reads false.
template <typename T> void checkSingleValueBits()
{
    const unsigned short width = sizeof(T) * 8;
    const T top = T(T(1) << (width - 1));
    const T all = T(~T(0));
    QCOMPARE(setBit(T(1), ushort(width - 1)), T(top | 1));
    QCOMPARE(setBit(T(1), width), T(1));
    QCOMPARE(clearBit(all, ushort(width - 1)), T(all ^ top));
    QCOMPARE(clearBit(all, width), all);
    QVERIFY(getBit(top, ushort(width - 1)));
    QVERIFY(!getBit(all, width));
}

} // namespace

class TestToolkitBytes : public QObject
{
    Q_OBJECT
private slots:
    void singleValueBits()
    {
        checkSingleValueBits<unsigned char>();
        checkSingleValueBits<unsigned short>();
        checkSingleValueBits<unsigned int>();
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
        QTest::newRow("negative int") << hex("feffffff") << -2 << 0xFFFE << -2;
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
        QCOMPARE(wordToByteArray(0x1234), hex("3412"));
        QCOMPARE(shortToByteArray(-2), hex("feff"));
        QCOMPARE(intToByteArray(0x01020304), hex("04030201"));
        QCOMPARE(QByteArrayToInt(intToByteArray(INT_MIN)), INT_MIN);
        QByteArray a = hex("aa");
        appendBigEndianUShort(a, 0x1234);
        QCOMPARE(a, hex("aa1234"));
    }

    void byteOrder_data()
    {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QByteArray>("ushortCopy"); // toBigEndianUShortArray
        QTest::addColumn<QByteArray>("ulongCopy");  // toBigEndianULongArray
        QTest::addColumn<QByteArray>("ushortInPlace");
        QTest::addColumn<QByteArray>("ulongInPlace");
        const QByteArray none;
        QTest::newRow("empty") << none << none << none << none << none;
        QTest::newRow("odd length pads before swapping")
            << hex("010203") << hex("02010003") << hex("00030201") << hex("020103")
            << hex("010203");
        QTest::newRow("whole elements")
            << hex("0102030405060708") << hex("0201040306050807") << hex("0403020108070605")
            << hex("0201040306050807") << hex("0403020108070605");
        QTest::newRow("partial long element kept")
            << hex("010203040506") << hex("020104030605") << hex("0403020100000605")
            << hex("020104030605") << hex("040302010506");
    }
    void byteOrder()
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

    void rotateArray()
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

    void paddingAndUnitCounts()
    {
        const QByteArray five(5, 'Z');
        QCOMPARE(To16bitsData(five), five + QByteArray(1, '\0'));
        QCOMPARE(To32bitsData(five), five + QByteArray(3, '\0'));
        QCOMPARE(To64bitsData(five), five + QByteArray(3, '\0'));
        QCOMPARE(To64bitsData(QByteArray(9, 'Z')).size(), 16);
        QCOMPARE(To32bitsData(QByteArray(8, 'Z')), QByteArray(8, 'Z'));
        QCOMPARE(To16bitsData(QByteArray()), QByteArray());

        QCOMPARE(NumOfBitsToNumOfBytes(8, 0), 1u);
        QCOMPARE(NumOfBitsToNumOfBytes(1, 8), 2u);
        QCOMPARE(NumOfBitsToNumOfBytes(0xFFFFFFFFu, 1), 0x20000000u); // no wrap to 0
        QCOMPARE(NumOfBitsToNumOfWords(17, 0), 2u);
        QCOMPARE(NumOfBitsToNumOfDWords(1, 31), 1u);
        QCOMPARE(NumOfBitsToNumOfDWords(1, 32), 2u);
        QCOMPARE(NumOfBytesToNumOfWords(0xFFFFFFFFu), 0x80000000u);
        QCOMPARE(NumOfBytesToNumOfDWords(5), 2u);
        QCOMPARE(NumOfBytesToNumOfQuadWords(8), 1u);
        QCOMPARE(NumOfBytesToNumOfQuadWords(9), 2u);
    }

    void packedBits()
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
        QCOMPARE(QByteArray(reinterpret_cast<char*>(raw), 2), hex("f780"));
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

    void bitArrayShaping_data()
    {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("bits");
        QTest::addColumn<QByteArray>("fitted");
        QTest::addColumn<QByteArray>("cleared");
        QTest::newRow("12 bits, later bytes untouched")
            << hex("ffffff") << 12 << hex("ffff") << hex("ff0fff");
        QTest::newRow("multiple of 8") << hex("ffff") << 8 << hex("ff") << hex("ffff");
        QTest::newRow("1 bit") << hex("ff") << 1 << hex("ff") << hex("01");
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

    void rightShift_data()
    {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("n");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("by 0") << hex("2143") << 0 << hex("2143");
        QTest::newRow("by 4") << hex("2143") << 4 << hex("3204");
        QTest::newRow("by 1 across three bytes") << hex("010380") << 1 << hex("800140");
        QTest::newRow("by 7") << hex("80ff") << 7 << hex("ff01");
        QTest::newRow("by 8 rotates the front byte") << hex("112233") << 8 << hex("223311");
        QTest::newRow("by 12") << hex("112233") << 12 << hex("320311");
        QTest::newRow("by 16") << hex("112233") << 16 << hex("331122");
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

    void commands_data()
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
    void commands()
    {
        QFETCH(int, kind);
        QFETCH(uint, count);
        QFETCH(int, safeLen);
        QFETCH(QString, predicate);
        CommunicatorCommand c;
        c.dataType = kind;
        c.count = count;
        QCOMPARE(GetSafeDataLen(c), safeLen);
        QCOMPARE(isBitCommand(c), predicate == "bit");
        QCOMPARE(isByteCommand(c), predicate == "byte");
        QCOMPARE(isWordCommand(c), predicate == "word");
        QCOMPARE(isDoubleWordCommand(c), predicate == "dword");
        QCOMPARE(isBlockCommand(c), predicate == "block");

        const QByteArray longer(safeLen + 3, '\x11');
        QCOMPARE(ToSafeData(c, longer), longer.left(safeLen));
        const QByteArray fitted = ToSafeData(c, hex("aa"));
        QCOMPARE(fitted, safeLen ? hex("aa") + QByteArray(safeLen - 1, '\0') : QByteArray());
    }

    void dump_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("letter and line feed") << hex("410a") << QStringLiteral("(0X41 0Xa ) : A\n");
        QTest::newRow("text stops at a zero byte")
            << hex("4100ff42") << QStringLiteral("(0X41 0X0 0Xff 0X42 ) : A");
        QTest::newRow("empty") << QByteArray() << QStringLiteral("() : ");
    }
    void dump()
    {
        QFETCH(QByteArray, bytes);
        QTEST(dumpByteArray(bytes), "text");
    }
};

QTEST_GUILESS_MAIN(TestToolkitBytes)
#include "tst_toolkit_bytes.moc"

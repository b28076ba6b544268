#include <QtTest>

#include "common/deviceaddress.h"
#include "common/packing.h"

namespace
{

QByteArray bufferBytes(const unsigned char* buf, int n)
{
    return QByteArray(reinterpret_cast<const char*>(buf), n);
}

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(text);
}

} // namespace

// Format-string packing and device-address parsing.
class TestToolkitFormat : public QObject
{
    Q_OBJECT
private slots:
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
        QCOMPARE(ByteArrayPack("12C", text), QByteArray("ABCDEFGHIJKL"));
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
        QTest::newRow("unknown letter") << QByteArray("Cq") << 0;
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

    void unpack()
    {
        const QByteArray wire = hex("aabb0102030405060708090a0b0c");
        const auto* p = reinterpret_cast<const unsigned char*>(wire.constData());
        unsigned short w = 0;
        QCOMPARE(DataUnpack(p + 2, "n", &w), 2);
        QCOMPARE(w, (unsigned short)0x0102);
        unsigned short words[2] = {};
        unsigned int longs[2] = {};
        unsigned char chars[2] = {};
        QCOMPARE(DataUnpack(p, "2X2n1N2C", words, longs, chars), 12);
        QCOMPARE(words[1], (unsigned short)0x0304);
        QCOMPARE(longs[0], 0x05060708u);
        QCOMPARE(chars[1], (unsigned char)0x0a);
        QCOMPARE(DataUnpack(p, "2x2v2V", words, longs), 14);
        QCOMPARE(words[0], (unsigned short)0x0201);
        QCOMPARE(longs[1], 0x0c0b0a09u);
        QCOMPARE(DataUnpack(p, "0xxX0XC", chars), 3);
        QCOMPARE(chars[0], (unsigned char)0x01);

        // Every field letter reads back what packing (checked above) wrote.
        const char* fields = "CcSsvnILVilN";
        const QList<uint> values{0x11,       0x22,       0x3344,     0x5566,
                                 0x7788,     0x99AA,     0x01020304, 0x05060708,
                                 0x090A0B0C, 0x0D0E0F10, 0x11121314, 0x15161718};
        unsigned char buf[40];
        QCOMPARE(DataPack(buf, fields, values[0], values[1], values[2], values[3], values[4],
                          values[5], values[6], values[7], values[8], values[9], values[10],
                          values[11]),
                 34);
        unsigned char c[2] = {};
        unsigned short s[4] = {};
        unsigned int l[6] = {};
        QCOMPARE(DataUnpack(buf, fields, &c[0], &c[1], &s[0], &s[1], &s[2], &s[3], &l[0], &l[1],
                            &l[2], &l[3], &l[4], &l[5]),
                 34);
        QCOMPARE(
            QList<uint>({c[0], c[1], s[0], s[1], s[2], s[3], l[0], l[1], l[2], l[3], l[4], l[5]}),
            values);
    }

    void prefixSymbol_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QByteArray>("prefix");
        QTest::newRow("D100") << "D100" << QByteArray("D");
        QTest::newRow("TN_5") << "TN_5" << QByteArray("TN_");
        QTest::newRow("100") << "100" << QByteArray();
        QTest::newRow("_X.1") << "_X.1" << QByteArray("_X");
    }
    void prefixSymbol()
    {
        QFETCH(QString, address);
        QTEST(ExtractPrefixSymbol(address), "prefix");
        QTEST(ExtractPrefixSymbol(address.toLatin1()), "prefix");
    }

    void deviceAddress_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<int>("base");
        QTest::addColumn<int>("value");
        QTest::newRow("D100 decimal") << "D100" << 10 << 100;
        QTest::newRow("X17 octal") << "X17" << 8 << 15;
        QTest::newRow("D100 hex takes the prefix") << "D100" << 16 << 0xD100;
        QTest::newRow("W1f hex") << "W1f" << 16 << 0x1F;
        QTest::newRow("D10.5: trailing characters") << "D10.5" << 10 << 0;
        QTest::newRow("no digits") << "RAM" << 10 << 0;
        QTest::newRow("too large") << "D99999999999" << 10 << 0;
        QTest::newRow("base 2") << "D100" << 2 << -1;
    }
    void deviceAddress()
    {
        QFETCH(QString, address);
        QFETCH(int, base);
        QTEST(ExtractPLCDeviceAddress(address, base), "value");
        QTEST(ExtractPLCDeviceAddress(address.toLatin1(), base), "value");
    }

    void hexToUInt_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<int>("len");
        QTest::addColumn<uint>("value");
        QTest::newRow("0x1A") << QByteArray("0x1A") << 4 << 26u;
        QTest::newRow("0X1a") << QByteArray("0X1a") << 4 << 26u;
        QTest::newRow("1G") << QByteArray("1G") << 2 << 0u;
        QTest::newRow("0x alone") << QByteArray("0x") << 2 << 0u;
        QTest::newRow("leading zero") << QByteArray("0ff") << 3 << 255u;
        QTest::newRow("length shorter than text") << QByteArray("1A2B") << 2 << 26u;
        QTest::newRow("length longer than text") << QByteArray("1A") << 10 << 26u;
        QTest::newRow("wraps at 32 bits") << QByteArray("123456789") << 9 << 0x23456789u;
        QTest::newRow("negative length") << QByteArray("12") << -1 << 0u;
    }
    void hexToUInt()
    {
        QFETCH(QByteArray, text);
        QFETCH(int, len);
        QTEST(HexToUInt(text.constData(), len), "value");
    }

    void hmiPort_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("port");
        QTest::newRow("ethernet0") << "ethernet0" << 2000;
        QTest::newRow("COM1") << "COM1" << 1002;
        QTest::newRow("COM12") << "COM12" << 1013;
        QTest::newRow("/dev/ttyS0") << "/dev/ttyS0" << 1001;
        QTest::newRow("no trailing digits") << "COM" << -1;
        QTest::newRow("digits only") << "12" << -1;
        QTest::newRow("empty") << "" << -1;
        QTest::newRow("number too large") << "COM99999999999" << -1;
    }
    void hmiPort()
    {
        QFETCH(QString, name);
        QTEST(DevStrToHmiPort(name), "port");
    }
};

QTEST_GUILESS_MAIN(TestToolkitFormat)
#include "tst_toolkit_format.moc"

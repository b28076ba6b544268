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
        QTest::newRow("C low byte") << QByteArray("C") << 0x1241 << hex("41");
        QTest::newRow("c") << QByteArray("c") << -1 << hex("ff");
        QTest::newRow("S") << QByteArray("S") << 0x10201 << hex("0102");
        QTest::newRow("s") << QByteArray("s") << 0x0201 << hex("0102");
        QTest::newRow("v") << QByteArray("v") << 0x0201 << hex("0102");
        QTest::newRow("n big-endian") << QByteArray("n") << 0x1234 << hex("1234");
        for (const char* format : {"I", "L", "i", "l"})
            QTest::newRow(format) << QByteArray(format) << 0x01020304 << hex("04030201");
        QTest::newRow("V") << QByteArray("V") << -2 << hex("feffffff");
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
        QCOMPARE(ByteArrayPack("3n", words), hex("010203040506"));
        QCOMPARE(ByteArrayPack("3v", words), hex("020104030605"));
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
    }

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
        unsigned char buf[8] = {};
        unsigned char sink[8] = {};
        QTEST(DataPack(buf, format.constData(), 1, sink, 3), "packResult");
        QVERIFY(ByteArrayPack(format.constData(), 1, sink, 3).isEmpty());
        unsigned char c = 0;
        QCOMPARE(DataUnpack(buf, format.constData(), &c, sink, &c), -1);

        // Counted skips are for buffers only.
        QVERIFY(ByteArrayPack("C2x", 1).isEmpty());
        QVERIFY(ByteArrayPack("C2X", 1).isEmpty());
        // What was packed before the error stays in the buffer.
        QCOMPARE(DataPack(buf, "C C", 0x7A, 1), 0);
        QCOMPARE(buf[0], (unsigned char)0x7A);
    }

    void unpack()
    {
        const unsigned char bytes[] = {0x12, 0x34, 0x01, 0x02, 0x03, 0x04, 0xAA};
        unsigned short w = 0;
        QCOMPARE(DataUnpack(bytes, "n", &w), 2);
        QCOMPARE(w, (unsigned short)0x1234);
        QCOMPARE(DataUnpack(bytes, "v", &w), 2);
        QCOMPARE(w, (unsigned short)0x3412);
        unsigned char c = 0;
        unsigned int big = 0;
        QCOMPARE(DataUnpack(bytes, "xCN", &c, &big), 6);
        QCOMPARE(c, (unsigned char)0x34);
        QCOMPARE(big, 0x01020304u);

        const QByteArray wire = hex("aabb0102030405060708090a0b0c");
        const auto* p = reinterpret_cast<const unsigned char*>(wire.constData());
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
        QCOMPARE(DataUnpack(p, "0xX0XC", chars), 2);
        QCOMPARE(chars[0], (unsigned char)0xbb);

        // Packing and unpacking agree on every field.
        unsigned char buf[16];
        const int n = DataPack(buf, "CnNvV", 0x11, 0x2233, 0x44556677, 0x8899, 0xAABBCCDD);
        unsigned short s1 = 0, s2 = 0;
        unsigned int l1 = 0, l2 = 0;
        QCOMPARE(DataUnpack(buf, "CnNvV", &c, &s1, &l1, &s2, &l2), n);
        QCOMPARE(QList<uint>({c, s1, l1, s2, l2}),
                 QList<uint>({0x11, 0x2233, 0x44556677, 0x8899, 0xAABBCCDD}));
    }

    void prefixSymbol_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QByteArray>("prefix");
        QTest::newRow("D100") << "D100" << QByteArray("D");
        QTest::newRow("TN_5") << "TN_5" << QByteArray("TN_");
        QTest::newRow("100") << "100" << QByteArray();
        QTest::newRow("_X.1") << "_X.1" << QByteArray("_X");
        QTest::newRow("letters only") << "RAM" << QByteArray("RAM");
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
        QTest::newRow("X18 octal: 8 is no digit") << "X18" << 8 << 0;
        QTest::newRow("D100 hex takes the prefix") << "D100" << 16 << 0xD100;
        QTest::newRow("W1f hex") << "W1f" << 16 << 0x1F;
        QTest::newRow("D10.5 not a number") << "D10.5" << 10 << 0;
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
        QTest::newRow("blank") << QByteArray("1 2") << 3 << 0u;
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

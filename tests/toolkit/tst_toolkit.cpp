// The driver toolkit: checksums and CRCs, the packet builder, byte and bit
// conversions, command data sizes, format-string packing, address parsing,
// project database lookups, and the time and process functions.

#include <QtSql>
#include <QtTest>

#include "common/crc.h"
#include "common/projectdatabase.h"
#include "common/tools.h"
#include "common/txpackage.h"
#include "driver/communicatorcommand.h"

#include <atomic>
#include <csignal>
#include <pthread.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

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

const QString connection = QStringLiteral("project-lookups");
using Pairs = QList<QPair<int, int>>; // link id, station id

} // namespace

class TestToolkit : public QObject
{
    Q_OBJECT
private slots:
    // Must stay the first test: it makes the first call of every update
    // function, from two threads at once, over every byte value (so every
    // table entry is read). The reference values come from a bitwise
    // computation.
    void crcFirstCallRace()
    {
        QByteArray all;
        for (int i = 0; i < 256; ++i)
            all.append(char(i));
        std::atomic<int> ready{0};
        QVector<quint64> results[2];
        auto racer = [&](int i) {
            ready.fetch_add(1);
            while (ready.load() < 2) {
            }
            results[i] = {runCrc<unsigned short>(all, 0, update_crc_16),
                          runCrc<unsigned short>(all, 0, update_crc_kermit),
                          runCrc<unsigned short>(all, 0, update_crc_dnp),
                          runCrc<unsigned long>(all, 0xFFFFFFFFul, update_crc_32),
                          runCrc<unsigned short>(all, 0xFFFF, update_crc_ccitt)};
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
        QCOMPARE(runCrc<unsigned long>(check, 0xFFFFFFFFul, update_crc_32) ^ 0xFFFFFFFFul,
                 0xCBF43926ul);
        QCOMPARE(runCrc<unsigned short>(check, 0xFFFF, update_crc_ccitt), (unsigned short)0x29B1);
        QCOMPARE(runCrc<unsigned short>(check, 0, update_crc_kermit), (unsigned short)0x2189);
        QCOMPARE((unsigned short)~runCrc<unsigned short>(check, 0, update_crc_dnp),
                 (unsigned short)0xEA82);
        QCOMPARE(update_crc_sick(0xC000, char(0xFF), char(0x80)), (unsigned short)0x80FA);
    }

    // Sums wrap, with no complement; the packet's checks cover its whole buffer.
    void checksumsWrap()
    {
        const QByteArray data(258, '\xff');
        QCOMPARE(int(UInt8CheckSum(bytes(data), data.size())), 0xFE);
        QCOMPARE(int(UShortCheckSum(bytes(data), data.size())), 0x00FE);
        QCOMPARE(int(XorUInt8CheckSum(bytes(data), data.size())), 0);
        TxPackage lrc, fcs;
        lrc.appendSection(data);
        fcs.appendSection(data);
        lrc.appendLRCAscii();
        fcs.appendFCSAscii(5); // the argument does not narrow the check
        QCOMPARE(lrc.dataAt(1) + fcs.dataAt(1), QByteArray("FE00"));
    }

    // Every append is one section; offsets follow the lengths. An entry -k
    // takes a length from the first four bytes of section k.
    void frameLayout()
    {
        TxPackage p;
        QVERIFY(p.appendByte(0x02) && p.appendString(QStringLiteral("01RD")) && p.appendLRCAscii());
        QCOMPARE(p.byteArrayData(), hex("0230315244") + "F9");
        QCOMPARE(p.dataAt(1), QByteArray("01RD"));
        QVERIFY(p.appendWord(0x1234) && p.appendDWord(0x01020304) && p.appendByte2Ascii(0x0A));
        QCOMPARE(p.byteArrayData().mid(7), hex("3412 04030201") + "0A");
        QCOMPARE(QList<int>({p.numberOfSections(), p.sectionStartIndex(5), p.sectionStartIndex(6)}),
                 QList<int>({6, 13, -1}));
        p.setSectionSize({1, 4, -1, INT_MIN});
        p.setData(hex("0102030405060708"));
        QCOMPARE(QList<int>({p.sectionSize(2), p.sectionSize(3)}), QList<int>({0x05040302, 0}));
        QCOMPARE(p.dataAt(2) + p.dataAt(3), hex("060708")); // only bytes inside the buffer
    }

    void conversions()
    {
        // One byte is not sign-extended; two are.
        QCOMPARE(QByteArrayToShort(hex("ff")), short(255));
        QCOMPARE(QByteArrayToShort(hex("ffff")), short(-1));
        QCOMPARE(QByteArrayToInt(hex("785634129a")), 0x12345678);
        QCOMPARE(shortToByteArray(-2) + intToByteArray(0x01020304), hex("feff 04030201"));
        // Odd lengths: copies pad to whole elements, in-place swaps leave a
        // trailing partial one alone.
        QCOMPARE(toBigEndianUShortArray(hex("010203")), hex("02010003"));
        QByteArray inPlace = hex("010203040506");
        toLittleEndianULongArray(inPlace);
        QCOMPARE(inPlace, hex("040302010506"));
        QCOMPARE(To64bitsData(QByteArray(9, 'Z')), QByteArray(9, 'Z') + QByteArray(7, '\0'));
        // The largest counts must not wrap to 0.
        QCOMPARE(NumOfBitsToNumOfBytes(0xFFFFFFFFu, 1), 0x20000000u);
        QCOMPARE(NumOfBytesToNumOfWords(0xFFFFFFFFu), 0x80000000u);
    }

    // Outside the array a bit reads false and writes change nothing.
    void bits()
    {
        QByteArray a = hex("0000");
        for (int n : {9, 16, -1})
            setBit(a, n, true);
        QCOMPARE(a, hex("0002"));
        QVERIFY(getBit(a, 9) && !getBit(a, 16) && !getBit(a, -1));
        QCOMPARE(ExpandBitsToBytes(hex("ff"), 6, 4), hex("01010000"));
        a = hex("ffffff");
        clearUnnecessaryBits(a, 12);
        QCOMPARE(a, hex("ff0fff"));
        a = hex("2143");
        RightShiftNBits(a, 4);
        QCOMPARE(a, hex("3204"));
    }

    // getDataSize and GetSafeDataLen differ for a zero bit count and for a
    // kind they do not know; ToSafeData cuts or pads with zero bytes.
    void commandSizes()
    {
        CommunicatorCommand c;
        c.dataType = 0;
        QList<int> sizes;
        for (uint count : {0u, 9u}) {
            c.count = count;
            sizes << c.getDataSize() << GetSafeDataLen(c);
        }
        c.dataType = 7;
        QCOMPARE(sizes << c.getDataSize() << GetSafeDataLen(c), QList<int>({1, 0, 2, 2, 1, 0}));
        c.dataType = 2;
        c.count = 1;
        QCOMPARE(ToSafeData(c, hex("aabbcc")) + ToSafeData(c, hex("aa")), hex("aabb aa00"));
    }

    void pack()
    {
        unsigned char buf[16];
        std::fill(std::begin(buf), std::end(buf), 0xEE);
        QCOMPARE(DataPack(buf, "nNC3x", 0x1234, 0x01020304, 0x1241), 10);
        QCOMPARE(QByteArray(reinterpret_cast<char*>(buf), 11), hex("1234 01020304 41 000000 ee"));
        QCOMPARE(ByteArrayPack("Cv", 0x41, 0x0201), hex("410102"));
        const unsigned int longs[] = {0x01020304, 0x05060708};
        QCOMPARE(ByteArrayPack("2N", longs) + ByteArrayPack("2V", longs),
                 hex("0102030405060708 0403020108070605"));
        QVERIFY(ByteArrayPack("C2x", 1).isEmpty()); // counted skips are for buffers only
        unsigned short n = 0, v = 0;
        QCOMPARE(DataUnpack(buf, "nv", &n, &v), 4);
        QCOMPARE(QList<int>({n, v}), QList<int>({0x1234, 0x0201}));
        // A character outside the table stops DataPack with 0, a bad count with -1.
        QCOMPARE(DataPack(buf, "C C", 1, 2), 0);
        QCOMPARE(DataPack(buf, "99999999999C", 1), -1);
        QVERIFY(ByteArrayPack("C C", 1, 2).isEmpty());
        unsigned char c = 0;
        QCOMPARE(DataUnpack(buf, "C C", &c, &c), -1);
    }

    // Numbers too large for an int give 0 or -1, never a wrapped value.
    void addressParsing()
    {
        QList<int> values;
        for (const auto& input : QList<QPair<const char*, int>>{
                 {"X17", 8}, {"D100", 16}, {"D10.5", 10}, {"D99999999999", 10}, {"D1", 2}})
            values << ExtractPLCDeviceAddress(QString::fromLatin1(input.first), input.second);
        QCOMPARE(values, QList<int>({15, 0xD100, 0, 0, -1}));
        QCOMPARE(QList<int>({DevStrToHmiPort("ethernet0"), DevStrToHmiPort("COM12"),
                             DevStrToHmiPort("12"), DevStrToHmiPort("COM99999999999")}),
                 QList<int>({2000, 1013, -1, -1}));
    }

    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        db.setDatabaseName(m_dir.filePath(QStringLiteral("database")));
        QVERIFY(db.open());
        QSqlQuery q(db);
        // COM1 (1002): link 1 with two default nodes and one that is not.
        // COM2 (1003): station 300. Ethernet (2000): links 3 and 4 reaching
        // nodes by address. COM3 (1004): no default node.
        for (const char* sql :
             {"CREATE TABLE LINK (LINKID INTEGER, HMIPORT INTEGER)",
              "CREATE TABLE NODE (LINKID INTEGER, STATIONID INTEGER, IP TEXT, PORT INTEGER, "
              "ISDEFAULT INTEGER)",
              "INSERT INTO LINK VALUES (1, 1002), (2, 1003), (3, 2000), (4, 2000), (5, 1004)",
              "INSERT INTO NODE VALUES (1, 5, '', 0, 1), (1, 6, '', 0, 0), (1, 7, '', 0, 1), "
              "(2, 300, '', 0, 1), (3, 11, '10.0.0.1', 502, 1), (4, 13, '10.0.0.1', 502, 1), "
              "(4, 14, '10.0.0.1', 503, 1), (4, 15, 'plc''s node', 502, 1), (5, 1, '', 0, 0)"})
            QVERIFY2(q.exec(QString::fromLatin1(sql)), qPrintable(q.lastError().text()));
        db.close(); // the lookups must open it themselves
    }

    void cleanupTestCase() { QSqlDatabase::removeDatabase(connection); }

    // The first row only; without a row the out-parameters stay untouched.
    void portLookup()
    {
        int linkId = -7;
        unsigned char stationId = 99;
        QVERIFY(!GetLinkIdAndDefaultStationId(connection, 1004, linkId, stationId));
        QCOMPARE(QList<int>({linkId, stationId}), QList<int>({-7, 99}));
        QVERIFY(GetLinkIdAndDefaultStationId(connection, 1002, linkId, stationId));
        QCOMPARE(QList<int>({linkId, stationId}), QList<int>({1, 5}));
        QVERIFY(GetLinkIdAndDefaultStationId(connection, 1003, linkId, stationId));
        QCOMPARE(QList<int>({linkId, stationId}), QList<int>({2, 44})); // 300 kept to 8 bits
    }

    // Rows without an address look a link up.
    void listLookups_data()
    {
        QTest::addColumn<int>("key"); // link id, or panel port with an address
        QTest::addColumn<QString>("ip");
        QTest::addColumn<int>("port");
        QTest::addColumn<Pairs>("found");
        QTest::newRow("link: both default nodes") << 1 << QString() << 0 << Pairs{{1, 5}, {1, 7}};
        QTest::newRow("link: nothing found") << 5 << QString() << 0 << Pairs();
        QTest::newRow("node on two links") << 2000 << "10.0.0.1" << 502 << Pairs{{3, 11}, {4, 13}};
        QTest::newRow("address on another panel port") << 1002 << "10.0.0.1" << 502 << Pairs();
        QTest::newRow("address with a quote") << 2000 << "plc's node" << 502 << Pairs{{4, 15}};
        // Pasted into the SQL text this would select every node.
        QTest::newRow("injection does not widen") << 2000 << "x' OR '1'='1" << 502 << Pairs();
    }
    void listLookups()
    {
        QFETCH(int, key);
        QFETCH(QString, ip);
        QFETCH(int, port);
        QFETCH(Pairs, found);
        QList<LinkIdStationId> list;
        QCOMPARE(ip.isNull()
                     ? GetLinkIdAndDefaultStationId(connection, key, list)
                     : GetLinkIdAndDefaultStationId(connection, key, ip, ushort(port), list),
                 !found.isEmpty());
        Pairs got;
        for (const LinkIdStationId& v : list)
            got.append({v.linkId, v.stationId});
        QCOMPARE(got, found);
    }

    // 1050 ms needs both halves of the request; a signal (no SA_RESTART, so
    // nanosleep really is interrupted) must not shorten it.
    void sleepSurvivesSignals()
    {
        static std::atomic<int> signalsSeen{0};
        struct sigaction action = {}, previous = {};
        action.sa_handler = [](int) { signalsSeen.fetch_add(1); };
        QCOMPARE(sigaction(SIGUSR1, &action, &previous), 0);
        const pthread_t sleeper = pthread_self();
        std::thread interrupter([sleeper] {
            usleep(100 * 1000);
            pthread_kill(sleeper, SIGUSR1);
        });
        const qint64 start = CurrentMSecsSinceBoot();
        const int result = HRSleep(1050);
        const qint64 elapsed = CurrentMSecsSinceBoot() - start;
        interrupter.join();
        sigaction(SIGUSR1, &previous, nullptr);
        QCOMPARE(result, 0);
        QCOMPARE(signalsSeen.load(), 1);
        QVERIFY2(elapsed >= 1050, qPrintable(QString::number(elapsed)));
    }

    void processIsRunning()
    {
        QVERIFY(ProcessIsRunning(getpid()));
        const pid_t child = fork();
        if (child == 0)
            _exit(0);
        int status = 0;
        QCOMPARE(waitpid(child, &status, 0), child);
        QVERIFY(!ProcessIsRunning(child));
        // Ids kill() would read as groups or as "every process".
        for (qint64 pid : {qint64(0), qint64(-1), -qint64(getpid()), 0x100000000LL + getpid()})
            QVERIFY2(!ProcessIsRunning(pid), qPrintable(QString::number(pid)));
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestToolkit)
#include "tst_toolkit.moc"

#include <QtSql>
#include <QtTest>

#include "common/deviceaddress.h"
#include "common/projectdatabase.h"

namespace
{

const QString connection = QStringLiteral("project-lookups");
using Pairs = QList<QPair<int, int>>; // link id, station id

} // namespace

// Device address and port parsing, and lookups by port against a real SQLite
// project database, registered under a connection name the way the runtime
// registers it.
class TestProjectDatabase : public QObject
{
    Q_OBJECT
private slots:
    // Both overloads take the 8-bit text of a QString.
    void deviceAddress_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QByteArray>("prefix");
        QTest::addColumn<int>("base");
        QTest::addColumn<int>("value");
        auto row = [](const char* address, const char* prefix, int base, int value) {
            QTest::addRow("%s base %d", address, base)
                << QString(address) << QByteArray(prefix) << base << value;
        };
        row("D100", "D", 10, 100);
        row("TN_5", "TN_", 10, 5);
        row("100", "", 8, 64);
        row("X17", "X", 8, 15);
        row("D100", "D", 16, 0xD100); // the prefix is a hex digit too
        row("W1f", "W", 16, 0x1F);
        row("D10.5", "D", 10, 0); // trailing characters
        row("RAM", "RAM", 10, 0);
        row("D99999999999", "D", 10, 0);
        row("D1", "D", 2, -1);
    }
    void deviceAddress()
    {
        QFETCH(QString, address);
        QFETCH(int, base);
        QTEST(ExtractPrefixSymbol(address), "prefix");
        QTEST(ExtractPrefixSymbol(address.toLatin1()), "prefix");
        QTEST(ExtractPLCDeviceAddress(address, base), "value");
        QTEST(ExtractPLCDeviceAddress(address.toLatin1(), base), "value");
    }

    // A length shorter than the text ends the number; the terminating zero ends
    // it too; the value wraps at 32 bits.
    void hexToUInt()
    {
        const QList<QPair<const char*, int>> inputs{{"0x1A", 4}, {"0X1a", 4}, {"1G", 2},
                                                    {"0x", 2},   {"0ff", 3},  {"1A2B", 2},
                                                    {"1A", 10},  {"12", -1},  {"123456789", 9}};
        QList<uint> values;
        for (const auto& input : inputs)
            values << HexToUInt(input.first, input.second);
        QCOMPARE(values, QList<uint>({26, 26, 0, 0, 255, 26, 26, 0, 0x23456789u}));
    }

    // Names that neither start with ETHERNET nor end in digits after a
    // non-digit give -1, and so does a number too large to hold.
    void hmiPort()
    {
        QList<int> ports;
        for (const char* name : {"ethernet0", "COM1", "COM12", "COM", "12", "COM99999999999"})
            ports << DevStrToHmiPort(QString::fromLatin1(name));
        QCOMPARE(ports, QList<int>({2000, 1002, 1013, -1, -1, -1}));
    }

    void initTestCase()
    {
        QVERIFY(dir.isValid());
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        db.setDatabaseName(dir.filePath(QStringLiteral("database")));
        QVERIFY(db.open());
        QSqlQuery q(db);
        // COM1 (1002): link 1 with two default nodes and one that is not
        // default. COM2 (1003): link 2, station 300 in the table. Ethernet
        // (2000): links 3 and 4 reaching nodes by address. COM3 (1004): a
        // link without default nodes.
        for (const char* sql :
             {"CREATE TABLE LINK (LINKID INTEGER, HMIPORT INTEGER)",
              "CREATE TABLE NODE (LINKID INTEGER, STATIONID INTEGER, IP TEXT, PORT INTEGER, "
              "ISDEFAULT INTEGER)",
              "INSERT INTO LINK VALUES (1, 1002), (2, 1003), (3, 2000), (4, 2000), (5, 1004)",
              "INSERT INTO NODE VALUES (1, 5, '', 0, 1), (1, 6, '', 0, 0), (1, 7, '', 0, 1), "
              "(2, 300, '', 0, 1), (3, 11, '10.0.0.1', 502, 1), (3, 12, '10.0.0.2', 502, 1), "
              "(4, 13, '10.0.0.1', 502, 1), (4, 14, '10.0.0.1', 503, 1), "
              "(4, 15, 'plc''s node', 502, 1), (5, 1, '', 0, 0)"})
            QVERIFY2(q.exec(QString::fromLatin1(sql)), qPrintable(q.lastError().text()));
        db.close(); // the lookups must open it themselves
    }

    void cleanupTestCase() { QSqlDatabase::removeDatabase(connection); }

    void projectPaths()
    {
        const QString savedCompile = COMPILE_PATH;
        // A unique name below the application directory, so parallel runs of
        // other build trees cannot interfere.
        COMPILE_PATH = QStringLiteral("compile-test-%1").arg(QCoreApplication::applicationPid());
        const QDir appDir(QCoreApplication::applicationDirPath());
        QCOMPARE(GetDatabaseName(), appDir.absoluteFilePath(QStringLiteral("database")));
        const QString compile = appDir.absoluteFilePath(COMPILE_PATH);
        QVERIFY(appDir.mkpath(COMPILE_PATH));
        QCOMPARE(GetCompilePath().absolutePath(), compile);
        QCOMPARE(GetDatabaseName(), compile + QStringLiteral("/database"));
        QVERIFY(appDir.mkpath(COMPILE_PATH + QStringLiteral("/database")));
        QCOMPARE(GetDatabaseName(), compile + QStringLiteral("/database/database"));
        QVERIFY(QDir(compile).removeRecursively());
        COMPILE_PATH = savedCompile;
    }

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

    // The list forms append to the list and report whether it is non-empty
    // afterwards. Rows without an address look a link up.
    void listLookups_data()
    {
        QTest::addColumn<int>("key"); // link id, or panel port with an address
        QTest::addColumn<QString>("ip");
        QTest::addColumn<int>("port");
        QTest::addColumn<Pairs>("before");
        QTest::addColumn<Pairs>("after");
        auto row = [](const char* name, int key, const QString& ip, int port, const Pairs& before,
                      const Pairs& after) {
            QTest::newRow(name) << key << ip << port << before << after;
        };
        const Pairs kept{{9, 9}};
        row("link: both default nodes", 1, QString(), 0, {}, {{1, 5}, {1, 7}});
        row("link: appends to what is there", 2, QString(), 0, kept, kept + Pairs{{2, 44}});
        row("link: nothing found, empty list", 5, QString(), 0, {}, {});
        row("link: nothing found, list not empty", 5, QString(), 0, kept, kept);
        row("node on two links", 2000, "10.0.0.1", 502, {}, {{3, 11}, {4, 13}});
        row("other port number", 2000, "10.0.0.1", 503, {}, {{4, 14}});
        row("address on another panel port", 1002, "10.0.0.1", 502, {}, {});
        row("address with a quote matches itself", 2000, "plc's node", 502, {}, {{4, 15}});
        // Pasted into the SQL text these would break the query or select
        // every node.
        row("injection does not widen", 2000, "x' OR '1'='1", 502, {}, {});
    }
    void listLookups()
    {
        QFETCH(int, key);
        QFETCH(QString, ip);
        QFETCH(int, port);
        QFETCH(Pairs, before);
        QFETCH(Pairs, after);
        QList<LinkIdStationId> list;
        for (const auto& p : before)
            list.append({p.first, uchar(p.second)});
        const bool found =
            ip.isNull() ? GetLinkIdAndDefaultStationId(connection, key, list)
                        : GetLinkIdAndDefaultStationId(connection, key, ip, ushort(port), list);
        Pairs got;
        for (const LinkIdStationId& v : list)
            got.append({v.linkId, v.stationId});
        QCOMPARE(got, after);
        QCOMPARE(found, !after.isEmpty());
    }

    // A connection that does not exist behaves like a query without rows.
    void unknownConnection()
    {
        QTest::ignoreMessage(QtWarningMsg, "QSqlQuery::exec: database not open");
        QTest::ignoreMessage(QtWarningMsg, "QSqlQuery::exec: database not open");
        QTest::ignoreMessage(QtWarningMsg, "QSqlQuery::prepare: database not open");
        int linkId = 1;
        unsigned char stationId = 2;
        QVERIFY(!GetLinkIdAndDefaultStationId(QStringLiteral("no-such"), 1002, linkId, stationId));
        QCOMPARE(QList<int>({linkId, stationId}), QList<int>({1, 2}));
        QList<LinkIdStationId> list;
        QVERIFY(!GetLinkIdAndDefaultStationId(QStringLiteral("no-such"), 1, list));
        QVERIFY(!GetLinkIdAndDefaultStationId(QStringLiteral("no-such"), 2000,
                                              QStringLiteral("10.0.0.1"), 502, list));
        QVERIFY(list.isEmpty());
    }

private:
    QTemporaryDir dir;
};

QTEST_GUILESS_MAIN(TestProjectDatabase)
#include "tst_toolkit_database.moc"

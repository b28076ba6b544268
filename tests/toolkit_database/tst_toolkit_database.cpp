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
        QTest::newRow("no trailing digits") << "COM" << -1;
        QTest::newRow("digits only") << "12" << -1;
        QTest::newRow("number too large") << "COM99999999999" << -1;
    }
    void hmiPort()
    {
        QFETCH(QString, name);
        QTEST(DevStrToHmiPort(name), "port");
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

    void portLookup_data()
    {
        QTest::addColumn<int>("hmiPort");
        QTest::addColumn<bool>("found");
        QTest::addColumn<int>("linkId");
        QTest::addColumn<int>("stationId");
        QTest::newRow("first of two default nodes") << 1002 << true << 1 << 5;
        QTest::newRow("station id kept to 8 bits") << 1003 << true << 2 << 44;
        QTest::newRow("no default node") << 1004 << false << -7 << 99;
    }
    void portLookup()
    {
        QFETCH(int, hmiPort);
        int linkId = -7;
        unsigned char stationId = 99;
        QTEST(GetLinkIdAndDefaultStationId(connection, hmiPort, linkId, stationId), "found");
        QTEST(linkId, "linkId");
        QTEST(int(stationId), "stationId");
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

#include <QtSql>
#include <QtTest>

#include "common/projectdatabase.h"

namespace
{
const QString connection = QStringLiteral("project-lookups");
} // namespace

Q_DECLARE_METATYPE(QList<LinkIdStationId>)

bool operator==(const LinkIdStationId& a, const LinkIdStationId& b)
{
    return a.linkId == b.linkId && a.stationId == b.stationId;
}

namespace QTest
{
template <> char* toString(const LinkIdStationId& v)
{
    return qstrdup(QByteArray("(" + QByteArray::number(v.linkId) + "," +
                              QByteArray::number(v.stationId) + ")"));
}
} // namespace QTest

// Lookups against a real SQLite project database, registered under a
// connection name the way the runtime registers it.
class TestProjectDatabase : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
            db.setDatabaseName(dir.filePath(QStringLiteral("database")));
            QVERIFY(db.open());
            QSqlQuery q(db);
            // COM1 (1002): link 1 with two default nodes and one that is not
            // default. COM2 (1003): link 2, station 300 in the table. Ethernet
            // (2000): links 3 and 4 reaching nodes by address. COM3 (1004): a
            // link without default nodes.
            const char* statements[] = {
                "CREATE TABLE LINK (LINKID INTEGER, HMIPORT INTEGER)",
                "CREATE TABLE NODE (LINKID INTEGER, STATIONID INTEGER, IP TEXT, PORT INTEGER, "
                "ISDEFAULT INTEGER)",
                "INSERT INTO LINK VALUES (1, 1002), (2, 1003), (3, 2000), (4, 2000), (5, 1004)",
                "INSERT INTO NODE VALUES (1, 5, '', 0, 1), (1, 6, '', 0, 0), (1, 7, '', 0, 1), "
                "(2, 300, '', 0, 1), (3, 11, '10.0.0.1', 502, 1), (3, 12, '10.0.0.2', 502, 1), "
                "(4, 13, '10.0.0.1', 502, 1), (4, 14, '10.0.0.1', 503, 1), "
                "(4, 15, 'plc''s node', 502, 1), (5, 1, '', 0, 0)"};
            for (const char* sql : statements)
                QVERIFY2(q.exec(QString::fromLatin1(sql)), qPrintable(q.lastError().text()));
            db.close(); // the lookups must open it themselves
        }
    }

    void cleanupTestCase() { QSqlDatabase::removeDatabase(connection); }

    void projectPaths()
    {
        const QString savedCompile = COMPILE_PATH;
        QCOMPARE(savedCompile, QStringLiteral("compile"));
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
        QTest::newRow("unknown port") << 1009 << false << -7 << 99;
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

    void linkLookup_data()
    {
        QTest::addColumn<int>("linkId");
        QTest::addColumn<QList<LinkIdStationId>>("before");
        QTest::addColumn<bool>("result");
        QTest::addColumn<QList<LinkIdStationId>>("after");
        const LinkIdStationId kept{9, 9};
        QTest::newRow("both default nodes")
            << 1 << QList<LinkIdStationId>() << true << QList<LinkIdStationId>{{1, 5}, {1, 7}};
        QTest::newRow("appends to what is there")
            << 2 << QList<LinkIdStationId>{kept} << true << QList<LinkIdStationId>{kept, {2, 44}};
        QTest::newRow("nothing found, empty list")
            << 5 << QList<LinkIdStationId>() << false << QList<LinkIdStationId>();
        QTest::newRow("nothing found, list not empty")
            << 5 << QList<LinkIdStationId>{kept} << true << QList<LinkIdStationId>{kept};
    }
    void linkLookup()
    {
        QFETCH(int, linkId);
        QFETCH(QList<LinkIdStationId>, before);
        QList<LinkIdStationId> list = before;
        QTEST(GetLinkIdAndDefaultStationId(connection, linkId, list), "result");
        QTEST(list, "after");
    }

    void nodeLookup_data()
    {
        QTest::addColumn<int>("hmiPort");
        QTest::addColumn<QString>("ip");
        QTest::addColumn<int>("port");
        QTest::addColumn<QList<LinkIdStationId>>("expected");
        QTest::newRow("node on two links")
            << 2000 << "10.0.0.1" << 502 << QList<LinkIdStationId>{{3, 11}, {4, 13}};
        QTest::newRow("other port number")
            << 2000 << "10.0.0.1" << 503 << QList<LinkIdStationId>{{4, 14}};
        QTest::newRow("address on another panel port")
            << 1002 << "10.0.0.1" << 502 << QList<LinkIdStationId>();
        QTest::newRow("address with a quote matches itself")
            << 2000 << "plc's node" << 502 << QList<LinkIdStationId>{{4, 15}};
        // Pasted into the SQL text these would break the query or select every node.
        QTest::newRow("injection does not widen")
            << 2000 << "x' OR '1'='1" << 502 << QList<LinkIdStationId>();
        QTest::newRow("lone quote") << 2000 << "'" << 502 << QList<LinkIdStationId>();
    }
    void nodeLookup()
    {
        QFETCH(int, hmiPort);
        QFETCH(QString, ip);
        QFETCH(int, port);
        QFETCH(QList<LinkIdStationId>, expected);
        QList<LinkIdStationId> list;
        QCOMPARE(GetLinkIdAndDefaultStationId(connection, hmiPort, ip, (unsigned short)port, list),
                 !expected.isEmpty());
        QCOMPARE(list, expected);
    }

    void unknownConnection()
    {
        // A connection that does not exist behaves like a query without rows.
        QTest::ignoreMessage(QtWarningMsg, "QSqlQuery::exec: database not open");
        QTest::ignoreMessage(QtWarningMsg, "QSqlQuery::exec: database not open");
        QTest::ignoreMessage(QtWarningMsg, "QSqlQuery::prepare: database not open");
        int linkId = 1;
        unsigned char stationId = 2;
        QVERIFY(!GetLinkIdAndDefaultStationId(QStringLiteral("no-such"), 1002, linkId, stationId));
        QCOMPARE(linkId, 1);
        QCOMPARE(int(stationId), 2);
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

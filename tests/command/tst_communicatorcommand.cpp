#include <QtTest>

#include "driver/communicatorcommand.h"

class TestCommunicatorCommand : public QObject
{
    Q_OBJECT
private slots:
    void defaults()
    {
        const CommunicatorCommand c;
        QCOMPARE(c.auxNumber, 1);
        QCOMPARE(c.auxValue, 0);
        QVERIFY(c.auxText.isEmpty());
        QCOMPARE(c.auxFlag, false);
        QCOMPARE(c.stringKey(), QStringLiteral("S>NULL_3_1")); // address, kind and count
    }

    void dataSize_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<uint>("count");
        QTest::addColumn<int>("size");
        QTest::newRow("bits 0 round up to one byte") << 0 << 0u << 1;
        QTest::newRow("bits 8") << 0 << 8u << 1;
        QTest::newRow("bits 9 spill into a second byte") << 0 << 9u << 2;
        QTest::newRow("bytes") << 1 << 7u << 7;
        QTest::newRow("words") << 2 << 3u << 6;
        QTest::newRow("double words") << 3 << 2u << 8;
        QTest::newRow("quad words") << 4 << 2u << 16;
        QTest::newRow("block") << 5 << 11u << 11;
        QTest::newRow("kind 6 is unknown here") << 6 << 16u << 1;
        QTest::newRow("kind 7") << 7 << 5u << 1;
    }
    void dataSize()
    {
        QFETCH(int, kind);
        QFETCH(uint, count);
        CommunicatorCommand c;
        c.dataType = kind;
        c.count = count;
        QTEST(c.getDataSize(), "size");
    }

    void stringKey()
    {
        CommunicatorCommand c;
        c.address = QStringLiteral("RAM4509");
        c.count = 2;
        QCOMPARE(c.stringKey(), QStringLiteral("RAM4509_3_2"));
        c.dataType = 0;
        c.count = 120;
        c.address = QStringLiteral("%1X"); // a placeholder in the address must stay literal
        QCOMPARE(c.stringKey(), QStringLiteral("%1X_0_120"));
    }
};

QTEST_GUILESS_MAIN(TestCommunicatorCommand)
#include "tst_communicatorcommand.moc"

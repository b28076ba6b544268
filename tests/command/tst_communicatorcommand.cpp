#include <QtTest>

#include "common/tools.h"
#include "driver/communicatorcommand.h"

// The command record, and the toolkit helpers that size and classify it.
class TestCommunicatorCommand : public QObject
{
    Q_OBJECT
private slots:
    void defaultsAndKey()
    {
        CommunicatorCommand c;
        QCOMPARE(c.stringKey(), QStringLiteral("S>NULL_3_1")); // address, kind and count
        c.dataType = 0;
        c.count = 120;
        c.address = QStringLiteral("%1X"); // a placeholder in the address must stay literal
        QCOMPARE(c.stringKey(), QStringLiteral("%1X_0_120"));
    }

    // getDataSize and GetSafeDataLen differ for a zero bit count and for
    // kinds they do not know; kind 6 counts bits only for the toolkit.
    void sizes_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<uint>("count");
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("safeLen");
        QTest::addColumn<QString>("predicate");
        QTest::newRow("bits 0") << 0 << 0u << 1 << 0 << "bit";
        QTest::newRow("bits 8") << 0 << 8u << 1 << 1 << "bit";
        QTest::newRow("bits 9") << 0 << 9u << 2 << 2 << "bit";
        QTest::newRow("bytes") << 1 << 3u << 3 << 3 << "byte";
        QTest::newRow("words") << 2 << 3u << 6 << 6 << "word";
        QTest::newRow("double words") << 3 << 3u << 12 << 12 << "dword";
        QTest::newRow("quad words") << 4 << 3u << 24 << 24 << "";
        QTest::newRow("block") << 5 << 11u << 11 << 11 << "block";
        QTest::newRow("kind 6") << 6 << 17u << 1 << 3 << "";
        QTest::newRow("kind 7") << 7 << 3u << 1 << 0 << "";
    }
    void sizes()
    {
        QFETCH(int, kind);
        QFETCH(uint, count);
        QFETCH(int, safeLen);
        QFETCH(QString, predicate);
        CommunicatorCommand c;
        c.dataType = kind;
        c.count = count;
        QTEST(c.getDataSize(), "size");
        QCOMPARE(GetSafeDataLen(c), safeLen);
        QCOMPARE(QList<bool>({isBitCommand(c), isByteCommand(c), isWordCommand(c),
                              isDoubleWordCommand(c), isBlockCommand(c)}),
                 QList<bool>({predicate == "bit", predicate == "byte", predicate == "word",
                              predicate == "dword", predicate == "block"}));
        // ToSafeData cuts longer data and pads shorter data with zero bytes.
        const QByteArray longer(safeLen + 3, '\x11');
        QCOMPARE(ToSafeData(c, longer), longer.left(safeLen));
        QCOMPARE(ToSafeData(c, QByteArray(1, '\xaa')),
                 safeLen ? '\xaa' + QByteArray(safeLen - 1, '\0') : QByteArray());
    }
};

QTEST_GUILESS_MAIN(TestCommunicatorCommand)
#include "tst_communicatorcommand.moc"

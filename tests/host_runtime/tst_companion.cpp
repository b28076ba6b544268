// The stand-in companion driver: its register protocol, byte order and
// failure answers, through a scripted port.
#include "host/companion/sdc35companion.h"
#include "tests/support/scriptedport.h"

#include <QtTest>

namespace
{

const auto framed = ScriptedPort::framed;

CommunicatorCommand command(int kind, unsigned count, const QString& address = "RAM100")
{
    CommunicatorCommand c;
    c.dataType = kind;
    c.count = count;
    c.address = address;
    return c;
}

const int Word = CommunicatorCommand::WordKind;
const int DoubleWord = CommunicatorCommand::DoubleWordKind;

} // namespace

class CompanionTest : public QObject
{
    Q_OBJECT

private slots:
    // The pure protocol pieces, with what each refuses.
    void protocolPieces()
    {
        QCOMPARE(Sdc35Companion::registerNumber("RAM4509"), 4509);
        QCOMPARE(Sdc35Companion::registerNumber("RAM0"), 0);
        for (const char* refused :
             {"RAM", "ram4509", "RAM+5", "RAM65536", "RAM99999999999999999999"})
            QVERIFY2(Sdc35Companion::registerNumber(refused) == -1, refused);

        QCOMPARE(Sdc35Companion::wordCount(command(Word, 64)), 64);
        // Beyond 64 words, none, a count that overflows when doubled, bytes.
        for (const CommunicatorCommand& c :
             {command(DoubleWord, 33), command(DoubleWord, 0), command(DoubleWord, 0x80000000u),
              command(CommunicatorCommand::ByteKind, 1)})
            QCOMPARE(Sdc35Companion::wordCount(c), -1);

        QCOMPARE(Sdc35Companion::acceptedBody(framed("0100X01")), QByteArray("0100X01"));
        QCOMPARE(Sdc35Companion::acceptedBody("zz" + framed("0100X00")), QByteArray("0100X00"));
        // Status 40, another station, no status, no STX, no ETX.
        for (const QByteArray& refused :
             {framed("0100X40"), framed("0200X00"), framed("0100X0"), QByteArray("0100X00\x03\r\n"),
              QByteArray("\x02"
                         "0100X00\r\n")})
            QVERIFY2(Sdc35Companion::acceptedBody(refused).isNull(), refused.toHex());

        QCOMPARE(Sdc35Companion::parseWords("0100X00,65535", 1), QVector<quint16>{65535});
        // Too large, too few, too many, a blank.
        const QList<QPair<const char*, int>> refused{
            {"0100X00,65536", 1}, {"0100X00,1", 2}, {"0100X00,1,2,3", 2}, {"0100X00, 1", 1}};
        for (const auto& r : refused)
            QVERIFY2(Sdc35Companion::parseWords(r.first, r.second).isEmpty(), r.first);
    }

    void read_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<uint>("count");
        QTest::addColumn<QString>("address");
        QTest::addColumn<QByteArray>("reply");   // empty: no answer
        QTest::addColumn<QByteArray>("request"); // empty: nothing sent
        QTest::addColumn<QByteArray>("data");
        auto row = [](const char* name, int kind, uint count, const char* address,
                      const char* reply, const char* request, const char* dataHex) {
            QTest::newRow(name) << kind << count << QString(address)
                                << (*reply ? framed(reply) : QByteArray())
                                << (*request ? framed(request) : QByteArray())
                                << QByteArray::fromHex(dataHex);
        };
        // -200 and 1370 as double words: low word first, each little-endian.
        row("double words, low word first", DoubleWord, 2, "RAM4509", "0100X00,65336,65535,1370,0",
            "0100XRS,4509W,4", "38ffffff5a050000");
        row("one word", Word, 1, "RAM3501", "0100X00,7", "0100XRS,3501W,1", "0700");
        row("controller error", Word, 1, "RAM1", "0100X42", "0100XRS,1W,1", "");
        row("no answer", Word, 1, "RAM10", "", "0100XRS,10W,1", "");
        row("byte kind is not asked", CommunicatorCommand::ByteKind, 1, "RAM1", "0100X00,7", "",
            "");
        row("unknown address is not asked", Word, 1, "D100", "0100X00,7", "", "");
    }
    void read()
    {
        QFETCH(int, kind);
        QFETCH(uint, count);
        QFETCH(QString, address);
        QFETCH(QByteArray, reply);
        QFETCH(QByteArray, request);
        ScriptedPort port;
        if (!reply.isEmpty())
            port.addAnswer("", ScriptedPort::Answer::withReply(reply), ScriptedPort::Forever);
        QTEST(Sdc35Companion().read(&port, command(kind, count, address)), "data");
        QCOMPARE(port.sentFrames(),
                 request.isEmpty() ? QList<QByteArray>{} : QList<QByteArray>{request});
    }

    // Prepared, sent once, then the reply collected over several short reads.
    void readPreparesPortAndCollectsSplitReply()
    {
        ScriptedPort port;
        port.setReadChunk(3);
        port.addAnswer("", ScriptedPort::Answer::withReply(framed("0100X00,1,2,3")));
        QCOMPARE(Sdc35Companion().read(&port, command(Word, 3, "RAM10")),
                 QByteArray::fromHex("010002000300"));
        QStringList trace = port.trace();
        QVERIFY(trace.size() > 3);
        QCOMPARE(trace.takeFirst(), QStringLiteral("option 12=0 (int)"));
        QVERIFY(trace.takeFirst().startsWith("write "));
        for (const QString& e : trace)
            QVERIFY2(e.startsWith("read "), qPrintable(e));
        QVERIFY(Sdc35Companion().read(nullptr, command(Word, 1)).isEmpty());
    }

    void write_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<uint>("count");
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QByteArray>("request"); // empty: nothing sent
        QTest::addColumn<bool>("result");
        auto row = [](const char* name, int kind, uint count, const char* dataHex,
                      const char* reply, const char* request, bool result) {
            QTest::newRow(name) << kind << count << QByteArray::fromHex(dataHex) << framed(reply)
                                << (*request ? framed(request) : QByteArray()) << result;
        };
        row("two words", Word, 2, "0100ffff", "0100X00", "0100XWS,100W,1,65535", true);
        row("double word", DoubleWord, 1, "38ffffff", "0100X00", "0100XWS,100W,65336,65535", true);
        row("refused", Word, 1, "0500", "0100X44", "0100XWS,100W,5", false);
        row("data too short", Word, 2, "0500", "0100X00", "", false);
    }
    void write()
    {
        QFETCH(int, kind);
        QFETCH(uint, count);
        QFETCH(QByteArray, data);
        QFETCH(QByteArray, reply);
        QFETCH(QByteArray, request);
        ScriptedPort port;
        port.addAnswer("", ScriptedPort::Answer::withReply(reply), ScriptedPort::Forever);
        QTEST(Sdc35Companion().write(&port, command(kind, count), data), "result");
        QCOMPARE(port.sentFrames(),
                 request.isEmpty() ? QList<QByteArray>{} : QList<QByteArray>{request});
    }
};

QTEST_GUILESS_MAIN(CompanionTest)
#include "tst_companion.moc"

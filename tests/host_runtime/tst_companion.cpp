// The stand-in companion driver's register reads (nothing writes registers
// through it): request, byte order and failure answers, through a scripted
// port. Its good answers are every end-to-end write's; what it must refuse,
// nothing else would notice.
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
    // What the read table cannot show: noise before STX, no STX, no ETX, the
    // longest request, no port.
    void edges()
    {
        QCOMPARE(Sdc35Companion::acceptedBody("zz" + framed("0100X00")), QByteArray("0100X00"));
        QVERIFY(Sdc35Companion::acceptedBody("0100X00\x03\r\n").isNull());
        QVERIFY(Sdc35Companion::acceptedBody('\x02' + QByteArray("0100X00\r\n")).isNull());
        QCOMPARE(Sdc35Companion::wordCount(command(Word, 64)), 64);
        QVERIFY(Sdc35Companion().read(nullptr, command(Word, 1)).isEmpty());
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
        row("status 01, register 0", Word, 1, "RAM0", "0100X01,65535", "0100XRS,0W,1", "ffff");
        row("controller error", Word, 1, "RAM1", "0100X42", "0100XRS,1W,1", "");
        row("another station", Word, 1, "RAM1", "0200X00,7", "0100XRS,1W,1", "");
        row("word too large", Word, 1, "RAM1", "0100X00,65536", "0100XRS,1W,1", "");
        row("too few words", Word, 2, "RAM1", "0100X00,1", "0100XRS,1W,2", "");
        row("blank in a word", Word, 1, "RAM1", "0100X00, 1", "0100XRS,1W,1", "");
        row("no answer", Word, 1, "RAM10", "", "0100XRS,10W,1", "");
        // Refused before anything is sent.
        for (const char* address : {"D100", "RAM", "RAM+5", "RAM65536", "RAM99999999999999999999"})
            row(qPrintable(QStringLiteral("address %1").arg(address)), Word, 1, address, "", "",
                "");
        row("beyond 64 words", DoubleWord, 33, "RAM1", "", "", "");
        row("byte kind", CommunicatorCommand::ByteKind, 1, "RAM1", "", "", "");
    }
    void read()
    {
        QFETCH(int, kind);
        QFETCH(uint, count);
        QFETCH(QString, address);
        QFETCH(QByteArray, reply);
        QFETCH(QByteArray, request);
        ScriptedPort port;
        port.setReadChunk(8); // the reply comes in pieces
        if (!reply.isEmpty())
            port.addAnswer("", ScriptedPort::Answer::withReply(reply), ScriptedPort::Forever);
        QTEST(Sdc35Companion().read(&port, command(kind, count, address)), "data");
        QCOMPARE(port.sentFrames(),
                 request.isEmpty() ? QList<QByteArray>{} : QList<QByteArray>{request});
        if (!request.isEmpty()) // the port is prepared before the request goes out
            QCOMPARE(port.trace().first(), QStringLiteral("option 12=0 (int)"));
    }
};

QTEST_GUILESS_MAIN(CompanionTest)
#include "tst_companion.moc"

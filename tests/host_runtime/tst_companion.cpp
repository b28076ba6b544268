// The stand-in companion driver: its register protocol, byte order and
// failure answers, through a scripted port.
#include "host/companion/sdc35companion.h"
#include "tests/support/scriptedport.h"

#include <QtTest>

namespace
{

QByteArray framed(const QByteArray& text)
{
    return ScriptedPort::framed(text);
}

CommunicatorCommand command(int kind, unsigned count, const QString& address)
{
    CommunicatorCommand c;
    c.dataType = kind;
    c.count = count;
    c.address = address;
    return c;
}

} // namespace

class CompanionTest : public QObject
{
    Q_OBJECT

private slots:
    void registerNumber_data();
    void registerNumber();
    void wordCount_data();
    void wordCount();
    void acceptedBody_data();
    void acceptedBody();
    void parseWords_data();
    void parseWords();
    void read_data();
    void read();
    void readPreparesPortAndCollectsSplitReply();
    void readWithoutAnswer();
    void write_data();
    void write();
    void exportsFactory();
};

void CompanionTest::registerNumber_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<int>("number");
    QTest::newRow("RAM4509") << "RAM4509" << 4509;
    QTest::newRow("RAM0") << "RAM0" << 0;
    QTest::newRow("no digits") << "RAM" << -1;
    QTest::newRow("lower case") << "ram4509" << -1;
    QTest::newRow("letter inside") << "RAM45a9" << -1;
    QTest::newRow("sign") << "RAM+5" << -1;
    QTest::newRow("other area") << "DM100" << -1;
    QTest::newRow("beyond 16 bits") << "RAM65536" << -1;
    QTest::newRow("very long") << "RAM99999999999999999999" << -1;
}

void CompanionTest::registerNumber()
{
    QFETCH(QString, address);
    QFETCH(int, number);
    QCOMPARE(Sdc35Companion::registerNumber(address), number);
}

void CompanionTest::wordCount_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<uint>("count");
    QTest::addColumn<int>("words");
    QTest::newRow("word 3") << int(CommunicatorCommand::WordKind) << 3u << 3;
    QTest::newRow("double word 2") << int(CommunicatorCommand::DoubleWordKind) << 2u << 4;
    QTest::newRow("word 64") << int(CommunicatorCommand::WordKind) << 64u << 64;
    QTest::newRow("double word 33") << int(CommunicatorCommand::DoubleWordKind) << 33u << -1;
    QTest::newRow("count 0") << int(CommunicatorCommand::DoubleWordKind) << 0u << -1;
    QTest::newRow("double word overflow")
        << int(CommunicatorCommand::DoubleWordKind) << 0x80000000u << -1;
    QTest::newRow("byte") << int(CommunicatorCommand::ByteKind) << 1u << -1;
    QTest::newRow("bit") << int(CommunicatorCommand::BitKind) << 1u << -1;
    QTest::newRow("quad word") << int(CommunicatorCommand::QuadWordKind) << 1u << -1;
}

void CompanionTest::wordCount()
{
    QFETCH(int, kind);
    QFETCH(uint, count);
    QFETCH(int, words);
    QCOMPARE(Sdc35Companion::wordCount(command(kind, count, "RAM1")), words);
}

void CompanionTest::acceptedBody_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("status 00") << framed("0100X00,1") << QByteArray("0100X00,1");
    QTest::newRow("status 01") << framed("0100X01") << QByteArray("0100X01");
    QTest::newRow("noise before STX") << "zz" + framed("0100X00") << QByteArray("0100X00");
    QTest::newRow("status 40") << framed("0100X40") << QByteArray();
    QTest::newRow("other station") << framed("0200X00") << QByteArray();
    QTest::newRow("no status") << framed("0100X0") << QByteArray();
    QTest::newRow("no STX") << QByteArray("0100X00\x03\r\n") << QByteArray();
    QTest::newRow("no ETX") << QByteArray("\x02"
                                          "0100X00\r\n")
                            << QByteArray();
    QTest::newRow("empty") << QByteArray() << QByteArray();
}

void CompanionTest::acceptedBody()
{
    QFETCH(QByteArray, reply);
    QFETCH(QByteArray, body);
    const QByteArray result = Sdc35Companion::acceptedBody(reply);
    QCOMPARE(result, body);
    QCOMPARE(result.isNull(), body.isNull());
}

void CompanionTest::parseWords_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("expected");
    QTest::addColumn<QVector<quint16>>("words");
    QTest::newRow("two") << QByteArray("0100X00,1,2") << 2 << QVector<quint16>{1, 2};
    QTest::newRow("largest") << QByteArray("0100X00,65535") << 1 << QVector<quint16>{65535};
    QTest::newRow("too large") << QByteArray("0100X00,65536") << 1 << QVector<quint16>{};
    QTest::newRow("too few") << QByteArray("0100X00,1") << 2 << QVector<quint16>{};
    QTest::newRow("too many") << QByteArray("0100X00,1,2,3") << 2 << QVector<quint16>{};
    QTest::newRow("negative") << QByteArray("0100X00,-1") << 1 << QVector<quint16>{};
    QTest::newRow("empty field") << QByteArray("0100X00,,1") << 2 << QVector<quint16>{};
    QTest::newRow("blank") << QByteArray("0100X00, 1") << 1 << QVector<quint16>{};
    QTest::newRow("hex") << QByteArray("0100X00,1F") << 1 << QVector<quint16>{};
}

void CompanionTest::parseWords()
{
    QFETCH(QByteArray, body);
    QFETCH(int, expected);
    QFETCH(QVector<quint16>, words);
    QCOMPARE(Sdc35Companion::parseWords(body, expected), words);
}

void CompanionTest::read_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<uint>("count");
    QTest::addColumn<QString>("address");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("data");
    const int dword = CommunicatorCommand::DoubleWordKind;
    const int word = CommunicatorCommand::WordKind;
    // -200 and 1370 as double words: low word first, each little-endian.
    QTest::newRow("double words, low word first")
        << dword << 2u << "RAM4509" << framed("0100X00,65336,65535,1370,0")
        << framed("0100XRS,4509W,4") << QByteArray::fromHex("38ffffff5a050000");
    QTest::newRow("one word") << word << 1u << "RAM3501" << framed("0100X00,7")
                              << framed("0100XRS,3501W,1") << QByteArray::fromHex("0700");
    QTest::newRow("status 01") << word << 1u << "RAM1" << framed("0100X01,258")
                               << framed("0100XRS,1W,1") << QByteArray::fromHex("0201");
    QTest::newRow("controller error")
        << word << 1u << "RAM1" << framed("0100X42") << framed("0100XRS,1W,1") << QByteArray();
    QTest::newRow("wrong header") << word << 1u << "RAM1" << framed("0100Y00,7")
                                  << framed("0100XRS,1W,1") << QByteArray();
    QTest::newRow("value missing")
        << word << 2u << "RAM1" << framed("0100X00,7") << framed("0100XRS,1W,2") << QByteArray();
    QTest::newRow("byte kind is not asked") << int(CommunicatorCommand::ByteKind) << 1u << "RAM1"
                                            << framed("0100X00,7") << QByteArray() << QByteArray();
    QTest::newRow("unknown address is not asked")
        << word << 1u << "D100" << framed("0100X00,7") << QByteArray() << QByteArray();
}

void CompanionTest::read()
{
    QFETCH(int, kind);
    QFETCH(uint, count);
    QFETCH(QString, address);
    QFETCH(QByteArray, reply);
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, data);
    ScriptedPort port;
    port.addAnswer("", ScriptedPort::Answer::withReply(reply), ScriptedPort::Forever);
    Sdc35Companion companion;
    QCOMPARE(companion.read(&port, command(kind, count, address)), data);
    const QList<QByteArray> expectedRequests =
        request.isEmpty() ? QList<QByteArray>{} : QList<QByteArray>{request};
    QCOMPARE(port.sentFrames(), expectedRequests);
}

void CompanionTest::readPreparesPortAndCollectsSplitReply()
{
    ScriptedPort port;
    port.setReadChunk(3);
    port.addAnswer("", ScriptedPort::Answer::withReply(framed("0100X00,1,2,3")));
    Sdc35Companion companion;
    QCOMPARE(companion.read(&port, command(CommunicatorCommand::WordKind, 3, "RAM10")),
             QByteArray::fromHex("010002000300"));
    // Prepared, sent once, then the reply collected over several short reads.
    const QList<ScriptedPort::Event> events = port.events();
    QVERIFY(events.size() > 3);
    QCOMPARE(events.at(0).kind, ScriptedPort::Event::Kind::Option);
    QCOMPARE(events.at(0).optionCode, 12);
    QCOMPARE(events.at(0).optionValue, QVariant(0));
    QCOMPARE(events.at(1).kind, ScriptedPort::Event::Kind::Write);
    for (int i = 2; i < events.size(); ++i)
        QCOMPARE(events.at(i).kind, ScriptedPort::Event::Kind::Read);
}

void CompanionTest::readWithoutAnswer()
{
    ScriptedPort port; // answers nothing
    Sdc35Companion companion;
    QVERIFY(companion.read(&port, command(CommunicatorCommand::WordKind, 1, "RAM10")).isEmpty());
    QVERIFY(companion.read(nullptr, command(CommunicatorCommand::WordKind, 1, "RAM10")).isEmpty());
    QCOMPARE(port.sentFrames().size(), 1);
}

void CompanionTest::write_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<uint>("count");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<bool>("result");
    const int word = CommunicatorCommand::WordKind;
    QTest::newRow("two words") << word << 2u << QByteArray::fromHex("0100ffff") << framed("0100X00")
                               << framed("0100XWS,100W,1,65535") << true;
    QTest::newRow("double word") << int(CommunicatorCommand::DoubleWordKind) << 1u
                                 << QByteArray::fromHex("38ffffff") << framed("0100X00")
                                 << framed("0100XWS,100W,65336,65535") << true;
    QTest::newRow("status 01") << word << 1u << QByteArray::fromHex("0500") << framed("0100X01")
                               << framed("0100XWS,100W,5") << true;
    QTest::newRow("refused") << word << 1u << QByteArray::fromHex("0500") << framed("0100X44")
                             << framed("0100XWS,100W,5") << false;
    QTest::newRow("no reply") << word << 1u << QByteArray::fromHex("0500") << QByteArray()
                              << framed("0100XWS,100W,5") << false;
    QTest::newRow("data too short")
        << word << 2u << QByteArray::fromHex("0500") << framed("0100X00") << QByteArray() << false;
}

void CompanionTest::write()
{
    QFETCH(int, kind);
    QFETCH(uint, count);
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, reply);
    QFETCH(QByteArray, request);
    QFETCH(bool, result);
    ScriptedPort port;
    port.addAnswer("", ScriptedPort::Answer::withReply(reply), ScriptedPort::Forever);
    Sdc35Companion companion;
    QCOMPARE(companion.write(&port, command(kind, count, "RAM100"), data), result);
    const QList<QByteArray> expectedRequests =
        request.isEmpty() ? QList<QByteArray>{} : QList<QByteArray>{request};
    QCOMPARE(port.sentFrames(), expectedRequests);
}

void CompanionTest::exportsFactory()
{
    const auto create = reinterpret_cast<CreateDriverFunction>(
        QLibrary::resolve(QStringLiteral(SDC35_LIBRARY), "CreateDriver"));
    QVERIFY(create);
    DriverInterface* driver = create();
    QVERIFY(driver);
    QCOMPARE(driver->name(), QStringLiteral("SDC35"));
    delete driver;
}

QTEST_GUILESS_MAIN(CompanionTest)
#include "tst_companion.moc"

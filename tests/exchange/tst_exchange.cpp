// The worker's controller exchange: command templates, the bytes on the line
// (prepare option, frame, bounded read), reply checks and what each command
// reports, reached through the worker's slots by name.
#include "tests/driver_core/tsanoptions.h"
#include "tests/support/workflowrig.h"

#include <QtTest>

using namespace WorkflowData;
using Answer = ScriptedPort::Answer;
using Event = ScriptedPort::Event;

Q_DECLARE_METATYPE(ScriptedPort::Answer)

namespace
{

const char NoProgram[] = "Program number or segment number is in error. No program in the segment.";

// One command's traffic: "option 12=0", "write <frame>", "read <limit>".
QStringList traffic(const ScriptedPort& port)
{
    QStringList out;
    for (const Event& e : port.events()) {
        switch (e.kind) {
        case Event::Kind::Option:
            out << QStringLiteral("option %1=%2 (%3)")
                       .arg(e.optionCode)
                       .arg(e.optionValue.toString(),
                            QString::fromLatin1(e.optionValue.typeName()));
            break;
        case Event::Kind::Write:
            out << QStringLiteral("write ") + QString::fromLatin1(e.data.toHex());
            break;
        case Event::Kind::Read:
            out << QStringLiteral("read %1").arg(e.maxLength);
            break;
        }
    }
    return out;
}

} // namespace

class ExchangeTest : public QObject
{
    Q_OBJECT

private slots:
    void templates();
    void commandsOnTheLine_data();
    void commandsOnTheLine();
    void statusCodes_data();
    void statusCodes();
    void readOutcomes_data();
    void readOutcomes();
    void writeOutcomes_data();
    void writeOutcomes();
    void openOutcomes_data();
    void openOutcomes();
    void closeReportsNothing_data();
    void closeReportsNothing();
    void withoutPort();
    void portReplacedBetweenSteps();
    void abortStopsBeforeSending();

private:
    static QStringList templatesOf(const FileAccessor& w)
    {
        return {w.openReadCommand, w.openWriteCommand, w.readCommand, w.writeCommand,
                w.closeCommand};
    }
    static void init(FileAccessor& w)
    {
        QVERIFY(QMetaObject::invokeMethod(&w, "initRWCommand", Qt::DirectConnection));
    }
    static bool readFile(FileAccessor& w, int program, int segment, QList<QStringList>& datas,
                         QStringList& errors)
    {
        bool result = false;
        const bool invoked = QMetaObject::invokeMethod(
            &w, "readFile", Qt::DirectConnection, Q_RETURN_ARG(bool, result), Q_ARG(int, program),
            Q_ARG(int, segment), Q_ARG(QList<QStringList>&, datas), Q_ARG(QStringList&, errors));
        return invoked && result;
    }
    static bool writeFile(FileAccessor& w, int program, int segment, const QString& record,
                          QStringList& errors)
    {
        bool result = false;
        const bool invoked = QMetaObject::invokeMethod(
            &w, "writeFile", Qt::DirectConnection, Q_RETURN_ARG(bool, result), Q_ARG(int, program),
            Q_ARG(int, segment), Q_ARG(QString, record), Q_ARG(QStringList&, errors));
        return invoked && result;
    }
    static bool openForRead(FileAccessor& w, int program, int segments, QList<QStringList>& datas,
                            QStringList& errors)
    {
        bool result = false;
        const bool invoked = QMetaObject::invokeMethod(
            &w, "openFileForRead", Qt::DirectConnection, Q_RETURN_ARG(bool, result),
            Q_ARG(int, program), Q_ARG(int, segments), Q_ARG(QList<QStringList>&, datas),
            Q_ARG(QStringList&, errors));
        return invoked && result;
    }
    static bool openForWrite(FileAccessor& w, int program, int segments,
                             const QList<QStringList>& rows, QStringList& errors)
    {
        bool result = false;
        const bool invoked = QMetaObject::invokeMethod(
            &w, "openFileForWrite", Qt::DirectConnection, Q_RETURN_ARG(bool, result),
            Q_ARG(int, program), Q_ARG(int, segments), Q_ARG(QList<QStringList>, rows),
            Q_ARG(QStringList&, errors));
        return invoked && result;
    }
    static void closeFile(FileAccessor& w, int program)
    {
        QVERIFY(
            QMetaObject::invokeMethod(&w, "closeFile", Qt::DirectConnection, Q_ARG(int, program)));
    }
};

void ExchangeTest::templates()
{
    WorkflowRig rig;
    FileAccessor& w = rig.worker();
    for (const QString& t : templatesOf(w))
        QVERIFY(t.isEmpty());
    init(w);
    const QStringList built{"\x02"
                            "0100XFO,%1,R,0\x03\r\n",
                            "\x02"
                            "0100XFO,%1,W,0\x03\r\n",
                            "\x02"
                            "0100XFR,%1,%2\x03\r\n",
                            "\x02"
                            "0100XFW,%1,%2,%3\x03\r\n",
                            "\x02"
                            "0100XFC,%1\x03\r\n"};
    QCOMPARE(templatesOf(w), built);
    // Built once: a template that holds text is left alone, the empty ones
    // are completed.
    w.readCommand = QStringLiteral("kept");
    w.closeCommand.clear();
    init(w);
    QStringList expected = built;
    expected[2] = QStringLiteral("kept");
    QCOMPARE(templatesOf(w), expected);
    QVERIFY(rig.port.events().isEmpty());
}

void ExchangeTest::commandsOnTheLine_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<int>("program");
    QTest::addColumn<int>("segment");
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<int>("readLimit");
    const QByteArray rec = record(2, 100, 90);
    QTest::newRow("open for read, program 5")
        << "openFileForRead" << 5 << 0 << ScriptedPort::framed("0100XFO,5,R,0") << 16;
    QTest::newRow("open for write, program 19")
        << "openFileForWrite" << 19 << 0 << ScriptedPort::framed("0100XFO,19,W,0") << 16;
    QTest::newRow("read, program 3 segment 12")
        << "readFile" << 3 << 12 << ScriptedPort::framed("0100XFR,3,12") << 200;
    QTest::newRow("write, program 12 segment 2")
        << "writeFile" << 12 << 2 << ScriptedPort::framed("0100XFW,12,2," + rec) << 200;
    QTest::newRow("close, program 7")
        << "closeFile" << 7 << 0 << QByteArray("\x02\x30\x31\x30\x30XFC,7\x03\x0d\x0a") << 16;
}

void ExchangeTest::commandsOnTheLine()
{
    QFETCH(QString, operation);
    QFETCH(int, program);
    QFETCH(int, segment);
    QFETCH(QByteArray, frame);
    QFETCH(int, readLimit);
    WorkflowRig rig;
    FileAccessor& w = rig.worker();
    // Refused: every operation ends after its one command.
    rig.port.setDefaultAnswer(Answer::withReply(status("52")));
    init(w);
    QList<QStringList> datas;
    QStringList errors;
    if (operation == "openFileForRead")
        openForRead(w, program, 3, datas, errors);
    else if (operation == "openFileForWrite")
        openForWrite(w, program, 3, {}, errors);
    else if (operation == "readFile")
        readFile(w, program, segment, datas, errors);
    else if (operation == "writeFile")
        writeFile(w, program, segment, QString::fromLatin1(record(2, 100, 90)), errors);
    else
        closeFile(w, program);
    QCOMPARE(traffic(rig.port),
             (QStringList{"option 12=0 (int)", "write " + QString::fromLatin1(frame.toHex()),
                          QStringLiteral("read %1").arg(readLimit)}));
}

void ExchangeTest::statusCodes_data()
{
    QTest::addColumn<QByteArray>("code");
    QTest::addColumn<QString>("message");
    QTest::newRow("40") << QByteArray("40") << "Request message is in error.";
    QTest::newRow("41") << QByteArray("41")
                        << "The number of data is over 16. (Including read data count of RS "
                           "request).";
    QTest::newRow("42") << QByteArray("42")
                        << "The data address is not defined. All of message has been cancelled.";
    QTest::newRow("44") << QByteArray("44")
                        << "The value of write data is out of the limit. Processing is continued "
                           "except for the relevant data address.";
    QTest::newRow("45") << QByteArray("45")
                        << "The data cannot be written according to the status of DCP31/32. "
                           "(Settings can be changed only READY mode regarding all of setup items "
                           "and some of event configuration data) Write is attempted to the write "
                           "inhibit data address.";
    QTest::newRow("47") << QByteArray("47") << "Mode can not be changed.";
    QTest::newRow("48") << QByteArray("48")
                        << "Operation keys of console are operated by an operator. Send the "
                           "request message after key operation.";
    QTest::newRow("50") << QByteArray("50") << "File is already open.";
    QTest::newRow("51") << QByteArray("51") << "File is not open yet.";
    QTest::newRow("52") << QByteArray("52") << NoProgram;
    QTest::newRow("54") << QByteArray("54") << "Attribute of File OPEN is violated.";
    QTest::newRow("57") << QByteArray("57") << "Block data of File block WRITE is in error.";
    QTest::newRow("58") << QByteArray("58") << "The program being run cannot be deleted.";
    QTest::newRow("59") << QByteArray("59")
                        << "File OPEN, File block WRITE and File DELETE are inhibited.";
    QTest::newRow("99") << QByteArray("99") << "The command is undefined.";
    QTest::newRow("unknown 43") << QByteArray("43") << QString();
    QTest::newRow("lower-case hex") << QByteArray("5a") << QString();
    QTest::newRow("cut short by ETX") << QByteArray("5") << QString();
}

// A refused command is final: reported with the controller's words (behind
// "Seg<n>:" for a segment), answered true, never repeated.
void ExchangeTest::statusCodes()
{
    QFETCH(QByteArray, code);
    QFETCH(QString, message);
    WorkflowRig rig;
    FileAccessor& w = rig.worker();
    rig.port.setRetryCount(3);
    rig.port.setDefaultAnswer(Answer::withReply(status(code)));
    init(w);

    QString byName;
    QVERIFY(QMetaObject::invokeMethod(&w, "getErrorMessageByStatusCodeFromPLC",
                                      Qt::DirectConnection, Q_RETURN_ARG(QString, byName),
                                      Q_ARG(QString, QString::fromLatin1(code))));
    QCOMPARE(byName, message);

    QList<QStringList> datas;
    QStringList errors;
    QVERIFY(readFile(w, 2, 4, datas, errors));
    QCOMPARE(errors, QStringList{"Seg4:" + message});
    QCOMPARE(datas, QList<QStringList>{placeholderRow(4)});

    errors.clear();
    QVERIFY(writeFile(w, 2, 7, QString::fromLatin1(record(7, 1, 1)), errors));
    QCOMPARE(errors, QStringList{"Seg7:" + message});

    errors.clear();
    rig.port.reset();
    rig.port.setDefaultAnswer(Answer::withReply(status(code)));
    QVERIFY(openForWrite(w, 2, 3, {row(1, "1", "00:01")}, errors));
    QCOMPARE(errors, QStringList{message});
    QCOMPARE(rig.port.sentCommands(), QList<QByteArray>{"0100XFO,2,W,0"}); // no close
}

void ExchangeTest::readOutcomes_data()
{
    QTest::addColumn<int>("program");
    QTest::addColumn<int>("segment");
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QList<QStringList>>("rows");
    QTest::addColumn<int>("reads");
    const QString code1 = "Reading the Program %1 file fail. Error Code 1.";
    const QString code2 = "Reading the Program %1 file fail. Error Code 2.";
    const QString code4 = "Reading the Program %1 file fail. Error Code 4.";
    const QByteArray rec2 = record(2, -5, 0);

    QTest::newRow("segment 1, long record")
        << 1 << 1 << Answer::withReply(readReply(1, 1, record(1, 100, 90))) << true << QString()
        << QList<QStringList>{row(1, "100", "01:30")} << 1;
    QTest::newRow("status 01 like 00")
        << 3 << 2 << Answer::withReply(ScriptedPort::framed("0100X01,FR,3,2," + rec2)) << true
        << QString() << QList<QStringList>{row(2, "-5", "00:00")} << 1;
    QTest::newRow("program 12 segment 10: field at 18")
        << 12 << 10 << Answer::withReply(readReply(12, 10, record(10, 5999, 5999))) << true
        << QString() << QList<QStringList>{row(10, "5999", "99:59")} << 1;
    QTest::newRow("program 10 segment 9: field at 17")
        << 10 << 9 << Answer::withReply(readReply(10, 9, record(9, 7, 61))) << true << QString()
        << QList<QStringList>{row(9, "7", "01:01")} << 1;
    QTest::newRow("refused") << 4 << 2 << Answer::withReply(status("52")) << true
                             << QStringLiteral("Seg2:") + NoProgram
                             << QList<QStringList>{placeholderRow(2)} << 1;
    QTest::newRow("short write") << 4 << 2 << Answer::shortWrite(5) << false << code4.arg(4)
                                 << QList<QStringList>{} << 0;
    QTest::newRow("write error") << 4 << 2 << Answer::shortWrite(-1) << false << code4.arg(4)
                                 << QList<QStringList>{} << 0;
    QTest::newRow("other station")
        << 4 << 2 << Answer::withReply(ScriptedPort::framed("0200X00,FR,4,2," + rec2)) << false
        << code1.arg(4) << QList<QStringList>{} << 1;
    QTest::newRow("no reply") << 4 << 2 << Answer::noReply() << false << code1.arg(4)
                              << QList<QStringList>{} << 1;
    QTest::newRow("reply after the read") << 4 << 2 << Answer::withReply(readReply(4, 2, rec2), 1)
                                          << false << code1.arg(4) << QList<QStringList>{} << 1;
    QTest::newRow("record one digit short")
        << 4 << 2 << Answer::withReply(readReply(4, 2, rec2.left(91))) << false << code2.arg(4)
        << QList<QStringList>{} << 1;
    QTest::newRow("record one digit long")
        << 4 << 2 << Answer::withReply(readReply(4, 2, rec2 + "0")) << false << code2.arg(4)
        << QList<QStringList>{} << 1;
    QTest::newRow("segment 1 with a short record")
        << 11 << 1 << Answer::withReply(readReply(11, 1, rec2)) << false << code2.arg(11)
        << QList<QStringList>{} << 1;
    QTest::newRow("reply longer than the read limit")
        << 4 << 2 << Answer::withReply(readReply(4, 2, rec2 + QByteArray(300, 'A'))) << false
        << code2.arg(4) << QList<QStringList>{} << 1;
    QTest::newRow("accepted without data") << 4 << 2 << Answer::withReply(status("00")) << false
                                           << code2.arg(4) << QList<QStringList>{} << 1;
}

void ExchangeTest::readOutcomes()
{
    QFETCH(int, program);
    QFETCH(int, segment);
    QFETCH(Answer, answer);
    QFETCH(bool, result);
    QFETCH(QString, error);
    QFETCH(QList<QStringList>, rows);
    QFETCH(int, reads);
    WorkflowRig rig;
    FileAccessor& w = rig.worker();
    rig.port.setRetryCount(2); // a single read is never repeated by itself
    rig.port.addAnswer("", answer);
    init(w);
    QList<QStringList> datas{{"earlier row"}};
    QStringList errors{"earlier message"};
    QCOMPARE(readFile(w, program, segment, datas, errors), result);
    QStringList expectedErrors{"earlier message"};
    if (!error.isNull())
        expectedErrors << error;
    QCOMPARE(errors, expectedErrors);
    QCOMPARE(datas, QList<QStringList>{{"earlier row"}} + rows);
    QCOMPARE(
        rig.port.sentCommands(),
        QList<QByteArray>{QStringLiteral("0100XFR,%1,%2").arg(program).arg(segment).toLatin1()});
    QCOMPARE(rig.port.readLimits(), reads ? QList<int>{200} : QList<int>{});
    QVERIFY(rig.events().isEmpty());
}

void ExchangeTest::writeOutcomes_data()
{
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QString>("error");
    QTest::newRow("accepted") << Answer::withReply(status("00")) << true << QString();
    QTest::newRow("status 01") << Answer::withReply(status("01,echo")) << true << QString();
    QTest::newRow("short write") << Answer::shortWrite(10) << false
                                 << "Write File Fail. Error Code 22.";
    QTest::newRow("wrong header") << Answer::withReply(ScriptedPort::framed("0100Y00")) << false
                                  << "Write File Fail. Error Code 21.";
    QTest::newRow("no reply") << Answer::noReply() << false << "Write File Fail. Error Code 21.";
    QTest::newRow("refused") << Answer::withReply(status("57")) << true
                             << "Seg3:Block data of File block WRITE is in error.";
}

void ExchangeTest::writeOutcomes()
{
    QFETCH(Answer, answer);
    QFETCH(bool, result);
    QFETCH(QString, error);
    WorkflowRig rig;
    FileAccessor& w = rig.worker();
    rig.port.addAnswer("0100XFW,15,3", answer);
    init(w);
    QStringList errors;
    const QByteArray rec = record(3, -1999, 5999);
    QCOMPARE(writeFile(w, 15, 3, QString::fromLatin1(rec), errors), result);
    QCOMPARE(errors, error.isNull() ? QStringList() : QStringList(error));
    QCOMPARE(rig.port.sentFrames(), QList<QByteArray>{ScriptedPort::framed("0100XFW,15,3," + rec)});
}

void ExchangeTest::openOutcomes_data()
{
    QTest::addColumn<bool>("forWrite");
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QString>("error");
    const QString opening = "Opening the Program 7 file fail. Error Code %1.";
    QTest::newRow("read: short write") << false << Answer::shortWrite(0) << false << opening.arg(3);
    QTest::newRow("read: wrong header")
        << false << Answer::withReply(ScriptedPort::framed("0200X00")) << false << opening.arg(1);
    QTest::newRow("read: refused")
        << false << Answer::withReply(status("50")) << true << "File is already open.";
    QTest::newRow("write: short write")
        << true << Answer::shortWrite(14) << false << opening.arg(13);
    QTest::newRow("write: wrong header") << true
                                         << Answer::withReply("\x02"
                                                              "0100")
                                         << false << opening.arg(11);
    QTest::newRow("write: refused") << true << Answer::withReply(status("59")) << true
                                    << "File OPEN, File block WRITE and File DELETE are inhibited.";
}

// An open that fails or is refused ends the attempt: no header row, no
// segment, no close.
void ExchangeTest::openOutcomes()
{
    QFETCH(bool, forWrite);
    QFETCH(Answer, answer);
    QFETCH(bool, result);
    QFETCH(QString, error);
    WorkflowRig rig;
    FileAccessor& w = rig.worker();
    rig.port.setRetryCount(3);
    rig.port.addAnswer("0100XFO", answer);
    QList<QStringList> datas;
    QStringList errors;
    const bool done = forWrite ? openForWrite(w, 7, 2, {row(1, "1", "00:01")}, errors)
                               : openForRead(w, 7, 2, datas, errors);
    QCOMPARE(done, result);
    QCOMPARE(errors, QStringList{error});
    QVERIFY(datas.isEmpty());
    QCOMPARE(rig.port.sentCommands(),
             QList<QByteArray>{forWrite ? "0100XFO,7,W,0" : "0100XFO,7,R,0"});
    QVERIFY(rig.events().isEmpty());
    QVERIFY(rig.files().isEmpty());
}

void ExchangeTest::closeReportsNothing_data()
{
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<QList<int>>("reads");
    QTest::newRow("accepted") << Answer::withReply(status("00")) << QList<int>{16};
    QTest::newRow("refused") << Answer::withReply(status("51")) << QList<int>{16};
    QTest::newRow("garbage") << Answer::withReply(QByteArray(40, '\xff')) << QList<int>{16};
    QTest::newRow("short write: nothing read") << Answer::shortWrite(3) << QList<int>{};
}

void ExchangeTest::closeReportsNothing()
{
    QFETCH(Answer, answer);
    QFETCH(QList<int>, reads);
    WorkflowRig rig;
    FileAccessor& w = rig.worker();
    rig.port.addAnswer("0100XFC,7", answer);
    init(w);
    closeFile(w, 7);
    QCOMPARE(rig.port.sentCommands(), QList<QByteArray>{"0100XFC,7"});
    QCOMPARE(rig.port.readLimits(), reads);
    QVERIFY(rig.events().isEmpty());
}

void ExchangeTest::withoutPort()
{
    WorkflowRig rig;
    FileAccessor& w = rig.worker();
    w.setInterface(nullptr);
    QList<QStringList> datas;
    QStringList errors;
    QVERIFY(!openForRead(w, 2, 3, datas, errors));
    QVERIFY(!readFile(w, 2, 1, datas, errors));
    QVERIFY(!writeFile(w, 2, 1, "0000", errors));
    closeFile(w, 2);
    QCOMPARE(errors, (QStringList{"Opening the Program 2 file fail. Error Code 3.",
                                  "Reading the Program 2 file fail. Error Code 4.",
                                  "Write File Fail. Error Code 22."}));
    QVERIFY(datas.isEmpty());
    QVERIFY(rig.port.events().isEmpty());
}

// The runtime may hand over another port while a command waits for its
// reply; the reply is read from the port current then.
void ExchangeTest::portReplacedBetweenSteps()
{
    WorkflowRig rig;
    FileAccessor& w = rig.worker();
    ScriptedPort next;
    next.addAnswer("", Answer::withReply(status("00")));
    const QByteArray primer = ScriptedPort::framed("0100XFW,1,1,0");
    next.writeBytes(primer.constData(), primer.size()); // leaves the reply pending
    rig.port.setResponder([&w, &next](const QByteArray&) {
        w.setInterface(&next);
        return Answer::noReply();
    });
    init(w);
    QStringList errors;
    QVERIFY(writeFile(w, 1, 2, QString::fromLatin1(record(2, 0, 0)), errors));
    QVERIFY(errors.isEmpty());
    QCOMPARE(rig.port.readLimits(), QList<int>{});
    QCOMPARE(next.readLimits(), QList<int>{200});
    QCOMPARE(rig.port.sentCommands(), QList<QByteArray>{"0100XFW,1,2," + record(2, 0, 0)});
}

void ExchangeTest::abortStopsBeforeSending()
{
    WorkflowRig rig;
    FileAccessor& w = rig.worker();
    rig.port.setDefaultAnswer(Answer::withReply(status("00")));
    w.requestAbort();
    QList<QStringList> datas;
    QStringList errors;
    QVERIFY(!openForRead(w, 1, 3, datas, errors));
    QVERIFY(!readFile(w, 1, 1, datas, errors));
    QVERIFY(!writeFile(w, 1, 1, "0000", errors));
    closeFile(w, 1);
    QVERIFY(errors.isEmpty()); // nobody will read them
    QVERIFY(datas.isEmpty());
    QVERIFY(rig.port.events().isEmpty());
}

QTEST_GUILESS_MAIN(ExchangeTest)
#include "tst_exchange.moc"

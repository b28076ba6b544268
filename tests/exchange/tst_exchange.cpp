// The worker's controller exchange: command templates, the bytes on the line
// (prepare option, frame, bounded read), reply checks and what each command
// reports, reached through the worker's slots by name.
#include "tests/driver_core/tsanoptions.h"
#include "tests/support/workflowrig.h"

#include <QtTest>

using namespace WorkflowData;
using Answer = ScriptedPort::Answer;

Q_DECLARE_METATYPE(ScriptedPort::Answer)

namespace
{

const char NoProgram[] = "Program number or segment number is in error. No program in the segment.";

// One of the worker's command operations, by name after initRWCommand: the
// opens for three segments (the write with the row of segment 1), the
// segment operations on `segment` (the write sends its sample record).
// Returns the operation's result; closeFile has none and gives false.
bool call(FileAccessor& w, const QByteArray& slot, int program, int segment,
          QList<QStringList>& datas, QStringList& errors)
{
    bool result = false;
    const auto ret = Q_RETURN_ARG(bool, result);
    const auto direct = Qt::DirectConnection;
    bool invoked = QMetaObject::invokeMethod(&w, "initRWCommand", direct);
    if (slot == "openFileForRead")
        invoked &= QMetaObject::invokeMethod(&w, slot, direct, ret, Q_ARG(int, program),
                                             Q_ARG(int, 3), Q_ARG(QList<QStringList>&, datas),
                                             Q_ARG(QStringList&, errors));
    else if (slot == "openFileForWrite")
        invoked &= QMetaObject::invokeMethod(
            &w, slot, direct, ret, Q_ARG(int, program), Q_ARG(int, 3),
            Q_ARG(QList<QStringList>, {sampleRow(1)}), Q_ARG(QStringList&, errors));
    else if (slot == "readFile")
        invoked &= QMetaObject::invokeMethod(&w, slot, direct, ret, Q_ARG(int, program),
                                             Q_ARG(int, segment), Q_ARG(QList<QStringList>&, datas),
                                             Q_ARG(QStringList&, errors));
    else if (slot == "writeFile")
        invoked &= QMetaObject::invokeMethod(
            &w, slot, direct, ret, Q_ARG(int, program), Q_ARG(int, segment),
            Q_ARG(QString, QString::fromLatin1(sampleRecord(segment))),
            Q_ARG(QStringList&, errors));
    else
        invoked &= QMetaObject::invokeMethod(&w, "closeFile", direct, Q_ARG(int, program));
    if (!invoked)
        QTest::qFail(qPrintable("cannot invoke " + slot), __FILE__, __LINE__);
    return result;
}

} // namespace

class ExchangeTest : public QObject
{
    Q_OBJECT

private slots:
    // Built on the first open; a template that already holds text is left
    // alone. The bytes the templates make are checked with the outcomes.
    void templatesBuiltOnce()
    {
        WorkflowRig rig;
        FileAccessor& w = rig.worker();
        QVERIFY(w.openReadCommand.isEmpty() && w.closeCommand.isEmpty());
        w.readCommand = QStringLiteral("kept");
        QVERIFY(QMetaObject::invokeMethod(&w, "initRWCommand", Qt::DirectConnection));
        QCOMPARE(w.readCommand, QStringLiteral("kept"));
        QCOMPARE(w.closeCommand, QStringLiteral("\x02"
                                                "0100XFC,%1\x03\r\n"));
        QVERIFY(rig.port.trace().isEmpty());
    }

    void statusMessages_data()
    {
        QTest::addColumn<QString>("code");
        QTest::addColumn<QString>("message");
        auto row = [](const char* code, const char* message) {
            QTest::newRow(code) << QString(code) << QString(message);
        };
        row("40", "Request message is in error.");
        row("41", "The number of data is over 16. (Including read data count of RS request).");
        row("42", "The data address is not defined. All of message has been cancelled.");
        row("44", "The value of write data is out of the limit. Processing is continued except "
                  "for the relevant data address.");
        row("45", "The data cannot be written according to the status of DCP31/32. (Settings can "
                  "be changed only READY mode regarding all of setup items and some of event "
                  "configuration data) Write is attempted to the write inhibit data address.");
        row("47", "Mode can not be changed.");
        row("48", "Operation keys of console are operated by an operator. Send the request "
                  "message after key operation.");
        row("50", "File is already open.");
        row("51", "File is not open yet.");
        row("52", NoProgram);
        row("54", "Attribute of File OPEN is violated.");
        row("57", "Block data of File block WRITE is in error.");
        row("58", "The program being run cannot be deleted.");
        row("59", "File OPEN, File block WRITE and File DELETE are inhibited.");
        row("99", "The command is undefined.");
        row("43", "");
    }
    void statusMessages()
    {
        QFETCH(QString, code);
        FileAccessor w;
        QString message;
        QVERIFY(QMetaObject::invokeMethod(&w, "getErrorMessageByStatusCodeFromPLC",
                                          Qt::DirectConnection, Q_RETURN_ARG(QString, message),
                                          Q_ARG(QString, code)));
        QTEST(message, "message");
    }

    // Each operation prepares the port, sends its command once, reads at
    // most once (16 bytes after an open or close, 200 after a segment
    // command, nothing after a short write), and files its outcome: false
    // for what is worth repeating, a refusal final (with "Seg<n>:" for a
    // segment), and nothing for the close.
    void outcomes_data()
    {
        QTest::addColumn<QByteArray>("slot");
        QTest::addColumn<int>("program");
        QTest::addColumn<int>("segment");
        QTest::addColumn<Answer>("answer");
        QTest::addColumn<bool>("result");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QList<QStringList>>("rows");
        auto row = [](const char* name, const char* slot, int program, int segment,
                      const Answer& answer, bool result, const QString& error,
                      const QList<QStringList>& rows = {}) {
            QTest::newRow(name) << QByteArray(slot) << program << segment << answer << result
                                << error << rows;
        };
        const QString opening = "Opening the Program %1 file fail. Error Code %2.";
        const QString reading = "Reading the Program 4 file fail. Error Code %1.";
        const QByteArray rec2 = sampleRecord(2);
        const char* openR = "openFileForRead";
        const char* openW = "openFileForWrite";
        const char* read = "readFile";
        const char* write = "writeFile";
        row("open: short write", openR, 7, 0, Answer::shortWrite(0), false, opening.arg(7).arg(3));
        row("open: other station", openR, 7, 0, Answer::withReply(ScriptedPort::framed("0200X00")),
            false, opening.arg(7).arg(1));
        row("open: refused, nothing more", openR, 7, 0, Answer::withReply(status("50")), true,
            "File is already open.");
        row("open W: short write", openW, 19, 0, Answer::shortWrite(14), false,
            opening.arg(19).arg(13));
        row("open W: cut header", openW, 19, 0,
            Answer::withReply("\x02"
                              "0100"),
            false, opening.arg(19).arg(11));
        row("open W: refused, nothing more", openW, 19, 0, Answer::withReply(status("59")), true,
            "File OPEN, File block WRITE and File DELETE are inhibited.");
        row("read: segment 1, long record", read, 1, 1,
            Answer::withReply(readReply(1, 1, sampleRecord(1))), true, QString(), {sampleRow(1)});
        row("read: status 01 like 00", read, 3, 2,
            Answer::withReply(ScriptedPort::framed("0100X01,FR,3,2," + rec2)), true, QString(),
            {sampleRow(2)});
        row("read: program 12 segment 10, field at 18", read, 12, 10,
            Answer::withReply(readReply(12, 10, sampleRecord(10))), true, QString(),
            {sampleRow(10)});
        row("read: refused, row kept", read, 4, 2, Answer::withReply(status("52")), true,
            QStringLiteral("Seg2:") + NoProgram, {placeholderRow(2)});
        row("read: unknown status", read, 4, 2, Answer::withReply(status("43")), true,
            "Seg2:", {placeholderRow(2)});
        row("read: short write", read, 4, 2, Answer::shortWrite(5), false, reading.arg(4));
        row("read: other station", read, 4, 2,
            Answer::withReply(ScriptedPort::framed("0200X00,FR,4,2," + rec2)), false,
            reading.arg(1));
        row("read: reply after the one read", read, 4, 2,
            Answer::withReply(readReply(4, 2, rec2), 1), false, reading.arg(1));
        row("read: record a digit short", read, 4, 2,
            Answer::withReply(readReply(4, 2, rec2.left(91))), false, reading.arg(2));
        row("read: record a digit long", read, 4, 2, Answer::withReply(readReply(4, 2, rec2 + "0")),
            false, reading.arg(2));
        row("write: accepted", write, 15, 3, Answer::withReply(status("00")), true, QString());
        row("write: short write", write, 15, 3, Answer::shortWrite(10), false,
            "Write File Fail. Error Code 22.");
        row("write: wrong header", write, 15, 3, Answer::withReply(ScriptedPort::framed("0100Y00")),
            false, "Write File Fail. Error Code 21.");
        row("write: refused", write, 15, 3, Answer::withReply(status("57")), true,
            "Seg3:Block data of File block WRITE is in error.");
        row("close: refused, not reported", "closeFile", 7, 0, Answer::withReply(status("51")),
            false, QString());
        row("close: short write", "closeFile", 7, 0, Answer::shortWrite(3), false, QString());
    }
    void outcomes()
    {
        QFETCH(QByteArray, slot);
        QFETCH(int, program);
        QFETCH(int, segment);
        QFETCH(Answer, answer);
        QFETCH(QString, error);
        QFETCH(QList<QStringList>, rows);
        WorkflowRig rig;
        rig.port.setRetryCount(3);
        rig.port.addAnswer("", answer);
        QList<QStringList> datas{{"earlier row"}};
        QStringList errors{"earlier message"};
        QTEST(call(rig.worker(), slot, program, segment, datas, errors), "result");
        QCOMPARE(errors, QStringList{"earlier message"} +
                             (error.isNull() ? QStringList() : QStringList{error}));
        QCOMPARE(datas, QList<QStringList>{{"earlier row"}} + rows);
        const QByteArray p = QByteArray::number(program), s = QByteArray::number(segment);
        const QMap<QByteArray, QPair<QByteArray, int>> sent{
            {"openFileForRead", {"0100XFO," + p + ",R,0", 16}},
            {"openFileForWrite", {"0100XFO," + p + ",W,0", 16}},
            {"readFile", {"0100XFR," + p + ',' + s, 200}},
            {"writeFile", {"0100XFW," + p + ',' + s + ',' + sampleRecord(segment), 200}},
            {"closeFile", {"0100XFC," + p, 16}}};
        QStringList trace{"option 12=0 (int)",
                          "write " + ScriptedPort::framed(sent[slot].first).toHex()};
        if (answer.kind != Answer::Kind::ShortWrite)
            trace << QStringLiteral("read %1").arg(sent[slot].second);
        QCOMPARE(rig.port.trace(), trace);
        QVERIFY(rig.events().isEmpty());
        QVERIFY(rig.files().isEmpty());
    }

    void nothingSent_data()
    {
        QTest::addColumn<bool>("abort");
        QTest::addColumn<QStringList>("errors");
        QTest::newRow("no port") << false
                                 << QStringList{"Opening the Program 2 file fail. Error Code 3.",
                                                "Reading the Program 2 file fail. Error Code 4.",
                                                "Write File Fail. Error Code 22."};
        QTest::newRow("abort requested: nobody reads messages") << true << QStringList();
    }
    void nothingSent()
    {
        QFETCH(bool, abort);
        WorkflowRig rig;
        FileAccessor& w = rig.worker();
        rig.port.setDefaultAnswer(Answer::withReply(status("00")));
        if (abort)
            w.requestAbort();
        else
            w.setInterface(nullptr);
        QList<QStringList> datas;
        QStringList errors;
        for (const char* slot : {"openFileForRead", "readFile", "writeFile", "closeFile"})
            QVERIFY(!call(w, slot, 2, 1, datas, errors));
        QTEST(errors, "errors");
        QVERIFY(datas.isEmpty());
        QVERIFY(rig.port.trace().isEmpty());
    }

    // The runtime may hand over another port while a command waits for its
    // reply; the reply is read from the port current then.
    void portReplacedBetweenSteps()
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
        QList<QStringList> datas;
        QStringList errors;
        QVERIFY(call(w, "writeFile", 1, 2, datas, errors));
        QVERIFY(errors.isEmpty());
        QCOMPARE(rig.port.readLimits(), QList<int>{});
        QCOMPARE(next.readLimits(), QList<int>{200});
        QCOMPARE(rig.port.sentCommands(), QList<QByteArray>{"0100XFW,1,2," + sampleRecord(2)});
    }
};

QTEST_GUILESS_MAIN(ExchangeTest)
#include "tst_exchange.moc"

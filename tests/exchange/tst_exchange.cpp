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

// One of the worker's command operations for program 7, by name after
// initRWCommand: the opens for three segments (the write with the row of
// segment 1), the segment operations on `segment` (the write sends its sample
// record). Returns the operation's result; closeFile has none and gives false.
bool call(FileAccessor& w, const QByteArray& slot, int segment, QList<QStringList>& datas,
          QStringList& errors)
{
    bool result = false;
    const int program = 7, second = slot.startsWith("open") ? 3 : segment;
    const QList<QStringList> rows{sampleRow(1)};
    const QString record = QString::fromLatin1(sampleRecord(segment));
    QGenericArgument third = Q_ARG(QList<QStringList>&, datas);
    if (slot == "openFileForWrite")
        third = Q_ARG(QList<QStringList>, rows);
    else if (slot == "writeFile")
        third = Q_ARG(QString, record);
    const auto direct = Qt::DirectConnection;
    bool invoked = QMetaObject::invokeMethod(&w, "initRWCommand", direct);
    if (slot == "closeFile")
        invoked &= QMetaObject::invokeMethod(&w, slot, direct, Q_ARG(int, program));
    else
        invoked &= QMetaObject::invokeMethod(&w, slot, direct, Q_RETURN_ARG(bool, result),
                                             Q_ARG(int, program), Q_ARG(int, second), third,
                                             Q_ARG(QStringList&, errors));
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

    // Each operation prepares the port, sends its command once, reads at
    // most once (16 bytes after an open or close, 200 after a segment
    // command, nothing after a short write), and files its outcome: false
    // for what is worth repeating, a refusal final (with "Seg<n>:" for a
    // segment), and nothing for the close.
    void outcomes_data()
    {
        QTest::addColumn<QByteArray>("slot");
        QTest::addColumn<int>("segment");
        QTest::addColumn<Answer>("answer");
        QTest::addColumn<bool>("result");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QList<QStringList>>("rows");
        auto row = [](const char* name, const char* slot, int segment, const Answer& answer,
                      bool result, const QString& error, const QList<QStringList>& rows = {}) {
            QTest::newRow(name) << QByteArray(slot) << segment << answer << result << error << rows;
        };
        const QString opening = "Opening the Program 7 file fail. Error Code %1.";
        const QString reading = "Reading the Program 7 file fail. Error Code %1.";
        const QByteArray rec2 = sampleRecord(2);
        const char* openR = "openFileForRead";
        const char* openW = "openFileForWrite";
        const char* read = "readFile";
        const char* write = "writeFile";
        row("open: short write", openR, 0, Answer::shortWrite(0), false, opening.arg(3));
        row("open: other station", openR, 0, Answer::withReply(ScriptedPort::framed("0200X00")),
            false, opening.arg(1));
        row("open: refused, nothing more", openR, 0, Answer::withReply(status("50")), true,
            "File is already open.");
        row("open W: short write", openW, 0, Answer::shortWrite(14), false, opening.arg(13));
        row("open W: cut header", openW, 0,
            Answer::withReply("\x02"
                              "0100"),
            false, opening.arg(11));
        row("open W: refused, nothing more", openW, 0, Answer::withReply(status("59")), true,
            "File OPEN, File block WRITE and File DELETE are inhibited.");
        row("read: refused, row kept", read, 2, Answer::withReply(status("52")), true,
            "Seg2:Program number or segment number is in error. No program in the segment.",
            {placeholderRow(2)});
        row("read: unknown status", read, 2, Answer::withReply(status("43")), true,
            "Seg2:", {placeholderRow(2)});
        row("read: short write", read, 2, Answer::shortWrite(5), false, reading.arg(4));
        row("read: other station", read, 2,
            Answer::withReply(ScriptedPort::framed("0200X00,FR,7,2," + rec2)), false,
            reading.arg(1));
        row("read: reply after the one read", read, 2, Answer::withReply(readReply(7, 2, rec2), 1),
            false, reading.arg(1));
        row("read: segment 1 with a short record", read, 1,
            Answer::withReply(readReply(7, 1, rec2)), false, reading.arg(2));
        row("read: record a digit short", read, 2,
            Answer::withReply(readReply(7, 2, rec2.left(91))), false, reading.arg(2));
        row("read: record a digit long", read, 2, Answer::withReply(readReply(7, 2, rec2 + "0")),
            false, reading.arg(2));
        row("write: accepted", write, 3, Answer::withReply(status("00")), true, QString());
        row("write: short write", write, 3, Answer::shortWrite(10), false,
            "Write File Fail. Error Code 22.");
        row("write: wrong header", write, 3, Answer::withReply(ScriptedPort::framed("0100Y00")),
            false, "Write File Fail. Error Code 21.");
        row("write: refused", write, 3, Answer::withReply(status("57")), true,
            "Seg3:Block data of File block WRITE is in error.");
        row("close: refused, not reported", "closeFile", 0, Answer::withReply(status("51")), false,
            QString());
        row("close: short write", "closeFile", 0, Answer::shortWrite(3), false, QString());
    }
    void outcomes()
    {
        QFETCH(QByteArray, slot);
        QFETCH(int, segment);
        QFETCH(Answer, answer);
        QFETCH(QString, error);
        QFETCH(QList<QStringList>, rows);
        WorkflowRig rig;
        rig.port.setRetryCount(3);
        rig.port.addAnswer("", answer);
        QList<QStringList> datas{{"earlier row"}};
        QStringList errors{"earlier message"};
        QTEST(call(rig.worker(), slot, segment, datas, errors), "result");
        QCOMPARE(errors, QStringList{"earlier message"} +
                             (error.isNull() ? QStringList() : QStringList{error}));
        QCOMPARE(datas, QList<QStringList>{{"earlier row"}} + rows);
        const QByteArray s = QByteArray::number(segment);
        const QMap<QByteArray, QPair<QByteArray, int>> sent{
            {"openFileForRead", {"0100XFO,7,R,0", 16}},
            {"openFileForWrite", {"0100XFO,7,W,0", 16}},
            {"readFile", {"0100XFR,7," + s, 200}},
            {"writeFile", {"0100XFW,7," + s + ',' + sampleRecord(segment), 200}},
            {"closeFile", {"0100XFC,7", 16}}};
        QStringList trace{"option 12=0 (int)",
                          "write " + ScriptedPort::framed(sent[slot].first).toHex()};
        if (answer.kind != Answer::Kind::ShortWrite)
            trace << QStringLiteral("read %1").arg(sent[slot].second);
        QCOMPARE(rig.port.trace(), trace);
        QVERIFY(rig.events().isEmpty());
        QVERIFY(rig.files().isEmpty());
    }

    // Without a port no command goes anywhere: each counts as a send that
    // did not go through. (After an abort nothing is sent either: the read
    // suite stops a transfer.)
    void noPort()
    {
        WorkflowRig rig;
        FileAccessor& w = rig.worker();
        rig.port.setDefaultAnswer(Answer::withReply(status("00")));
        w.setInterface(nullptr);
        QList<QStringList> datas;
        QStringList errors;
        for (const char* slot : {"openFileForRead", "readFile", "writeFile", "closeFile"})
            QVERIFY(!call(w, slot, 1, datas, errors));
        QCOMPARE(errors, (QStringList{"Opening the Program 7 file fail. Error Code 3.",
                                      "Reading the Program 7 file fail. Error Code 4.",
                                      "Write File Fail. Error Code 22."}));
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
        const QByteArray primer = ScriptedPort::framed("0100XFW,7,1,0");
        next.writeBytes(primer.constData(), primer.size()); // leaves the reply pending
        rig.port.setResponder([&w, &next](const QByteArray&) {
            w.setInterface(&next);
            return Answer::noReply();
        });
        QList<QStringList> datas;
        QStringList errors;
        QVERIFY(call(w, "writeFile", 2, datas, errors));
        QVERIFY(errors.isEmpty());
        QCOMPARE(rig.port.readLimits(), QList<int>{});
        QCOMPARE(next.readLimits(), QList<int>{200});
        QCOMPARE(rig.port.sentCommands(), QList<QByteArray>{"0100XFW,7,2," + sampleRecord(2)});
    }
};

QTEST_GUILESS_MAIN(ExchangeTest)
#include "tst_exchange.moc"

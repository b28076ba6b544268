// The worker's controller exchange: command templates, the bytes on the line
// (prepare option, frame, bounded read), reply checks and what each command
// reports.
#include "tests/driver_core/tsanoptions.h"
#include "tests/support/workflowrig.h"

#include <QtTest>

using namespace WorkflowData;
using Answer = ScriptedPort::Answer;

Q_DECLARE_METATYPE(ScriptedPort::Answer)

class ExchangeTest : public QObject
{
    Q_OBJECT

    // One of the worker's command operations for program 7 after
    // initRWCommand: the opens (the write with the row of segment 1), the
    // segment operations on `segment` (the write sends its sample record).
    // closeFile has no result and gives false.
    static bool call(FileAccessor& w, const QByteArray& op, int segment, QList<QStringList>& datas,
                     QStringList& errors)
    {
        w.initRWCommand();
        if (op == "openFileForRead")
            return w.openFileForRead(7, 3, datas, errors);
        if (op == "openFileForWrite")
            return w.openFileForWrite(7, 3, {sampleRow(1)}, errors);
        if (op == "readFile")
            return w.readFile(7, segment, datas, errors);
        if (op == "writeFile")
            return w.writeFile(7, segment, QString::fromLatin1(sampleRecord(segment)), errors);
        w.closeFile(7);
        return false;
    }

private slots:
    // The bytes the templates make are checked with the outcomes.
    void templateWithTextKept()
    {
        WorkflowRig rig;
        rig.worker().readCommand = QStringLiteral("kept");
        rig.worker().initRWCommand();
        QCOMPARE(rig.worker().readCommand, QStringLiteral("kept"));
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
        auto reply = [](const QByteArray& bytes) { return Answer::withReply(bytes); };
        const auto cut = Answer::shortWrite;
        const QString opening = "Opening the Program 7 file fail. Error Code %1.";
        const QString reading = "Reading the Program 7 file fail. Error Code %1.";
        const QString writing = "Write File Fail. Error Code %1.";
        const QByteArray rec2 = sampleRecord(2);
        const QList<QStringList> placeholder{("SEG2" + QString("|----").repeated(25)).split('|')};
        const char *openR = "openFileForRead", *openW = "openFileForWrite";
        const char *read = "readFile", *write = "writeFile", *close = "closeFile";
        row("open: short write", openR, 0, cut(0), false, opening.arg(3));
        row("open: other station", openR, 0, reply(ScriptedPort::framed("0200X00")), false,
            opening.arg(1));
        row("open: refused, nothing more", openR, 0, reply(status("50")), true,
            "File is already open.");
        row("open W: short write", openW, 0, cut(14), false, opening.arg(13));
        row("open W: cut header", openW, 0, reply(ScriptedPort::framed("0100")), false,
            opening.arg(11));
        row("open W: refused, nothing more", openW, 0, reply(status("59")), true,
            "File OPEN, File block WRITE and File DELETE are inhibited.");
        row("read: refused, row kept", read, 2, reply(status("52")), true,
            "Seg2:Program number or segment number is in error. No program in the segment.",
            placeholder);
        row("read: unknown status", read, 2, reply(status("43")), true, "Seg2:", placeholder);
        row("read: short write", read, 2, cut(5), false, reading.arg(4));
        row("read: reply after the one read", read, 2, Answer::withReply(readReply(7, 2, rec2), 1),
            false, reading.arg(1));
        row("read: segment 1 with a short record", read, 1, reply(readReply(7, 1, rec2)), false,
            reading.arg(2));
        row("read: record a digit short", read, 2, reply(readReply(7, 2, rec2.left(91))), false,
            reading.arg(2));
        row("read: record a digit long", read, 2, reply(readReply(7, 2, rec2 + "0")), false,
            reading.arg(2));
        row("write: short write", write, 3, cut(10), false, writing.arg(22));
        row("write: wrong header", write, 3, reply(ScriptedPort::framed("0100Y00")), false,
            writing.arg(21));
        row("write: refused", write, 3, reply(status("57")), true,
            "Seg3:Block data of File block WRITE is in error.");
        row("close: refused, not reported", close, 0, reply(status("51")), false, QString());
        row("close: short write", close, 0, cut(3), false, QString());
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

    // The runtime may hand over another port, or none, at any time: each
    // step uses the port current then, and with none a command counts as a
    // send that did not go through.
    void portReplaced()
    {
        WorkflowRig rig;
        ScriptedPort next;
        next.addAnswer("", Answer::withReply(status("00")));
        const QByteArray primer = ScriptedPort::framed("0100XFW,7,1,0");
        next.writeBytes(primer.constData(), primer.size()); // leaves the reply pending
        rig.port.setResponder([&rig, &next](const QByteArray&) {
            rig.worker().setInterface(&next);
            return Answer::noReply();
        });
        QList<QStringList> datas;
        QStringList errors;
        QVERIFY(call(rig.worker(), "writeFile", 2, datas, errors));
        QCOMPARE(next.trace().filter("read "), QStringList{"read 200"});
        rig.worker().setInterface(nullptr);
        QVERIFY(!call(rig.worker(), "readFile", 2, datas, errors));
        call(rig.worker(), "closeFile", 0, datas, errors);
        QCOMPARE(errors, QStringList{"Reading the Program 7 file fail. Error Code 4."});
        QVERIFY(datas.isEmpty());
    }
};

QTEST_GUILESS_MAIN(ExchangeTest)
#include "tst_exchange.moc"

#include <QtTest>

#include "driver/controllerframes.h"
#include "driver/segmentcodec.h"
#include "sim/controllerengine.h"

using namespace ControllerFrames;

Q_DECLARE_METATYPE(ControllerFrames::Command)
Q_DECLARE_METATYPE(ControllerFrames::ReplyOutcome)

namespace
{

QByteArray wire(const char* text)
{
    return "\x02" + QByteArray(text) + "\x03\r\n";
}

} // namespace

class TestControllerFrames : public QObject
{
    Q_OBJECT

private slots:
    void frames_data()
    {
        QTest::addColumn<Command>("command");
        QTest::addColumn<int>("program");
        QTest::addColumn<int>("segment");
        QTest::addColumn<QString>("record");
        QTest::addColumn<QByteArray>("expected");
        auto row = [](const char* name, Command command, int program, int segment,
                      const char* record, const char* expected) {
            QTest::newRow(name) << command << program << segment << QString(record)
                                << wire(expected);
        };
        row("close 7", Command::Close, 7, 0, "", "0100XFC,7");
        row("open read 3", Command::OpenRead, 3, 0, "", "0100XFO,3,R,0");
        row("open write 19", Command::OpenWrite, 19, 0, "", "0100XFO,19,W,0");
        row("read 3/12", Command::Read, 3, 12, "", "0100XFR,3,12");
        row("write 12/10", Command::Write, 12, 10, "00FF176F", "0100XFW,12,10,00FF176F");
        // A record is inserted once, never scanned for placeholders.
        row("write keeps %", Command::Write, 1, 2, "%1%2%3", "0100XFW,1,2,%1%2%3");
    }
    void frames()
    {
        QFETCH(Command, command);
        QFETCH(int, program);
        QFETCH(int, segment);
        QFETCH(QString, record);
        QFETCH(QByteArray, expected);
        QCOMPARE(frame(command, program, segment, record), expected);
        // The worker fills the framed template it keeps.
        const QString kept = framedTemplate(command);
        QCOMPARE(toWire(fillTemplate(kept, command, program, segment, record)), expected);
        QCOMPARE(kept, framedTemplate(command));
    }

    void statusMessages_data()
    {
        QTest::addColumn<QString>("code");
        QTest::addColumn<QString>("message");
        QTest::newRow("50") << "50" << QString("File is already open.");
        QTest::newRow("52") << "52"
                            << QString("Program number or segment number is in error. No "
                                       "program in the segment.");
        for (const char* unknown : {"43", "", "050", " 50"})
            QTest::newRow(qPrintable(QString("'%1'").arg(unknown))) << unknown << QString();
    }
    void statusMessages()
    {
        QFETCH(QString, code);
        QTEST(getErrorMessageByStatusCodeFromPLC(code), "message");
    }

    void replies_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<ReplyOutcome>("outcome");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("message");
        auto row = [](const char* name, const QString& text, ReplyOutcome outcome,
                      const char* status = "", const char* message = "") {
            QTest::newRow(name) << text << outcome << QString(status) << QString(message);
        };
        auto stx = [](const char* text) { return QChar(2) + QString(text); };
        const auto ok = ReplyOutcome::Accepted;
        const auto header = ReplyOutcome::HeaderFailure;
        const auto refused = ReplyOutcome::ControllerError;
        row("00", stx("0100X00\x03\r\n"), ok, "00");
        row("01 like 00", stx("0100X01,FR,1,1,0000"), ok, "01");
        row("STX not examined", "?0100X00", ok, "00");
        row("empty", "", header);
        row("STX only", stx(""), header);
        row("cut header", stx("0100"), header);
        row("other station", stx("0200X00"), header);
        row("lower-case x", stx("0100x00"), header);
        row("no STX", "0100X00", header);
        row("50", stx("0100X50\x03"), refused, "50", "File is already open.");
        row("43 unknown", stx("0100X43"), refused, "43");
        row("status cut", stx("0100X0"), refused, "0");
    }
    void replies()
    {
        QFETCH(QString, text);
        const ReplyCheck check = checkReply(text);
        QTEST(check.outcome, "outcome");
        QTEST(check.statusCode, "status");
        QTEST(check.message, "message");
    }

    void replyTextStopsAtZeroOrSize()
    {
        const char withNul[] = "\x02"
                               "0100X00\0garbage";
        QCOMPARE(replyText(withNul, sizeof withNul), QChar(2) + QString("0100X00"));
        const char noNul[4] = {'a', 'b', 'c', 'd'};
        QCOMPARE(replyText(noNul, 3), QString("abc"));
        QCOMPARE(replyText(nullptr, 10), QString());
    }

    void controllerErrorLines()
    {
        QCOMPARE(controllerErrorLine(Command::Read, 4, "File is not open yet."),
                 QString("Seg4:File is not open yet."));
        QCOMPARE(controllerErrorLine(Command::Write, 12, QString()), QString("Seg12:"));
        QCOMPARE(controllerErrorLine(Command::OpenRead, 4, "File is already open."),
                 QString("File is already open."));
    }

    void segmentFields_data()
    {
        QTest::addColumn<int>("program");
        QTest::addColumn<int>("segment");
        QTest::addColumn<int>("position");
        QTest::addColumn<int>("length");
        QTest::newRow("1/1") << 1 << 1 << 16 << 123;
        QTest::newRow("9/9") << 9 << 9 << 16 << 95;
        QTest::newRow("10/9") << 10 << 9 << 17 << 95;
        QTest::newRow("9/10") << 9 << 10 << 17 << 95;
        QTest::newRow("12/10") << 12 << 10 << 18 << 95;
    }
    void segmentFields()
    {
        QFETCH(int, program);
        QFETCH(int, segment);
        QFETCH(int, position);
        QCOMPARE(segmentFieldPosition(program, segment), position);
        QTEST(segmentFieldLength(segment), "length");
        const QString text = QString(position, QLatin1Char('.')) + "RECORD";
        QCOMPARE(segmentField(text, program, segment), QString("RECORD"));
        QCOMPARE(segmentField(QChar(2) + QString("0100X"), program, segment), QString());
    }

    // Every sample program goes controller -> row -> record unchanged, and a
    // program written under a two-digit number comes back the same way.
    void simulatorRoundTrip()
    {
        ControllerEngine engine;
        const auto params = SegmentCodec::WriteParameters::fromList({-1999, 9999, 0, 4, 50});
        auto send = [&engine](const QByteArray& bytes) {
            return QString::fromLatin1(engine.feed(bytes));
        };
        QList<QStringList> rows;
        for (int program = 1; program <= 3; ++program) {
            QCOMPARE(checkReply(send(frame(Command::OpenRead, program))).outcome,
                     ReplyOutcome::Accepted);
            for (int s = 1; s <= engine.programs().segmentCount(program); ++s) {
                const QString text = send(frame(Command::Read, program, s));
                QCOMPARE(checkReply(text).outcome, ReplyOutcome::Accepted);
                const QString field = segmentField(text, program, s);
                QCOMPARE(field.size(), segmentFieldLength(s));
                QStringList row = SegmentCodec::recordToRow(s, field);
                if (program == 1)
                    rows << row;
                QString record;
                QStringList errors;
                QVERIFY2(SegmentCodec::CSV2HEX(params, s, row, record, errors),
                         qPrintable(errors.join('\n')));
                QCOMPARE(record.toLatin1(), engine.programs().segment(program, s));
            }
            send(frame(Command::Close, program));
        }
        QVERIFY(rows.size() >= 2);

        QCOMPARE(checkReply(send(frame(Command::OpenWrite, 12))).outcome, ReplyOutcome::Accepted);
        for (int s = 1; s <= 10; ++s) {
            QString record;
            QStringList errors;
            QVERIFY(SegmentCodec::validateDataRow(params, s == 1 ? 1 : 2, rows, record, errors));
            QCOMPARE(checkReply(send(frame(Command::Write, 12, s, record))).outcome,
                     ReplyOutcome::Accepted);
        }
        send(frame(Command::Close, 12));
        send(frame(Command::OpenRead, 12));
        const QString text = send(frame(Command::Read, 12, 10));
        QCOMPARE(segmentField(text, 12, 10).left(SegmentCodec::ShortRecordLength).toLatin1(),
                 engine.programs().segment(1, 2));
    }
};

QTEST_GUILESS_MAIN(TestControllerFrames)
#include "tst_controllerframes.moc"

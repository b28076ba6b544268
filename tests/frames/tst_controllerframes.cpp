#include <QtTest>

#include "driver/controllerframes.h"

using namespace ControllerFrames;

Q_DECLARE_METATYPE(ControllerFrames::ReplyOutcome)

class TestControllerFrames : public QObject
{
    Q_OBJECT

private slots:
    void statusMessages_data()
    {
        QTest::addColumn<QString>("code");
        QTest::addColumn<QString>("message");
        auto row = [](const char* code, const char* message) {
            QTest::newRow(qPrintable(QString("'%1'").arg(code)))
                << QString(code) << QString(message);
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
        row("52", "Program number or segment number is in error. No program in the segment.");
        row("54", "Attribute of File OPEN is violated.");
        row("57", "Block data of File block WRITE is in error.");
        row("58", "The program being run cannot be deleted.");
        row("59", "File OPEN, File block WRITE and File DELETE are inhibited.");
        row("99", "The command is undefined.");
        for (const char* unknown : {"43", "", "050", " 50"})
            row(unknown, "");
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

    void segmentFields()
    {
        // Program, segment, where the field starts, the length it must have.
        const QList<QList<int>> cases{
            {1, 1, 16, 123}, {9, 9, 16, 95}, {10, 9, 17, 95}, {9, 10, 17, 95}, {12, 10, 18, 95}};
        for (const QList<int>& c : cases) {
            QCOMPARE(segmentFieldPosition(c[0], c[1]), c[2]);
            QCOMPARE(segmentFieldLength(c[1]), c[3]);
            const QString text = QString(c[2], QLatin1Char('.')) + "RECORD";
            QCOMPARE(segmentField(text, c[0], c[1]), QString("RECORD"));
            QCOMPARE(segmentField(QChar(2) + QString("0100X"), c[0], c[1]), QString());
        }
    }
};

QTEST_GUILESS_MAIN(TestControllerFrames)
#include "tst_controllerframes.moc"

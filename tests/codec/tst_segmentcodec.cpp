// The pure codec: segment records to rows and back with every cell check,
// and the controller's replies and status messages.
#include <QtTest>

#include "driver/controllerframes.h"
#include "driver/segmentcodec.h"

#include <QRandomGenerator>

using namespace SegmentCodec;
using Cells = QMap<int, QString>; // index -> text
using ControllerFrames::ReplyOutcome;

namespace
{

// EV1 a PV event, EV2 an absolute value deviation event, EV3 a time event.
const WriteParameters params = WriteParameters::fromList({-1999, 9999, 0, 4, 50});

QStringList validRow(int segment)
{
    return QStringLiteral("SEG%1,100,01:30,10,20,0,30,5,10,1.00,2.00,----,----,----,----,----,"
                          "----,----,----,1,----,----,0,1,0,AB")
        .arg(segment)
        .split(QLatin1Char(','));
}

// A record of the given length: "0000" words, some of them replaced.
QString record(int length, const Cells& words)
{
    QString r(length, QLatin1Char('0'));
    for (auto it = words.cbegin(); it != words.cend(); ++it)
        r.replace(it.key() * 4, it.value().size(), it.value());
    return r;
}

} // namespace

class TestSegmentCodec : public QObject
{
    Q_OBJECT

private slots:
    void decode_data()
    {
        QTest::addColumn<int>("segment");
        QTest::addColumn<QString>("indata");
        QTest::addColumn<int>("column");
        QTest::addColumn<QString>("cell");
        auto row = [](const char* name, int segment, const QString& indata, int column,
                      const QString& cell) {
            QTest::newRow(name) << segment << indata << column << cell;
        };
        auto longRec = [](const Cells& w) { return record(LongRecordLength, w); };
        auto shortRec = [](const Cells& w) { return record(ShortRecordLength, w); };
        row("empty", 3, "", 0, "SEG3");
        row("TIME 5999", 2, shortRec({{1, "176F"}}), 2, "99:59");
        row("TIME 90", 2, shortRec({{1, "005A"}}), 2, "01:30");
        row("T 90", 2, shortRec({{9, "005A"}}), 9, "1.30");
        row("T 5", 2, shortRec({{12, "0005"}}), 12, "0.05");
        row("T unset", 2, shortRec({{10, "7FFF"}}), 10, "----");
        row("EV -1, after reserved word 2", 2, shortRec({{2, "1234"}, {3, "FFFF"}}), 3, "-1");
        row("EV unset", 2, shortRec({{8, "7FFF"}}), 8, "----");
        row("SP1 7FFF", 2, shortRec({{0, "7FFF"}}), 1, "32767");
        row("G.S unset, after reserved word 20", 2, shortRec({{20, "ABCD"}, {21, "7FFF"}}), 20,
            "----");
        row("tag", 1, longRec({{26, "4142202020202020"}}), 25, "AB      ");
        // The length decides, not the segment number.
        row("101 chars is long", 5, record(101, {{23, "0003"}}), 22, "3");
        row("100 chars is short", 1, record(100, {{23, "0003"}}), 22, "----");
        row("bad and missing digits are 0", 2, "1G2", 1, "4128");
        row("past 120 ignored", 1, longRec({{29, "4142"}}) + "FFFF", 25,
            QString(6, QChar(0)) + "AB");
    }
    void decode()
    {
        QFETCH(int, segment);
        QFETCH(QString, indata);
        QFETCH(int, column);
        QList<QStringList> table;
        HEX2CSV(segment, indata, table);
        QCOMPARE(table.size(), 1);
        QCOMPARE(table.first().size(), ColumnCount);
        QTEST(table.first().at(column), "cell");
    }

    // Valid values of every column, drawn at random, survive
    // record -> row -> record (EV1 a PV event, EV3 a time event). The words
    // are spelled by wordHex, whose output the cells table pins down.
    void roundTrip()
    {
        QRandomGenerator random(2024);
        auto between = [&random](int low, int high) { return random.bounded(low, high + 1); };
        auto maybeUnset = [&](int low, int high) {
            return random.bounded(4) == 0 ? 0x7FFF : between(low, high);
        };
        for (int i = 0; i < 600; ++i) {
            const int segment = i % 2 ? 1 : between(2, 30);
            QList<int> words{between(-1999, 9999),    between(0, 5999),    0,
                             maybeUnset(-1999, 9999), maybeUnset(0, 5999), maybeUnset(0, 9999),
                             maybeUnset(0, 5999)};
            // A time event's 1st of 5999 needs an unset 2nd; otherwise the 2nd
            // comes later, an unset 1st counting as -1.
            const int ev3 = maybeUnset(0, 5999);
            words << ev3 << (ev3 == 5999 ? 0x7FFF : between(ev3 == 0x7FFF ? 0 : ev3 + 1, 5999));
            for (int t = 0; t < 5; ++t) {
                const int first = maybeUnset(0, 5998);
                const int second =
                    first == 0x7FFF ? maybeUnset(0, 5999) : maybeUnset(first + 1, 5999);
                words << first << second;
            }
            words << between(0, 8) << 0 << maybeUnset(0, 1000) << maybeUnset(0, 5999);
            QString expected;
            for (int w : words)
                expected += wordHex(w);
            if (segment == 1) {
                expected +=
                    wordHex(between(0, 1)) + wordHex(between(0, 9999)) + wordHex(between(0, 19));
                for (int c = 0; c < 8; ++c)
                    expected += QString::number(between(32, 95), 16).toUpper();
            }
            QStringList row = recordToRow(segment, expected);
            QString encoded;
            QStringList errors;
            QVERIFY2(CSV2HEX(params, segment, row, encoded, errors),
                     qPrintable(expected + ": " + errors.join(" | ")));
            QCOMPARE(encoded, expected);
        }
    }

    void ranges_data()
    {
        QTest::addColumn<int>("ev1Type");
        QTest::addColumn<QString>("title");
        QTest::addColumn<int>("value");
        QTest::addColumn<QString>("message");
        const QString out("%1 [%2] is out of range (%3 ~ %4).");
        const QString pv("In case of PV type event; ");
        const QString abs("In case of absolute value deviation event; ");
        const QString mv("In case of MV/MFB event; ");
        const QString time("In case of time event; ");
        // EV1's type, the title, the range and the message's prefix.
        const std::tuple<int, const char*, int, int, QString> edges[] = {
            {0, "EV1 1st", -1999, 9999, pv}, {1, "EV1 1st", -1999, 9999, pv},
            {4, "EV1 1st", 0, 9999, abs},    {5, "EV1 1st", 0, 9999, abs},
            {8, "EV1 1st", -100, 1100, mv},  {11, "EV1 1st", -100, 1100, mv},
            {50, "EV1 1st", 0, 5999, time},  {2, "EV1 1st", 0, 5999, " "},
            {12, "EV1 1st", 0, 5999, " "},   {-1, "EV1 1st", 0, 5999, " "},
            {0, "EV1 2nd", 0, 5999, pv},     {8, "EV1 2nd", 0, 5999, mv},
            {0, "EV2 1st", 0, 9999, abs},    {0, "EV3 2nd", 0, 5999, mv},
            {0, "EV4 1st", 0, 5999, " "},    {0, "SP1", -10, 10, ""},
            {0, "P.LIN", 0, 19, ""},         {0, "CYCL", 0, 9999, ""},
            {0, "P.STA", 0, 1, ""},          {0, "G.S.", 0, 1000, ""},
            {0, "G.S.TO", 0, 5999, ""},      {0, "PID1", 0, 8, ""},
            {0, "TIME", 0, 5999, ""},        {0, "T5 2nd", 0, 5999, ""},
        };
        for (const auto& [type, title, min, max, prefix] : edges) {
            const QString name = QString("%1 type %2 ").arg(title).arg(type);
            QTest::newRow(qPrintable(name + "min")) << type << title << min << QString();
            QTest::newRow(qPrintable(name + "max")) << type << title << max << QString();
            for (int v : {min - 1, max + 1})
                QTest::newRow(qPrintable(name + QString::number(v)))
                    << type << title << v << prefix + out.arg(title).arg(v).arg(min).arg(max);
        }
        for (const char* unchecked : {"G.S", "Tag", "T1st", "sp1"})
            QTest::newRow(unchecked) << 0 << unchecked << 99999 << QString();
    }
    void ranges()
    {
        QFETCH(int, ev1Type);
        QFETCH(QString, title);
        QFETCH(int, value);
        QFETCH(QString, message);
        // EV2 an absolute value deviation event, EV3 an MV/MFB event.
        const auto p = WriteParameters::fromList({-10, 10, ev1Type, 4, 8});
        QString error("untouched");
        QCOMPARE(checkValueRange(p, title, value, error), message.isEmpty());
        QCOMPARE(error, message.isEmpty() ? QString("untouched") : message);
    }

    void cells_data()
    {
        QTest::addColumn<int>("segment");
        QTest::addColumn<Cells>("changes");
        QTest::addColumn<int>("word");
        QTest::addColumn<QString>("hex");
        QTest::addColumn<QStringList>("errors");
        const QString noNumber("The format of %1 is incorrect.Maybe the negative symbol is not "
                               "ASCII code or the value is not number.");
        const QString tOrder("The value of T%1 2nd must be bigger than the value of T%1 1st.");
        const QString tagError(
            "The each character of Tag can only be Numerics, Capital letters and Symbols.");
        auto good = [](const char* name, int segment, const Cells& changes, int word,
                       const char* hex) {
            QTest::newRow(name) << segment << changes << word << QString(hex) << QStringList();
        };
        auto bad = [](const char* name, int segment, const Cells& changes,
                      const QStringList& errors) {
            QTest::newRow(name) << segment << changes << -1 << QString() << errors;
        };
        good("valid 1", 1, {}, 0, "0064005A0000");
        good("valid 2", 2, {}, 19, "00010000");
        good("TIME 99:59", 2, {{2, "99:59"}}, 1, "176F");
        bad("TIME 100:00", 2, {{2, "100:00"}}, {"TIME [6000] is out of range (0 ~ 5999)."});
        good("TIME 1:75", 2, {{2, "1:75"}}, 1, "0087");
        bad("TIME ----", 2, {{2, "----"}},
            {"The format of TM is incorrect. There is no \":\" symbol."});
        bad("TIME -1:00", 2, {{2, "-1:00"}}, {"The format of TM's hour is incorrect."});
        bad("TIME 1:", 2, {{2, "1:"}}, {"The format of TM's minute is incorrect."});
        good("T 1.5 and 2", 2, {{9, "1.5"}, {10, "2"}}, 9, "00410078");
        bad("T -1.30", 2, {{9, "-1.30"}}, {"T1 1st [-30] is out of range (0 ~ 5999)."});
        bad("T reversed, T equal", 2, {{9, "3"}, {10, "2"}, {17, "2.00"}, {18, "2"}},
            {tOrder.arg(1), tOrder.arg(5)});
        good("T 2nd or 1st unset", 2, {{9, "3"}, {10, "----"}, {11, "----"}, {12, "0.00"}}, 9,
             "00B47FFF7FFF0000");
        bad("T bad format skips order", 2, {{9, "x"}, {10, "0.30"}},
            {"The format of T1 1st is incorrect."});
        bad("T out of range still ordered", 2, {{9, "100"}, {10, "1"}},
            {"T1 1st [6000] is out of range (0 ~ 5999).", tOrder.arg(1)});
        good("SP1 low edge", 2, {{1, "-1999"}}, 0, "F831");
        good("SP1 ----", 2, {{1, "----"}}, 0, "7FFF");
        bad("en dash", 2, {{1, "\u20135"}}, {noNumber.arg("SP1")});
        good("EV time 5999/----", 2, {{7, "5999"}, {8, "----"}}, 7, "176F7FFF");
        bad("EV time 5999/0", 2, {{7, "5999"}, {8, "0"}},
            {"In case of time event; The value of EV3 2nd must be [----] when the "
             "value of EV3 1st is 5999."});
        // Two blanks after the prefix in this one message.
        const QString evOrder("In case of time event;  The value of EV3 2nd must be bigger than "
                              "the value of EV3 1st.");
        bad("EV time 100/100", 2, {{7, "100"}, {8, "100"}}, {evOrder});
        good("EV time ----/0", 2, {{7, "----"}, {8, "0"}}, 7, "7FFF0000");
        bad("EV time bad/0", 2, {{7, "x"}, {8, "0"}}, {noNumber.arg("EV3 1st"), evOrder});
        good("EV PV 100/100", 2, {{3, "100"}, {4, "100"}}, 3, "00640064");
        // G.S. is titled with a point in its message.
        bad("program-wide and guarantee cells", 1,
            {{20, "1001"}, {21, "6000"}, {22, "2"}, {23, "10000"}, {24, "20"}},
            {"G.S. [1001] is out of range (0 ~ 1000).", "G.S.TO [6000] is out of range (0 ~ 5999).",
             "P.STA [2] is out of range (0 ~ 1).", "CYCL [10000] is out of range (0 ~ 9999).",
             "P.LIN [20] is out of range (0 ~ 19)."});
        good("segment 2 ignores the last four", 2, {{22, "x"}, {23, "x"}, {24, "x"}, {25, "{"}}, 22,
             "7FFF");
        good("tag ab", 1, {{25, "ab"}}, 26, "4142202020202020");
        good("tag symbols", 1, {{25, " _^@!"}}, 26, "205F5E4021202020");
        bad("tag braces fail once", 1, {{25, "a{b}"}}, {tagError});
        bad("tag backquote", 1, {{25, "`"}}, {tagError});
        good("tag cut to 8, the rest unchecked", 1, {{25, "ABCDEFGH{"}}, 26, "4142434445464748");
        bad("all errors in column order", 1,
            {{1, "x"}, {2, "1-30"}, {4, "-1"}, {9, "3"}, {10, "1"}, {19, "9"}, {25, "{"}},
            {noNumber.arg("SP1"), "The format of TM is incorrect. There is no \":\" symbol.",
             "In case of PV type event; EV1 2nd [-1] is out of range (0 ~ 5999).", tOrder.arg(1),
             "PID1 [9] is out of range (0 ~ 8).", tagError});
    }
    void cells()
    {
        QFETCH(int, segment);
        QFETCH(Cells, changes);
        QFETCH(int, word);
        QFETCH(QString, hex);
        QFETCH(QStringList, errors);
        QStringList row = validRow(segment);
        for (auto it = changes.cbegin(); it != changes.cend(); ++it)
            row[it.key()] = it.value();
        QString out;
        QStringList reported;
        QCOMPARE(CSV2HEX(params, segment, row, out, reported), errors.isEmpty());
        QCOMPARE(reported, errors);
        if (errors.isEmpty()) {
            QCOMPARE(out.size(), segment == 1 ? LongRecordLength : ShortRecordLength);
            QCOMPARE(out.mid(word * 4, hex.size()), hex);
        }
    }

    // Bad cells everywhere: a count error stops before any of them.
    void cellCount()
    {
        // Segment, cells given, cells found after the trimming, cells required.
        const QList<QList<int>> cases{{2, 25, 20, 21}, {2, 27, 22, 21}, {1, 25, 24, 25},
                                      {1, 27, 26, 25}, {2, 3, 0, 21},   {1, 0, 0, 25}};
        const QString message("The number of cells is incorrect: found %1, required %2.");
        for (const QList<int>& c : cases) {
            QStringList row = QVector<QString>(c[1], "x").toList();
            QString out;
            QStringList errors;
            QVERIFY(!CSV2HEX(params, c[0], row, out, errors));
            QCOMPARE(errors, QStringList{message.arg(c[2]).arg(c[3])});
            QVERIFY(out.isEmpty());
        }
    }

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
        QTEST(ControllerFrames::getErrorMessageByStatusCodeFromPLC(code), "message");
    }

    // "01" is taken like "00", STX is not examined, a status cut short is a
    // refusal. Each command's outcomes are the exchange suite's.
    void replies()
    {
        using ControllerFrames::checkReply;
        const QString stx(QChar(2));
        QCOMPARE(checkReply(stx + "0100X01,FR,1,1,0000").outcome, ReplyOutcome::Accepted);
        QCOMPARE(checkReply("?0100X00").outcome, ReplyOutcome::Accepted);
        QCOMPARE(checkReply("0100X00").outcome, ReplyOutcome::HeaderFailure);
        QCOMPARE(checkReply(stx + "0100X0").outcome, ReplyOutcome::ControllerError);
    }
};

QTEST_GUILESS_MAIN(TestSegmentCodec)
#include "tst_segmentcodec.moc"

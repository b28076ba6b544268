// Segment records to rows and back with every cell check; status messages.
#include <QtTest>

#include "driver/controllerframes.h"
#include "driver/segmentcodec.h"

using namespace SegmentCodec;

// EV1 a PV event, EV2 an absolute value deviation event, EV3 a time event.
const WriteParameters params = WriteParameters::fromList({-1999, 32767, 0, 4, 50});

class TestSegmentCodec : public QObject
{
    Q_OBJECT

private slots:
    // Rows as shown (the length alone decides on the program-wide cells); a
    // full record encodes back, the skipped words 2 and 20 as 0000.
    void records_data()
    {
        QTest::addColumn<int>("segment");
        QTest::addColumn<QString>("record");
        QTest::addColumn<QString>("row"); // cells joined with ","
        const QString zeros = QString("0.00,").repeated(10);
        QTest::newRow("long")
            << 1
            << "7FFF176F1234FFFF7FFF270F7FFF176F7FFF0005005A7FFF00010000176F7FFF7FFF"
               "000100020008ABCD03E87FFF0001270F00134142202020205F20"
            << "SEG1,32767,99:59,-1,----,9999,----,5999,----,0.05,1.30,----,0.01,"
               "0.00,99.59,----,----,0.01,0.02,8,1000,----,1,9999,19,AB    _ ";
        QTest::newRow("short")
            << 30
            << "F831005A0000FF9C7FFF00007FFF7FFF00000000000100020003000400050006"
               "00070008176F000000007FFF0000"
            << "SEG30,-1999,01:30,-100,----,0,----,----,0,0.00,0.01,0.02,0.03,0.04,"
               "0.05,0.06,0.07,0.08,99.59,0,----,0,----,----,----,----";
        QTest::newRow("100 digits are short")
            << 1 << QString(100, '0').replace(4, 4, "005A")
            << "SEG1,0,01:30,0,0,0,0,0,0," + zeros + "0,0,0,----,----,----,----";
        QTest::newRow("101 digits are long, bad digits 0")
            << 12 << QString(101, '0').replace(0, 4, "1G2F")
            << "SEG12,4143,00:00,0,0,0,0,0,0," + zeros + "0,0,0,0,0,0," + QString(8, QChar(0));
    }
    void records()
    {
        QFETCH(int, segment);
        QFETCH(QString, record);
        QStringList row = recordToRow(segment, record);
        QTEST(row.join(QLatin1Char(',')), "row");
        if (record.size() != LongRecordLength && record.size() != ShortRecordLength)
            return;
        QString encoded;
        QStringList errors;
        QVERIFY2(CSV2HEX(params, segment, row, encoded, errors), qPrintable(errors.join(" | ")));
        QCOMPARE(encoded, record.replace(8, 4, "0000").replace(80, 4, "0000"));
    }

    // Event ranges by EV1's type code (-1 is of no kind), a 2nd value's
    // prefix, EV2 by its own type; SP1 by the parameters.
    void ranges()
    {
        const QString pv("In case of PV type event; "),
            abs("In case of absolute value deviation event; ");
        const QString mv("In case of MV/MFB event; "), time("In case of time event; ");
        const std::tuple<int, const char*, int, int, QString> edges[] = {
            {1, "EV1 1st", -1999, 9999, pv}, {4, "EV1 1st", 0, 9999, abs},
            {11, "EV1 1st", -100, 1100, mv}, {50, "EV1 1st", 0, 5999, time},
            {12, "EV1 1st", 0, 5999, " "},   {-1, "EV1 1st", 0, 5999, " "},
            {8, "EV1 2nd", 0, 5999, mv},     {0, "EV2 1st", 0, 9999, abs},
            {0, "SP1", -10, 10, ""}};
        for (const auto& [type, title, min, max, prefix] : edges) {
            for (int v : {min - 1, min, max, max + 1}) {
                const bool in = v >= min && v <= max;
                const auto p = WriteParameters::fromList({-10, 10, type, 4, 8});
                const QString out = QString("%1 [%2] is out of range (%3 ~ %4).").arg(title).arg(v);
                QString error("untouched");
                QCOMPARE(checkValueRange(p, title, v, error), in);
                QCOMPARE(error, in ? QString("untouched") : prefix + out.arg(min).arg(max));
            }
        }
    }

    // The base row with cells changed: its errors, or its hex from `word` on.
    void cells_data()
    {
        QTest::addColumn<int>("segment");
        QTest::addColumn<QString>("changes"); // "column=cell|..."
        QTest::addColumn<int>("word");
        QTest::addColumn<QString>("hex");
        QTest::addColumn<QStringList>("errors");
        const QString noNumber("The format of %1 is incorrect.Maybe the negative symbol is not "
                               "ASCII code or the value is not number.");
        const QString tOrder("The value of T%1 2nd must be bigger than the value of T%1 1st.");
        const QString evOrder("In case of time event;  The value of EV3 2nd must be bigger than "
                              "the value of EV3 1st.");
        auto row = [](const char* name, int segment, const char* changes, const QStringList& errors,
                      int word = -1, const char* hex = "") {
            QTest::newRow(name) << segment << QString(changes) << word << QString(hex) << errors;
        };
        row("SP1 ----, TIME 1:75, EV PV 100/100, T 1.5 and 2, the last four ignored", 2,
            "1=----|2=1:75|3=100|4=100|9=1.5|10=2|22=x|25={", {}, 0,
            "7FFF00870000006400640000001E0005000A00410078");
        row("tag ab, codes 32 and 95", 1, "25=ab _", {}, 26, "4142205F20202020");
        row("tag cut to 8, the rest unchecked", 1, "25=ABCDEFGH{", {}, 26, "4142434445464748");
        row("TIME 100:00, EV time 100/100", 2, "2=100:00|7=100|8=100",
            {"TIME [6000] is out of range (0 ~ 5999).", evOrder});
        row("TIME -1:00, EV time bad/0", 2, "2=-1:00|7=x|8=0",
            {"The format of TM's hour is incorrect.", noNumber.arg("EV3 1st"), evOrder});
        row("TIME 1:", 2, "2=1:", {"The format of TM's minute is incorrect."});
        row("every column, in column order", 1,
            "1=x|2=----|4=-1|7=5999|8=0|9=-1.30|11=1.x|15=2|16=2|17=3|18=2|19=9|20=1001|21=6000|"
            "22=2|23=10000|24=20|25=a{`}",
            {noNumber.arg("SP1"), "The format of TM is incorrect. There is no \":\" symbol.",
             "In case of PV type event; EV1 2nd [-1] is out of range (0 ~ 5999).",
             "In case of time event; The value of EV3 2nd must be [----] when the value of EV3 1st "
             "is 5999.",
             "T1 1st [-30] is out of range (0 ~ 5999).", "The format of T2 1st is incorrect.",
             tOrder.arg(4), tOrder.arg(5), "PID1 [9] is out of range (0 ~ 8).",
             "G.S. [1001] is out of range (0 ~ 1000).", "G.S.TO [6000] is out of range (0 ~ 5999).",
             "P.STA [2] is out of range (0 ~ 1).", "CYCL [10000] is out of range (0 ~ 9999).",
             "P.LIN [20] is out of range (0 ~ 19).",
             "The each character of Tag can only be Numerics, Capital letters and Symbols."});
    }
    void cells()
    {
        QFETCH(int, segment);
        QFETCH(QString, changes);
        QFETCH(int, word);
        QFETCH(QString, hex);
        QFETCH(QStringList, errors);
        const QString middle = "100,01:30,10,20,0,30,5,10,1.00,2.00" + QString(",----").repeated(8);
        QStringList row =
            QString("SEG%1,%2,1,----,----,0,1,0,AB").arg(segment).arg(middle).split(',');
        for (const QString& change : changes.split(QLatin1Char('|')))
            row[change.section('=', 0, 0).toInt()] = change.section('=', 1);
        QString out;
        QStringList reported;
        QCOMPARE(CSV2HEX(params, segment, row, out, reported), errors.isEmpty());
        QCOMPARE(reported, errors);
        if (errors.isEmpty()) {
            QCOMPARE(out.size(), segment == 1 ? LongRecordLength : ShortRecordLength);
            QCOMPARE(out.mid(word * 4, hex.size()), hex);
        }
    }

    // A count error stops before the bad cells. Segment, cells given, cells
    // found after the trimming, cells required.
    void cellCount()
    {
        const int cases[][4] = {
            {2, 25, 20, 21}, {2, 27, 22, 21}, {1, 25, 24, 25}, {1, 27, 26, 25}, {2, 3, 0, 21}};
        const QString message("The number of cells is incorrect: found %1, required %2.");
        for (const auto& c : cases) {
            QStringList row = QVector<QString>(c[1], "x").toList();
            QString out;
            QStringList errors;
            QVERIFY(!CSV2HEX(params, c[0], row, out, errors));
            QCOMPARE(errors.join("|") + out, message.arg(c[2]).arg(c[3]));
        }
    }

    void statusMessages()
    {
        for (const QString line :
             {"40 Request message is in error.",
              "41 The number of data is over 16. (Including read data count of RS request).",
              "42 The data address is not defined. All of message has been cancelled.",
              "44 The value of write data is out of the limit. Processing is continued except for "
              "the relevant data address.",
              "45 The data cannot be written according to the status of DCP31/32. (Settings can be "
              "changed only READY mode regarding all of setup items and some of event "
              "configuration data) Write is attempted to the write inhibit data address.",
              "47 Mode can not be changed.",
              "48 Operation keys of console are operated by an operator. Send the request message "
              "after key operation.",
              "50 File is already open.", "51 File is not open yet.",
              "52 Program number or segment number is in error. No program in the segment.",
              "54 Attribute of File OPEN is violated.",
              "57 Block data of File block WRITE is in error.",
              "58 The program being run cannot be deleted.",
              "59 File OPEN, File block WRITE and File DELETE are inhibited.",
              "99 The command is undefined.", "43 "})
            QCOMPARE(ControllerFrames::getErrorMessageByStatusCodeFromPLC(line.left(2)),
                     line.mid(3));
    }
};

QTEST_GUILESS_MAIN(TestSegmentCodec)
#include "tst_segmentcodec.moc"

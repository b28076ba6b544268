#ifndef SEGMENTCODEC_H
#define SEGMENTCODEC_H

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

// Conversion between a segment record (the controller's hexadecimal text,
// four digits per 16-bit word) and a row of the program table, and the
// checking of every cell before a row goes to the controller. Pure code:
// the worker's slots and the host tool's offline check both call these.
namespace SegmentCodec
{

// Record lengths in hex digits: segment 1 carries the program-wide items.
constexpr int LongRecordLength = 120;
constexpr int ShortRecordLength = 92;
// Cells in every table row, label and tag included.
constexpr int ColumnCount = 26;
// Data cells a row must have after its label (and, for segments other than
// 1, its four program-wide cells) are removed.
constexpr int LongRowDataCells = 25;
constexpr int ShortRowDataCells = 21;

// The controller parameters read before a program write: setpoint limits
// of SP1 and the event type codes of EV1..EV3.
struct WriteParameters {
    qint32 spLowLimit = 0;
    qint32 spHighLimit = 0;
    qint32 ev1Type = 0;
    qint32 ev2Type = 0;
    qint32 ev3Type = 0;

    // Elements 0..4 in member order; a missing element counts as 0 and
    // further elements are ignored.
    static WriteParameters fromList(const QList<qint32>& paras);
    // The type code of event 1..3; no event number gives -1 (no kind).
    qint32 eventType(int event) const;
};

// Event kinds as the checks distinguish them by type code.
enum class EventKind { None, PV, AbsoluteDeviation, MvMfb, Time };
EventKind eventKind(qint32 typeCode);

// The header row: 26 cells, the first "-".
QStringList headerRow();
// Appends the header row to datas.
void generalHead(QList<QStringList>& datas);

// Decodes a segment record into a 26-cell row labelled "SEG<segment>". Never
// fails: each of a word's four characters that is not a hex digit, or lies
// beyond the end of indata, counts as the digit 0; characters past the 120th
// are ignored. Over 100 characters means a long record (the choice does not
// depend on the segment number); otherwise the program-wide cells are "----".
QStringList recordToRow(int segment, const QString& indata);
// Appends recordToRow(segment, indata) to datas.
void HEX2CSV(int segment, const QString& indata, QList<QStringList>& datas);

// The 16-bit two's complement of value as four upper-case hex digits.
QString wordHex(qint32 value);

// True when value lies within the range that cellTitle selects (inclusive)
// or the title selects none; otherwise error is set to the range message.
bool checkValueRange(const WriteParameters& params, const QString& cellTitle, qint32 value,
                     QString& error);

// Converts the first cell of inDatas (removing it) as a plain integer cell
// titled cellTitle. "----" gives "7FFF" without a range check. Numbers are
// parsed as QString::toInt does: white space around the digits, a leading
// '+' and the Unicode minus sign (U+2212) are accepted; inner blanks,
// decimal points, other dashes and non-ASCII digits are format errors (the
// hours and minutes of TIME and of the T cells are parsed the same way,
// TIME's as unsigned numbers). decCellIntValue is -1 for
// "----", 0 for a cell that is no number, else the number. Hex text is
// appended to outData only while noError holds; any error clears noError.
// A missing cell counts as an empty one.
bool CSVCell2HEX(const WriteParameters& params, QStringList& inDatas, QString& outData,
                 QStringList& errorList, bool& noError, const QString& cellTitle,
                 qint32& decCellIntValue);

// Checks one table row (label first) for segment and appends its record
// (120 digits for segment 1, 92 otherwise) to outData; every problem goes to
// errorList in column order. inDatas is consumed. Returns true when the row
// has no error; otherwise outData holds an incomplete record.
//
// A row whose cell count is wrong gets the single message "The number of
// cells is incorrect: found N, required M." (N counted after
// the label and, for segments other than 1, the last four cells are
// dropped; a row too short for that counts 0) and no cell is examined.
// A T pair must be ascending only when both cells hold times; a time out of
// range still counts, "----" (unset) and a cell with a format error do not.
bool CSV2HEX(const WriteParameters& params, int segment, QStringList& inDatas, QString& outData,
             QStringList& errorList);

// CSV2HEX on a copy of datas[segment - 1] (a table without its header row).
// A row that is not there is reported as a row with no cells.
bool validateDataRow(const WriteParameters& params, int segment, const QList<QStringList>& datas,
                     QString& outputData, QStringList& errorList);

// The row checks of a program write of segments 1..segmentCnt, before
// anything is sent: the records of the rows that pass, by segment number;
// in errorList, in segment order, "Segment %1 has no data in the csv
// file. Please check it." for a missing row and, for a row that fails,
// its format-error heading followed by one tab-indented line per problem;
// last, when segments were asked for and none passed, "There is no data to
// write out...".
QMap<int, QString> checkSegments(const WriteParameters& params, const QList<QStringList>& rows,
                                 int segmentCnt, QStringList& errorList);

} // namespace SegmentCodec

#endif

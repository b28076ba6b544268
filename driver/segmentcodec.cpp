#include "driver/segmentcodec.h"

namespace SegmentCodec
{

namespace
{

const QLatin1String NotSetWord("7FFF");
const QLatin1String NotSetCell("----");
const QLatin1String ReservedWord("0000");

// Record layout: character offsets of the words.
constexpr int SpPos = 0;
constexpr int TimePos = 4;
constexpr int FirstEventPos = 12;
constexpr int FirstTimeEventPos = 36;
constexpr int PidPos = 76;
constexpr int GuaranteedSoakPos = 84;
constexpr int GuaranteedSoakTimeoutPos = 88;
constexpr int ProgramStartPos = 92;
constexpr int CyclePos = 96;
constexpr int ProgramLinkPos = 100;
constexpr int TagPos = 104;
constexpr int TagLength = 8;
// A record longer than this carries the program-wide items.
constexpr int ShortRecordMaxLength = 100;

constexpr int EventCount = 3;
constexpr int TimeEventCount = 5;
constexpr int TimeEventType = 50;
constexpr int MaxMinutes = 5999;

// A character that is not a hex digit counts as 0, as does one past the end.
int hexDigit(const QString& text, int pos)
{
    if (pos >= text.size())
        return 0;
    const ushort c = text.at(pos).unicode();
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return 0;
}

qint16 signedWord(const QString& text, int pos)
{
    quint16 word = 0;
    for (int i = 0; i < 4; ++i)
        word = quint16((word << 4) | hexDigit(text, pos + i));
    return qint16(word);
}

bool isNotSet(const QString& text, int pos)
{
    return text.midRef(pos, 4) == NotSetWord;
}

QString numberCell(const QString& text, int pos)
{
    return QString::number(signedWord(text, pos));
}

QString optionalNumberCell(const QString& text, int pos)
{
    return isNotSet(text, pos) ? QString(NotSetCell) : numberCell(text, pos);
}

QString timeEventCell(const QString& text, int pos)
{
    if (isNotSet(text, pos))
        return NotSetCell;
    const int minutes = signedWord(text, pos);
    return QStringLiteral("%1.%2").arg(minutes / 60).arg(minutes % 60, 2, 10, QChar('0'));
}

QString eventPrefix(EventKind kind)
{
    switch (kind) {
    case EventKind::PV:
        return QStringLiteral("In case of PV type event;");
    case EventKind::AbsoluteDeviation:
        return QStringLiteral("In case of absolute value deviation event;");
    case EventKind::MvMfb:
        return QStringLiteral("In case of MV/MFB event;");
    case EventKind::Time:
        return QStringLiteral("In case of time event;");
    case EventKind::None:
        break;
    }
    return QString();
}

struct Range {
    qint64 min = 0;
    qint64 max = 0;
    bool isEvent = false;
    EventKind kind = EventKind::None;
};

// The range a title selects; false for a title that selects none. The
// first matching rule wins, so "TIME" never reaches the T-cell rule.
bool rangeFor(const WriteParameters& params, const QString& title, Range& range)
{
    if (title == QLatin1String("SP1")) {
        range.min = params.spLowLimit;
        range.max = params.spHighLimit;
        return true;
    }
    if (title == QLatin1String("P.LIN")) {
        range.max = 19;
        return true;
    }
    if (title.startsWith(QLatin1String("EV"))) {
        // The event number is the title's third character ("EV2 1st").
        const int event = title.size() > 2 ? title.at(2).digitValue() : -1;
        range.isEvent = true;
        range.kind = eventKind(params.eventType(event));
        range.min = 0;
        range.max = MaxMinutes;
        if (title.endsWith(QLatin1String("1st"))) {
            switch (range.kind) {
            case EventKind::PV:
                range.min = -1999;
                range.max = 9999;
                break;
            case EventKind::AbsoluteDeviation:
                range.max = 9999;
                break;
            case EventKind::MvMfb:
                range.min = -100;
                range.max = 1100;
                break;
            case EventKind::Time:
            case EventKind::None:
                break;
            }
        }
        return true;
    }
    struct Fixed {
        const char* title;
        int max;
    };
    static const Fixed fixed[] = {{"CYCL", 9999},         {"P.STA", 1}, {"G.S.", 1000},
                                  {"G.S.TO", MaxMinutes}, {"PID1", 8},  {"TIME", MaxMinutes}};
    for (const Fixed& f : fixed) {
        if (title == QLatin1String(f.title)) {
            range.max = f.max;
            return true;
        }
    }
    if (title.startsWith(QLatin1Char('T')) && title.size() == 6) {
        range.max = MaxMinutes;
        return true;
    }
    return false;
}

// Wider than checkValueRange's qint32 so that a time whose hours overflow
// 32 bits once turned into minutes is reported with its true value.
bool checkRange(const WriteParameters& params, const QString& title, qint64 value, QString& error)
{
    Range range;
    if (!rangeFor(params, title, range) || (value >= range.min && value <= range.max))
        return true;
    error = QStringLiteral("%1 [%2] is out of range (%3 ~ %4).")
                .arg(title, QString::number(value), QString::number(range.min),
                     QString::number(range.max));
    if (range.isEvent)
        error = eventPrefix(range.kind) + QLatin1Char(' ') + error;
    return false;
}

// Collects a row's problems; the first one stops the record from growing
// but not the checking.
struct RowState {
    QString& out;
    QStringList& errors;
    bool noError = true;

    void fail(const QString& message)
    {
        errors << message;
        noError = false;
    }
    void append(const QString& hex)
    {
        if (noError)
            out += hex;
    }
    // Range-checks a computed value and appends its word.
    void appendChecked(const WriteParameters& params, const QString& title, qint64 value)
    {
        QString error;
        if (!checkRange(params, title, value, error))
            fail(error);
        else
            append(wordHex(qint32(value)));
    }
};

QString takeCell(QStringList& cells)
{
    return cells.isEmpty() ? QString() : cells.takeFirst();
}

// TIME: "h:m", both unsigned, total minutes 0..5999 (minutes may pass 59).
void encodeSegmentTime(const WriteParameters& params, const QString& cell, RowState& row)
{
    if (!cell.contains(QLatin1Char(':'))) {
        row.fail(QStringLiteral("The format of TM is incorrect. There is no \":\" symbol."));
        return;
    }
    const QStringList parts = cell.split(QLatin1Char(':'));
    bool ok = false;
    const uint hours = parts.at(0).toUInt(&ok);
    if (!ok) {
        row.fail(QStringLiteral("The format of TM's hour is incorrect."));
        return;
    }
    const uint minutes = parts.at(1).toUInt(&ok);
    if (!ok) {
        row.fail(QStringLiteral("The format of TM's minute is incorrect."));
        return;
    }
    row.appendChecked(params, QStringLiteral("TIME"), qint64(hours) * 60 + minutes);
}

// A time-event cell: "----", "h" or "h.mm" (signed). Returns true and the
// total minutes when the cell holds a time, in range or not.
bool encodeTimeEventCell(const WriteParameters& params, const QString& cell, const QString& title,
                         RowState& row, qint64& total)
{
    if (cell == NotSetCell) {
        row.append(NotSetWord);
        return false;
    }
    bool ok = false;
    qint64 hours = 0;
    qint64 minutes = 0;
    const int dot = cell.indexOf(QLatin1Char('.'));
    if (dot < 0) {
        hours = cell.toInt(&ok);
    } else {
        const QStringList parts = cell.split(QLatin1Char('.'));
        hours = parts.at(0).toInt(&ok);
        if (ok)
            minutes = parts.at(1).toInt(&ok);
    }
    if (!ok) {
        row.fail(QStringLiteral("The format of %1 is incorrect.").arg(title));
        return false;
    }
    total = hours * 60 + minutes;
    row.appendChecked(params, title, total);
    return true;
}

void encodeTag(const QString& cell, RowState& row)
{
    const QString tag = cell.left(TagLength).leftJustified(TagLength, QLatin1Char(' '));
    QString hex;
    bool valid = true;
    for (const QChar c : tag) {
        const ushort code = c.toUpper().unicode();
        if (code >= 32 && code <= 95)
            hex += QStringLiteral("%1").arg(code, 2, 16, QChar('0')).toUpper();
        else
            valid = false;
    }
    if (valid)
        row.append(hex);
    else
        row.fail(QStringLiteral(
            "The each character of Tag can only be Numerics, Capital letters and Symbols."));
}

} // namespace

WriteParameters WriteParameters::fromList(const QList<qint32>& paras)
{
    WriteParameters p;
    p.spLowLimit = paras.value(0);
    p.spHighLimit = paras.value(1);
    p.ev1Type = paras.value(2);
    p.ev2Type = paras.value(3);
    p.ev3Type = paras.value(4);
    return p;
}

qint32 WriteParameters::eventType(int event) const
{
    switch (event) {
    case 1:
        return ev1Type;
    case 2:
        return ev2Type;
    case 3:
        return ev3Type;
    }
    return -1;
}

EventKind eventKind(qint32 typeCode)
{
    // Compared unsigned: a negative code is of no kind.
    const quint32 code = quint32(typeCode);
    if (code <= 1)
        return EventKind::PV;
    if (code == 4 || code == 5)
        return EventKind::AbsoluteDeviation;
    if (code >= 8 && code <= 11)
        return EventKind::MvMfb;
    if (code == TimeEventType)
        return EventKind::Time;
    return EventKind::None;
}

QStringList headerRow()
{
    return QStringLiteral("-,SP1,TIME,EV1 1st,EV1 2nd,EV2 1st,EV2 2nd,EV3 1st,EV3 2nd,T1 1st,"
                          "T1 2nd,T2 1st,T2 2nd,T3 1st,T3 2nd,T4 1st,T4 2nd,T5 1st,T5 2nd,PID1,"
                          "G.S,G.S.TO,P.STA,CYCL,P.LIN,Tag")
        .split(QLatin1Char(','), Qt::KeepEmptyParts, Qt::CaseSensitive);
}

void generalHead(QList<QStringList>& datas)
{
    datas.append(headerRow());
}

QStringList recordToRow(int segment, const QString& indata)
{
    QStringList row;
    row.reserve(ColumnCount);
    row << QStringLiteral("SEG%1").arg(segment);
    row << numberCell(indata, SpPos);
    const int minutes = signedWord(indata, TimePos);
    row << QStringLiteral("%1:%2")
               .arg(minutes / 60, 2, 10, QChar('0'))
               .arg(minutes % 60, 2, 10, QChar('0'));
    for (int i = 0; i < 2 * EventCount; ++i)
        row << optionalNumberCell(indata, FirstEventPos + 4 * i);
    for (int i = 0; i < 2 * TimeEventCount; ++i)
        row << timeEventCell(indata, FirstTimeEventPos + 4 * i);
    row << numberCell(indata, PidPos);
    row << optionalNumberCell(indata, GuaranteedSoakPos);
    row << optionalNumberCell(indata, GuaranteedSoakTimeoutPos);
    if (indata.size() <= ShortRecordMaxLength) {
        for (int i = 0; i < 4; ++i)
            row << NotSetCell;
        return row;
    }
    row << numberCell(indata, ProgramStartPos);
    row << numberCell(indata, CyclePos);
    row << numberCell(indata, ProgramLinkPos);
    QString tag;
    for (int i = 0; i < TagLength; ++i) {
        const int pos = TagPos + 2 * i;
        tag += QChar(ushort(hexDigit(indata, pos) * 16 + hexDigit(indata, pos + 1)));
    }
    row << tag;
    return row;
}

void HEX2CSV(int segment, const QString& indata, QList<QStringList>& datas)
{
    datas.append(recordToRow(segment, indata));
}

QString wordHex(qint32 value)
{
    return QString::number(quint16(value), 16).toUpper().rightJustified(4, QLatin1Char('0'));
}

bool checkValueRange(const WriteParameters& params, const QString& cellTitle, qint32 value,
                     QString& error)
{
    return checkRange(params, cellTitle, value, error);
}

bool CSVCell2HEX(const WriteParameters& params, QStringList& inDatas, QString& outData,
                 QStringList& errorList, bool& noError, const QString& cellTitle,
                 qint32& decCellIntValue)
{
    RowState row{outData, errorList, noError};
    decCellIntValue = -1;
    const QString cell = takeCell(inDatas);
    bool result = true;
    if (cell == NotSetCell) {
        row.append(NotSetWord);
    } else {
        bool ok = false;
        decCellIntValue = cell.toInt(&ok);
        QString error;
        if (!ok) {
            row.fail(QStringLiteral("The format of %1 is incorrect.Maybe the negative symbol is "
                                    "not ASCII code or the value is not number.")
                         .arg(cellTitle));
            result = false;
        } else if (!checkValueRange(params, cellTitle, decCellIntValue, error)) {
            row.fail(error);
            result = false;
        } else {
            row.append(wordHex(decCellIntValue));
        }
    }
    noError = row.noError;
    return result;
}

bool CSV2HEX(const WriteParameters& params, int segment, QStringList& inDatas, QString& outData,
             QStringList& errorList)
{
    const bool longRow = segment == 1;
    if (!inDatas.isEmpty())
        inDatas.removeFirst();
    if (!longRow) {
        // A row too short for the trimming ends up empty and fails the count.
        for (int i = 0; i < 4 && !inDatas.isEmpty(); ++i)
            inDatas.removeLast();
    }
    const int required = longRow ? LongRowDataCells : ShortRowDataCells;
    if (inDatas.size() != required) {
        errorList << QStringLiteral("The number of cells is incorrect: found %1, required %2.")
                         .arg(inDatas.size())
                         .arg(required);
        return false;
    }

    RowState row{outData, errorList};
    qint32 value = 0;
    auto cell = [&](const QString& title, qint32& decValue) {
        CSVCell2HEX(params, inDatas, outData, errorList, row.noError, title, decValue);
    };

    cell(QStringLiteral("SP1"), value);
    encodeSegmentTime(params, takeCell(inDatas), row);
    row.append(ReservedWord);

    for (int n = 1; n <= EventCount; ++n) {
        const QString name = QStringLiteral("EV%1").arg(n);
        // The 5999 rule looks at the 2nd cell's text, not its value.
        const QString secondText = inDatas.value(1);
        qint32 first = 0;
        qint32 second = 0;
        cell(name + QLatin1String(" 1st"), first);
        cell(name + QLatin1String(" 2nd"), second);
        if (params.eventType(n) != TimeEventType)
            continue;
        if (first == MaxMinutes) {
            if (secondText != NotSetCell)
                row.fail(QStringLiteral("In case of time event; The value of %1 2nd must be [----] "
                                        "when the value of %2 1st is 5999.")
                             .arg(name, name));
        } else if (!(first < second)) {
            row.fail(QStringLiteral("In case of time event;  The value of %1 2nd must be bigger "
                                    "than the value of %2 1st.")
                         .arg(name, name));
        }
    }

    for (int n = 1; n <= TimeEventCount; ++n) {
        const QString name = QStringLiteral("T%1").arg(n);
        qint64 first = 0;
        qint64 second = 0;
        const bool hasFirst = encodeTimeEventCell(params, takeCell(inDatas),
                                                  name + QLatin1String(" 1st"), row, first);
        const bool hasSecond = encodeTimeEventCell(params, takeCell(inDatas),
                                                   name + QLatin1String(" 2nd"), row, second);
        // Only a pair of two times can be out of order: "----" is an unset
        // time and a cell that failed its format has been reported already.
        // A time out of range still takes part, as event values do.
        if (hasFirst && hasSecond && second <= first)
            row.fail(QStringLiteral("The value of %1 2nd must be bigger than the value of %1 1st.")
                         .arg(name));
    }

    cell(QStringLiteral("PID1"), value);
    row.append(ReservedWord);
    cell(QStringLiteral("G.S."), value);
    cell(QStringLiteral("G.S.TO"), value);

    if (longRow) {
        cell(QStringLiteral("P.STA"), value);
        cell(QStringLiteral("CYCL"), value);
        cell(QStringLiteral("P.LIN"), value);
        encodeTag(takeCell(inDatas), row);
    }
    return row.noError;
}

bool validateDataRow(const WriteParameters& params, int segment, const QList<QStringList>& datas,
                     QString& outputData, QStringList& errorList)
{
    QStringList row = datas.value(segment - 1);
    return CSV2HEX(params, segment, row, outputData, errorList);
}

QMap<int, QString> checkSegments(const WriteParameters& params, const QList<QStringList>& rows,
                                 int segmentCnt, QStringList& errorList)
{
    QMap<int, QString> records;
    for (int segment = 1; segment <= segmentCnt; ++segment) {
        if (rows.size() < segment) {
            errorList << QStringLiteral("Segment %1 has no data in the csv file. Please check it.")
                             .arg(segment);
            continue;
        }
        QString record;
        QStringList segmentErrors;
        if (validateDataRow(params, segment, rows, record, segmentErrors)) {
            records.insert(segment, record);
            continue;
        }
        errorList << QStringLiteral("\n\tSegment %1 has following format error : ").arg(segment);
        for (const QString& problem : qAsConst(segmentErrors))
            errorList << QStringLiteral("\t\t%1").arg(problem);
    }
    if (segmentCnt >= 1 && records.isEmpty())
        errorList << QStringLiteral(
            "\nThere is no data to write out. Maybe the format of all segments are incorrect.");
    return records;
}

} // namespace SegmentCodec

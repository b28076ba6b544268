// Rows of arbitrary cells through the segment validator, and arbitrary text
// through the record decoder.
//
// Input: byte 0 the segment number (signed), bytes 1-8 the setpoint limits
// (two little-endian int32), bytes 9-11 the event type codes (signed), then
// UTF-8 text: rows split at '\n', cells at '\t'.
//
// Besides surviving, the codec must keep its promises: a row that passes
// yields a record of the right length in upper-case hex and no message; a
// row that fails yields at least one message; any text decodes to a full
// row; and a record that passed, decoded and checked again, comes back
// unchanged whenever it passes the second time.
#include "driver/segmentcodec.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

using namespace SegmentCodec;

namespace
{

void require(bool condition)
{
    if (!condition)
        std::abort();
}

qint32 int32At(const uint8_t* data)
{
    quint32 v = 0;
    for (int i = 3; i >= 0; --i)
        v = (v << 8) | data[i];
    return qint32(v);
}

bool isRecordText(const QString& record)
{
    for (QChar c : record) {
        const ushort u = c.unicode();
        if (!((u >= '0' && u <= '9') || (u >= 'A' && u <= 'F')))
            return false;
    }
    return true;
}

void checkRow(const WriteParameters& params, int segment, const QStringList& cells)
{
    QStringList row = cells;
    QString record;
    QStringList errors;
    const bool ok = CSV2HEX(params, segment, row, record, errors);
    require(ok == errors.isEmpty());
    if (!ok)
        return;
    require(record.size() == (segment == 1 ? LongRecordLength : ShortRecordLength));
    require(isRecordText(record));

    QStringList decoded = recordToRow(segment, record);
    require(decoded.size() == ColumnCount);
    QString again;
    QStringList againErrors;
    if (CSV2HEX(params, segment, decoded, again, againErrors))
        require(again == record);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    constexpr size_t HeaderSize = 12;
    if (size < HeaderSize)
        return 0;
    const int segment = int8_t(data[0]);
    WriteParameters params;
    params.spLowLimit = int32At(data + 1);
    params.spHighLimit = int32At(data + 5);
    params.ev1Type = int8_t(data[9]);
    params.ev2Type = int8_t(data[10]);
    params.ev3Type = int8_t(data[11]);
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char*>(data + HeaderSize), int(size - HeaderSize));

    require(recordToRow(segment, text).size() == ColumnCount);

    QList<QStringList> table;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        const QStringList cells = line.split(QLatin1Char('\t'));
        table << cells;
        checkRow(params, segment, cells);
        checkRow(params, 1, cells);
        require(recordToRow(segment, line).size() == ColumnCount);

        QString error;
        const qint32 value = int32At(data + 1) ^ int32At(data + 8);
        for (const QString& cell : cells) {
            if (!checkValueRange(params, cell, value, error))
                require(error.contains(QLatin1String("] is out of range (")));
        }
    }
    for (int s = 0; s <= table.size() + 1; ++s) {
        QString record;
        QStringList errors;
        validateDataRow(params, s, table, record, errors);
    }
    return 0;
}

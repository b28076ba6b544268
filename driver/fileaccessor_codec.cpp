// The FileAccessor worker's codec slots: the conversion itself is
// SegmentCodec's; the worker adds the write parameters of the running write.
#include "driver/fileaccessor.h"

SegmentCodec::WriteParameters FileAccessor::writeParameters() const
{
    SegmentCodec::WriteParameters params;
    params.spLowLimit = spLowLimit;
    params.spHighLimit = spHighLimit;
    params.ev1Type = ev1Type;
    params.ev2Type = ev2Type;
    params.ev3Type = ev3Type;
    return params;
}

bool FileAccessor::checkValueRange(QString cellTitle, qint32 value, QString& error)
{
    return SegmentCodec::checkValueRange(writeParameters(), cellTitle, value, error);
}

void FileAccessor::HEX2CSV(int segment, QString& indata, QList<QStringList>& datas)
{
    SegmentCodec::HEX2CSV(segment, indata, datas);
}

bool FileAccessor::CSV2HEX(int segment, QStringList& inDatas, QString& outData,
                           QStringList& errorList)
{
    return SegmentCodec::CSV2HEX(writeParameters(), segment, inDatas, outData, errorList);
}

bool FileAccessor::CSVCell2HEX(QStringList& inDatas, QString& outData, QStringList& errorList,
                               bool& noError, const QString& cellTitle, qint32& decCellIntValue)
{
    return SegmentCodec::CSVCell2HEX(writeParameters(), inDatas, outData, errorList, noError,
                                     cellTitle, decCellIntValue);
}

void FileAccessor::generalHead(QList<QStringList>& datas)
{
    SegmentCodec::generalHead(datas);
}

bool FileAccessor::validateDataRow(int segment, QList<QStringList>& datas, QString& outputData,
                                   QStringList& errorList)
{
    return SegmentCodec::validateDataRow(writeParameters(), segment, datas, outputData, errorList);
}

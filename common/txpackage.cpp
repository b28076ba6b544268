#include "common/txpackage.h"

#include "common/crc.h"
#include "common/tools.h"

#include <algorithm>
#include <climits>

namespace
{

QByteArray hexByte(unsigned char v)
{
    return QByteArray::number(v, 16).toUpper().rightJustified(2, '0');
}

const unsigned char* bytesOf(const QByteArray& a)
{
    return reinterpret_cast<const unsigned char*>(a.constData());
}

int clampToInt(qint64 v)
{
    return int(qBound<qint64>(INT_MIN, v, INT_MAX));
}

} // namespace

QList<int> EmptyPackageSizeList()
{
    return QList<int>();
}

TxPackage::TxPackage() : buffer(new QByteArray) {}

TxPackage::~TxPackage()
{
    delete buffer;
}

bool TxPackage::appendByte(unsigned char v)
{
    return appendSection(QByteArray(1, static_cast<char>(v)));
}

bool TxPackage::appendWord(unsigned short v)
{
    return appendSection(wordToByteArray(v));
}

bool TxPackage::appendDWord(unsigned int v)
{
    return appendSection(intToByteArray(static_cast<int>(v)));
}

bool TxPackage::appendString(const QString& s)
{
    buffer->append(s.toLatin1());
    sectionSizes.append(s.length());
    return true;
}

bool TxPackage::appendSection(const QByteArray& a)
{
    buffer->append(a);
    sectionSizes.append(a.size());
    return true;
}

bool TxPackage::appendByte2Ascii(unsigned char v)
{
    return appendString(QString::fromLatin1(hexByte(v)));
}

bool TxPackage::appendLRCByte()
{
    return appendByte(UInt8CheckSum(bytesOf(*buffer), buffer->size()));
}

bool TxPackage::appendLRCAscii()
{
    return appendHex(UInt8CheckSum(bytesOf(*buffer), buffer->size()));
}

bool TxPackage::appendFCSAscii(int)
{
    return appendHex(static_cast<unsigned char>(calculateFCS(this, 0)));
}

bool TxPackage::appendHex(unsigned char v)
{
    return appendSection(hexByte(v));
}

int TxPackage::numberOfSections() const
{
    return sectionSizes.size();
}

int TxPackage::totalSize() const
{
    return buffer->size();
}

bool TxPackage::setData(const QByteArray& a)
{
    *buffer = a;
    return true;
}

bool TxPackage::setData(char* p, int len)
{
    // QByteArray(p, negative) would read up to a zero byte: refuse instead.
    if (!p || len <= 0)
        buffer->clear();
    else
        *buffer = QByteArray(p, len);
    return true;
}

char* TxPackage::data()
{
    return buffer->data();
}

QByteArray TxPackage::byteArrayData() const
{
    return *buffer;
}

int TxPackage::calculateFCS(TxPackage* pkg, int n)
{
    if (!pkg)
        return 0;
    const int covered = pkg->buffer->size() - qMax(n, 0);
    return XorUInt8CheckSum(bytesOf(*pkg->buffer), covered);
}

QString TxPackage::toString()
{
    return dumpByteArray(*buffer);
}

bool TxPackage::validSectionNumber(int i) const
{
    return i >= 0 && i < numberOfSections();
}

int TxPackage::sectionStartIndex(int i) const
{
    if (!validSectionNumber(i))
        return -1;
    qint64 start = 0;
    for (int j = 0; j < i; ++j)
        start += sectionSizes.at(j);
    return clampToInt(start);
}

int TxPackage::sectionSize(int i) const
{
    if (!validSectionNumber(i))
        return 0;
    const int entry = sectionSizes.at(i);
    if (entry >= 0)
        return entry;
    // Only one level of indirection: a length section must hold its own length,
    // so a chain (or a section pointing at itself) cannot recurse.
    const qint64 k = -qint64(entry);
    if (k >= numberOfSections() || sectionSizes.at(int(k)) < 0)
        return 0;
    return QByteArrayToInt(dataAt(int(k)));
}

QByteArray TxPackage::dataAt(int i) const
{
    if (!validSectionNumber(i))
        return QByteArray();
    const int start = sectionStartIndex(i);
    const int size = sectionSize(i);
    if (start < 0 || size <= 0 || start >= buffer->size())
        return QByteArray();
    return buffer->mid(start, size);
}

int TxPackage::arrayToInt(const QByteArray& a) const
{
    return a.isEmpty() ? 0 : static_cast<unsigned char>(a.at(0));
}

void TxPackage::setSectionSize(const QList<int>& sizes)
{
    sectionSizes = sizes;
    qint64 total = 0;
    for (int s : sizes)
        total += s;
    const int oldSize = buffer->size();
    const int newSize = int(qBound<qint64>(0, total, INT_MAX / 2));
    buffer->resize(newSize);
    if (newSize > oldSize)
        std::fill(buffer->begin() + oldSize, buffer->end(), '\0');
}

void TxPackage::clearAll()
{
    buffer->clear();
    sectionSizes.clear();
}

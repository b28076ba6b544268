#ifndef TXPACKAGE_H
#define TXPACKAGE_H

#include <QByteArray>
#include <QList>
#include <QString>

// An empty list of section sizes.
QList<int> EmptyPackageSizeList();

// A protocol frame built field by field. Each field ("section") is remembered
// by its length, so a frame of the same layout can later be picked apart. A
// section entry of -k means "the length is the little-endian 32-bit number at
// the start of section k". Owns its buffer, hence not copyable.
class TxPackage
{
public:
    TxPackage();
    ~TxPackage();
    TxPackage(const TxPackage&) = delete;
    TxPackage& operator=(const TxPackage&) = delete;

    // Every append adds one section and returns true.
    bool appendByte(unsigned char v);
    bool appendWord(unsigned short v);   // little-endian
    bool appendDWord(unsigned int v);    // little-endian
    bool appendString(const QString& s); // Latin-1 text, one byte per character
    bool appendSection(const QByteArray& a);
    bool appendByte2Ascii(unsigned char v); // two upper-case hex digits
    // Sum of all bytes so far, modulo 256: as one byte, or as two hex digits.
    bool appendLRCByte();
    bool appendLRCAscii();
    // Exclusive or of all bytes so far as two hex digits. The argument is
    // accepted for the family's callers and not used: the check always covers
    // the whole buffer.
    bool appendFCSAscii(int n);

    int numberOfSections() const;
    int totalSize() const;

    // Replace the bytes; the section list stays. A null p or len <= 0 empties
    // the buffer.
    bool setData(const QByteArray& a);
    bool setData(char* p, int len);
    char* data();
    QByteArray byteArrayData() const;

    // Exclusive or of pkg's bytes except the last n (n < 0 counts as 0);
    // 0 for a null pkg.
    static int calculateFCS(TxPackage* pkg, int n);
    QString toString();

    bool validSectionNumber(int i) const;
    // -1 for an invalid section number; otherwise the sum of the stored
    // entries of the sections before i (negative entries included, as the
    // family's frames expect).
    int sectionStartIndex(int i) const;
    // The entry of section i, or for an entry -k the number at the start of
    // section k (fewer than four bytes there are zero-extended; a section k
    // that is itself indirect or invalid gives 0). 0 for an invalid i.
    int sectionSize(int i) const;
    // The bytes of section i that lie inside the buffer; empty for an invalid i.
    QByteArray dataAt(int i) const;
    int arrayToInt(const QByteArray& a) const;

    // Lays out a frame: replaces the sections and resizes the buffer to the
    // sum of the entries (never below 0); added bytes are zero.
    void setSectionSize(const QList<int>& sizes);
    void clearAll();

private:
    bool appendHex(unsigned char v);

    QByteArray* buffer;
    QList<int> sectionSizes;
};

#endif

#ifndef SIM_PROGRAMSTORE_H
#define SIM_PROGRAMSTORE_H

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

// The controller's program memory: 19 programs of up to 30 segments, each
// segment held as its hexadecimal record exactly as it travels on the line.
// A program may have gaps (a segment never written); its segment count is
// its highest segment number.
class ProgramStore
{
public:
    static constexpr int ProgramCount = 19;
    static constexpr int MaxSegments = 30;
    static constexpr int LongRecordLength = 120; // segment 1 carries the program-wide items
    static constexpr int ShortRecordLength = 92;

    static bool isValidProgram(int program) { return program >= 1 && program <= ProgramCount; }
    static bool isValidSegment(int segment) { return segment >= 1 && segment <= MaxSegments; }
    static int recordLength(int segment)
    {
        return segment == 1 ? LongRecordLength : ShortRecordLength;
    }
    // True when record has the length that segment requires and only hex digits.
    static bool isValidRecord(int segment, const QByteArray& record);

    // The store the simulator starts with: programs 1, 2 and 3 (see samples.cpp).
    static ProgramStore samples();
    // One line per sample program: number, tag, segments and what it is.
    static QStringList sampleDescriptions();

    void clear() { programs.clear(); }
    // Stores record (upper-cased) as program/segment; false, changing nothing,
    // when any of the three is invalid.
    bool setSegment(int program, int segment, const QByteArray& record);
    // The record, or an empty array when the program has no such segment.
    QByteArray segment(int program, int segment) const;
    bool hasSegment(int program, int segment) const;
    // Highest segment number present, 0 for an empty program.
    int segmentCount(int program) const;
    // Drops every segment above count.
    void truncate(int program, int count);

    // Text form: one line per segment, "program segment record"; blank lines
    // and lines starting with '#' are ignored. Parsing is all or nothing: on
    // an error the store is unchanged and error names the line.
    bool fromText(const QByteArray& text, QString* error);
    QByteArray toText() const;
    bool load(const QString& path, QString* error);
    bool save(const QString& path, QString* error) const;

    bool operator==(const ProgramStore& other) const { return programs == other.programs; }

private:
    QMap<int, QMap<int, QByteArray>> programs;
};

#endif

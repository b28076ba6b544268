#pragma once

// The loader's view of a table file: decoded text arriving in chunks, and
// its lines taken one at a time, so that a load never holds more text than
// a chunk and the line being read. Private to the CSV module; the tests use
// the chunk size as a seam.

#include <QString>
#include <QStringView>

#include <memory>

class QFile;
class QTextCodec;
class QTextStream;

namespace kcsv
{

// Characters asked for per chunk: 1 MiB of UTF-16. Tests shrink it so that
// small files cross chunk boundaries wherever they like.
int loadChunkChars();
void setLoadChunkChars(int chars);

// Length and line count of a whole text, counted as QTextStream::readLine
// splits it: a line feed ends a line, and a final line feed starts none.
struct TextTotals {
    qint64 chars = 0;
    int lines = 0;
};

// Decoded text in file order.
class TextSource
{
public:
    virtual ~TextSource() = default;
    // Appends the next part of the text, at most maxChars characters. False
    // (nothing appended) once the text has ended.
    virtual bool read(QString& out, int maxChars) = 0;
    // The totals of the whole text, however much of it has been read. May
    // read the text a second time.
    virtual TextTotals totals() = 0;
};

// A file with the UTF-16LE byte-order mark, read on a little-endian host:
// the bytes after the mark are the characters, so reading is a copy. Gives
// the text a QTextStream with codec would give on the file (the codec only
// matters for what the mark selects), or null when the file is not such a
// file; then nothing has been read. In text mode every carriage return is
// dropped, as the stream drops them.
std::unique_ptr<TextSource> utf16LeFileSource(QFile& file, QTextCodec* codec);
// Whatever the stream decodes from its position on.
std::unique_ptr<TextSource> streamSource(QTextStream& stream);

// The lines of a source, as QTextStream::readLine returns them: the line
// feed and a carriage return right before it (or at the very end of the
// text) are not part of the line. Only the chunks around the current line
// are held.
class LineReader
{
public:
    explicit LineReader(TextSource& source) : m_source(source) {}

    // The next line, valid until the next call. False when none is left.
    bool next(QStringView* line);
    // True when the text has at least two lines; reads ahead as far as it
    // must and consumes nothing.
    bool hasTwoLines();
    // Characters read from the source so far: never more than the text's.
    qint64 charsRead() const { return m_charsRead; }

private:
    // Drops what has been consumed and appends a chunk. False at the end.
    bool fill();

    TextSource& m_source;
    QString m_buffer;
    int m_pos = 0;  // start of the next line
    int m_scan = 0; // no line feed in [m_pos, m_scan)
    bool m_ended = false;
    qint64 m_charsRead = 0;
};

} // namespace kcsv

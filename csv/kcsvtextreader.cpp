#include "csv/kcsvtextreader.h"

#include <QFile>
#include <QSysInfo>
#include <QTextCodec>
#include <QTextStream>

#include <algorithm>
#include <atomic>

namespace kcsv
{

namespace
{

std::atomic<int> chunkChars{1 << 19};

class TotalsCounter
{
public:
    void add(const QChar* p, qint64 n)
    {
        if (n == 0)
            return;
        m_chars += n;
        m_lineFeeds += std::count(p, p + n, QLatin1Char('\n'));
        m_last = p[n - 1];
    }
    TextTotals totals() const
    {
        const bool openLast = m_chars > 0 && m_last != QLatin1Char('\n');
        return {m_chars, int(m_lineFeeds + (openLast ? 1 : 0))};
    }

private:
    qint64 m_chars = 0;
    qint64 m_lineFeeds = 0;
    QChar m_last;
};

// Reads the characters of a UTF-16LE file from a byte offset on. Keeps its
// own position, so that two readers can walk the same file.
class Utf16LeReader
{
public:
    Utf16LeReader(QFile& file, bool dropCarriageReturns, qint64 offset)
        : m_file(file), m_dropCR(dropCarriageReturns), m_offset(offset)
    {
    }

    // The bytes land straight in out's characters. An odd byte waits for
    // its partner; one left at the end is dropped, as the codec drops it.
    bool read(QString& out, int maxChars)
    {
        if (maxChars <= 0 || !m_file.seek(m_offset))
            return false;
        const int old = out.size();
        out.resize(old + maxChars);
        char* bytes = reinterpret_cast<char*>(out.data() + old);
        int have = 0;
        if (m_pendingByte >= 0)
            bytes[have++] = char(m_pendingByte);
        const qint64 got = m_file.read(bytes + have, qint64(maxChars) * 2 - have);
        if (got <= 0) {
            out.resize(old);
            return false;
        }
        m_offset += got;
        have += int(got);
        m_pendingByte = have % 2 ? uchar(bytes[have - 1]) : -1;
        QChar* chars = out.data() + old;
        QChar* end = chars + have / 2;
        if (m_dropCR)
            end = std::remove(chars, end, QLatin1Char('\r'));
        out.resize(old + int(end - chars));
        return true;
    }

private:
    QFile& m_file;
    const bool m_dropCR;
    qint64 m_offset;
    int m_pendingByte = -1;
};

constexpr qint64 MarkBytes = 2;

class Utf16LeFileSource : public TextSource
{
public:
    Utf16LeFileSource(QFile& file, bool dropCarriageReturns)
        : m_file(file), m_dropCR(dropCarriageReturns), m_reader(file, m_dropCR, MarkBytes)
    {
    }
    bool read(QString& out, int maxChars) override { return m_reader.read(out, maxChars); }
    TextTotals totals() override
    {
        Utf16LeReader again(m_file, m_dropCR, MarkBytes);
        TotalsCounter counter;
        QString chunk;
        while (again.read(chunk, loadChunkChars())) {
            counter.add(chunk.constData(), chunk.size());
            chunk.resize(0);
        }
        return counter.totals();
    }

private:
    QFile& m_file;
    const bool m_dropCR;
    Utf16LeReader m_reader;
};

TextTotals countStream(QTextStream& stream)
{
    TotalsCounter counter;
    for (;;) {
        const QString chunk = stream.read(loadChunkChars());
        if (chunk.isEmpty())
            return counter.totals();
        counter.add(chunk.constData(), chunk.size());
    }
}

// A stream can only be read once, so its totals are counted first and the
// stream is put back. One that cannot go back (a pipe) is read whole into a
// string stream, which can.
class StreamSource : public TextSource
{
public:
    explicit StreamSource(QTextStream& stream) : m_stream(&stream)
    {
        const QIODevice* device = stream.device();
        const bool rewindable = device ? !device->isSequential() : stream.string() != nullptr;
        const qint64 start = rewindable ? stream.pos() : -1;
        if (start >= 0) {
            m_totals = countStream(stream);
            if (stream.seek(start))
                return;
        }
        m_text = stream.readAll();
        m_copy.reset(new QTextStream(&m_text, QIODevice::ReadOnly));
        m_stream = m_copy.get();
        m_totals = countStream(*m_stream);
        m_stream->seek(0);
    }
    bool read(QString& out, int maxChars) override
    {
        const QString chunk = m_stream->read(maxChars);
        out += chunk;
        return !chunk.isEmpty();
    }
    TextTotals totals() override { return m_totals; }

private:
    QTextStream* m_stream;
    QString m_text;
    std::unique_ptr<QTextStream> m_copy;
    TextTotals m_totals;
};

} // namespace

int loadChunkChars()
{
    return chunkChars.load(std::memory_order_relaxed);
}

void setLoadChunkChars(int chars)
{
    chunkChars.store(qMax(1, chars), std::memory_order_relaxed);
}

std::unique_ptr<TextSource> utf16LeFileSource(QFile& file, QTextCodec* codec)
{
    if (QSysInfo::ByteOrder != QSysInfo::LittleEndian)
        return nullptr;
    // A stream reads the bytes as they are and drops carriage returns only
    // after decoding; the device's own text mode would cut them out of the
    // UTF-16 code units.
    const bool textMode = file.isTextModeEnabled();
    file.setTextModeEnabled(false);
    // The mark decides as it does for a stream: FF FE 00 00 is UTF-32LE.
    const QByteArray head = file.peek(4);
    const QTextCodec* chosen = QTextCodec::codecForUtfText(head, codec);
    if (head.startsWith("\xFF\xFE") && chosen && chosen->mibEnum() == 1014)
        return std::unique_ptr<TextSource>(new Utf16LeFileSource(file, textMode));
    file.setTextModeEnabled(textMode);
    return nullptr;
}

std::unique_ptr<TextSource> streamSource(QTextStream& stream)
{
    return std::unique_ptr<TextSource>(new StreamSource(stream));
}

bool LineReader::fill()
{
    if (m_ended)
        return false;
    m_buffer.remove(0, m_pos);
    m_scan -= m_pos;
    m_pos = 0;
    const int before = m_buffer.size();
    if (!m_source.read(m_buffer, loadChunkChars())) {
        m_ended = true;
        return false;
    }
    m_charsRead += m_buffer.size() - before;
    return true;
}

bool LineReader::next(QStringView* line)
{
    for (;;) {
        const int lineFeed = int(QStringView(m_buffer).indexOf(QLatin1Char('\n'), m_scan));
        if (lineFeed >= 0) {
            int end = lineFeed;
            if (end > m_pos && m_buffer.at(end - 1) == QLatin1Char('\r'))
                --end;
            *line = QStringView(m_buffer).mid(m_pos, end - m_pos);
            m_pos = m_scan = lineFeed + 1;
            return true;
        }
        m_scan = m_buffer.size();
        if (!fill())
            break;
    }
    if (m_pos >= m_buffer.size())
        return false;
    int end = m_buffer.size();
    if (m_buffer.at(end - 1) == QLatin1Char('\r'))
        --end;
    *line = QStringView(m_buffer).mid(m_pos, end - m_pos);
    m_pos = m_scan = m_buffer.size();
    return true;
}

bool LineReader::hasTwoLines()
{
    int from = 0; // relative to m_pos, which fill() may move
    for (;;) {
        const int lineFeed = int(QStringView(m_buffer).indexOf(QLatin1Char('\n'), m_pos + from));
        if (lineFeed >= 0 && lineFeed + 1 < m_buffer.size())
            return true;
        from = (lineFeed >= 0 ? lineFeed : m_buffer.size()) - m_pos;
        if (!fill())
            return false;
    }
}

} // namespace kcsv

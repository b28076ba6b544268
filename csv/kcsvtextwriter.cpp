#include "csv/kcsvtextwriter.h"

#include "csv/kcsvloader.h"

#include <QFileDevice>
#include <QSysInfo>
#include <QTextCodec>
#include <QTextStream>

#include <cstring>
#include <vector>

namespace kcsv
{

namespace
{

// Whether the cell needs the double quotes: it holds a line feed, the
// delimiter or a double quote.
bool needsQuotes(const QString& cell, const QString& delimiter)
{
    if (delimiter.size() != 1) {
        return cell.contains(QLatin1Char('\n')) || cell.contains(delimiter) ||
               cell.contains(QLatin1Char('"'));
    }
    const QChar d = delimiter.at(0);
    for (QChar c : cell) {
        if (c == QLatin1Char('\n') || c == d || c == QLatin1Char('"'))
            return true;
    }
    return false;
}

// Writes the cell at out, which has room for 2 * size + 2 characters, and
// returns the end of what it wrote.
QChar* writeCell(QChar* out, const QString& cell, bool quote)
{
    const QChar* p = cell.constData();
    const int n = cell.size();
    if (!quote)
        return std::copy(p, p + n, out);
    *out++ = QLatin1Char('"');
    for (int k = 0; k < n; ++k) {
        *out++ = p[k];
        if (p[k] == QLatin1Char('"'))
            *out++ = QLatin1Char('"');
    }
    *out++ = QLatin1Char('"');
    return out;
}

// The line feeds, double quotes and delimiters in [p, end), eight
// characters at a time: a row is long where its cells are short, so one
// count over the row beats a loop per cell.
qint64 countSpecial(const QChar* p, const QChar* end, QChar delimiter)
{
    using Lanes = qint16 __attribute__((vector_size(16)));
    constexpr int Width = int(sizeof(Lanes) / sizeof(QChar));
    const qint16 d = qint16(delimiter.unicode());
    qint64 count = 0;
    while (end - p >= Width) {
        // A lane counts at most 4096 matches before it is added up.
        const QChar* stop = p + qMin<qptrdiff>((end - p) / Width, 4096) * Width;
        Lanes lanes = {};
        for (; p < stop; p += Width) {
            Lanes v;
            std::memcpy(&v, p, sizeof v);
            lanes -= (v == '\n') | (v == '"') | (v == d); // a match is -1
        }
        for (int k = 0; k < Width; ++k)
            count += lanes[k];
    }
    for (; p < end; ++p)
        count += *p == QLatin1Char('\n') || *p == delimiter || *p == QLatin1Char('"');
    return count;
}

class Utf16LeFileSink : public TextSink
{
public:
    Utf16LeFileSink(QFileDevice& file, bool mark) : m_file(file), m_mark(mark) {}
    bool write(const QChar* text, int size) override
    {
        if (!m_ok || size == 0)
            return m_ok;
        if (m_mark) {
            m_mark = false;
            m_ok = m_file.write("\xFF\xFE", 2) == 2;
        }
        const qint64 bytes = qint64(size) * 2;
        m_ok = m_ok && m_file.write(reinterpret_cast<const char*>(text), bytes) == bytes;
        return m_ok;
    }
    bool finish() override { return m_ok && m_file.flush(); }

private:
    QFileDevice& m_file;
    bool m_mark;
    bool m_ok = true;
};

class StreamSink : public TextSink
{
public:
    explicit StreamSink(QTextStream& stream) : m_stream(stream) {}
    bool write(const QChar* text, int size) override
    {
        if (m_stream.status() == QTextStream::Ok)
            m_stream << QStringView(text, size);
        return m_stream.status() == QTextStream::Ok;
    }
    bool finish() override
    {
        m_stream.flush();
        return m_stream.status() == QTextStream::Ok;
    }

private:
    QTextStream& m_stream;
};

// Rows are assembled in one buffer and handed on in large chunks: per-cell
// calls to a stream or a file cost more than the copying itself.
class Assembler
{
public:
    explicit Assembler(TextSink& sink) : m_sink(sink), m_buffer(ChunkChars) {}

    // Room for n more characters: what is assembled goes out first when it
    // would not fit. Null when the sink failed.
    QChar* reserve(qint64 n)
    {
        if (m_used + n > qint64(m_buffer.size())) {
            if (!flush())
                return nullptr;
            if (n > qint64(m_buffer.size()))
                m_buffer.resize(size_t(n));
        }
        return m_buffer.data() + m_used;
    }
    void commit(const QChar* end) { m_used = int(end - m_buffer.data()); }
    static constexpr int ChunkChars = 1 << 16;
    bool flush()
    {
        const int used = m_used;
        m_used = 0;
        return m_sink.write(m_buffer.data(), used);
    }

private:
    TextSink& m_sink;
    std::vector<QChar> m_buffer;
    int m_used = 0;
};

// The row cell by cell, each quoted as it needs.
bool writeRow(Assembler& assembler, const QStringList& row, const QString& delimiter)
{
    const int cells = row.size();
    for (int c = 0; c < cells; ++c) {
        const QString& cell = row.at(c);
        QChar* out = assembler.reserve(2 * qint64(cell.size()) + 2 + delimiter.size() + 1);
        if (!out)
            return false;
        out = writeCell(out, cell, needsQuotes(cell, delimiter));
        if (c + 1 < cells) {
            out = std::copy(delimiter.constData(), delimiter.constData() + delimiter.size(), out);
        } else {
            *out++ = QLatin1Char('\n');
        }
        assembler.commit(out);
    }
    return true;
}

// Most rows need no quotes at all: the row is copied bare and kept when it
// holds no more line feeds, quotes and delimiters than its own separators.
// False when it is not kept (nothing is then committed): it needs quotes,
// or it is too long to assemble whole.
bool writeBareRow(Assembler& assembler, const QStringList& row, QChar delimiter, bool* failed)
{
    qint64 length = row.size();
    for (const QString& cell : row)
        length += cell.size();
    if (length > Assembler::ChunkChars)
        return false;
    QChar* const start = assembler.reserve(length);
    *failed = !start;
    if (!start)
        return false;
    QChar* out = start;
    const int cells = row.size();
    for (int c = 0; c < cells; ++c) {
        const QString& cell = row.at(c);
        out = std::copy(cell.constData(), cell.constData() + cell.size(), out);
        *out++ = c + 1 < cells ? delimiter : QLatin1Char('\n');
    }
    if (countSpecial(start, out, delimiter) != cells)
        return false;
    assembler.commit(out);
    return true;
}

} // namespace

std::unique_ptr<TextSink> utf16LeFileSink(QFileDevice& file, QTextCodec* codec, bool mark)
{
    if (QSysInfo::ByteOrder != QSysInfo::LittleEndian || !codec || codec->mibEnum() != 1014)
        return nullptr;
    return std::unique_ptr<TextSink>(new Utf16LeFileSink(file, mark));
}

std::unique_ptr<TextSink> streamSink(QTextStream& stream)
{
    return std::unique_ptr<TextSink>(new StreamSink(stream));
}

bool writeTable(const QList<QStringList>& rows, const QString& delimiter, TextSink& sink)
{
    Assembler assembler(sink);
    const bool oneChar = delimiter.size() == 1;
    for (const QStringList& row : rows) {
        if (row.isEmpty())
            continue;
        bool failed = false;
        if (oneChar && writeBareRow(assembler, row, delimiter.at(0), &failed))
            continue;
        if (failed || !writeRow(assembler, row, delimiter))
            return false;
    }
    return assembler.flush() && sink.finish();
}

QString quoteCell(const QString& cell, const QString& delimiter)
{
    QString out(2 * cell.size() + 2, Qt::Uninitialized);
    out.truncate(int(writeCell(out.data(), cell, needsQuotes(cell, delimiter)) - out.data()));
    return out;
}

} // namespace kcsv

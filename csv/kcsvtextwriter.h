#pragma once

// The saver's side of a table file: rows assembled into delimited text in
// large chunks, and where the chunks go. Private to the CSV module.

#include <QList>
#include <QString>
#include <QStringList>

#include <memory>

class QFileDevice;
class QTextCodec;
class QTextStream;

namespace kcsv
{

// Receives the text in file order.
class TextSink
{
public:
    virtual ~TextSink() = default;
    // False once anything failed to arrive; later calls then do nothing.
    virtual bool write(const QChar* text, int size) = 0;
    // Pushes out what is still buffered. False when anything failed.
    virtual bool finish() = 0;
};

// The file's bytes for a UTF-16LE codec on a little-endian host: the
// characters are the bytes, so writing is a copy. Gives the bytes a
// QTextStream with that codec would give (the mark before the first
// character when asked for), or null when the codec is another one; then
// nothing has been written.
std::unique_ptr<TextSink> utf16LeFileSink(QFileDevice& file, QTextCodec* codec, bool mark);
// Through the stream and its codec.
std::unique_ptr<TextSink> streamSink(QTextStream& stream);

// The rows as the saver writes them: cells quoted as quoteCell quotes them,
// separated by the delimiter, each row ended by a line feed (a row without
// cells writes nothing). True when the sink took all of it.
bool writeTable(const QList<QStringList>& rows, const QString& delimiter, TextSink& sink);

} // namespace kcsv

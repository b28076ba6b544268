#include "csv/kcsvloader.h"

#include "common/durablefile.h"
#include "csv/kcsvcellpool.h"
#include "csv/kcsvtextreader.h"
#include "csv/kcsvtextwriter.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QMetaMethod>
#include <QSaveFile>
#include <QSettings>
#include <QTextCodec>
#include <QTextStream>
#include <QThread>

static const QString DEFAULT_DIR_KEY = QStringLiteral("default_dir");

namespace
{

// Start directory of the open and save dialogs: the directory of the last
// file saved or loaded, else the application's own.
QString startDirectory(const QSettings& settings)
{
    const QVariant dir = settings.value(DEFAULT_DIR_KEY);
    return dir.isValid() ? dir.toString() : QCoreApplication::applicationDirPath();
}

int countChar(const QChar* p, int n, QChar c)
{
    int count = 0;
    for (int k = 0; k < n; ++k)
        count += p[k] == c;
    return count;
}

// QList has no moving append: appending a copy and dropping the original
// costs two atomic reference count changes per cell, a null string none.
void appendMoved(QStringList& row, QString&& cell)
{
    row.append(QString());
    row.last().swap(cell);
}

struct Span {
    int begin = 0;
    int end = 0;
    int size() const { return end - begin; }
};

// The pieces of one line split at a separator, exactly as QString::split
// with empty parts kept would give them, without building the list.
class Pieces
{
public:
    Pieces(const QChar* data, Span line, const QString& sep)
        : m_data(data), m_line(line), m_sep(&sep), m_start(line.begin)
    {
    }
    bool next(Span* piece)
    {
        if (m_done)
            return false;
        const int end = find(m_start + m_extra);
        if (end >= 0) {
            *piece = {m_start, end};
            m_start = end + m_sep->size();
            m_extra = m_sep->isEmpty() ? 1 : 0;
        } else {
            *piece = {m_start, m_line.end};
            m_done = true;
        }
        return true;
    }

private:
    int find(int from) const
    {
        const int n = m_sep->size();
        if (n == 0)
            return from <= m_line.end ? from : -1;
        if (n == 1) {
            const QChar c = m_sep->at(0);
            for (int k = from; k < m_line.end; ++k) {
                if (m_data[k] == c)
                    return k;
            }
            return -1;
        }
        if (from > m_line.end)
            return -1;
        const int at = QStringView(m_data + from, m_line.end - from).indexOf(QStringView(*m_sep));
        return at < 0 ? -1 : from + at;
    }

    const QChar* m_data;
    Span m_line;
    const QString* m_sep;
    int m_start;
    int m_extra = 0;
    bool m_done = false;
};

int countPieces(const QString& line, const QString& sep)
{
    Pieces pieces(line.constData(), {0, line.size()}, sep);
    Span piece;
    int count = 0;
    while (pieces.next(&piece))
        ++count;
    return count;
}

// A quoted cell being assembled from pieces and line continuations. It is
// complete when it ends with a double quote, has at least two characters and
// holds an even number of double quotes in all (an odd number before the
// last). Counting as text is appended keeps a cell that never closes linear.
class QuotedCell
{
public:
    explicit QuotedCell(QString& scratch) : m_raw(scratch) { m_raw.resize(0); }
    void append(const QChar* p, int n)
    {
        if (n == 0)
            return;
        m_raw.append(p, n);
        m_quotes += countChar(p, n, QLatin1Char('"'));
    }
    bool complete() const
    {
        return m_raw.size() >= 2 && m_raw.at(m_raw.size() - 1) == QLatin1Char('"') &&
               m_quotes % 2 == 0;
    }
    // Without the enclosing quotes, each doubled quote made single.
    QString text() const
    {
        const QChar* p = m_raw.constData() + 1;
        const int n = m_raw.size() - 2;
        QString out(n, Qt::Uninitialized);
        QChar* o = out.data();
        int k = 0;
        int w = 0;
        while (k < n) {
            if (p[k] == QLatin1Char('"') && k + 1 < n && p[k + 1] == QLatin1Char('"'))
                ++k;
            o[w++] = p[k++];
        }
        out.truncate(w);
        return out;
    }

private:
    QString& m_raw;
    int m_quotes = 0;
};

} // namespace

// ---------------------------------------------------------------------------

namespace kcsv
{

QString errorReport(const QStringList& errors)
{
    const int maxEntries = 22;
    QString report;
    for (int k = 0; k < errors.size() && k < maxEntries; ++k) {
        if (k > 0)
            report += QLatin1Char('\n');
        report += QString::number(k + 1) + QLatin1String(". ") + errors.at(k);
    }
    if (errors.size() > maxEntries)
        report += QLatin1String("\n....");
    else if (errors.size() == maxEntries)
        report += QLatin1String("....");
    return report;
}

} // namespace kcsv

// ---------------------------------------------------------------------------

KCSVInterface::KCSVInterface(QWidget* parentWidget)
    : QObject(nullptr), m_parentWidget(parentWidget), m_codec(nullptr),
      m_generateByteOrderMark(true), m_delimiter(QStringLiteral("\t")), m_fileFormat(TxtFormat),
      m_fileFilter(tr("Text File (*.txt)")), m_askFormatEachTime(false)
{
    init();
}

void KCSVInterface::init()
{
    m_codec = QTextCodec::codecForName("UTF-16LE");
}

QTextCodec* KCSVInterface::textCodec() const
{
    return m_codec;
}

void KCSVInterface::setCodec(QTextCodec* codec)
{
    m_codec = codec;
}

QString KCSVInterface::delimiter() const
{
    return m_delimiter;
}

void KCSVInterface::setDelimiter(const QString& delimiter)
{
    m_delimiter = delimiter;
}

bool KCSVInterface::askFormatEachTime() const
{
    return m_askFormatEachTime;
}

void KCSVInterface::setAskFormatEachTime(bool ask)
{
    m_askFormatEachTime = ask;
}

void KCSVInterface::setFileFormat(KCSVInterface::FileFormat format)
{
    m_fileFormat = format;
    if (format == TxtFormat) {
        m_delimiter = QStringLiteral("\t");
        m_fileFilter = tr("Text File (*.txt)");
    } else if (format == CsvFormat) {
        m_delimiter = QStringLiteral(",");
        m_fileFilter = tr("CSV File (*.csv)");
    }
}

bool KCSVInterface::isInGuiThread() const
{
    // Under a plain QCoreApplication no widget can be created at all, so such
    // an object is treated like one in a worker thread rather than aborting
    // the process with a dialog.
    const QCoreApplication* app = QCoreApplication::instance();
    return app && app->thread() == thread() && qobject_cast<const QApplication*>(app);
}

bool KCSVInterface::askEachTimeCheck()
{
    if (!m_askFormatEachTime)
        return true;
    // Nobody can be asked outside the GUI thread. The question only confirms
    // the configured format, which is used either way, so the operation goes
    // on instead of failing with a cancellation nobody made.
    if (!isInGuiThread())
        return true;

    QString formatName;
    if (m_fileFormat == TxtFormat)
        formatName = tr("TXT");
    else if (m_fileFormat == CsvFormat)
        formatName = tr("CSV");

    QMessageBox box;
    box.setWindowTitle(tr("Import/Export File"));
    box.setText(tr("The import/export file will process as %1 format.").arg(formatName));
    box.setInformativeText(tr("Do you want to procced?"));
    box.setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel);
    box.setDefaultButton(QMessageBox::Cancel);
    return box.exec() != QMessageBox::Cancel;
}

// ---------------------------------------------------------------------------

KCSVSaver::KCSVSaver(QWidget* parentWidget) : KCSVInterface(parentWidget) {}

void KCSVSaver::setGenerateByteOrderMark(bool generate)
{
    m_generateByteOrderMark = generate;
}

QStringList KCSVSaver::errorMessageList()
{
    return m_errors;
}

bool KCSVSaver::saveFile(const QList<QStringList>& datas, const QString& fileNameIn)
{
    if (!askEachTimeCheck()) {
        m_errors << tr("User canceled operation.");
        return false;
    }
    m_errors.clear();
    QSettings settings;
    const bool gui = isInGuiThread();

    QString fileName = fileNameIn;
    if (fileName.isEmpty()) {
        if (!gui) {
            m_errors << tr("The file name is empty.");
            return false;
        }
        fileName = QFileDialog::getSaveFileName(m_parentWidget, tr("Export File"),
                                                startDirectory(settings), m_fileFilter);
    }
    if (fileName.isEmpty())
        return false;

    settings.setValue(DEFAULT_DIR_KEY, QFileInfo(fileName).path());

    // The table goes to a temporary file beside the target, which replaces
    // the target only once every byte is on the medium: a full medium, a
    // pulled stick or a kill midway leaves the previous file as it was.
    QSaveFile file(fileName);
    if (!DurableFile::isRegularOrAbsent(fileName) ||
        !file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        if (gui)
            QMessageBox::warning(m_parentWidget, tr("File cannot be opened."),
                                 tr("File cannot be opened."), QMessageBox::Ok);
        else
            m_errors << tr("File cannot be opened.");
        return false;
    }

    // Program files take the short way: their characters are their bytes.
    QTextStream stream(&file);
    std::unique_ptr<kcsv::TextSink> sink =
        kcsv::utf16LeFileSink(file, m_codec, m_generateByteOrderMark);
    if (!sink) {
        if (m_codec)
            stream.setCodec(m_codec);
        stream.setGenerateByteOrderMark(m_generateByteOrderMark);
        sink = kcsv::streamSink(stream);
    }

    // A full or removed medium shows up only while writing; a truncated
    // program file must not pass as saved.
    const bool written =
        kcsv::writeTable(datas, delimiter(), *sink) && file.error() == QFileDevice::NoError;
    if (!written)
        file.cancelWriting();
    if (!written || !DurableFile::commit(file)) {
        if (gui)
            QMessageBox::warning(m_parentWidget, tr("File cannot be written."),
                                 tr("File cannot be written."), QMessageBox::Ok);
        else
            m_errors << tr("File cannot be written.");
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------

KCSVLoader::KCSVLoader(QWidget* parentWidget)
    : KCSVInterface(parentWidget), m_status(NoFileSelected), m_delimiterDetected(false)
{
}

QStringList KCSVLoader::errorMessageList()
{
    return m_errors;
}

QStringList KCSVLoader::warningMessageList()
{
    return m_warnings;
}

bool KCSVLoader::openFile(const QString& fileNameIn)
{
    if (!askEachTimeCheck()) {
        m_errors << tr("User canceled operation.");
        return false;
    }
    m_errors.clear();
    m_warnings.clear();
    QSettings settings;
    const bool gui = isInGuiThread();

    QString fileName = fileNameIn;
    if (fileName.isEmpty()) {
        if (!gui) {
            m_status = NoFileSelected;
            m_errors << tr("The file name is empty.");
            return false;
        }
        fileName = QFileDialog::getOpenFileName(m_parentWidget, tr("Import File"),
                                                startDirectory(settings), m_fileFilter);
        if (fileName.isEmpty()) {
            m_status = OpenFailed;
            return false;
        }
    }

    // In text mode every carriage return is dropped after decoding
    // (character-wise, so UTF-16 stays intact): CR LF line ends and stray CRs
    // alike. Devices and files too large for their table to fit in memory
    // count as unopenable.
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text) || file.isSequential() ||
        file.size() > kcsv::kMaxFileBytes) {
        m_status = OpenFailed;
        return false;
    }
    settings.setValue(DEFAULT_DIR_KEY, QFileInfo(fileName).path());

    // Program files take the short way: their bytes are the characters.
    if (std::unique_ptr<kcsv::TextSource> source = kcsv::utf16LeFileSource(file, m_codec)) {
        loadText(*source, m_errors, m_warnings);
    } else {
        QTextStream stream(&file);
        if (m_codec)
            stream.setCodec(m_codec);
        loadFile(stream, m_errors, m_warnings);
    }

    if (!m_errors.isEmpty()) {
        if (gui) {
            QMessageBox box;
            box.setWindowTitle(tr("File Format Error."));
            box.setText(kcsv::errorReport(m_errors));
            box.exec();
        }
        m_status = FormatErrors;
    }
    if (m_warnings.isEmpty())
        m_status = Loaded;
    return m_errors.isEmpty();
}

void KCSVLoader::loadFile(QTextStream& stream, QStringList& errors, QStringList& warnings)
{
    loadText(*kcsv::streamSource(stream), errors, warnings);
}

void KCSVLoader::loadText(kcsv::TextSource& source, QStringList& errors, QStringList& warnings)
{
    // One pass over the text, a line at a time; rows and cells are cut
    // straight out of the line without per-line strings or split lists.
    kcsv::LineReader lines(source);
    if (!lines.hasTwoLines()) {
        errors << tr("No content found in the imported file.");
        return;
    }
    // Counting the lines costs a second pass; only a listener needs them.
    const bool reportProgress =
        isSignalConnected(QMetaMethod::fromSignal(&KCSVInterface::updateStatus));
    if (reportProgress)
        emit updateStatus(QStringLiteral("total lines"), source.totals().lines);
    m_content.clear();

    QStringView line;
    lines.next(&line);
    const QString firstLine = line.toString();

    QString delim = delimiter();
    int width = countPieces(firstLine, delim);
    if (width < firstLine.size() / 5) {
        if (isLineFormatError(firstLine, errors, warnings, delim))
            return;
    }
    if (m_delimiterDetected)
        width = countPieces(firstLine, delim);

    // Padding short rows to a very wide header would grow memory with rows
    // times columns; past a budget proportional to the text the load stops
    // with a format error at that line instead of exhausting memory. The
    // text's length is only counted once the part read so far no longer
    // covers the padding.
    qint64 padding = 0;
    qint64 textChars = -1;
    auto budget = [](qint64 chars) { return 16 * chars + (1 << 20); };
    auto overBudget = [&]() {
        if (padding <= budget(lines.charsRead()))
            return false;
        if (textChars < 0)
            textChars = source.totals().chars;
        return padding > budget(textChars);
    };

    kcsv::CellPool cellPool;
    const QString currentLine = QStringLiteral("current line");
    QString scratch;

    int i = 0;
    for (bool more = true; more; more = lines.next(&line)) {
        if (line.isEmpty()) {
            ++i;
            continue;
        }
        QStringList row;
        row.reserve(qMin(width, int(line.size()) + 1));
        Pieces pieces(line.data(), {0, int(line.size())}, delim);
        Span piece;
        while (pieces.next(&piece)) {
            if (piece.size() == 0 || line.at(piece.begin) != QLatin1Char('"')) {
                appendMoved(row,
                            cellPool.make(row.size(), line.data() + piece.begin, piece.size()));
                continue;
            }
            QuotedCell cell(scratch);
            cell.append(line.data() + piece.begin, piece.size());
            while (!cell.complete()) {
                if (pieces.next(&piece)) {
                    cell.append(delim.constData(), delim.size());
                    cell.append(line.data() + piece.begin, piece.size());
                    continue;
                }
                if (!lines.next(&line)) {
                    errors << tr("Format error at line %1").arg(i + 2);
                    return;
                }
                ++i;
                pieces = Pieces(line.data(), {0, int(line.size())}, delim);
                pieces.next(&piece);
                const QChar lineFeed(QLatin1Char('\n'));
                cell.append(&lineFeed, 1);
                cell.append(line.data() + piece.begin, piece.size());
            }
            appendMoved(row, cell.text());
        }

        if (i != 0 && row.size() < width) {
            const int missing = width - row.size();
            padding += missing;
            if (overBudget()) {
                errors << tr("Format error at line %1").arg(i + 1);
                return;
            }
            m_status = ColumnCountMismatch;
            row.reserve(width);
            for (int k = 0; k < missing; ++k)
                row.append(QString());
            warnings << tr("Line %1 is %2 columns short of header.").arg(i + 1).arg(missing);
        } else if (i != 0 && row.size() > width) {
            m_status = ColumnCountMismatch;
            warnings
                << tr("Line %1 is %2 columns more of header.").arg(i + 1).arg(row.size() - width);
        }
        m_content.append(row);
        ++i;
        if (reportProgress)
            emit updateStatus(currentLine, i);
    }
}

bool KCSVLoader::isLineFormatError(QString line, QStringList& errors, QStringList& warnings,
                                   QString& delimiter)
{
    Q_UNUSED(warnings);
    const int d = line.indexOf(delimiter);
    if (d >= 0) {
        const int q1 = line.indexOf(QLatin1Char('"'));
        if (q1 < 0)
            return false;
        const int q2 = line.indexOf(QLatin1Char('"'), q1 + 1);
        if (d > q1 && q2 >= 0 && d < q2) {
            // The first delimiter is quoted; the line still plainly uses it
            // when it follows the closing quote or precedes the opening one.
            // A line that opens with the quote has nothing before it, so only
            // the closing side is tested (never reading outside the line).
            const QStringView view(line);
            const bool afterClosing = view.mid(q2 + 1).startsWith(QStringView(delimiter));
            const bool beforeOpening = q1 > 0 && view.left(q1).endsWith(QStringView(delimiter));
            if (afterClosing || beforeOpening)
                return false;
        } else if (d > q1 && q2 >= 0 && d == q2 + 1) {
            return false;
        }
    }

    m_delimiterDetected = autoDetectDelimiter(delimiter, line);
    if (m_delimiterDetected) {
        m_status = DelimiterDetected;
        return false;
    }
    errors << tr("File format error.") + QLatin1Char('\n') + tr("Cannot detect delimiter.");
    return true;
}

bool KCSVLoader::autoDetectDelimiter(QString& delimiter, QString line)
{
    const QString configured = this->delimiter();
    for (const QString& candidate : {QStringLiteral("\t"), QStringLiteral(",")}) {
        if (candidate == configured)
            continue;
        int count = 0;
        for (int at = line.indexOf(candidate); at >= 0; at = line.indexOf(candidate, at + 1))
            ++count;
        if (count >= 2) {
            delimiter = candidate;
            return true;
        }
    }
    return false;
}

QList<QStringList> KCSVLoader::fileContent()
{
    QString title;
    QString text;
    bool withRows = true;
    switch (m_status) {
    case NoFileSelected:
        title = tr("File cannot be loaded.");
        text = tr("Please select a file.");
        withRows = false;
        break;
    case OpenFailed:
        title = tr("File cannot be opened.");
        text = tr("Please select the right file.");
        withRows = false;
        break;
    case FormatErrors:
        title = tr("File cannot be loaded.");
        text = tr("Please check file format.");
        withRows = false;
        break;
    case Loaded:
        return m_content;
    case DelimiterDetected:
    case ColumnCountMismatch:
        title = tr("Warning: Incorrect File Format");
        if (m_delimiterDetected)
            text = tr("The file format has been modified. We strongly recommend you to export "
                      "the file again after final edits.") +
                   QLatin1Char('\n') + m_warnings.value(0);
        else
            text = m_warnings.value(0);
        if (m_warnings.size() >= 2)
            text += QLatin1Char('\n') + m_warnings.at(1);
        if (m_warnings.size() >= 3)
            text += QLatin1String("\n...");
        break;
    }

    if (isInGuiThread())
        QMessageBox::information(m_parentWidget, title, text, QMessageBox::Ok);
    else
        m_errors << title << text;
    return withRows ? m_content : QList<QStringList>();
}

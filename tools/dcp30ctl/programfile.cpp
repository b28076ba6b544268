#include "programfile.h"

#include "csv/kcsvloader.h"
#include "driver/segmentcodec.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>
#include <QTextCodec>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Enough of the file to tell text from binary data.
constexpr qint64 SniffBytes = 64 * 1024;
const QLatin1String StandardInput("-");
// The header and 30 segment rows.
constexpr int ProgramLines = 31;

bool isControl(QChar c)
{
    const ushort u = c.unicode();
    return (u < 0x20 && u != '\t' && u != '\n' && u != '\r') || u == 0x7F ||
           c == QChar::ReplacementCharacter;
}

bool hasUtfByteOrderMark(const QByteArray& bytes)
{
    return bytes.startsWith("\xEF\xBB\xBF") || bytes.startsWith("\xFF\xFE") ||
           bytes.startsWith("\xFE\xFF");
}

// Why the start of the file cannot be a program table, decoded as the
// loader decodes it (a byte-order mark chooses, else the loader's codec);
// empty when it may be one. The header line of a program file is plain
// text, so control characters in the first line mean binary data; later
// lines may legitimately hold any character (a tag read from a controller).
QString sniff(const QByteArray& head, QTextCodec* loaderCodec)
{
    QTextCodec* codec = QTextCodec::codecForUtfText(head, loaderCodec);
    const QString text = codec->toUnicode(head);
    if (text.trimmed().isEmpty())
        return QStringLiteral("the file is empty");
    // A spreadsheet's 8-bit export without a byte-order mark decodes as
    // UTF-16 nonsense without line breaks; say what it really is.
    const bool plainBytes = std::none_of(head.begin(), head.end(), [](char c) {
        return uchar(c) < 0x20 && c != '\t' && c != '\n' && c != '\r';
    });
    if (!hasUtfByteOrderMark(head) && plainBytes && head.contains('\n') &&
        !text.contains(QLatin1Char('\n')))
        return QStringLiteral("8-bit text without a UTF-16 byte-order mark, not a program file "
                              "(program files are UTF-16 text)");
    const int lineEnd = text.indexOf(QLatin1Char('\n'));
    const QString firstLine = text.left(lineEnd < 0 ? 4096 : lineEnd);
    if (std::any_of(firstLine.begin(), firstLine.end(), isControl))
        return QStringLiteral("binary data, not a program file");
    return QString();
}

QString oneLine(const QStringList& messages)
{
    QString text = messages.join(QLatin1Char(' '));
    text.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return text.simplified();
}

QStringList trimmedHeader(QStringList header)
{
    while (!header.isEmpty() && header.last().isEmpty())
        header.removeLast();
    return header;
}

} // namespace

QString ProgramFile::displayName() const
{
    return path == StandardInput ? QStringLiteral("standard input") : path;
}

QString fileProblem(const QString& path)
{
    if (path.contains(QChar::ReplacementCharacter))
        return QStringLiteral("the name is not valid text in the locale's encoding (%1); rename "
                              "the file, or give it as - on standard input")
            .arg(QString::fromLatin1(QTextCodec::codecForLocale()->name()));
    struct stat st = {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0) {
        switch (errno) {
        case ENOENT:
            return QStringLiteral("no such file");
        case ELOOP:
            return QStringLiteral("too many levels of symbolic links (a symlink loop)");
        case EACCES:
            return QStringLiteral("permission denied: a folder on the way cannot be searched");
        case ENOTDIR:
            return QStringLiteral("a part of the path is not a folder");
        default:
            return QString::fromLocal8Bit(strerror(errno));
        }
    }
    if (S_ISDIR(st.st_mode))
        return QStringLiteral("is a directory, not a program file");
    if (!S_ISREG(st.st_mode))
        return QStringLiteral("is not a regular file (a FIFO, device or socket); program files "
                              "are regular files");
    if (st.st_size == 0)
        return QStringLiteral("the file is empty");
    if (st.st_size > MaxProgramFileBytes)
        return QStringLiteral("too large for a program file (%1 bytes; at most %2)")
            .arg(qint64(st.st_size))
            .arg(MaxProgramFileBytes);
    if (::access(QFile::encodeName(path).constData(), R_OK) != 0)
        return QStringLiteral("permission denied: the file cannot be read");
    return QString();
}

namespace
{

// Standard input, whole, into a temporary file the loader can open by name;
// at most MaxProgramFileBytes are read, so an endless stream costs nothing.
QString stageStandardInput(QTemporaryFile& staged)
{
    QFile in;
    if (!in.open(stdin, QIODevice::ReadOnly))
        return QStringLiteral("cannot be read");
    const QByteArray bytes = in.read(MaxProgramFileBytes + 1);
    if (bytes.isEmpty())
        return QStringLiteral("the file is empty");
    if (bytes.size() > MaxProgramFileBytes)
        return QStringLiteral("too large for a program file (over %1 bytes)")
            .arg(MaxProgramFileBytes);
    if (!staged.open() || staged.write(bytes) != bytes.size() || !staged.flush())
        return QStringLiteral("cannot be staged: %1").arg(staged.errorString());
    return QString();
}

// Why the decoded text has a shape no program file has (too many lines, a
// line with too many cells): a table of that shape would cost far more
// memory than the file. Empty when the shape is plausible.
QString shapeProblem(const QString& text)
{
    int line = 1;
    int tabs = 0;
    int commas = 0;
    for (const QChar c : text) {
        if (c == QLatin1Char('\t'))
            ++tabs;
        else if (c == QLatin1Char(','))
            ++commas;
        else if (c != QLatin1Char('\n'))
            continue;
        if (std::max(tabs, commas) + 1 > MaxProgramFileCells)
            return QStringLiteral("line %1 has over %2 cells; a program file has %3")
                .arg(line)
                .arg(MaxProgramFileCells)
                .arg(SegmentCodec::ColumnCount);
        if (c == QLatin1Char('\n')) {
            tabs = commas = 0;
            if (++line > MaxProgramFileLines)
                return QStringLiteral("over %1 lines; a program file has at most %2")
                    .arg(MaxProgramFileLines)
                    .arg(ProgramLines);
        }
    }
    return QString();
}

} // namespace

bool loadProgramFile(const QString& path, ProgramFile& file, QString& error)
{
    file = ProgramFile();
    file.path = path;
    const bool fromStdin = path == StandardInput;
    auto fail = [&](const QString& reason) {
        error = QStringLiteral("%1: %2").arg(file.displayName(), reason);
        return false;
    };

    QTemporaryFile staged;
    QString loadPath = path;
    const QString problem = fromStdin ? stageStandardInput(staged) : fileProblem(path);
    if (!problem.isEmpty())
        return fail(problem);
    if (fromStdin)
        loadPath = staged.fileName();

    QFile raw(loadPath);
    if (!raw.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("cannot be opened: %1").arg(raw.errorString()));
    // Regular files only reach here; a file swapped for something else since
    // is refused rather than read without end.
    if (raw.isSequential())
        return fail(QStringLiteral("is not a regular file"));
    const QByteArray bytes = raw.read(MaxProgramFileBytes + 1);
    raw.close();
    if (bytes.size() > MaxProgramFileBytes)
        return fail(QStringLiteral("too large for a program file"));

    KCSVLoader loader(nullptr);
    const QString sniffed = sniff(bytes.left(SniffBytes), loader.textCodec());
    if (!sniffed.isEmpty())
        return fail(sniffed);
    const QString shape =
        shapeProblem(QTextCodec::codecForUtfText(bytes, loader.textCodec())->toUnicode(bytes));
    if (!shape.isEmpty())
        return fail(shape);

    if (!loader.openFile(loadPath)) {
        const QStringList errors = loader.errorMessageList();
        if (errors.isEmpty())
            return fail(QStringLiteral("cannot be opened"));
        return fail(QStringLiteral("cannot be loaded: %1").arg(oneLine(errors)));
    }
    file.loaderWarnings = loader.warningMessageList();
    QList<QStringList> content = loader.fileContent();
    if (content.isEmpty())
        return fail(QStringLiteral("holds no rows"));
    file.header = content.takeFirst();
    file.rows = content;

    if (trimmedHeader(file.header) != SegmentCodec::headerRow()) {
        const bool segmentRows = !file.rows.isEmpty() && !file.rows.first().isEmpty() &&
                                 file.rows.first().first().startsWith(QLatin1String("SEG"));
        if (!segmentRows)
            return fail(QStringLiteral("not a program file (its first line is not the program "
                                       "table header \"-, SP1, TIME, ...\")"));
        file.headerMatches = false;
    }
    return true;
}

bool parseSetpointLimits(const QString& text, qint32& low, qint32& high)
{
    const QStringList parts = text.split(QLatin1Char(','));
    if (parts.size() != 2)
        return false;
    bool okLow = false;
    bool okHigh = false;
    const qint32 lo = parts.at(0).trimmed().toInt(&okLow);
    const qint32 hi = parts.at(1).trimmed().toInt(&okHigh);
    if (!okLow || !okHigh || lo > hi)
        return false;
    low = lo;
    high = hi;
    return true;
}

bool parseEventKinds(const QString& text, qint32& k1, qint32& k2, qint32& k3)
{
    const QStringList parts = text.split(QLatin1Char(','));
    if (parts.size() != 3)
        return false;
    qint32 kinds[3] = {};
    for (int i = 0; i < 3; ++i) {
        bool ok = false;
        kinds[i] = parts.at(i).trimmed().toInt(&ok);
        if (!ok)
            return false;
    }
    k1 = kinds[0];
    k2 = kinds[1];
    k3 = kinds[2];
    return true;
}

QString displayCell(const QString& cell, int maxChars)
{
    QString shown = escapedCell(cell);
    if (shown.size() > maxChars)
        shown = shown.left(qMax(0, maxChars - 3)) + QLatin1String("...");
    const bool blankEdges = !cell.isEmpty() && (cell.front().isSpace() || cell.back().isSpace());
    if (cell.isEmpty() || blankEdges)
        return QLatin1Char('"') + shown + QLatin1Char('"');
    return shown;
}

QString escapedCell(const QString& cell)
{
    QString out;
    out.reserve(cell.size());
    for (const QChar c : cell) {
        if (isControl(c) || c.category() == QChar::Other_Control)
            out += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0')).toUpper();
        else
            out += c;
    }
    return out;
}

QString quotedCell(const QString& cell)
{
    return QLatin1Char('"') + escapedCell(cell) + QLatin1Char('"');
}

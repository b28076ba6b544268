#include "programfile.h"

#include "csv/kcsvloader.h"
#include "driver/segmentcodec.h"

#include <QFile>
#include <QFileInfo>
#include <QTextCodec>

#include <algorithm>

namespace
{

// Enough of the file to tell text from binary data without reading it all.
constexpr qint64 SniffBytes = 64 * 1024;

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

QString escapeControls(const QString& cell)
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

} // namespace

QString ProgramFile::columnTitle(int column) const
{
    if (column < header.size() && !header.at(column).isEmpty())
        return header.at(column);
    return QStringLiteral("column %1").arg(column + 1);
}

bool loadProgramFile(const QString& path, ProgramFile& file, QString& error)
{
    file = ProgramFile();
    file.path = path;
    auto fail = [&](const QString& reason) {
        error = QStringLiteral("%1: %2").arg(path, reason);
        return false;
    };

    const QFileInfo info(path);
    if (!info.exists())
        return fail(QStringLiteral("no such file"));
    if (info.isDir())
        return fail(QStringLiteral("is a directory, not a program file"));
    QFile raw(path);
    if (!raw.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("cannot be opened: %1").arg(raw.errorString()));
    if (raw.isSequential())
        return fail(QStringLiteral("is not a regular file"));
    if (raw.size() == 0)
        return fail(QStringLiteral("the file is empty"));
    if (raw.size() > kcsv::kMaxFileBytes)
        return fail(QStringLiteral("too large for a program file (%1 bytes)").arg(raw.size()));

    KCSVLoader loader(nullptr);
    const QString sniffed = sniff(raw.read(SniffBytes), loader.textCodec());
    raw.close();
    if (!sniffed.isEmpty())
        return fail(sniffed);

    if (!loader.openFile(path)) {
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
    QString shown = escapeControls(cell);
    if (shown.size() > maxChars)
        shown = shown.left(qMax(0, maxChars - 3)) + QLatin1String("...");
    const bool blankEdges = !cell.isEmpty() && (cell.front().isSpace() || cell.back().isSpace());
    if (cell.isEmpty() || blankEdges)
        return QLatin1Char('"') + shown + QLatin1Char('"');
    return shown;
}

QString quotedCell(const QString& cell)
{
    return QLatin1Char('"') + escapeControls(cell) + QLatin1Char('"');
}

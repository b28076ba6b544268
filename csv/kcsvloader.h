#pragma once

// Delimited text tables (program files and general CSV/TXT exports): the
// shared settings, the writer and the reader.
//
// Objects living in the GUI thread talk to the user themselves (file dialogs,
// message boxes); objects living in any other thread never open a window and
// collect every message in their lists instead, which the caller reads after a
// false result.

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

class QTextCodec;
class QTextStream;
class QWidget;

namespace kcsv
{
class TextSource;
}

class KCSVInterface : public QObject
{
    Q_OBJECT
public:
    // Fixed underlying type: any other value may be stored and kept.
    enum FileFormat : int { TxtFormat = 0, CsvFormat = 1 };
    Q_ENUM(FileFormat)

    // The widget parents the dialogs only; it does not own this object.
    explicit KCSVInterface(QWidget* parentWidget);

    virtual QTextCodec* textCodec() const;
    virtual void setCodec(QTextCodec* codec);
    virtual QString delimiter() const;
    virtual void setDelimiter(const QString& delimiter);
    virtual bool askFormatEachTime() const;
    virtual void setAskFormatEachTime(bool ask);

    // Chooses delimiter and dialog filter together; the codec is left alone.
    void setFileFormat(KCSVInterface::FileFormat format);
    KCSVInterface::FileFormat fileFormat() const { return m_fileFormat; }
    QString fileFilter() const { return m_fileFilter; }

    // Runs the optional confirmation box; true means go on.
    bool askEachTimeCheck();

signals:
    void updateStatus(const QString& description, const QVariant& value);

protected:
    void init();
    // True when this object may talk to the user: it lives in the thread of a
    // widget application object.
    bool isInGuiThread() const;

    QWidget* m_parentWidget;
    QTextCodec* m_codec;
    bool m_generateByteOrderMark;
    QString m_delimiter;
    FileFormat m_fileFormat;
    QString m_fileFilter;
    bool m_askFormatEachTime;
};

class KCSVSaver : public KCSVInterface
{
    Q_OBJECT
public:
    explicit KCSVSaver(QWidget* parentWidget);

    void setGenerateByteOrderMark(bool generate);

public slots:
    QStringList errorMessageList();
    // Writes the rows to fileName (asks for a name in the GUI thread when it
    // is empty). True when every row reached the file.
    bool saveFile(const QList<QStringList>& datas, const QString& fileName = QString());

protected:
    QStringList m_errors;
};

class KCSVLoader : public KCSVInterface
{
    Q_OBJECT
public:
    enum LoadStatus : int {
        NoFileSelected = 0,
        OpenFailed = 1,
        FormatErrors = 2,
        Loaded = 3,
        DelimiterDetected = 4,
        ColumnCountMismatch = 5
    };
    Q_ENUM(LoadStatus)

    explicit KCSVLoader(QWidget* parentWidget);

    // Reports the outcome of the latest openFile (dialog in the GUI thread,
    // title and text appended to the error list elsewhere) and returns the
    // rows, header first, or an empty list when the load failed.
    QList<QStringList> fileContent();

    // The parser: replaces the rows with the stream's table.
    void loadFile(QTextStream& stream, QStringList& errors, QStringList& warnings);
    // Header check; true when the line is unusable. May replace delimiter.
    bool isLineFormatError(QString line, QStringList& errors, QStringList& warnings,
                           QString& delimiter);
    // Tab, then comma: the first that occurs twice in line replaces delimiter.
    bool autoDetectDelimiter(QString& delimiter, QString line);

    LoadStatus status() const { return m_status; }
    bool delimiterDetected() const { return m_delimiterDetected; }

public slots:
    QStringList errorMessageList();
    QStringList warningMessageList();
    // Chooses (GUI thread, empty name) or takes the file and loads it. True
    // when the load produced no errors; warnings may still be present.
    bool openFile(const QString& fileName = QString());

protected:
    LoadStatus m_status;
    QList<QStringList> m_content;
    bool m_delimiterDetected;
    QStringList m_errors;
    QStringList m_warnings;

private:
    // The parser over any text: the file's own bytes or a stream.
    void loadText(kcsv::TextSource& source, QStringList& errors, QStringList& warnings);
};

namespace kcsv
{

// The cell as the saver writes it: wrapped in double quotes, with every
// double quote doubled, when it holds a line feed, the delimiter or a double
// quote; otherwise unchanged.
QString quoteCell(const QString& cell, const QString& delimiter);

// The numbered error report of a failed load: "1. first\n2. second...", at
// most 22 entries, followed by "...." once the list reaches 22.
QString errorReport(const QStringList& errors);

// Files larger than this are refused as unopenable: the table they load
// into takes several times their size in memory.
constexpr qint64 kMaxFileBytes = qint64(256) * 1024 * 1024;

} // namespace kcsv

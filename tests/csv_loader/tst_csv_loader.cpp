// The loader outside the GUI thread: parsing, width checks, the header check
// and delimiter detection, encodings, status reports, save-then-load round
// trips of generated tables, and hostile files.

#include "csv/kcsvloader.h"
#include "tests/csv_common/csvtestsupport.h"

#include <QtTest>

#include <random>

using Table = QList<QStringList>;

namespace
{

struct Outcome {
    bool ok = false;
    KCSVLoader::LoadStatus status = KCSVLoader::NoFileSelected;
    QStringList errors; // before fileContent adds its report
    QStringList warnings;
    Table rows;           // what fileContent returns
    QStringList reported; // what fileContent appended
};

Outcome openAndTake(KCSVLoader& loader, const QString& path)
{
    Outcome out;
    out.ok = loader.openFile(path);
    out.status = loader.status();
    out.errors = loader.errorMessageList();
    out.warnings = loader.warningMessageList();
    out.rows = loader.fileContent();
    out.reported = loader.errorMessageList().mid(out.errors.size());
    return out;
}

// A cell of up to maxLength characters from chars; the last pick stands for
// a surrogate pair.
QString randomCell(std::mt19937& rng, const QString& chars, int maxLength)
{
    QString cell;
    for (int k = std::uniform_int_distribution<int>(0, maxLength)(rng); k > 0; --k) {
        const int at = std::uniform_int_distribution<int>(0, chars.size())(rng);
        cell += at == chars.size() ? QString::fromUcs4(U"\U0001F600") : QString(chars.at(at));
    }
    return cell;
}

} // namespace

class TestCsvLoader : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        csvtest::isolateSettings(m_dir, QStringLiteral("test_csv_loader"));
    }

    void init() { QSettings().clear(); }

    void parse_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<int>("status");
        QTest::addColumn<Table>("rows");
        QTest::addColumn<QStringList>("errors");
        QTest::addColumn<QStringList>("warnings");
        auto row = [](const char* name, const char* text, bool ok, int status, const Table& rows,
                      const QStringList& errors = {}, const QStringList& warnings = {}) {
            QTest::newRow(name) << QString(text) << ok << status << rows << errors << warnings;
        };
        const int loaded = KCSVLoader::Loaded;
        const int mismatch = KCSVLoader::ColumnCountMismatch;
        const QString formatError = QStringLiteral("Format error at line 4");

        // Errors without warnings still end as Loaded; the rows of a fresh
        // loader are then empty.
        row("header only", "SEG\tSP1\n", false, loaded, {},
            {"No content found in the imported file."});
        row("header and a blank line", "SEG\tSP1\n\n", true, loaded, {{"SEG", "SP1"}});
        row("blank lines skipped, still counted", "a\tb\n\n1\n\n2\t3\n", true, mismatch,
            {{"a", "b"}, {"1", ""}, {"2", "3"}}, {}, {"Line 3 is 1 columns short of header."});
        row("short and long rows", "a\tb\tc\n1\n1\t2\t3\t4\t5\n", true, mismatch,
            {{"a", "b", "c"}, {"1", "", ""}, {"1", "2", "3", "4", "5"}}, {},
            {"Line 2 is 2 columns short of header.", "Line 3 is 2 columns more of header."});
        row("quoted cells", "h1\th2\th3\n\"\"\t\"a\"\"b\"\t\"x\ty\"\n", true, loaded,
            {{"h1", "h2", "h3"}, {"", "a\"b", "x\ty"}});
        // Inside quotes a delimiter, line breaks and a blank line belong to the
        // cell; the line numbers of later rows go on counting.
        row("cell across lines", "h1\th2\n\"a\tb\n\nc\"\td\n1\n", true, mismatch,
            {{"h1", "h2"}, {"a\tb\n\nc", "d"}, {"1", ""}}, {},
            {"Line 5 is 1 columns short of header."});
        row("quote inside an unquoted piece", "h1\th2\na\"b\tc\"\n", true, loaded,
            {{"h1", "h2"}, {"a\"b", "c\""}});
        row("CR LF line ends, stray CRs dropped", "h1\th2\r\n1\r2\t3\r", true, loaded,
            {{"h1", "h2"}, {"12", "3"}});
        row("quote left open keeps earlier rows", "h1\th2\n1\t2\n\"open\tx\n", false, loaded,
            {{"h1", "h2"}, {"1", "2"}}, {formatError});
        row("errors and warnings", "h1\th2\n1\n\"open\n", false, KCSVLoader::FormatErrors, {},
            {formatError}, {"Line 2 is 1 columns short of header."});
        // The width is the plain split of the first line; the first row is
        // width-checked only when it runs past that line.
        row("quoted header row on one line", "\"a\tb\"\tc\n1\t2\t3\n", true, loaded,
            {{"a\tb", "c"}, {"1", "2", "3"}});
        row("header row over two lines", "\"h\n1\"\th2\n1\t2\n", true, mismatch,
            {{"h\n1", "h2"}, {"1", "2"}}, {},
            {"Line 2 is 1 columns more of header.", "Line 3 is 1 columns more of header."});
        row("comma file detected", "SEG,SP1,TIME,EV1_ON\n1,2,3,4\n", true, loaded,
            {{"SEG", "SP1", "TIME", "EV1_ON"}, {"1", "2", "3", "4"}});
        row("comma file, one comma", "SEGMENT,SETPOINT\n1,2\n", false, loaded, {},
            {"File format error.\nCannot detect delimiter."});
        row("short first line not checked", "SEG,SP1\n1,2\n", true, loaded, {{"SEG,SP1"}, {"1,2"}});
    }
    void parse()
    {
        QFETCH(QString, text);
        KCSVLoader loader(nullptr);
        const Outcome out = openAndTake(loader, file(csvtest::utf16le(text)));
        QTEST(out.errors, "errors");
        QTEST(out.warnings, "warnings");
        QTEST(out.ok, "ok");
        QTEST(int(out.status), "status");
        QTEST(out.rows, "rows");
        // Loading never changes the configured delimiter.
        QCOMPARE(loader.delimiter(), QStringLiteral("\t"));
    }

    void progressCountsPhysicalLines()
    {
        KCSVLoader loader(nullptr);
        QSignalSpy spy(&loader, &KCSVInterface::updateStatus);
        QVERIFY(loader.openFile(file(csvtest::utf16le("h\tx\n\na\tb\n\"c\nd\"\te\n"))));
        QStringList seen;
        for (const QList<QVariant>& call : spy)
            seen << call.at(0).toString() + ' ' + QString::number(call.at(1).toInt());
        QCOMPARE(seen, (QStringList{"total lines 5", "current line 1", "current line 3",
                                    "current line 5"}));
    }

    // The header check, and the detection it falls back on: tab, then comma,
    // never the configured delimiter, whichever occurs twice.
    void headerCheck_data()
    {
        QTest::addColumn<QString>("configured");
        QTest::addColumn<QString>("line");
        QTest::addColumn<bool>("unusable");
        QTest::addColumn<QString>("delimiter");
        auto row = [](const char* name, const char* configured, const char* line, bool unusable,
                      const char* delimiter) {
            QTest::newRow(name) << QString(configured) << QString(line) << unusable
                                << QString(delimiter);
        };
        row("delimiter, no quote", "\t", "a\tb", false, "\t");
        row("delimiter right after closing quote", "\t", "\"a\"\tb", false, "\t");
        row("quoted delimiter at the end of the line", "\t", "x\"a\tb\"", true, "\t");
        row("line opens with the quote, delimiter after it", "\t", "\"a\tb\"\tc", false, "\t");
        row("quote never closed", "\t", "\"a\tb", true, "\t");
        row("delimiter before the first quote, commas", "\t", "a\tb\"c,d,e\"", false, ",");
        row("quoted tabs only: the configured tab is not detected", "\t", "x\"a\tb\tc\"", true,
            "\t");
        row("tab is tried first", ";", "a\tb\tc,d,e", false, "\t");
        row("one tab is not enough", ";", "a\tb,c,d", false, ",");
    }
    void headerCheck()
    {
        QFETCH(QString, configured);
        QFETCH(QString, line);
        QFETCH(bool, unusable);
        QFETCH(QString, delimiter);
        const bool detected = delimiter != configured;
        KCSVLoader loader(nullptr);
        loader.setDelimiter(configured);
        QStringList errors, warnings;
        QString local = configured;
        QCOMPARE(loader.isLineFormatError(line, errors, warnings, local), unusable);
        QCOMPARE(local, delimiter);
        QCOMPARE(loader.delimiterDetected(), detected);
        QCOMPARE(errors, unusable ? QStringList{"File format error.\nCannot detect delimiter."}
                                  : QStringList());
        QVERIFY(warnings.isEmpty());
        QCOMPARE(loader.status(),
                 detected ? KCSVLoader::DelimiterDetected : KCSVLoader::NoFileSelected);
    }

    void reportsRepeatOnEachCall()
    {
        KCSVLoader loader(nullptr);
        // Missing, a device, a directory, and too large to hold in memory.
        QFile huge(m_dir.filePath(QStringLiteral("huge.txt")));
        QVERIFY(huge.open(QIODevice::WriteOnly) && huge.resize(kcsv::kMaxFileBytes + 1));
        for (const QString& path : {m_dir.filePath(QStringLiteral("missing.txt")),
                                    QStringLiteral("/dev/zero"), m_dir.path(), huge.fileName()}) {
            QVERIFY(!loader.openFile(path));
            QCOMPARE(loader.status(), KCSVLoader::OpenFailed);
        }
        // The directory is remembered only once a file opened.
        QVERIFY(!csvtest::defaultDir().isValid() && loader.errorMessageList().isEmpty());
        QVERIFY(loader.fileContent().isEmpty() && loader.fileContent().isEmpty());
        const QStringList report{"File cannot be opened.", "Please select the right file."};
        QCOMPARE(loader.errorMessageList(), report + report);

        // As a slot called by name, with the file name left out.
        bool opened = true;
        QVERIFY(QMetaObject::invokeMethod(&loader, "openFile", Q_RETURN_ARG(bool, opened)));
        QVERIFY(!opened);
        QCOMPARE(loader.status(), KCSVLoader::NoFileSelected);
        QCOMPARE(loader.errorMessageList(), QStringList{"The file name is empty."});
    }

    // At most 22 numbered entries; "...." marks the cut.
    void errorReport()
    {
        QStringList errors, entries;
        for (int k = 1; k <= 23; ++k) {
            errors << QStringLiteral("error %1").arg(k);
            entries << QStringLiteral("%1. error %1").arg(k);
        }
        QCOMPARE(kcsv::errorReport(errors.mid(0, 21)), entries.mid(0, 21).join('\n'));
        QCOMPARE(kcsv::errorReport(errors.mid(0, 22)), entries.mid(0, 22).join('\n') + "....");
        QCOMPARE(kcsv::errorReport(errors), entries.mid(0, 22).join('\n') + "\n....");
    }

    // The reports of fileContent outside the GUI thread, and what one load
    // leaves for the next.
    void reportsAndStateBetweenLoads()
    {
        const QString title = QStringLiteral("Warning: Incorrect File Format");
        const QString shortRow = QStringLiteral("Line 2 is 1 columns short of header.");
        KCSVLoader loader(nullptr);
        auto load = [&](const char* text) {
            return openAndTake(loader, file(csvtest::utf16le(text)));
        };
        QCOMPARE(load("a\tb\n1\n\"x\n").reported,
                 (QStringList{"File cannot be loaded.", "Please check file format."}));
        QCOMPARE(load("a\tb\n1\n").reported, (QStringList{title, shortRow}));
        const Outcome detected = load("SEG,SP1,TIME,EV1_ON\n1,2,3,4\n");
        QVERIFY(detected.reported.isEmpty() && detected.rows.size() == 2);
        QCOMPARE(csvtest::defaultDir().toString(), m_dir.path());
        // "No content" stops before the rows are replaced.
        QCOMPARE(load("a\tb\n").rows, detected.rows);
        // The detection flag outlives its load and marks a later warning report.
        QCOMPARE(load("a\tb\n1\n").reported,
                 (QStringList{title, "The file format has been modified. We strongly recommend "
                                     "you to export the file again after final edits.\n" +
                                         shortRow}));
    }

    void roundTrip_data()
    {
        QTest::addColumn<int>("seed");
        for (int seed = 1; seed <= 200; ++seed)
            QTest::newRow(qPrintable(QStringLiteral("seed %1").arg(seed))) << seed;
    }

    // Any table comes back unchanged when its rows are as wide as the header,
    // the header has no quote (so it passes the header check) and no NUL (right
    // after the mark it reads as UTF-32LE), and no cell holds a carriage return.
    void roundTrip()
    {
        QFETCH(int, seed);
        const QString delimiter = seed % 3 == 0 ? QStringLiteral(",") : QStringLiteral("\t");
        std::mt19937 rng(seed);
        // 0x0D0A and 0x0A0D carry line-end bytes inside one UTF-16 code unit.
        const QString cellChars = QStringLiteral("ab0 9\t,\"\n;.-") + QChar(0x010D) +
                                  QChar(0x0D0A) + QChar(0x0A0D) + QChar(0x65E5) + QChar(0x0416) +
                                  QChar(0);
        QString headerChars = cellChars;
        headerChars.remove(QChar(0)).remove('"').remove('\n').remove(delimiter);
        const int width = std::uniform_int_distribution<int>(2, 8)(rng);
        Table table;
        for (int r = std::uniform_int_distribution<int>(2, 16)(rng); r > 0; --r) {
            QStringList row;
            for (int c = 0; c < width; ++c)
                row << (table.isEmpty() ? randomCell(rng, headerChars, 12)
                                        : randomCell(rng, cellChars, 8));
            table << row;
        }

        const QString path = m_dir.filePath(QStringLiteral("round.txt"));
        KCSVSaver saver(nullptr);
        saver.setDelimiter(delimiter);
        QVERIFY(saver.saveFile(table, path));
        KCSVLoader loader(nullptr);
        loader.setDelimiter(delimiter);
        const Outcome out = openAndTake(loader, path);
        QVERIFY2(out.ok, qPrintable(out.errors.join(QLatin1Char('\n'))));
        QVERIFY(out.warnings.isEmpty());
        QCOMPARE(out.rows, table);
    }

    // Encodings, and hostile files.
    void fileBytes_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<Table>("rows");
        QTest::addColumn<QStringList>("errors");
        auto row = [](const char* name, const QByteArray& bytes, bool ok, const Table& rows,
                      const QStringList& errors = {}) {
            QTest::newRow(name) << bytes << ok << rows << errors;
        };
        const QStringList noContent{"No content found in the imported file."};
        const QString text = QStringLiteral("h1\th2\n") + QChar(0x010D) + "\t" + QChar(0x65E5);
        const Table rows{{"h1", "h2"}, {QString(QChar(0x010D)), QString(QChar(0x65E5))}};
        row("UTF-16LE without mark", csvtest::utf16le(text, false), true, rows);
        row("UTF-8 with mark", "\xEF\xBB\xBF" + text.toUtf8(), true, rows);
        row("empty file", QByteArray(), false, {}, noContent);
        row("only the byte-order mark", QByteArray("\xFF\xFE"), false, {}, noContent);
        row("odd byte count", csvtest::utf16le("h1\th2\n1\t2\n") + 'A', true,
            {{"h1", "h2"}, {"1", "2"}});
        // NULs and code units holding 0x0D bytes go through the round trip.
        const QString lone = QString(QChar(0xD800)) + "x" + QChar(0xDFFF);
        row("lone surrogates kept", csvtest::utf16le("h1\th2\n" + lone + "\t2\n"), true,
            {{"h1", "h2"}, {lone, "2"}});
        row("one enormous line", csvtest::utf16le(QString(1 << 20, QLatin1Char('a'))), false, {},
            noContent);
        row("quote opened at the start of a long file",
            csvtest::utf16le("h1\th2\n\"" + QString("a\tb\n").repeated(100000)), false,
            {{"h1", "h2"}}, {"Format error at line 100002"});
    }
    void fileBytes()
    {
        QFETCH(QByteArray, bytes);
        KCSVLoader loader(nullptr);
        const Outcome out = openAndTake(loader, file(bytes));
        QTEST(out.errors, "errors");
        QTEST(out.ok, "ok");
        QTEST(out.rows, "rows");
    }

    // Padding every short row to a 200,000-column header would need billions
    // of cells; the load stops with a format error instead.
    void wideHeaderPaddingIsBounded()
    {
        KCSVLoader loader(nullptr);
        const Outcome out =
            openAndTake(loader, file(csvtest::utf16le(QString(200000, QLatin1Char('\t')) + "\n" +
                                                      QString("x\n").repeated(2000))));
        QVERIFY(!out.ok && out.rows.isEmpty() && out.errors.size() == 1);
        QVERIFY(out.errors.first().startsWith(QStringLiteral("Format error at line ")));
    }

private:
    QString file(const QByteArray& bytes)
    {
        return csvtest::writeFile(m_dir, QStringLiteral("in%1.txt").arg(++m_files), bytes);
    }
    QTemporaryDir m_dir;
    int m_files = 0;
};

QTEST_GUILESS_MAIN(TestCsvLoader)
#include "tst_csv_loader.moc"

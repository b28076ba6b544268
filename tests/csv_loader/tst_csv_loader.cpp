// The loader outside the GUI thread: parsing, width checks, the header check
// and delimiter detection, encodings, status reports, save-then-load round
// trips of generated tables, and hostile files.

#include "csv/kcsvloader.h"
#include "tests/csv_common/csvtestsupport.h"

#include <QElapsedTimer>
#include <QtTest>

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

const QString kTabLine = QStringLiteral("\t");

} // namespace

class TestCsvLoader : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();

    void parse_data();
    void parse();
    void encodings_data();
    void encodings();
    void progressCountsPhysicalLines();
    void headerCheck_data();
    void headerCheck();
    void detection_data();
    void detection();
    void statusReports_data();
    void statusReports();
    void reportsRepeatOnEachCall();
    void errorReport_data();
    void errorReport();
    void stateBetweenLoads();
    void settingsStoredOnlyAfterOpen();
    void workerThreadCollectsMessages();
    void roundTrip_data();
    void roundTrip();
    void hostileFiles_data();
    void hostileFiles();
    void wideHeaderPaddingIsBounded();
    void unopenableKinds();

private:
    QString file(const QByteArray& bytes);
    QTemporaryDir m_dir;
    int m_files = 0;
};

void TestCsvLoader::initTestCase()
{
    QVERIFY(m_dir.isValid());
    csvtest::isolateSettings(m_dir, QStringLiteral("test_csv_loader"));
}

void TestCsvLoader::init()
{
    QSettings().clear();
}

QString TestCsvLoader::file(const QByteArray& bytes)
{
    return csvtest::writeFile(m_dir, QStringLiteral("in%1.txt").arg(++m_files), bytes);
}

void TestCsvLoader::parse_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<int>("status");
    QTest::addColumn<Table>("rows");
    QTest::addColumn<QStringList>("errors");
    QTest::addColumn<QStringList>("warnings");

    const int loaded = KCSVLoader::Loaded;
    const int mismatch = KCSVLoader::ColumnCountMismatch;
    const QStringList none;

    // Errors without warnings still end as Loaded; the rows of a fresh
    // loader are then empty.
    QTest::newRow("header only") << "SEG\tSP1\n"
                                 << false << loaded << Table()
                                 << QStringList{"No content found in the imported file."} << none;
    QTest::newRow("header and a blank line")
        << "SEG\tSP1\n\n"
        << true << loaded << Table{{"SEG", "SP1"}} << none << none;
    QTest::newRow("blank lines skipped, still counted")
        << "a\tb\n\n1\n\n2\t3\n"
        << true << mismatch << Table{{"a", "b"}, {"1", ""}, {"2", "3"}} << none
        << QStringList{"Line 3 is 1 columns short of header."};
    QTest::newRow("short and long rows")
        << "a\tb\tc\n1\n1\t2\t3\t4\t5\n"
        << true << mismatch << Table{{"a", "b", "c"}, {"1", "", ""}, {"1", "2", "3", "4", "5"}}
        << none
        << QStringList{"Line 2 is 2 columns short of header.",
                       "Line 3 is 2 columns more of header."};
    QTest::newRow("quoted cells") << "h1\th2\th3\n\"\"\t\"a\"\"b\"\t\"x\ty\"\n"
                                  << true << loaded
                                  << Table{{"h1", "h2", "h3"}, {"", "a\"b", "x\ty"}} << none
                                  << none;
    QTest::newRow("cell across two lines, numbering goes on")
        << "h1\th2\n\"a\nb\"\tc\n1\n"
        << true << mismatch << Table{{"h1", "h2"}, {"a\nb", "c"}, {"1", ""}} << none
        << QStringList{"Line 4 is 1 columns short of header."};
    QTest::newRow("delimiter then line break inside quotes")
        << "h1\th2\n\"a\tb\nc\"\td\n"
        << true << loaded << Table{{"h1", "h2"}, {"a\tb\nc", "d"}} << none << none;
    QTest::newRow("blank line inside quotes")
        << "h1\th2\n\"a\n\nb\"\tc\n"
        << true << loaded << Table{{"h1", "h2"}, {"a\n\nb", "c"}} << none << none;
    QTest::newRow("quote inside an unquoted piece")
        << "h1\th2\na\"b\tc\"\n"
        << true << loaded << Table{{"h1", "h2"}, {"a\"b", "c\""}} << none << none;
    QTest::newRow("CR LF line ends")
        << "h1\th2\r\n1\t2\r\n"
        << true << loaded << Table{{"h1", "h2"}, {"1", "2"}} << none << none;
    QTest::newRow("stray CR dropped")
        << "h1\th2\n1\r2\t3\n"
        << true << loaded << Table{{"h1", "h2"}, {"12", "3"}} << none << none;
    QTest::newRow("no final line feed")
        << "h1\th2\n1\t2" << true << loaded << Table{{"h1", "h2"}, {"1", "2"}} << none << none;
    QTest::newRow("CR at the very end")
        << "h1\th2\n1\t2\r" << true << loaded << Table{{"h1", "h2"}, {"1", "2"}} << none << none;
    QTest::newRow("quote left open keeps earlier rows")
        << "h1\th2\n1\t2\n\"open\tx\n"
        << false << loaded << Table{{"h1", "h2"}, {"1", "2"}}
        << QStringList{"Format error at line 4"} << none;
    QTest::newRow("quote closed too early")
        << "h1\th2\n\"ab\"c\td\n\"\n"
        << false << loaded << Table{{"h1", "h2"}} << QStringList{"Format error at line 4"} << none;
    QTest::newRow("errors and warnings") << "h1\th2\n1\n\"open\n"
                                         << false << int(KCSVLoader::FormatErrors) << Table()
                                         << QStringList{"Format error at line 4"}
                                         << QStringList{"Line 2 is 1 columns short of header."};
    // The header row is width-checked only when it ends on the first line.
    QTest::newRow("quoted header row on one line")
        << "\"a\tb\"\tc\n1\t2\t3\n"
        << true << loaded << Table{{"a\tb", "c"}, {"1", "2", "3"}} << none << none;
    QTest::newRow("header row over two lines")
        << "\"h\n1\"\th2\n1\t2\n"
        << true << mismatch << Table{{"h\n1", "h2"}, {"1", "2"}} << none
        << QStringList{"Line 2 is 1 columns more of header.",
                       "Line 3 is 1 columns more of header."};
    QTest::newRow("comma file detected")
        << "SEG,SP1,TIME,EV1_ON\n1,2,3,4\n"
        << true << loaded << Table{{"SEG", "SP1", "TIME", "EV1_ON"}, {"1", "2", "3", "4"}} << none
        << none;
    QTest::newRow("comma file, one comma")
        << "SEGMENT,SETPOINT\n1,2\n"
        << false << loaded << Table() << QStringList{"File format error.\nCannot detect delimiter."}
        << none;
    QTest::newRow("short first line not checked")
        << "SEG,SP1\n1,2\n"
        << true << loaded << Table{{"SEG,SP1"}, {"1,2"}} << none << none;
}

void TestCsvLoader::parse()
{
    QFETCH(QString, text);
    QFETCH(bool, ok);
    QFETCH(int, status);
    QFETCH(Table, rows);
    QFETCH(QStringList, errors);
    QFETCH(QStringList, warnings);

    KCSVLoader loader(nullptr);
    const Outcome out = openAndTake(loader, file(csvtest::utf16le(text)));
    QCOMPARE(out.errors, errors);
    QCOMPARE(out.warnings, warnings);
    QCOMPARE(out.ok, ok);
    QCOMPARE(int(out.status), status);
    QCOMPARE(out.rows, rows);
    // Loading never changes the configured delimiter.
    QCOMPARE(loader.delimiter(), kTabLine);
}

void TestCsvLoader::encodings_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const QString text = QStringLiteral("h1\th2\n") + QChar(0x010D) + "\t" + QChar(0x65E5) + "\n";
    QTest::newRow("UTF-16LE with mark") << csvtest::utf16le(text);
    QTest::newRow("UTF-16LE without mark") << csvtest::utf16le(text, false);
    QTest::newRow("UTF-16BE with mark") << csvtest::utf16be(text);
    QTest::newRow("UTF-8 with mark") << QByteArray("\xEF\xBB\xBF") + text.toUtf8();
}

void TestCsvLoader::encodings()
{
    QFETCH(QByteArray, bytes);
    KCSVLoader loader(nullptr);
    const Outcome out = openAndTake(loader, file(bytes));
    QVERIFY(out.ok);
    QCOMPARE(out.rows, (Table{{"h1", "h2"}, {QString(QChar(0x010D)), QString(QChar(0x65E5))}}));
}

void TestCsvLoader::progressCountsPhysicalLines()
{
    KCSVLoader loader(nullptr);
    QSignalSpy spy(&loader, &KCSVInterface::updateStatus);
    QVERIFY(loader.openFile(file(csvtest::utf16le("h\tx\n\na\tb\n\"c\nd\"\te\n"))));
    QList<QPair<QString, int>> seen;
    for (const QList<QVariant>& call : spy)
        seen << qMakePair(call.at(0).toString(), call.at(1).toInt());
    const QList<QPair<QString, int>> expected{
        {"total lines", 5}, {"current line", 1}, {"current line", 3}, {"current line", 5}};
    QCOMPARE(seen, expected);
}

void TestCsvLoader::headerCheck_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("unusable");
    QTest::addColumn<QString>("delimiter");
    QTest::addColumn<bool>("detected");

    QTest::newRow("delimiter, no quote") << "a\tb" << false << "\t" << false;
    QTest::newRow("delimiter right after closing quote") << "\"a\"\tb" << false << "\t" << false;
    QTest::newRow("quoted delimiter, delimiter after closing quote")
        << "x\"a\tb\"\tc" << false << "\t" << false;
    QTest::newRow("quoted delimiter at the end of the line")
        << "x\"a\tb\"" << true << "\t" << false;
    QTest::newRow("line opens with the quote, delimiter after it")
        << "\"a\tb\"\tc" << false << "\t" << false;
    QTest::newRow("line opens with the quote, commas after it")
        << "\"a\tb\"c,d,e" << false << "," << true;
    QTest::newRow("quote never closed") << "\"a\tb" << true << "\t" << false;
    QTest::newRow("delimiter before the first quote, commas")
        << "a\tb\"c,d,e\"" << false << "," << true;
    QTest::newRow("no delimiter, two commas") << "a,b,c" << false << "," << true;
    QTest::newRow("no delimiter, one comma") << "a,b" << true << "\t" << false;
}

void TestCsvLoader::headerCheck()
{
    QFETCH(QString, line);
    QFETCH(bool, unusable);
    QFETCH(QString, delimiter);
    QFETCH(bool, detected);

    KCSVLoader loader(nullptr);
    QStringList errors;
    QStringList warnings;
    QString local = loader.delimiter();
    QCOMPARE(loader.isLineFormatError(line, errors, warnings, local), unusable);
    QCOMPARE(local, delimiter);
    QCOMPARE(loader.delimiterDetected(), detected);
    QCOMPARE(errors, unusable ? QStringList{"File format error.\nCannot detect delimiter."}
                              : QStringList());
    QVERIFY(warnings.isEmpty());
    QCOMPARE(loader.status(),
             detected ? KCSVLoader::DelimiterDetected : KCSVLoader::NoFileSelected);
}

void TestCsvLoader::detection_data()
{
    QTest::addColumn<QString>("configured");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("found");

    QTest::newRow("tab configured, commas") << "\t"
                                            << "a,b,c"
                                            << ",";
    QTest::newRow("tab configured, tabs only") << "\t"
                                               << "a\tb\tc"
                                               << "";
    QTest::newRow("comma configured, tabs") << ","
                                            << "a\tb\tc"
                                            << "\t";
    QTest::newRow("tab is tried first") << ";"
                                        << "a\tb\tc,d,e"
                                        << "\t";
    QTest::newRow("one tab is not enough") << ";"
                                           << "a\tb,c,d"
                                           << ",";
    QTest::newRow("nothing twice") << ";"
                                   << "a\tb,c"
                                   << "";
}

void TestCsvLoader::detection()
{
    QFETCH(QString, configured);
    QFETCH(QString, line);
    QFETCH(QString, found);

    KCSVLoader loader(nullptr);
    loader.setDelimiter(configured);
    QString delimiter = QStringLiteral("unchanged");
    QCOMPARE(loader.autoDetectDelimiter(delimiter, line), !found.isEmpty());
    QCOMPARE(delimiter, found.isEmpty() ? QStringLiteral("unchanged") : found);
}

void TestCsvLoader::statusReports_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("reported");

    const QString title = QStringLiteral("Warning: Incorrect File Format");
    QTest::newRow("one warning") << "a\tb\n1\n"
                                 << QStringList{title, "Line 2 is 1 columns short of header."};
    QTest::newRow("two warnings") << "a\tb\n1\n1\t2\t3\n"
                                  << QStringList{title, "Line 2 is 1 columns short of header.\n"
                                                        "Line 3 is 1 columns more of header."};
    QTest::newRow("three warnings show two")
        << "a\tb\n1\n1\t2\t3\n4\n"
        << QStringList{title, "Line 2 is 1 columns short of header.\n"
                              "Line 3 is 1 columns more of header.\n..."};
    QTest::newRow("detected delimiter")
        << "SEG,SP1,TIME,EV1_ON\n1,2\n"
        << QStringList{title, "The file format has been modified. We strongly recommend you to "
                              "export the file again after final edits.\n"
                              "Line 2 is 2 columns short of header."};
    QTest::newRow("format errors")
        << "a\tb\n1\n\"x\n"
        << QStringList{"File cannot be loaded.", "Please check file format."};
    QTest::newRow("loaded") << "a\tb\n1\t2\n" << QStringList();
}

void TestCsvLoader::statusReports()
{
    QFETCH(QString, text);
    QFETCH(QStringList, reported);
    KCSVLoader loader(nullptr);
    QCOMPARE(openAndTake(loader, file(csvtest::utf16le(text))).reported, reported);
}

void TestCsvLoader::reportsRepeatOnEachCall()
{
    KCSVLoader loader(nullptr);
    QVERIFY(loader.fileContent().isEmpty());
    QCOMPARE(loader.errorMessageList(),
             (QStringList{"File cannot be loaded.", "Please select a file."}));

    QVERIFY(!loader.openFile(m_dir.filePath(QStringLiteral("missing.txt"))));
    QCOMPARE(loader.status(), KCSVLoader::OpenFailed);
    QVERIFY(loader.errorMessageList().isEmpty());
    QVERIFY(loader.fileContent().isEmpty());
    QVERIFY(loader.fileContent().isEmpty());
    const QStringList twice{"File cannot be opened.", "Please select the right file.",
                            "File cannot be opened.", "Please select the right file."};
    QCOMPARE(loader.errorMessageList(), twice);

    QVERIFY(!loader.openFile(QString()));
    QCOMPARE(loader.status(), KCSVLoader::NoFileSelected);
    QCOMPARE(loader.errorMessageList(), QStringList{"The file name is empty."});
}

void TestCsvLoader::errorReport_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("report");

    auto entries = [](int n) {
        QStringList lines;
        for (int k = 1; k <= n; ++k)
            lines << QStringLiteral("%1. error %1").arg(k);
        return lines.join(QLatin1Char('\n'));
    };
    QTest::newRow("none") << 0 << QString();
    QTest::newRow("one") << 1 << "1. error 1";
    QTest::newRow("two") << 2 << "1. error 1\n2. error 2";
    QTest::newRow("21") << 21 << entries(21);
    QTest::newRow("22") << 22 << entries(22) + "....";
    QTest::newRow("23") << 23 << entries(22) + "\n....";
    QTest::newRow("40") << 40 << entries(22) + "\n....";
}

void TestCsvLoader::errorReport()
{
    QFETCH(int, count);
    QFETCH(QString, report);
    QStringList errors;
    for (int k = 1; k <= count; ++k)
        errors << QStringLiteral("error %1").arg(k);
    QCOMPARE(kcsv::errorReport(errors), report);
}

void TestCsvLoader::stateBetweenLoads()
{
    KCSVLoader loader(nullptr);
    QVERIFY(loader.openFile(file(csvtest::utf16le("SEG,SP1,TIME,EV1_ON\n1,2,3,4\n"))));
    QVERIFY(loader.delimiterDetected());
    const Table first = loader.fileContent();
    QCOMPARE(first.size(), 2);

    // "No content" stops before the rows are replaced.
    QVERIFY(!loader.openFile(file(csvtest::utf16le("a\tb\n"))));
    QCOMPARE(loader.fileContent(), first);

    // The detection flag outlives its load and marks a later warning report.
    QVERIFY(loader.openFile(file(csvtest::utf16le("a\tb\n1\n"))));
    QVERIFY(loader.delimiterDetected());
    const QStringList before = loader.errorMessageList();
    QCOMPARE(loader.fileContent(), (Table{{"a", "b"}, {"1", ""}}));
    QVERIFY(loader.errorMessageList()
                .mid(before.size())
                .value(1)
                .startsWith(QStringLiteral("The file format has been modified.")));
}

void TestCsvLoader::settingsStoredOnlyAfterOpen()
{
    KCSVLoader loader(nullptr);
    const QString missingDir = m_dir.filePath(QStringLiteral("nowhere"));
    QVERIFY(!loader.openFile(missingDir + QStringLiteral("/a.txt")));
    QVERIFY(!csvtest::defaultDir().isValid());
    QVERIFY(loader.openFile(file(csvtest::utf16le("a\tb\n1\t2\n"))));
    QCOMPARE(csvtest::defaultDir().toString(), m_dir.path());
}

void TestCsvLoader::workerThreadCollectsMessages()
{
    const QString path = file(csvtest::utf16le("a\tb\n1\n"));
    bool ok = false;
    Table rows;
    QStringList errors;
    bool viaMetaObject = false;
    QStringList emptyNameErrors;
    csvtest::runInThread([&] {
        KCSVLoader loader(nullptr);
        ok = loader.openFile(path);
        rows = loader.fileContent();
        errors = loader.errorMessageList();
        bool opened = true;
        viaMetaObject =
            QMetaObject::invokeMethod(&loader, "openFile", Q_RETURN_ARG(bool, opened)) && !opened;
        emptyNameErrors = loader.errorMessageList();
    });
    QVERIFY(ok);
    QCOMPARE(rows, (Table{{"a", "b"}, {"1", ""}}));
    QCOMPARE(errors, (QStringList{"Warning: Incorrect File Format",
                                  "Line 2 is 1 columns short of header."}));
    QVERIFY(viaMetaObject);
    QCOMPARE(emptyNameErrors, QStringList{"The file name is empty."});
}

void TestCsvLoader::roundTrip_data()
{
    QTest::addColumn<int>("seed");
    QTest::addColumn<QString>("delimiter");
    for (int seed = 1; seed <= 200; ++seed)
        QTest::newRow(qPrintable(QStringLiteral("seed %1").arg(seed)))
            << seed << (seed % 3 == 0 ? QStringLiteral(",") : QStringLiteral("\t"));
}

// Any table comes back unchanged when all rows have the header's width, the
// header line passes the header check (here: no quotes, so it always does)
// and no cell holds a carriage return. The header holds no NUL either: a
// UTF-16LE mark followed by U+0000 reads as the UTF-32LE mark.
void TestCsvLoader::roundTrip()
{
    QFETCH(int, seed);
    QFETCH(QString, delimiter);
    std::mt19937 rng(seed);
    const QString cellChars = csvtest::cellAlphabet() + QChar(0);
    QString headerChars;
    for (QChar c : cellChars) {
        if (c != QChar(0) && c != '"' && c != '\n' && !delimiter.contains(c))
            headerChars += c;
    }
    const int width = std::uniform_int_distribution<int>(2, 8)(rng);
    const int rows = std::uniform_int_distribution<int>(1, 15)(rng);
    Table table;
    QStringList header;
    for (int c = 0; c < width; ++c)
        header << csvtest::randomCell(rng, headerChars, 12);
    table << header;
    for (int r = 0; r < rows; ++r) {
        QStringList row;
        for (int c = 0; c < width; ++c)
            row << csvtest::randomCell(rng, cellChars, 8);
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

void TestCsvLoader::hostileFiles_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<Table>("rows");
    QTest::addColumn<QStringList>("errors");

    const QStringList noContent{"No content found in the imported file."};
    QTest::newRow("empty file") << QByteArray() << false << Table() << noContent;
    QTest::newRow("only the byte-order mark")
        << QByteArray("\xFF\xFE") << false << Table() << noContent;
    QTest::newRow("odd byte count") << csvtest::utf16le("h1\th2\n1\t2\n") + 'A' << true
                                    << Table{{"h1", "h2"}, {"1", "2"}} << QStringList();
    const QString lone = QString(QChar(0xD800)) + "x" + QChar(0xDFFF);
    QTest::newRow("lone surrogates kept") << csvtest::utf16le("h1\th2\n" + lone + "\t2\n") << true
                                          << Table{{"h1", "h2"}, {lone, "2"}} << QStringList();
    const QString nul = QString(QChar(0)) + "x";
    QTest::newRow("NUL characters kept")
        << csvtest::utf16le("h1\th2\n" + nul + "\t" + QChar(0) + "\n") << true
        << Table{{"h1", "h2"}, {nul, QString(QChar(0))}} << QStringList();
    QTest::newRow("one enormous line")
        << csvtest::utf16le(QString(1 << 20, QLatin1Char('a'))) << false << Table() << noContent;
    QTest::newRow("quote opened at the start of a long file")
        << csvtest::utf16le("h1\th2\n\"" + QString("a\tb\n").repeated(100000)) << false
        << Table{{"h1", "h2"}} << QStringList{"Format error at line 100002"};
    QTest::newRow("UTF-8 mark") << QByteArray("\xEF\xBB\xBFh1\th2\n1\t2") << true
                                << Table{{"h1", "h2"}, {"1", "2"}} << QStringList();
    QTest::newRow("big-endian mark") << csvtest::utf16be("h1\th2\n1\t2") << true
                                     << Table{{"h1", "h2"}, {"1", "2"}} << QStringList();
    // A UTF-16 text whose code units hold 0x0D bytes survives whole.
    const QString crBytes = QString(QChar(0x010D)) + QChar(0x0D0D) + QChar(0x0A0D);
    QTest::newRow("0x0D bytes inside characters")
        << csvtest::utf16le("h1\th2\n" + crBytes + "\t2\n") << true
        << Table{{"h1", "h2"}, {crBytes, "2"}} << QStringList();
}

void TestCsvLoader::hostileFiles()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, ok);
    QFETCH(Table, rows);
    QFETCH(QStringList, errors);

    KCSVLoader loader(nullptr);
    const Outcome out = openAndTake(loader, file(bytes));
    QCOMPARE(out.errors, errors);
    QCOMPARE(out.ok, ok);
    QCOMPARE(out.rows, rows);
}

void TestCsvLoader::wideHeaderPaddingIsBounded()
{
    // Padding every short row to a 200,000-column header would need
    // billions of cells; the load stops with a format error instead.
    const QString text = QString(200000, QLatin1Char('\t')) + "\n" + QString("x\n").repeated(2000);
    KCSVLoader loader(nullptr);
    const Outcome out = openAndTake(loader, file(csvtest::utf16le(text)));
    QVERIFY(!out.ok);
    QCOMPARE(out.errors.size(), 1);
    QVERIFY(out.errors.first().startsWith(QStringLiteral("Format error at line ")));
    QCOMPARE(out.status, KCSVLoader::FormatErrors);
    QVERIFY(out.rows.isEmpty());
}

void TestCsvLoader::unopenableKinds()
{
    KCSVLoader loader(nullptr);
    for (const QString& path : {QStringLiteral("/dev/zero"), m_dir.path()}) {
        QVERIFY(!loader.openFile(path));
        QCOMPARE(loader.status(), KCSVLoader::OpenFailed);
    }
}

QTEST_GUILESS_MAIN(TestCsvLoader)
#include "tst_csv_loader.moc"

// The loader outside the GUI thread, as the program-file worker uses it.

#include "csv/kcsvloader.h"
#include "csv/kcsvtextreader.h"
#include "tests/csv_common/csvtestsupport.h"

#include <QtTest>

#include <random>

using Table = QList<QStringList>;

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
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<int>("status");
        QTest::addColumn<Table>("rows");
        QTest::addColumn<QStringList>("errors");
        QTest::addColumn<QStringList>("warnings");
        auto row = [](const char* name, const QByteArray& bytes, bool ok, int status,
                      const Table& rows, const QStringList& errors = {},
                      const QStringList& warnings = {}) {
            QTest::newRow(name) << bytes << ok << status << rows << errors << warnings;
        };
        auto t = [](const QString& text) { return csvtest::utf16le(text); };
        const int loaded = KCSVLoader::Loaded;
        const int mismatch = KCSVLoader::ColumnCountMismatch;

        row("header and a blank line", t("SEG\tSP1\n\n"), true, loaded, {{"SEG", "SP1"}});
        row("short and long rows, blank lines counted", t("a\tb\tc\n\n1\n1\t2\t3\t4\t5\n"), true,
            mismatch, {{"a", "b", "c"}, {"1", "", ""}, {"1", "2", "3", "4", "5"}}, {},
            {"Line 3 is 2 columns short of header.", "Line 4 is 2 columns more of header."});
        row("quoted cells", t("h1\th2\th3\n\"\"\t\"a\"\"b\"\tx\"y\n"), true, loaded,
            {{"h1", "h2", "h3"}, {"", "a\"b", "x\"y"}});
        row("cell across lines", t("h1\th2\n\"a\tb\n\nc\"\td\n1\n"), true, mismatch,
            {{"h1", "h2"}, {"a\tb\n\nc", "d"}, {"1", ""}}, {},
            {"Line 5 is 1 columns short of header."});
        row("CR LF line ends", t("h1\th2\r\n1\t3\r\n"), true, loaded, {{"h1", "h2"}, {"1", "3"}});
        row("quote left open", t("h1\th2\n1\n\"open\n"), false, KCSVLoader::FormatErrors, {},
            {"Format error at line 4"}, {"Line 2 is 1 columns short of header."});
        // The first row is width-checked only when it runs past the first line.
        row("header row over two lines", t("\"h\n1\"\th2\n1\t2\n"), true, mismatch,
            {{"h\n1", "h2"}, {"1", "2"}}, {},
            {"Line 2 is 1 columns more of header.", "Line 3 is 1 columns more of header."});
        row("comma file detected", t("SEG,SP1,TIME,EV1_ON\n1,2,3,4\n"), true, loaded,
            {{"SEG", "SP1", "TIME", "EV1_ON"}, {"1", "2", "3", "4"}});
        row("one comma: nothing detected", t("SEGMENT,SETPOINT\n1,2\n"), false, loaded, {},
            {"File format error.\nCannot detect delimiter."});
        row("short first line not checked", t("SEG,SP1\n1,2\n"), true, loaded,
            {{"SEG,SP1"}, {"1,2"}});
        const QString text = QStringLiteral("h1\th2\n") + QChar(0x010D) + "\t" + QChar(0x65E5);
        const Table rows{{"h1", "h2"}, {QString(QChar(0x010D)), QString(QChar(0x65E5))}};
        row("UTF-16LE without mark", csvtest::utf16le(text, false), true, loaded, rows);
        row("UTF-8 with mark", "\xEF\xBB\xBF" + text.toUtf8(), true, loaded, rows);
        // Sizes no fuzzing run reaches: memory and time must stay bounded.
        // Errors without warnings still end as Loaded; a fresh loader has no rows.
        row("one enormous line", t(QString(1 << 20, 'a')), false, loaded, {},
            {"No content found in the imported file."});
        row("quote opened at the start of a long file",
            t("h1\th2\n\"" + QString("a\tb\n").repeated(100000)), false, loaded, {{"h1", "h2"}},
            {"Format error at line 100002"});
        // Padding every row to a 200,000-column header would need billions of cells.
        QStringList padded;
        for (int line = 2; line <= 22; ++line)
            padded << QStringLiteral("Line %1 is 200000 columns short of header.").arg(line);
        row("short rows under a very wide header",
            t(QString(200000, '\t') + "\n" + QString("x\n").repeated(2000)), false,
            KCSVLoader::FormatErrors, {}, {"Format error at line 23"}, padded);
    }
    void parse()
    {
        QFETCH(QByteArray, bytes);
        KCSVLoader loader(nullptr);
        QTEST(loader.openFile(csvtest::writeFile(m_dir, bytes)), "ok");
        QTEST(loader.errorMessageList(), "errors");
        QTEST(loader.warningMessageList(), "warnings");
        QTEST(int(loader.status()), "status");
        QTEST(loader.fileContent(), "rows");
        QCOMPARE(loader.delimiter(), QStringLiteral("\t"));
    }

    // The file is read in chunks; with chunks of every size from one
    // character up, a boundary falls at every position of the text, so a
    // cell, a line end or a character split between two chunks must load as
    // if read whole. UTF-8 goes through the stream rather than the copy.
    void chunkBoundaries_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<Table>("rows");
        QTest::addColumn<int>("lines");
        const QString smile = QString::fromUtf8("\xF0\x9F\x98\x80");
        const QString quoted = "h1\th2\n\"a\tb\n\"\"c\"\"\"\td\n";
        const Table quotedRows{{"h1", "h2"}, {"a\tb\n\"c\"", "d"}};
        QTest::newRow("quoted cell") << csvtest::utf16le(quoted) << quotedRows << 3;
        QTest::newRow("quoted cell, UTF-8") << "\xEF\xBB\xBF" + quoted.toUtf8() << quotedRows << 3;
        QTest::newRow("CR LF") << csvtest::utf16le("h1\th2\r\n1\t2\r\n\r\n3\t4\r")
                               << Table{{"h1", "h2"}, {"1", "2"}, {"3", "4"}} << 4;
        QTest::newRow("surrogate pairs")
            << csvtest::utf16le("h1\th2\n" + smile + "\t\"" + smile + "\t" + smile + "\"\n")
            << Table{{"h1", "h2"}, {smile, smile + "\t" + smile}} << 2;
    }
    void chunkBoundaries()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(Table, rows);
        QFETCH(int, lines);
        const QString path = csvtest::writeFile(m_dir, bytes);
        const int defaultChunk = kcsv::loadChunkChars();
        for (int chunk = 1; chunk <= bytes.size(); ++chunk) {
            kcsv::setLoadChunkChars(chunk);
            KCSVLoader loader(nullptr);
            QSignalSpy progress(&loader, &KCSVInterface::updateStatus);
            const bool ok = loader.openFile(path);
            kcsv::setLoadChunkChars(defaultChunk);
            QVERIFY2(ok, qPrintable(QStringLiteral("chunk %1").arg(chunk)));
            QCOMPARE(loader.fileContent(), rows);
            QCOMPARE(progress.first(), QVariantList({"total lines", lines}));
            QCOMPARE(progress.last(), QVariantList({"current line", lines}));
        }
    }

    // Equal short cells may share one string. Values that differ only in a
    // last character, in length, in a character past Latin-1 or by a NUL,
    // in columns that repeat a few values, never repeat, or change their
    // habit halfway, must each load as written.
    void repeatedShortCells()
    {
        const QString alphabet = QStringLiteral("0aZ:.-") + QChar(0x01) + QChar(0xFF) +
                                 QChar(0x100) + QChar(0x65E5) + QChar(0);
        std::mt19937 rng(7);
        auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
        auto word = [&](int length) {
            QString cell;
            for (int k = 0; k < length; ++k)
                cell += alphabet.at(pick(alphabet.size()));
            return cell;
        };
        QStringList few;
        for (int k = 0; k < 40; ++k)
            few << word(1 + k % 10);
        Table rows{{"few", "unique", "mixed", "prefix"}};
        QString text = rows.first().join('\t') + '\n';
        for (int r = 0; r < 6000; ++r) {
            const QString stem = word(7);
            const QStringList row{few.at(pick(few.size())), word(1 + pick(9)),
                                  r < 3000 ? word(3) : few.at(pick(4)),
                                  r % 2 ? stem : stem + alphabet.at(pick(alphabet.size()))};
            rows << row;
            text += row.join('\t') + '\n';
        }
        KCSVLoader loader(nullptr);
        QVERIFY(loader.openFile(csvtest::textFile(m_dir, text)));
        QCOMPARE(loader.fileContent(), rows);
    }

    // The padding budget grows with the whole text: a long line after the
    // short rows lets them pass even when it has not been read yet.
    void paddingBudgetCountsTheWholeText()
    {
        const QString text = QString(10000, '\t') + "\n" + QString("x\n").repeated(120);
        const int defaultChunk = kcsv::loadChunkChars();
        kcsv::setLoadChunkChars(4096);
        KCSVLoader loader(nullptr);
        const bool withTail = loader.openFile(csvtest::textFile(m_dir, text + QString(50000, 'y')));
        const int warnings = loader.warningMessageList().size();
        const bool withoutTail = loader.openFile(csvtest::textFile(m_dir, text + "x\nx\nx\n"));
        kcsv::setLoadChunkChars(defaultChunk);
        QVERIFY(withTail);
        QCOMPARE(warnings, 121);
        QVERIFY(!withoutTail);
        QCOMPARE(loader.errorMessageList(), QStringList{"Format error at line 123"});
    }

    // The header check's quote handling, and the detection it falls back on:
    // tab, then comma, never the configured delimiter, whichever occurs twice.
    void headerCheck_data()
    {
        QTest::addColumn<QString>("configured");
        QTest::addColumn<QString>("line");
        QTest::addColumn<bool>("unusable");
        QTest::addColumn<QString>("delimiter");
        QTest::newRow("delimiter after closing quote") << "\t"
                                                       << "\"a\"\tb" << false << "\t";
        QTest::newRow("quote never closed") << "\t"
                                            << "\"a\tb" << true << "\t";
        QTest::newRow("commas beyond a quote") << "\t"
                                               << "a\tb\"c,d,e\"" << false << ",";
        QTest::newRow("quoted tabs only") << "\t"
                                          << "x\"a\tb\tc\"" << true << "\t";
        QTest::newRow("one tab is not enough") << ";"
                                               << "a\tb,c,d" << false << ",";
    }
    void headerCheck()
    {
        QFETCH(QString, configured);
        QFETCH(QString, line);
        QFETCH(bool, unusable);
        KCSVLoader loader(nullptr);
        loader.setDelimiter(configured);
        QStringList errors, warnings;
        QString local = configured;
        QCOMPARE(loader.isLineFormatError(line, errors, warnings, local), unusable);
        QTEST(local, "delimiter");
        QCOMPARE(loader.delimiterDetected(), local != configured);
        QCOMPARE(errors, unusable ? QStringList{"File format error.\nCannot detect delimiter."}
                                  : QStringList());
        QVERIFY(warnings.isEmpty());
        QCOMPARE(loader.status(),
                 local != configured ? KCSVLoader::DelimiterDetected : KCSVLoader::NoFileSelected);
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

    // What fileContent appends for each outcome, each time it is called, and
    // what one load leaves for the next.
    void reportsBetweenLoads()
    {
        KCSVLoader loader(nullptr);
        QStringList reported;
        auto load = [&](const QString& path) {
            loader.openFile(path);
            const int before = loader.errorMessageList().size();
            const Table rows = loader.fileContent();
            reported = loader.errorMessageList().mid(before);
            return rows;
        };
        // Missing, a device, a directory, and too large to hold in memory.
        QFile huge(m_dir.filePath(QStringLiteral("huge.txt")));
        QVERIFY(huge.open(QIODevice::WriteOnly) && huge.resize(kcsv::kMaxFileBytes + 1));
        for (const QString& path : {m_dir.filePath(QStringLiteral("missing.txt")),
                                    QStringLiteral("/dev/zero"), m_dir.path(), huge.fileName()}) {
            QVERIFY(load(path).isEmpty());
            QCOMPARE(loader.status(), KCSVLoader::OpenFailed);
        }
        QVERIFY(!csvtest::defaultDir().isValid());
        loader.fileContent();
        QCOMPARE(loader.errorMessageList(),
                 QStringList({"File cannot be opened.", "Please select the right file.",
                              "File cannot be opened.", "Please select the right file."}));

        load(csvtest::textFile(m_dir, "a\tb\n1\n\"x\n"));
        QCOMPARE(reported, QStringList({"File cannot be loaded.", "Please check file format."}));
        const Table detected = load(csvtest::textFile(m_dir, "SEG,SP1,TIME,EV1_ON\n1,2,3,4\n"));
        QVERIFY(reported.isEmpty() && detected.size() == 2);
        QCOMPARE(csvtest::defaultDir().toString(), m_dir.path());
        // "No content" stops before the rows are replaced.
        QCOMPARE(load(csvtest::textFile(m_dir, "a\tb\n")), detected);
        // The detection flag outlives its load and marks a later warning report.
        load(csvtest::textFile(m_dir, "a\tb\n1\n\n1\t2\t3\n4\n"));
        QCOMPARE(reported, QStringList({"Warning: Incorrect File Format",
                                        "The file format has been modified. We strongly "
                                        "recommend you to export the file again after final "
                                        "edits.\nLine 2 is 1 columns short of header.\nLine 4 is 1 "
                                        "columns more of header.\n..."}));
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestCsvLoader)
#include "tst_csv_loader.moc"

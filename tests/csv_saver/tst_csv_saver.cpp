// The saver outside the GUI thread: exact file bytes, quoting, settings of
// the shared base, and the messages a worker collects.

#include "csv/kcsvloader.h"
#include "tests/csv_common/csvtestsupport.h"

#include <QTextCodec>
#include <QtTest>

using Table = QList<QStringList>;
Q_DECLARE_METATYPE(Table)

class TestCsvSaver : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        csvtest::isolateSettings(m_dir, QStringLiteral("test_csv_saver"));
    }

    void init() { QSettings().clear(); }

    void settingsDefaultsAndFormats()
    {
        KCSVSaver saver(nullptr);
        QTextCodec* codec = saver.textCodec();
        QVERIFY(codec);
        QCOMPARE(codec->name(), QByteArray("UTF-16LE"));
        QCOMPARE(saver.delimiter(), QStringLiteral("\t"));
        QCOMPARE(saver.fileFormat(), KCSVInterface::TxtFormat);
        QCOMPARE(saver.fileFilter(), QStringLiteral("Text File (*.txt)"));
        QVERIFY(!saver.askFormatEachTime());

        saver.setFileFormat(KCSVInterface::CsvFormat);
        QCOMPARE(saver.delimiter(), QStringLiteral(","));
        QCOMPARE(saver.fileFilter(), QStringLiteral("CSV File (*.csv)"));
        QCOMPARE(saver.textCodec(), codec);
        // An unknown format is kept but changes neither delimiter nor filter.
        saver.setFileFormat(KCSVInterface::FileFormat(7));
        QCOMPARE(int(saver.fileFormat()), 7);
        QCOMPARE(saver.delimiter() + saver.fileFilter(), QStringLiteral(",CSV File (*.csv)"));
        saver.setFileFormat(KCSVInterface::TxtFormat);
        QCOMPARE(saver.delimiter() + saver.fileFilter(), QStringLiteral("\tText File (*.txt)"));
    }

    void quoteCell_data()
    {
        QTest::addColumn<QString>("cell");
        QTest::addColumn<QString>("delimiter");
        QTest::addColumn<QString>("written");
        auto row = [](const char* name, const char* cell, const char* delimiter,
                      const char* written) {
            QTest::newRow(name) << QString(cell) << QString(delimiter) << QString(written);
        };
        row("plain, blanks and leading zeros kept", " 007 ", "\t", " 007 ");
        row("empty", "", "\t", "");
        row("comma bare with tab", "1,5", "\t", "1,5");
        row("comma quoted with comma", "1,5", ",", "\"1,5\"");
        row("tab quoted", "a\tb", "\t", "\"a\tb\"");
        row("tab bare with comma", "a\tb", ",", "a\tb");
        row("only a quote", "\"", "\t", "\"\"\"\"");
        row("two quotes inside", "a\"b\"c", "\t", "\"a\"\"b\"\"c\"");
        row("line feed", "a\nb", "\t", "\"a\nb\"");
        row("carriage return alone bare", "a\rb", "\t", "a\rb");
        row("multi-char delimiter", "a||b", "||", "\"a||b\"");
        row("part of a multi-char delimiter", "a|b", "||", "a|b");
    }
    void quoteCell()
    {
        QFETCH(QString, cell);
        QFETCH(QString, delimiter);
        QTEST(kcsv::quoteCell(cell, delimiter), "written");
    }

    void fileBytes_data()
    {
        QTest::addColumn<Table>("table");
        QTest::addColumn<QString>("delimiter");
        QTest::addColumn<QString>("text");
        auto row = [](const char* name, const Table& table, const char* delimiter,
                      const QString& text) {
            QTest::newRow(name) << table << QString(delimiter) << text;
        };
        row("rows and line ends", {{"SEG", "SP1"}, {"SEG1", "100.0"}}, "\t",
            "SEG\tSP1\nSEG1\t100.0\n");
        row("ragged rows unchanged", {{"a", "b", "c"}, {"1"}, {"1", "2", "3", "4"}}, "\t",
            "a\tb\tc\n1\n1\t2\t3\t4\n");
        row("row without cells leaves no line", {{"a", "b"}, {}, {"c", "d"}}, "\t", "a\tb\nc\td\n");
        row("blank cells", {{"", ""}, {"", "x"}}, "\t", "\t\n\tx\n");
        row("quoted cell spans two lines", {{"h1", "h2"}, {"a\nb", "c"}}, "\t",
            "h1\th2\n\"a\nb\"\tc\n");
        row("comma delimiter", {{"a,b", "c\td"}, {"1", "2"}}, ",", "\"a,b\",c\td\n1,2\n");
        const QString cjk(QChar(0x65E5)), caron(QChar(0x010D));
        row("non-Latin text", {{cjk, caron}}, "\t", cjk + "\t" + caron + "\n");
    }
    void fileBytes()
    {
        QFETCH(Table, table);
        QFETCH(QString, delimiter);
        QFETCH(QString, text);
        const QString path = m_dir.filePath(QStringLiteral("bytes.txt"));
        KCSVSaver saver(nullptr);
        saver.setDelimiter(delimiter);
        QVERIFY(saver.saveFile(table, path));
        QVERIFY(saver.errorMessageList().isEmpty());
        QCOMPARE(csvtest::readFile(path), csvtest::utf16le(text));
    }

    void emptyTableAndNoMark()
    {
        const QString path = csvtest::writeFile(m_dir, QStringLiteral("old.txt"), "old content");
        KCSVSaver saver(nullptr);
        QVERIFY(saver.saveFile(Table(), path));
        // Nothing was written, so not even the byte-order mark.
        QCOMPARE(csvtest::readFile(path), QByteArray());
        QCOMPARE(csvtest::defaultDir().toString(), m_dir.path());

        saver.setGenerateByteOrderMark(false);
        QVERIFY(saver.saveFile(Table{{"A", "B"}}, path));
        QCOMPARE(csvtest::readFile(path), csvtest::utf16le(QStringLiteral("A\tB\n"), false));
    }

    void workerMessages_data()
    {
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<bool>("result");
        QTest::addColumn<QStringList>("errors");
        QTest::addColumn<QVariant>("storedDir");
        const QString missingDir = m_dir.filePath(QStringLiteral("missing"));
        QTest::newRow("written") << m_dir.filePath(QStringLiteral("w.txt")) << true << QStringList()
                                 << QVariant(m_dir.path());
        QTest::newRow("empty name")
            << QString() << false << QStringList{"The file name is empty."} << QVariant();
        // The directory is remembered before the open is tried.
        QTest::newRow("cannot be opened")
            << missingDir + QStringLiteral("/x.txt") << false
            << QStringList{"File cannot be opened."} << QVariant(missingDir);
        QTest::newRow("medium full") << QStringLiteral("/dev/full") << false
                                     << QStringList{"File cannot be written."} << QVariant("/dev");
    }
    void workerMessages()
    {
        QFETCH(QString, fileName);
        QFETCH(bool, result);
        bool saved = !result;
        QStringList messages;
        csvtest::runInThread([&] {
            KCSVSaver saver(nullptr);
            // Nobody can answer a question in a worker: the save goes on unasked.
            saver.setAskFormatEachTime(true);
            saved = saver.saveFile(Table{{"SEG", "SP1"}, {"SEG1", "1.0"}}, fileName);
            messages = saver.errorMessageList();
        });
        QCOMPARE(saved, result);
        QTEST(messages, "errors");
        QTEST(csvtest::defaultDir(), "storedDir");
        if (result)
            QCOMPARE(csvtest::readFile(fileName), csvtest::utf16le("SEG\tSP1\nSEG1\t1.0\n"));
    }

    void errorsBelongToTheLatestCall()
    {
        KCSVSaver saver(nullptr);
        QVERIFY(!saver.saveFile(Table{{"a"}}, QString()));
        QVERIFY(!saver.saveFile(Table{{"a"}}, QStringLiteral("/nonexistent-dir/a.txt")));
        QCOMPARE(saver.errorMessageList(), QStringList{QStringLiteral("File cannot be opened.")});
        QVERIFY(saver.saveFile(Table{{"a"}}, m_dir.filePath(QStringLiteral("ok.txt"))));
        QVERIFY(saver.errorMessageList().isEmpty());
    }

    void slotFormsThroughMetaObject()
    {
        const QString path = m_dir.filePath(QStringLiteral("meta.txt"));
        KCSVSaver saver(nullptr);
        const Table table{{"x", "y"}};
        bool saved = false;
        QVERIFY(QMetaObject::invokeMethod(&saver, "saveFile", Q_RETURN_ARG(bool, saved),
                                          Q_ARG(QList<QStringList>, table), Q_ARG(QString, path)));
        QVERIFY(saved);
        QCOMPARE(csvtest::readFile(path), csvtest::utf16le(QStringLiteral("x\ty\n")));

        QVERIFY(QMetaObject::invokeMethod(&saver, "saveFile", Q_RETURN_ARG(bool, saved),
                                          Q_ARG(QList<QStringList>, table)));
        QVERIFY(!saved);
        QStringList errors;
        QVERIFY(QMetaObject::invokeMethod(&saver, "errorMessageList",
                                          Q_RETURN_ARG(QStringList, errors)));
        QCOMPARE(errors, QStringList{QStringLiteral("The file name is empty.")});
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestCsvSaver)
#include "tst_csv_saver.moc"

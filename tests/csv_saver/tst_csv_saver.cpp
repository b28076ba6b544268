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

    // The format sets delimiter and filter together and leaves the codec.
    void formats()
    {
        KCSVSaver saver(nullptr);
        auto settings = [&] { return saver.delimiter() + '|' + saver.fileFilter(); };
        saver.setFileFormat(KCSVInterface::CsvFormat);
        QCOMPARE(settings(), QStringLiteral(",|CSV File (*.csv)"));
        saver.setFileFormat(KCSVInterface::TxtFormat);
        QCOMPARE(settings(), QStringLiteral("\t|Text File (*.txt)"));
        QCOMPARE(saver.textCodec()->name(), QByteArray("UTF-16LE"));
    }

    // The file is truncated first; an empty table writes nothing, not even the
    // byte-order mark.
    void fileBytes_data()
    {
        QTest::addColumn<Table>("table");
        QTest::addColumn<QString>("delimiter");
        QTest::addColumn<bool>("mark");
        QTest::addColumn<QByteArray>("bytes");
        const QString cjk(QChar(0x65E5)), caron(QChar(0x010D)), big(70000, QLatin1Char('a'));
        auto row = [](const char* name, const Table& table, const char* delimiter,
                      const QString& text, bool mark = true) {
            QTest::newRow(name) << table << QString(delimiter) << mark
                                << csvtest::utf16le(text, mark);
        };
        row("ragged and empty rows, blank cells", {{"a", "", "c"}, {}, {"1"}, {"", "2", "3", "4"}},
            "\t", "a\t\tc\n1\n\t2\t3\t4\n");
        row("quoted cell spans two lines, non-Latin text",
            {{"h1", "h2"}, {cjk + "\n" + caron, "c"}}, "\t",
            "h1\th2\n\"" + cjk + "\n" + caron + "\"\tc\n");
        row("comma delimiter", {{"a,b", "c\td"}, {"1", "2"}}, ",", "\"a,b\",c\td\n1,2\n");
        // Blanks, leading zeros and a lone carriage return stay bare.
        row("quotes doubled", {{" 007 ", "1,5", "\"", "a\"b\"c", "a\rb"}}, "\t",
            " 007 \t1,5\t\"\"\"\"\t\"a\"\"b\"\"c\"\ta\rb\n");
        row("multi-char delimiter", {{"a||b", "a|b"}}, "||", "\"a||b\"||a|b\n");
        row("beyond one write chunk", {{big, "b"}, {"c"}}, "\t", big + "\tb\nc\n");
        row("without the mark", {{"A", "B"}}, "\t", "A\tB\n", false);
        QTest::newRow("empty table") << Table() << "\t" << true << QByteArray();
    }
    void fileBytes()
    {
        QFETCH(Table, table);
        QFETCH(QString, delimiter);
        QFETCH(bool, mark);
        const QString path = csvtest::writeFile(m_dir, QStringLiteral("old.txt"), "old content");
        KCSVSaver saver(nullptr);
        saver.setDelimiter(delimiter);
        saver.setGenerateByteOrderMark(mark);
        QVERIFY(saver.saveFile(table, path));
        QVERIFY(saver.errorMessageList().isEmpty());
        QTEST(csvtest::readFile(path), "bytes");
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
    }

    // Both slot forms by name; each call's list holds only its own messages.
    void slotFormsAndLatestErrors()
    {
        KCSVSaver saver(nullptr);
        const Table table{{"x", "y"}};
        const QString path = m_dir.filePath(QStringLiteral("meta.txt"));
        bool withoutName = true;
        bool withName = false;
        QVERIFY(QMetaObject::invokeMethod(&saver, "saveFile", Q_RETURN_ARG(bool, withoutName),
                                          Q_ARG(QList<QStringList>, table)));
        QVERIFY(!saver.saveFile(table, QStringLiteral("/nonexistent-dir/a.txt")));
        QCOMPARE(saver.errorMessageList(), QStringList{"File cannot be opened."});
        QVERIFY(QMetaObject::invokeMethod(&saver, "saveFile", Q_RETURN_ARG(bool, withName),
                                          Q_ARG(QList<QStringList>, table), Q_ARG(QString, path)));
        QVERIFY(!withoutName && withName && saver.errorMessageList().isEmpty());
        QVERIFY(QFile::exists(path));
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestCsvSaver)
#include "tst_csv_saver.moc"

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
    void initTestCase();
    void init();

    void settingsDefaultsAndFormats();
    void quoteCell_data();
    void quoteCell();
    void fileBytes_data();
    void fileBytes();
    void emptyTableTruncates();
    void byteOrderMarkOff();
    void workerMessages_data();
    void workerMessages();
    void errorsBelongToTheLatestCall();
    void askFlagDoesNotBlockAWorker();
    void slotFormsThroughMetaObject();

private:
    QTemporaryDir m_dir;
};

void TestCsvSaver::initTestCase()
{
    QVERIFY(m_dir.isValid());
    csvtest::isolateSettings(m_dir, QStringLiteral("test_csv_saver"));
}

void TestCsvSaver::init()
{
    QSettings().clear();
}

void TestCsvSaver::settingsDefaultsAndFormats()
{
    KCSVSaver saver(nullptr);
    QVERIFY(saver.parent() == nullptr);
    QVERIFY(saver.textCodec());
    QCOMPARE(saver.textCodec()->name(), QByteArray("UTF-16LE"));
    QCOMPARE(saver.delimiter(), QStringLiteral("\t"));
    QCOMPARE(saver.fileFormat(), KCSVInterface::TxtFormat);
    QCOMPARE(saver.fileFilter(), QStringLiteral("Text File (*.txt)"));
    QVERIFY(!saver.askFormatEachTime());

    QTextCodec* codec = saver.textCodec();
    saver.setFileFormat(KCSVInterface::CsvFormat);
    QCOMPARE(saver.delimiter(), QStringLiteral(","));
    QCOMPARE(saver.fileFilter(), QStringLiteral("CSV File (*.csv)"));
    QCOMPARE(saver.textCodec(), codec);

    // An unknown format is kept but changes neither delimiter nor filter.
    saver.setFileFormat(KCSVInterface::FileFormat(7));
    QCOMPARE(int(saver.fileFormat()), 7);
    QCOMPARE(saver.delimiter(), QStringLiteral(","));
    QCOMPARE(saver.fileFilter(), QStringLiteral("CSV File (*.csv)"));

    saver.setFileFormat(KCSVInterface::TxtFormat);
    QCOMPARE(saver.delimiter(), QStringLiteral("\t"));
    QCOMPARE(saver.fileFilter(), QStringLiteral("Text File (*.txt)"));
}

void TestCsvSaver::quoteCell_data()
{
    QTest::addColumn<QString>("cell");
    QTest::addColumn<QString>("delimiter");
    QTest::addColumn<QString>("written");

    const QString tab = QStringLiteral("\t");
    QTest::newRow("plain") << "SP1" << tab << "SP1";
    QTest::newRow("empty") << "" << tab << "";
    QTest::newRow("leading zeros and spaces kept") << " 007 " << tab << " 007 ";
    QTest::newRow("comma bare with tab") << "1,5" << tab << "1,5";
    QTest::newRow("comma quoted with comma") << "1,5"
                                             << ","
                                             << "\"1,5\"";
    QTest::newRow("tab quoted") << "a\tb" << tab << "\"a\tb\"";
    QTest::newRow("tab bare with comma") << "a\tb"
                                         << ","
                                         << "a\tb";
    QTest::newRow("only a quote") << "\"" << tab << "\"\"\"\"";
    QTest::newRow("two quotes inside") << "a\"b\"c" << tab << "\"a\"\"b\"\"c\"";
    QTest::newRow("adjacent quotes") << "\"\"" << tab << "\"\"\"\"\"\"";
    QTest::newRow("line feed") << "a\nb" << tab << "\"a\nb\"";
    QTest::newRow("carriage return alone bare") << "a\rb" << tab << "a\rb";
    QTest::newRow("multi-char delimiter") << "a||b"
                                          << "||"
                                          << "\"a||b\"";
    QTest::newRow("part of a multi-char delimiter") << "a|b"
                                                    << "||"
                                                    << "a|b";
}

void TestCsvSaver::quoteCell()
{
    QFETCH(QString, cell);
    QFETCH(QString, delimiter);
    QFETCH(QString, written);
    QCOMPARE(kcsv::quoteCell(cell, delimiter), written);
}

void TestCsvSaver::fileBytes_data()
{
    QTest::addColumn<Table>("table");
    QTest::addColumn<QString>("delimiter");
    QTest::addColumn<QString>("text");

    QTest::newRow("rows and line ends") << Table{{"SEG", "SP1"}, {"SEG1", "100.0"}} << "\t"
                                        << "SEG\tSP1\nSEG1\t100.0\n";
    QTest::newRow("ragged rows unchanged")
        << Table{{"a", "b", "c"}, {"1"}, {"1", "2", "3", "4"}} << "\t"
        << "a\tb\tc\n1\n1\t2\t3\t4\n";
    QTest::newRow("row without cells leaves no line") << Table{{"a", "b"}, {}, {"c", "d"}} << "\t"
                                                      << "a\tb\nc\td\n";
    QTest::newRow("blank cells") << Table{{"", ""}, {"", "x"}} << "\t"
                                 << "\t\n\tx\n";
    QTest::newRow("quoted cell spans two lines") << Table{{"h1", "h2"}, {"a\nb", "c"}} << "\t"
                                                 << "h1\th2\n\"a\nb\"\tc\n";
    QTest::newRow("comma delimiter") << Table{{"a,b", "c\td"}, {"1", "2"}} << ","
                                     << "\"a,b\",c\td\n1,2\n";
    QTest::newRow("non-Latin text") << Table{{QString(QChar(0x65E5)), QString(QChar(0x010D))}}
                                    << "\t" << QString(QChar(0x65E5)) + "\t" + QChar(0x010D) + "\n";
}

void TestCsvSaver::fileBytes()
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

void TestCsvSaver::emptyTableTruncates()
{
    const QString path = csvtest::writeFile(m_dir, QStringLiteral("old.txt"), "old content");
    KCSVSaver saver(nullptr);
    QVERIFY(saver.saveFile(Table(), path));
    // Nothing was written, so not even the byte-order mark.
    QCOMPARE(csvtest::readFile(path), QByteArray());
    QCOMPARE(csvtest::defaultDir().toString(), m_dir.path());
}

void TestCsvSaver::byteOrderMarkOff()
{
    const QString path = m_dir.filePath(QStringLiteral("nobom.txt"));
    KCSVSaver saver(nullptr);
    saver.setGenerateByteOrderMark(false);
    QVERIFY(saver.saveFile(Table{{"A", "B"}}, path));
    QCOMPARE(csvtest::readFile(path), csvtest::utf16le(QStringLiteral("A\tB\n"), false));
}

void TestCsvSaver::workerMessages_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("errors");
    QTest::addColumn<QVariant>("storedDir");

    const QString missingDir = m_dir.filePath(QStringLiteral("missing"));
    QTest::newRow("written") << m_dir.filePath(QStringLiteral("w.txt")) << true << QStringList()
                             << QVariant(m_dir.path());
    QTest::newRow("empty name") << QString() << false
                                << QStringList{QStringLiteral("The file name is empty.")}
                                << QVariant();
    // The directory is remembered before the open is tried.
    QTest::newRow("cannot be opened")
        << missingDir + QStringLiteral("/x.txt") << false
        << QStringList{QStringLiteral("File cannot be opened.")} << QVariant(missingDir);
    QTest::newRow("medium full") << QStringLiteral("/dev/full") << false
                                 << QStringList{QStringLiteral("File cannot be written.")}
                                 << QVariant("/dev");
}

void TestCsvSaver::workerMessages()
{
    QFETCH(QString, fileName);
    QFETCH(bool, result);
    QFETCH(QStringList, errors);
    QFETCH(QVariant, storedDir);

    bool saved = !result;
    QStringList messages;
    csvtest::runInThread([&] {
        KCSVSaver saver(nullptr);
        saved = saver.saveFile(Table{{"SEG", "SP1"}, {"SEG1", "1.0"}}, fileName);
        messages = saver.errorMessageList();
    });
    QCOMPARE(saved, result);
    QCOMPARE(messages, errors);
    QCOMPARE(csvtest::defaultDir(), storedDir);
}

void TestCsvSaver::errorsBelongToTheLatestCall()
{
    KCSVSaver saver(nullptr);
    QVERIFY(!saver.saveFile(Table{{"a"}}, QString()));
    QVERIFY(!saver.saveFile(Table{{"a"}}, QStringLiteral("/nonexistent-dir/a.txt")));
    QCOMPARE(saver.errorMessageList(), QStringList{QStringLiteral("File cannot be opened.")});
    QVERIFY(saver.saveFile(Table{{"a"}}, m_dir.filePath(QStringLiteral("ok.txt"))));
    QVERIFY(saver.errorMessageList().isEmpty());
}

void TestCsvSaver::askFlagDoesNotBlockAWorker()
{
    // Nobody can answer a question in a worker: the save goes on unasked.
    const QString path = m_dir.filePath(QStringLiteral("asked.txt"));
    bool saved = false;
    csvtest::runInThread([&] {
        KCSVSaver saver(nullptr);
        saver.setAskFormatEachTime(true);
        saved = saver.saveFile(Table{{"a", "b"}}, path);
    });
    QVERIFY(saved);
    QCOMPARE(csvtest::readFile(path), csvtest::utf16le(QStringLiteral("a\tb\n")));
}

void TestCsvSaver::slotFormsThroughMetaObject()
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
    QVERIFY(
        QMetaObject::invokeMethod(&saver, "errorMessageList", Q_RETURN_ARG(QStringList, errors)));
    QCOMPARE(errors, QStringList{QStringLiteral("The file name is empty.")});
}

QTEST_GUILESS_MAIN(TestCsvSaver)
#include "tst_csv_saver.moc"

// The saver outside the GUI thread, as the program-file worker uses it.

#include "csv/kcsvloader.h"
#include "tests/csv_common/csvtestsupport.h"

#include <QtTest>

#include <csignal>
#include <random>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using Table = QList<QStringList>;

class TestCsvSaver : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        csvtest::isolateSettings(m_dir, QStringLiteral("test_csv_saver"));
    }

    // The file is truncated first; an empty table writes nothing, not even the
    // byte-order mark.
    void fileBytes_data()
    {
        QTest::addColumn<Table>("table");
        QTest::addColumn<QString>("delimiter");
        QTest::addColumn<bool>("mark");
        QTest::addColumn<QByteArray>("bytes");
        const QString cjk(QChar(0x65E5)), caron(QChar(0x010D));
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
        row("without the mark", {{"A", "B"}}, "\t", "A\tB\n", false);
        QTest::newRow("empty table") << Table() << "\t" << true << QByteArray();
    }
    void fileBytes()
    {
        QFETCH(Table, table);
        QFETCH(QString, delimiter);
        QFETCH(bool, mark);
        const QString path = csvtest::writeFile(m_dir, "old content");
        KCSVSaver saver(nullptr);
        saver.setDelimiter(delimiter);
        saver.setGenerateByteOrderMark(mark);
        QVERIFY(saver.saveFile(table, path));
        QVERIFY(saver.errorMessageList().isEmpty());
        QTEST(csvtest::readFile(path), "bytes");
    }

    // A row is copied bare and written again cell by cell only when it holds
    // a line feed, quote or delimiter beyond its own separators, or is too
    // long to assemble whole. Random tables, mostly bare with such
    // characters here and there, a long bare row and a longer one, must give
    // the quoting rule's text under each delimiter, in UTF-16LE (bytes
    // copied) and in UTF-8 (codec).
    void quotingOfRandomTables()
    {
        const QStringList plain{"a",
                                "7",
                                " ",
                                ":",
                                "\r",
                                QString(QChar(0x65E5)),
                                QString::fromUtf8("\xF0\x9F\x98\x80")};
        const QStringList special{"\t", ",", "\"", "\n", ";"};
        std::mt19937 rng(11);
        auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
        for (const QString delimiter : {"\t", ",", "\"", "\n", ";;"}) {
            auto quoted = [&](const QString& cell) {
                if (!cell.contains('\n') && !cell.contains('"') && !cell.contains(delimiter))
                    return cell;
                return '"' + QString(cell).replace('"', "\"\"") + '"';
            };
            Table table;
            QString text;
            for (int r = 0; r < 300; ++r) {
                QStringList row;
                const bool bareRow = r == 150;
                const int cells = bareRow ? 7000 : r == 151 ? 14000 : pick(12);
                for (int c = 0; c < cells; ++c) {
                    QString cell;
                    for (int n = pick(cells > 12 ? 12 : 7); n > 0; --n)
                        cell += bareRow || pick(40) ? plain.at(pick(plain.size()))
                                                    : special.at(pick(special.size()));
                    row << cell;
                }
                table << row;
                QStringList line;
                for (const QString& cell : row)
                    line << quoted(cell);
                if (!row.isEmpty())
                    text += line.join(delimiter) + '\n';
            }
            const QString path = m_dir.filePath(QStringLiteral("random.txt"));
            KCSVSaver saver(nullptr);
            saver.setDelimiter(delimiter);
            QVERIFY(saver.saveFile(table, path));
            QCOMPARE(csvtest::readFile(path), csvtest::utf16le(text));
            saver.setCodec(QTextCodec::codecForName("UTF-8"));
            saver.setGenerateByteOrderMark(false);
            QVERIFY(saver.saveFile(table, path));
            QCOMPARE(csvtest::readFile(path), text.toUtf8());
        }
    }

    // The directory is remembered before the open is tried; each call's list
    // holds only its own messages.
    void workerMessages()
    {
        const QString missingDir = m_dir.filePath(QStringLiteral("missing"));
        QVariantList seen;
        csvtest::runInThread([&] {
            KCSVSaver saver(nullptr);
            // Nobody can answer a question in a worker: the save goes on unasked.
            saver.setAskFormatEachTime(true);
            for (const QString& dir : {missingDir, m_dir.path()})
                seen << saver.saveFile(Table{{"SEG"}}, dir + QStringLiteral("/x.txt"))
                     << saver.errorMessageList() << csvtest::defaultDir();
        });
        QCOMPARE(seen, QVariantList({false, QStringList{"File cannot be opened."}, missingDir, true,
                                     QStringList(), m_dir.path()}));
    }

    // A medium that fills up while the table is written, and a process
    // killed at any moment of a save: the previous file stays byte for
    // byte (or the new one is complete), and no temporary file is left
    // beside it by a failed save.
    void previousFileSurvives()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("PROG_3.txt"));
        const QByteArray previous = csvtest::utf16le(QStringLiteral("-\tSP1\nSEG1\t10\n"), true);
        {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(previous) == previous.size());
        }
        Table big;
        for (int r = 0; r < 4000; ++r)
            big << QStringList{QStringLiteral("SEG%1").arg(r), QStringLiteral("1234"),
                               QStringLiteral("01:30")};

        // Files may not grow past 8 KiB: a full medium as the writer sees it.
        struct rlimit saved {
        };
        QCOMPARE(::getrlimit(RLIMIT_FSIZE, &saved), 0);
        const sighandler_t oldHandler = ::signal(SIGXFSZ, SIG_IGN);
        struct rlimit small = saved;
        small.rlim_cur = 8192;
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &small), 0);
        KCSVSaver saver(nullptr);
        const bool savedOk = saver.saveFile(big, path);
        ::setrlimit(RLIMIT_FSIZE, &saved);
        ::signal(SIGXFSZ, oldHandler);
        QVERIFY(!savedOk);
        QCOMPARE(saver.errorMessageList(), QStringList{"File cannot be written."});
        QCOMPARE(csvtest::readFile(path), previous);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList{"PROG_3.txt"});

        // Killed at five moments of saving the big table over the previous file.
        QVERIFY(saver.saveFile(big, dir.filePath(QStringLiteral("big.txt"))));
        const QByteArray complete = csvtest::readFile(dir.filePath(QStringLiteral("big.txt")));
        for (int delayMs : {1, 3, 7, 15, 30}) {
            const pid_t child = ::fork();
            QVERIFY(child >= 0);
            if (child == 0) {
                for (;;) {
                    KCSVSaver inChild(nullptr);
                    inChild.saveFile(big, path);
                }
            }
            QThread::msleep(ulong(delayMs));
            ::kill(child, SIGKILL);
            ::waitpid(child, nullptr, 0);
            const QByteArray now = csvtest::readFile(path);
            QVERIFY2(
                now == previous || now == complete,
                qPrintable(
                    QStringLiteral("%1 bytes after a kill at %2 ms").arg(now.size()).arg(delayMs)));
        }
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestCsvSaver)
#include "tst_csv_saver.moc"

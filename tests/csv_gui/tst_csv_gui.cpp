// The CSV classes in the GUI thread of a widget application: file dialogs,
// message boxes and the confirmation box, each answered from a timer so no
// test can block; and objects of a worker thread that must never open one.

#include "csv/kcsvloader.h"
#include "tests/csv_common/csvtestsupport.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QtTest>

#include <functional>

#if defined(__SANITIZE_ADDRESS__)
// The widget application loads the offscreen platform plug-in, whose screen
// Qt 5.15 never frees. lsan.supp names the plug-in's start-up, a frame only
// stacks unwound the slow way show (Qt is built without frame pointers).
extern "C" const char* __asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}
#endif

using Table = QList<QStringList>;

namespace
{

// Answers the next modal window from the event loop. What it saw is kept for
// the test to compare; a window of the wrong kind, or none at all, is closed
// and recorded rather than left to block the run.
class ModalAnswer : public QObject
{
public:
    using Action = std::function<void(QWidget*)>;

    explicit ModalAnswer(Action action) : m_action(std::move(action))
    {
        connect(&m_poll, &QTimer::timeout, this, &ModalAnswer::poll);
        m_poll.start(20);
        m_deadline.start();
    }
    ~ModalAnswer() override { closeStray(); }

    bool answered() const { return m_answered; }
    int count() const { return m_count; }
    QString title;
    QString text;
    QString informativeText;
    QWidget* parentWidget = nullptr;

private:
    void poll()
    {
        QWidget* modal = QApplication::activeModalWidget();
        if (modal && !m_answered) {
            ++m_count;
            title = modal->windowTitle();
            parentWidget = modal->parentWidget();
            if (auto* box = qobject_cast<QMessageBox*>(modal)) {
                text = box->text();
                informativeText = box->informativeText();
            }
            m_answered = true;
            m_action(modal);
        } else if (modal) {
            ++m_count; // a second window nobody expected
            closeStray();
        } else if (m_deadline.elapsed() > 10000) {
            m_poll.stop();
        }
    }
    void closeStray()
    {
        while (QWidget* modal = QApplication::activeModalWidget())
            modal->close();
    }

    Action m_action;
    QTimer m_poll;
    QElapsedTimer m_deadline;
    bool m_answered = false;
    int m_count = 0;
};

void click(QWidget* modal, QMessageBox::StandardButton button)
{
    auto* box = qobject_cast<QMessageBox*>(modal);
    QVERIFY(box);
    QVERIFY(box->button(button));
    box->button(button)->click();
}

// Types the name as a user would: selectFile alone may select nothing while
// the dialog's file model still lists the directory as it was.
void chooseFile(QFileDialog* dialog, const QString& path)
{
    auto* edit = dialog->findChild<QLineEdit*>(QStringLiteral("fileNameEdit"));
    QVERIFY(edit);
    edit->setText(path);
    QMetaObject::invokeMethod(dialog, "accept");
}

ModalAnswer::Action clickOk()
{
    return [](QWidget* w) { click(w, QMessageBox::Ok); };
}

} // namespace

class TestCsvGui : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        csvtest::isolateSettings(m_dir, QStringLiteral("test_csv_gui"));
    }

    void init() { QSettings().clear(); }

    void saveDialog_data()
    {
        QTest::addColumn<bool>("remembered"); // a directory stored by an earlier save
        QTest::addColumn<int>("format");
        QTest::addColumn<bool>("choose"); // otherwise cancel the dialog
        QTest::newRow("remembered directory, file chosen")
            << true << int(KCSVInterface::TxtFormat) << true;
        QTest::newRow("application directory, cancelled")
            << false << int(KCSVInterface::CsvFormat) << false;
    }
    void saveDialog()
    {
        QFETCH(bool, remembered);
        QFETCH(int, format);
        QFETCH(bool, choose);
        const QString last = m_dir.filePath(QStringLiteral("last"));
        QDir(m_dir.path()).mkpath(QStringLiteral("last"));
        if (remembered)
            QSettings().setValue(QStringLiteral("default_dir"), last);
        QDir(m_dir.path()).mkpath(QStringLiteral("chosen"));
        const QString target = m_dir.filePath(QStringLiteral("chosen/program.txt"));

        QWidget parent;
        KCSVSaver saver(&parent);
        QVERIFY(saver.parent() == nullptr);
        saver.setFileFormat(KCSVInterface::FileFormat(format));
        QString directory;
        QStringList filters;
        ModalAnswer answer([&](QWidget* w) {
            auto* dialog = qobject_cast<QFileDialog*>(w);
            QVERIFY(dialog);
            directory = dialog->directory().absolutePath();
            filters = dialog->nameFilters();
            if (choose)
                chooseFile(dialog, target);
            else
                dialog->reject();
        });
        QCOMPARE(saver.saveFile(m_table), choose);
        QVERIFY(answer.answered());
        QCOMPARE(answer.count(), 1);
        QCOMPARE(answer.title, QStringLiteral("Export File"));
        QCOMPARE(answer.parentWidget, &parent);
        QCOMPARE(directory, remembered ? last : QCoreApplication::applicationDirPath());
        QCOMPARE(filters, QStringList{saver.fileFilter()});
        QVERIFY(saver.errorMessageList().isEmpty());
        if (choose) {
            QCOMPARE(csvtest::readFile(target), csvtest::utf16le("SEG\tSP1\nSEG1\t100.0\n"));
            QCOMPARE(csvtest::defaultDir().toString(), m_dir.filePath(QStringLiteral("chosen")));
        } else {
            QVERIFY(!csvtest::defaultDir().isValid());
        }
    }

    void saveOpenFailureWarns()
    {
        QWidget parent;
        KCSVSaver saver(&parent);
        ModalAnswer answer(clickOk());
        QVERIFY(!saver.saveFile(m_table, m_dir.filePath(QStringLiteral("missing/x.txt"))));
        QVERIFY(answer.answered());
        QCOMPARE(answer.title, QStringLiteral("File cannot be opened."));
        QCOMPARE(answer.text, QStringLiteral("File cannot be opened."));
        QCOMPARE(answer.parentWidget, &parent);
        QVERIFY(saver.errorMessageList().isEmpty());
    }

    void openDialogChoosesFile()
    {
        const QString path = file(csvtest::utf16le("SEG\tSP1\nSEG1\t100.0\n"));
        KCSVLoader loader(nullptr);
        ModalAnswer answer([&](QWidget* w) {
            auto* dialog = qobject_cast<QFileDialog*>(w);
            QVERIFY(dialog);
            chooseFile(dialog, path);
        });
        QVERIFY(loader.openFile());
        QVERIFY(answer.answered());
        QCOMPARE(answer.title, QStringLiteral("Import File"));
        QCOMPARE(loader.fileContent(), m_table);
        QCOMPARE(csvtest::defaultDir().toString(), m_dir.path());
    }

    void openDialogCancelled()
    {
        QWidget parent;
        KCSVLoader loader(&parent);
        {
            ModalAnswer answer([](QWidget* w) { w->close(); });
            QVERIFY(!loader.openFile());
            QVERIFY(answer.answered());
        }
        QCOMPARE(loader.status(), KCSVLoader::OpenFailed);
        QVERIFY(loader.errorMessageList().isEmpty());

        ModalAnswer report(clickOk());
        QVERIFY(loader.fileContent().isEmpty());
        QVERIFY(report.answered());
        QCOMPARE(report.title, QStringLiteral("File cannot be opened."));
        QCOMPARE(report.text, QStringLiteral("Please select the right file."));
        QCOMPARE(report.parentWidget, &parent);
        QVERIFY(loader.errorMessageList().isEmpty());
    }

    void formatErrorBox()
    {
        KCSVLoader loader(nullptr);
        ModalAnswer answer(clickOk());
        QVERIFY(!loader.openFile(file(csvtest::utf16le("h1\th2\n1\n\"open\n"))));
        QVERIFY(answer.answered());
        QCOMPARE(answer.title, QStringLiteral("File Format Error."));
        QCOMPARE(answer.text, QStringLiteral("1. Format error at line 4"));
        QVERIFY(answer.parentWidget == nullptr);
        QCOMPARE(loader.status(), KCSVLoader::FormatErrors);
        QCOMPARE(loader.errorMessageList(), QStringList{QStringLiteral("Format error at line 4")});
    }

    void warningReportBox()
    {
        KCSVLoader loader(nullptr);
        QVERIFY(loader.openFile(file(csvtest::utf16le("a\tb\n1\n1\t2\t3\n4\n"))));
        ModalAnswer answer(clickOk());
        QCOMPARE(loader.fileContent().size(), 4);
        QVERIFY(answer.answered());
        QCOMPARE(answer.title, QStringLiteral("Warning: Incorrect File Format"));
        QCOMPARE(answer.text, QStringLiteral("Line 2 is 1 columns short of header.\n"
                                             "Line 3 is 1 columns more of header.\n..."));
        QVERIFY(loader.errorMessageList().isEmpty());
    }

    void confirmation_data()
    {
        QTest::addColumn<int>("format");
        QTest::addColumn<int>("button");
        QTest::addColumn<bool>("proceeds");

        QTest::newRow("TXT, Ok") << int(KCSVInterface::TxtFormat) << int(QMessageBox::Ok) << true;
        QTest::newRow("CSV, Cancel")
            << int(KCSVInterface::CsvFormat) << int(QMessageBox::Cancel) << false;
        QTest::newRow("unknown format, Ok") << 9 << int(QMessageBox::Ok) << true;
    }
    void confirmation()
    {
        QFETCH(int, format);
        QFETCH(int, button);
        QFETCH(bool, proceeds);

        const QString name = format == KCSVInterface::TxtFormat   ? QStringLiteral("TXT")
                             : format == KCSVInterface::CsvFormat ? QStringLiteral("CSV")
                                                                  : QString();
        const QString path = m_dir.filePath(QStringLiteral("confirmed.txt"));
        QFile::remove(path);
        KCSVSaver saver(nullptr);
        saver.setFileFormat(KCSVInterface::FileFormat(format));
        saver.setAskFormatEachTime(true);
        QMessageBox::StandardButton defaultButton = QMessageBox::NoButton;
        ModalAnswer answer([&](QWidget* w) {
            auto* box = qobject_cast<QMessageBox*>(w);
            QVERIFY(box);
            defaultButton = box->standardButton(box->defaultButton());
            click(w, QMessageBox::StandardButton(button));
        });
        QCOMPARE(saver.saveFile(m_table, path), proceeds);
        QVERIFY(answer.answered());
        QCOMPARE(answer.title, QStringLiteral("Import/Export File"));
        QCOMPARE(answer.text,
                 QStringLiteral("The import/export file will process as %1 format.").arg(name));
        QCOMPARE(answer.informativeText, QStringLiteral("Do you want to procced?"));
        QCOMPARE(defaultButton, QMessageBox::Cancel);
        QCOMPARE(QFile::exists(path), proceeds);
        QCOMPARE(saver.errorMessageList(),
                 proceeds ? QStringList()
                          : QStringList{QStringLiteral("User canceled operation.")});
    }

    void refusedConfirmationKeepsState()
    {
        KCSVLoader loader(nullptr);
        QVERIFY(loader.openFile(file(csvtest::utf16le("a\tb\n1\n"))));
        loader.setAskFormatEachTime(true);
        const QString other = file(csvtest::utf16le("x\ty\n1\t2\n"));
        for (int k = 0; k < 2; ++k) {
            ModalAnswer refuse([](QWidget* w) { click(w, QMessageBox::Cancel); });
            QVERIFY(!loader.openFile(other));
            QVERIFY(refuse.answered());
        }
        // Each refusal adds to the list; the earlier load stays as it was.
        QCOMPARE(loader.errorMessageList(),
                 (QStringList{QStringLiteral("User canceled operation."),
                              QStringLiteral("User canceled operation.")}));
        QCOMPARE(loader.status(), KCSVLoader::ColumnCountMismatch);
        QCOMPARE(loader.warningMessageList(),
                 QStringList{QStringLiteral("Line 2 is 1 columns short of header.")});
        loader.setAskFormatEachTime(false);
        ModalAnswer report(clickOk());
        QCOMPARE(loader.fileContent(), (Table{{"a", "b"}, {"1", ""}}));
        QVERIFY(report.answered());
    }

    void workerObjectsNeverAsk()
    {
        bool saved = true;
        bool opened = true;
        QStringList saveErrors;
        QStringList loadErrors;
        ModalAnswer watch([](QWidget* w) { w->close(); });
        csvtest::runInThread([&] {
            KCSVSaver saver(nullptr);
            saver.setAskFormatEachTime(true);
            saved = saver.saveFile(m_table);
            saveErrors = saver.errorMessageList();
            KCSVLoader loader(nullptr);
            opened = loader.openFile();
            loader.fileContent();
            loadErrors = loader.errorMessageList();
        });
        QTest::qWait(100); // let the watcher look once more
        QVERIFY(!watch.answered());
        QVERIFY(!saved);
        QVERIFY(!opened);
        QCOMPARE(saveErrors, QStringList{QStringLiteral("The file name is empty.")});
        QCOMPARE(loadErrors, (QStringList{QStringLiteral("The file name is empty."),
                                          QStringLiteral("File cannot be loaded."),
                                          QStringLiteral("Please select a file.")}));
    }

private:
    QString file(const QByteArray& bytes);
    QTemporaryDir m_dir;
    int m_files = 0;
    const Table m_table{{"SEG", "SP1"}, {"SEG1", "100.0"}};
};

QString TestCsvGui::file(const QByteArray& bytes)
{
    return csvtest::writeFile(m_dir, QStringLiteral("gui%1.txt").arg(++m_files), bytes);
}

QTEST_MAIN(TestCsvGui)
#include "tst_csv_gui.moc"

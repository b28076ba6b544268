// The CSV classes in the GUI thread of a widget application, each dialog
// answered from a timer so no test can block; and objects of a worker thread
// that must never open one.

#include "csv/kcsvloader.h"
#include "tests/csv_common/csvtestsupport.h"

#include <QApplication>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QtTest>

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

// Answers the first modal window from the event loop: a file dialog with
// the name in choose (cancelled if there is none), a message box with its
// default button. Any later window is closed rather than left to block the run.
class ModalAnswer : public QObject
{
public:
    explicit ModalAnswer(const QString& choose = QString())
    {
        connect(&m_poll, &QTimer::timeout, this, [this, choose] {
            QWidget* modal = QApplication::activeModalWidget();
            if (modal && count++ > 0)
                modal->close();
            if (!modal || count > 1)
                return;
            title = modal->windowTitle();
            parentWidget = modal->parentWidget();
            if (auto* box = qobject_cast<QMessageBox*>(modal)) {
                QAbstractButton* button = box->defaultButton();
                text = box->text() + '|' + box->informativeText() + '|' +
                       (button ? button->text() : QString());
                (button ? button : box->buttons().value(0))->click();
            } else if (auto* dialog = qobject_cast<QFileDialog*>(modal)) {
                text = dialog->directory().absolutePath() + '|' + dialog->nameFilters().join(';');
                // selectFile alone may select nothing while the dialog's file
                // model still lists the directory as it was.
                auto* edit = dialog->findChild<QLineEdit*>(QStringLiteral("fileNameEdit"));
                if (edit)
                    edit->setText(choose);
                QMetaObject::invokeMethod(dialog, edit && !choose.isEmpty() ? "accept" : "reject");
            }
        });
        m_poll.start(20);
    }

    int count = 0;
    QString title;
    QString text;
    QWidget* parentWidget = nullptr;

private:
    QTimer m_poll;
};

enum Step { SaveChosen, OpenCancelled, SaveFails, FormatErrors, Warnings, Refused };

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

    // Message boxes take the place of the error list: only the format-error
    // box and the confirmation have no parent, and the loader keeps its errors.
    void dialogs_data()
    {
        QTest::addColumn<int>("step");
        QTest::addColumn<bool>("result");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("parented");
        QTest::addColumn<QStringList>("errors");
        const QString filter = QStringLiteral("|Text File (*.txt)");
        QTest::newRow("save dialog, remembered directory, file chosen")
            << int(SaveChosen) << true << "Export File" << m_dir.filePath("last") + filter << true
            << QStringList();
        QTest::newRow("open dialog, application directory, cancelled")
            << int(OpenCancelled) << false << "Import File"
            << QCoreApplication::applicationDirPath() + filter << true << QStringList();
        QTest::newRow("saver cannot open the file")
            << int(SaveFails) << false << "File cannot be opened."
            << "File cannot be opened.||OK" << true << QStringList();
        QTest::newRow("format errors")
            << int(FormatErrors) << false << "File Format Error."
            << "1. Format error at line 4||" << false << QStringList{"Format error at line 4"};
        QTest::newRow("warnings on taking the rows")
            << int(Warnings) << true << "Warning: Incorrect File Format"
            << "Line 2 is 1 columns short of header.\nLine 3 is 1 columns more of header.\n...||OK"
            << true << QStringList();
        QTest::newRow("confirmation refused: the earlier load stays")
            << int(Refused) << false << "Import/Export File"
            << "The import/export file will process as CSV format.|Do you want to procced?|Cancel"
            << false << QStringList{"User canceled operation."};
    }
    void dialogs()
    {
        QFETCH(int, step);
        const QString last = m_dir.filePath(QStringLiteral("last"));
        QDir(m_dir.path()).mkpath(QStringLiteral("last"));
        QSettings().setValue(QStringLiteral("default_dir"), last);
        const QString target = m_dir.filePath(QStringLiteral("chosen.txt"));
        QWidget parent;
        KCSVSaver saver(&parent);
        KCSVLoader loader(&parent);
        ModalAnswer answer(step == SaveChosen ? target : QString());
        bool result = false;
        switch (step) {
        case SaveChosen:
            result = saver.saveFile(m_table);
            QCOMPARE(csvtest::readFile(target), csvtest::utf16le("SEG\tSP1\nSEG1\t100.0\n"));
            QCOMPARE(csvtest::defaultDir().toString(), m_dir.path());
            break;
        case OpenCancelled:
            QSettings().clear();
            result = loader.openFile();
            QCOMPARE(loader.status(), KCSVLoader::OpenFailed);
            break;
        case SaveFails:
            result = saver.saveFile(m_table, last + "/no/x.txt");
            break;
        case FormatErrors:
            result = loader.openFile(csvtest::textFile(m_dir, "h1\th2\n1\n\"open\n"));
            break;
        case Warnings:
            result = loader.openFile(csvtest::textFile(m_dir, "a\tb\n1\n1\t2\t3\n4\n")) &&
                     loader.fileContent().size() == 4;
            break;
        case Refused:
            QVERIFY(loader.openFile(csvtest::textFile(m_dir, "a\tb\n1\n")));
            loader.setFileFormat(KCSVInterface::CsvFormat);
            loader.setAskFormatEachTime(true);
            result = loader.openFile(csvtest::textFile(m_dir, "x\ty\n1\t2\n"));
            QCOMPARE(loader.status(), KCSVLoader::ColumnCountMismatch);
            QCOMPARE(loader.warningMessageList(),
                     QStringList{"Line 2 is 1 columns short of header."});
        }
        QTEST(result, "result");
        QCOMPARE(answer.count, 1);
        QTEST(answer.title, "title");
        QTEST(answer.text, "text");
        QFETCH(bool, parented);
        QCOMPARE(answer.parentWidget, parented ? &parent : nullptr);
        QTEST(saver.errorMessageList() + loader.errorMessageList(), "errors");
    }

    void workerObjectsNeverAsk()
    {
        bool saved = true;
        bool opened = true;
        QStringList errors;
        ModalAnswer watch;
        csvtest::runInThread([&] {
            KCSVSaver saver(nullptr);
            saver.setAskFormatEachTime(true);
            saved = saver.saveFile(m_table);
            KCSVLoader loader(nullptr);
            opened = loader.openFile();
            loader.fileContent();
            errors = saver.errorMessageList() + loader.errorMessageList();
        });
        QTest::qWait(100); // let the watcher look once more
        QCOMPARE(watch.count, 0);
        QVERIFY(!saved && !opened);
        QCOMPARE(errors, QStringList({"The file name is empty.", "The file name is empty.",
                                      "File cannot be loaded.", "Please select a file."}));
    }

private:
    QTemporaryDir m_dir;
    const Table m_table{{"SEG", "SP1"}, {"SEG1", "100.0"}};
};

QTEST_MAIN(TestCsvGui)
#include "tst_csv_gui.moc"

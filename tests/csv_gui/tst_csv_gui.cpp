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

void click(QWidget* modal, QMessageBox::StandardButton button)
{
    auto* box = qobject_cast<QMessageBox*>(modal);
    QVERIFY(box && box->button(button));
    box->button(button)->click();
}

// Types the name as a user would: selectFile alone may select nothing while
// the dialog's file model still lists the directory as it was.
void chooseFile(QWidget* modal, const QString& path)
{
    auto* dialog = qobject_cast<QFileDialog*>(modal);
    QVERIFY(dialog);
    auto* edit = dialog->findChild<QLineEdit*>(QStringLiteral("fileNameEdit"));
    QVERIFY(edit);
    edit->setText(path);
    QMetaObject::invokeMethod(dialog, "accept");
}

// Answers the next modal window from the event loop (by default with Ok) and
// keeps what it saw. Further windows are closed and counted rather than left
// to block the run; after 10 s without a window the watch ends.
class ModalAnswer : public QObject
{
public:
    using Action = std::function<void(QWidget*)>;

    explicit ModalAnswer(Action action = [](QWidget* w) { click(w, QMessageBox::Ok); })
    {
        connect(&m_poll, &QTimer::timeout, this, [this, action] {
            QWidget* modal = QApplication::activeModalWidget();
            if (!modal && m_deadline.elapsed() > 10000)
                m_poll.stop();
            if (!modal || count++ > 0)
                return closeStray();
            title = modal->windowTitle();
            parentWidget = modal->parentWidget();
            if (auto* box = qobject_cast<QMessageBox*>(modal))
                text = box->text();
            action(modal);
        });
        m_poll.start(20);
        m_deadline.start();
    }
    ~ModalAnswer() override { closeStray(); }

    int count = 0;
    QString title;
    QString text;
    QWidget* parentWidget = nullptr;

private:
    static void closeStray()
    {
        while (QWidget* modal = QApplication::activeModalWidget())
            modal->close();
    }

    QTimer m_poll;
    QElapsedTimer m_deadline;
};

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

    // Parent, caption, start directory (the remembered one, else the
    // application's) and filter of the file dialogs; a cancelled dialog fails
    // without a message.
    void fileDialogs_data()
    {
        QTest::addColumn<bool>("save");
        QTest::addColumn<bool>("remembered"); // a directory stored by an earlier load or save
        QTest::addColumn<bool>("choose");     // otherwise cancel the dialog
        QTest::newRow("save: remembered directory, file chosen") << true << true << true;
        QTest::newRow("save: application directory, cancelled") << true << false << false;
        QTest::newRow("open: application directory, file chosen") << false << false << true;
        QTest::newRow("open: remembered directory, cancelled") << false << true << false;
    }
    void fileDialogs()
    {
        QFETCH(bool, save);
        QFETCH(bool, remembered);
        QFETCH(bool, choose);
        const QString last = m_dir.filePath(QStringLiteral("last"));
        QDir(m_dir.path()).mkpath(QStringLiteral("last"));
        if (remembered)
            QSettings().setValue(QStringLiteral("default_dir"), last);
        QFile::remove(m_dir.filePath(QStringLiteral("chosen.txt")));
        const QString target = save ? m_dir.filePath(QStringLiteral("chosen.txt"))
                                    : file(csvtest::utf16le("SEG\tSP1\nSEG1\t100.0\n"));

        QWidget parent;
        KCSVSaver saver(&parent);
        KCSVLoader loader(&parent);
        QVERIFY(saver.parent() == nullptr);
        KCSVInterface& csv = save ? static_cast<KCSVInterface&>(saver) : loader;
        csv.setFileFormat(choose ? KCSVInterface::TxtFormat : KCSVInterface::CsvFormat);
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
        QCOMPARE(save ? saver.saveFile(m_table) : loader.openFile(), choose);
        QCOMPARE(answer.count, 1);
        QCOMPARE(answer.title,
                 save ? QStringLiteral("Export File") : QStringLiteral("Import File"));
        QCOMPARE(answer.parentWidget, &parent);
        QCOMPARE(directory, remembered ? last : QCoreApplication::applicationDirPath());
        QCOMPARE(filters, QStringList{csv.fileFilter()});
        QVERIFY(saver.errorMessageList().isEmpty() && loader.errorMessageList().isEmpty());
        QCOMPARE(csvtest::defaultDir().toString(), choose       ? m_dir.path()
                                                   : remembered ? last
                                                                : QString());
        if (!save)
            QCOMPARE(loader.status(), choose ? KCSVLoader::Loaded : KCSVLoader::OpenFailed);
        if (choose && save)
            QCOMPARE(csvtest::readFile(target), csvtest::utf16le("SEG\tSP1\nSEG1\t100.0\n"));
        if (choose && !save)
            QCOMPARE(loader.fileContent(), m_table);
    }

    // Message boxes take the place of the error list: only the format-error
    // box has no parent, and the loader keeps its errors for the caller.
    void messageBoxes_data()
    {
        QTest::addColumn<int>("step");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("text");
        QTest::newRow("saver cannot open the file") << 0 << "File cannot be opened."
                                                    << "File cannot be opened.";
        QTest::newRow("format errors") << 1 << "File Format Error."
                                       << "1. Format error at line 4";
        QTest::newRow("warnings on taking the rows")
            << 2 << "Warning: Incorrect File Format"
            << "Line 2 is 1 columns short of header.\nLine 3 is 1 columns more of header.\n...";
    }
    void messageBoxes()
    {
        QFETCH(int, step);
        QWidget parent;
        KCSVSaver saver(&parent);
        KCSVLoader loader(&parent);
        ModalAnswer answer;
        if (step == 0) {
            QVERIFY(!saver.saveFile(m_table, m_dir.filePath(QStringLiteral("missing/x.txt"))));
        } else if (step == 1) {
            QVERIFY(!loader.openFile(file(csvtest::utf16le("h1\th2\n1\n\"open\n"))));
        } else {
            QVERIFY(loader.openFile(file(csvtest::utf16le("a\tb\n1\n1\t2\t3\n4\n"))));
            QCOMPARE(loader.fileContent().size(), 4);
        }
        QCOMPARE(answer.count, 1);
        QTEST(answer.title, "title");
        QTEST(answer.text, "text");
        QCOMPARE(answer.parentWidget, step == 1 ? nullptr : &parent);
        QCOMPARE(saver.errorMessageList() + loader.errorMessageList(),
                 step == 1 ? QStringList{QStringLiteral("Format error at line 4")} : QStringList());
    }

    void confirmation_data()
    {
        QTest::addColumn<int>("format");
        QTest::addColumn<int>("button");
        QTest::addColumn<QString>("name");
        QTest::newRow("TXT, Ok") << int(KCSVInterface::TxtFormat) << int(QMessageBox::Ok) << "TXT";
        QTest::newRow("CSV, Cancel")
            << int(KCSVInterface::CsvFormat) << int(QMessageBox::Cancel) << "CSV";
    }
    void confirmation()
    {
        QFETCH(int, format);
        QFETCH(int, button);
        QFETCH(QString, name);
        const bool proceeds = button == QMessageBox::Ok;
        const QString path = m_dir.filePath(QStringLiteral("confirmed.txt"));
        QFile::remove(path);
        KCSVSaver saver(nullptr);
        saver.setFileFormat(KCSVInterface::FileFormat(format));
        saver.setAskFormatEachTime(true);
        QMessageBox::StandardButton defaultButton = QMessageBox::NoButton;
        QString question;
        ModalAnswer answer([&](QWidget* w) {
            auto* box = qobject_cast<QMessageBox*>(w);
            QVERIFY(box);
            defaultButton = box->standardButton(box->defaultButton());
            question = box->informativeText();
            click(w, QMessageBox::StandardButton(button));
        });
        QCOMPARE(saver.saveFile(m_table, path), proceeds);
        QCOMPARE(answer.count, 1);
        QCOMPARE(answer.title, QStringLiteral("Import/Export File"));
        QCOMPARE(answer.text,
                 QStringLiteral("The import/export file will process as %1 format.").arg(name));
        QCOMPARE(question, QStringLiteral("Do you want to procced?"));
        QCOMPARE(defaultButton, QMessageBox::Cancel);
        QCOMPARE(QFile::exists(path), proceeds);
        QCOMPARE(saver.errorMessageList(),
                 proceeds ? QStringList() : QStringList{"User canceled operation."});
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
            QCOMPARE(refuse.count, 1);
        }
        // Each refusal adds to the list; the earlier load stays as it was.
        QCOMPARE(loader.errorMessageList(),
                 QStringList({"User canceled operation.", "User canceled operation."}));
        QCOMPARE(loader.status(), KCSVLoader::ColumnCountMismatch);
        QCOMPARE(loader.warningMessageList(), QStringList{"Line 2 is 1 columns short of header."});
    }

    void workerObjectsNeverAsk()
    {
        bool saved = true;
        bool opened = true;
        QStringList errors;
        ModalAnswer watch([](QWidget* w) { w->close(); });
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
    QString file(const QByteArray& bytes)
    {
        return csvtest::writeFile(m_dir, QStringLiteral("gui%1.txt").arg(++m_files), bytes);
    }
    QTemporaryDir m_dir;
    int m_files = 0;
    const Table m_table{{"SEG", "SP1"}, {"SEG1", "100.0"}};
};

QTEST_MAIN(TestCsvGui)
#include "tst_csv_gui.moc"

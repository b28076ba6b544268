#ifndef TESTS_WORKFLOWRIG_H
#define TESTS_WORKFLOWRIG_H

// What a FileAccessor transfer test needs around the worker: two media in a
// temporary directory behind the runtime's device object, a scripted port,
// shortened waits and a log of the worker's signals; plus builders for
// records, replies and program files. Links dcp30core, dcphostruntime and
// dcptestsupport.

#include "driver/fileaccessor.h"
#include "host/runtime/deviceobject.h"
#include "host/runtime/runtimeproperties.h"
#include "tests/support/scriptedport.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QStringList>
#include <QTemporaryDir>
#include <QTextCodec>

#include <memory>

namespace WorkflowData
{

// Segment s of the test programs: SP1 10 * s, TIME 30 * s minutes, events and
// time events unset, PID1 1, G.S and G.S.TO unset; segment 1 adds P.STA 0,
// CYCL 1, P.LIN 0 and the tag "TEST    ".
inline QByteArray sampleRecord(int segment)
{
    auto word = [](int value) { return QByteArray::number(value, 16).rightJustified(4, '0'); };
    QByteArray out = word(10 * segment) + word(30 * segment) + "0000" +
                     QByteArray("7FFF").repeated(16) + "000100007FFF7FFF";
    if (segment == 1)
        out += "000000010000" + QByteArray("TEST    ").toHex();
    return out.toUpper();
}

// The row sampleRecord(segment) is shown as.
inline QStringList sampleRow(int segment)
{
    const int minutes = 30 * segment;
    QStringList cells{QStringLiteral("SEG%1").arg(segment), QString::number(10 * segment),
                      QString::asprintf("%02d:%02d", minutes / 60, minutes % 60)};
    const QString tail = segment == 1 ? QStringLiteral("1|----|----|0|1|0|TEST    ")
                                      : QStringLiteral("1|----|----|----|----|----|----");
    return cells + QString("----|").repeated(16).append(tail).split(QLatin1Char('|'));
}

inline QList<QStringList> sampleRows(const QList<int>& segments)
{
    QList<QStringList> rows;
    for (int s : segments)
        rows << sampleRow(s);
    return rows;
}

inline QStringList header()
{
    return QStringLiteral("-,SP1,TIME,EV1 1st,EV1 2nd,EV2 1st,EV2 2nd,EV3 1st,EV3 2nd,T1 1st,"
                          "T1 2nd,T2 1st,T2 2nd,T3 1st,T3 2nd,T4 1st,T4 2nd,T5 1st,T5 2nd,PID1,"
                          "G.S,G.S.TO,P.STA,CYCL,P.LIN,Tag")
        .split(QLatin1Char(','));
}

// The controller's answer to "0100XFR,p,s": the record starts at 16, one
// later for p > 9, one later again for s > 9.
inline QByteArray readReply(int program, int segment, const QByteArray& record)
{
    return ScriptedPort::framed("0100X00,FR," + QByteArray::number(program) + ',' +
                                QByteArray::number(segment) + ',' + record);
}

inline QByteArray status(const QByteArray& code)
{
    return ScriptedPort::framed("0100X" + code);
}

// A program file as the panel stores it: UTF-16LE with byte-order mark,
// tab-delimited, one line per row (cells here never need quotes).
inline QByteArray programFile(const QList<QStringList>& rows)
{
    QString text;
    for (const QStringList& r : rows)
        text += r.join(QLatin1Char('\t')) + QLatin1Char('\n');
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader); // the mark is spelled out
    return QByteArray("\xFF\xFE") +
           QTextCodec::codecForName("UTF-16LE")->fromUnicode(text.constData(), text.size(), &state);
}

inline QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

inline bool writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// An error log as the worker writes it.
inline QByteArray logText(const QStringList& lines)
{
    return (QStringList{QStringLiteral("Program 1:")} + lines).join(QLatin1Char('\n')).toUtf8();
}

} // namespace WorkflowData

class WorkflowRig
{
public:
    // The worker reads the wait setting once, when it is made.
    explicit WorkflowRig(int waitPercent = 1)
    {
        QDir().mkpath(usb);
        QDir().mkpath(sd);
        device.setMountDirectory(DeviceObject::UsbStick, usb);
        device.setMountDirectory(DeviceObject::SdCard, sd);
        RuntimeProperties::publishDevice(&device);
        qputenv("DCP30_WAIT_PERCENT", QByteArray::number(waitPercent));
        accessor = std::make_unique<FileAccessor>();
        qunsetenv("DCP30_WAIT_PERCENT");
        accessor->setInterface(&port);
        record(&FileAccessor::setRF, "RF");
        record(&FileAccessor::setWF, "WF");
        record(&FileAccessor::setRE, "RE");
        record(&FileAccessor::setWE, "WE");
        record(&FileAccessor::setReadProgress, "read");
        record(&FileAccessor::setWriteProgress, "write");
        QObject::connect(
            accessor.get(), &FileAccessor::showMessage, accessor.get(),
            [this](const QString& title, const QString& text, bool flag) {
                add(QStringLiteral("message %1%2: %3")
                        .arg(title, flag ? "" : " (flag false)", text));
            },
            Qt::DirectConnection);
    }
    ~WorkflowRig()
    {
        accessor.reset();
        RuntimeProperties::publishDevice(nullptr);
    }
    FileAccessor& worker() { return *accessor; }

    // The worker's signals in emission order: "RF 0", "WE 1", "read 33",
    // "message DCP30: text" (the flag is named only when it is false). Read
    // it once the worker has finished.
    QStringList events() const { return log; }

    QString usbFile(const QString& name) const { return usb + QLatin1Char('/') + name; }
    QString sdFile(const QString& name) const { return sd + QLatin1Char('/') + name; }
    // Files on both media, as "usb/NAME" and "sd/NAME".
    QStringList files() const
    {
        const QRegularExpression start("^");
        return QDir(usb).entryList(QDir::Files).replaceInStrings(start, "usb/") +
               QDir(sd).entryList(QDir::Files).replaceInStrings(start, "sd/");
    }

    ScriptedPort port;
    DeviceObject device;

private:
    template <typename Arg> void record(void (FileAccessor::*signal)(Arg), const char* name)
    {
        QObject::connect(
            accessor.get(), signal, accessor.get(),
            [this, name](Arg value) {
                add(QStringLiteral("%1 %2").arg(QLatin1String(name)).arg(int(value)));
            },
            Qt::DirectConnection);
    }
    void add(const QString& event) { log << event; }

    QTemporaryDir media{QDir::tempPath() + QStringLiteral("/dcp30-transfer-XXXXXX")};
    const QString usb = media.filePath(QStringLiteral("usb"));
    const QString sd = media.filePath(QStringLiteral("sd"));
    std::unique_ptr<FileAccessor> accessor;
    QStringList log;
};

#endif

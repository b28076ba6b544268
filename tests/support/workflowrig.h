#ifndef TESTS_WORKFLOWRIG_H
#define TESTS_WORKFLOWRIG_H

// The worker with two media, a scripted port, waits cut to 1 % and a log of
// its signals; links dcp30core, dcphostruntime and dcptestsupport.

#include "driver/fileaccessor.h"
#include "host/runtime/deviceobject.h"
#include "host/runtime/runtimeproperties.h"
#include "tests/support/scriptedport.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTextCodec>

#include <memory>

namespace WorkflowData
{

// Segment s: SP1 10 * s, TIME 30 * s minutes, PID1 1, the rest unset; segment
// 1 adds P.STA 0, CYCL 1, P.LIN 0 and the tag "TEST    ".
inline QByteArray sampleRecord(int segment)
{
    auto word = [](int value) { return QByteArray::number(value, 16).rightJustified(4, '0'); };
    QByteArray out = word(10 * segment) + word(30 * segment) + "0000" +
                     QByteArray("7FFF").repeated(16) + "000100007FFF7FFF";
    if (segment == 1)
        out += "000000010000" + QByteArray("TEST    ").toHex();
    return out.toUpper();
}

inline QStringList sampleRow(int segment)
{
    const int m = 30 * segment;
    const QString tail =
        segment == 1 ? "1|----|----|0|1|0|TEST    " : "1|----|----|----|----|----|----";
    return QString::asprintf("SEG%d|%d|%02d:%02d|", segment, 10 * segment, m / 60, m % 60)
        .append(QString("----|").repeated(16) + tail)
        .split('|');
}

// -s stands for the placeholder row a read leaves for a segment that came
// back without data: its label and "----" in every other cell.
inline QList<QStringList> sampleRows(const QList<int>& segments)
{
    QList<QStringList> rows;
    for (int s : segments)
        rows << (s > 0 ? sampleRow(s)
                       : QStringList{QString("SEG%1").arg(-s)} +
                             QString("----|").repeated(25).chopped(1).split('|'));
    return rows;
}

// A program file as the panel stores it: UTF-16LE with BOM, header, rows.
inline QByteArray programFile(const QList<QStringList>& rows)
{
    QString text =
        "-\tSP1\tTIME\tEV1 1st\tEV1 2nd\tEV2 1st\tEV2 2nd\tEV3 1st\tEV3 2nd\t"
        "T1 1st\tT1 2nd\tT2 1st\tT2 2nd\tT3 1st\tT3 2nd\tT4 1st\tT4 2nd\tT5 1st\tT5 2nd\t"
        "PID1\tG.S\tG.S.TO\tP.STA\tCYCL\tP.LIN\tTag\n";
    for (const QStringList& r : rows)
        text += r.join('\t') + '\n';
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    return "\xFF\xFE" +
           QTextCodec::codecForName("UTF-16LE")->fromUnicode(text.constData(), text.size(), &state);
}

inline QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

} // namespace WorkflowData

class WorkflowRig
{
public:
    // waitPercent: the worker's waits, in percent of the real ones.
    explicit WorkflowRig(int waitPercent = 1)
    {
        for (const QString& dir : {usb, sd})
            QDir().mkpath(dir);
        device.setMountDirectory(DeviceObject::UsbStick, usb);
        device.setMountDirectory(DeviceObject::SdCard, sd);
        RuntimeProperties::publishDevice(&device);
        // Read once, when the worker is made.
        qputenv("DCP30_WAIT_PERCENT", QByteArray::number(waitPercent));
        accessor = std::make_unique<FileAccessor>();
        qunsetenv("DCP30_WAIT_PERCENT");
        accessor->setInterface(&port);
        const auto record = [this](auto signal, const char* name) {
            QObject::connect(
                accessor.get(), signal, accessor.get(),
                [this, name](int value) { log << QString("%1 %2").arg(name).arg(value); },
                Qt::DirectConnection);
        };
        record(&FileAccessor::setRF, "RF");
        record(&FileAccessor::setWF, "WF");
        record(&FileAccessor::setRE, "RE");
        record(&FileAccessor::setWE, "WE");
        record(&FileAccessor::setReadProgress, "read");
        record(&FileAccessor::setWriteProgress, "write");
        QObject::connect(
            accessor.get(), &FileAccessor::showMessage, accessor.get(),
            [this](const QString& title, const QString& text, bool flag) {
                log << "message " + title + (flag ? "" : " (flag false)") + ": " + text;
            },
            Qt::DirectConnection);
    }
    ~WorkflowRig()
    {
        accessor.reset();
        RuntimeProperties::publishDevice(nullptr);
    }
    FileAccessor& worker() { return *accessor; }

    // The worker's signals in order: "RF 0", "read 33", "message DCP30: text".
    QStringList events() const { return log; }

    QString usbFile(const QString& name) const { return usb + '/' + name; }
    QString sdFile(const QString& name) const { return sd + '/' + name; }
    // Files on both media, as "usb/NAME" and "sd/NAME".
    QStringList files() const
    {
        QStringList names;
        for (const QString medium : {"usb", "sd"})
            for (const QString& name : QDir(media.filePath(medium)).entryList(QDir::Files))
                names << medium + '/' + name;
        return names;
    }

    ScriptedPort port;
    DeviceObject device;

private:
    QTemporaryDir media{QDir::tempPath() + "/dcp30-transfer-XXXXXX"};
    const QString usb = media.filePath("usb");
    const QString sd = media.filePath("sd");
    std::unique_ptr<FileAccessor> accessor;
    QStringList log;
};

#endif

#include "jsonreport.h"
#include "tooloutput.h"

#include <QFile>
#include <QJsonDocument>

JsonReport::JsonReport(const QString& command)
{
    timer.start();
    root.insert(QStringLiteral("tool"), QStringLiteral("dcp30ctl"));
    root.insert(QStringLiteral("version"), ToolOutput::toolVersion());
    root.insert(QStringLiteral("command"), command);
}

int JsonReport::finish(int exitStatus, const QString& summary)
{
    QJsonObject document = root;
    document.insert(QStringLiteral("warnings"), warnings);
    document.insert(QStringLiteral("messages"), messages);
    document.insert(QStringLiteral("segments"), segments);
    if (!summary.isEmpty())
        document.insert(QStringLiteral("summary"), summary);
    document.insert(QStringLiteral("exitStatus"), exitStatus);
    document.insert(QStringLiteral("elapsedMs"), timer.elapsed());
    QFile out;
    if (out.open(stdout, QIODevice::WriteOnly))
        out.write(QJsonDocument(document).toJson(QJsonDocument::Indented));
    return exitStatus;
}

int JsonReport::fail(int exitStatus, const QString& error)
{
    root.insert(QStringLiteral("error"), error);
    return finish(exitStatus, QString());
}

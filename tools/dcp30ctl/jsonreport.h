#ifndef DCP30CTL_JSONREPORT_H
#define DCP30CTL_JSONREPORT_H

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>

// The one JSON object a dcp30ctl command prints with --json, on stdout, when
// its run ends (README, "Machine-readable output", documents the members):
//
//   {"tool": "dcp30ctl", "version": "1.0.0", "command": "check",
//    ...members of the command...,
//    "warnings": ["..."], "messages": ["..."], "segments": [{...}, ...],
//    "summary": "...", "error": "...", "exitStatus": 1, "elapsedMs": 12}
//
// "warnings" and "messages" are lines not tied to one segment; each element
// of "segments" holds at least "segment" (the number) and "messages".
// "error" is present only when the run could not do its job (exit 2 or a
// failed output); "summary" is the line the text output ends with.
class JsonReport
{
public:
    explicit JsonReport(const QString& command);

    // Members of the command itself ("file", "parameters", ...).
    void set(const QString& key, const QJsonValue& value) { root.insert(key, value); }
    void addWarning(const QString& text) { warnings.append(text); }
    void addMessage(const QString& text) { messages.append(text); }
    void addSegment(const QJsonObject& segment) { segments.append(segment); }

    // Prints the document (indented) on stdout and returns exitStatus.
    int finish(int exitStatus, const QString& summary);
    // For a run that ends early: the error, no summary.
    int fail(int exitStatus, const QString& error);

private:
    QJsonObject root;
    QJsonArray warnings;
    QJsonArray messages;
    QJsonArray segments;
    QElapsedTimer timer;
};

#endif

#include "sim/programstore.h"
#include "sim/decimal.h"

#include <QFile>
#include <QSaveFile>

namespace
{

bool isHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

} // namespace

bool ProgramStore::isValidRecord(int segment, const QByteArray& record)
{
    if (!isValidSegment(segment) || record.size() != recordLength(segment))
        return false;
    for (char c : record) {
        if (!isHexDigit(c))
            return false;
    }
    return true;
}

bool ProgramStore::setSegment(int program, int segment, const QByteArray& record)
{
    if (!isValidProgram(program) || !isValidRecord(segment, record))
        return false;
    programs[program][segment] = record.toUpper();
    return true;
}

QByteArray ProgramStore::segment(int program, int segment) const
{
    return programs.value(program).value(segment);
}

bool ProgramStore::hasSegment(int program, int segment) const
{
    return programs.value(program).contains(segment);
}

int ProgramStore::segmentCount(int program) const
{
    const auto it = programs.constFind(program);
    if (it == programs.constEnd() || it->isEmpty())
        return 0;
    return it->lastKey();
}

void ProgramStore::truncate(int program, int count)
{
    auto it = programs.find(program);
    if (it == programs.end())
        return;
    while (!it->isEmpty() && it->lastKey() > count)
        it->erase(std::prev(it->end()));
    if (it->isEmpty())
        programs.erase(it);
}

bool ProgramStore::fromText(const QByteArray& text, QString* error)
{
    ProgramStore parsed;
    const QList<QByteArray> lines = text.split('\n');
    for (int i = 0; i < lines.size(); ++i) {
        const QByteArray line = lines.at(i).trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        const QList<QByteArray> fields = line.simplified().split(' ');
        int program = 0;
        int segment = 0;
        const auto fail = [&](const QString& why) {
            if (error)
                *error = QStringLiteral("line %1: %2").arg(i + 1).arg(why);
            return false;
        };
        if (fields.size() != 3)
            return fail(QStringLiteral("expected \"program segment record\""));
        if (!parseControllerNumber(fields.at(0), &program) || !isValidProgram(program))
            return fail(QStringLiteral("program must be 1..%1").arg(ProgramCount));
        if (!parseControllerNumber(fields.at(1), &segment) || !isValidSegment(segment))
            return fail(QStringLiteral("segment must be 1..%1").arg(MaxSegments));
        if (!isValidRecord(segment, fields.at(2)))
            return fail(QStringLiteral("segment %1 needs a record of %2 hex digits")
                            .arg(segment)
                            .arg(recordLength(segment)));
        if (parsed.hasSegment(program, segment))
            return fail(
                QStringLiteral("program %1 segment %2 given twice").arg(program).arg(segment));
        parsed.setSegment(program, segment, fields.at(2));
    }
    *this = parsed;
    return true;
}

QByteArray ProgramStore::toText() const
{
    QByteArray text = "# program segment record\n";
    for (auto p = programs.constBegin(); p != programs.constEnd(); ++p) {
        for (auto s = p->constBegin(); s != p->constEnd(); ++s)
            text += QByteArray::number(p.key()) + ' ' + QByteArray::number(s.key()) + ' ' +
                    s.value() + '\n';
    }
    return text;
}

bool ProgramStore::load(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    QString why;
    if (!fromText(file.readAll(), &why)) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(path, why);
        return false;
    }
    return true;
}

bool ProgramStore::save(const QString& path, QString* error) const
{
    // QSaveFile: an interrupted save leaves the previous file intact.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(toText()) < 0 || !file.commit()) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

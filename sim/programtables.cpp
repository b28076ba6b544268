#include "sim/programtables.h"
#include "sim/programstore.h"

#include "csv/kcsvloader.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace ProgramTables
{

QString fileName(int program)
{
    return QStringLiteral("PROG_%1.txt").arg(program);
}

bool load(const QString& path, int program, const SegmentCodec::WriteParameters& params,
          ProgramStore& store, QString* error)
{
    auto fail = [&](const QString& why) {
        *error = QStringLiteral("%1: %2").arg(path, why);
        return false;
    };
    if (!ProgramStore::isValidProgram(program))
        return fail(QStringLiteral("program must be 1..%1").arg(ProgramStore::ProgramCount));
    KCSVLoader loader(nullptr);
    if (!loader.openFile(path)) {
        const QStringList errors = loader.errorMessageList();
        return fail(errors.isEmpty() ? QStringLiteral("cannot be opened")
                                     : errors.join(QLatin1Char(' ')).simplified());
    }
    QList<QStringList> rows = loader.fileContent();
    if (!rows.isEmpty())
        rows.removeFirst(); // the header, as the panel skips it
    if (rows.isEmpty() || rows.size() > ProgramStore::MaxSegments)
        return fail(QStringLiteral("needs 1..%1 segment rows, has %2")
                        .arg(ProgramStore::MaxSegments)
                        .arg(rows.size()));
    ProgramStore loaded = store;
    loaded.truncate(program, 0);
    for (int segment = 1; segment <= rows.size(); ++segment) {
        QString record;
        QStringList problems;
        if (!SegmentCodec::validateDataRow(params, segment, rows, record, problems))
            return fail(
                QStringLiteral("segment %1: %2").arg(segment).arg(problems.join(QLatin1Char(' '))));
        loaded.setSegment(program, segment, record.toLatin1());
    }
    store = loaded;
    return true;
}

bool dump(const ProgramStore& store, int program, const QString& dir, QString* error)
{
    const QString target = QDir(dir).filePath(fileName(program));
    const int segments = store.segmentCount(program);
    if (segments == 0) {
        QFile::remove(target);
        return true;
    }
    QList<QStringList> table;
    SegmentCodec::generalHead(table);
    for (int s = 1; s <= segments; ++s) {
        if (store.hasSegment(program, s)) {
            SegmentCodec::HEX2CSV(s, QString::fromLatin1(store.segment(program, s)), table);
        } else {
            QStringList gap{QStringLiteral("SEG%1").arg(s)};
            while (gap.size() < SegmentCodec::ColumnCount)
                gap << QStringLiteral("----");
            table << gap;
        }
    }
    const QString temporary = QDir(dir).filePath(QStringLiteral(".%1.part").arg(fileName(program)));
    KCSVSaver saver(nullptr);
    if (!saver.saveFile(table, temporary)) {
        QFile::remove(temporary);
        const QStringList errors = saver.errorMessageList();
        *error =
            QStringLiteral("%1: cannot be written%2")
                .arg(target, errors.isEmpty() ? QString() : ": " + errors.join(QLatin1Char(' ')));
        return false;
    }
    if (::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(target).constData()) !=
        0) {
        *error = QStringLiteral("%1: cannot be replaced: %2")
                     .arg(target, QString::fromLocal8Bit(strerror(errno)));
        QFile::remove(temporary);
        return false;
    }
    return true;
}

} // namespace ProgramTables

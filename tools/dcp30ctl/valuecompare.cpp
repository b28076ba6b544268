#include "valuecompare.h"
#include "programfile.h"

#include <algorithm>

namespace ValueCompare
{

namespace
{

constexpr int WordDigits = 4;
constexpr int TagColumn = 25;

// The table column a record word is shown in; -1 for the reserved words.
int columnOfWord(int word)
{
    if (word == 2 || word == 20)
        return -1;
    if (word < 2)
        return word + 1; // SP1, TIME
    if (word < 20)
        return word; // EV1 1st .. PID1
    if (word < 26)
        return word - 1; // G.S, G.S.TO, P.STA, CYCL, P.LIN
    return TagColumn;    // words 26..29: the tag's 8 characters
}

struct Encoded {
    bool sent = false;
    QString record;
    QString problem; // the first, when not sent
};

Encoded encode(const SegmentCodec::WriteParameters& params, int segment, QStringList row)
{
    Encoded e;
    QStringList problems;
    e.sent = SegmentCodec::CSV2HEX(params, segment, row, e.record, problems);
    if (!e.sent)
        e.problem = problems.value(0);
    return e;
}

QString cellOrNone(const QStringList& row, int column)
{
    return column < row.size() ? quotedCell(row.at(column)) : QStringLiteral("(no cell)");
}

} // namespace

QString Difference::text() const
{
    if (column.isEmpty())
        return QStringLiteral("segment %1: %2").arg(segment).arg(a);
    return QStringLiteral("segment %1, %2: A %3, B %4").arg(segment).arg(column, a, b);
}

QList<Difference> compareText(int segment, const QStringList& a, const QStringList& b,
                              const QStringList& headerA, const QStringList& headerB)
{
    QList<Difference> differences;
    const int columns = std::max(a.size(), b.size());
    for (int c = 0; c < columns; ++c) {
        if (c < a.size() && c < b.size() && a.at(c) == b.at(c))
            continue;
        QString title = headerA.value(c);
        if (title.isEmpty())
            title = headerB.value(c);
        if (title.isEmpty())
            title = QStringLiteral("column %1").arg(c + 1);
        differences << Difference{segment, title, cellOrNone(a, c), cellOrNone(b, c)};
    }
    return differences;
}

QList<Difference> compare(const SegmentCodec::WriteParameters& params, const QList<QStringList>& a,
                          const QList<QStringList>& b)
{
    const QStringList header = SegmentCodec::headerRow();
    QList<Difference> differences;
    const int segments = std::max(a.size(), b.size());
    for (int s = 1; s <= segments; ++s) {
        if (s > b.size() || s > a.size()) {
            differences << Difference{s, QString(),
                                      s > b.size() ? QStringLiteral("only in A")
                                                   : QStringLiteral("only in B"),
                                      QString()};
            continue;
        }
        const Encoded ea = encode(params, s, a.at(s - 1));
        const Encoded eb = encode(params, s, b.at(s - 1));
        if (!ea.sent && !eb.sent) {
            differences << compareText(s, a.at(s - 1), b.at(s - 1), header, header);
            continue;
        }
        if (!ea.sent || !eb.sent) {
            const QString notSent = QStringLiteral("not sent: %1");
            differences << Difference{s, QStringLiteral("row"),
                                      ea.sent ? QStringLiteral("sent") : notSent.arg(ea.problem),
                                      eb.sent ? QStringLiteral("sent") : notSent.arg(eb.problem)};
            continue;
        }
        if (ea.record == eb.record)
            continue;
        const QStringList shownA = SegmentCodec::recordToRow(s, ea.record);
        const QStringList shownB = SegmentCodec::recordToRow(s, eb.record);
        int lastColumn = -1;
        for (int w = 0; w * WordDigits < ea.record.size(); ++w) {
            const int column = columnOfWord(w);
            if (column < 0 || column == lastColumn ||
                ea.record.mid(w * WordDigits, WordDigits) ==
                    eb.record.mid(w * WordDigits, WordDigits))
                continue;
            lastColumn = column;
            const bool quoted = column == TagColumn;
            differences << Difference{s, header.at(column),
                                      quoted ? quotedCell(shownA.at(column)) : shownA.at(column),
                                      quoted ? quotedCell(shownB.at(column)) : shownB.at(column)};
        }
    }
    return differences;
}

} // namespace ValueCompare

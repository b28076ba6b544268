// Arbitrary controller answers to the worker's segment reads, through the
// scripted port: one file read, or a whole read attempt (open, segments with
// their retries, close).
//
// Input: byte 0 the program number and byte 1 the segment number (both
// signed); byte 2 bit 0 selects a whole attempt (then the segment count is
// byte 1 & 3), bits 1-2 the port's retry count. Then the answers, one per
// command in order: a kind byte (low two bits: 0 reply, 1 no reply, 2 short
// write, 3 reply that arrives after the one read), a length byte and that many
// reply bytes. Commands beyond the answers get no reply.
//
// Besides surviving (ASan sees every read of the reply buffer), the worker
// must keep its promises: a file read that goes through appends exactly one
// 26-cell row labelled with its segment and reports at most the controller's
// refusal; one that asks to be repeated appends nothing and reports one
// communication message; an attempt's table is a header followed by rows in
// ascending segment order, or empty when the open did not go through.
#include "driver/fileaccessor.h"
#include "tests/support/scriptedport.h"

#include <QLoggingCategory>

#include <cstdint>
#include <cstdlib>

namespace
{

void require(bool condition)
{
    if (!condition)
        std::abort();
}

bool isRowOf(const QStringList& row, int segment)
{
    return row.size() == SegmentCodec::ColumnCount &&
           row.first() == QStringLiteral("SEG%1").arg(segment);
}

} // namespace

struct ReplyHandlingFuzz {
    static FileAccessor& worker(ScriptedPort& port)
    {
        static FileAccessor* w = [&port] {
            QLoggingCategory::setFilterRules(QStringLiteral("dcp30.*=false"));
            auto* created = new FileAccessor;
            // Below the 1 % the test-only setting allows: each exchange still
            // sleeps its minimum of 1 ms, and the replies are there at once.
            created->waitScalePercent = 0;
            created->setInterface(&port);
            created->initRWCommand();
            return created;
        }();
        return *w;
    }

    static void script(ScriptedPort& port, const uint8_t* data, size_t size)
    {
        using Answer = ScriptedPort::Answer;
        size_t at = 0;
        while (at + 2 <= size) {
            const int kind = data[at] & 3;
            const size_t length = std::min<size_t>(data[at + 1], size - at - 2);
            const QByteArray reply(reinterpret_cast<const char*>(data + at + 2), int(length));
            at += 2 + length;
            switch (kind) {
            case 0:
                port.addAnswer("", Answer::withReply(reply));
                break;
            case 1:
                port.addAnswer("", Answer::noReply());
                break;
            case 2:
                port.addAnswer("", Answer::shortWrite(int(length)));
                break;
            default:
                port.addAnswer("", Answer::withReply(reply, 1));
                break;
            }
        }
    }

    static void oneRead(FileAccessor& w, int program, int segment)
    {
        QList<QStringList> datas;
        QStringList errors;
        const bool done = w.readFile(program, segment, datas, errors);
        if (done) {
            // A row of this segment, or a refusal: no row (the workflow marks
            // its place) and the controller's line.
            const bool refused = datas.isEmpty() && errors.size() == 1 &&
                                 errors.first().startsWith(QStringLiteral("Seg%1:").arg(segment));
            require(refused || (datas.size() == 1 && isRowOf(datas.first(), segment) &&
                                errors.isEmpty()));
        } else {
            require(datas.isEmpty() && errors.size() == 1);
            require(errors.first().startsWith(
                QStringLiteral("Reading the Program %1 file fail. Error Code ").arg(program)));
        }
    }

    static void oneAttempt(FileAccessor& w, int program, int segments)
    {
        QList<QStringList> datas;
        QStringList errors;
        w.openFileForRead(program, segments, datas, errors);
        require(datas.size() <= segments + 1);
        if (datas.isEmpty())
            return; // the open failed or was refused
        require(datas.first().size() == SegmentCodec::ColumnCount &&
                datas.first().first() == QStringLiteral("-"));
        int previous = 0;
        for (int i = 1; i < datas.size(); ++i) {
            const int segment = datas.at(i).first().mid(3).toInt();
            require(segment > previous && segment <= segments && isRowOf(datas.at(i), segment));
            previous = segment;
        }
    }

    static int run(const uint8_t* data, size_t size)
    {
        if (size < 3)
            return 0;
        static ScriptedPort port;
        FileAccessor& w = worker(port);
        port.reset();
        port.setRetryCount((data[2] >> 1) & 3);
        script(port, data + 3, size - 3);
        const int program = int8_t(data[0]);
        if (data[2] & 1)
            oneAttempt(w, program, data[1] & 3);
        else
            oneRead(w, program, int8_t(data[1]));
        return 0;
    }
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return ReplyHandlingFuzz::run(data, size);
}

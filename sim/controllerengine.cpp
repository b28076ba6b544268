#include "sim/controllerengine.h"
#include "sim/decimal.h"

#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcSimEngine, "dcp.sim.engine", QtWarningMsg)

namespace
{

constexpr char STX = 0x02;
constexpr char ETX = 0x03;
constexpr char CR = 0x0D;
constexpr char LF = 0x0A;
const QByteArray Station = "01";
const QByteArray Header = "0100X";

const QByteArray Ok = "00";
const QByteArray Malformed = "40";
const QByteArray TooManyWords = "41";
const QByteArray UndefinedAddress = "42";
const QByteArray ValueOutOfLimit = "44";
const QByteArray AlreadyOpen = "50";
const QByteArray NotOpen = "51";
const QByteArray NoSuchProgramOrSegment = "52";
const QByteArray AttributeViolated = "54";
const QByteArray BadBlockData = "57";
const QByteArray UndefinedCommand = "99";

QByteArray frame(const QByteArray& status, const QByteArray& fields = QByteArray())
{
    return STX + Header + status + fields + ETX + CR + LF;
}

} // namespace

struct ControllerEngine::Request {
    CommandKind kind = CommandKind::Any;
    QByteArray error; // a status when the request could not be decoded
    int program = 0;
    int segment = 0;
    QByteArray record;
    int address = 0;
    int count = 0;
    QList<QByteArray> values;

    static Request decode(const QByteArray& text);
};

ControllerEngine::Request ControllerEngine::Request::decode(const QByteArray& text)
{
    Request r;
    const QByteArray mnemonic = text.mid(5, 2);
    const QByteArray rest = text.mid(7);
    QList<QByteArray> fields;
    if (mnemonic == "FO") {
        r.kind = CommandKind::OpenRead;
    } else if (mnemonic == "FR") {
        r.kind = CommandKind::FileRead;
    } else if (mnemonic == "FW") {
        r.kind = CommandKind::FileWrite;
    } else if (mnemonic == "FC") {
        r.kind = CommandKind::FileClose;
    } else if (mnemonic == "RS") {
        r.kind = CommandKind::RegisterRead;
    } else if (mnemonic == "WS") {
        r.kind = CommandKind::RegisterWrite;
    } else {
        r.error = UndefinedCommand;
        return r;
    }
    if (!rest.startsWith(',')) {
        r.error = Malformed;
        return r;
    }
    fields = rest.mid(1).split(',');

    const auto wordAddress = [&](const QByteArray& field) {
        return field.endsWith('W') && parseControllerNumber(field.chopped(1), &r.address);
    };
    bool ok = false;
    switch (r.kind) {
    case CommandKind::OpenRead:
        ok = fields.size() == 3 && parseControllerNumber(fields.at(0), &r.program) &&
             (fields.at(1) == "R" || fields.at(1) == "W") && fields.at(2) == "0";
        if (ok && fields.at(1) == "W")
            r.kind = CommandKind::OpenWrite;
        break;
    case CommandKind::FileRead:
        ok = fields.size() == 2 && parseControllerNumber(fields.at(0), &r.program) &&
             parseControllerNumber(fields.at(1), &r.segment);
        break;
    case CommandKind::FileWrite:
        ok = fields.size() == 3 && parseControllerNumber(fields.at(0), &r.program) &&
             parseControllerNumber(fields.at(1), &r.segment);
        if (ok)
            r.record = fields.at(2);
        break;
    case CommandKind::FileClose:
        ok = fields.size() == 1 && parseControllerNumber(fields.at(0), &r.program);
        break;
    case CommandKind::RegisterRead:
        ok = fields.size() == 2 && wordAddress(fields.at(0)) &&
             parseControllerNumber(fields.at(1), &r.count) && r.count > 0;
        break;
    case CommandKind::RegisterWrite:
        ok = fields.size() >= 2 && wordAddress(fields.at(0));
        if (ok) {
            r.values = fields.mid(1);
            r.count = r.values.size();
        }
        break;
    case CommandKind::OpenWrite: // told apart from OpenRead by its mode field
    case CommandKind::Any:
        break;
    }
    if (!ok)
        r.error = Malformed;
    return r;
}

ControllerEngine::ControllerEngine() : store(ProgramStore::samples())
{
    setSpLimits(-1999, 9999);
    setEventKinds(0, 4, 50);
}

QList<EngineReply> ControllerEngine::feedReplies(const QByteArray& bytes)
{
    pending += bytes;
    QList<EngineReply> replies;
    for (;;) {
        const int start = pending.indexOf(STX);
        if (start < 0) {
            pending.clear(); // nothing but line noise
            break;
        }
        pending.remove(0, start);
        // A second STX before the ETX means the first frame was broken off.
        const int etx = pending.indexOf(ETX);
        const int restart = pending.indexOf(STX, 1);
        if (restart > 0 && (etx < 0 || restart < etx)) {
            pending.remove(0, restart);
            continue;
        }
        if (etx < 0) {
            if (pending.size() > MaxFrameLength) {
                qCDebug(lcSimEngine) << "overlong frame discarded";
                pending.clear();
            }
            break;
        }
        if (pending.size() < etx + 3)
            break; // CR LF still to come
        const QByteArray text = pending.mid(1, etx - 1);
        const bool terminated = pending.at(etx + 1) == CR && pending.at(etx + 2) == LF;
        pending.remove(0, terminated ? etx + 3 : etx + 1);
        if (!terminated) {
            qCDebug(lcSimEngine) << "frame without CR LF discarded:" << text;
            continue;
        }
        if (frameHeard)
            frameHeard(text);
        EngineReply reply = handleFrame(text);
        if (!reply.bytes.isEmpty())
            replies << reply;
    }
    return replies;
}

QByteArray ControllerEngine::feed(const QByteArray& bytes)
{
    QByteArray out;
    for (const EngineReply& r : feedReplies(bytes))
        out += r.bytes;
    return out;
}

EngineReply ControllerEngine::handleFrame(const QByteArray& text)
{
    EngineReply reply;
    if (!text.startsWith(Station))
        return reply; // addressed to another controller on the bus
    if (!text.startsWith(Header)) {
        reply.bytes = frame(Malformed);
        return reply;
    }
    const Request request = Request::decode(text);
    FaultRule* fired = nullptr;
    if (request.kind != CommandKind::Any && faultsOn) {
        for (FaultRule& rule : faults) {
            if (rule.matches(request.kind, request.segment) && rule.fire() && !fired)
                fired = &rule;
        }
    }
    if (fired && fired->kind == FaultRule::Kind::Deaf) {
        ++appliedFaults;
        return reply;
    }
    if (fired && fired->kind == FaultRule::Kind::Status) {
        ++appliedFaults;
        reply.bytes = frame(fired->status);
        return reply;
    }
    reply.bytes = request.error.isEmpty() ? execute(request) : frame(request.error);
    if (fired)
        applyFault(*fired, reply);
    return reply;
}

void ControllerEngine::applyFault(FaultRule& rule, EngineReply& reply)
{
    QByteArray& bytes = reply.bytes;
    switch (rule.kind) {
    case FaultRule::Kind::Drop:
        bytes.clear();
        break;
    case FaultRule::Kind::Garble:
        bytes[5] = 'x';
        break;
    case FaultRule::Kind::Truncate:
        bytes.truncate(rule.argument > 0 ? qMin(rule.argument, bytes.size() - 1)
                                         : bytes.size() / 2);
        break;
    case FaultRule::Kind::Late:
        reply.delayMs = rule.argument;
        break;
    case FaultRule::Kind::Noise: {
        static const char pattern[] = {'\x7F', '\x55', '\xAA', '\xFF'};
        QByteArray noise;
        for (int i = 0; i < rule.argument; ++i)
            noise += pattern[i % 4];
        bytes.prepend(noise);
        break;
    }
    case FaultRule::Kind::Length: {
        if (bytes.mid(6, 2) != Ok)
            return; // a refusal carries no record to lengthen
        const int etx = bytes.size() - 3;
        if (rule.argument > 0)
            bytes.insert(etx, QByteArray(rule.argument, '0'));
        else
            bytes.remove(qMax(0, etx + rule.argument), -rule.argument);
        break;
    }
    case FaultRule::Kind::Deaf:
    case FaultRule::Kind::Status:
        return;
    }
    ++appliedFaults;
}

QByteArray ControllerEngine::execute(const Request& request)
{
    switch (request.kind) {
    case CommandKind::OpenRead:
    case CommandKind::OpenWrite:
        return openFile(request);
    case CommandKind::FileRead:
        return readSegment(request);
    case CommandKind::FileWrite:
        return writeSegment(request);
    case CommandKind::FileClose:
        return closeFile(request);
    case CommandKind::RegisterRead:
        return readRegisters(request);
    case CommandKind::RegisterWrite:
        return writeRegisters(request);
    case CommandKind::Any:
        break;
    }
    return frame(UndefinedCommand);
}

QByteArray ControllerEngine::openFile(const Request& request)
{
    if (!ProgramStore::isValidProgram(request.program))
        return frame(NoSuchProgramOrSegment);
    if (mode != OpenMode::None)
        return frame(AlreadyOpen);
    openedProgram = request.program;
    mode = request.kind == CommandKind::OpenRead ? OpenMode::Read : OpenMode::Write;
    highestWritten = 0;
    return frame(Ok);
}

QByteArray ControllerEngine::readSegment(const Request& request)
{
    if (!ProgramStore::isValidProgram(request.program) ||
        !ProgramStore::isValidSegment(request.segment))
        return frame(NoSuchProgramOrSegment);
    if (mode == OpenMode::None || request.program != openedProgram)
        return frame(NotOpen);
    if (mode != OpenMode::Read)
        return frame(AttributeViolated);
    if (!store.hasSegment(request.program, request.segment))
        return frame(NoSuchProgramOrSegment);
    return frame(Ok, ",FR," + QByteArray::number(request.program) + ',' +
                         QByteArray::number(request.segment) + ',' +
                         store.segment(request.program, request.segment));
}

QByteArray ControllerEngine::writeSegment(const Request& request)
{
    if (!ProgramStore::isValidProgram(request.program) ||
        !ProgramStore::isValidSegment(request.segment))
        return frame(NoSuchProgramOrSegment);
    if (mode == OpenMode::None || request.program != openedProgram)
        return frame(NotOpen);
    if (mode != OpenMode::Write)
        return frame(AttributeViolated);
    if (!ProgramStore::isValidRecord(request.segment, request.record))
        return frame(BadBlockData);
    store.setSegment(request.program, request.segment, request.record);
    highestWritten = qMax(highestWritten, request.segment);
    store.truncate(request.program, highestWritten);
    return frame(Ok);
}

QByteArray ControllerEngine::closeFile(const Request& request)
{
    if (!ProgramStore::isValidProgram(request.program))
        return frame(NoSuchProgramOrSegment);
    if (mode == OpenMode::None || request.program != openedProgram)
        return frame(NotOpen);
    closeOpenFile();
    return frame(Ok);
}

void ControllerEngine::closeOpenFile()
{
    mode = OpenMode::None;
    openedProgram = 0;
    highestWritten = 0;
}

QByteArray ControllerEngine::readRegisters(const Request& request)
{
    if (request.count > MaxWordsPerRequest)
        return frame(TooManyWords);
    QByteArray fields;
    for (int a = request.address; a < request.address + request.count; ++a) {
        if (!isDefined(a))
            return frame(UndefinedAddress);
        fields += ',' + QByteArray::number(memory.value(a));
    }
    return frame(Ok, fields);
}

QByteArray ControllerEngine::writeRegisters(const Request& request)
{
    if (request.count > MaxWordsPerRequest)
        return frame(TooManyWords);
    QList<int> values;
    for (const QByteArray& text : request.values) {
        int v = 0;
        if (!parseControllerNumber(text, &v))
            return frame(Malformed);
        values << v;
    }
    for (int i = 0; i < values.size(); ++i) {
        if (!isDefined(request.address + i))
            return frame(UndefinedAddress);
    }
    // Like the controller: words within the limit are written, the others
    // are skipped and reported.
    bool allWritten = true;
    for (int i = 0; i < values.size(); ++i) {
        if (values.at(i) > 0xFFFF)
            allWritten = false;
        else
            memory[request.address + i] = quint16(values.at(i));
    }
    return frame(allWritten ? Ok : ValueOutOfLimit);
}

void ControllerEngine::defineWord(int address, quint16 value)
{
    memory[address] = value;
}

void ControllerEngine::setDoubleWord(int address, qint32 value)
{
    const quint32 bits = quint32(value);
    defineWord(address, quint16(bits & 0xFFFF));
    defineWord(address + 1, quint16(bits >> 16));
}

qint32 ControllerEngine::doubleWord(int address) const
{
    return qint32(quint32(word(address)) | (quint32(word(address + 1)) << 16));
}

void ControllerEngine::setSpLimits(qint32 low, qint32 high)
{
    setDoubleWord(SpLowLimitAddress, low);
    setDoubleWord(SpHighLimitAddress, high);
}

void ControllerEngine::setEventKinds(qint32 ev1, qint32 ev2, qint32 ev3)
{
    setDoubleWord(EventKindAddresses[0], ev1);
    setDoubleWord(EventKindAddresses[1], ev2);
    setDoubleWord(EventKindAddresses[2], ev3);
}

void ControllerEngine::addFault(const FaultRule& rule)
{
    faults << rule;
    faults.last().reset();
}

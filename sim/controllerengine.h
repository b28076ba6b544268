#ifndef SIM_CONTROLLERENGINE_H
#define SIM_CONTROLLERENGINE_H

#include "sim/faultplan.h"
#include "sim/programstore.h"

#include <QByteArray>
#include <QList>
#include <QMap>

#include <functional>

// One reply as the controller sends it. delayMs is the extra time the line
// stays silent before the reply (a "late" fault); the engine only marks it,
// the front end waits.
struct EngineReply {
    QByteArray bytes;
    int delayMs = 0;
};

// The controller as a pure protocol engine: request bytes in, reply bytes
// out, no I/O and no timers.
//
// Framing: STX text ETX CR LF. Bytes before STX are ignored; a new STX
// before ETX restarts the frame; a frame whose ETX is not followed by CR LF
// is discarded unanswered, as is a frame for another station (the line is a
// bus) and a partial frame that grows beyond MaxFrameLength.
//
// Replies: STX "0100X" status [fields] ETX CR LF. Status "00" accepts.
//   open   "0100XFO,p,R,0" / "0100XFO,p,W,0"  -> STX 0100X00 ETX CR LF
//   read   "0100XFR,p,s"    -> STX 0100X00,FR,p,s,<record> ETX CR LF
//          The record therefore starts at position 16, one later for p > 9
//          and one later again for s > 9: where a panel cuts it out.
//   write  "0100XFW,p,s,<record>"  -> STX 0100X00 ETX CR LF
//   close  "0100XFC,p"      -> STX 0100X00 ETX CR LF
//   RS     "0100XRS,aW,n"   -> STX 0100X00,v1,...,vn ETX CR LF (unsigned decimal words)
//   WS     "0100XWS,aW,v1,...,vn" -> STX 0100X00 ETX CR LF
// Errors: STX 0100X NN ETX CR LF with
//   40 malformed request, 41 more than 16 words, 42 undefined address,
//   44 word value above 65535, 50 a file is already open, 51 the file named
//   is not open, 52 program/segment out of range or segment absent,
//   54 read on a file open for write or write on a file open for read,
//   57 record of the wrong length or with non-hex digits, 99 unknown command.
//
// One file is open at a time. Opening for write clears nothing; writing
// segment s stores it and drops every segment above the highest one written
// since the open, so the program ends where the writer's last segment is
// and a write that never gets going leaves the program intact.
class ControllerEngine
{
public:
    enum class OpenMode { None, Read, Write };

    static constexpr int MaxFrameLength = 512;
    static constexpr int MaxWordsPerRequest = 16;
    // Controller memory that a panel reads before writing a program.
    static constexpr int SpLowLimitAddress = 4509;
    static constexpr int SpHighLimitAddress = 4511;
    static constexpr int EventKindAddresses[3] = {3501, 3505, 3509};

    // A controller holding the sample programs, the default setpoint limits
    // (-1999..9999) and event kinds (0 PV, 4 absolute deviation, 50 time).
    ControllerEngine();

    // Takes request bytes (any split); returns the replies for the frames
    // completed by them, in order.
    QList<EngineReply> feedReplies(const QByteArray& bytes);
    // The same, the replies' bytes concatenated (delays ignored).
    QByteArray feed(const QByteArray& bytes);
    // Bytes of an incomplete frame kept for the next feed.
    int pendingBytes() const { return pending.size(); }

    ProgramStore& programs() { return store; }
    const ProgramStore& programs() const { return store; }

    // Controller memory, 16-bit words; only defined words can be read or written.
    void defineWord(int address, quint16 value = 0);
    bool isDefined(int address) const { return memory.contains(address); }
    quint16 word(int address) const { return memory.value(address); }
    // A double word: low word at address, high word at address + 1 (both defined).
    void setDoubleWord(int address, qint32 value);
    qint32 doubleWord(int address) const;
    void setSpLimits(qint32 low, qint32 high);
    void setEventKinds(qint32 ev1, qint32 ev2, qint32 ev3);

    void addFault(const FaultRule& rule);
    void clearFaults() { faults.clear(); }
    // Suspends the fault plan (no rule counts or fires) until switched on
    // again: a test bench runs a clean transfer between faulty ones.
    void setFaultsEnabled(bool on) { faultsOn = on; }
    // Called with the text (between STX and ETX) of every complete request
    // frame, before it is answered: the line's traffic, for a frame log.
    std::function<void(const QByteArray& text)> frameHeard;
    const QList<FaultRule>& faultRules() const { return faults; }
    // How many times a fault has changed a reply so far.
    int faultsApplied() const { return appliedFaults; }

    int openProgram() const { return openedProgram; }
    OpenMode openMode() const { return mode; }
    // Closes the open file as a controller would after an idle timeout.
    void closeOpenFile();

private:
    struct Request;

    EngineReply handleFrame(const QByteArray& text);
    QByteArray execute(const Request& request);
    QByteArray openFile(const Request& request);
    QByteArray readSegment(const Request& request);
    QByteArray writeSegment(const Request& request);
    QByteArray closeFile(const Request& request);
    QByteArray readRegisters(const Request& request);
    QByteArray writeRegisters(const Request& request);
    void applyFault(FaultRule& rule, EngineReply& reply);

    QByteArray pending;
    ProgramStore store;
    QMap<int, quint16> memory;
    QList<FaultRule> faults;
    int appliedFaults = 0;
    bool faultsOn = true;
    int openedProgram = 0;
    OpenMode mode = OpenMode::None;
    int highestWritten = 0;
};

#endif

#ifndef SIM_PTYFRONTEND_H
#define SIM_PTYFRONTEND_H

#include "sim/controllerengine.h"
#include "sim/wiretrace.h"

#include <QString>

#include <deque>
#include <functional>

struct FrontEndOptions {
    QString linkPath;      // symlink to the device, removed on exit; empty: none
    int baud = 9600;       // 0: no pacing
    int turnaroundMs = 5;  // silence between a request's end and its reply
    int openTimeoutMs = 0; // close a file left open this long without traffic; 0: never
    bool exitOnStdinEof = false;
    // With exitOnStdinEof: each line read from stdin (without its line
    // feed), for a harness that steers the simulator while it runs.
    std::function<void(const QByteArray& line)> stdinLine;
    // Called after a request has changed the program store (a segment
    // written), once its reply has gone out, and on stopping if still due.
    std::function<void()> onProgramsChanged;
    // A pseudo-terminal delivers a request at once; with this set a reply
    // waits as long as the request's bytes would have taken at the baud
    // rate, as on a half-duplex line.
    bool paceRequests = false;
};

// The simulator's line: a pseudo-terminal whose slave side a serial port
// opens like a real one. Requests read from the master go to the engine;
// replies are written back after the turnaround at the line's byte time
// (8E1: 11 bits a byte), late replies later still.
class PtyFrontEnd
{
public:
    PtyFrontEnd(ControllerEngine& engine, const FrontEndOptions& options);
    ~PtyFrontEnd();
    PtyFrontEnd(const PtyFrontEnd&) = delete;
    PtyFrontEnd& operator=(const PtyFrontEnd&) = delete;

    // Creates the pseudo-terminal in raw mode and the link; false with error set.
    bool open(QString* error);
    QString devicePath() const { return slavePath; }
    // Serves the line until stop() (from a signal handler) or, if asked, until
    // stdin closes. Returns the process exit code.
    int run();
    // Async-signal-safe.
    static void stop();

private:
    struct Outgoing {
        qint64 dueNs;
        char byte;
    };
    qint64 byteNs() const;
    void schedule(const EngineReply& reply, qint64 nowNs);
    bool writeDue(qint64 nowNs);
    void reportProgramsChanged();

    ControllerEngine& engine;
    FrontEndOptions options;
    int master = -1;
    int slave = -1; // kept open so the master never sees a hang-up between clients
    QString slavePath;
    bool linked = false;
    std::deque<Outgoing> outgoing;
    qint64 lineFreeNs = 0;
    qint64 lastTrafficNs = 0;
    QByteArray stdinText; // an unfinished control line
    WireTrace trace;
    bool programsChanged = false;
    qint64 requestBytes = 0; // received since the last reply was scheduled
};

#endif

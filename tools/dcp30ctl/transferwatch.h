#ifndef DCP30CTL_TRANSFERWATCH_H
#define DCP30CTL_TRANSFERWATCH_H

#include "driver/frametrace.h"
#include "observedport.h"

#include <QByteArray>

#include <mutex>

// What dcp30ctl sees of a transfer on the line, through the session's
// observed port: the segment on the line, a command sent again (the driver
// retrying it), an open sent again (the whole transfer repeated); and, with
// --trace, every frame in both directions on stderr with its time and
// meaning:
//
//   12:00:01.250 -> 0100XFR,3,2              read program 3, segment 2
//   12:00:01.612 <- 0100X00,FR,3,2,...       status 00: accepted
//
// The observers run in the driver's worker thread; state() may be asked
// from any thread.
class TransferWatch
{
public:
    struct State {
        int segment = 0;       // the last segment command sent (0: none yet)
        int retries = 0;       // commands sent again so far
        bool retrying = false; // the last command went out again
    };

    explicit TransferWatch(bool trace);
    ObservedPort::Observers observers();
    State state() const;
    // A new transfer starts: nothing seen yet.
    void reset();

private:
    void sent(const QByteArray& frame);
    void received(const QByteArray& bytes);

    mutable std::mutex mutex;
    State current;
    QByteArray lastCommand;
    bool opened = false;
    const bool tracing;
    FrameTrace requests;
    FrameTrace replies;
};

// The meaning of an "Error Code N." line of the driver's logs, for a person
// reading it; empty for a code the driver does not use.
QString errorCodeMeaning(int code);

#endif

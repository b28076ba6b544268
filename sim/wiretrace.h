#ifndef SIM_WIRETRACE_H
#define SIM_WIRETRACE_H

#include "driver/frametrace.h"

#include <QByteArray>

// The simulator's --verbose trace: whole frames in both directions, each on
// one line with the time, the direction, the frame's text and its meaning
// (FrameTrace):
//
//   12:00:01.250 <- 0100XFR,3,2             read program 3, segment 2
//   12:00:01.262 -> 0100X00,FR,3,2,...      status 00: accepted
//
// Lines go to the "dcp.sim.wire" logging category at debug level.
class WireTrace
{
public:
    WireTrace();
    // Bytes as they arrive from the panel / as they leave for it.
    void received(const QByteArray& bytes);
    void sent(const QByteArray& bytes);

private:
    FrameTrace fromPanel;
    FrameTrace toPanel;
};

#endif

#ifndef SIM_WIRETRACE_H
#define SIM_WIRETRACE_H

#include <QByteArray>
#include <QString>

// The simulator's --verbose trace: whole frames in both directions, each on
// one line with the time, the direction, the frame's text and its meaning:
//
//   12:00:01.250 <- 0100XFR,3,2         read program 3, segment 2
//   12:00:01.262 -> 0100X00,FR,3,2,...  status 00: accepted
//   12:00:02.001 -> 0100X52             status 52: Program number or ...
//
// Bytes outside a frame (line noise, a frame cut short) are shown as hex.
// Lines go to the "dcp.sim.wire" logging category at debug level.
class WireTrace
{
public:
    // Bytes as they arrive from the panel / as they leave for it.
    void received(const QByteArray& bytes);
    void sent(const QByteArray& bytes);

    // The meaning of a request's text (between STX and ETX).
    static QString describeRequest(const QByteArray& text);
    // The meaning of a reply's text: its status code and the code's message.
    static QString describeReply(const QByteArray& text);

private:
    static void take(QByteArray& pending, const QByteArray& bytes, bool incoming);

    QByteArray fromPanel;
    QByteArray toPanel;
};

#endif

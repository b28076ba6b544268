#ifndef FRAMETRACE_H
#define FRAMETRACE_H

#include <QByteArray>
#include <QString>

#include <functional>

// Whole frames out of the bytes of one direction of the controller line, each
// handed on with its meaning, for a wire trace a person reads:
//
//   0100XFR,3,2              read program 3, segment 2
//   0100X00,FR,3,2,...       status 00: accepted
//   0100X52                  status 52: Program number or ...
//
// Bytes outside a frame (line noise, a frame cut short) come out as hex.
// Pure: bytes in, lines out through the sink; the caller adds time and
// direction.
class FrameTrace
{
public:
    // shown: the frame's text (between STX and ETX) or the hex of stray bytes.
    using Sink = std::function<void(const QString& shown, const QString& meaning)>;

    // requests: the panel's side (commands), else the controller's (replies).
    FrameTrace(bool requests, Sink sink);

    void feed(const QByteArray& bytes);

    // The meaning of a request's text: "read program 3, segment 2".
    static QString describeRequest(const QByteArray& text);
    // The meaning of a reply's text: its status code and the code's message.
    static QString describeReply(const QByteArray& text);

private:
    bool requests;
    Sink sink;
    QByteArray pending;
};

#endif

// The programs a fresh simulator holds. Every value lies within the ranges a
// panel checks before writing with the default setpoint limits (-1999..9999)
// and event kinds (EV1 PV event, EV2 absolute deviation, EV3 time event), so
// a program read out and written back unchanged is accepted.
#include "sim/programstore.h"

#include <array>

namespace
{

constexpr int Unset = 0x7FFF;

struct Segment {
    int sp = 0;
    int minutes = 0;
    // EV1 1st/2nd, EV2 1st/2nd, EV3 1st/2nd. A time event (EV3) with nothing
    // to switch is 5999 / unset, the one pair a panel accepts as "off".
    std::array<int, 6> ev{{Unset, Unset, Unset, Unset, 5999, Unset}};
    std::array<int, 10> t{{Unset, Unset, Unset, Unset, Unset, Unset, Unset, Unset, Unset, Unset}};
    int pid = 1;
    int gs = Unset;
    int gsTimeout = Unset;
};

struct ProgramHead {
    int start = 0;  // P.STA
    int cycles = 0; // CYCL
    int link = 0;   // P.LIN
    const char* tag = "        ";
};

void appendWord(QByteArray& out, int value)
{
    out += QByteArray::number(quint16(value), 16).rightJustified(4, '0').toUpper();
}

QByteArray record(const Segment& s, const ProgramHead* head)
{
    QByteArray out;
    appendWord(out, s.sp);
    appendWord(out, s.minutes);
    appendWord(out, 0);
    for (int v : s.ev)
        appendWord(out, v);
    for (int v : s.t)
        appendWord(out, v);
    appendWord(out, s.pid);
    appendWord(out, 0);
    appendWord(out, s.gs);
    appendWord(out, s.gsTimeout);
    if (head) {
        appendWord(out, head->start);
        appendWord(out, head->cycles);
        appendWord(out, head->link);
        const QByteArray tag = QByteArray(head->tag).leftJustified(8, ' ', true);
        out += tag.toHex().toUpper();
    }
    return out;
}

void addProgram(ProgramStore& store, int program, const QList<Segment>& segments,
                const ProgramHead& head)
{
    for (int i = 0; i < segments.size(); ++i)
        store.setSegment(program, i + 1, record(segments.at(i), i == 0 ? &head : nullptr));
}

// Program 1: heat treatment. Ramp to 200, soak, ramp to 550, soak, ramp to
// 850, cool down; EV1 guards over-temperature, EV2 the deviation, EV3 runs
// a fan for most of the long soak.
QList<Segment> heatTreatment()
{
    const int profile[6][2] = {{200, 60}, {200, 120}, {550, 90}, {550, 240}, {850, 60}, {25, 180}};
    QList<Segment> out;
    for (const auto& step : profile) {
        Segment s;
        s.sp = step[0];
        s.minutes = step[1];
        s.ev[0] = 900; // PV high alarm
        s.ev[1] = 5;   // hysteresis
        s.ev[2] = 30;  // deviation band
        s.ev[3] = 2;
        s.pid = out.size() < 3 ? 1 : 2;
        out << s;
    }
    out[1].gs = 10; // guaranteed soak within 10 of the setpoint
    out[1].gsTimeout = 30;
    out[3].ev[4] = 10;
    out[3].ev[5] = 230;
    return out;
}

// Program 2: ten short steps, each switching the time events T1..T5 at
// different moments of the segment.
QList<Segment> timedSteps()
{
    QList<Segment> out;
    for (int i = 0; i < 10; ++i) {
        Segment s;
        s.sp = 100 + 50 * i;
        s.minutes = 20 + 5 * i;
        for (int n = 0; n < 5; ++n) {
            if ((i + n) % 3 == 2)
                continue; // leave some time events unset
            s.t[2 * n] = n * 2;
            s.t[2 * n + 1] = n * 2 + 5 + i;
        }
        s.ev[4] = i;
        s.ev[5] = i + 15;
        s.pid = 1 + i % 8;
        out << s;
    }
    return out;
}

// Program 3: all thirty segments, starting below zero (a cold-box profile)
// and stepping up and down again.
QList<Segment> fullProgram()
{
    QList<Segment> out;
    for (int i = 0; i < ProgramStore::MaxSegments; ++i) {
        Segment s;
        s.sp = i < 15 ? -50 + 40 * i : 510 - 40 * (i - 15);
        s.minutes = 5 + i * 3;
        s.ev[0] = -1999 + 100 * i;
        s.ev[1] = 0;
        s.pid = 8 - i % 8;
        s.gs = i % 4 == 0 ? 1000 : Unset;
        s.gsTimeout = i % 4 == 0 ? 5999 : Unset;
        s.t[8] = 0;
        s.t[9] = 5999;
        out << s;
    }
    return out;
}

} // namespace

ProgramStore ProgramStore::samples()
{
    ProgramStore store;
    addProgram(store, 1, heatTreatment(), {0, 1, 0, "HEAT-T01"});
    addProgram(store, 2, timedSteps(), {1, 0, 3, "TEV-10"});
    addProgram(store, 3, fullProgram(), {0, 9999, 19, "FULL#30!"});
    return store;
}

QStringList ProgramStore::sampleDescriptions()
{
    return {
        QStringLiteral("1  HEAT-T01   6 segments: heat treatment, ramps to 200, 550 and 850 with "
                       "soaks, EV1 alarm, EV2 deviation, EV3 fan in segment 4"),
        QStringLiteral("2  TEV-10    10 segments: short steps switching time events T1..T5"),
        QStringLiteral("3  FULL#30!  30 segments: all thirty, from -50 up to 510 and down "
                       "again, G.S in every fourth segment")};
}

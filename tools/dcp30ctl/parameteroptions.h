#ifndef DCP30CTL_PARAMETEROPTIONS_H
#define DCP30CTL_PARAMETEROPTIONS_H

#include "driver/segmentcodec.h"

#include <QCommandLineOption>
#include <QString>

class QCommandLineParser;

// The controller parameters a program write is checked with, as the
// commands that judge program files take them: --sp-limits LO,HI and
// --event-kinds K1,K2,K3 over the sample controller's values.
class ParameterOptions
{
public:
    // The sample controller's parameters (what the simulator answers unless
    // told otherwise): SP1 from -1999 to 9999, EV1 a PV event, EV2 an
    // absolute value deviation event, EV3 a time event.
    static constexpr SegmentCodec::WriteParameters SampleController{-1999, 9999, 0, 4, 50};

    ParameterOptions();
    void addTo(QCommandLineParser& parser) const;
    bool anySet(const QCommandLineParser& parser) const;
    // Overwrites the members of params the options name; false with a usage
    // message for a malformed value.
    bool apply(const QCommandLineParser& parser, SegmentCodec::WriteParameters& params,
               QString& error) const;

    static QString describe(const SegmentCodec::WriteParameters& params);

private:
    QCommandLineOption limits;
    QCommandLineOption kinds;
};

#endif

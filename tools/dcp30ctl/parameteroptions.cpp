#include "parameteroptions.h"
#include "programfile.h"

#include <QCommandLineParser>

ParameterOptions::ParameterOptions()
    : limits(QStringLiteral("sp-limits"), QString(), QStringLiteral("LO,HI")),
      kinds(QStringLiteral("event-kinds"), QString(), QStringLiteral("K1,K2,K3"))
{
}

void ParameterOptions::addTo(QCommandLineParser& parser) const
{
    parser.addOptions({limits, kinds});
}

bool ParameterOptions::anySet(const QCommandLineParser& parser) const
{
    return parser.isSet(limits) || parser.isSet(kinds);
}

bool ParameterOptions::apply(const QCommandLineParser& parser,
                             SegmentCodec::WriteParameters& params, QString& error) const
{
    if (parser.isSet(limits) &&
        !parseSetpointLimits(parser.value(limits), params.spLowLimit, params.spHighLimit)) {
        error = QStringLiteral("--sp-limits needs LO,HI with LO <= HI");
        return false;
    }
    if (parser.isSet(kinds) &&
        !parseEventKinds(parser.value(kinds), params.ev1Type, params.ev2Type, params.ev3Type)) {
        error = QStringLiteral("--event-kinds needs three integers K1,K2,K3");
        return false;
    }
    return true;
}

QString ParameterOptions::describe(const SegmentCodec::WriteParameters& params)
{
    return QStringLiteral("SP1 %1..%2, event kinds %3,%4,%5")
        .arg(params.spLowLimit)
        .arg(params.spHighLimit)
        .arg(params.ev1Type)
        .arg(params.ev2Type)
        .arg(params.ev3Type);
}

#include "sim/faultplan.h"

#include <QStringList>

namespace
{

struct KindName {
    FaultRule::Kind kind;
    const char* name;
};

constexpr KindName kindNames[] = {
    {FaultRule::Kind::Drop, "drop"},     {FaultRule::Kind::Deaf, "deaf"},
    {FaultRule::Kind::Garble, "garble"}, {FaultRule::Kind::Truncate, "truncate"},
    {FaultRule::Kind::Late, "late"},     {FaultRule::Kind::Noise, "noise"},
    {FaultRule::Kind::Length, "length"}, {FaultRule::Kind::Status, "status"},
};

constexpr CommandKind commandKinds[] = {
    CommandKind::Any,          CommandKind::OpenRead,      CommandKind::OpenWrite,
    CommandKind::FileRead,     CommandKind::FileWrite,     CommandKind::FileClose,
    CommandKind::RegisterRead, CommandKind::RegisterWrite,
};

bool toInt(const QString& text, int* value)
{
    bool ok = false;
    *value = text.toInt(&ok);
    return ok;
}

} // namespace

QString commandKindName(CommandKind kind)
{
    switch (kind) {
    case CommandKind::Any:
        return QStringLiteral("ANY");
    case CommandKind::OpenRead:
        return QStringLiteral("FO-R");
    case CommandKind::OpenWrite:
        return QStringLiteral("FO-W");
    case CommandKind::FileRead:
        return QStringLiteral("FR");
    case CommandKind::FileWrite:
        return QStringLiteral("FW");
    case CommandKind::FileClose:
        return QStringLiteral("FC");
    case CommandKind::RegisterRead:
        return QStringLiteral("RS");
    case CommandKind::RegisterWrite:
        return QStringLiteral("WS");
    }
    return QString();
}

bool FaultRule::parse(const QString& text, FaultRule* rule, QString* error)
{
    const auto fail = [&](const QString& why) {
        if (error)
            *error = QStringLiteral("bad fault \"%1\": %2").arg(text, why);
        return false;
    };
    FaultRule r;
    QString body = text;
    QString trigger = QStringLiteral("once");
    const int at = text.indexOf(QLatin1Char('@'));
    if (at >= 0) {
        body = text.left(at);
        trigger = text.mid(at + 1);
    }
    const QStringList parts = body.split(QLatin1Char(':'));
    if (parts.size() < 2 || parts.size() > 3)
        return fail(QStringLiteral("expected KIND:COMMAND[:SEGMENT][@TRIGGER]"));

    const QString kindText = parts.at(0).section(QLatin1Char('='), 0, 0);
    const bool hasArgument = parts.at(0).contains(QLatin1Char('='));
    const QString argument = parts.at(0).section(QLatin1Char('='), 1);
    bool known = false;
    for (const auto& k : kindNames) {
        if (kindText == QLatin1String(k.name)) {
            r.kind = k.kind;
            known = true;
        }
    }
    if (!known)
        return fail(QStringLiteral("unknown kind \"%1\"").arg(kindText));
    switch (r.kind) {
    case Kind::Drop:
    case Kind::Deaf:
    case Kind::Garble:
        if (hasArgument)
            return fail(QStringLiteral("%1 takes no argument").arg(kindText));
        break;
    case Kind::Status:
        if (argument.size() != 2 || !argument.at(0).isDigit() || !argument.at(1).isDigit())
            return fail(QStringLiteral("status needs a two-digit code, e.g. status=52"));
        r.status = argument.toLatin1();
        break;
    case Kind::Truncate:
    case Kind::Late:
    case Kind::Noise:
    case Kind::Length: {
        const int defaults[] = {-1, 500, 3, -1};
        r.argument = defaults[int(r.kind) - int(Kind::Truncate)];
        if (hasArgument && !toInt(argument, &r.argument))
            return fail(QStringLiteral("%1 needs a whole number").arg(kindText));
        const bool positive = r.kind == Kind::Length ? r.argument != 0 : r.argument > 0;
        if (hasArgument && !positive)
            return fail(QStringLiteral("%1=%2 changes nothing").arg(kindText, argument));
        break;
    }
    }

    bool commandKnown = false;
    for (CommandKind c : commandKinds) {
        if (parts.at(1) == commandKindName(c) || (c == CommandKind::Any && parts.at(1) == "*")) {
            r.command = c;
            commandKnown = true;
        }
    }
    if (!commandKnown)
        return fail(QStringLiteral("unknown command \"%1\" (FO-R FO-W FR FW FC RS WS ANY)")
                        .arg(parts.at(1)));
    if (r.kind == Kind::Length && r.command != CommandKind::FileRead)
        return fail(QStringLiteral("length applies to FR replies only"));
    if (parts.size() == 3) {
        if (r.command != CommandKind::FileRead && r.command != CommandKind::FileWrite)
            return fail(QStringLiteral("a segment can be named for FR and FW only"));
        if (!toInt(parts.at(2), &r.segment) || r.segment < 1 || r.segment > 30)
            return fail(QStringLiteral("segment must be 1..30"));
    }

    const QString triggerName = trigger.section(QLatin1Char('='), 0, 0);
    const QString triggerValue = trigger.section(QLatin1Char('='), 1);
    if (trigger == QLatin1String("once")) {
        r.trigger = Trigger::At;
        r.count = 1;
    } else if (trigger == QLatin1String("always")) {
        r.trigger = Trigger::Every;
        r.count = 1;
    } else if (triggerName == QLatin1String("at") || triggerName == QLatin1String("every")) {
        r.trigger = triggerName == QLatin1String("at") ? Trigger::At : Trigger::Every;
        if (!toInt(triggerValue, &r.count) || r.count < 1)
            return fail(QStringLiteral("%1 needs a count of 1 or more").arg(triggerName));
    } else if (triggerName == QLatin1String("random")) {
        r.trigger = Trigger::Random;
        const QStringList values = trigger.mid(7).split(QLatin1Char(','));
        bool ok = false;
        r.probability = values.at(0).toDouble(&ok);
        if (!ok || r.probability < 0 || r.probability > 1)
            return fail(QStringLiteral("random needs a probability 0..1"));
        if (values.size() > 2 || (values.size() == 2 && !values.at(1).startsWith("seed=")))
            return fail(QStringLiteral("expected random=P[,seed=S]"));
        if (values.size() == 2) {
            r.seed = values.at(1).mid(5).toUInt(&ok);
            if (!ok)
                return fail(QStringLiteral("seed must be an unsigned number"));
        }
    } else {
        return fail(QStringLiteral("unknown trigger \"%1\"").arg(trigger));
    }
    r.reset();
    *rule = r;
    return true;
}

QString FaultRule::toString() const
{
    QString text;
    for (const auto& k : kindNames) {
        if (k.kind == kind)
            text = QLatin1String(k.name);
    }
    if (kind == Kind::Status)
        text += QLatin1Char('=') + QString::fromLatin1(status);
    else if (kind == Kind::Late || kind == Kind::Noise || kind == Kind::Length ||
             (kind == Kind::Truncate && argument > 0))
        text += QLatin1Char('=') + QString::number(argument);
    text += QLatin1Char(':') + commandKindName(command);
    if (segment > 0)
        text += QLatin1Char(':') + QString::number(segment);
    switch (trigger) {
    case Trigger::At:
        text += count == 1 ? QStringLiteral("@once") : QStringLiteral("@at=%1").arg(count);
        break;
    case Trigger::Every:
        text += count == 1 ? QStringLiteral("@always") : QStringLiteral("@every=%1").arg(count);
        break;
    case Trigger::Random:
        text += QStringLiteral("@random=%1,seed=%2").arg(probability).arg(seed);
        break;
    }
    return text;
}

bool FaultRule::matches(CommandKind request, int requestSegment) const
{
    if (command != CommandKind::Any && command != request)
        return false;
    return segment == 0 || segment == requestSegment;
}

bool FaultRule::fire()
{
    ++seen;
    switch (trigger) {
    case Trigger::At:
        return seen == count;
    case Trigger::Every:
        return seen % count == 0;
    case Trigger::Random:
        return random.generateDouble() < probability;
    }
    return false;
}

void FaultRule::reset()
{
    seen = 0;
    random.seed(seed);
}

QString FaultRule::syntaxHelp()
{
    return QStringLiteral(
        "Fault rules: KIND[=ARG]:COMMAND[:SEGMENT][@TRIGGER]\n"
        "  KIND     drop          carry the command out, lose the reply\n"
        "           deaf          lose the request: do nothing, send nothing\n"
        "           garble        reply header \"0100x\" instead of \"0100X\"\n"
        "           truncate[=N]  send only the first N reply bytes (default: half)\n"
        "           late[=MS]     send the reply MS ms late (default 500)\n"
        "           noise[=N]     N noise bytes before the STX (default 3)\n"
        "           length[=D]    file read record D hex digits longer, negative\n"
        "                         shorter (default -1); FR only\n"
        "           status=NN     refuse the command with status NN\n"
        "  COMMAND  FO-R FO-W FR FW FC RS WS ANY\n"
        "  SEGMENT  1..30, FR and FW only: count only requests for that segment\n"
        "  TRIGGER  once (default), at=N (the N-th match), every=N, always,\n"
        "           random=P[,seed=S] (probability 0..1, reproducible per seed)\n"
        "  Example: --fault status=52:FR:4@once --fault late:FR@random=0.1,seed=7\n");
}

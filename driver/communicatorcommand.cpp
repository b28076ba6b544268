#include "driver/communicatorcommand.h"

CommunicatorCommand::CommunicatorCommand()
    : auxNumber(1), dataType(DoubleWordKind), count(1), address(QStringLiteral("S>NULL")),
      auxValue(0), auxFlag(false)
{
}

int CommunicatorCommand::getDataSize() const
{
    switch (dataType) {
    case BitKind:
        return count == 0 ? 1 : int((count + 7) / 8);
    case ByteKind:
    case BlockKind:
        return int(count);
    case WordKind:
        return int(2 * count);
    case DoubleWordKind:
        return int(4 * count);
    case QuadWordKind:
        return int(8 * count);
    default:
        return 1;
    }
}

QString CommunicatorCommand::stringKey() const
{
    // One multi-argument arg(): a "%n" inside the address must stay literal.
    return QStringLiteral("%1_%2_%3")
        .arg(address, QString::number(dataType), QString::number(count));
}

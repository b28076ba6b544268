// dcp30ctl write: a program file into the controller.
#include "subcommand.h"
#include "transfer.h"

namespace
{

const SubcommandRegistration registration{
    {QStringLiteral("write"),
     QStringLiteral("write PROG_N.txt into a program of the controller (through the plug-in)"),
     transferUsage(TransferDirection::Write),
     [](const QStringList& args) { return runTransfer(TransferDirection::Write, args); }}};

} // namespace

// dcp30ctl read: a program out of the controller into a program file.
#include "subcommand.h"
#include "transfer.h"

namespace
{

const SubcommandRegistration registration{
    {QStringLiteral("read"),
     QStringLiteral("read a program from the controller into PROG_N.txt (through the plug-in)"),
     transferUsage(TransferDirection::Read),
     [](const QStringList& args) { return runTransfer(TransferDirection::Read, args); }}};

} // namespace

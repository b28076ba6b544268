// dcp30ctl close: the controller's program file closed by hand, for a
// controller that a dead session left holding it ("File is already open.").
#include "pluginsession.h"
#include "subcommand.h"

#include "driver/abstractdeviceinterface.h"
#include "driver/controllerframes.h"

#include <QCommandLineParser>
#include <QLoggingCategory>
#include <QTextStream>
#include <QThread>
#include <QVariant>

namespace
{

const char Usage[] =
    "usage: dcp30ctl close --port DEV --program N [--retries R]\n"
    "\n"
    "Sends the controller's file close command for program N (1..19) on the serial\n"
    "port DEV, as the panel does at the end of a transfer, and prints the\n"
    "controller's answer. A controller that refuses every open with \"File is\n"
    "already open.\" holds a file that some transfer left open; this closes it.\n"
    "Without an answer the command is sent again, up to R more times (default 3).\n"
    "\n"
    "Exit status: 0 the controller answered (\"File is not open yet.\" included:\n"
    "nothing was open); 1 no usable answer, or the port could not be used; 2 bad\n"
    "usage.\n";

struct CloseAnswer {
    bool answered = false;
    bool accepted = false;
    QString status;
    QString message;
};

// One close on the line, with the driver's framing, wait and read limit.
CloseAnswer sendClose(AbstractDeviceInterface* port, int program)
{
    using namespace ControllerFrames;
    const QByteArray frame = ControllerFrames::frame(Command::Close, program);
    port->setOption(AbstractDeviceInterface::OptionPrepareCommand, QVariant(0));
    CloseAnswer answer;
    if (port->writeBytes(frame.constData(), frame.size()) != frame.size())
        return answer;
    QThread::msleep(waitMs(Command::Close));
    char buffer[ReplyBufferSize] = {};
    port->readBytes(buffer, readLimit(Command::Close));
    const ReplyCheck check = checkReply(replyText(buffer, ReplyBufferSize));
    answer.answered = check.outcome != ReplyOutcome::HeaderFailure;
    answer.accepted = check.outcome == ReplyOutcome::Accepted;
    answer.status = check.statusCode;
    answer.message = check.message;
    return answer;
}

int runClose(const QStringList& args)
{
    QTextStream out(stdout);
    QTextStream err(stderr);
    QCommandLineParser parser;
    const QCommandLineOption portOption(QStringLiteral("port"), QString(), QStringLiteral("DEV"));
    const QCommandLineOption programOption(QStringLiteral("program"), QString(),
                                           QStringLiteral("N"));
    const QCommandLineOption retriesOption(QStringLiteral("retries"), QString(),
                                           QStringLiteral("R"));
    parser.addOptions({portOption, programOption, retriesOption});
    auto usageError = [&](const QString& message) {
        err << "dcp30ctl close: " << message << "\n(see 'dcp30ctl close --help')\n";
        return 2;
    };
    if (!parser.parse(QStringList{QStringLiteral("close")} + args))
        return usageError(parser.errorText());
    if (!parser.positionalArguments().isEmpty())
        return usageError(
            QStringLiteral("unexpected argument %1").arg(parser.positionalArguments().first()));
    if (parser.value(portOption).isEmpty())
        return usageError(QStringLiteral("--port DEV is needed"));
    bool ok = false;
    const int program = parser.value(programOption).toInt(&ok);
    if (!ok || program < 1 || program > 19)
        return usageError(QStringLiteral("--program needs a number from 1 to 19"));
    int retries = 3;
    if (parser.isSet(retriesOption)) {
        retries = parser.value(retriesOption).toInt(&ok);
        if (!ok || retries < 0 || retries > 20)
            return usageError(QStringLiteral("--retries takes 0..20"));
    }

    QLoggingCategory::setFilterRules(QStringLiteral("dcp*.info=false\n"
                                                    "dcp.host.serial.warning=false"));
    PluginSessionOptions options;
    options.portName = parser.value(portOption);
    options.retries = retries;
    PluginSession session(options);
    QString error;
    if (!session.openPort(&error)) {
        err << "dcp30ctl close: " << error << '\n';
        return 1;
    }
    CloseAnswer answer;
    session.runOnCommunicationThread([&] {
        for (int attempt = 0; attempt <= retries && !answer.answered; ++attempt)
            answer = sendClose(session.port(), program);
    });
    if (!answer.answered) {
        err << "dcp30ctl close: program " << program << ": no answer from the controller after "
            << retries + 1 << (retries == 0 ? " try" : " tries")
            << "; its file may still be open\n";
        return 1;
    }
    if (answer.accepted)
        out << "close: program " << program << ": closed (status " << answer.status << ")\n";
    else
        out << "close: program " << program << ": the controller answered " << answer.status << ": "
            << answer.message << '\n';
    return 0;
}

const SubcommandRegistration registration{Subcommand{
    QStringLiteral("close"), QStringLiteral("close a program file the controller holds open"),
    QString::fromLatin1(Usage), runClose}};

} // namespace

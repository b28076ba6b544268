#ifndef DCP30CTL_TRANSFER_H
#define DCP30CTL_TRANSFER_H

#include "pluginsession.h"

#include <QString>
#include <QStringList>

// dcp30ctl read / write: a program transfer driven through the plug-in's
// internal variables, the way a panel screen drives it.

enum class TransferDirection { Read, Write };

struct TransferRequest {
    TransferDirection direction = TransferDirection::Read;
    int program = 1;  // 1..19
    int segments = 1; // 1..30
    int storage = 0;  // 0 USB stick, 1 SD card
    PluginSessionOptions session;
    int pollMs = 100;       // how often the screen looks at the variables
    int timeoutSeconds = 0; // 0: the worst case of the retry budget, plus slack
    bool verbose = false;
    // write: go on although rows fail the checks (the driver then writes
    // the rows that pass, as a panel does).
    bool force = false;
    // write: read the program back afterwards and compare the records.
    bool verify = false;
    // Every frame on the line on stderr.
    bool trace = false;
    // One JSON object on stdout at the end instead of the summary line.
    bool json = false;
    // write FILE: the file to stage as PROG_N.txt (absolute); empty: the
    // medium's own PROG_N.txt.
    QString sourceFile;
};

// Parses the arguments after "read" / "write". Returns 0 with request
// filled and, in notes, what was adjusted (out-of-range numbers under
// --clamp); or 2 (bad usage) with a one-line reason in error.
int parseTransferArguments(TransferDirection direction, const QStringList& args,
                           TransferRequest* request, QStringList* notes, QString* error);

// The longest a transfer may take with the given retry budget at the real
// pace, in seconds: every whole attempt repeated, every segment repeated in
// each, plus slack for start-up and the companion's parameter reads.
int worstCaseSeconds(TransferDirection direction, int segments, int retries);

// The whole subcommand: exit status 0 (transfer complete), 1 (it failed, or
// the plug-in or the port could not be used), 2 (bad usage).
int runTransfer(TransferDirection direction, const QStringList& args);

QString transferUsage(TransferDirection direction);

#endif

#ifndef SIM_FAULTPLAN_H
#define SIM_FAULTPLAN_H

#include <QByteArray>
#include <QList>
#include <QRandomGenerator>
#include <QString>

// The requests the controller tells apart, as named in fault rules.
enum class CommandKind {
    Any,
    OpenRead,      // FO-R
    OpenWrite,     // FO-W
    FileRead,      // FR
    FileWrite,     // FW
    FileClose,     // FC
    RegisterRead,  // RS
    RegisterWrite, // WS
};

QString commandKindName(CommandKind kind);

// One misbehaviour of the controller, and when it happens.
//
// Text form: KIND[=ARG]:COMMAND[:SEGMENT][@TRIGGER]
//   KIND     drop          the command is carried out, its reply is lost
//            deaf          the request is lost: nothing is done, nothing sent
//            garble        the reply's header reads "0100x" instead of "0100X"
//            truncate[=N]  only the first N bytes of the reply (default: half)
//            late[=MS]     the reply is sent MS ms late (default 500)
//            noise[=N]     N bytes of noise before the STX (default 3)
//            length[=D]    the segment record of a file read reply is D hex
//                          digits longer (negative: shorter; default -1)
//            status=NN     the command is refused with status NN
//   COMMAND  FO-R FO-W FR FW FC RS WS, or ANY
//   SEGMENT  1..30, for FR and FW: only requests for that segment count
//   TRIGGER  once (default) | at=N | every=N | always | random=P[,seed=S]
// Counting: every request that the rule's COMMAND/SEGMENT match counts,
// whether or not another rule fires for it.
struct FaultRule {
    enum class Kind { Drop, Deaf, Garble, Truncate, Late, Noise, Length, Status };
    enum class Trigger { At, Every, Random };

    Kind kind = Kind::Drop;
    CommandKind command = CommandKind::Any;
    int segment = 0;   // 0: any segment
    int argument = 0;  // N, MS or D as the kind reads it; -1 for truncate: half
    QByteArray status; // for Kind::Status
    Trigger trigger = Trigger::At;
    int count = 1; // At: the N-th match; Every: every N-th match
    double probability = 0;
    quint32 seed = 1;

    // Parses the text form; on failure returns false and sets error.
    static bool parse(const QString& text, FaultRule* rule, QString* error);
    QString toString() const;

    // Counts one matching request and says whether the fault happens now.
    bool matches(CommandKind request, int requestSegment) const;
    bool fire();
    // Restarts the count and the random sequence from the seed.
    void reset();

    // Text of the kinds and triggers, for a --help screen.
    static QString syntaxHelp();

private:
    int seen = 0;
    QRandomGenerator random{1};
};

#endif

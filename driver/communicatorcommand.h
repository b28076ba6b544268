#ifndef COMMUNICATORCOMMAND_H
#define COMMUNICATORCOMMAND_H

#include <QString>

// The runtime's request record: which address, how many elements, how wide.
// Its layout (members, then two virtual operations and no virtual destructor)
// is shared with the runtime and the companion driver.
class CommunicatorCommand
{
public:
    // Values of dataType.
    enum DataKind {
        BitKind = 0, // one bit per element, eight to a byte
        ByteKind = 1,
        WordKind = 2,       // 16 bits
        DoubleWordKind = 3, // 32 bits
        QuadWordKind = 4,   // 64 bits
        BlockKind = 5       // block of bytes
    };

    CommunicatorCommand();

    // Number of data bytes the command covers; 1 for kinds it does not know.
    virtual int getDataSize() const;
    // "address_dataType_count", e.g. RAM4509_3_2.
    virtual QString stringKey() const;

    int auxNumber;
    int dataType;
    unsigned int count;
    QString address;
    int auxValue;
    QString auxText;
    bool auxFlag;
};

#endif

#ifndef TESTS_FAKECOMPANION_H
#define TESTS_FAKECOMPANION_H

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

class AbstractDeviceInterface;

// What the fake companion library was asked and what it answers. One per
// loaded library; the driver calls it from the test's thread only.
struct FakeCompanionState {
    // "read <address> <kind> <count>" / "write <address> <data hex>", in order.
    QStringList calls;
    AbstractDeviceInterface* lastDevice = nullptr;
    QMap<QString, QByteArray> readAnswers; // by address; absent: empty answer
    bool writeResult = true;
    int alive = 0; // drivers made and not yet deleted
};

extern "C" typedef FakeCompanionState* (*FakeCompanionStateFunction)();

#endif

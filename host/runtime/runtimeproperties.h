#ifndef HOST_RUNTIMEPROPERTIES_H
#define HOST_RUNTIMEPROPERTIES_H

#include <QString>

class QObject;

// How the panel runtime hands its objects to a driver: dynamic properties of
// the application object. An application object must exist. Passing null
// (or an empty path) removes the property again.
namespace RuntimeProperties
{

// "KDevice" and "MessageCenter" hold the object's address as an unsigned
// integer.
void publishDevice(QObject* deviceObject);
void publishMessageCentre(QObject* messageCentre);
// "hvx_env": its presence tells a driver it runs inside the panel runtime.
void setPanelEnvironment(bool present);
// "DCP30CompanionLibrary": where the DCP30 driver loads its companion from
// instead of the panel's install path.
void setCompanionLibrary(const QString& path);
// "DCP30LinePacing": the DCP30 driver reads each reply as soon as it is
// complete and keeps guardMs of quiet line before the next command; a
// negative value removes the property (the fixed waits of a panel).
void setLinePacing(int guardMs);

} // namespace RuntimeProperties

#endif

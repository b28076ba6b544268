#ifndef DCP30CTL_PLUGINLOCATION_H
#define DCP30CTL_PLUGINLOCATION_H

#include <QString>

// Where dcp30ctl finds the libraries it hosts, relative to its own binary:
// an installed tree keeps them in <prefix>/lib/dcp30 beside <prefix>/bin,
// the build tree in build/lib beside build/bin.
namespace PluginLocation
{

// The first of <bin>/../lib/dcp30/fileName and <bin>/../lib/fileName that
// exists; the first when neither does (so a message names where it was
// expected).
QString besideExecutable(const QString& fileName);

// What --version says of the plug-in: its file, the interface it declares
// in its metadata and the identity of the driver it makes (name, vendor,
// version). The driver is made passive (no panel environment), so nothing
// is started and no port is touched.
struct Identity {
    QString path;
    QString interfaceId;
    QString name;
    QString vendor;
    QString version;
};
// False with a one-line reason when the plug-in cannot be loaded or is no
// driver of the runtime's interface.
bool identify(const QString& path, Identity& identity, QString& error);

} // namespace PluginLocation

#endif

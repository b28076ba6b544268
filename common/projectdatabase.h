#ifndef PROJECTDATABASE_H
#define PROJECTDATABASE_H

#include <QDir>
#include <QList>
#include <QString>

// Name of the project directory below the application directory ("compile")
// and of the database directory below it ("database"); the database file
// itself is also called "database".
extern QString COMPILE_PATH;
extern QString DATABASE_PATH;

struct LinkIdStationId {
    int linkId;
    unsigned char stationId;
};

// The application directory, entered into COMPILE_PATH when that exists.
QDir GetCompilePath();
// Absolute path of the file "database" in GetCompilePath()/DATABASE_PATH, or
// directly in GetCompilePath() when there is no such subdirectory.
QString GetDatabaseName();

// Lookups in the project database (tables LINK and NODE) through the
// connection the runtime registered under connectionName; they must run on
// the thread that created that connection. Station ids are kept to 8 bits.
// A query that fails counts as one without rows.

// The link serving panel port hmiPort and its default station, from the first
// matching row. False (out-parameters untouched) when there is none.
bool GetLinkIdAndDefaultStationId(const QString& connectionName, int hmiPort, int& linkId,
                                  unsigned char& stationId);
// Appends the default stations of link linkId to list; true when list is not
// empty afterwards.
bool GetLinkIdAndDefaultStationId(const QString& connectionName, int linkId,
                                  QList<LinkIdStationId>& list);
// Appends the links and default stations of panel port hmiPort that reach the
// node ip:port; true when list is not empty afterwards. The address is bound as
// a query parameter, so it is compared as plain text whatever it contains.
bool GetLinkIdAndDefaultStationId(const QString& connectionName, int hmiPort, const QString& ip,
                                  unsigned short port, QList<LinkIdStationId>& list);

#endif

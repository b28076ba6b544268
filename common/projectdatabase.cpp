#include "common/projectdatabase.h"

#include <QCoreApplication>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QVariant>

QString COMPILE_PATH = QStringLiteral("compile");
QString DATABASE_PATH = QStringLiteral("database");

namespace
{

LinkIdStationId rowToLinkStation(const QSqlQuery& q, int linkColumn, int stationColumn)
{
    return LinkIdStationId{q.value(linkColumn).toInt(),
                           static_cast<unsigned char>(q.value(stationColumn).toUInt())};
}

} // namespace

QDir GetCompilePath()
{
    QDir dir(QCoreApplication::applicationDirPath());
    dir.cd(COMPILE_PATH); // stays where it is when there is no such directory
    return dir;
}

QString GetDatabaseName()
{
    QDir dir = GetCompilePath();
    dir.cd(DATABASE_PATH);
    return dir.absoluteFilePath(QStringLiteral("database"));
}

bool GetLinkIdAndDefaultStationId(const QString& connectionName, int hmiPort, int& linkId,
                                  unsigned char& stationId)
{
    QSqlQuery q(QSqlDatabase::database(connectionName, true));
    const QString sql =
        QStringLiteral("SELECT LINK.LINKID, NODE.STATIONID FROM LINK, NODE WHERE LINK.HMIPORT = "
                       "%1 AND NODE.LINKID = LINK.LINKID AND NODE.ISDEFAULT = 1;")
            .arg(hmiPort);
    if (!q.exec(sql) || !q.next())
        return false;
    const LinkIdStationId row = rowToLinkStation(q, 0, 1);
    linkId = row.linkId;
    stationId = row.stationId;
    return true;
}

bool GetLinkIdAndDefaultStationId(const QString& connectionName, int linkId,
                                  QList<LinkIdStationId>& list)
{
    QSqlQuery q(QSqlDatabase::database(connectionName, true));
    const QString sql = QStringLiteral("SELECT NODE.STATIONID FROM NODE WHERE NODE.LINKID = %1 "
                                       "AND NODE.ISDEFAULT = 1")
                            .arg(linkId);
    if (q.exec(sql)) {
        while (q.next())
            list.append(LinkIdStationId{linkId, static_cast<unsigned char>(q.value(0).toUInt())});
    }
    return !list.isEmpty();
}

bool GetLinkIdAndDefaultStationId(const QString& connectionName, int hmiPort, const QString& ip,
                                  unsigned short port, QList<LinkIdStationId>& list)
{
    QSqlQuery q(QSqlDatabase::database(connectionName, true));
    // The address comes from project data and may hold anything, a quote
    // included: it is bound, never pasted into the SQL text.
    const QString sql =
        QStringLiteral("SELECT LINK.LINKID, NODE.STATIONID FROM LINK, NODE WHERE LINK.HMIPORT = "
                       "%1 AND NODE.LINKID = LINK.LINKID AND NODE.IP = :ip AND NODE.PORT = %2 "
                       "AND NODE.ISDEFAULT = 1;")
            .arg(hmiPort)
            .arg(port);
    if (q.prepare(sql)) {
        q.bindValue(QStringLiteral(":ip"), ip);
        if (q.exec()) {
            while (q.next())
                list.append(rowToLinkStation(q, 0, 1));
        }
    }
    return !list.isEmpty();
}

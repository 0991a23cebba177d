#ifndef NUVSERVER_SCHEMA_H
#define NUVSERVER_SCHEMA_H

#include <QSqlDatabase>
#include <QString>

/*
 * The database schema and its migrations. The schema version is SQLite's
 * user_version; opening a database applies every later migration, each in
 * its own transaction, and refuses a database newer than this server.
 */
namespace nuvserver {

constexpr int schemaVersion = 1;

// Sets the connection's pragmas (foreign keys, WAL, busy timeout) and brings
// the schema up to date.
bool prepareDatabase(QSqlDatabase &db, int busyTimeoutMs, QString *error);

// The server-wide change counter behind the update marker.
QString currentMarker(const QSqlDatabase &db);
void bumpChangeCounter(const QSqlDatabase &db);

} // namespace nuvserver

#endif // NUVSERVER_SCHEMA_H

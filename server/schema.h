// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_SCHEMA_H
#define NUVSERVER_SCHEMA_H

#include <QSqlDatabase>
#include <QString>

/*
 * The database schema and its migrations. Opening a database applies every
 * later migration, each in its own transaction, and refuses a database newer
 * than this server.
 */
namespace nuvserver {

constexpr int schemaVersion = 3;

// The schema version stored in the database; 0 for an empty database.
int storedSchemaVersion(QSqlDatabase &db);
void storeSchemaVersion(const QSqlDatabase &db, int version);

// Brings the schema of a freshly opened connection up to date.
bool prepareDatabase(QSqlDatabase &db, QString *error);

// The update marker: the database's id and the number of its last change.
// Every successful write appends one row to the table `changes`; numbers
// rise in the order the writes commit (see recordChange()).
QString markerText(const QString &databaseId, qint64 changeNumber);
// The marker of the last change the connection's snapshot sees.
QString currentMarker(const QSqlDatabase &db);
// The SQL expression for the number of the last change.
QString lastChangeNumberSql();
// Appends the change of the write in hand and returns its number, in one
// statement. On PostgreSQL the statement first takes the lock that orders
// commits: the write holds it until it ends, so the numbers of committed
// changes follow their commits, and the change before this one (number - 1)
// is the state this write is applied to. Only a write that fails after its
// number was drawn leaves a gap, which callers see as one more change.
qint64 recordChange(const QSqlDatabase &db);
// The time of the last change, as stored.
QString lastChangeTime(const QSqlDatabase &db);
// Drops the rows of changes long past (only the last number is ever asked
// for; a few thousand are kept for the curious). Outside any transaction.
void foldChanges(const QSqlDatabase &db, qint64 lastNumber);

} // namespace nuvserver

#endif // NUVSERVER_SCHEMA_H

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

constexpr int schemaVersion = 2;

// The schema version stored in the database; 0 for an empty database.
int storedSchemaVersion(QSqlDatabase &db);
void storeSchemaVersion(const QSqlDatabase &db, int version);

// Brings the schema of a freshly opened connection up to date.
bool prepareDatabase(QSqlDatabase &db, QString *error);

// The server-wide change counter behind the update marker.
QString currentMarker(const QSqlDatabase &db);
void bumpChangeCounter(const QSqlDatabase &db);

} // namespace nuvserver

#endif // NUVSERVER_SCHEMA_H

// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_MIGRATION_H
#define NUVSERVER_MIGRATION_H

#include <QString>

/*
 * What a server needs to know about a database before it serves it, and the
 * explicit schema upgrade of a running system. The engine itself migrates
 * implicitly when it opens a database (the embedded transport and the
 * command-line host rely on that); the daemon looks first and refuses, so
 * that instances of different versions never share a half-migrated database.
 */
namespace nuvserver {

struct DatabaseState
{
    bool exists = false; // a database with the engine's tables
    int schema = 0; // its schema version
    bool hasUsers = false;
    QString databaseId; // made when the database was created; never changes
};

// Looks at `database` (a file or a URL) without creating it: a missing SQLite
// file stays missing. False with `error` when it cannot be read.
bool inspectDatabase(const QString &database, DatabaseState *state, QString *error);

// Writes a consistent copy of `database` into `directory` (created 0700 when
// missing), named after its schema version and the time; the copy's path in
// `path`.
bool backupDatabase(const QString &database, const QString &directory, QString *path,
                    QString *error);

} // namespace nuvserver

#endif // NUVSERVER_MIGRATION_H

// SPDX-License-Identifier: Apache-2.0
#ifndef SCRATCHDATABASE_H
#define SCRATCHDATABASE_H

#include <QString>
#include <QStringList>
#include <QVariant>

/*
 * Databases for tests of the engine and of the servers built on it: an
 * SQLite file, or, when the tests run against PostgreSQL, a database of its
 * own on that server, dropped again at the end.
 *
 * The tests run against PostgreSQL when NUV_TEST_POSTGRES_URL names a
 * server (the URL of a database from which the account may create others)
 * or NUV_TEST_POSTGRES_DIR the state directory of scripts/postgres (as the
 * CTest fixtures set it).
 */
namespace testdatabase {

bool onPostgres();

// Runs `sql` on a connection of its own to `database` (a file or a URL) and
// returns the first column of the first row. A failure ends the test
// process when `mustSucceed`, else it gives an invalid QVariant.
QVariant queryOnce(const QString &database, const QString &sql, bool mustSucceed = true);

class ScratchDatabase
{
public:
    // `sqliteFile` is used on SQLite; on PostgreSQL, a fresh database.
    explicit ScratchDatabase(const QString &sqliteFile);
    ~ScratchDatabase();
    ScratchDatabase(const ScratchDatabase &) = delete;
    ScratchDatabase &operator=(const ScratchDatabase &) = delete;

    // The engine's database option: the file or the postgresql:// URL.
    QString location() const { return current; }
    bool isPostgres() const { return !made.isEmpty(); }
    // A database restored from a backup file that an engine on this one
    // wrote (a copy of the file on SQLite, pg_restore on PostgreSQL).
    QString restore(const QString &backupFile);

private:
    QString createPostgresDatabase();

    QString current;
    QStringList made; // PostgreSQL databases to drop at the end
};

} // namespace testdatabase

#endif // SCRATCHDATABASE_H

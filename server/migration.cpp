// SPDX-License-Identifier: Apache-2.0
#include "migration.h"

#include "dialect.h"
#include "schema.h"
#include "sql.h"

#include <QAtomicInt>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>

#include <functional>

namespace nuvserver {

namespace {

// Runs `work` on a connection of its own, closed again afterwards.
bool withConnection(const QString &database, const std::function<void(QSqlDatabase &)> &work,
                    QString *error)
{
    // Unique across threads: engines of several workers may inspect at once.
    static QAtomicInt counter;
    const QString name = QStringLiteral("nuvserver-inspect-%1").arg(counter.fetchAndAddRelaxed(1));
    bool ok = false;
    {
        QString problem;
        const DatabaseLocation location = DatabaseLocation::parse(database, &problem);
        QSqlDatabase db;
        if (problem.isEmpty())
            db = openDatabase(location, name, 10000, &problem);
        if (db.isValid()) {
            try {
                work(db);
                ok = true;
            } catch (const Failure &failure) {
                problem = failure.text;
            }
            db.close();
        }
        if (!ok && error)
            *error = problem;
    }
    QSqlDatabase::removeDatabase(name);
    return ok;
}

} // namespace

bool inspectDatabase(const QString &database, DatabaseState *state, QString *error)
{
    *state = DatabaseState();
    QString problem;
    const DatabaseLocation location = DatabaseLocation::parse(database, &problem);
    if (!problem.isEmpty()) {
        if (error)
            *error = problem;
        return false;
    }
    if (location.backend == Backend::SQLite && !QFileInfo::exists(location.filePath))
        return true;
    return withConnection(
        database,
        [state](QSqlDatabase &db) {
            // Asking a PostgreSQL database for its version would make the
            // table that holds it; an empty one has no meta table yet.
            if (isPostgres(db)
                && !exists(db,
                           QStringLiteral("SELECT 1 FROM information_schema.tables"
                                          " WHERE table_schema = current_schema()"
                                          " AND table_name = 'meta'")))
                return;
            state->schema = storedSchemaVersion(db);
            state->exists = state->schema > 0;
            if (!state->exists)
                return;
            state->databaseId = scalar(db,
                                       QStringLiteral("SELECT value FROM meta"
                                                      " WHERE key = 'database_id'"))
                                    .toString();
            state->hasUsers = exists(db, QStringLiteral("SELECT 1 FROM users"));
        },
        error);
}

bool backupDatabase(const QString &database, const QString &directory, QString *path,
                    QString *error)
{
    if (!QDir().mkpath(directory)) {
        if (error)
            *error = QStringLiteral("cannot create the backup directory %1").arg(directory);
        return false;
    }
    QFile::setPermissions(directory,
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    return withConnection(
        database,
        [&](QSqlDatabase &db) {
            const QString stamp
                = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-hhmmss"));
            *path = QDir(directory).filePath(QStringLiteral("nuvclassify-schema%1-%2%3")
                                                 .arg(storedSchemaVersion(db))
                                                 .arg(stamp, backupSuffix(db)));
            writeBackup(db, DatabaseLocation::parse(database, nullptr), *path);
            QFile::setPermissions(*path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        },
        error);
}

} // namespace nuvserver

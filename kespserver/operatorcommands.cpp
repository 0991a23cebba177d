// SPDX-License-Identifier: Apache-2.0
#include "operatorcommands.h"

#include "dialect.h"
#include "exitstatus.h"
#include "migration.h"
#include "schema.h"
#include "serverengine.h"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <cstdio>

namespace kesp {

namespace {

void write(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

QString shown(const QString &database)
{
    return nuvserver::DatabaseLocation::parse(database, nullptr).describe();
}

// The database as it is, or the exit status of why it cannot be served.
int inspect(const QString &database, nuvserver::DatabaseState *state)
{
    QString error;
    if (!nuvserver::inspectDatabase(database, state, &error)) {
        complain(QStringLiteral("cannot open the database %1: %2").arg(shown(database), error));
        return ExitFailed;
    }
    if (state->schema > nuvserver::schemaVersion) {
        complain(QStringLiteral("the database %1 has schema %2, newer than this server's %3; "
                                "run the newer server, or restore a backup of the old schema")
                     .arg(shown(database))
                     .arg(state->schema)
                     .arg(nuvserver::schemaVersion));
        return ExitSchemaNewer;
    }
    return ExitOk;
}

// An SQLite database and its journal files hold password hashes.
void keepPrivate(const QString &database)
{
    const nuvserver::DatabaseLocation location
        = nuvserver::DatabaseLocation::parse(database, nullptr);
    if (location.backend != nuvserver::Backend::SQLite)
        return;
    for (const char *suffix : { "", "-wal", "-shm" }) {
        if (QFileInfo::exists(location.filePath + QLatin1String(suffix)))
            QFile::setPermissions(location.filePath + QLatin1String(suffix),
                                  QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }
}

} // namespace

void complain(const QString &text)
{
    write(stderr, QStringLiteral("nuvkesp-server: %1\n").arg(text));
}

int printConfig(const ServerConfig &config)
{
    write(stdout, config.sources.describe());
    return ExitOk;
}

int initDatabase(const ServerConfig &config)
{
    if (config.admin.isEmpty()) {
        complain(QStringLiteral("init: name the first administrator with --admin NAME"));
        return ExitConfiguration;
    }
    QString password = config.sources.value("NUV_SERVER_ADMIN_PASSWORD");
    if (password.isEmpty()) {
        QTextStream in(stdin);
        password = in.readLine();
    }
    if (password.isEmpty()) {
        complain(QStringLiteral("init: no password for %1: give it on standard input or in "
                                "NUV_SERVER_ADMIN_PASSWORD")
                     .arg(config.admin));
        return ExitConfiguration;
    }
    nuvserver::DatabaseState state;
    if (const int status = inspect(config.database, &state))
        return status;
    QString error;
    const auto options = nuvserver::EngineOptions::fromEnvironment(config.database);
    if (!nuvserver::ServerEngine::initialiseDatabase(options, config.admin, password, config.admin,
                                                     &error)) {
        complain(QStringLiteral("init: %1").arg(error));
        return ExitFailed;
    }
    keepPrivate(config.database);
    write(stdout,
          QStringLiteral("initialised %1 with the administrator %2\n")
              .arg(shown(config.database), config.admin));
    return ExitOk;
}

int migrateDatabase(const ServerConfig &config)
{
    nuvserver::DatabaseState state;
    if (const int status = inspect(config.database, &state))
        return status;
    if (!state.exists) {
        complain(QStringLiteral("migrate: there is no database at %1; create one with "
                                "nuvkesp-server init")
                     .arg(shown(config.database)));
        return ExitNoDatabase;
    }
    if (state.schema == nuvserver::schemaVersion) {
        write(stdout,
              QStringLiteral("%1 already has schema %2\n")
                  .arg(shown(config.database))
                  .arg(state.schema));
        return ExitOk;
    }
    QString error;
    QString backup;
    if (config.backup) {
        QString directory = config.sources.value("NUV_SERVER_BACKUP_DIR");
        const auto location = nuvserver::DatabaseLocation::parse(config.database, nullptr);
        if (directory.isEmpty() && location.backend == nuvserver::Backend::SQLite)
            directory = QFileInfo(location.filePath).absolutePath();
        if (directory.isEmpty()) {
            complain(QStringLiteral("migrate: no place for the backup: set "
                                    "NUV_SERVER_BACKUP_DIR, or give --no-backup"));
            return ExitConfiguration;
        }
        if (!nuvserver::backupDatabase(config.database, directory, &backup, &error)) {
            complain(
                QStringLiteral("migrate: the backup failed, nothing was changed: %1").arg(error));
            return ExitFailed;
        }
    }
    nuvserver::ServerEngine engine(nuvserver::EngineOptions::fromEnvironment(config.database));
    if (!engine.open(&error)) {
        complain(QStringLiteral("migrate: %1").arg(error));
        return ExitFailed;
    }
    write(stdout,
          QStringLiteral("migrated %1 from schema %2 to %3%4\n")
              .arg(shown(config.database))
              .arg(state.schema)
              .arg(nuvserver::schemaVersion)
              .arg(backup.isEmpty() ? QString() : QStringLiteral(" (backup: %1)").arg(backup)));
    return ExitOk;
}

int openForServing(const ServerConfig &config, nuvserver::ServerEngine &engine, QString *databaseId)
{
    nuvserver::DatabaseState state;
    if (const int status = inspect(config.database, &state))
        return status;
    if (!state.exists && !config.create) {
        complain(QStringLiteral("there is no database at %1; check the name, or create it with "
                                "nuvkesp-server init --admin NAME (or start with --create)")
                     .arg(shown(config.database)));
        return ExitNoDatabase;
    }
    if (state.exists && state.schema < nuvserver::schemaVersion) {
        complain(QStringLiteral("the database %1 has schema %2, older than this server's %3; "
                                "stop the older servers and run: nuvkesp-server migrate")
                     .arg(shown(config.database))
                     .arg(state.schema)
                     .arg(nuvserver::schemaVersion));
        return ExitSchemaOlder;
    }
    QString error;
    if (!engine.open(&error)) {
        complain(
            QStringLiteral("cannot open the database %1: %2").arg(shown(config.database), error));
        return ExitFailed;
    }
    keepPrivate(config.database);
    if (const int status = inspect(config.database, &state))
        return status;
    if (!state.hasUsers) {
        complain(QStringLiteral("the database %1 has no users, so nobody could log in; create "
                                "the first administrator with nuvkesp-server init --admin NAME")
                     .arg(shown(config.database)));
        return ExitNoDatabase;
    }
    *databaseId = state.databaseId;
    return ExitOk;
}

} // namespace kesp

// SPDX-License-Identifier: Apache-2.0
// The engine's configuration from NUV_SERVER_* environment variables.

#include "serverengine.h"

#include <QDir>

namespace nuvserver {

namespace {
QString text(const char *name)
{
    return qEnvironmentVariable(name);
}

int number(const char *name, int fallback, int minimum)
{
    bool ok = false;
    const int value = qEnvironmentVariable(name).toInt(&ok);
    return ok && value >= minimum ? value : fallback;
}

qint64 megabytes(const char *name, qint64 fallback)
{
    return qint64(number(name, int(fallback >> 20), 1)) << 20;
}

QStringList list(const char *name, QChar separator)
{
    return qEnvironmentVariable(name).split(separator, Qt::SkipEmptyParts);
}
} // namespace

EngineOptions EngineOptions::fromEnvironment(const QString &database)
{
    EngineOptions options;
    options.database = database;
    options.backupDirectory = text("NUV_SERVER_BACKUP_DIR");
    options.fileSystemRoots = list("NUV_SERVER_FS_ROOTS", QDir::listSeparator());
    options.mailCommand = text("NUV_SERVER_MAIL_COMMAND");
    options.ldapUrl = text("NUV_SERVER_LDAP_URL");
    options.webUrl = text("NUV_SERVER_WEB_URL");
    options.scanInputDirectory = text("NUV_SERVER_SCAN_DIR");
    options.extraPlugins = list("NUV_SERVER_PLUGINS", QLatin1Char(','));
    options.pbkdf2Iterations = number("NUV_SERVER_PBKDF2_ITERATIONS", options.pbkdf2Iterations, 1);
    options.minPasswordLength
        = number("NUV_SERVER_MIN_PASSWORD_LENGTH", options.minPasswordLength, 1);
    options.busyTimeoutMs = number("NUV_SERVER_BUSY_TIMEOUT_MS", options.busyTimeoutMs, 0);
    options.sessionTimeoutMinutes
        = number("NUV_SERVER_SESSION_TIMEOUT_MINUTES", options.sessionTimeoutMinutes, 0);
    options.mailTimeoutSeconds
        = number("NUV_SERVER_MAIL_TIMEOUT_SECONDS", options.mailTimeoutSeconds, 1);
    options.maxListEntries = number("NUV_SERVER_MAX_LIST_ENTRIES", options.maxListEntries, 1);
    options.maxRequestBytes = megabytes("NUV_SERVER_MAX_REQUEST_MB", options.maxRequestBytes);
    // On a database server every statement is a round trip, and a document
    // costs about ten: a quarter of the work keeps the other users' waits
    // as short as on SQLite (docs/security.md has the figures).
    const bool databaseServer = database.contains(QLatin1String("://"));
    const int perRequest = databaseServer ? options.maxIds / 4 : options.maxIds;
    options.maxIds = number("NUV_SERVER_MAX_IDS", perRequest, 1);
    options.maxRecords = number("NUV_SERVER_MAX_RECORDS", perRequest, 1);
    options.maxReplyBytes = megabytes("NUV_SERVER_MAX_REPLY_MB", options.maxReplyBytes);
    options.statementTimeoutMs
        = number("NUV_SERVER_STATEMENT_TIMEOUT_MS", options.statementTimeoutMs, 0);
    options.loginDelayMs = number("NUV_SERVER_LOGIN_DELAY_MS", options.loginDelayMs, 0);
    options.loginMaxDelayMs = number("NUV_SERVER_LOGIN_MAX_DELAY_MS", options.loginMaxDelayMs, 0);
    options.loginLockFailures
        = number("NUV_SERVER_LOGIN_LOCK_FAILURES", options.loginLockFailures, 0);
    options.loginLockMinutes = number("NUV_SERVER_LOGIN_LOCK_MINUTES", options.loginLockMinutes, 1);
    options.initialAdminUser = text("NUV_SERVER_ADMIN_USER");
    options.initialAdminPassword = text("NUV_SERVER_ADMIN_PASSWORD");
    return options;
}

} // namespace nuvserver

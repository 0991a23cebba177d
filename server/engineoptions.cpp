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
    options.initialAdminUser = text("NUV_SERVER_ADMIN_USER");
    options.initialAdminPassword = text("NUV_SERVER_ADMIN_PASSWORD");
    return options;
}

} // namespace nuvserver

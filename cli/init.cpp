// SPDX-License-Identifier: Apache-2.0
#include "init.h"

#include "output.h"

#ifdef NUV_CLI_HAVE_ENGINE
#include "dialect.h"
#include "serverengine.h"
#endif

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

namespace nuvcli {

namespace {

int usageError(Console &console, const QString &text)
{
    console.err << "nuvclassify: init: " << text << '\n';
    console.err.flush();
    return ExitUsage;
}

// The administrator's password, asked twice on a terminal so that a typo
// does not lock the administrator out of the new database.
bool adminPassword(const Options &options, Console &console, const QString &admin,
                   QString *password, QString *error)
{
    if (options.hasPassword) {
        *password = options.password;
    } else if (console.inputIsTerminal) {
        *password = console.ask(QStringLiteral("Password for %1: ").arg(admin), true);
        if (console.ask(QStringLiteral("Repeat the password: "), true) != *password) {
            *error = QStringLiteral("the two passwords differ");
            return false;
        }
    } else {
        *error = QStringLiteral("no password for %1: give --password, set NUV_PASSWORD or run on "
                                "a terminal")
                     .arg(admin);
        return false;
    }
    if (password->isEmpty()) {
        *error = QStringLiteral("the administrator needs a password that is not empty");
        return false;
    }
    return true;
}

} // namespace

bool haveServerEngine()
{
#ifdef NUV_CLI_HAVE_ENGINE
    return true;
#else
    return false;
#endif
}

int runInit(const Options &options, Console &console)
{
    if (options.words.size() > 1)
        return usageError(console, QStringLiteral("takes no arguments, only options"));
    if (options.mode != TransportMode::Embedded)
        return usageError(console,
                          QStringLiteral("works on an embedded database (--embedded FILE), "
                                         "not through a broker"));
    QString admin = options.admin;
    if (admin.isEmpty() && options.hasUser)
        admin = options.user;
    if (admin.isEmpty() && console.inputIsTerminal)
        admin = console.ask(QStringLiteral("Administrator's user name: "), false);
    if (admin.isEmpty())
        return usageError(console,
                          QStringLiteral("name the first administrator with --admin NAME"));

    QString password;
    QString error;
    if (!adminPassword(options, console, admin, &password, &error))
        return usageError(console, error);

#ifdef NUV_CLI_HAVE_ENGINE
    QString database = options.database;
    if (options.databaseIsFile()) {
        const QFileInfo file(options.database);
        if (!QDir().mkpath(file.absolutePath())) {
            console.err << "nuvclassify: init: cannot create " << file.absolutePath() << '\n';
            return ExitSetup;
        }
        database = file.absoluteFilePath();
    }
    const nuvserver::EngineOptions engineOptions
        = nuvserver::EngineOptions::fromEnvironment(database);
    // What the output names: a URL without its password.
    const QString shown = nuvserver::DatabaseLocation::parse(database, nullptr).describe();
    const QString fullName = options.fullName.isEmpty() ? admin : options.fullName;
    if (!nuvserver::ServerEngine::initialiseDatabase(engineOptions, admin, password, fullName,
                                                     &error)) {
        console.err << "nuvclassify: init: " << error << '\n';
        console.err.flush();
        return ExitFailed;
    }
    if (options.json)
        console.out << QJsonDocument(QJsonObject {
                                         { QStringLiteral("operation"), QStringLiteral("init") },
                                         { QStringLiteral("ok"), true },
                                         { QStringLiteral("database"), shown },
                                         { QStringLiteral("admin"), admin },
                                     })
                           .toJson(QJsonDocument::Compact)
                    << '\n';
    else
        console.out << "initialised " << shown << " with the administrator " << admin << '\n';
    console.out.flush();
    return ExitOk;
#else
    console.err << "nuvclassify: init: this build has no server engine\n";
    console.err.flush();
    return ExitSetup;
#endif
}

} // namespace nuvcli

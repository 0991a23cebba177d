// SPDX-License-Identifier: Apache-2.0
// nuvkesp-server: the classify server on the message broker. See
// docs/server-operations.md.

#include "exitstatus.h"
#include "installlayout.h"
#include "operatorcommands.h"
#include "requestserver.h"
#include "schema.h"
#include "serverconfig.h"
#include "serverengine.h"
#include "statuscheck.h"

#include <QCoreApplication>

#include <csignal>
#include <cstdio>
#include <memory>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

void onStop(int)
{
    kesp::RequestServer::stopRequested = 1;
}

void onStatus(int)
{
    kesp::RequestServer::statusRequested = 1;
}

void install(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

void print(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
}

} // namespace

// With NUV_KESP_EXIT_WITH_PARENT=PID the server stops (SIGTERM) when the
// process PID that started it goes away, so that a test or supervisor that
// dies cannot leave an instance behind that takes requests meant for the
// next run. Returns false when that parent is already gone.
bool followParent()
{
    const QByteArray parent = qgetenv("NUV_KESP_EXIT_WITH_PARENT");
    if (parent.isEmpty())
        return true;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    return getppid() == parent.toLongLong();
}

int main(int argc, char **argv)
{
    if (!followParent())
        return kesp::ExitFailed;
    // The database, its backups and journals hold password hashes: nothing
    // this process creates is for other users.
    umask(077);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("nuvkesp-server"));

    kesp::ServerConfig config;
    QString error;
    if (!kesp::parseConfig(QCoreApplication::arguments(), QProcessEnvironment::systemEnvironment(),
                           &config, &error)) {
        kesp::complain(QStringLiteral("%1 (try --help)").arg(error));
        return kesp::ExitConfiguration;
    }
    // The engine reads its settings from the environment; the file's values
    // join it here (variables already set keep theirs).
    config.sources.exportToEnvironment(QStringLiteral("NUV_SERVER_"));

    using Command = kesp::ServerConfig::Command;
    switch (config.command) {
    case Command::Help:
        print(stdout, config.helpText);
        return kesp::ExitOk;
    case Command::Version:
        print(stdout,
              QStringLiteral("nuvkesp-server %1 (database schema %2)\n")
                  .arg(nuvlayout::version())
                  .arg(nuvserver::schemaVersion));
        return kesp::ExitOk;
    case Command::PrintConfig:
        return kesp::printConfig(config);
    case Command::Status:
        return kesp::queryStatus(config);
    case Command::Init:
        return kesp::initDatabase(config);
    case Command::Migrate:
        return kesp::migrateDatabase(config);
    case Command::Serve:
        break;
    }

    // One engine per worker, each with a database connection of its own;
    // the first checks and migrates the database.
    const nuvserver::EngineOptions options
        = nuvserver::EngineOptions::fromEnvironment(config.database);
    std::vector<std::unique_ptr<nuvserver::ServerEngine>> engines;
    std::vector<nuvserver::ServerEngine *> workers;
    QString databaseId;
    for (int i = 0; i < config.workers; ++i) {
        engines.push_back(std::make_unique<nuvserver::ServerEngine>(options));
        workers.push_back(engines.back().get());
        if (i == 0) {
            if (const int status = kesp::openForServing(config, *engines.back(), &databaseId))
                return status;
        } else if (!engines.back()->open(&error)) {
            kesp::complain(QStringLiteral("cannot open the database for worker %1 of %2: %3")
                               .arg(i + 1)
                               .arg(config.workers)
                               .arg(error));
            return kesp::ExitFailed;
        }
    }
    install(SIGTERM, onStop);
    install(SIGINT, onStop);
    install(SIGUSR1, onStatus);
    // A broker that hangs up mid-write must not kill the process.
    install(SIGPIPE, SIG_IGN);

    kesp::RequestServer server(config, workers);
    if (config.peerCheckMs > 0)
        server.checkPeers(databaseId);
    if (!server.startMetrics(&error)) {
        kesp::complain(error);
        return kesp::ExitConfiguration;
    }
    return server.run();
}

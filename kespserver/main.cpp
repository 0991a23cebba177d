// SPDX-License-Identifier: Apache-2.0
// nuvkesp-server: the classify server on the message broker. See
// docs/server-operations.md.

#include "installlayout.h"
#include "requestserver.h"
#include "serverconfig.h"
#include "serverengine.h"

#include <QCoreApplication>

#include <csignal>
#include <cstdio>
#include <sys/prctl.h>
#include <unistd.h>

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

void print(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
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
        return 1;
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("nuvkesp-server"));

    kesp::ServerConfig config;
    QString error;
    if (!kesp::parseConfig(QCoreApplication::arguments(), QProcessEnvironment::systemEnvironment(),
                           &config, &error)) {
        print(QStringLiteral("nuvkesp-server: %1 (try --help)\n").arg(error));
        return 2;
    }
    if (config.help) {
        std::fwrite(config.helpText.toUtf8().constData(), 1,
                    size_t(config.helpText.toUtf8().size()), stdout);
        return 0;
    }
    if (config.version) {
        std::printf("nuvkesp-server %s\n", qPrintable(nuvlayout::version()));
        return 0;
    }

    nuvserver::ServerEngine engine(nuvserver::EngineOptions::fromEnvironment(config.database));
    if (!engine.open(&error)) {
        print(QStringLiteral("nuvkesp-server: cannot open the database: %1\n").arg(error));
        return 1;
    }
    install(SIGTERM, onStop);
    install(SIGINT, onStop);
    install(SIGUSR1, onStatus);
    // A broker that hangs up mid-write must not kill the process.
    install(SIGPIPE, SIG_IGN);

    kesp::RequestServer server(config, engine);
    return server.run();
}

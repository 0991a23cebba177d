// SPDX-License-Identifier: Apache-2.0
// nuvdelayproxy: forwards TCP connections from loopback to a target with a
// delay added each way, until SIGINT or SIGTERM. With a database behind it,
// the servers see a database on another host.
//
//   nuvdelayproxy [--delay MS] [--listen PORT] HOST:PORT
//
// It prints the port it listens on, and at the end what it forwarded.

#include "delayproxy.h"
#include "installlayout.h"

#include <QCoreApplication>

#include <csignal>
#include <cstdio>
#include <pthread.h>

namespace {

int usage()
{
    std::fprintf(stderr, "usage: nuvdelayproxy [--delay MS] [--listen PORT] HOST:PORT\n");
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    // Blocked before the proxy's thread starts, so that it inherits the
    // mask and the signals wait for sigwait below.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    QCoreApplication app(argc, argv);
    QStringList args = QCoreApplication::arguments().mid(1);
    if (args.contains(QStringLiteral("--version"))) {
        std::printf("nuvdelayproxy %s\n", qPrintable(nuvlayout::version()));
        return 0;
    }
    int delayMs = 1;
    int listenPort = 0;
    QString target;
    while (!args.isEmpty()) {
        const QString arg = args.takeFirst();
        bool ok = true;
        if (arg == QLatin1String("--delay") && !args.isEmpty())
            delayMs = args.takeFirst().toInt(&ok);
        else if (arg == QLatin1String("--listen") && !args.isEmpty())
            listenPort = args.takeFirst().toInt(&ok);
        else if (target.isEmpty() && !arg.startsWith(QLatin1Char('-')))
            target = arg;
        else
            ok = false;
        if (!ok || delayMs < 0 || listenPort < 0 || listenPort > 65535)
            return usage();
    }
    const int colon = target.lastIndexOf(QLatin1Char(':'));
    bool portOk = false;
    const uint targetPort = target.midRef(colon + 1).toUInt(&portOk);
    if (colon <= 0 || !portOk || targetPort == 0 || targetPort > 65535)
        return usage();

    delayproxy::DelayProxy proxy;
    if (!proxy.start(target.left(colon), quint16(targetPort), delayMs, quint16(listenPort))) {
        std::fprintf(stderr, "nuvdelayproxy: %s\n", qPrintable(proxy.errorString()));
        return 1;
    }
    std::printf("nuvdelayproxy: 127.0.0.1:%u -> %s, %d ms each way\n", proxy.port(),
                qPrintable(target), delayMs);
    std::fflush(stdout);
    int signal = 0;
    sigwait(&stopSignals, &signal);
    proxy.stop();
    const delayproxy::ProxyCounts counts = proxy.counts();
    std::printf(
        "nuvdelayproxy: %lld connections, %lld bytes to the target, %lld back, "
        "%lld exchanges\n",
        static_cast<long long>(counts.connections), static_cast<long long>(counts.bytesToTarget),
        static_cast<long long>(counts.bytesToClient), static_cast<long long>(counts.exchanges));
    return 0;
}

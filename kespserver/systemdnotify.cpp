// SPDX-License-Identifier: Apache-2.0
#include "systemdnotify.h"

#include <systemd/sd-daemon.h>

namespace kesp {

namespace {
void notify(const QString &state)
{
    sd_notify(0, state.toUtf8().constData());
}
} // namespace

SystemdNotifier::SystemdNotifier()
{
    uint64_t micros = 0;
    if (sd_watchdog_enabled(0, &micros) > 0)
        watchdogMs = qint64(micros / 1000);
    sinceWatchdog.start();
}

void SystemdNotifier::ready(const QString &text)
{
    // READY=1 once; after a reconnection only the status changes.
    notify(announcedReady ? QStringLiteral("STATUS=%1").arg(text)
                          : QStringLiteral("READY=1\nSTATUS=%1").arg(text));
    announcedReady = true;
}

void SystemdNotifier::status(const QString &text)
{
    notify(QStringLiteral("STATUS=%1").arg(text));
}

void SystemdNotifier::stopping()
{
    notify(QStringLiteral("STOPPING=1"));
}

void SystemdNotifier::alive()
{
    if (watchdogMs > 0 && sinceWatchdog.elapsed() >= watchdogMs / 2) {
        notify(QStringLiteral("WATCHDOG=1"));
        sinceWatchdog.restart();
    }
}

} // namespace kesp

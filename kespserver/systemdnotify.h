// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_SYSTEMDNOTIFY_H
#define KESPSERVER_SYSTEMDNOTIFY_H

#include <QElapsedTimer>
#include <QString>

namespace kesp {

/*
 * What the service manager learns about the instance (sd_notify): ready
 * once it serves the request queue, its state in a line for "systemctl
 * status", stopping, and the watchdog's sign of life. Without a service
 * manager (NOTIFY_SOCKET unset) every call does nothing.
 */
class SystemdNotifier
{
public:
    SystemdNotifier();

    void ready(const QString &status);
    void status(const QString &status);
    void stopping();
    // Sends WATCHDOG=1 when half the watchdog interval has passed; call it
    // from every turn of the loop.
    void alive();

private:
    qint64 watchdogMs = 0;
    QElapsedTimer sinceWatchdog;
    bool announcedReady = false;
};

} // namespace kesp

#endif // KESPSERVER_SYSTEMDNOTIFY_H

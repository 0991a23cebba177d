// SPDX-License-Identifier: Apache-2.0
#ifndef DELAYPROXY_DELAYPROXY_H
#define DELAYPROXY_DELAYPROXY_H

#include "proxycounts.h"

#include <QString>

#include <memory>

class QThread;

namespace delayproxy {

class Listener;

/*
 * A TCP proxy on loopback that adds a fixed delay to every byte each way:
 * a server in the next room made to look like one on another host. It
 * forwards any number of connections to one target, each on a connection of
 * its own, on a thread of its own, so the program that uses it needs no
 * event loop.
 */
class DelayProxy
{
public:
    DelayProxy();
    ~DelayProxy();
    DelayProxy(const DelayProxy &) = delete;
    DelayProxy &operator=(const DelayProxy &) = delete;

    // Listens on 127.0.0.1:`listenPort` (0: a free port) and forwards to
    // `targetHost`:`targetPort`, `delayMs` added each way. False with
    // errorString() when it cannot listen.
    bool start(const QString &targetHost, quint16 targetPort, int delayMs, quint16 listenPort = 0);
    // Ends every connection and stops listening (also on destruction).
    void stop();

    quint16 port() const { return listenPort; }
    QString errorString() const { return error; }
    ProxyCounts counts() const { return shared.snapshot(); }

private:
    SharedCounts shared;
    std::unique_ptr<QThread> thread;
    Listener *listener = nullptr; // lives on `thread`
    quint16 listenPort = 0;
    QString error;
};

} // namespace delayproxy

#endif // DELAYPROXY_DELAYPROXY_H

// SPDX-License-Identifier: Apache-2.0
#ifndef DELAYPROXY_PROXYCOUNTS_H
#define DELAYPROXY_PROXYCOUNTS_H

#include <QtGlobal>

#include <atomic>

namespace delayproxy {

// What passed through a proxy since it started.
struct ProxyCounts
{
    qint64 connections = 0; // accepted from clients
    qint64 bytesToTarget = 0;
    qint64 bytesToClient = 0;
    // Turns from the client talking to the target answering: for a protocol
    // of requests and replies, one per round trip however the bytes were
    // split into segments.
    qint64 exchanges = 0;
};

// The live counters, written by the proxy's thread and read by anyone.
struct SharedCounts
{
    std::atomic<qint64> connections { 0 };
    std::atomic<qint64> bytesToTarget { 0 };
    std::atomic<qint64> bytesToClient { 0 };
    std::atomic<qint64> exchanges { 0 };

    ProxyCounts snapshot() const
    {
        return { connections.load(), bytesToTarget.load(), bytesToClient.load(), exchanges.load() };
    }
};

} // namespace delayproxy

#endif // DELAYPROXY_PROXYCOUNTS_H

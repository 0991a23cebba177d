// SPDX-License-Identifier: Apache-2.0
#include "delaylink.h"

#include <QTcpSocket>

namespace delayproxy {

namespace {
// Qt's own buffer stays small, so that a reader that falls behind holds the
// sender back through the kernel's buffers (see DelayedPipe).
constexpr qint64 readBufferSize = 256 << 10;

void prepare(QTcpSocket *socket)
{
    socket->setReadBufferSize(readBufferSize);
    // Whatever arrives leaves at once: the only delay is the one we add.
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
}
} // namespace

DelayLink::DelayLink(QTcpSocket *client, const QString &targetHost, quint16 targetPort, int delayMs,
                     SharedCounts *counts, QObject *parent)
    : QObject(parent)
    , client(client)
    , target(new QTcpSocket(this))
    , toTarget(new DelayedPipe(client, target, delayMs, &counts->bytesToTarget, this))
    , toClient(new DelayedPipe(target, client, delayMs, &counts->bytesToClient, this))
    , counts(counts)
{
    client->setParent(this);
    prepare(client);
    toClient->sinkReady();

    connect(toTarget, &DelayedPipe::arrived, this, [this] { clientSpokeLast = true; });
    connect(toClient, &DelayedPipe::arrived, this, [this] {
        if (clientSpokeLast)
            ++this->counts->exchanges;
        clientSpokeLast = false;
    });
    connect(toTarget, &DelayedPipe::done, this, &DelayLink::finishIfDone);
    connect(toClient, &DelayedPipe::done, this, &DelayLink::finishIfDone);

    connect(client, &QTcpSocket::disconnected, this, [this] {
        toTarget->sourceEnded();
        toClient->sinkGone();
        finishIfDone();
    });
    connect(target, &QTcpSocket::connected, this, [this] {
        targetConnected = true;
        prepare(target);
        toTarget->sinkReady();
    });
    connect(target, &QTcpSocket::disconnected, this, [this] {
        toClient->sourceEnded();
        toTarget->sinkGone();
        finishIfDone();
    });
    connect(target, &QTcpSocket::errorOccurred, this, [this] {
        // A target that cannot be reached: the client sees its connection
        // end, as it would without the proxy (only later).
        if (!targetConnected) {
            toTarget->sinkGone();
            toClient->sourceEnded();
        }
    });
    target->connectToHost(targetHost, targetPort);
    // What the client sent before its disconnect arrived may already wait.
    if (client->state() != QAbstractSocket::ConnectedState)
        toTarget->sourceEnded();
}

void DelayLink::finishIfDone()
{
    // A socket that closes writes what it buffers first: deleting it
    // earlier would lose the last bytes.
    if (toTarget->finished() && toClient->finished()
        && client->state() == QAbstractSocket::UnconnectedState
        && target->state() == QAbstractSocket::UnconnectedState)
        deleteLater();
}

} // namespace delayproxy

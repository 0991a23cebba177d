// SPDX-License-Identifier: Apache-2.0
#ifndef STOMPPEER_H
#define STOMPPEER_H

#include "blockingclient.h"

#include <QString>

namespace stomp {

/*
 * The blocking client as the other end of the tests and raw measurements
 * use it: plain TCP, no heart-beats, subscriptions with automatic
 * acknowledgement. Use it on one thread only (the one that connected it).
 */
class Peer
{
public:
    struct Options
    {
        QString host = QStringLiteral("127.0.0.1");
        quint16 port = 0;
        QByteArray login;
        QByteArray passcode;
    };

    Peer();
    ~Peer();
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    // CONNECT and wait for CONNECTED; false with errorText().
    bool open(const Options &options, int timeoutMs = 10000);
    // SUBSCRIBE with a receipt, waiting for it.
    bool subscribe(const QByteArray &id, const QByteArray &destination, int timeoutMs = 10000);
    bool send(const Frame &frame);
    // The next frame (heart-beats skipped); false on time-out or when the
    // connection is gone (then closed() is true and errorText() says why).
    bool receive(Frame *frame, int timeoutMs);
    // Waits for the RECEIPT with this id, failing on an ERROR.
    bool awaitReceipt(const QByteArray &receiptId, int timeoutMs);
    void close();
    // Drops the socket without a DISCONNECT, as a crashed client would.
    void abort();

    bool closed() const;
    QString errorText() const { return client.errorText(); }

private:
    BlockingClient client;
};

} // namespace stomp

#endif // STOMPPEER_H

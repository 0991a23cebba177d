// SPDX-License-Identifier: Apache-2.0
#ifndef STOMP_BLOCKINGCLIENT_H
#define STOMP_BLOCKINGCLIENT_H

#include "brokerconfig.h"
#include "brokerlist.h"
#include "stompframe.h"
#include "stompparser.h"

#include <QElapsedTimer>
#include <QList>
#include <QString>

#include <memory>

class QTcpSocket;

namespace stomp {

/*
 * A blocking STOMP 1.2 connection on the calling thread: no threads of its
 * own and no event loop, so a server can receive, run, answer and
 * acknowledge a request in order without any hand-over between threads.
 * It runs the same handshake as the transport's asynchronous Connection and
 * keeps STOMP heart-beats going both ways while it waits for frames. Use it
 * on one thread only (the one that opened it).
 */
class BlockingClient
{
public:
    BlockingClient();
    ~BlockingClient();
    BlockingClient(const BlockingClient &) = delete;
    BlockingClient &operator=(const BlockingClient &) = delete;

    // TCP (or TLS), CONNECT and CONNECTED, each within
    // settings.connectTimeoutMs; false with errorText().
    bool open(const BrokerAddress &address, const BrokerSettings &settings);
    // The same with each of `brokers` in turn until one takes the
    // connection, starting with the one after the broker this client used
    // last (so a reconnect after a loss goes to the next broker first).
    // wasRefused() only when every broker refused.
    bool open(const BrokerList &brokers, const BrokerSettings &settings);
    // Subscribes with client-individual acknowledgement and the given
    // prefetch, waiting for the broker's receipt.
    bool subscribe(const QByteArray &id, const QByteArray &destination, int prefetch);
    // Sends a prepared SUBSCRIBE (its id, destination and ack mode set) and
    // waits for the broker's receipt; messages that arrive meanwhile are
    // kept for receive().
    bool subscribe(Frame frame);
    // Waits at most `waitMs` for the next frame. False on time-out (then
    // isOpen() stays true and errorText() is empty) or when the connection
    // is lost (errorText()).
    bool receive(Frame *frame, int waitMs);
    // Writes the whole frame before it returns: an ACK must never overtake
    // the reply it confirms.
    bool send(const Frame &frame);
    // Waits for the RECEIPT with this id (at most `waitMs`, or the connect
    // time-out when negative), failing on an ERROR; messages that arrive
    // meanwhile are kept for receive().
    bool awaitReceipt(const QByteArray &receiptId, int waitMs = -1);
    // Keeps the connection alive for at most `waitMs` without taking frames
    // out: sends a heart-beat when one is due and buffers what arrives
    // (counting as a sign of life). For waits while a request runs.
    void pump(int waitMs);
    // DISCONNECT, then closes. With `waitMs` > 0 the DISCONNECT asks for a
    // receipt, which is waited for at most that long.
    void close(int waitMs);
    // Drops the socket without a word, as a crashed client would.
    void abort();

    bool isOpen() const;
    // The socket, for poll() beside other descriptors once receive() has
    // taken every whole frame out (-1 when closed).
    int descriptor() const;
    QString errorText() const { return error; }
    // Whether the last failure was the broker refusing the account (its
    // credentials, or its rights on a destination): trying again will not help.
    bool wasRefused() const { return refused; }
    QString label() const { return where.label(); }

private:
    bool fail(const QString &text);
    bool receiveFromSocket(Frame *frame, int waitMs);
    void keepAlive();
    bool readMore(int waitMs);

    std::unique_ptr<QTcpSocket> socket;
    Parser parser;
    QList<Frame> held; // arrived while a receipt was awaited
    BrokerAddress where;
    BrokerList rotation; // the brokers of the last open(BrokerList), with their turn
    BrokerSettings settings;
    QString error;
    bool refused = false;
    QElapsedTimer lastRead;
    QElapsedTimer lastWrite;
    int sendEveryMs = 0;
    int expectEveryMs = 0;
};

} // namespace stomp

#endif // STOMP_BLOCKINGCLIENT_H

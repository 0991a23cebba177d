// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_BROKERLINK_H
#define KESPSERVER_BROKERLINK_H

#include "brokerconfig.h"
#include "stompframe.h"
#include "stompparser.h"

#include <QElapsedTimer>
#include <QList>
#include <QString>

#include <memory>

class QTcpSocket;

namespace kesp {

/*
 * The server's one connection to the broker: blocking, on the thread that
 * serves requests, so a request is received, run, answered and acknowledged
 * in order without any hand-over between threads. It shares frames, parser,
 * settings and TLS rules with the client transport (activemq/), and keeps
 * STOMP heart-beats going both ways while it waits for frames.
 */
class BrokerLink
{
public:
    BrokerLink();
    ~BrokerLink();
    BrokerLink(const BrokerLink &) = delete;
    BrokerLink &operator=(const BrokerLink &) = delete;

    // TCP (or TLS), CONNECT and CONNECTED; false with errorText().
    bool open(const stomp::BrokerAddress &address, const stomp::BrokerSettings &settings);
    // Subscribes with client-individual acknowledgement and the given
    // prefetch, waiting for the broker's receipt.
    bool subscribe(const QByteArray &id, const QByteArray &destination, int prefetch);
    // Sends a prepared SUBSCRIBE (its id, destination and ack mode set) and
    // waits for the broker's receipt; messages that arrive meanwhile are
    // kept for receive().
    bool subscribe(stomp::Frame frame);
    // Waits at most `waitMs` for the next frame. False on time-out (then
    // isOpen() stays true) or when the connection is lost (errorText()).
    bool receive(stomp::Frame *frame, int waitMs);
    bool send(const stomp::Frame &frame);
    // Keeps the connection alive for at most `waitMs` without taking frames
    // out: sends a heart-beat when one is due and buffers what arrives
    // (counting as a sign of life). For waits while a request runs.
    void pump(int waitMs);
    // DISCONNECT with a receipt, waited for at most `waitMs`, then closes.
    void close(int waitMs);
    // Drops the socket without a word (after a loss).
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
    bool awaitReceipt(const QByteArray &receiptId);
    bool receiveFromSocket(stomp::Frame *frame, int waitMs);
    void keepAlive();
    bool readMore(int waitMs);

    std::unique_ptr<QTcpSocket> socket;
    stomp::Parser parser;
    QList<stomp::Frame> held; // arrived while a receipt was awaited
    stomp::BrokerAddress where;
    stomp::BrokerSettings settings;
    QString error;
    bool refused = false;
    QElapsedTimer lastRead;
    QElapsedTimer lastWrite;
    int sendEveryMs = 0;
    int expectEveryMs = 0;
};

} // namespace kesp

#endif // KESPSERVER_BROKERLINK_H

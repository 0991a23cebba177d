// SPDX-License-Identifier: Apache-2.0
#include "blockingclient.h"

#include "handshake.h"

#include <QDeadlineTimer>
#include <QSslConfiguration>
#include <QSslSocket>

namespace stomp {

BlockingClient::BlockingClient() = default;

BlockingClient::~BlockingClient()
{
    abort();
}

bool BlockingClient::fail(const QString &text)
{
    error = text;
    return false;
}

bool BlockingClient::isOpen() const
{
    return socket && socket->state() == QAbstractSocket::ConnectedState;
}

void BlockingClient::abort()
{
    if (socket)
        socket->abort();
    socket.reset();
}

bool BlockingClient::open(const BrokerAddress &address, const BrokerSettings &brokerSettings)
{
    abort();
    where = address;
    settings = brokerSettings;
    parser = Parser();
    held.clear();
    error.clear();
    refused = false;
    const int limit = qMax(1, settings.connectTimeoutMs);
    if (address.tls) {
        auto ssl = std::make_unique<QSslSocket>();
        ssl->setSslConfiguration(tlsConfiguration(settings, ssl->sslConfiguration()));
        ssl->connectToHostEncrypted(address.host, address.port);
        if (!ssl->waitForEncrypted(limit))
            return fail(QStringLiteral("Cannot connect to the message broker at %1: %2")
                            .arg(where.label(), ssl->errorString()));
        socket = std::move(ssl);
    } else {
        socket = std::make_unique<QTcpSocket>();
        socket->connectToHost(address.host, address.port);
        if (!socket->waitForConnected(limit))
            return fail(QStringLiteral("Cannot connect to the message broker at %1: %2")
                            .arg(where.label(), socket->errorString()));
    }
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);

    sendEveryMs = expectEveryMs = 0;
    lastRead.start();
    lastWrite.start();
    if (!send(connectFrame(address.host, settings)))
        return false;
    Frame answer;
    if (!receive(&answer, limit)) {
        abort();
        return fail(error.isEmpty()
                        ? QStringLiteral("Cannot connect to the message broker at %1: no answer "
                                         "within %2 ms")
                              .arg(where.label())
                              .arg(limit)
                        : error);
    }
    // A failed handshake leaves no half-open connection behind.
    if (answer.command == "ERROR") {
        abort();
        refused = true;
        return fail(connectRefusal(where.label(), settings, answer,
                                   QStringLiteral("set the broker login and passcode.")));
    }
    const QString problem = connectedProblem(answer);
    if (!problem.isEmpty()) {
        abort();
        return fail(QStringLiteral("Cannot connect to the message broker at %1: %2.")
                        .arg(where.label(), problem));
    }
    const HeartBeats beats = negotiateHeartBeats(settings.heartBeatMs, answer.header("heart-beat"));
    sendEveryMs = beats.sendEveryMs;
    expectEveryMs = beats.expectEveryMs;
    return true;
}

bool BlockingClient::open(const BrokerList &brokers, const BrokerSettings &brokerSettings)
{
    if (brokers.addresses() != rotation.addresses())
        rotation = brokers;
    QStringList failures;
    bool allRefused = true;
    for (const int index : rotation.attemptOrder()) {
        rotation.used(index);
        if (open(rotation.addresses().at(index), brokerSettings))
            return true;
        failures << error;
        allRefused = allRefused && refused;
    }
    refused = allRefused;
    return fail(rotation.allFailed(failures));
}

bool BlockingClient::subscribe(const QByteArray &id, const QByteArray &destination, int prefetch)
{
    Frame frame("SUBSCRIBE");
    frame.add("id", id).add("destination", destination).add("ack", "client-individual");
    frame.add("activemq.prefetchSize", QByteArray::number(qMax(1, prefetch)));
    return subscribe(frame);
}

bool BlockingClient::subscribe(Frame frame)
{
    const QByteArray receipt = "subscribed-" + frame.header("id");
    frame.add("receipt", receipt);
    return send(frame) && awaitReceipt(receipt);
}

bool BlockingClient::awaitReceipt(const QByteArray &receiptId, int waitMs)
{
    const int limit = waitMs < 0 ? qMax(1, settings.connectTimeoutMs) : waitMs;
    const QDeadlineTimer deadline(limit);
    Frame frame;
    while (!deadline.hasExpired()) {
        if (!receiveFromSocket(&frame, int(qMax<qint64>(1, deadline.remainingTime())))) {
            if (!isOpen())
                return false;
            continue;
        }
        if (frame.command == "RECEIPT" && frame.header("receipt-id") == receiptId)
            return true;
        if (frame.command == "ERROR") {
            // ActiveMQ's words for a destination the account may not use.
            refused = frame.header("message").contains("not authorized");
            return fail(QStringLiteral("The message broker at %1 refused: %2")
                            .arg(where.label(), brokerMessage(frame)));
        }
        // Messages of an earlier subscription may come first; they wait
        // for the next receive().
        if (frame.command == "MESSAGE")
            held.append(frame);
    }
    return fail(QStringLiteral("The message broker at %1 sent no receipt within %2 ms")
                    .arg(where.label())
                    .arg(limit));
}

bool BlockingClient::send(const Frame &frame)
{
    if (!isOpen())
        return fail(QStringLiteral("not connected to the message broker at %1").arg(where.label()));
    socket->write(encodeFrame(frame));
    // Blocking: everything leaves before the caller goes on (an ACK must
    // never overtake the reply it confirms).
    while (socket->bytesToWrite() > 0) {
        if (!socket->waitForBytesWritten(qMax(1000, settings.connectTimeoutMs)))
            return fail(QStringLiteral("The connection to the message broker at %1 was lost: %2")
                            .arg(where.label(), socket->errorString()));
    }
    lastWrite.restart();
    return true;
}

void BlockingClient::keepAlive()
{
    if (sendEveryMs > 0 && lastWrite.elapsed() >= sendEveryMs / 2 && isOpen()) {
        socket->write("\n", 1);
        socket->flush();
        lastWrite.restart();
    }
}

bool BlockingClient::readMore(int waitMs)
{
    if (socket->bytesAvailable() == 0 && !socket->waitForReadyRead(waitMs)) {
        if (socket->state() != QAbstractSocket::ConnectedState)
            return fail(QStringLiteral("The connection to the message broker at %1 was lost: the "
                                       "broker closed the connection.")
                            .arg(where.label()));
        return false;
    }
    parser.feed(socket->readAll());
    lastRead.restart();
    return true;
}

bool BlockingClient::receive(Frame *frame, int waitMs)
{
    if (socket && !held.isEmpty()) {
        *frame = held.takeFirst();
        return true;
    }
    return receiveFromSocket(frame, waitMs);
}

bool BlockingClient::receiveFromSocket(Frame *frame, int waitMs)
{
    if (!socket)
        return fail(QStringLiteral("not connected"));
    const QDeadlineTimer deadline(qMax(0, waitMs));
    for (;;) {
        switch (parser.next(frame)) {
        case Parser::Result::Frame:
            return true;
        case Parser::Result::Error:
            abort();
            return fail(QStringLiteral("The connection to the message broker at %1 was lost: the "
                                       "broker sent a malformed STOMP frame (%2)")
                            .arg(where.label(), parser.errorText()));
        case Parser::Result::NeedMore:
            break;
        }
        keepAlive();
        // Short waits, so heart-beats leave on time while nothing arrives.
        int slice = int(qMax<qint64>(0, deadline.remainingTime()));
        if (sendEveryMs > 0)
            slice = qMin(slice, qMax(10, sendEveryMs / 4));
        if (!readMore(slice)) {
            if (!isOpen()) {
                abort();
                return false;
            }
            // Only after a read found nothing: after a long request the
            // broker's beats wait in the socket, and they count.
            if (expectEveryMs > 0 && lastRead.elapsed() > 2 * qint64(expectEveryMs)) {
                const qint64 silent = lastRead.elapsed();
                abort();
                return fail(QStringLiteral("The connection to the message broker at %1 was lost: "
                                           "no heart-beat from the broker for %2 ms.")
                                .arg(where.label())
                                .arg(silent));
            }
            if (deadline.hasExpired()) {
                error.clear();
                return false;
            }
        }
    }
}

void BlockingClient::pump(int waitMs)
{
    if (!isOpen())
        return;
    keepAlive();
    if (socket->waitForReadyRead(waitMs)) {
        parser.feed(socket->readAll());
        lastRead.restart();
    }
}

int BlockingClient::descriptor() const
{
    return socket ? int(socket->socketDescriptor()) : -1;
}

void BlockingClient::close(int waitMs)
{
    if (isOpen()) {
        Frame disconnect("DISCONNECT");
        if (waitMs > 0)
            disconnect.add("receipt", "bye");
        if (send(disconnect) && waitMs > 0)
            awaitReceipt("bye", waitMs);
        if (socket) {
            socket->disconnectFromHost();
            if (socket->state() != QAbstractSocket::UnconnectedState)
                socket->waitForDisconnected(1000);
        }
    }
    abort();
}

} // namespace stomp

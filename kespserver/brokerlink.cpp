// SPDX-License-Identifier: Apache-2.0
#include "brokerlink.h"

#include <QDeadlineTimer>
#include <QSslConfiguration>
#include <QSslSocket>

namespace kesp {

BrokerLink::BrokerLink() = default;

BrokerLink::~BrokerLink()
{
    abort();
}

bool BrokerLink::fail(const QString &text)
{
    error = text;
    return false;
}

bool BrokerLink::isOpen() const
{
    return socket && socket->state() == QAbstractSocket::ConnectedState;
}

void BrokerLink::abort()
{
    if (socket)
        socket->abort();
    socket.reset();
}

bool BrokerLink::open(const stomp::BrokerAddress &address,
                      const stomp::BrokerSettings &brokerSettings)
{
    abort();
    where = address;
    settings = brokerSettings;
    parser = stomp::Parser();
    held.clear();
    error.clear();
    refused = false;
    const int limit = qMax(1, settings.connectTimeoutMs);
    if (address.tls) {
        auto ssl = std::make_unique<QSslSocket>();
        ssl->setSslConfiguration(stomp::tlsConfiguration(settings, ssl->sslConfiguration()));
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

    const QByteArray beat = QByteArray::number(qMax(0, settings.heartBeatMs));
    stomp::Frame connect("CONNECT");
    connect.add("accept-version", "1.2").add("host", address.host.toUtf8());
    connect.add("heart-beat", beat + ',' + beat);
    if (!settings.login.isEmpty())
        connect.add("login", settings.login.toUtf8()).add("passcode", settings.passcode.toUtf8());
    sendEveryMs = expectEveryMs = 0;
    lastRead.start();
    lastWrite.start();
    if (!send(connect))
        return false;
    stomp::Frame answer;
    if (!receive(&answer, limit))
        return fail(error.isEmpty()
                        ? QStringLiteral("Cannot connect to the message broker at %1: no answer "
                                         "within %2 ms")
                              .arg(where.label())
                              .arg(limit)
                        : error);
    if (answer.command != "CONNECTED") {
        // Never the passcode: only the broker's message and the user name.
        refused = answer.command == "ERROR";
        return fail(
            QStringLiteral("The message broker at %1 refused the connection for broker "
                           "user \"%2\": %3")
                .arg(where.label(), settings.login, QString::fromUtf8(answer.header("message"))));
    }
    // STOMP 1.2 negotiation: each side beats at the slower of the two wishes.
    const QList<QByteArray> offered = answer.header("heart-beat", "0,0").split(',');
    const int serverSends = offered.value(0).toInt();
    const int serverWants = offered.value(1).toInt();
    if (settings.heartBeatMs > 0 && serverWants > 0)
        sendEveryMs = qMax(settings.heartBeatMs, serverWants);
    if (settings.heartBeatMs > 0 && serverSends > 0)
        expectEveryMs = qMax(settings.heartBeatMs, serverSends);
    return true;
}

bool BrokerLink::subscribe(const QByteArray &id, const QByteArray &destination, int prefetch)
{
    stomp::Frame frame("SUBSCRIBE");
    frame.add("id", id).add("destination", destination).add("ack", "client-individual");
    frame.add("activemq.prefetchSize", QByteArray::number(qMax(1, prefetch)));
    return subscribe(frame);
}

bool BrokerLink::subscribe(stomp::Frame frame)
{
    const QByteArray receipt = "subscribed-" + frame.header("id");
    frame.add("receipt", receipt);
    return send(frame) && awaitReceipt(receipt);
}

bool BrokerLink::awaitReceipt(const QByteArray &receiptId)
{
    const QDeadlineTimer deadline(qMax(1, settings.connectTimeoutMs));
    stomp::Frame frame;
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
                            .arg(where.label(), QString::fromUtf8(frame.header("message"))));
        }
        // Messages of an earlier subscription may come first; they wait
        // for the next receive().
        if (frame.command == "MESSAGE")
            held.append(frame);
    }
    return fail(QStringLiteral("The message broker at %1 sent no receipt within %2 ms")
                    .arg(where.label())
                    .arg(settings.connectTimeoutMs));
}

bool BrokerLink::send(const stomp::Frame &frame)
{
    if (!isOpen())
        return fail(QStringLiteral("not connected to the message broker at %1").arg(where.label()));
    socket->write(stomp::encodeFrame(frame));
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

void BrokerLink::keepAlive()
{
    if (sendEveryMs > 0 && lastWrite.elapsed() >= sendEveryMs / 2 && isOpen()) {
        socket->write("\n", 1);
        socket->flush();
        lastWrite.restart();
    }
}

bool BrokerLink::readMore(int waitMs)
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

bool BrokerLink::receive(stomp::Frame *frame, int waitMs)
{
    if (socket && !held.isEmpty()) {
        *frame = held.takeFirst();
        return true;
    }
    return receiveFromSocket(frame, waitMs);
}

bool BrokerLink::receiveFromSocket(stomp::Frame *frame, int waitMs)
{
    if (!socket)
        return fail(QStringLiteral("not connected"));
    const QDeadlineTimer deadline(qMax(0, waitMs));
    for (;;) {
        switch (parser.next(frame)) {
        case stomp::Parser::Result::Frame:
            return true;
        case stomp::Parser::Result::Error:
            abort();
            return fail(QStringLiteral("The connection to the message broker at %1 was lost: the "
                                       "broker sent a malformed STOMP frame (%2)")
                            .arg(where.label(), parser.errorText()));
        case stomp::Parser::Result::NeedMore:
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

void BrokerLink::pump(int waitMs)
{
    if (!isOpen())
        return;
    keepAlive();
    if (socket->waitForReadyRead(waitMs)) {
        parser.feed(socket->readAll());
        lastRead.restart();
    }
}

int BrokerLink::descriptor() const
{
    return socket ? int(socket->socketDescriptor()) : -1;
}

void BrokerLink::close(int waitMs)
{
    if (isOpen()) {
        stomp::Frame disconnect("DISCONNECT");
        disconnect.add("receipt", "bye");
        if (send(disconnect)) {
            const QDeadlineTimer deadline(qMax(1, waitMs));
            stomp::Frame frame;
            while (!deadline.hasExpired()
                   && receive(&frame, int(qMax<qint64>(1, deadline.remainingTime())))) {
                if (frame.command == "RECEIPT" && frame.header("receipt-id") == "bye")
                    break;
            }
        }
        if (socket) {
            socket->disconnectFromHost();
            if (socket->state() != QAbstractSocket::UnconnectedState)
                socket->waitForDisconnected(1000);
        }
    }
    abort();
}

} // namespace kesp

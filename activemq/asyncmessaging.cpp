// SPDX-License-Identifier: Apache-2.0
// The operations beside the request/reply exchange: one-way sends, topic
// subscriptions and the messages they deliver, and the file streaming that
// this transport does not offer.

#include "activemqtransport.h"
#include "nuvmqmessage.h"
#include "nuvmutex.h"
#include "stompconnection.h"

#include <QUuid>

using stomp::ConnectionState;
using stomp::Frame;

bool ActiveMqTransport::sendWithReceipt(const Current &now, Frame frame, QString *error)
{
    const QByteArray receiptId = nextId("receipt");
    if (!now.session->beginReceipt(receiptId, error))
        return false;
    frame.add("receipt", receiptId);
    connection->submit(now.session, stomp::encodeHead(frame), frame.body);
    switch (now.session->awaitReceipt(receiptId, QDeadlineTimer(now.settings.connectTimeoutMs),
                                      error)) {
    case ConnectionState::Outcome::Done:
        return true;
    case ConnectionState::Outcome::Failed:
        return false;
    case ConnectionState::Outcome::TimedOut:
        *error = QStringLiteral("the message broker at %1 did not confirm it within %2 ms")
                     .arg(now.session->address.label())
                     .arg(now.settings.connectTimeoutMs);
        return false;
    }
    return false;
}

// Sends to the request queue without waiting for an answer. The call still
// waits for the broker's receipt: without it a refused message would vanish
// without a word.
bool ActiveMqTransport::sendAsyncMessage(nuvMQMessage *message, int kind)
{
    if (!message)
        return fail(QStringLiteral("sendAsyncMessage needs a message."));
    const QString command = commandName(message);
    const Current now = current();
    if (!now.session || onIoThread())
        return fail(
            QStringLiteral("Cannot send \"%1\": not connected to a message broker.").arg(command));
    QString text;
    if (!message->convertToBase64(text))
        return fail(
            QStringLiteral("Cannot send \"%1\": the message could not be encoded.").arg(command));
    Frame frame("SEND");
    frame.add("destination", now.settings.requestQueue.toUtf8())
        .add("correlation-id", QUuid::createUuid().toByteArray(QUuid::WithoutBraces));
    addMessageHeaders(frame, message, kind, now);
    frame.body = text.toUtf8();
    QString error;
    if (!sendWithReceipt(now, std::move(frame), &error))
        return fail(QStringLiteral("Sending \"%1\" failed: %2").arg(command, error));
    return true;
}

// Waits for a message that answers no request of ours: a broadcast on a
// subscribed topic, or a message on our reply queue without a correlation id.
bool ActiveMqTransport::receiveMessage(nuvMQMessage *message, qint64 timeoutSeconds)
{
    if (!message)
        return fail(QStringLiteral("receiveMessage needs a message to fill."));
    const Current now = current();
    if (!now.session || onIoThread())
        return fail(QStringLiteral("Cannot receive: not connected to a message broker."));
    if (timeoutSeconds < 0)
        return fail(QStringLiteral("Cannot receive: the time-out must not be negative."));
    Frame frame;
    QString error;
    switch (now.session->awaitUnsolicited(QDeadlineTimer(timeoutSeconds * 1000), &frame, &error)) {
    case ConnectionState::Outcome::Done:
        return decodeInto(frame, message,
                          QStringLiteral("The message from %1")
                              .arg(QString::fromUtf8(frame.header("destination"))));
    case ConnectionState::Outcome::Failed:
        return fail(QStringLiteral("Cannot receive: %1").arg(error));
    case ConnectionState::Outcome::TimedOut:
        break;
    }
    return fail(QStringLiteral("No message arrived within %1 s (time-out).").arg(timeoutSeconds));
}

// A bare name is a topic; "/topic/x" or "/queue/x" is taken as it is. The
// subscription lasts as long as this connection: subscribe again after a
// reconnect.
bool ActiveMqTransport::subscribeTopic(const QString &topic)
{
    const QString destination = stomp::destinationFor(topic.trimmed(), QStringLiteral("topic"));
    if (topic.trimmed().isEmpty())
        return fail(QStringLiteral("Cannot subscribe: no topic was named."));
    const Current now = current();
    if (!now.session || onIoThread())
        return fail(QStringLiteral("Cannot subscribe to %1: not connected to a message broker.")
                        .arg(destination));
    QByteArray id;
    {
        nuv::MutexLocker locker(&stateLock);
        if (topics.contains(destination))
            return true;
        id = nextId("topic");
        topics.insert(destination, id);
    }
    Frame frame("SUBSCRIBE");
    frame.add("id", id).add("destination", destination.toUtf8()).add("ack", "auto");
    QString error;
    if (sendWithReceipt(now, std::move(frame), &error))
        return true;
    nuv::MutexLocker locker(&stateLock);
    topics.remove(destination);
    return fail(QStringLiteral("Cannot subscribe to %1: %2").arg(destination, error));
}

bool ActiveMqTransport::unsubscribeTopic(const QString &topic)
{
    const QString destination = stomp::destinationFor(topic.trimmed(), QStringLiteral("topic"));
    const Current now = current();
    QByteArray id;
    {
        nuv::MutexLocker locker(&stateLock);
        id = topics.take(destination);
    }
    if (id.isEmpty())
        return fail(QStringLiteral("Cannot unsubscribe from %1: there is no such subscription on "
                                   "this connection.")
                        .arg(destination));
    if (!now.session || onIoThread())
        return fail(QStringLiteral("Cannot unsubscribe from %1: not connected to a message "
                                   "broker.")
                        .arg(destination));
    Frame frame("UNSUBSCRIBE");
    frame.add("id", id);
    QString error;
    if (!sendWithReceipt(now, std::move(frame), &error))
        return fail(QStringLiteral("Cannot unsubscribe from %1: %2").arg(destination, error));
    return true;
}

// Files travel inside a message's data instead; a broker is no file server.
bool ActiveMqTransport::sendStream(const QString &filePath, qint64)
{
    return fail(QStringLiteral("Cannot stream %1: streaming files is not supported by the STOMP "
                               "transport; send the file's content in a message instead.")
                    .arg(filePath));
}

bool ActiveMqTransport::receiveStream(const QString &targetDirectory, qint64)
{
    return fail(QStringLiteral("Cannot receive a stream into %1: streaming files is not supported "
                               "by the STOMP transport.")
                    .arg(targetDirectory));
}

// SPDX-License-Identifier: Apache-2.0
#ifndef ACTIVEMQTRANSPORT_H
#define ACTIVEMQTRANSPORT_H

#include "brokerconfig.h"
#include "connectionstate.h"
#include "nuvmqclientinterface.h"
#include "nuvmutex.h"

#include <QHash>

#include <atomic>
#include <memory>

class QThread;

namespace stomp {
class Connection;
}

/*
 * The message-queue transport over STOMP 1.2 to an ActiveMQ broker
 * (libnuvactivemqclient.so). See docs/broker-protocol.md for what travels.
 *
 * The socket lives on an I/O thread that each transport object starts at
 * its first connect and stops when it is deleted. Calling threads never run
 * an event loop: they write their encoded frames to a plain TCP socket
 * themselves when nothing else is queued for it (else hand them to the I/O
 * thread) and block on a wait condition until the I/O thread delivers the
 * reply, a receipt, a time-out or the loss of the connection.
 * sendSyncMessage may be called from several threads at once; replies find
 * their caller by correlation id.
 *
 * `lastErrorText` is written under a lock, but the interface lets callers
 * read it without one: a caller that shares one object between threads
 * should read it only while no other call on that object can fail.
 */
class ActiveMqTransport : public nuvMQClientInterface
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID NUV_MQCLIENT_INTERFACE_IID)
    Q_INTERFACES(nuvMQClientInterface)
    // Replies that arrived for nobody (after their call timed out), over
    // the object's life.
    Q_PROPERTY(qint64 droppedReplies READ droppedReplies)

public:
    ActiveMqTransport();
    ~ActiveMqTransport() override;

    nuvMQClientInterface *createInstance() override;
    bool connectToBroker(const QString &host, const qint64 &port) override;
    void disconnectFromBroker() override;
    bool sendSyncMessage(nuvMQMessage *request, nuvMQMessage *reply, int kind,
                         qint64 timeoutSeconds, int priority, QString destination,
                         void *context) override;
    bool sendAsyncMessage(nuvMQMessage *message, int kind) override;
    bool receiveMessage(nuvMQMessage *message, qint64 timeoutSeconds) override;
    bool subscribeTopic(const QString &topic) override;
    bool unsubscribeTopic(const QString &topic) override;
    bool sendStream(const QString &filePath, qint64 timeoutSeconds) override;
    bool receiveStream(const QString &targetDirectory, qint64 timeoutSeconds) override;
    void setUserName(const QString &userName) override;
    void setClientId(const QString &clientId) override;
    bool isConnected() override;
    QString getAuthToken() override;

    qint64 droppedReplies() const;

private:
    // What a call needs from the current connection, taken under the lock.
    struct Current
    {
        std::shared_ptr<stomp::ConnectionState> session;
        stomp::BrokerSettings settings;
        QString userName;
    };

    static QString commandName(nuvMQMessage *message);
    bool fail(const QString &text);
    Current current() const;
    bool onIoThread() const;
    void ensureIoThread();
    void post(std::function<void()> work);
    // Sends DISCONNECT, waits briefly for its receipt and drops the socket.
    void closeSession(const QString &reason);
    QByteArray nextId(const char *prefix);
    // Message headers shared by every SEND of an application message.
    void addMessageHeaders(stomp::Frame &frame, nuvMQMessage *message, int kind,
                           const Current &now);
    // Sends a frame with a receipt and waits for it; false with `error`.
    bool sendWithReceipt(const Current &now, stomp::Frame frame, QString *error);
    // Checks the reply's type tag and decodes its body into `message`.
    bool decodeInto(const stomp::Frame &frame, nuvMQMessage *message, const QString &what);

    nuv::Mutex lifecycle; // serialises connect, disconnect and deletion
    mutable nuv::Mutex stateLock;
    std::shared_ptr<stomp::ConnectionState> session NUV_GUARDED_BY(stateLock);
    stomp::BrokerSettings settings NUV_GUARDED_BY(stateLock);
    QString userName NUV_GUARDED_BY(stateLock);
    QByteArray clientId NUV_GUARDED_BY(stateLock);
    // destination -> subscription id
    QHash<QString, QByteArray> topics NUV_GUARDED_BY(stateLock);
    qint64 droppedEarlier NUV_GUARDED_BY(stateLock) = 0;

    // Guards the interface's lastErrorText, which callers read once a call
    // has failed.
    nuv::Mutex errorLock;
    std::atomic<quint64> sequence { 0 };
    QThread *ioThread = nullptr;
    stomp::Connection *connection = nullptr;
};

#endif // ACTIVEMQTRANSPORT_H

// SPDX-License-Identifier: Apache-2.0
#ifndef NUVMQCLIENTINTERFACE_H
#define NUVMQCLIENTINTERFACE_H

#include "nuvinterfaceids.h"

#include <QObject>
#include <QString>
#include <QStringList>

class nuvMQMessage;

// The message kind of classify commands, the `kind` of sendSyncMessage.
constexpr int nuvClassifyMessageKind = 1001;

/*
 * The contract of a message-queue transport plugin ("libnuvactivemqclient.so").
 *
 * The order of the virtual slots below is the binary interface between the
 * classify client and any transport: never reorder, insert or remove one.
 * A classify client calls slots 1-4, 11 and 14; the others exist so that a
 * transport built against this header lays out its vtable identically.
 */
class nuvMQClientInterface : public QObject
{
    Q_OBJECT

public:
    // The transport's description of its last failure. The classify client
    // copies it after a failed connect or send, so it must be the first
    // data member and stay public.
    QString lastErrorText;

Q_SIGNALS:
    // The broker connection dropped (socket closed, heart-beats missed).
    void connectionLost();
    // Streaming progress of slots 9 and 10.
    void totalStreamSize(qint64 bytes);
    void streamedSize(qint64 bytes);
    void newStreamedFile(QStringList fileInfo);

public Q_SLOTS:
    // 1. A new, independent transport object; the caller owns it.
    virtual nuvMQClientInterface *createInstance() = 0;
    // 2. Opens the broker connection; false with `lastErrorText` on failure.
    virtual bool connectToBroker(const QString &host, const qint64 &port) = 0;
    // 3. Closes the broker connection; harmless when not connected.
    virtual void disconnectFromBroker() = 0;
    // 4. Sends `request` and waits at most `timeoutSeconds` for the answer,
    //    which is decoded into `reply`. `kind` is the message kind (1001 for
    //    classify commands); `priority`, `destination` and `context` are
    //    per-message overrides that a classify client leaves at 0, "" and null.
    virtual bool sendSyncMessage(nuvMQMessage *request, nuvMQMessage *reply, int kind,
                                 qint64 timeoutSeconds, int priority, QString destination,
                                 void *context)
        = 0;
    // 5. Sends `message` without waiting for an answer.
    virtual bool sendAsyncMessage(nuvMQMessage *message, int kind) = 0;
    // 6. Waits at most `timeoutSeconds` for an unsolicited message (one not
    //    answering a request of this object) and decodes it into `message`.
    virtual bool receiveMessage(nuvMQMessage *message, qint64 timeoutSeconds) = 0;
    // 7. Subscribes to a broadcast destination whose messages
    //    `receiveMessage` then delivers.
    virtual bool subscribeTopic(const QString &topic) = 0;
    // 8. Ends a subscription made with `subscribeTopic`.
    virtual bool unsubscribeTopic(const QString &topic) = 0;
    // 9. Streams a local file to the server; emits totalStreamSize and
    //    streamedSize while it runs.
    virtual bool sendStream(const QString &filePath, qint64 timeoutSeconds) = 0;
    // 10. Receives a streamed file into `targetDirectory`; emits
    //     newStreamedFile with the file's name and size when it is complete.
    virtual bool receiveStream(const QString &targetDirectory, qint64 timeoutSeconds) = 0;
    // 11. Announces the user on whose behalf the following messages travel.
    virtual void setUserName(const QString &userName) = 0;
    // 12. Names this connection for the broker (its client identifier).
    virtual void setClientId(const QString &clientId) = 0;
    // 13. Whether the broker connection is currently open.
    virtual bool isConnected() = 0;
    // 14. The token that the current broker session holds.
    virtual QString getAuthToken() = 0;
};

Q_DECLARE_INTERFACE(nuvMQClientInterface, NUV_MQCLIENT_INTERFACE_IID)

#endif // NUVMQCLIENTINTERFACE_H

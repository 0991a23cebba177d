// SPDX-License-Identifier: Apache-2.0
#ifndef SCRIPTEDCONTROL_H
#define SCRIPTEDCONTROL_H

#include "nuvinterfaceids.h"
#include "nuvmqclassifymessage.h"

#include <QList>
#include <QObject>
#include <QStringList>

#include <functional>

// One sendSyncMessage call as the scripted transport saw it. The request was
// encoded by its own convertToBase64 and decoded again, so it is what the
// wire carried.
struct ScriptedExchange
{
    nuvMQClassifyMessage request;
    QString wireText;
    int kind = 0;
    qint64 timeoutSeconds = 0;
    int priority = -1;
    QString destination;
    void *context = nullptr;
};

/*
 * The control API of the scripted transport plugin. Tests take it from the
 * plugin's root instance; its state is shared by every transport object the
 * plugin creates, so it reaches the one a client made for itself.
 *
 * Replies are answered in order from the queue; with an empty queue the
 * responder answers, and without a responder the exchange fails.
 */
class ScriptedTransportControl
{
public:
    using Responder = std::function<nuvMQClassifyMessage(const nuvMQClassifyMessage &request)>;

    virtual ~ScriptedTransportControl() = default;

    // Forgets replies, responder, recordings, calls and refusals.
    virtual void reset() = 0;
    // The next exchange answers with `reply` (through its wire text).
    virtual void queueReply(const nuvMQClassifyMessage &reply) = 0;
    // The next exchange fails: sendSyncMessage returns false with this text.
    virtual void queueFailure(const QString &lastErrorText) = 0;
    // The next exchange answers with raw wire text, damaged or not.
    virtual void queueWireText(const QString &replyText) = 0;
    virtual void setResponder(Responder responder) = 0;
    // connectToBroker fails with this text; an empty text accepts again.
    virtual void refuseConnect(const QString &lastErrorText) = 0;
    virtual void setAuthToken(const QString &token) = 0;

    virtual QList<ScriptedExchange> exchanges() const = 0;
    virtual void clearExchanges() = 0;
    // Every transport call in order: "createInstance", "connectToBroker HOST
    // PORT", "setUserName USER", "sendSyncMessage COMMAND",
    // "disconnectFromBroker", "getAuthToken", "destroyed".
    virtual QStringList calls() const = 0;
    virtual void clearCalls() = 0;
    virtual int liveInstances() const = 0;
    // Every live transport object emits connectionLost() on this thread.
    virtual void emitConnectionLost() = 0;
};

#define SCRIPTED_TRANSPORT_CONTROL_IID NUV_IID_PREFIX ".test.ScriptedTransportControl/1.0"
Q_DECLARE_INTERFACE(ScriptedTransportControl, SCRIPTED_TRANSPORT_CONTROL_IID)

#endif // SCRIPTEDCONTROL_H

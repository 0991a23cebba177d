// SPDX-License-Identifier: Apache-2.0
#ifndef SCRIPTEDTRANSPORT_H
#define SCRIPTEDTRANSPORT_H

#include "nuvmqclientinterface.h"
#include "scriptedcontrol.h"

// A message-queue transport that answers from a script instead of a broker.
class ScriptedTransport : public nuvMQClientInterface, public ScriptedTransportControl
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID NUV_MQCLIENT_INTERFACE_IID)
    Q_INTERFACES(nuvMQClientInterface ScriptedTransportControl)

public:
    ScriptedTransport();
    ~ScriptedTransport() override;

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

    void reset() override;
    void queueReply(const nuvMQClassifyMessage &reply) override;
    void queueFailure(const QString &lastErrorText) override;
    void queueWireText(const QString &replyText) override;
    void setResponder(Responder responder) override;
    void refuseConnect(const QString &lastErrorText) override;
    void setAuthToken(const QString &token) override;
    QList<ScriptedExchange> exchanges() const override;
    void clearExchanges() override;
    QStringList calls() const override;
    void clearCalls() override;
    int liveInstances() const override;
    void emitConnectionLost() override;

private:
    bool notSupported(const char *operation);

    bool connected = false;
};

#endif // SCRIPTEDTRANSPORT_H

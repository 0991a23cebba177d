// SPDX-License-Identifier: Apache-2.0
#ifndef ECHOTRANSPORT_H
#define ECHOTRANSPORT_H

#include "echocontrol.h"
#include "nuvmqclientinterface.h"

/*
 * A transport that does exactly the wire work of a real exchange and nothing
 * else: it encodes the request, decodes it as a server would, encodes the
 * configured reply and decodes that into the client's reply message. What a
 * command costs beyond this is what the plugin adds.
 */
class EchoTransport : public nuvMQClientInterface, public EchoTransportControl
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID NUV_MQCLIENT_INTERFACE_IID)
    Q_INTERFACES(nuvMQClientInterface EchoTransportControl)

public:
    nuvMQClientInterface *createInstance() override { return new EchoTransport; }
    bool connectToBroker(const QString &, const qint64 &) override { return true; }
    void disconnectFromBroker() override { }
    bool sendSyncMessage(nuvMQMessage *request, nuvMQMessage *reply, int, qint64, int, QString,
                         void *) override;
    bool sendAsyncMessage(nuvMQMessage *, int) override { return unsupported(); }
    bool receiveMessage(nuvMQMessage *, qint64) override { return unsupported(); }
    bool subscribeTopic(const QString &) override { return unsupported(); }
    bool unsubscribeTopic(const QString &) override { return unsupported(); }
    bool sendStream(const QString &, qint64) override { return unsupported(); }
    bool receiveStream(const QString &, qint64) override { return unsupported(); }
    void setUserName(const QString &) override { }
    void setClientId(const QString &) override { }
    bool isConnected() override { return true; }
    QString getAuthToken() override { return QString(); }

    void setReply(const nuvMQClassifyMessage &reply) override;

private:
    bool unsupported();
};

#endif // ECHOTRANSPORT_H

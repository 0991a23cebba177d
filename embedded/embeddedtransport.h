// SPDX-License-Identifier: Apache-2.0
#ifndef EMBEDDEDTRANSPORT_H
#define EMBEDDEDTRANSPORT_H

#include "nuvmqclientinterface.h"

#include <memory>

namespace nuvserver {
class ServerEngine;
}

/*
 * A message-queue transport that runs the server engine in-process. The
 * "host" of connectToBroker is the database file (created on first use,
 * configured from the NUV_SERVER_* environment variables); the port is
 * ignored. Every exchange still goes through the wire encoding both ways.
 * Each transport object is one connection: its own engine, its own
 * database connection and its own random session token.
 */
class EmbeddedTransport : public nuvMQClientInterface
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID NUV_MQCLIENT_INTERFACE_IID)
    Q_INTERFACES(nuvMQClientInterface)

public:
    EmbeddedTransport();
    ~EmbeddedTransport() override;

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

private:
    bool notSupported(const char *operation);

    std::unique_ptr<nuvserver::ServerEngine> engine;
    QString token;
};

#endif // EMBEDDEDTRANSPORT_H

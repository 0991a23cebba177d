// SPDX-License-Identifier: Apache-2.0
#include "embeddedtransport.h"

#include "nuvmqclassifymessage.h"
#include "serverengine.h"

#include <QRandomGenerator>

namespace {

QString randomToken()
{
    QString token;
    for (int i = 0; i < 8; ++i)
        token += QString::number(QRandomGenerator::system()->generate(), 16)
                     .rightJustified(8, QLatin1Char('0'));
    return token;
}
} // namespace

EmbeddedTransport::EmbeddedTransport() = default;

EmbeddedTransport::~EmbeddedTransport()
{
    disconnectFromBroker();
}

nuvMQClientInterface *EmbeddedTransport::createInstance()
{
    return new EmbeddedTransport;
}

bool EmbeddedTransport::connectToBroker(const QString &host, const qint64 &)
{
    disconnectFromBroker();
    if (host.isEmpty()) {
        lastErrorText = QStringLiteral("embedded transport: the database file (host) is empty");
        return false;
    }
    auto opened = std::make_unique<nuvserver::ServerEngine>(
        nuvserver::EngineOptions::fromEnvironment(host));
    QString error;
    if (!opened->open(&error)) {
        lastErrorText = QStringLiteral("embedded transport: ") + error;
        return false;
    }
    engine = std::move(opened);
    token = randomToken();
    lastErrorText.clear();
    return true;
}

void EmbeddedTransport::disconnectFromBroker()
{
    if (!engine)
        return;
    engine->endSession(token);
    engine.reset();
    token.clear();
}

bool EmbeddedTransport::sendSyncMessage(nuvMQMessage *request, nuvMQMessage *reply, int kind,
                                        qint64, int, QString, void *)
{
    if (!engine) {
        lastErrorText = QStringLiteral("embedded transport: not connected");
        return false;
    }
    if (!request || !reply || kind != nuvClassifyMessageKind) {
        lastErrorText = QStringLiteral("embedded transport: only classify messages (kind %1) "
                                       "are supported")
                            .arg(nuvClassifyMessageKind);
        return false;
    }
    // Both directions go through the wire text, as over a broker.
    QString requestText;
    if (!request->convertToBase64(requestText)) {
        lastErrorText = QStringLiteral("embedded transport: the request cannot be encoded");
        return false;
    }
    nuvMQClassifyMessage received;
    received.convertFromBase64(requestText);
    nuvMQClassifyMessage answer = engine->handle(received, token);
    QString replyText;
    answer.convertToBase64(replyText);
    if (!reply->convertFromBase64(replyText)) {
        lastErrorText = QStringLiteral("embedded transport: the reply cannot be decoded");
        return false;
    }
    return true;
}

bool EmbeddedTransport::notSupported(const char *operation)
{
    lastErrorText = QStringLiteral("%1 is not supported by the embedded transport")
                        .arg(QLatin1String(operation));
    return false;
}

bool EmbeddedTransport::sendAsyncMessage(nuvMQMessage *, int)
{
    return notSupported("sendAsyncMessage");
}

bool EmbeddedTransport::receiveMessage(nuvMQMessage *, qint64)
{
    return notSupported("receiveMessage");
}

bool EmbeddedTransport::subscribeTopic(const QString &)
{
    return notSupported("subscribeTopic");
}

bool EmbeddedTransport::unsubscribeTopic(const QString &)
{
    return notSupported("unsubscribeTopic");
}

bool EmbeddedTransport::sendStream(const QString &, qint64)
{
    return notSupported("sendStream");
}

bool EmbeddedTransport::receiveStream(const QString &, qint64)
{
    return notSupported("receiveStream");
}

// The engine knows the user from the session token, and an in-process
// connection has no broker to present a client id to.
void EmbeddedTransport::setUserName(const QString &) { }

void EmbeddedTransport::setClientId(const QString &) { }

bool EmbeddedTransport::isConnected()
{
    return engine != nullptr;
}

QString EmbeddedTransport::getAuthToken()
{
    return token;
}

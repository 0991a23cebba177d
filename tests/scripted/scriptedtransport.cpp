// SPDX-License-Identifier: Apache-2.0
#include "scriptedtransport.h"

#include "nuvmutex.h"

#include <QQueue>
#include <QSet>

namespace {

struct ScriptedAnswer
{
    bool fails = false;
    QString text; // wire text of the reply, or the failure's lastErrorText
};

// Shared by every object of this plugin, so that a test reaches the
// transport a client created for itself through the plugin's root object.
struct ScriptState
{
    mutable nuv::Mutex lock;
    QQueue<ScriptedAnswer> answers NUV_GUARDED_BY(lock);
    ScriptedTransportControl::Responder responder NUV_GUARDED_BY(lock);
    QString connectRefusal NUV_GUARDED_BY(lock);
    QString authToken NUV_GUARDED_BY(lock) = QStringLiteral("scripted-token");
    QList<ScriptedExchange> exchanges NUV_GUARDED_BY(lock);
    QStringList calls NUV_GUARDED_BY(lock);
    QSet<ScriptedTransport *> live NUV_GUARDED_BY(lock);
};

ScriptState &state()
{
    // Never destroyed: Qt deletes the plugin's root object only after the
    // statics of this library are gone, and its destructor still looks here.
    static ScriptState *s = new ScriptState;
    return *s;
}

void record(const QString &call)
{
    nuv::MutexLocker locker(&state().lock);
    state().calls.append(call);
}

} // namespace

ScriptedTransport::ScriptedTransport() = default;

ScriptedTransport::~ScriptedTransport()
{
    // Only the objects handed out by createInstance() count; the plugin's
    // root object lives until the process ends.
    nuv::MutexLocker locker(&state().lock);
    if (state().live.remove(this))
        state().calls.append(QStringLiteral("destroyed"));
}

nuvMQClientInterface *ScriptedTransport::createInstance()
{
    auto *transport = new ScriptedTransport;
    nuv::MutexLocker locker(&state().lock);
    state().calls.append(QStringLiteral("createInstance"));
    state().live.insert(transport);
    return transport;
}

bool ScriptedTransport::connectToBroker(const QString &host, const qint64 &port)
{
    record(QStringLiteral("connectToBroker %1 %2").arg(host).arg(port));
    nuv::MutexLocker locker(&state().lock);
    if (!state().connectRefusal.isEmpty()) {
        lastErrorText = state().connectRefusal;
        return false;
    }
    connected = true;
    return true;
}

void ScriptedTransport::disconnectFromBroker()
{
    record(QStringLiteral("disconnectFromBroker"));
    connected = false;
}

bool ScriptedTransport::sendSyncMessage(nuvMQMessage *request, nuvMQMessage *reply, int kind,
                                        qint64 timeoutSeconds, int priority, QString destination,
                                        void *context)
{
    ScriptedExchange exchange;
    request->convertToBase64(exchange.wireText);
    exchange.request.convertFromBase64(exchange.wireText);
    exchange.kind = kind;
    exchange.timeoutSeconds = timeoutSeconds;
    exchange.priority = priority;
    exchange.destination = destination;
    exchange.context = context;

    ScriptedAnswer answer { true, QStringLiteral("scripted transport: no reply queued") };
    ScriptedTransportControl::Responder responder;
    {
        nuv::MutexLocker locker(&state().lock);
        state().calls.append(QStringLiteral("sendSyncMessage ") + exchange.request.command);
        state().exchanges.append(exchange);
        if (!state().answers.isEmpty())
            answer = state().answers.dequeue();
        else
            responder = state().responder;
    }
    if (responder) {
        nuvMQClassifyMessage answered = responder(exchange.request);
        answer.fails = false;
        answered.convertToBase64(answer.text);
    }
    if (answer.fails) {
        lastErrorText = answer.text;
        return false;
    }
    return reply->convertFromBase64(answer.text);
}

bool ScriptedTransport::notSupported(const char *operation)
{
    lastErrorText
        = QStringLiteral("scripted transport: %1 is not supported").arg(QLatin1String(operation));
    return false;
}

bool ScriptedTransport::sendAsyncMessage(nuvMQMessage *, int)
{
    return notSupported("sendAsyncMessage");
}

bool ScriptedTransport::receiveMessage(nuvMQMessage *, qint64)
{
    return notSupported("receiveMessage");
}

bool ScriptedTransport::subscribeTopic(const QString &)
{
    return notSupported("subscribeTopic");
}

bool ScriptedTransport::unsubscribeTopic(const QString &)
{
    return notSupported("unsubscribeTopic");
}

bool ScriptedTransport::sendStream(const QString &, qint64)
{
    return notSupported("sendStream");
}

bool ScriptedTransport::receiveStream(const QString &, qint64)
{
    return notSupported("receiveStream");
}

void ScriptedTransport::setUserName(const QString &userName)
{
    record(QStringLiteral("setUserName ") + userName);
}

void ScriptedTransport::setClientId(const QString &clientId)
{
    record(QStringLiteral("setClientId ") + clientId);
}

bool ScriptedTransport::isConnected()
{
    return connected;
}

QString ScriptedTransport::getAuthToken()
{
    record(QStringLiteral("getAuthToken"));
    nuv::MutexLocker locker(&state().lock);
    return state().authToken;
}

// Control

void ScriptedTransport::reset()
{
    nuv::MutexLocker locker(&state().lock);
    state().answers.clear();
    state().responder = nullptr;
    state().connectRefusal.clear();
    state().authToken = QStringLiteral("scripted-token");
    state().exchanges.clear();
    state().calls.clear();
}

void ScriptedTransport::queueReply(const nuvMQClassifyMessage &reply)
{
    nuvMQClassifyMessage copy(reply);
    QString text;
    copy.convertToBase64(text);
    queueWireText(text);
}

void ScriptedTransport::queueFailure(const QString &lastErrorText)
{
    nuv::MutexLocker locker(&state().lock);
    state().answers.enqueue({ true, lastErrorText });
}

void ScriptedTransport::queueWireText(const QString &replyText)
{
    nuv::MutexLocker locker(&state().lock);
    state().answers.enqueue({ false, replyText });
}

void ScriptedTransport::setResponder(Responder responder)
{
    nuv::MutexLocker locker(&state().lock);
    state().responder = std::move(responder);
}

void ScriptedTransport::refuseConnect(const QString &lastErrorText)
{
    nuv::MutexLocker locker(&state().lock);
    state().connectRefusal = lastErrorText;
}

void ScriptedTransport::setAuthToken(const QString &token)
{
    nuv::MutexLocker locker(&state().lock);
    state().authToken = token;
}

QList<ScriptedExchange> ScriptedTransport::exchanges() const
{
    nuv::MutexLocker locker(&state().lock);
    return state().exchanges;
}

void ScriptedTransport::clearExchanges()
{
    nuv::MutexLocker locker(&state().lock);
    state().exchanges.clear();
}

QStringList ScriptedTransport::calls() const
{
    nuv::MutexLocker locker(&state().lock);
    return state().calls;
}

void ScriptedTransport::clearCalls()
{
    nuv::MutexLocker locker(&state().lock);
    state().calls.clear();
}

int ScriptedTransport::liveInstances() const
{
    nuv::MutexLocker locker(&state().lock);
    return state().live.size();
}

void ScriptedTransport::emitConnectionLost()
{
    QList<ScriptedTransport *> targets;
    {
        nuv::MutexLocker locker(&state().lock);
        targets = state().live.values();
    }
    for (ScriptedTransport *transport : targets)
        emit transport->connectionLost();
}

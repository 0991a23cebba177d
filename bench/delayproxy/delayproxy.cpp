// SPDX-License-Identifier: Apache-2.0
#include "delayproxy.h"

#include "delaylink.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

namespace delayproxy {

// Accepts on the proxy's thread; every connection becomes a link, a child
// that goes with the listener.
class Listener : public QTcpServer
{
public:
    Listener(const QString &host, quint16 port, int delayMs, SharedCounts *counts)
        : host(host)
        , port(port)
        , delayMs(delayMs)
        , counts(counts)
    { }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        auto *client = new QTcpSocket;
        if (!client->setSocketDescriptor(descriptor)) {
            delete client;
            return;
        }
        ++counts->connections;
        new DelayLink(client, host, port, delayMs, counts, this);
    }

private:
    const QString host;
    const quint16 port;
    const int delayMs;
    SharedCounts *const counts;
};

DelayProxy::DelayProxy() = default;

DelayProxy::~DelayProxy()
{
    stop();
}

bool DelayProxy::start(const QString &targetHost, quint16 targetPort, int delayMs, quint16 port)
{
    stop();
    thread = std::make_unique<QThread>();
    listener = new Listener(targetHost, targetPort, delayMs, &shared);
    listener->moveToThread(thread.get());
    thread->start();
    bool listening = false;
    // Listening on the thread that will accept: the socket notifier
    // belongs to it.
    QMetaObject::invokeMethod(
        listener,
        [&] {
            listening = listener->listen(QHostAddress::LocalHost, port);
            listenPort = listener->serverPort();
            error = listener->errorString();
        },
        Qt::BlockingQueuedConnection);
    if (!listening) {
        error = QStringLiteral("cannot listen on 127.0.0.1:%1: %2").arg(port).arg(error);
        stop();
        return false;
    }
    error.clear();
    return true;
}

void DelayProxy::stop()
{
    if (!thread)
        return;
    // Links and their sockets die on the thread that owns them.
    QMetaObject::invokeMethod(
        listener, [this] { delete listener; }, Qt::BlockingQueuedConnection);
    listener = nullptr;
    thread->quit();
    thread->wait();
    thread.reset();
    listenPort = 0;
}

} // namespace delayproxy

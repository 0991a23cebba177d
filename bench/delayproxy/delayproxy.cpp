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
    listener = new Listener(targetHost, targetPort, delayMs, &shared);
    // Listening before the hand-over to the accepting thread: the socket
    // notifier moves along with the server, and no call has to cross to
    // that thread and back.
    const bool listening = listener->listen(QHostAddress::LocalHost, port);
    listenPort = listener->serverPort();
    error = listener->errorString();
    thread = std::make_unique<QThread>();
    listener->moveToThread(thread.get());
    // Links and their sockets die on the thread that owns them, which
    // deletes them as it finishes (stop() waits for that).
    QObject::connect(thread.get(), &QThread::finished, listener, &QObject::deleteLater);
    thread->start();
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
    listener = nullptr;
    thread->quit();
    thread->wait();
    thread.reset();
    listenPort = 0;
}

} // namespace delayproxy

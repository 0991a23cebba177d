// SPDX-License-Identifier: Apache-2.0
#include "responder.h"

namespace stomp {

Responder::Responder(const Peer::Options &options, const QByteArray &queue, Handler handler)
    : options(options)
    , queue(queue)
    , handler(std::move(handler))
{ }

Responder::~Responder()
{
    end();
}

bool Responder::begin(int timeoutMs)
{
    end();
    {
        nuv::MutexLocker locker(&mutex);
        start = Start::Pending;
    }
    stopping = false;
    thread = std::thread([this] { run(); });
    const QDeadlineTimer deadline(timeoutMs);
    nuv::MutexLocker locker(&mutex);
    while (start == Start::Pending) {
        if (!mutex.wait(ready, deadline) && start == Start::Pending) {
            error = QStringLiteral("responder did not start in time");
            return false;
        }
    }
    return start == Start::Listening;
}

void Responder::end()
{
    stopping = true;
    if (thread.joinable())
        thread.join();
}

QString Responder::errorText() const
{
    nuv::MutexLocker locker(&mutex);
    return error;
}

QList<Responder::Request> Responder::requests() const
{
    nuv::MutexLocker locker(&mutex);
    return seen;
}

void Responder::run()
{
    Peer peer;
    const bool listening = peer.open(options) && peer.subscribe("requests", queue);
    {
        nuv::MutexLocker locker(&mutex);
        start = listening ? Start::Listening : Start::Failed;
        if (!listening)
            error = peer.errorText();
        ready.wakeAll();
    }
    if (!listening)
        return;
    Frame frame;
    while (!stopping) {
        if (!peer.receive(&frame, 100)) {
            if (peer.closed()) {
                lostConnection = true;
                return;
            }
            continue;
        }
        if (frame.command == "MESSAGE")
            answer(peer, frame);
    }
}

void Responder::answer(Peer &peer, const Frame &request)
{
    const QByteArray replyTo = request.header("reply-to");
    Frame reply("SEND");
    reply.add("destination", replyTo)
        .add("correlation-id", request.header("correlation-id"))
        .add("amq-msg-type", "text");

    if (!request.has("nuv-message-type")) {
        // A raw ping: echo it, with as little work as a server can do.
        reply.body = request.body;
        if (!replyTo.isEmpty() && peer.send(reply))
            ++answeredCount;
        return;
    }
    Request seenRequest { request, nuvMQClassifyMessage() };
    seenRequest.message.convertFromBase64(QString::fromUtf8(request.body));
    {
        nuv::MutexLocker locker(&mutex);
        seen.append(seenRequest);
    }
    const std::optional<nuvMQClassifyMessage> answer = handler(seenRequest);
    if (!answer || replyTo.isEmpty())
        return;
    nuvMQClassifyMessage message(*answer);
    QString text;
    message.convertToBase64(text);
    reply.add("nuv-message-type", message.getType().toUtf8());
    reply.body = text.toUtf8();
    if (peer.send(reply))
        ++answeredCount;
}

} // namespace stomp

// SPDX-License-Identifier: Apache-2.0
#ifndef RESPONDER_H
#define RESPONDER_H

#include "nuvmqclassifymessage.h"
#include "nuvmutex.h"
#include "stomppeer.h"

#include <QList>

#include <atomic>
#include <functional>
#include <optional>
#include <thread>

namespace stomp {

/*
 * The server side of the request/reply exchange, on its own thread and its
 * own STOMP connection: takes requests from a queue and answers each at its
 * reply-to destination with the same correlation id, the way a server in
 * any language would (see docs/broker-protocol.md).
 *
 * A request that carries a classify message goes to the handler; one
 * without the nuv-message-type header (a raw ping) is echoed as it came.
 *
 * Standard threads and locks rather than Qt's: a ThreadSanitizer build sees
 * the order they give, which it cannot see inside the uninstrumented QtCore.
 */
class Responder
{
public:
    struct Request
    {
        Frame frame; // headers as the responder received them
        nuvMQClassifyMessage message;
    };
    // The reply for a request, or nothing to leave it unanswered. Runs on
    // the responder's thread, so it may take its time.
    using Handler = std::function<std::optional<nuvMQClassifyMessage>(const Request &)>;

    Responder(const Peer::Options &options, const QByteArray &queue, Handler handler);
    ~Responder();
    Responder(const Responder &) = delete;
    Responder &operator=(const Responder &) = delete;

    // Starts the thread and waits until it listens; false with errorText().
    bool begin(int timeoutMs = 15000);
    void end();

    QString errorText() const;
    // Every request seen so far (frames and decoded messages).
    QList<Request> requests() const;
    int answered() const { return answeredCount; }
    // True once the responder's own connection broke.
    bool lost() const { return lostConnection; }

private:
    void run();
    void answer(Peer &peer, const Frame &request);

    const Peer::Options options;
    const QByteArray queue;
    const Handler handler;
    mutable nuv::Mutex mutex;
    QWaitCondition ready;
    enum class Start { Pending, Listening, Failed } start NUV_GUARDED_BY(mutex) = Start::Pending;
    QString error NUV_GUARDED_BY(mutex);
    QList<Request> seen NUV_GUARDED_BY(mutex);
    std::atomic<bool> stopping { false };
    std::atomic<int> answeredCount { 0 };
    std::atomic<bool> lostConnection { false };
    std::thread thread;
};

} // namespace stomp

#endif // RESPONDER_H

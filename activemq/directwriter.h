// SPDX-License-Identifier: Apache-2.0
#ifndef STOMP_DIRECTWRITER_H
#define STOMP_DIRECTWRITER_H

#include "nuvmutex.h"

#include <QByteArray>
#include <QString>

#include <atomic>

class QTcpSocket;

namespace stomp {

/*
 * The one way bytes reach a connection's socket, from the I/O thread and
 * from the calling threads alike.
 *
 * A hand-over to the I/O thread costs a thread wake-up and an event-loop
 * turn per request, so on an open plain TCP connection a caller writes its
 * frame to the socket itself. The invariants that make that safe, all kept
 * under `lock`:
 *  - every byte goes out under the lock, so frames never interleave;
 *  - a caller writes only when nothing written earlier still waits: not in
 *    the QTcpSocket's buffer, not in `pending` (the rest of a caller's frame
 *    that the kernel did not take) and not in a send posted to the I/O
 *    thread; otherwise its frame is posted and queues behind them;
 *  - the I/O thread writes `pending` before anything else;
 *  - callers write to a descriptor of their own (a duplicate): QTcpSocket
 *    closes its one on an error before the I/O thread hears of it, and a
 *    caller must never write to a number the process may have reused;
 *  - once detached (TLS, closing, an error), callers write no more.
 */
class DirectWriter
{
public:
    enum class Outcome {
        Written, // all of it reached the kernel
        Partial, // the rest waits in `pending`: post flush()
        Failed, // the stream may end in half a frame: post the connection's end
        Post, // the caller may not write now: post writePosted()
    };

    DirectWriter() = default;
    ~DirectWriter();
    DirectWriter(const DirectWriter &) = delete;
    DirectWriter &operator=(const DirectWriter &) = delete;

    // I/O thread: the connection `owner` is open on `socket`; callers may
    // write to it directly from now on.
    void attach(QTcpSocket *socket, const void *owner);
    // I/O thread: callers write no more; what they queued still goes out.
    void detach();
    // I/O thread: the socket is gone; whatever waited is dropped.
    void reset();

    // Any thread: writes head, body and the closing NUL of a frame for
    // `owner`. Post means the frame was counted as posted and the caller
    // must hand it to writePosted() on the I/O thread. Failed gives the
    // system's words in `error`.
    Outcome submit(const void *owner, const QByteArray &head, const QByteArray &body,
                   QString *error);
    // I/O thread: a frame that submit() told its caller to post; written
    // when `stillOpen`, dropped otherwise.
    void writePosted(QTcpSocket *socket, bool stillOpen, const QByteArray &head,
                     const QByteArray &body);
    // I/O thread: what a caller's partial write left behind.
    void flush(QTcpSocket *socket);
    // I/O thread: bytes of its own (handshake, heart-beats, DISCONNECT),
    // behind anything a caller left behind. With `thenDetach`, callers stop
    // writing first, so whatever they submit later follows these bytes.
    void write(QTcpSocket *socket, const QByteArray &bytes, bool thenDetach = false);
    // I/O thread: the socket reported bytes written.
    void socketWrote(QTcpSocket *socket);

    // Milliseconds since any bytes went out, whoever wrote them: every frame
    // is a sign of life, so no heart-beat is due while requests flow.
    qint64 msSinceWrite() const;

private:
    void closeDescriptor() NUV_REQUIRES(lock);
    void writeLocked(QTcpSocket *socket, const QByteArray &bytes) NUV_REQUIRES(lock);
    void markWritten();

    mutable nuv::Mutex lock;
    int descriptor NUV_GUARDED_BY(lock) = -1; // -1 while callers must post
    const void *owner NUV_GUARDED_BY(lock) = nullptr;
    int postedSends NUV_GUARDED_BY(lock) = 0;
    // The QTcpSocket holds bytes it has not written yet.
    bool socketBuffered NUV_GUARDED_BY(lock) = false;
    QByteArray pending NUV_GUARDED_BY(lock);
    // A plain clock value, written without the lock by whoever writes.
    std::atomic<qint64> lastWriteAt { 0 }; // steady clock, ms
};

} // namespace stomp

#endif // STOMP_DIRECTWRITER_H

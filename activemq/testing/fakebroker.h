// SPDX-License-Identifier: Apache-2.0
#ifndef FAKEBROKER_H
#define FAKEBROKER_H

#include "nuvmutex.h"
#include "stompframe.h"
#include "stompparser.h"

#include <QThread>
#include <QWaitCondition>

#include <atomic>
#include <functional>

class QTcpSocket;

// The server end of one accepted connection, used blocking on the fake
// broker's thread.
class FakeLink
{
public:
    explicit FakeLink(QTcpSocket *socket);

    // The next frame, or false after `timeoutMs` or when the client left.
    bool next(stomp::Frame *frame, int timeoutMs = 10000);
    // The next frame that is not `skipped`; its command must be `command`.
    bool expect(const QByteArray &command, stomp::Frame *frame = nullptr, int timeoutMs = 10000);
    void write(const QByteArray &bytes);
    // Writes one byte at a time, flushing each, to exercise partial reads.
    void writeSlowly(const QByteArray &bytes);
    // CONNECTED with these heart-beat values, then the reply subscription's
    // receipt: a handshake as a broker does it.
    bool handshake(const QByteArray &heartBeat = "0,0");
    void close();
    // Waits until the client closes its end.
    bool awaitClose(int timeoutMs);
    qint64 heartBeatsReceived() const { return parser.heartBeats(); }

private:
    QTcpSocket *socket;
    stomp::Parser parser;
};

/*
 * A STOMP server on 127.0.0.1 that plays a script against the first client
 * that connects, on its own thread (the transport's calls block the test's
 * thread). The script's verdict, if it checks anything, is `failure`.
 */
class FakeBroker : public QThread
{
public:
    using Script = std::function<void(FakeLink &link)>;

    explicit FakeBroker(Script script);
    ~FakeBroker() override;

    // Starts listening; the port is known on return.
    quint16 listen();
    // Ends the script's waiting (it should check stopping()).
    void stop();
    bool stopping() const { return stopRequested; }
    // QThread::wait(), and what the script did is seen by ThreadSanitizer
    // as done before the return, which it cannot see inside QtCore.
    bool wait(QDeadlineTimer deadline = QDeadlineTimer(QDeadlineTimer::Forever));

protected:
    void run() override;

private:
    Script script;
    nuv::Mutex mutex;
    QWaitCondition ready;
    quint16 port NUV_GUARDED_BY(mutex) = 0;
    bool listening NUV_GUARDED_BY(mutex) = false;
    std::atomic<bool> stopRequested { false };
};

// "RECEIPT" for the frame's receipt header.
QByteArray receiptFor(const stomp::Frame &frame);

#endif // FAKEBROKER_H

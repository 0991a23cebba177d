// SPDX-License-Identifier: Apache-2.0
#include "fakebroker.h"

#include "nuvmutex.h"

#include <QDeadlineTimer>
#include <QTcpServer>
#include <QTcpSocket>

FakeLink::FakeLink(QTcpSocket *socket)
    : socket(socket)
{ }

bool FakeLink::next(stomp::Frame *frame, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        if (parser.next(frame) == stomp::Parser::Result::Frame)
            return true;
        if (parser.failed())
            return false;
        if (socket->bytesAvailable() == 0) {
            if (socket->state() != QAbstractSocket::ConnectedState)
                return false;
            if (!socket->waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime())))) {
                if (deadline.hasExpired() || socket->state() != QAbstractSocket::ConnectedState)
                    return false;
            }
        }
        parser.feed(socket->readAll());
    }
}

bool FakeLink::expect(const QByteArray &command, stomp::Frame *frame, int timeoutMs)
{
    stomp::Frame got;
    if (!next(&got, timeoutMs) || got.command != command)
        return false;
    if (frame)
        *frame = got;
    return true;
}

void FakeLink::write(const QByteArray &bytes)
{
    socket->write(bytes);
    while (socket->bytesToWrite() > 0 && socket->waitForBytesWritten(5000)) { }
}

void FakeLink::writeSlowly(const QByteArray &bytes)
{
    for (const char c : bytes)
        write(QByteArray(1, c));
}

bool FakeLink::handshake(const QByteArray &heartBeat)
{
    if (!expect("CONNECT"))
        return false;
    write("CONNECTED\nversion:1.2\nheart-beat:" + heartBeat + "\n\n" + QByteArray(1, '\0'));
    stomp::Frame subscribe;
    if (!expect("SUBSCRIBE", &subscribe))
        return false;
    write(receiptFor(subscribe));
    return true;
}

void FakeLink::close()
{
    socket->disconnectFromHost();
    if (socket->state() != QAbstractSocket::UnconnectedState)
        socket->waitForDisconnected(2000);
}

bool FakeLink::awaitClose(int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (socket->state() == QAbstractSocket::ConnectedState && !deadline.hasExpired()) {
        if (socket->waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime()))))
            parser.feed(socket->readAll());
    }
    return socket->state() != QAbstractSocket::ConnectedState;
}

FakeBroker::FakeBroker(Script script)
    : script(std::move(script))
{ }

FakeBroker::~FakeBroker()
{
    stop();
    wait();
}

bool FakeBroker::wait(QDeadlineTimer deadline)
{
    if (!QThread::wait(deadline))
        return false;
    nuv::syncAcquire(this);
    return true;
}

quint16 FakeBroker::listen()
{
    start();
    nuv::MutexLocker locker(&mutex);
    while (!listening)
        mutex.wait(ready, QDeadlineTimer(QDeadlineTimer::Forever));
    return port;
}

void FakeBroker::stop()
{
    stopRequested = true;
}

void FakeBroker::run()
{
    // Declared first, so run last: hands everything this thread did to
    // wait(), as QThread::wait() does where ThreadSanitizer cannot see it.
    struct Finished
    {
        FakeBroker *broker;
        ~Finished() { nuv::syncRelease(broker); }
    } finished { this };
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    {
        nuv::MutexLocker locker(&mutex);
        port = server.serverPort();
        listening = true;
        ready.wakeAll();
    }
    while (!stopRequested && !server.hasPendingConnections())
        server.waitForNewConnection(50);
    if (stopRequested)
        return;
    QTcpSocket *socket = server.nextPendingConnection();
    FakeLink link(socket);
    script(link);
    // Keep the connection until the test is done with it, unless the script
    // closed it.
    while (!stopRequested && socket->state() == QAbstractSocket::ConnectedState) {
        if (socket->waitForReadyRead(50))
            socket->readAll();
    }
    delete socket;
}

QByteArray receiptFor(const stomp::Frame &frame)
{
    stomp::Frame receipt("RECEIPT");
    receipt.add("receipt-id", frame.header("receipt"));
    return stomp::encodeFrame(receipt);
}

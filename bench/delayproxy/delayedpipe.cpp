// SPDX-License-Identifier: Apache-2.0
#include "delayedpipe.h"

#include <QTcpSocket>

namespace delayproxy {

namespace {
// A sink further behind than this stops the reading, so that a slow reader
// holds the sender back through TCP instead of filling this process.
constexpr qint64 backlogLimit = 4 << 20;
// Timers have a resolution of a millisecond and may fire a little early: a
// chunk this close to its time goes now rather than a whole tick later.
constexpr qint64 earlyNs = 100000;
} // namespace

DelayedPipe::DelayedPipe(QTcpSocket *source, QTcpSocket *sink, int delayMs,
                         std::atomic<qint64> *bytes, QObject *parent)
    : QObject(parent)
    , source(source)
    , sink(sink)
    , delayNs(qint64(qMax(0, delayMs)) * 1000000)
    , bytes(bytes)
{
    clock.start();
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, this, &DelayedPipe::deliver);
    connect(source, &QTcpSocket::readyRead, this, &DelayedPipe::readSource);
    // Room in the sink lets a held-back source go on.
    connect(sink, &QTcpSocket::bytesWritten, this, &DelayedPipe::readSource);
}

void DelayedPipe::sinkReady()
{
    sinkWritable = true;
    arm();
}

void DelayedPipe::readSource()
{
    if (ended || closedSink || queued + sink->bytesToWrite() >= backlogLimit)
        return;
    const QByteArray data = source->readAll();
    if (data.isEmpty())
        return;
    queued += data.size();
    chunks.push_back({ data, clock.nsecsElapsed() + delayNs, false });
    emit arrived();
    arm();
}

void DelayedPipe::sourceEnded()
{
    if (ended || closedSink)
        return;
    // The last bytes go through whatever the backlog: nothing else will
    // read them.
    const QByteArray data = source->isOpen() ? source->readAll() : QByteArray();
    const qint64 due = clock.nsecsElapsed() + delayNs;
    if (!data.isEmpty()) {
        queued += data.size();
        chunks.push_back({ data, due, false });
        emit arrived();
    }
    ended = true;
    chunks.push_back({ QByteArray(), due, true });
    arm();
}

void DelayedPipe::sinkGone()
{
    if (closedSink)
        return;
    closedSink = true;
    chunks.clear();
    queued = 0;
    timer.stop();
    emit done();
}

void DelayedPipe::arm()
{
    if (chunks.empty() || !sinkWritable || closedSink)
        return;
    const qint64 waitNs = chunks.front().dueNs - clock.nsecsElapsed() - earlyNs;
    // Rounded up: a chunk never leaves before its time.
    const int waitMs = waitNs > 0 ? int((waitNs + 999999) / 1000000) : 0;
    if (!timer.isActive() || timer.remainingTime() > waitMs)
        timer.start(waitMs);
}

void DelayedPipe::deliver()
{
    const qint64 now = clock.nsecsElapsed();
    while (!chunks.empty() && chunks.front().dueNs <= now + earlyNs) {
        Chunk &chunk = chunks.front();
        if (chunk.end) {
            // Qt writes what it still buffers before it closes.
            closedSink = true;
            chunks.clear();
            sink->disconnectFromHost();
            emit done();
            return;
        }
        sink->write(chunk.bytes);
        *bytes += chunk.bytes.size();
        queued -= chunk.bytes.size();
        chunks.pop_front();
    }
    arm();
    if (source->bytesAvailable() > 0)
        readSource();
}

} // namespace delayproxy

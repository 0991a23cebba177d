// SPDX-License-Identifier: Apache-2.0
#ifndef DELAYPROXY_DELAYEDPIPE_H
#define DELAYPROXY_DELAYEDPIPE_H

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <atomic>
#include <deque>

class QTcpSocket;

namespace delayproxy {

/*
 * One direction of a proxied connection: what `source` sends is written to
 * `sink` `delayMs` after it arrived, chunk by chunk in arrival order, so the
 * byte stream is the same and only shifted in time (chunks that arrive close
 * together leave close together, as on a long line, rather than queuing
 * behind each other's delay). The source's end travels the same way: it
 * closes the sink once everything before it was written.
 */
class DelayedPipe : public QObject
{
    Q_OBJECT
public:
    DelayedPipe(QTcpSocket *source, QTcpSocket *sink, int delayMs, std::atomic<qint64> *bytes,
                QObject *parent);

    // Bytes read from the source and not yet handed to the sink's socket.
    qint64 queuedBytes() const { return queued; }
    // Whether the source's end has been passed on and the sink closed.
    bool finished() const { return closedSink; }
    // The sink can take bytes from now on (after its connection is made).
    void sinkReady();
    // The sink's peer went away: what waits for it is dropped.
    void sinkGone();

signals:
    // Bytes arrived from the source (the link counts the turns).
    void arrived();
    void done();

public slots:
    // Reads what the source has, unless the sink is too far behind.
    void readSource();
    // The source has ended: what was read still goes through, then the end.
    void sourceEnded();

private:
    void deliver();
    void arm();

    struct Chunk
    {
        QByteArray bytes;
        qint64 dueNs;
        bool end; // the source's end, after the bytes before it
    };

    QTcpSocket *const source;
    QTcpSocket *const sink;
    const qint64 delayNs;
    std::atomic<qint64> *const bytes;
    std::deque<Chunk> chunks;
    qint64 queued = 0;
    bool sinkWritable = false;
    bool ended = false;
    bool closedSink = false;
    QTimer timer;
    QElapsedTimer clock;
};

} // namespace delayproxy

#endif // DELAYPROXY_DELAYEDPIPE_H

// SPDX-License-Identifier: Apache-2.0
#include "directwriter.h"

#include "nuvmutex.h"

#include <QTcpSocket>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace stomp {

namespace {

qint64 nowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

DirectWriter::~DirectWriter()
{
    nuv::MutexLocker locker(&lock);
    closeDescriptor();
}

void DirectWriter::attach(QTcpSocket *socket, const void *connection)
{
    nuv::MutexLocker locker(&lock);
    closeDescriptor();
    descriptor = ::fcntl(int(socket->socketDescriptor()), F_DUPFD_CLOEXEC, 0);
    owner = connection;
}

void DirectWriter::detach()
{
    nuv::MutexLocker locker(&lock);
    closeDescriptor();
}

void DirectWriter::reset()
{
    nuv::MutexLocker locker(&lock);
    closeDescriptor();
    owner = nullptr;
    socketBuffered = false;
    pending.clear();
}

void DirectWriter::closeDescriptor()
{
    if (descriptor >= 0)
        ::close(descriptor);
    descriptor = -1;
}

DirectWriter::Outcome DirectWriter::submit(const void *target, const QByteArray &head,
                                           const QByteArray &body, QString *error)
{
    nuv::MutexLocker locker(&lock);
    if (descriptor < 0 || owner != target || postedSends > 0 || socketBuffered
        || !pending.isEmpty()) {
        ++postedSends;
        return Outcome::Post;
    }
    static const char nul = '\0';
    const std::pair<const char *, qint64> parts[3]
        = { { head.constData(), head.size() }, { body.constData(), body.size() }, { &nul, 1 } };
    const qint64 total = head.size() + body.size() + 1;
    qint64 done = 0;
    int failure = 0;
    while (done < total) {
        iovec vectors[3];
        int count = 0;
        qint64 skip = done;
        for (const auto &[data, size] : parts) {
            if (skip >= size) {
                skip -= size;
                continue;
            }
            vectors[count].iov_base = const_cast<char *>(data + skip);
            vectors[count].iov_len = size_t(size - skip);
            ++count;
            skip = 0;
        }
        msghdr message {};
        message.msg_iov = vectors;
        message.msg_iovlen = size_t(count);
        const ssize_t written = ::sendmsg(descriptor, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (written >= 0) {
            done += written;
        } else if (errno != EINTR) {
            failure = errno;
            break;
        }
    }
    if (done > 0)
        markWritten();
    if (done == total)
        return Outcome::Written;
    if (failure != EAGAIN && failure != EWOULDBLOCK) {
        closeDescriptor();
        if (error)
            *error = QString::fromLocal8Bit(std::strerror(failure));
        return Outcome::Failed;
    }
    // The socket's buffer is full: the I/O thread writes the rest as the
    // broker reads, before anything else.
    for (const auto &[data, size] : parts) {
        if (done >= size) {
            done -= size;
            continue;
        }
        pending.append(data + done, int(size - done));
        done = 0;
    }
    return Outcome::Partial;
}

void DirectWriter::writePosted(QTcpSocket *socket, bool stillOpen, const QByteArray &head,
                               const QByteArray &body)
{
    nuv::MutexLocker locker(&lock);
    --postedSends;
    if (!stillOpen || !socket)
        return;
    writeLocked(socket, head);
    if (!body.isEmpty())
        writeLocked(socket, body);
    writeLocked(socket, QByteArray(1, '\0'));
}

void DirectWriter::flush(QTcpSocket *socket)
{
    nuv::MutexLocker locker(&lock);
    if (!socket || pending.isEmpty())
        return;
    writeLocked(socket, QByteArray());
}

void DirectWriter::write(QTcpSocket *socket, const QByteArray &bytes, bool thenDetach)
{
    nuv::MutexLocker locker(&lock);
    if (thenDetach)
        closeDescriptor();
    writeLocked(socket, bytes);
}

void DirectWriter::writeLocked(QTcpSocket *socket, const QByteArray &bytes)
{
    if (!pending.isEmpty()) {
        socket->write(pending);
        pending.clear();
    }
    if (!bytes.isEmpty())
        socket->write(bytes);
    socketBuffered = true;
    markWritten();
}

void DirectWriter::socketWrote(QTcpSocket *socket)
{
    markWritten();
    if (socket && socket->bytesToWrite() == 0) {
        nuv::MutexLocker locker(&lock);
        if (pending.isEmpty())
            socketBuffered = false;
    }
}

void DirectWriter::markWritten()
{
    lastWriteAt.store(nowMs(), std::memory_order_relaxed);
}

qint64 DirectWriter::msSinceWrite() const
{
    return nowMs() - lastWriteAt.load(std::memory_order_relaxed);
}

} // namespace stomp

// SPDX-License-Identifier: Apache-2.0
#include "connectionstate.h"

#include "nuvmutex.h"

#include <QRandomGenerator>

namespace stomp {

namespace {
constexpr int sessionTokenBytes = 16;
}

QByteArray newSessionToken()
{
    quint32 words[sessionTokenBytes / 4];
    QRandomGenerator::system()->fillRange(words);
    return QByteArray(reinterpret_cast<const char *>(words), sizeof(words)).toHex();
}

bool isSessionToken(const QByteArray &text)
{
    if (text.size() != 2 * sessionTokenBytes)
        return false;
    for (const char c : text) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
            return false;
    }
    return true;
}

ConnectionState::ConnectionState(const BrokerAddress &address, const QByteArray &token,
                                 int unsolicitedLimit)
    : address(address)
    , token(token)
    , unsolicitedLimit(qMax(1, unsolicitedLimit))
{ }

ConnectionState::Phase ConnectionState::phase() const
{
    nuv::MutexLocker locker(&mutex);
    return current;
}

QString ConnectionState::closeReason() const
{
    nuv::MutexLocker locker(&mutex);
    return reason;
}

void ConnectionState::opened()
{
    nuv::MutexLocker locker(&mutex);
    if (current == Phase::Connecting)
        current = Phase::Open;
    changed.wakeAll();
}

void ConnectionState::closing()
{
    nuv::MutexLocker locker(&mutex);
    if (current == Phase::Open)
        current = Phase::Closing;
}

bool ConnectionState::closed(const QString &why)
{
    nuv::MutexLocker locker(&mutex);
    if (current == Phase::Closed)
        return false;
    const bool lost = current == Phase::Open;
    current = Phase::Closed;
    reason = why;
    for (Slot &slot : calls) {
        if (slot.state == Outcome::TimedOut) {
            slot.state = Outcome::Failed;
            slot.error = why;
        }
    }
    for (Slot &slot : receipts) {
        if (slot.state == Outcome::TimedOut) {
            slot.state = Outcome::Failed;
            slot.error = why;
        }
    }
    changed.wakeAll();
    return lost;
}

ConnectionState::Phase ConnectionState::awaitSettled(QDeadlineTimer deadline)
{
    nuv::MutexLocker locker(&mutex);
    while (current == Phase::Connecting) {
        if (!mutex.wait(changed, deadline))
            break;
    }
    return current;
}

bool ConnectionState::usable(QString *whyNot) const
{
    if (current == Phase::Open)
        return true;
    *whyNot = reason.isEmpty()
        ? QStringLiteral("Not connected to the message broker at %1.").arg(address.label())
        : reason;
    return false;
}

bool ConnectionState::beginCall(const QByteArray &correlationId, const QByteArray &receiptId,
                                QString *whyNot)
{
    nuv::MutexLocker locker(&mutex);
    if (!usable(whyNot))
        return false;
    Slot slot;
    slot.receiptId = receiptId;
    calls.insert(correlationId, slot);
    callReceipts.insert(receiptId, correlationId);
    return true;
}

std::optional<ConnectionState::Slot> ConnectionState::takeSettled(QHash<QByteArray, Slot> &table,
                                                                  const QByteArray &key,
                                                                  QDeadlineTimer deadline)
{
    auto slot = table.find(key);
    while (slot != table.end() && slot->state == Outcome::TimedOut) {
        if (!mutex.wait(changed, deadline))
            break;
        slot = table.find(key);
    }
    if (slot == table.end())
        return std::nullopt;
    const Slot done = *slot;
    table.erase(slot);
    return done;
}

ConnectionState::Outcome ConnectionState::awaitCall(const QByteArray &correlationId,
                                                    QDeadlineTimer deadline, Frame *reply,
                                                    QString *error)
{
    nuv::MutexLocker locker(&mutex);
    const std::optional<Slot> taken = takeSettled(calls, correlationId, deadline);
    if (!taken)
        return Outcome::Failed;
    const Slot &done = *taken;
    callReceipts.remove(done.receiptId);
    if (done.state == Outcome::Done)
        *reply = done.frame;
    else if (done.state == Outcome::Failed)
        *error = done.error;
    return done.state;
}

bool ConnectionState::deliverReply(const QByteArray &correlationId, const Frame &reply)
{
    {
        nuv::MutexLocker locker(&mutex);
        auto slot = calls.find(correlationId);
        if (slot == calls.end() || slot->state != Outcome::TimedOut) {
            ++dropped;
            return false;
        }
        slot->state = Outcome::Done;
        slot->frame = reply;
    }
    // Woken inside the lock, the caller would at once block on it again and
    // need a second wake-up; a waiter checks its slot under the lock, so the
    // wake-up cannot get lost in between.
    changed.wakeAll();
    return true;
}

qint64 ConnectionState::droppedReplies() const
{
    nuv::MutexLocker locker(&mutex);
    return dropped;
}

bool ConnectionState::beginReceipt(const QByteArray &receiptId, QString *whyNot)
{
    nuv::MutexLocker locker(&mutex);
    if (current != Phase::Closing && !usable(whyNot))
        return false;
    receipts.insert(receiptId, Slot());
    return true;
}

ConnectionState::Outcome ConnectionState::awaitReceipt(const QByteArray &receiptId,
                                                       QDeadlineTimer deadline, QString *error)
{
    nuv::MutexLocker locker(&mutex);
    const std::optional<Slot> taken = takeSettled(receipts, receiptId, deadline);
    if (!taken)
        return Outcome::Failed;
    const Slot &done = *taken;
    if (done.state == Outcome::Failed)
        *error = done.error;
    return done.state;
}

void ConnectionState::receiptArrived(const QByteArray &receiptId)
{
    {
        nuv::MutexLocker locker(&mutex);
        // A call's receipt only says the broker took the request; the call
        // goes on waiting for its reply.
        if (callReceipts.remove(receiptId) > 0)
            return;
        auto slot = receipts.find(receiptId);
        if (slot == receipts.end() || slot->state != Outcome::TimedOut)
            return;
        slot->state = Outcome::Done;
    }
    changed.wakeAll(); // outside the lock, as in deliverReply()
}

bool ConnectionState::receiptFailed(const QByteArray &receiptId, const QString &text)
{
    nuv::MutexLocker locker(&mutex);
    const QByteArray correlationId = callReceipts.take(receiptId);
    if (!correlationId.isEmpty()) {
        auto call = calls.find(correlationId);
        if (call != calls.end() && call->state == Outcome::TimedOut) {
            call->state = Outcome::Failed;
            call->error = text;
            changed.wakeAll();
        }
        return true;
    }
    auto slot = receipts.find(receiptId);
    if (slot == receipts.end())
        return false;
    if (slot->state == Outcome::TimedOut) {
        slot->state = Outcome::Failed;
        slot->error = text;
        changed.wakeAll();
    }
    return true;
}

void ConnectionState::pushUnsolicited(const Frame &message)
{
    nuv::MutexLocker locker(&mutex);
    if (unsolicited.size() >= unsolicitedLimit) {
        unsolicited.dequeue();
        if (unsolicitedDropped++ == 0)
            qWarning("nuvactivemqclient: more than %d messages wait to be received; the oldest "
                     "are dropped from now on",
                     unsolicitedLimit);
    }
    unsolicited.enqueue(message);
    changed.wakeAll();
}

qint64 ConnectionState::droppedUnsolicited() const
{
    nuv::MutexLocker locker(&mutex);
    return unsolicitedDropped;
}

ConnectionState::Outcome ConnectionState::awaitUnsolicited(QDeadlineTimer deadline, Frame *message,
                                                           QString *error)
{
    nuv::MutexLocker locker(&mutex);
    for (;;) {
        if (!unsolicited.isEmpty()) {
            *message = unsolicited.dequeue();
            return Outcome::Done;
        }
        if (current == Phase::Closed || current == Phase::Closing) {
            usable(error);
            return Outcome::Failed;
        }
        if (!mutex.wait(changed, deadline))
            return Outcome::TimedOut;
    }
}

} // namespace stomp

// SPDX-License-Identifier: Apache-2.0
#ifndef STOMP_CONNECTIONSTATE_H
#define STOMP_CONNECTIONSTATE_H

#include "brokerconfig.h"
#include "nuvmutex.h"
#include "stompframe.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QHash>
#include <QQueue>
#include <QString>
#include <QWaitCondition>

#include <optional>

namespace stomp {

// A fresh session token: 128 random bits as 32 lower-case hexadecimal
// digits. A server accepts no other form.
QByteArray newSessionToken();
bool isSessionToken(const QByteArray &text);

/*
 * The state of one broker connection that the I/O thread and the calling
 * threads share: its phase, the calls waiting for a reply, the receipts
 * being waited for and the messages nobody asked for.
 *
 * Callers block in the await functions on one wait condition; the I/O thread
 * fills in results and wakes them. Closing the connection fails every waiter at
 * once with the reason, so nobody sits out a time-out on a dead connection.
 */
class ConnectionState
{
public:
    enum class Phase { Connecting, Open, Closing, Closed };
    enum class Outcome { Done, Failed, TimedOut };

    // Messages nobody asked for are kept up to `unsolicitedLimit`; beyond
    // it the oldest go, so a subscriber that never receives cannot grow
    // without bound.
    ConnectionState(const BrokerAddress &address, const QByteArray &token,
                    int unsolicitedLimit = 10000);

    const BrokerAddress address;
    // The random value that identifies this connection to the server.
    const QByteArray token;

    Phase phase() const;
    // Why the session closed (or failed to open); empty while it is usable.
    QString closeReason() const;

    // I/O thread: the handshake finished, or the application began to close.
    void opened();
    void closing();
    // I/O thread: the connection is gone. The first reason sticks. Returns
    // true when this ended an open session (not a connect attempt or a
    // requested close), which is what counts as a lost connection.
    bool closed(const QString &reason);

    // Waits until the session is no longer connecting.
    Phase awaitSettled(QDeadlineTimer deadline);

    // A request that waits for the reply carrying `correlationId`; a broker
    // ERROR naming `receiptId` fails it.
    bool beginCall(const QByteArray &correlationId, const QByteArray &receiptId, QString *whyNot);
    // Ends the call whatever the outcome: a reply that arrives later is
    // dropped and counted.
    Outcome awaitCall(const QByteArray &correlationId, QDeadlineTimer deadline, Frame *reply,
                      QString *error);
    // I/O thread: false when nobody waits for that correlation id.
    bool deliverReply(const QByteArray &correlationId, const Frame &reply);
    qint64 droppedReplies() const;

    bool beginReceipt(const QByteArray &receiptId, QString *whyNot);
    Outcome awaitReceipt(const QByteArray &receiptId, QDeadlineTimer deadline, QString *error);
    // I/O thread: a RECEIPT frame, or an ERROR frame with a receipt-id.
    void receiptArrived(const QByteArray &receiptId);
    bool receiptFailed(const QByteArray &receiptId, const QString &text);

    // Messages that answer no call of ours: broadcasts on subscribed topics
    // and messages on the reply queue without a correlation id.
    void pushUnsolicited(const Frame &message);
    qint64 droppedUnsolicited() const;
    Outcome awaitUnsolicited(QDeadlineTimer deadline, Frame *message, QString *error);

private:
    struct Slot
    {
        Outcome state = Outcome::TimedOut; // TimedOut here means "still waiting"
        Frame frame;
        QString error;
        QByteArray receiptId; // a call's request receipt, while it is awaited
    };

    bool usable(QString *whyNot) const NUV_REQUIRES(mutex);
    // Waits until the slot under `key` in `table` is settled or `deadline`
    // passes, then takes it out (a slot still waiting says TimedOut);
    // nothing when there is no such slot.
    std::optional<Slot> takeSettled(QHash<QByteArray, Slot> &table, const QByteArray &key,
                                    QDeadlineTimer deadline) NUV_REQUIRES(mutex);

    mutable nuv::Mutex mutex;
    QWaitCondition changed;
    Phase current NUV_GUARDED_BY(mutex) = Phase::Connecting;
    QString reason NUV_GUARDED_BY(mutex);
    QHash<QByteArray, Slot> calls NUV_GUARDED_BY(mutex); // by correlation id
    // receipt id -> correlation id
    QHash<QByteArray, QByteArray> callReceipts NUV_GUARDED_BY(mutex);
    // receipts awaited for their own sake
    QHash<QByteArray, Slot> receipts NUV_GUARDED_BY(mutex);
    QQueue<Frame> unsolicited NUV_GUARDED_BY(mutex);
    qint64 dropped NUV_GUARDED_BY(mutex) = 0;
    const int unsolicitedLimit;
    qint64 unsolicitedDropped NUV_GUARDED_BY(mutex) = 0;
};

} // namespace stomp

#endif // STOMP_CONNECTIONSTATE_H

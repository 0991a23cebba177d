// SPDX-License-Identifier: Apache-2.0
#ifndef LOCKPROBE_H
#define LOCKPROBE_H

/*
 * Which operations take the client's operation lock. An operation that holds
 * the lock emits serverRequest; a slot connected directly runs on that thread
 * while the lock is taken, and calls the operation under test there or from
 * another thread.
 */

#include "commandkit.h"

#include <QMutex>

#include <thread>

namespace commandkit {

// The last error of a locking operation called from a slot connected
// directly to serverRequest, which runs under the client's own lock.
inline const QString refusedUnderLock = QStringLiteral(
    "called from a slot connected directly to serverRequest while the client's lock is held; "
    "connect with Qt::QueuedConnection");

// Calls a function for every serverRequest a client emits, on the emitting
// thread. It answers the meta-object call itself, as QSignalSpy does, since
// this header is not run through moc.
class RequestRelay : public QObject
{
public:
    RequestRelay(QObject *client, std::function<void(const QString &)> onRequest)
        : onRequest(std::move(onRequest))
    {
        const int signal = client->metaObject()->indexOfSignal("serverRequest(QString)");
        connection = QMetaObject::connect(
            client, signal, this, QObject::staticMetaObject.methodCount(), Qt::DirectConnection);
    }
    bool isConnected() const { return bool(connection); }
    int qt_metacall(QMetaObject::Call call, int id, void **arguments) override
    {
        id = QObject::qt_metacall(call, id, arguments);
        if (id < 0 || call != QMetaObject::InvokeMetaMethod)
            return id;
        if (id == 0)
            onRequest(*static_cast<const QString *>(arguments[1]));
        return id - 1;
    }

private:
    std::function<void(const QString &)> onRequest;
    QMetaObject::Connection connection;
};

// The operation that holds the lock: the command it sends, the reply to its
// first exchange, which makes it emit `request` while it holds the lock, and
// what the call then gives back.
struct LockHolder
{
    QString command;
    nuvMQClassifyMessage firstReply;
    QString request;
    Call call;
    Outcome gives;
};

// getBemerkungen, asked for a reload.
inline LockHolder getBemerkungenHolds()
{
    return { QStringLiteral("CFBEMERK"),
             Reply(QStringLiteral("OK")).dataList({ QStringLiteral("held") }).updateRequested(),
             QStringLiteral("DORELOADALL"),
             returning([](ClassifyInterface *c) { return c->getBemerkungen(); }),
             { QStringList { QStringLiteral("held") } } };
}

// checkUpdate, told of an update.
inline LockHolder checkUpdateHolds()
{
    return { QStringLiteral("CFUPDATES"),
             Reply(QStringLiteral("OK")).dataList({ QStringLiteral("wake up") }),
             QStringLiteral("wake up"),
             returningNothing([](ClassifyInterface *c) { c->checkUpdate(); }),
             {} };
}

// A scripted server for the lock checks, answering from any thread: the
// holder's first exchange gets its first reply, everything else the rich "OK"
// reply. It notes each command, and whatever the test adds, in order.
class LockProbe
{
public:
    explicit LockProbe(const LockHolder &holder)
    {
        scripted()->setResponder([this, holder](const nuvMQClassifyMessage &request) {
            QMutexLocker locker(&lock);
            events << request.command;
            if (request.command == holder.command && !holderAnswered) {
                holderAnswered = true;
                return holder.firstReply;
            }
            return richReply(QStringLiteral("OK"));
        });
    }
    ~LockProbe() { scripted()->setResponder(nullptr); }
    void note(const QString &event)
    {
        QMutexLocker locker(&lock);
        events << event;
    }
    QStringList noted() const
    {
        QMutexLocker locker(&lock);
        return events;
    }

private:
    mutable QMutex lock;
    QStringList events;
    bool holderAnswered = false;
};

inline void addLockingRows(const QList<Operation> &catalogue, bool locked)
{
    QTest::addColumn<Operation>("op");
    for (const Operation &op : catalogue) {
        if (op.locked == locked)
            QTest::newRow(qPrintable(op.name)) << op;
    }
}

// An operation that takes no lock completes from a slot that runs while the
// holder has it, and leaves the last error alone. One that took the lock
// would wait for its own thread, and the test would never end.
inline void checkUnlockedOperationRow(const LockHolder &holder)
{
    QFETCH(Operation, op);
    ClientPtr client = clientWithEarlierError();
    LockProbe probe(holder);
    int calls = 0;
    Outcome got;
    RequestRelay relay(client.get(), [&](const QString &request) {
        if (request != holder.request)
            return;
        ++calls;
        got = op.call(client.get());
        probe.note(QStringLiteral("slot returns"));
    });
    QVERIFY(relay.isConnected());

    QCOMPARE(render(holder.call(client.get())), render(holder.gives));
    QCOMPARE(calls, 1);
    QCOMPARE(render(got), render(op.passed));
    QVERIFY(sameOutcome(got, op.passed));
    QCOMPARE(probe.noted(), QStringList({ holder.command, op.request.command, "slot returns" }));
    QCOMPARE(client->errorString(), earlierError);
}

// While the slot runs under the holder's lock, another thread starts the
// operation: its request may reach the server only after the slot returned
// and the lock was let go. The pause only gives an operation that wrongly
// skips the lock the time to overtake; a correct one waits however long the
// pause is, so the outcome never depends on timing.
inline void checkLockedOperationRow(const LockHolder &holder)
{
    QFETCH(Operation, op);
    ClientPtr client = clientWithEarlierError();
    LockProbe probe(holder);
    std::thread other;
    Outcome got;
    RequestRelay relay(client.get(), [&](const QString &request) {
        if (request != holder.request)
            return;
        other = std::thread([&] { got = op.call(client.get()); });
        QThread::msleep(20);
        probe.note(QStringLiteral("slot returns"));
    });
    QVERIFY(relay.isConnected());

    QCOMPARE(render(holder.call(client.get())), render(holder.gives));
    QVERIFY(other.joinable());
    other.join();
    QCOMPARE(render(got), render(op.passed));
    QVERIFY(sameOutcome(got, op.passed));
    QCOMPARE(probe.noted(), QStringList({ holder.command, "slot returns", op.request.command }));
    QCOMPARE(client->errorString(), earlierError);
}

} // namespace commandkit

#endif // LOCKPROBE_H

// Which server, session, administration, user, role and rights operations
// take the client's operation lock. checkUpdate emits serverRequest while it
// holds that lock, so a slot connected directly sees the lock taken.

#include "admincatalogue.h"

#include <QMutex>

#include <thread>

using namespace admintests;

// Runs a function for every serverRequest that a client emits, on the
// emitting thread.
class RequestRelay : public QObject
{
    Q_OBJECT

public:
    explicit RequestRelay(QObject *client, std::function<void(const QString &)> onRequest)
        : onRequest(std::move(onRequest))
    {
        connect(client, SIGNAL(serverRequest(QString)), this, SLOT(relay(QString)),
                Qt::DirectConnection);
    }

public Q_SLOTS:
    void relay(const QString &request) { onRequest(request); }

private:
    std::function<void(const QString &)> onRequest;
};

namespace {

// The request that the scripted server puts in the first "CFUPDATES" reply;
// every later exchange is answered with fullReply("OK").
const QString wakeUp = QStringLiteral("wake up");

// Answers every exchange, from any thread, and notes each command in order.
class ScriptedServer
{
public:
    ScriptedServer()
    {
        scripted()->setResponder([this](const nuvMQClassifyMessage &request) {
            note(request.command);
            QMutexLocker locker(&lock);
            if (request.command == QLatin1String("CFUPDATES") && !wokenUp) {
                wokenUp = true;
                return nuvMQClassifyMessage(Reply("OK").dataList({ wakeUp }));
            }
            return fullReply("OK");
        });
    }
    ~ScriptedServer() { scripted()->setResponder(nullptr); }

    void note(const QString &event)
    {
        QMutexLocker locker(&lock);
        noted << event;
    }
    QStringList events() const
    {
        QMutexLocker locker(&lock);
        return noted;
    }

private:
    mutable QMutex lock;
    QStringList noted;
    bool wokenUp = false;
};

} // namespace

class AdminLockingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void unlockedOperationFromServerRequestSlot_data();
    void unlockedOperationFromServerRequestSlot();
    void lockedOperationWaitsForCheckUpdate_data();
    void lockedOperationWaitsForCheckUpdate();

private:
    static void addOperationRows(bool locked);
};

void AdminLockingTest::addOperationRows(bool locked)
{
    QTest::addColumn<AdminOperation>("op");
    for (const AdminOperation &op : adminOperations()) {
        if (op.locked == locked)
            QTest::newRow(qPrintable(op.name)) << op;
    }
}

// A locking operation here would wait on the lock its own thread holds, and
// the test would never end.
void AdminLockingTest::unlockedOperationFromServerRequestSlot_data()
{
    addOperationRows(false);
}

void AdminLockingTest::unlockedOperationFromServerRequestSlot()
{
    QFETCH(AdminOperation, op);
    ClientPtr client = clientWithEarlierError();
    ScriptedServer server;
    int calls = 0;
    Outcome got;
    RequestRelay relay(client.get(), [&](const QString &request) {
        if (request != wakeUp)
            return;
        ++calls;
        got = op.call(client.get());
        server.note("slot returns");
    });

    client->checkUpdate();

    QCOMPARE(calls, 1);
    QVERIFY2(sameOutcome(got, op.passed), qPrintable(describe(got)));
    QCOMPARE(server.events(), QStringList({ "CFUPDATES", op.request.command, "slot returns" }));
    QCOMPARE(client->errorString(), earlierError());
}

void AdminLockingTest::lockedOperationWaitsForCheckUpdate_data()
{
    addOperationRows(true);
}

// While a slot runs inside checkUpdate, another thread starts a locking
// operation: its request may reach the server only after checkUpdate has
// let go of the lock. The pause in the slot only gives an operation that
// wrongly skips the lock the time to overtake; a correct one waits however
// long the pause is.
void AdminLockingTest::lockedOperationWaitsForCheckUpdate()
{
    QFETCH(AdminOperation, op);
    ClientPtr client = clientWithEarlierError();
    ScriptedServer server;
    std::thread other;
    Outcome got;
    RequestRelay relay(client.get(), [&](const QString &request) {
        if (request != wakeUp)
            return;
        other = std::thread([&] { got = op.call(client.get()); });
        QThread::msleep(20);
        server.note("slot returns");
    });

    client->checkUpdate();
    QVERIFY(other.joinable());
    other.join();

    QVERIFY2(sameOutcome(got, op.passed), qPrintable(describe(got)));
    QCOMPARE(server.events(), QStringList({ "CFUPDATES", "slot returns", op.request.command }));
}

QTEST_GUILESS_MAIN(AdminLockingTest)
#include "tst_adminlocking.moc"

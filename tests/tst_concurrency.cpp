// SPDX-License-Identifier: Apache-2.0
// One client used from several threads at once, and operations called back
// from a directly connected serverRequest slot while the operation lock is
// held. A lock taken where it must not be shows as a hang.

#include "lockprobe.h"
#include "testsupport.h"

#include <QtTest>

#include <atomic>
#include <thread>

using namespace testsupport;
using commandkit::refusedUnderLock;

namespace {

// Answers every request with what it carried, so that each caller can tell
// its own answer from another's. A docId starting "fail" is refused with the
// docId as error text; a docId ending in '0' asks for a reload.
nuvMQClassifyMessage echo(const nuvMQClassifyMessage &request)
{
    nuvMQClassifyMessage copy(request);
    const QString id = copy.getDocId();
    const QString token = id.isEmpty() ? copy.getDataList().value(0) : id;
    nuvMQClassifyMessage reply
        = Reply(id.startsWith(QLatin1String("fail")) ? "ERROR" : "OK")
              .error(id)
              .docId(id)
              .dataList(QStringList { copy.command } + copy.getDataList() + QStringList { id })
              .data(copy.getData() + QList<QByteArray> { id.toUtf8() })
              .updateRequested(token.endsWith(QLatin1Char('0')))
              .updateString(token);
    return reply;
}

constexpr int threadCount = 4;
constexpr int callsPerThread = 60;
constexpr int kinds = 6;

QString tokenFor(int thread, int call)
{
    return QStringLiteral("t%1-%2").arg(thread).arg(call);
}

// One call of kind `call % kinds`; returns what went wrong, or nothing.
QString callOnce(ClassifyInterface *client, int thread, int call)
{
    const QString t = tokenFor(thread, call);
    const auto mismatch
        = [&](const char *what) { return QStringLiteral("%1: %2").arg(t, QLatin1String(what)); };
    switch (call % kinds) {
    case 0: // locked, docId
        if (client->getRoleUsers(t) != QStringList { "CFDOCGETROLEUSERS", t })
            return mismatch("getRoleUsers");
        break;
    case 1: // locked, dataList
        if (client->getRoles(t) != QStringList { "CFPARENTROLES", t, "" })
            return mismatch("getRoles");
        break;
    case 2: // unlocked, data
        if (client->getScanInputProcessImage(t) != QList<QByteArray> { t.toUtf8() })
            return mismatch("getScanInputProcessImage");
        break;
    case 3: { // unlocked, everything through out-parameters
        QList<QByteArray> data;
        QStringList strings;
        QString error = QStringLiteral("stale");
        const QByteArray argument = "arg-" + t.toUtf8();
        if (!client->doLdapCommand(t, { argument }, data, strings, error)
            || data != QList<QByteArray> { argument, t.toUtf8() }
            || strings != QStringList { "CFLDAPCOMMAND", t } || !error.isEmpty())
            return mismatch("doLdapCommand");
        break;
    }
    case 4: // locked, writes the current archive
        if (!client->setCurrentArchive(t))
            return mismatch("setCurrentArchive");
        client->getCurrentArchive();
        break;
    case 5: // locked, refused: writes the last error
        if (!client->getRoleUsers(QStringLiteral("fail-") + t).isEmpty())
            return mismatch("refused getRoleUsers");
        if (!client->errorString().startsWith(QLatin1String("fail-t")))
            return mismatch("errorString");
        break;
    }
    return QString();
}

// What the request of a token must look like on the wire; empty if intact.
QString checkRequest(nuvMQClassifyMessage request, const QString &token, int kind)
{
    QString id = token;
    QString command;
    QStringList dataList;
    QList<QByteArray> data;
    switch (kind) {
    case 0:
        command = "CFDOCGETROLEUSERS";
        break;
    case 1:
        command = "CFPARENTROLES";
        id.clear();
        dataList = QStringList { token };
        break;
    case 2:
        command = "CFGETSCANINPUTIMAGE";
        break;
    case 3:
        command = "CFLDAPCOMMAND";
        data = { "arg-" + token.toUtf8() };
        break;
    case 4:
        command = "CFSELARCHIVE";
        break;
    case 5:
        command = "CFDOCGETROLEUSERS";
        id = QStringLiteral("fail-") + token;
        break;
    }
    if (request.command != command || request.getDocId() != id || request.getDataList() != dataList
        || request.getData() != data || !request.getAvailablePlugins().isEmpty())
        return QStringLiteral("request of %1 is not intact").arg(token);
    return QString();
}

} // namespace

// Counts reload requests from any thread.
class ReloadCounter : public QObject
{
    Q_OBJECT

public:
    std::atomic<int> reloads { 0 };

public Q_SLOTS:
    void onServerRequest(const QString &request)
    {
        if (request == QLatin1String("DORELOADALL"))
            ++reloads;
    }
};

using Call = std::function<void(ClassifyInterface *)>;
Q_DECLARE_METATYPE(Call)
// An operation and how it went: "refused" when it reported failure.
using Inner = std::function<QString(ClassifyInterface *)>;
Q_DECLARE_METATYPE(Inner)

// Runs `call` on the client from inside the first signal connected to run().
class ReentrantReceiver : public QObject
{
    Q_OBJECT

public:
    ReentrantReceiver(ClassifyInterface *client, Call call)
        : client(client)
        , call(std::move(call))
    { }
    bool called = false;

public Q_SLOTS:
    void run()
    {
        if (called)
            return;
        called = true;
        call(client);
    }

private:
    ClassifyInterface *client;
    Call call;
};

class ConcurrencyTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parallelCallers();
    void slotMayCallUnlockedOperation_data();
    void slotMayCallUnlockedOperation();
    void slotDuringOtherLockedOperations_data();
    void slotDuringOtherLockedOperations();
    void connectionLostInsideTransportCall_data();
    void connectionLostInsideTransportCall();
    void lockingOperationFromSlotIsRefused_data();
    void lockingOperationFromSlotIsRefused();
    void otherThreadWaitsWhileSlotIsRefused();
};

namespace {

// The locking operations that emit serverRequest while they hold the lock.
void addLockHolderRows()
{
    QTest::addColumn<Call>("outer");
    QTest::addColumn<QString>("outerCommand");
    QTest::newRow("during login") << Call([](ClassifyInterface *c) {
        answer(Reply("OK").updateRequested());
        QVERIFY(c->connectToNuvKESP("localhost", 61613, "user", "secret"));
    }) << "CFLOGIN";
    QTest::newRow("during a reload request") << Call([](ClassifyInterface *c) {
        answer(Reply("OK").dataList({ "r1" }).updateRequested());
        QCOMPARE(c->getRoles(), QStringList { "r1" });
    }) << "CFROLES";
    QTest::newRow("during the poll for server requests") << Call([](ClassifyInterface *c) {
        answer(Reply("OK").dataList({ "SYSUPDATE", "DORELOADALL" }));
        c->checkUpdate();
    }) << "CFUPDATES";
    QTest::newRow("during the signal for a new tenant") << Call([](ClassifyInterface *c) {
        answer(Reply("OK"));
        QVERIFY(c->insertMandant("m", "n", "payload"));
    }) << "CFNEWMANDANT";
}

} // namespace

void ConcurrencyTest::parallelCallers()
{
    ClientPtr client = loggedInClient();
    scripted()->setResponder(echo);
    ReloadCounter counter;
    QVERIFY(QObject::connect(client.get(), SIGNAL(serverRequest(QString)), &counter,
                             SLOT(onServerRequest(QString)), Qt::DirectConnection));

    // Standard threads: a ThreadSanitizer build sees their join, which it
    // cannot for QThread::wait().
    std::vector<QStringList> problems(threadCount);
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&client, &problems, t] {
            for (int call = 0; call < callsPerThread; ++call) {
                const QString problem = callOnce(client.get(), t, call);
                if (!problem.isEmpty())
                    problems[t].append(problem);
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    for (const QStringList &list : problems)
        QCOMPARE(list, QStringList());

    // Every request reached the transport once, whole.
    const QList<ScriptedExchange> exchanges = scripted()->exchanges();
    QCOMPARE(exchanges.size(), threadCount * callsPerThread);
    QSet<QString> archives { QString() };
    QSet<QString> seen;
    int expectedReloads = 0;
    for (int t = 0; t < threadCount; ++t) {
        for (int call = 0; call < callsPerThread; ++call) {
            if (call % kinds == 4)
                archives.insert(tokenFor(t, call));
            if (tokenFor(t, call).endsWith(QLatin1Char('0')))
                ++expectedReloads;
        }
    }
    for (const ScriptedExchange &exchange : exchanges) {
        nuvMQClassifyMessage request = exchange.request;
        QString id = request.getDocId();
        if (id.startsWith(QLatin1String("fail-")))
            id = id.mid(5);
        const QString token = id.isEmpty() ? request.getDataList().value(0) : id;
        QVERIFY2(!seen.contains(token), qPrintable(token));
        seen.insert(token);
        const QStringList parts = token.mid(1).split(QLatin1Char('-'));
        QCOMPARE(checkRequest(request, token, parts.value(1).toInt() % kinds), QString());
        // Session values travel whole: an archive that was set, a marker
        // that a reply carried.
        QVERIFY2(archives.contains(request.getCurrentArchive()),
                 qPrintable(request.getCurrentArchive()));
        QString marker = request.getUpdateString();
        if (marker.startsWith(QLatin1String("fail-")))
            marker = marker.mid(5);
        QVERIFY2(marker.isEmpty() || seen.contains(marker), qPrintable(marker));
    }
    QCOMPARE(seen.size(), threadCount * callsPerThread);
    QCOMPARE(counter.reloads.load(), expectedReloads);
}

void ConcurrencyTest::slotMayCallUnlockedOperation_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QStringList>("transportCalls");

    const auto row = [](const char *name, Call call, const QString &command) {
        QTest::newRow(name) << call << QStringList { QStringLiteral("sendSyncMessage ") + command };
    };
    row(
        "getServerVersion", [](ClassifyInterface *c) { c->getServerVersion(); }, "CFSERVERVERSION");
    row(
        "getScanInputProcessList", [](ClassifyInterface *c) { c->getScanInputProcessList(); },
        "CFGETSCANINPUTLIST");
    row(
        "getScanInputProcessImage", [](ClassifyInterface *c) { c->getScanInputProcessImage("p"); },
        "CFGETSCANINPUTIMAGE");
    row(
        "getShares", [](ClassifyInterface *c) { c->getShares(); }, "CFGETSHARES");
    row(
        "addShare",
        [](ClassifyInterface *c) {
            c->addShare("a", { "b" }, "c", QDateTime(QDate(2030, 1, 2), QTime(3, 4, 5)), 6);
        },
        "CFADDSHARE");
    row(
        "deleteShare", [](ClassifyInterface *c) { c->deleteShare("s"); }, "CFDELSHARE");
    row(
        "updateLastModified", [](ClassifyInterface *c) { c->updateLastModified(); },
        "CFLASTUPDATE");
    row(
        "setLastModified", [](ClassifyInterface *c) { c->setLastModified(); }, "CFSETLASTMODIFIED");
    row(
        "closeSession", [](ClassifyInterface *c) { c->closeSession(); }, "CFCLOSESESSION");
    row(
        "moveDocumentsToTrash", [](ClassifyInterface *c) { c->moveDocumentsToTrash({ "1" }); },
        "CFDOCSTOTRASH");
    row(
        "removeDocumentsFromTrash",
        [](ClassifyInterface *c) { c->removeDocumentsFromTrash({ "1" }); }, "CFDOCSFROMTRASH");
    row(
        "getRoleList", [](ClassifyInterface *c) { c->getRoleList(); }, "CFSENDROLESINFO");
    row(
        "getUserRole",
        [](ClassifyInterface *c) {
            QString role;
            c->getUserRole(role);
        },
        "CFSENDUSERPRIVATEROLE");
    row(
        "doLdapCommand",
        [](ClassifyInterface *c) {
            QList<QByteArray> data;
            QStringList strings;
            QString error;
            c->doLdapCommand("x", {}, data, strings, error);
        },
        "CFLDAPCOMMAND");
    row(
        "changeExpiredPass",
        [](ClassifyInterface *c) { c->changeExpiredPass("u", "old", "new", QString(), 0); },
        "CFDOCCHANGEEXPIREDPASS");
    row(
        "from another thread while the lock is held",
        [](ClassifyInterface *c) { std::thread([c] { c->getServerVersion(); }).join(); },
        "CFSERVERVERSION");
    QTest::newRow("disconnectFromNuvKESP")
        << Call([](ClassifyInterface *c) { c->disconnectFromNuvKESP(); })
        << QStringList { "disconnectFromBroker" };
    QTest::newRow("getAuthToken") << Call([](ClassifyInterface *c) { c->getAuthToken(); })
                                  << QStringList { "getAuthToken" };
    QTest::newRow("accessors") << Call([](ClassifyInterface *c) {
        c->errorString();
        c->getCurrentArchive();
        c->getUserRoles();
        c->getPluginInfo();
    }) << QStringList();
}

void ConcurrencyTest::slotMayCallUnlockedOperation()
{
    QFETCH(Call, call);
    QFETCH(QStringList, transportCalls);
    ClientPtr client = loggedInClient();
    answer(Reply("OK").updateString("before"));
    client->getRoles();
    scripted()->clearCalls();

    ReentrantReceiver receiver(client.get(), call);
    QVERIFY(QObject::connect(client.get(), SIGNAL(serverRequest(QString)), &receiver, SLOT(run()),
                             Qt::DirectConnection));
    answer(Reply("OK").dataList({ "outer" }).updateRequested().updateString("outer marker"));
    const bool sends = transportCalls.value(0).startsWith(QLatin1String("sendSyncMessage"));
    if (sends)
        answer(Reply("OK").dataList({ "inner" }).docId("inner"));

    // The locked operation holds its lock while the slot runs.
    QCOMPARE(client->getRoles(), QStringList { "outer" });
    QVERIFY(receiver.called);
    QCOMPARE(scripted()->calls(), QStringList { "sendSyncMessage CFROLES" } + transportCalls);
    QCOMPARE(exchangeCount(), sends ? 3 : 2);
    // The marker of the reply under way is stored after the signal.
    QCOMPARE(lastRequest().getUpdateString(), QStringLiteral("before"));
    answer(Reply("OK"));
    client->getRoles();
    QCOMPARE(lastRequest().getUpdateString(), QStringLiteral("outer marker"));
}

void ConcurrencyTest::slotDuringOtherLockedOperations_data()
{
    addLockHolderRows();
}

void ConcurrencyTest::slotDuringOtherLockedOperations()
{
    QFETCH(Call, outer);
    QFETCH(QString, outerCommand);
    ClientPtr client = loggedInClient();
    ReentrantReceiver receiver(client.get(), [](ClassifyInterface *c) {
        answer(Reply("OK").docId("17.4"));
        QCOMPARE(c->getServerVersion(), QStringLiteral("17.4"));
    });
    QVERIFY(QObject::connect(client.get(), SIGNAL(serverRequest(QString)), &receiver, SLOT(run()),
                             Qt::DirectConnection));
    outer(client.get());
    QVERIFY(receiver.called);
    QCOMPARE(scripted()->calls().filter(QStringLiteral("sendSyncMessage")),
             QStringList({ QStringLiteral("sendSyncMessage ") + outerCommand,
                           QStringLiteral("sendSyncMessage CFSERVERVERSION") }));
}

void ConcurrencyTest::connectionLostInsideTransportCall_data()
{
    // What a slot on the disconnect signal tries from inside the call.
    QTest::addColumn<Inner>("inner");
    QTest::newRow("an operation without the lock") << Inner([](ClassifyInterface *c) {
        const QString version = c->getServerVersion();
        return version.isEmpty() ? QStringLiteral("refused") : version;
    });
    QTest::newRow("an operation that takes the lock") << Inner([](ClassifyInterface *c) {
        return c->getRoles().isEmpty() ? QStringLiteral("refused") : QStringLiteral("ran");
    });
    QTest::newRow("a new login") << Inner([](ClassifyInterface *c) {
        return c->connectToNuvKESP(QStringLiteral("host"), 1, QStringLiteral("u"),
                                   QStringLiteral("p"))
            ? QStringLiteral("ran")
            : QStringLiteral("refused");
    });
}

void ConcurrencyTest::connectionLostInsideTransportCall()
{
    QFETCH(Inner, inner);
    ClientPtr client = loggedInClient();
    QString innerResult = QStringLiteral("untouched");
    QString innerError;
    ReentrantReceiver receiver(client.get(), [&](ClassifyInterface *c) {
        innerResult = inner(c);
        innerError = c->errorString();
    });
    QVERIFY(QObject::connect(client.get(), SIGNAL(clientDisconnect()), &receiver, SLOT(run()),
                             Qt::DirectConnection));
    scripted()->setResponder([](const nuvMQClassifyMessage &) {
        // The broker connection drops while the answer is awaited, and the
        // transport says so on the caller's thread.
        scripted()->emitConnectionLost();
        return nuvMQClassifyMessage(Reply("OK").dataList({ "outer" }));
    });

    // The command sent from inside the transport's call is refused rather
    // than left waiting for the exchange that is under way or for the lock
    // it holds.
    QCOMPARE(client->getRoles(), QStringList { "outer" });
    QVERIFY(receiver.called);
    QCOMPARE(innerResult, QStringLiteral("refused"));
    QVERIFY2(innerError.contains(QLatin1String("within the transport's own call")),
             qPrintable(innerError));
    QCOMPARE(exchangeCount(), 1);

    // Once the call is over, commands go out again.
    scripted()->setResponder(nullptr);
    answer(Reply("OK").docId("17.4"));
    QCOMPARE(client->getServerVersion(), QStringLiteral("17.4"));
}

void ConcurrencyTest::lockingOperationFromSlotIsRefused_data()
{
    addLockHolderRows();
}

// A slot connected directly to serverRequest runs under the lock the
// emitting operation holds. A locking operation from there fails at once
// with a reason instead of waiting on its own thread; the outer operation
// then completes as usual, and the slot's unlocked calls still go out.
void ConcurrencyTest::lockingOperationFromSlotIsRefused()
{
    QFETCH(Call, outer);
    QFETCH(QString, outerCommand);
    ClientPtr client = loggedInClient();
    QStringList inner;
    ReentrantReceiver receiver(client.get(), [&inner](ClassifyInterface *c) {
        QString role = QStringLiteral("mine");
        inner << QString::number(c->getBemerkungen().size()) << c->errorString();
        inner << QString::number(c->getDocumentCount("q", false, false)) << c->errorString();
        c->checkUpdate();
        inner << c->errorString();
        inner << QString::number(c->connectToNuvKESP("h", 1, "u", "p")) << c->errorString();
        // The unlocked ones still run.
        answer(Reply("OK").docId("17.4"));
        inner << c->getServerVersion();
        answer(Reply("OK").dataList({ "private" }));
        inner << QString::number(c->getUserRole(role)) << role;
    });
    QVERIFY(QObject::connect(client.get(), SIGNAL(serverRequest(QString)), &receiver, SLOT(run()),
                             Qt::DirectConnection));
    outer(client.get());
    QVERIFY(receiver.called);
    QCOMPARE(inner,
             QStringList({ "0", refusedUnderLock, "-1", refusedUnderLock, refusedUnderLock, "0",
                           refusedUnderLock, "17.4", "1", "private" }));
    QCOMPARE(scripted()->calls().filter(QStringLiteral("sendSyncMessage")),
             QStringList({ QStringLiteral("sendSyncMessage ") + outerCommand,
                           QStringLiteral("sendSyncMessage CFSERVERVERSION"),
                           QStringLiteral("sendSyncMessage CFSENDUSERPRIVATEROLE") }));

    // Outside the slot the same operations take the lock again.
    answer(Reply("OK").dataList({ "remark" }));
    QCOMPARE(client->getBemerkungen(), QStringList { "remark" });
}

// Another thread that wants the lock while the slot runs still waits for it,
// and proceeds once the outer operation has let it go. The slot's pause only
// gives a thread that wrongly skipped the lock the time to overtake; a correct
// one waits however long it is.
void ConcurrencyTest::otherThreadWaitsWhileSlotIsRefused()
{
    ClientPtr client = loggedInClient();
    QMutex orderLock;
    QStringList order;
    const auto note = [&](const QString &event) {
        QMutexLocker locker(&orderLock);
        order << event;
    };
    scripted()->setResponder([&](const nuvMQClassifyMessage &request) {
        note(request.command);
        if (request.command == QLatin1String("CFROLES"))
            return nuvMQClassifyMessage(Reply("OK").dataList({ "outer" }).updateRequested());
        return nuvMQClassifyMessage(Reply("OK").dataList({ "other" }));
    });
    std::thread other;
    QStringList otherGot;
    QString refusal;
    ReentrantReceiver receiver(client.get(), [&](ClassifyInterface *c) {
        other = std::thread([&otherGot, c] { otherGot = c->getBemerkungen(); });
        QThread::msleep(20);
        c->getBemerkungen();
        refusal = c->errorString();
        note(QStringLiteral("slot returns"));
    });
    QVERIFY(QObject::connect(client.get(), SIGNAL(serverRequest(QString)), &receiver, SLOT(run()),
                             Qt::DirectConnection));

    QCOMPARE(client->getRoles(), QStringList { "outer" });
    QVERIFY(other.joinable());
    other.join();
    scripted()->setResponder(nullptr);
    QCOMPARE(refusal, refusedUnderLock);
    QCOMPARE(otherGot, QStringList { "other" });
    QCOMPARE(order, QStringList({ "CFROLES", "slot returns", "CFBEMERK" }));
}

QTEST_GUILESS_MAIN(ConcurrencyTest)
#include "tst_concurrency.moc"

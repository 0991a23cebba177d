// SPDX-License-Identifier: Apache-2.0
// Two brokers as a network of brokers, a server instance and callers on
// each, everyone naming both brokers in failover form, so requests also
// cross the network both ways. The first broker dies (SIGKILL) in the
// middle of a burst: each call completes or fails with the loss reported,
// nothing is applied twice, the callers log in again through the other
// broker and go on, and both servers keep answering there.

#include "kesptest.h"
#include "loadclient.h"
#include "nuvmqclassifymessage.h"
#include "nuvmqclientinterface.h"
#include "nuvmutex.h"
#include "serverprocess.h"

#include <QtTest>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <memory>
#include <thread>
#include <vector>

namespace {

using kesp::command;

// Generous for a loaded machine; a call through the network of brokers takes
// milliseconds. A request lost with its broker fails after this.
constexpr int callSeconds = 10;
// How long a caller keeps trying to log in again after a loss.
constexpr int reconnectMs = 30000;

QString failover(quint16 first, quint16 second)
{
    return QStringLiteral("failover:(tcp://127.0.0.1:%1,tcp://127.0.0.1:%2)")
        .arg(first)
        .arg(second);
}

// What one caller did.
struct CallerResult
{
    QStringList applied; // clipboards whose call answered OK
    QStringList failures; // the texts of the calls that failed
    int okAfterStop = 0; // OK answers to calls begun after the broker stopped
    QString problem; // why the caller could not go on
};

// Connects and logs in, trying again until `deadline`; empty when it worked.
QString login(nuvMQClientInterface *transport, const QString &brokers, QDeadlineTimer deadline)
{
    QString last;
    do {
        if (transport->connectToBroker(brokers, 0)) {
            transport->setUserName(kesptest::user);
            nuvMQClassifyMessage request
                = command(QStringLiteral("CFLOGIN"), { kesptest::user, kesptest::password, {} });
            nuvMQClassifyMessage reply;
            if (transport->sendSyncMessage(&request, &reply, nuvClassifyMessageKind, callSeconds, 0,
                                           QString(), nullptr)
                && !reply.command.contains(QLatin1String("ERROR")))
                return QString();
            last = transport->lastErrorText + reply.errorText;
        } else {
            last = transport->lastErrorText;
        }
        QThread::msleep(200);
    } while (!deadline.hasExpired());
    return last;
}

// One caller: numbered CFADDCLIPBOARD calls until `after` of them have
// answered OK since the broker stopped (or the deadline passed); after a
// failure that lost the connection it logs in again, as a host does on
// connectionLost.
CallerResult runCaller(const QString &brokers, const QString &prefix, int after,
                       const std::atomic<bool> &stopped, QDeadlineTimer deadline)
{
    CallerResult result;
    const std::unique_ptr<nuvMQClientInterface> transport = stomp::newTransport();
    if (!transport) {
        result.problem = QStringLiteral("no transport plugin");
        return result;
    }
    result.problem = login(transport.get(), brokers, QDeadlineTimer(reconnectMs));
    for (int n = 0; result.okAfterStop < after && result.problem.isEmpty(); ++n) {
        if (deadline.hasExpired()) {
            result.problem = QStringLiteral("%1 calls made, %2 of them answered after the stop, "
                                            "in the time given; the last failures: %3")
                                 .arg(n)
                                 .arg(result.okAfterStop)
                                 .arg(result.failures.mid(result.failures.size() - 3)
                                          .join(QLatin1String(" / ")));
            break;
        }
        const QString name = QStringLiteral("%1-%2").arg(prefix).arg(n);
        const bool afterStop = stopped.load();
        nuvMQClassifyMessage request = command(QStringLiteral("CFADDCLIPBOARD"), { name });
        nuvMQClassifyMessage reply;
        if (transport->sendSyncMessage(&request, &reply, nuvClassifyMessageKind, callSeconds, 0,
                                       QString(), nullptr)) {
            if (reply.command == QLatin1String("ERROR") || reply.getDocId().isEmpty()) {
                result.failures << name + QStringLiteral(": ") + reply.errorText;
            } else {
                result.applied << name;
                result.okAfterStop += afterStop ? 1 : 0;
            }
            continue;
        }
        result.failures << name + QStringLiteral(": ") + transport->lastErrorText;
        if (!transport->isConnected())
            result.problem = login(transport.get(), brokers, QDeadlineTimer(reconnectMs));
    }
    transport->disconnectFromBroker();
    return result;
}

// A server's log without the lines of answered calls: what went wrong.
QString notes(const kesp::ServerProcess &server)
{
    QStringList lines = server.log().split(QLatin1Char('\n'));
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const QString &line) {
                                   return line.contains(QLatin1String(" user=admin "));
                               }),
                lines.end());
    return lines.mid(qMax(0, int(lines.size()) - 20)).join(QLatin1Char('\n'));
}

} // namespace

class KespFailover : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void brokerStopsMidBurst();

private:
    // Runs scripts/broker for the broker in `dir`; false with its output.
    static bool brokerScript(const QString &action, const QString &dir, const QString &peer,
                             QString *output);

    QString firstDir;
    QString secondDir;
};

bool KespFailover::brokerScript(const QString &action, const QString &dir, const QString &peer,
                                QString *output)
{
    qputenv("NUV_BROKER_DIR", dir.toUtf8());
    if (peer.isEmpty())
        qunsetenv("NUV_BROKER_PEER_DIR");
    else
        qputenv("NUV_BROKER_PEER_DIR", peer.toUtf8());
    const bool done = stomp::BrokerEnv::script(action, output);
    qunsetenv("NUV_BROKER_PEER_DIR");
    return done;
}

void KespFailover::initTestCase()
{
    firstDir = qEnvironmentVariable("NUV_BROKER_DIR");
    secondDir = qEnvironmentVariable("NUV_FAILOVER_SECOND_BROKER_DIR");
    if (firstDir.isEmpty() || secondDir.isEmpty())
        QFAIL("NUV_BROKER_DIR and NUV_FAILOVER_SECOND_BROKER_DIR must name the two brokers' "
              "directories (CTest sets them)");
    QString output;
    QVERIFY2(brokerScript(QStringLiteral("start"), firstDir, QString(), &output),
             qPrintable(output));
    QVERIFY2(brokerScript(QStringLiteral("start"), secondDir, firstDir, &output),
             qPrintable(output));
}

void KespFailover::cleanupTestCase()
{
    QString output;
    brokerScript(QStringLiteral("stop"), secondDir, QString(), &output);
    brokerScript(QStringLiteral("stop"), firstDir, QString(), &output);
}

void KespFailover::brokerStopsMidBurst()
{
    qputenv("NUV_BROKER_DIR", firstDir.toUtf8());
    const stomp::BrokerEnv first;
    qputenv("NUV_BROKER_DIR", secondDir.toUtf8());
    const stomp::BrokerEnv second;
    qputenv("NUV_BROKER_DIR", firstDir.toUtf8());
    QVERIFY2(first.ok() && second.ok(), qPrintable(first.problem() + second.problem()));
    // The accounts are the first broker's on both.
    const QString problem = kesptest::useBroker(first, QStringLiteral("failover"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    const QString firstThenSecond = failover(first.stompPort(), second.stompPort());
    const QString secondThenFirst = failover(second.stompPort(), first.stompPort());

    const kesptest::Workspace space;
    QVERIFY2(!space.database.isEmpty(), qPrintable(space.error));
    kesp::ServerProcess serverOnFirst(QStringLiteral("on-first"), space.database, firstThenSecond,
                                      space.path(QStringLiteral("on-first.log")));
    kesp::ServerProcess serverOnSecond(QStringLiteral("on-second"), space.database, secondThenFirst,
                                       space.path(QStringLiteral("on-second.log")));
    QVERIFY2(serverOnFirst.start(), qPrintable(notes(serverOnFirst)));
    QVERIFY2(serverOnSecond.start(), qPrintable(notes(serverOnSecond)));

    // Four callers, two starting on each broker.
    constexpr int callers = 4;
    constexpr int callsAfterStop = 30;
    // Far more than the burst takes, and within the test's time-out.
    const QDeadlineTimer deadline(90000);
    std::atomic<bool> stopped { false };
    std::vector<CallerResult> results(callers);
    std::vector<std::thread> threads;
    for (int c = 0; c < callers; ++c) {
        const QString brokers = c % 2 == 0 ? firstThenSecond : secondThenFirst;
        threads.emplace_back([&, c, brokers] {
            results[size_t(c)] = runCaller(brokers, QStringLiteral("failover-%1").arg(c),
                                           callsAfterStop, stopped, deadline);
        });
    }
    // std::thread, whose join ThreadSanitizer sees; joined on every return.
    struct JoinAll
    {
        std::vector<std::thread> &threads;
        ~JoinAll()
        {
            for (std::thread &thread : threads)
                if (thread.joinable())
                    thread.join();
        }
    } joinAll { threads };

    // In the middle: each server has answered a fair part of the burst.
    const QString served = QStringLiteral("CFADDCLIPBOARD user=");
    QVERIFY2(serverOnFirst.waitForLog(served, 60, 60000), qPrintable(notes(serverOnFirst)));
    QVERIFY2(serverOnSecond.waitForLog(served, 60, 60000), qPrintable(notes(serverOnSecond)));
    // A crash: SIGKILL, so the broker says goodbye to nobody.
    QFile pidFile(firstDir + QStringLiteral("/broker.pid"));
    QVERIFY2(pidFile.open(QIODevice::ReadOnly), qPrintable(pidFile.fileName()));
    const pid_t brokerPid = pid_t(pidFile.readAll().trimmed().toLongLong());
    QVERIFY(brokerPid > 1);
    QCOMPARE(::kill(brokerPid, SIGKILL), 0);
    QString output;
    QVERIFY2(brokerScript(QStringLiteral("stop"), firstDir, QString(), &output),
             qPrintable(output));
    stopped = true;
    const int firstAtStop = serverOnFirst.countInLog(served);
    const int secondAtStop = serverOnSecond.countInLog(served);
    for (std::thread &thread : threads)
        thread.join();

    QStringList applied;
    int failed = 0;
    for (const CallerResult &result : results) {
        QVERIFY2(result.problem.isEmpty(),
                 qPrintable(result.problem
                            + QStringLiteral("\nserved at the stop %1/%2, now %3/%4\n")
                                  .arg(firstAtStop)
                                  .arg(secondAtStop)
                                  .arg(serverOnFirst.countInLog(served))
                                  .arg(serverOnSecond.countInLog(served))
                            + notes(serverOnFirst) + QLatin1Char('\n') + notes(serverOnSecond)));
        for (const QString &failure : result.failures) {
            // Cleanly: the loss, or the reply it took with it, is reported.
            QVERIFY2(failure.contains(QLatin1String("was lost"))
                         || failure.contains(QLatin1String("No reply")),
                     qPrintable(failure));
        }
        applied += result.applied;
        failed += int(result.failures.size());
    }
    qInfo("%lld calls answered, %d failed with the loss reported", qint64(applied.size()), failed);
    QVERIFY(failed <= 40);

    // Nothing twice; every answered call is there; a failed one may be.
    QCOMPARE(kesptest::countRows(space.database,
                                 QStringLiteral("SELECT count(*) FROM clipboards WHERE name LIKE "
                                                "'failover-%'")),
             kesptest::countRows(space.database,
                                 QStringLiteral("SELECT count(DISTINCT name) FROM clipboards "
                                                "WHERE name LIKE 'failover-%'")));
    for (const QString &name : qAsConst(applied)) {
        QCOMPARE(kesptest::countRows(space.database,
                                     QStringLiteral("SELECT count(*) FROM clipboards WHERE "
                                                    "name = '%1'")
                                         .arg(name)),
                 qint64(1));
    }
    const qint64 rows = kesptest::countRows(
        space.database,
        QStringLiteral("SELECT count(*) FROM clipboards WHERE name LIKE 'failover-%'"));
    QVERIFY(rows >= applied.size());
    QVERIFY(rows <= applied.size() + failed);

    // Both servers answer after the stop: the one whose broker died goes
    // over to the other and subscribes again; a few more calls, which the
    // broker hands to both in turn, show it serving there.
    QVERIFY2(serverOnFirst.waitForLog(QStringLiteral(": serving "), 2, 30000),
             qPrintable(notes(serverOnFirst)));
    const CallerResult more = runCaller(firstThenSecond, QStringLiteral("failover-more"), 20,
                                        stopped, QDeadlineTimer(60000));
    QVERIFY2(more.problem.isEmpty(), qPrintable(more.problem));
    applied += more.applied;
    QVERIFY2(serverOnFirst.countInLog(served) > firstAtStop, qPrintable(notes(serverOnFirst)));
    QVERIFY2(serverOnSecond.countInLog(served) > secondAtStop, qPrintable(notes(serverOnSecond)));
    QVERIFY2(serverOnFirst.stop(), qPrintable(notes(serverOnFirst)));
    QVERIFY2(serverOnSecond.stop(), qPrintable(notes(serverOnSecond)));
}

QTEST_GUILESS_MAIN(KespFailover)
#include "tst_kespfailover.moc"

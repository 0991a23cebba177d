// SPDX-License-Identifier: Apache-2.0
// Two nuvkesp-server instances on one request queue and one database take a
// burst of requests from several callers; in one case an instance is killed
// (SIGKILL) in the middle, and the broker hands its unacknowledged requests
// to the other. Every request must be answered once, and its effect must
// be in the database once, also when each instance runs several requests
// at once.

#include "kesptest.h"
#include "loadclient.h"
#include "serverprocess.h"

#include <QtTest>

#include <thread>

class KespScaleOut : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void burst_data();
    void burst();

private:
    stomp::BrokerEnv broker;
};

void KespScaleOut::initTestCase()
{
    const QString problem = kesptest::useBroker(broker, QStringLiteral("scaleout"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
}

// How the first instance leaves the burst.
enum class Ending { Stays, Killed, Terminated, Interrupted };
Q_DECLARE_METATYPE(Ending)

void KespScaleOut::burst_data()
{
    QTest::addColumn<Ending>("ending");
    QTest::addColumn<int>("prefetch");
    QTest::addColumn<int>("workers");
    QTest::newRow("both serve to the end") << Ending::Stays << 1 << 1;
    QTest::newRow("one killed mid-burst") << Ending::Killed << 1 << 1;
    QTest::newRow("one killed mid-burst, prefetch 8") << Ending::Killed << 8 << 1;
    QTest::newRow("one stopped by SIGTERM mid-burst, prefetch 8") << Ending::Terminated << 8 << 1;
    QTest::newRow("one stopped by SIGINT mid-burst") << Ending::Interrupted << 1 << 1;
    QTest::newRow("4 workers each, both serve to the end") << Ending::Stays << 4 << 4;
    QTest::newRow("4 workers each, one killed mid-burst") << Ending::Killed << 8 << 4;
    QTest::newRow("4 workers each, one stopped by SIGTERM mid-burst")
        << Ending::Terminated << 4 << 4;
}

void KespScaleOut::burst()
{
    QFETCH(Ending, ending);
    QFETCH(int, prefetch);
    QFETCH(int, workers);
    const kesptest::Workspace space;
    QVERIFY2(!space.database.isEmpty(), qPrintable(space.error));
    const QStringList arguments { QStringLiteral("--prefetch"), QString::number(prefetch),
                                  QStringLiteral("--workers"), QString::number(workers) };
    kesp::ServerProcess first(QStringLiteral("first"), space.database,
                              kesptest::brokerAddress(broker),
                              space.path(QStringLiteral("first.log")), arguments);
    kesp::ServerProcess second(QStringLiteral("second"), space.database,
                               kesptest::brokerAddress(broker),
                               space.path(QStringLiteral("second.log")), arguments);
    QVERIFY2(first.start(), qPrintable(first.log()));
    QVERIFY2(second.start(), qPrintable(second.log()));

    kesp::LoadPlan plan;
    plan.host = broker.host();
    plan.port = broker.stompPort();
    plan.user = kesptest::user;
    plan.password = kesptest::password;
    plan.prefix = QStringLiteral("burst");
    // More callers than one instance's workers, so that both are busy.
    plan.threads = qMax(4, 2 * workers);
    plan.requests = 2000;
    kesp::LoadResult result;
    // std::thread, whose join ThreadSanitizer sees, unlike QThread::wait.
    std::thread load([&] { result = kesp::runLoad(plan); });
    // A failed check returns early; the thread still ends before its data.
    const kesptest::JoinOnExit joinLoad { load };

    const QString served = QStringLiteral("CFADDCLIPBOARD user=");
    if (ending != Ending::Stays) {
        // In the middle: the first has answered a good part of its share.
        QVERIFY2(first.waitForLog(served, 300, 120000), qPrintable(first.log()));
        if (ending == Ending::Killed)
            first.kill();
        else
            QVERIFY2(first.stop(15000, ending == Ending::Terminated ? SIGTERM : SIGINT),
                     qPrintable(first.log()));
    }
    load.join();
    QVERIFY2(result.failures.isEmpty(),
             qPrintable(result.failures.mid(0, 5).join(QLatin1Char('\n'))));
    QCOMPARE(result.answered, plan.requests);

    // Each request's effect once: as many clipboards as requests, all names
    // different (a second application would have failed on the name).
    QCOMPARE(kesptest::countRows(space.database,
                                 QStringLiteral("SELECT count(*) FROM clipboards WHERE name "
                                                "LIKE 'burst-%'")),
             qint64(plan.requests));
    QCOMPARE(kesptest::countRows(space.database,
                                 QStringLiteral("SELECT count(DISTINCT name) FROM clipboards "
                                                "WHERE name LIKE 'burst-%'")),
             qint64(plan.requests));

    QVERIFY2(second.stop(), qPrintable(second.log()));
    if (ending == Ending::Stays)
        QVERIFY2(first.stop(), qPrintable(first.log()));
    const qint64 firstShare = first.countInLog(served);
    const qint64 secondShare = second.countInLog(served);
    const int replayed = second.countInLog(QStringLiteral("[replayed]"));
    qInfo("first answered %lld, second %lld (%d replayed)", firstShare, secondShare, replayed);
    if (ending == Ending::Killed) {
        // The survivor took the rest, including whatever the victim had in
        // hand; a request whose effect was committed before the kill came
        // back as a replay of its stored reply. An instance logs a request
        // after its ACK, so the victim may have died between the two for
        // the one request in hand: that one is missing from both logs. With
        // several workers still only one: replies, ACKs and log lines are
        // written by one thread, one request after the other.
        QVERIFY(firstShare + secondShare >= plan.requests - 1);
        QVERIFY(firstShare + secondShare <= plan.requests);
        QVERIFY2(secondShare > 0, qPrintable(second.log().right(2000)));
        return;
    }
    // Ended in order: the request in hand was finished and acknowledged,
    // so nothing came back to be replayed and every request was logged
    // once, by the instance that served it.
    QCOMPARE(replayed, 0);
    QCOMPARE(firstShare + secondShare, qint64(plan.requests));
    QVERIFY2(secondShare > 0, qPrintable(second.log().right(2000)));
    // The counters at exit agree with the log lines of the requests (each
    // caller's login and logout come on top).
    static const QRegularExpression requestLine(QStringLiteral(" user=\\S+ [0-9.]+ ms "));
    QCOMPARE(first.reported(QStringLiteral("requests")), qint64(first.log().count(requestLine)));
    QCOMPARE(second.reported(QStringLiteral("requests")), qint64(second.log().count(requestLine)));
    QCOMPARE(second.reported(QStringLiteral("replayed")), qint64(0));
}

QTEST_GUILESS_MAIN(KespScaleOut)
#include "tst_kespscaleout.moc"

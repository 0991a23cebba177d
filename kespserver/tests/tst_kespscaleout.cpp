// Two nuvkesp-server instances on one request queue and one database take a
// burst of requests from several callers; in one case an instance is killed
// (SIGKILL) in the middle, and the broker hands its unacknowledged requests
// to the other. Every request must be answered once, and its effect must
// be in the database once.

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

void KespScaleOut::burst_data()
{
    QTest::addColumn<bool>("killOne");
    QTest::addColumn<int>("prefetch");
    QTest::newRow("both serve to the end") << false << 1;
    QTest::newRow("one killed mid-burst") << true << 1;
    QTest::newRow("one killed mid-burst, prefetch 8") << true << 8;
}

void KespScaleOut::burst()
{
    QFETCH(bool, killOne);
    QFETCH(int, prefetch);
    const kesptest::Workspace space;
    QVERIFY2(!space.database.isEmpty(), qPrintable(space.error));
    const QStringList arguments { QStringLiteral("--prefetch"), QString::number(prefetch) };
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
    plan.threads = 4;
    plan.requests = 2000;
    kesp::LoadResult result;
    // std::thread, whose join ThreadSanitizer sees, unlike QThread::wait.
    std::thread load([&] { result = kesp::runLoad(plan); });
    // A failed check returns early; the thread still ends before its data.
    const kesptest::JoinOnExit joinLoad { load };

    const QString served = QStringLiteral("CFADDCLIPBOARD user=");
    if (killOne) {
        // In the middle: the victim has answered a good part of its share.
        QVERIFY2(first.waitForLog(served, 300, 120000), qPrintable(first.log()));
        first.kill();
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
    const qint64 secondShare = second.countInLog(served);
    if (killOne) {
        const qint64 firstShare = first.countInLog(served);
        QVERIFY(firstShare >= 300);
        // The survivor took the rest, including whatever the victim had
        // in hand; a request whose effect was committed before the kill
        // came back as a replay of its stored reply.
        // (The logs only bound the shares from below: the victim may die
        // between a request's ACK and its log line.)
        QVERIFY(secondShare > 0);
        qInfo("first answered %lld before it was killed, second %lld (%d replayed)", firstShare,
              secondShare, second.countInLog(QStringLiteral("[replayed]")));
    } else {
        QVERIFY2(first.stop(), qPrintable(first.log()));
        const qint64 firstShare = first.countInLog(served);
        QVERIFY2(firstShare > 0 && secondShare > 0, qPrintable(first.log().right(2000)));
        QCOMPARE(firstShare + secondShare, qint64(plan.requests));
        // The counters at exit agree with the log (the logins come on top).
        QVERIFY(first.reportedRequests() >= firstShare);
        QVERIFY(second.reportedRequests() >= secondShare);
        qInfo("first answered %lld, second %lld", firstShare, secondShare);
    }
}

QTEST_GUILESS_MAIN(KespScaleOut)
#include "tst_kespscaleout.moc"

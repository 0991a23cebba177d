// SPDX-License-Identifier: Apache-2.0
// Several engines on one database, each with its own connection and called
// from a thread of its own, take conflicting writes at the same moment. The
// database must end as some serial order of those requests would leave it
// (conflictburst.h says what that means for each scenario).

#include "conflictburst.h"
#include "servertestsupport.h"

#include <QtTest>

#include <memory>
#include <vector>

using conflicts::Scenario;

Q_DECLARE_METATYPE(conflicts::Scenario)

class ConcurrentWritesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void conflictingWrites_data();
    void conflictingWrites();
};

namespace {
QString tokenOf(int caller)
{
    return QStringLiteral("%1").arg(caller + 1, 32, 16, QLatin1Char('0'));
}
} // namespace

void ConcurrentWritesTest::conflictingWrites_data()
{
    QTest::addColumn<Scenario>("scenario");
    QTest::addColumn<int>("callers");
    QTest::addColumn<int>("rounds");
    for (const Scenario scenario :
         { Scenario::NewIds, Scenario::SameClipboardName, Scenario::CardsOnOneClipboard,
           Scenario::SameUserName, Scenario::FolderTree, Scenario::OneDocument }) {
        QTest::newRow(qPrintable(conflicts::scenarioName(scenario))) << scenario << 8 << 4;
    }
}

void ConcurrentWritesTest::conflictingWrites()
{
    QFETCH(Scenario, scenario);
    QFETCH(int, callers);
    QFETCH(int, rounds);
    servertest::TestServer server;
    conflicts::Burst burst;
    burst.scenario = scenario;
    burst.callers = callers;
    burst.rounds = rounds;
    burst.database = server.database();
    burst.replies.fill(QVector<nuvMQClassifyMessage>(rounds), callers);

    const QString adminToken = QStringLiteral("a").repeated(32);
    const std::unique_ptr<nuvserver::ServerEngine> admin = server.engine();
    servertest::engineLogin(*admin, adminToken, servertest::adminUser, servertest::adminPassword);
    const QString problem = burst.prepare(
        [&](const nuvMQClassifyMessage &request) { return admin->handle(request, adminToken); });
    QVERIFY2(problem.isEmpty(), qPrintable(problem));

    std::vector<std::unique_ptr<nuvserver::ServerEngine>> engines;
    for (int caller = 0; caller < callers; ++caller)
        engines.push_back(server.engine());
    conflicts::runTogether(
        callers,
        [&](int caller) {
            servertest::engineLogin(*engines[caller], tokenOf(caller), servertest::adminUser,
                                    servertest::adminPassword);
        },
        [&] { burst.start(); },
        [&](int caller) {
            QVector<nuvMQClassifyMessage> &mine = burst.replies[caller];
            for (int round = 0; round < rounds; ++round)
                mine[round]
                    = engines[caller]->handle(burst.request(caller, round), tokenOf(caller));
        });

    const QStringList broken = burst.check();
    QVERIFY2(broken.isEmpty(), qPrintable(broken.join(QLatin1Char('\n'))));
}

QTEST_GUILESS_MAIN(ConcurrentWritesTest)
#include "tst_concurrentwrites.moc"

// SPDX-License-Identifier: Apache-2.0
// The broker goes away in the middle of a session and comes back: the host
// hears clientDisconnect(), the command in flight fails at once, and a new
// login works once the broker is back. The test runs a broker of its own
// (scripts/broker in its own state directory), since it stops it.

#include "brokerenv.h"
#include "classifyserver.h"
#include "testsupport.h"

#include <QtTest>

#include <future>

using stomp::BrokerEnv;
using stomp::Responder;
using testsupport::ClientPtr;

namespace {
const QByteArray requestQueue = QByteArrayLiteral("/queue/nuv.test.restart");
}

class BrokerRestartTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void brokerStopsMidSessionAndReturns();

private:
    bool startBroker();
    std::unique_ptr<Responder> startServer(const BrokerEnv &broker);
};

bool BrokerRestartTest::startBroker()
{
    QString output;
    const bool started = BrokerEnv::script(QStringLiteral("start"), &output);
    if (!started)
        qWarning("scripts/broker start failed:\n%s", qPrintable(output));
    return started;
}

std::unique_ptr<Responder> BrokerRestartTest::startServer(const BrokerEnv &broker)
{
    auto server = std::make_unique<Responder>(broker.peerOptions(), requestQueue, classifyServer);
    if (!server->begin())
        qWarning("responder: %s", qPrintable(server->errorText()));
    return server;
}

void BrokerRestartTest::initTestCase()
{
    QVERIFY(!qEnvironmentVariableIsEmpty("NUV_BROKER_DIR"));
    QVERIFY(startBroker());
    qputenv("NUV_STOMP_REQUEST_QUEUE", requestQueue);
}

void BrokerRestartTest::cleanupTestCase()
{
    QString output;
    BrokerEnv::script(QStringLiteral("stop"), &output);
}

void BrokerRestartTest::brokerStopsMidSessionAndReturns()
{
    BrokerEnv broker;
    QVERIFY2(broker.ok(), qPrintable(broker.problem()));
    broker.exportCredentials();
    std::unique_ptr<Responder> server = startServer(broker);

    ClientPtr client(testsupport::classifyRoot()->createInstance(BrokerEnv::pluginDir()));
    QSignalSpy disconnected(client.get(), SIGNAL(clientDisconnect()));
    QVERIFY2(client->connectToNuvKESP(broker.host(), broker.stompPort(), QStringLiteral("alice"),
                                      QStringLiteral("right")),
             qPrintable(client->errorString()));

    // A command the server holds, so that it is still in flight when the
    // broker goes; the client would wait 30 s for its reply.
    const int seenBefore = server->requests().size();
    std::future<QStringList> inFlight = std::async(
        std::launch::async, [&client] { return client->getRoleUsers(QStringLiteral("hold")); });
    QTRY_VERIFY_WITH_TIMEOUT(server->requests().size() > seenBefore, 10000);

    QElapsedTimer clock;
    clock.start();
    QString output;
    QVERIFY2(BrokerEnv::script(QStringLiteral("stop"), &output), qPrintable(output));
    QVERIFY(disconnected.count() == 1 || disconnected.wait(10000));
    QCOMPARE(inFlight.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    QVERIFY(inFlight.get().isEmpty());
    QVERIFY2(clock.elapsed() < 10000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY2(client->errorString().contains(QLatin1String("was lost")),
             qPrintable(client->errorString()));
    QVERIFY2(client->errorString().contains(QStringLiteral("127.0.0.1:%1").arg(broker.stompPort())),
             qPrintable(client->errorString()));
    QCOMPARE(disconnected.count(), 1);
    server.reset();

    // Until the next login every command fails at once, saying why.
    QStringList archives;
    clock.restart();
    QVERIFY(!client->getArchives(archives));
    QVERIFY(clock.elapsed() < 5000);
    QVERIFY2(client->errorString().contains(QLatin1String("was lost")),
             qPrintable(client->errorString()));

    // The broker comes back on the same port; a new login on the same
    // client works.
    QVERIFY(startBroker());
    const BrokerEnv again;
    QCOMPARE(again.stompPort(), broker.stompPort());
    server = startServer(again);
    QVERIFY2(client->connectToNuvKESP(again.host(), again.stompPort(), QStringLiteral("alice"),
                                      QStringLiteral("right")),
             qPrintable(client->errorString()));
    QVERIFY2(client->getArchives(archives), qPrintable(client->errorString()));
    QCOMPARE(archives.size(), 2);
    QCOMPARE(disconnected.count(), 1);
    client->disconnectFromNuvKESP();
}

QTEST_GUILESS_MAIN(BrokerRestartTest)
#include "tst_brokerrestart.moc"

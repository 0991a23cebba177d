// SPDX-License-Identifier: Apache-2.0
// The classify client against the sample server in Python that
// docs/broker-protocol.md describes: proof that the document suffices to
// write a server in another language.

#include "brokerenv.h"
#include "exchangehelpers.h"
#include "testsupport.h"

#include <QProcess>
#include <QtTest>

using stomp::BrokerEnv;
using testsupport::ClientPtr;

namespace {
const QByteArray requestQueue = QByteArrayLiteral("/queue/nuv.test.python");
}

class BrokerPythonServerTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void loginAndCommands();
    void wrongPassword();
    void requestWithoutLoginIsRefused();

private:
    BrokerEnv broker;
    QProcess server;
};

void BrokerPythonServerTest::initTestCase()
{
    QVERIFY2(broker.ok(), qPrintable(broker.problem()));
    broker.exportCredentials();
    qputenv("NUV_STOMP_REQUEST_QUEUE", requestQueue);
    server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server.start(QStringLiteral("python3"), { QStringLiteral(NUV_EXAMPLE_SERVER),
                                              QString::fromLatin1(requestQueue) });
    QVERIFY2(server.waitForStarted(10000), qPrintable(server.errorString()));
    QTRY_VERIFY_WITH_TIMEOUT(server.canReadLine() || server.state() != QProcess::Running, 20000);
    QCOMPARE(server.readLine().trimmed(), QByteArray("listening"));
}

void BrokerPythonServerTest::cleanupTestCase()
{
    server.terminate();
    if (!server.waitForFinished(5000))
        server.kill();
    server.waitForFinished(5000);
}

void BrokerPythonServerTest::loginAndCommands()
{
    ClientPtr client(testsupport::classifyRoot()->createInstance(BrokerEnv::pluginDir()));
    QVERIFY2(client->connectToNuvKESP(broker.host(), broker.stompPort(), QStringLiteral("alice"),
                                      QStringLiteral("secret")),
             qPrintable(client->errorString()));
    QCOMPARE(client->getFullUserName(), QStringLiteral("alice"));
    QCOMPARE(client->getUserRoles(), QStringList { QStringLiteral("users") });
    QStringList archives;
    QVERIFY2(client->getArchives(archives), qPrintable(client->errorString()));
    QCOMPARE(archives, QStringList { QStringLiteral("Archiv Python") });
    QCOMPARE(client->getRoleUsers(QStringLiteral("M\u00fcller:Akte")),
             QStringList { QStringLiteral("M\u00fcller:Akte-of-alice") });
    QVERIFY(client->getRoles().isEmpty());
    QCOMPARE(client->errorString(), QStringLiteral("Unknown command CFROLES"));
}

void BrokerPythonServerTest::wrongPassword()
{
    ClientPtr client(testsupport::classifyRoot()->createInstance(BrokerEnv::pluginDir()));
    QVERIFY(!client->connectToNuvKESP(broker.host(), broker.stompPort(), QStringLiteral("alice"),
                                      QStringLiteral("wrong")));
    QCOMPARE(client->errorString(), QStringLiteral("Wrong password"));
}

void BrokerPythonServerTest::requestWithoutLoginIsRefused()
{
    // A connection whose session token never logged in.
    auto transport = stomp::newTransport();
    QVERIFY(transport->connectToBroker(broker.host(), broker.stompPort()));
    transport->setUserName(QStringLiteral("mallory"));
    const CallResult result = call(transport.get(), command(QStringLiteral("CFDOCGETARCHIVES")));
    QVERIFY2(result.ok, qPrintable(result.error));
    QCOMPARE(result.reply.command, QStringLiteral("ERROR"));
    QCOMPARE(result.reply.errorText, QStringLiteral("Not logged in"));
}

QTEST_GUILESS_MAIN(BrokerPythonServerTest)
#include "tst_brokerpythonserver.moc"

// SPDX-License-Identifier: Apache-2.0
// The embedded transport plugin on its own: connections, tokens, the wire
// round trip and the slots it does not offer.

#include "nuvmqclientinterface.h"
#include "servertestsupport.h"
#include "testsupport.h"

#include <QPluginLoader>
#include <QtTest>

using namespace servertest;

namespace {
nuvMQClientInterface *transportRoot()
{
    QPluginLoader loader(embeddedTransportDir() + "/libnuvactivemqclient.so");
    auto *root = qobject_cast<nuvMQClientInterface *>(loader.instance());
    if (!root)
        qFatal("cannot load the embedded transport: %s", qPrintable(loader.errorString()));
    return root;
}

using TransportPtr = std::unique_ptr<nuvMQClientInterface>;
} // namespace

class EmbeddedTransportTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void createsTheDatabaseOnFirstUse();
    void everyConnectionHasItsOwnToken();
    void exchangeGoesThroughTheWire();
    void unsupportedSlots_data();
    void unsupportedSlots();
    void sendingNeedsAConnection();
};

void EmbeddedTransportTest::createsTheDatabaseOnFirstUse()
{
    QTemporaryDir directory;
    const QString file = directory.filePath("new/server.sqlite");
    qputenv("NUV_SERVER_PBKDF2_ITERATIONS", "1000");
    qputenv("NUV_SERVER_ADMIN_USER", "root");
    qputenv("NUV_SERVER_ADMIN_PASSWORD", "root-password");
    ClientPtr client(testsupport::classifyRoot()->createInstance(embeddedTransportDir()));
    const bool connected = client->connectToNuvKESP(file, 61613, "root", "root-password");
    qunsetenv("NUV_SERVER_ADMIN_USER");
    qunsetenv("NUV_SERVER_ADMIN_PASSWORD");
    QVERIFY2(connected, qPrintable(client->errorString()));
    QVERIFY(QFileInfo::exists(file));
    QCOMPARE(client->getUserRoles(), QStringList { "Administrators" });
    QString error;
    QVERIFY(!nuvserver::ServerEngine::initialiseDatabase(
        nuvserver::EngineOptions::fromEnvironment(file), "x", "x-password", "X", &error));
    QCOMPARE(error, QString("the database already has users"));
}

void EmbeddedTransportTest::everyConnectionHasItsOwnToken()
{
    TestServer server;
    TransportPtr transport(transportRoot()->createInstance());
    QVERIFY(!transport->isConnected());
    QCOMPARE(transport->getAuthToken(), QString());
    QVERIFY(transport->connectToBroker(server.database(), 0));
    QVERIFY(transport->isConnected());
    const QString first = transport->getAuthToken();
    QCOMPARE(first.size(), 64);
    QVERIFY(transport->connectToBroker(server.database(), 0));
    QVERIFY(transport->getAuthToken() != first);
    TransportPtr other(transportRoot()->createInstance());
    QVERIFY(other->connectToBroker(server.database(), 0));
    QVERIFY(other->getAuthToken() != transport->getAuthToken());
    transport->disconnectFromBroker();
    QVERIFY(!transport->isConnected());
    transport->disconnectFromBroker(); // harmless twice
}

void EmbeddedTransportTest::exchangeGoesThroughTheWire()
{
    TestServer server;
    TransportPtr transport(transportRoot()->createInstance());
    QVERIFY(transport->connectToBroker(server.database(), 0));
    nuvMQClassifyMessage login
        = request("CFLOGIN", QString(), { adminUser, adminPassword, "test" });
    login.localText = "never streamed";
    nuvMQClassifyMessage reply;
    reply.localText = "kept";
    QVERIFY(transport->sendSyncMessage(&login, &reply, 1001, 30, 0, QString(), nullptr));
    QCOMPARE(reply.command, QString("OK"));
    QCOMPARE(reply.getData(), QList<QByteArray> { "18.09-5" });
    QCOMPARE(reply.localText, QString("kept"));
    nuvMQClassifyMessage roles = request("CFROLES");
    QVERIFY(transport->sendSyncMessage(&roles, &reply, 1001, 30, 0, QString(), nullptr));
    QCOMPARE(reply.getDataList(), QStringList { "Administrators" });
    QVERIFY(!transport->sendSyncMessage(&roles, &reply, 7, 30, 0, QString(), nullptr));
    QCOMPARE(transport->lastErrorText,
             QString("embedded transport: only classify messages (kind 1001) are supported"));
}

using TransportCall = std::function<bool(nuvMQClientInterface *)>;
Q_DECLARE_METATYPE(TransportCall)

void EmbeddedTransportTest::unsupportedSlots_data()
{
    QTest::addColumn<TransportCall>("call");
    QTest::addColumn<QString>("slot");
    QTest::newRow("sendAsyncMessage") << TransportCall([](nuvMQClientInterface *t) {
        nuvMQClassifyMessage m;
        return t->sendAsyncMessage(&m, 1001);
    }) << "sendAsyncMessage";
    QTest::newRow("receiveMessage") << TransportCall([](nuvMQClientInterface *t) {
        nuvMQClassifyMessage m;
        return t->receiveMessage(&m, 1);
    }) << "receiveMessage";
    QTest::newRow("subscribeTopic")
        << TransportCall([](nuvMQClientInterface *t) { return t->subscribeTopic("x"); })
        << "subscribeTopic";
    QTest::newRow("unsubscribeTopic")
        << TransportCall([](nuvMQClientInterface *t) { return t->unsubscribeTopic("x"); })
        << "unsubscribeTopic";
    QTest::newRow("sendStream") << TransportCall([](nuvMQClientInterface *t) {
        return t->sendStream("/tmp/x", 1);
    }) << "sendStream";
    QTest::newRow("receiveStream")
        << TransportCall([](nuvMQClientInterface *t) { return t->receiveStream("/tmp", 1); })
        << "receiveStream";
}

void EmbeddedTransportTest::unsupportedSlots()
{
    QFETCH(TransportCall, call);
    QFETCH(QString, slot);
    TestServer server;
    TransportPtr transport(transportRoot()->createInstance());
    QVERIFY(transport->connectToBroker(server.database(), 0));
    QVERIFY(!call(transport.get()));
    QCOMPARE(transport->lastErrorText, slot + " is not supported by the embedded transport");
}

void EmbeddedTransportTest::sendingNeedsAConnection()
{
    TransportPtr transport(transportRoot()->createInstance());
    nuvMQClassifyMessage message = request("CFROLES");
    nuvMQClassifyMessage reply;
    QVERIFY(!transport->sendSyncMessage(&message, &reply, 1001, 30, 0, QString(), nullptr));
    QCOMPARE(transport->lastErrorText, QString("embedded transport: not connected"));
    QVERIFY(!transport->connectToBroker(QString(), 0));
    QCOMPARE(transport->lastErrorText,
             QString("embedded transport: the database file (host) is empty"));
    QVERIFY(!transport->connectToBroker("/proc/no/such/place/db.sqlite", 0));
    QVERIFY(transport->lastErrorText.startsWith("embedded transport: cannot open"));
}

QTEST_GUILESS_MAIN(EmbeddedTransportTest)
#include "tst_embeddedtransport.moc"

// SPDX-License-Identifier: Apache-2.0
// The client object itself: its session state, accessors, signals, the
// clients it makes and its destruction.

#include "testsupport.h"

#include <QMetaMethod>
#include <QSignalSpy>
#include <QtTest>

using namespace testsupport;

namespace {
using Session = std::function<ClientPtr()>;

ClientPtr failedCommand(ClientPtr client, const QString &why)
{
    answer(Reply("ERROR").error(why));
    client->getRoles();
    return client;
}
} // namespace

Q_DECLARE_METATYPE(Session)

class ClientObjectTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void lastErrorUnderBothNames_data();
    void lastErrorUnderBothNames();
    void pluginInfo_data();
    void pluginInfo();
    void initialState();
    void createInstance_data();
    void createInstance();
    void sessionAccessors();
    void authTokenFromTransport();
    void destruction_data();
    void destruction();
    void signalsAndSlot();

private:
    // Rows that expect no transport to load must not find one by bare name
    // in a directory an earlier login put on the search path.
    LibraryPathsGuard paths;
};

void ClientObjectTest::init()
{
    paths.restore();
    scripted()->reset();
}

void ClientObjectTest::lastErrorUnderBothNames_data()
{
    QTest::addColumn<Session>("session");
    QTest::addColumn<QString>("lastError");
    QTest::newRow("before any login") << Session([] { return newClient(); }) << "";
    QTest::newRow("after a failed command")
        << Session([] { return failedCommand(loggedInClient(), "refused"); }) << "refused";
    QTest::newRow("a successful command keeps the last failure") << Session([] {
        ClientPtr client = failedCommand(loggedInClient(), "kept");
        answer(Reply("OK").dataList({ "r" }));
        client->getRoles();
        return client;
    }) << "kept";
    QTest::newRow("after a failed login") << Session([] {
        ClientPtr client = newClient();
        answer(Reply("ERROR").error("wrong password"));
        client->connectToNuvKESP("h", 1, "u", "p");
        return client;
    }) << "wrong password";
    QTest::newRow("a successful login clears it") << Session([] {
        ClientPtr client = failedCommand(loggedInClient(), "gone after login");
        logIn(client.get());
        return client;
    }) << "";
}

void ClientObjectTest::lastErrorUnderBothNames()
{
    QFETCH(Session, session);
    QFETCH(QString, lastError);
    ClientPtr client = session();
    QCOMPARE(client->errorString(), lastError);
    QCOMPARE(client->getLastError(), client->errorString());
}

void ClientObjectTest::pluginInfo_data()
{
    QTest::addColumn<Session>("session");
    QTest::newRow("the plugin's root object") << Session([] {
        // Handed out owned only to fit the column; the plugin makes a new
        // root object when asked again.
        return ClientPtr(classifyRoot());
    });
    QTest::newRow("a new client before any login") << Session([] { return newClient(); });
    QTest::newRow("a logged-in client") << Session([] { return loggedInClient(); });
    QTest::newRow("a client whose transport failed to load") << Session([] {
        ClientPtr client = clientWithPluginPath(QStringLiteral("/nonexistent"));
        if (client->connectToNuvKESP("h", 1, "u", "p"))
            qFatal("a transport was found");
        return client;
    });
}

void ClientObjectTest::pluginInfo()
{
    QFETCH(Session, session);
    ClientPtr client = session();
    const QStringList callsBefore = scripted()->calls();
    QCOMPARE(client->getPluginInfo(), QStringLiteral("The classify plugin!"));
    // A constant: the server is not asked.
    QCOMPARE(scripted()->calls(), callsBefore);
}

void ClientObjectTest::initialState()
{
    ClientPtr client = clientWithPluginPath(scriptedTransportDir());
    QCOMPARE(client->getProfileId(), qint64(0));
    QCOMPARE(client->getPort(), 0);
    QCOMPARE(client->getUsername(), QString());
    QCOMPARE(client->getPass(), QString());
    QCOMPARE(client->getHost(), QString());
    QCOMPARE(client->getFullUserName(), QString());
    QCOMPARE(client->getCfId(), QString());
    QCOMPARE(client->getCurrentArchive(), QString());
    QCOMPARE(client->getUserRoles(), QStringList());
    QCOMPARE(client->getAvailablePlugins(), QStringList());
    QCOMPARE(client->errorString(), QString());
    // Asked before any login there is no transport to ask.
    QCOMPARE(client->getAuthToken(), QString());
    QCOMPARE(scripted()->calls(), QStringList());
}

void ClientObjectTest::createInstance_data()
{
    QTest::addColumn<qint64>("profileId");
    QTest::newRow("zero") << qint64(0);
    QTest::newRow("a positive profile") << qint64(42);
    QTest::newRow("a negative profile") << qint64(-1);
    QTest::newRow("the largest 64-bit profile") << std::numeric_limits<qint64>::max();
    QTest::newRow("the smallest 64-bit profile") << std::numeric_limits<qint64>::min();
}

void ClientObjectTest::createInstance()
{
    QFETCH(qint64, profileId);
    ClientPtr creator = loggedInClient();
    creator->setProfileId(profileId);
    QCOMPARE(creator->getProfileId(), profileId);
    answer(Reply("OK"));
    QVERIFY(creator->setCurrentArchive(QStringLiteral("Creator's archive")));
    scripted()->clearCalls();

    ClientPtr made(creator->createInstance(scriptedTransportDir()));
    QVERIFY(made);
    QVERIFY(made.get() != creator.get());
    QCOMPARE(made->getProfileId(), profileId);
    // Nothing of the session is shared.
    QCOMPARE(made->getCurrentArchive(), QString());
    QCOMPARE(made->getUsername(), QString());
    QCOMPARE(made->getUserRoles(), QStringList());
    QCOMPARE(made->getAuthToken(), QString());
    QCOMPARE(scripted()->calls(), QStringList());

    // Nor the transport: the new client makes its own at its login, and
    // going away takes only its own.
    QVERIFY(logIn(made.get()));
    QCOMPARE(scripted()->liveInstances(), 2);
    made.reset();
    QCOMPARE(scripted()->liveInstances(), 1);
    QCOMPARE(creator->getCurrentArchive(), QStringLiteral("Creator's archive"));
}

void ClientObjectTest::sessionAccessors()
{
    ClientPtr client = newClient();
    answer(Reply("OK")
               .dataList({ "Admin", "Scan" })
               .docId("Anna Muster")
               .availablePlugins({ "skip", "OCR", "Mail" }));
    QVERIFY(client->connectToNuvKESP(QStringLiteral("kesp"), 61616, QStringLiteral("anna"),
                                     QStringLiteral("pw")));
    QCOMPARE(client->getUsername(), QStringLiteral("anna"));
    QCOMPARE(client->getPass(), QStringLiteral("pw"));
    QCOMPARE(client->getHost(), QStringLiteral("kesp"));
    QCOMPARE(client->getPort(), 61616);
    QCOMPARE(client->getUserRoles(), QStringList({ "Admin", "Scan" }));
    QCOMPARE(client->getFullUserName(), QStringLiteral("Anna Muster"));
    QCOMPARE(client->getAvailablePlugins(), QStringList({ "OCR", "Mail" }));
    // Never filled by this client.
    QCOMPARE(client->getCfId(), QString());

    // A number the host keeps with the client; the server never sees it.
    client->setProfileId(99);
    QCOMPARE(client->getProfileId(), qint64(99));
    answer(Reply("OK").dataList({ "r" }));
    client->getRoles();
    const nuvMQClassifyMessage request = lastRequest();
    QCOMPARE(request.headerNumber, qint64(0));
    QVERIFY(!request.getDocId().contains(QLatin1String("99")));
    QVERIFY(request.getDataList().filter(QStringLiteral("99")).isEmpty());
}

void ClientObjectTest::authTokenFromTransport()
{
    ClientPtr client = loggedInClient();
    scripted()->setAuthToken(QStringLiteral("token-17"));
    QCOMPARE(client->getAuthToken(), QStringLiteral("token-17"));
    QCOMPARE(scripted()->calls(), QStringList({ "getAuthToken" }));
    QCOMPARE(exchangeCount(), 0);
}

void ClientObjectTest::destruction_data()
{
    QTest::addColumn<Session>("session");
    QTest::addColumn<QStringList>("calls");
    QTest::newRow("never logged in: no transport call")
        << Session([] { return newClient(); }) << QStringList();
    QTest::newRow("transport failed to load: no transport call") << Session([] {
        ClientPtr client = clientWithPluginPath(QStringLiteral("/nonexistent"));
        if (client->connectToNuvKESP("h", 1, "u", "p"))
            qFatal("a transport was found");
        return client;
    }) << QStringList();
    QTest::newRow("logged in: disconnect, then the transport is deleted")
        << Session([] { return loggedInClient(); })
        << QStringList({ "disconnectFromBroker", "destroyed" });
    QTest::newRow("broker refused: the loaded transport is deleted too") << Session([] {
        scripted()->refuseConnect(QStringLiteral("no"));
        ClientPtr client = newClient();
        client->connectToNuvKESP("h", 1, "u", "p");
        return client;
    }) << QStringList({ "disconnectFromBroker", "destroyed" });
}

void ClientObjectTest::destruction()
{
    QFETCH(Session, session);
    QFETCH(QStringList, calls);
    const int liveBefore = scripted()->liveInstances();
    ClientPtr client = session();
    scripted()->clearCalls();
    client.reset();
    QCOMPARE(scripted()->calls(), calls);
    QCOMPARE(scripted()->liveInstances(), liveBefore);
}

void ClientObjectTest::signalsAndSlot()
{
    ClientPtr client = newClient();
    const QMetaObject *meta = client->metaObject();
    QCOMPARE(meta->className(), "NuvClassifyClient");
    const int disconnectSignal = meta->indexOfSignal("clientDisconnect()");
    const int requestSignal = meta->indexOfSignal("serverRequest(QString)");
    QVERIFY(disconnectSignal >= meta->methodOffset());
    QVERIFY(requestSignal > disconnectSignal);
    const int slot = meta->indexOfSlot("emitDisconnected()");
    QVERIFY(slot >= 0);
    QCOMPARE(meta->method(slot).methodType(), QMetaMethod::Slot);

    QSignalSpy lost(client.get(), SIGNAL(clientDisconnect()));
    QVERIFY(QMetaObject::invokeMethod(client.get(), "emitDisconnected"));
    QCOMPARE(lost.count(), 1);
    QCOMPARE(scripted()->calls(), QStringList());
}

QTEST_GUILESS_MAIN(ClientObjectTest)
#include "tst_clientobject.moc"

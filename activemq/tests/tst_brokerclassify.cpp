// The classify client, loaded as a plugin the way a host loads it, logging
// in and running commands through the STOMP transport and a real broker.

#include "brokerenv.h"
#include "classifyserver.h"
#include "testsupport.h"

#include <QTcpServer>
#include <QtTest>

#include <future>

using stomp::BrokerEnv;
using stomp::Responder;
using testsupport::ClientPtr;

namespace {
const QByteArray requestQueue = QByteArrayLiteral("/queue/nuv.test.classify");
}

class BrokerClassifyTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();
    void loginAndCommands();
    void loginFailures_data();
    void loginFailures();
    void loginAgainOnTheSameClient();
    void twoClientsOnTwoThreads();

private:
    ClientPtr newClient() const;

    BrokerEnv broker;
    std::unique_ptr<Responder> server;
};

void BrokerClassifyTest::initTestCase()
{
    QVERIFY2(broker.ok(), qPrintable(broker.problem()));
    server = std::make_unique<Responder>(broker.peerOptions(), requestQueue, classifyServer);
    QVERIFY2(server->begin(), qPrintable(server->errorText()));
}

void BrokerClassifyTest::init()
{
    broker.exportCredentials();
    qputenv("NUV_STOMP_REQUEST_QUEUE", requestQueue);
}

void BrokerClassifyTest::cleanupTestCase()
{
    server.reset();
}

ClientPtr BrokerClassifyTest::newClient() const
{
    return ClientPtr(testsupport::classifyRoot()->createInstance(BrokerEnv::pluginDir()));
}

void BrokerClassifyTest::loginAndCommands()
{
    ClientPtr client = newClient();
    QSignalSpy disconnected(client.get(), SIGNAL(clientDisconnect()));
    QVERIFY2(client->connectToNuvKESP(broker.host(), broker.stompPort(), QStringLiteral("alice"),
                                      QStringLiteral("right")),
             qPrintable(client->errorString()));
    QCOMPARE(client->errorString(), QString());
    QCOMPARE(client->getFullUserName(), QStringLiteral("Alice Example"));
    QCOMPARE(client->getUserRoles(),
             (QStringList { QStringLiteral("admin"), QStringLiteral("users") }));
    QCOMPARE(client->getAvailablePlugins(), QStringList { QStringLiteral("Scan") });

    // What the server saw of the login: the user, and the session token the
    // client reports, so that a server can bind the login to it.
    const Responder::Request login = server->requests().last();
    QCOMPARE(login.message.command, QStringLiteral("CFLOGIN"));
    QCOMPARE(login.message.getDataList(),
             (QStringList { QStringLiteral("alice"), QStringLiteral("right"), QString() }));
    QCOMPARE(login.frame.header("nuv-user"), QByteArray("alice"));
    QCOMPARE(QString::fromLatin1(login.frame.header("nuv-session-token")), client->getAuthToken());
    QCOMPARE(client->getAuthToken().size(), 32);

    QStringList archives;
    QVERIFY2(client->getArchives(archives), qPrintable(client->errorString()));
    QCOMPARE(archives, (QStringList { QStringLiteral("Archiv 1"), QStringLiteral("Archiv 2") }));
    QCOMPARE(client->getRoleUsers(QStringLiteral("admin")),
             QStringList { QStringLiteral("admin-of-alice") });
    QVERIFY(client->getRoles(QStringLiteral("nosuchrole")).isEmpty());
    QCOMPARE(client->errorString(), QStringLiteral("Unknown role nosuchrole"));
    QCOMPARE(server->requests().last().frame.header("nuv-session-token"),
             login.frame.header("nuv-session-token"));

    client->disconnectFromNuvKESP();
    QTest::qWait(50);
    QCOMPARE(disconnected.count(), 0);
}

void BrokerClassifyTest::loginFailures_data()
{
    QTest::addColumn<QString>("password");
    QTest::addColumn<QByteArray>("brokerPasscode"); // empty: the right one
    QTest::addColumn<bool>("closedPort");
    QTest::addColumn<QString>("expected");

    QTest::newRow("server refuses the password")
        << "wrong" << QByteArray() << false << "Wrong password";
    QTest::newRow("wrong broker passcode")
        << "right" << QByteArray("not-the-passcode") << false
        << "refused the connection for broker user \"nuvclient\": "
           "User name [nuvclient] or password is invalid.";
    QTest::newRow("nothing listens on the port")
        << "right" << QByteArray() << true << "the connection was refused";
}

void BrokerClassifyTest::loginFailures()
{
    QFETCH(QString, password);
    QFETCH(QByteArray, brokerPasscode);
    QFETCH(bool, closedPort);
    QFETCH(QString, expected);
    if (!brokerPasscode.isEmpty())
        qputenv("NUV_STOMP_PASSCODE", brokerPasscode);
    quint16 port = broker.stompPort();
    if (closedPort) {
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost, 0);
        port = probe.serverPort();
    }

    ClientPtr client;
    const auto connect = [&] {
        client = newClient();
        return client->connectToNuvKESP(broker.host(), port, QStringLiteral("alice"), password)
            ? QString()
            : client->errorString();
    };
    QVERIFY(!(brokerPasscode.isEmpty() ? connect() : stomp::BrokerEnv::refusedConnect(connect))
                 .isEmpty());
    QVERIFY2(client->errorString().contains(expected), qPrintable(client->errorString()));
    QVERIFY(!client->errorString().contains(
        QString::fromUtf8(brokerPasscode.isEmpty() ? QByteArray("\x01") : brokerPasscode)));
    QVERIFY(!client->errorString().contains(broker.passcode()));
    QCOMPARE(client->getHost(), broker.host());
    QCOMPARE(client->getPort(), int(port));
}

void BrokerClassifyTest::loginAgainOnTheSameClient()
{
    ClientPtr client = newClient();
    QVERIFY(client->connectToNuvKESP(broker.host(), broker.stompPort(), QStringLiteral("alice"),
                                     QStringLiteral("right")));
    const QString firstToken = client->getAuthToken();
    client->disconnectFromNuvKESP();
    QVERIFY(client->getAuthToken().isEmpty());
    QVERIFY2(client->connectToNuvKESP(broker.host(), broker.stompPort(), QStringLiteral("bob"),
                                      QStringLiteral("right")),
             qPrintable(client->errorString()));
    QVERIFY(client->getAuthToken() != firstToken);
    QCOMPARE(client->getRoleUsers(QStringLiteral("x")), QStringList { QStringLiteral("x-of-bob") });
}

void BrokerClassifyTest::twoClientsOnTwoThreads()
{
    ClientPtr alice = newClient();
    ClientPtr bob = newClient();
    QVERIFY(alice->connectToNuvKESP(broker.host(), broker.stompPort(), QStringLiteral("alice"),
                                    QStringLiteral("right")));
    QVERIFY(bob->connectToNuvKESP(broker.host(), broker.stompPort(), QStringLiteral("bob"),
                                  QStringLiteral("right")));
    auto work = [](ClassifyInterface *client, const QString &user) {
        QStringList problems;
        for (int i = 0; i < 30; ++i) {
            const QString role = QStringLiteral("role%1").arg(i);
            const QStringList users = client->getRoleUsers(role);
            if (users != QStringList { role + QStringLiteral("-of-") + user })
                problems << user + QStringLiteral(": ") + users.join(QLatin1Char(','))
                        + client->errorString();
        }
        return problems;
    };
    auto first = std::async(std::launch::async, work, alice.get(), QStringLiteral("alice"));
    auto second = std::async(std::launch::async, work, bob.get(), QStringLiteral("bob"));
    const QStringList problems = first.get() + second.get();
    QVERIFY2(problems.isEmpty(), qPrintable(problems.join(QLatin1Char('\n'))));
}

QTEST_GUILESS_MAIN(BrokerClassifyTest)
#include "tst_brokerclassify.moc"

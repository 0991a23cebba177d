// The transport's other operations through a real broker: connection state
// and tokens, connect failures, one-way sends, topics, client ids, streams.

#include "brokerenv.h"
#include "exchangehelpers.h"
#include "lostcounter.h"

#include <QRegularExpression>
#include <QTcpServer>
#include <QtTest>

using stomp::BrokerEnv;
using stomp::Responder;

namespace {

const QByteArray requestQueue = QByteArrayLiteral("/queue/nuv.test.operations");

// A loopback port on which nothing listens (it did a moment ago).
quint16 closedPort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    return server.serverPort();
}

} // namespace

class BrokerOperationsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();
    void connectionStateAndTokens();
    void connectFailures_data();
    void connectFailures();
    void asyncMessage_data();
    void asyncMessage();
    void topicSubscription();
    void subscriptionFailures_data();
    void subscriptionFailures();
    void receiveTimesOut();
    void clientIdIsExclusive();
    void streamsAreNotSupported_data();
    void streamsAreNotSupported();

private:
    std::unique_ptr<nuvMQClientInterface> connected();
    bool publish(const QByteArray &destination, const QString &name);

    BrokerEnv broker;
    std::unique_ptr<Responder> responder;
};

void BrokerOperationsTest::initTestCase()
{
    QVERIFY2(broker.ok(), qPrintable(broker.problem()));
    responder = std::make_unique<Responder>(broker.peerOptions(), requestQueue, echo);
    QVERIFY2(responder->begin(), qPrintable(responder->errorText()));
}

void BrokerOperationsTest::init()
{
    broker.exportCredentials();
    qputenv("NUV_STOMP_REQUEST_QUEUE", requestQueue);
    qunsetenv("NUV_STOMP_CONNECT_TIMEOUT_MS");
}

void BrokerOperationsTest::cleanupTestCase()
{
    responder.reset();
}

std::unique_ptr<nuvMQClientInterface> BrokerOperationsTest::connected()
{
    auto transport = stomp::newTransport();
    if (!transport->connectToBroker(broker.host(), broker.stompPort()))
        qWarning("connect failed: %s", qPrintable(transport->lastErrorText));
    return transport;
}

bool BrokerOperationsTest::publish(const QByteArray &destination, const QString &name)
{
    stomp::Peer publisher;
    if (!publisher.open(broker.peerOptions()))
        return false;
    nuvMQClassifyMessage message = command(name);
    QString text;
    message.convertToBase64(text);
    stomp::Frame frame("SEND");
    frame.add("destination", destination).add("amq-msg-type", "text");
    frame.add("nuv-message-type", "nuvmqclassifymessage").add("receipt", "published");
    frame.body = text.toUtf8();
    return publisher.send(frame) && publisher.awaitReceipt("published", 10000);
}

void BrokerOperationsTest::connectionStateAndTokens()
{
    auto transport = stomp::newTransport();
    stomp::LostCounter lost(transport.get());
    QVERIFY(!transport->isConnected());
    QVERIFY(transport->getAuthToken().isEmpty());
    const CallResult early = call(transport.get(), command(QStringLiteral("CFEARLY")));
    QVERIFY(!early.ok);
    QVERIFY2(early.error.contains(QLatin1String("not connected to a message broker")),
             qPrintable(early.error));

    QVERIFY2(transport->connectToBroker(broker.host(), broker.stompPort()),
             qPrintable(transport->lastErrorText));
    QVERIFY(transport->isConnected());
    const QString first = transport->getAuthToken();
    QVERIFY2(QRegularExpression(QStringLiteral("^[0-9a-f]{32}$")).match(first).hasMatch(),
             qPrintable(first));

    // Connecting again replaces the connection, with a token of its own.
    QVERIFY(transport->connectToBroker(broker.host(), broker.stompPort()));
    const QString second = transport->getAuthToken();
    QVERIFY(second != first);
    QVERIFY(call(transport.get(), command(QStringLiteral("CFAFTERRECONNECT"))).ok);

    transport->disconnectFromBroker();
    QVERIFY(!transport->isConnected());
    QVERIFY(transport->getAuthToken().isEmpty());
    QVERIFY(
        transport->connectToBroker(QStringLiteral("tcp://") + broker.host(), broker.stompPort()));
    const QString third = transport->getAuthToken();
    QVERIFY(third != first && third != second);
    QVERIFY(call(transport.get(), command(QStringLiteral("CFTHIRD"))).ok);
    transport->disconnectFromBroker();
    QTest::qWait(50);
    QCOMPARE(lost.count(), 0); // closing on purpose is no loss
}

void BrokerOperationsTest::connectFailures_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<qint64>("port"); // -1: the broker's STOMP port, 0: a closed port
    QTest::addColumn<QByteArray>("passcode"); // empty: the right one, "-": none
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("wrong broker passcode")
        << "127.0.0.1" << qint64(-1) << QByteArray("wrong-passcode")
        << QStringList { "refused the connection for broker user \"nuvclient\"",
                         "User name [nuvclient] or password is invalid", "127.0.0.1:" };
    QTest::newRow("no broker login")
        << "127.0.0.1" << qint64(-1) << QByteArray("-")
        << QStringList { "refused the connection", "No broker login is configured",
                         "NUV_STOMP_LOGIN" };
    QTest::newRow("closed port") << "127.0.0.1" << qint64(0) << QByteArray()
                                 << QStringList { "Cannot connect to the message broker at "
                                                  "127.0.0.1:",
                                                  "the connection was refused" };
    QTest::newRow("unknown scheme") << "amqp://127.0.0.1" << qint64(-1) << QByteArray()
                                    << QStringList { "unknown scheme \"amqp://\"" };
    QTest::newRow("port outside the TCP range") << "127.0.0.1" << qint64(65536) << QByteArray()
                                                << QStringList { "port 65536 is not a TCP port" };
}

void BrokerOperationsTest::connectFailures()
{
    QFETCH(QString, host);
    QFETCH(qint64, port);
    QFETCH(QByteArray, passcode);
    QFETCH(QStringList, expected);

    if (passcode == "-") {
        qunsetenv("NUV_STOMP_LOGIN");
        qunsetenv("NUV_STOMP_PASSCODE");
    } else if (!passcode.isEmpty()) {
        qputenv("NUV_STOMP_PASSCODE", passcode);
    }
    if (port == -1)
        port = broker.stompPort();
    else if (port == 0)
        port = closedPort();

    std::unique_ptr<nuvMQClientInterface> transport;
    QElapsedTimer clock;
    const auto connect = [&] {
        transport = stomp::newTransport();
        clock.start();
        return transport->connectToBroker(host, port) ? QString() : transport->lastErrorText;
    };
    const QString text
        = passcode.size() > 1 ? stomp::BrokerEnv::refusedConnect(connect) : connect();
    QVERIFY(!text.isEmpty());
    for (const QString &part : expected)
        QVERIFY2(text.contains(part), qPrintable(text));
    QVERIFY2(!text.contains(broker.passcode()), "the broker passcode leaked into the text");
    QVERIFY2(passcode.size() < 2 || !text.contains(QString::fromUtf8(passcode)),
             "the passcode leaked into the text");
    QVERIFY2(clock.elapsed() < 10000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(!transport->isConnected());
}

void BrokerOperationsTest::asyncMessage_data()
{
    QTest::addColumn<QByteArray>("queue");
    QTest::addColumn<QString>("error");
    QTest::newRow("to the request queue") << requestQueue << QString();
    QTest::newRow("to a queue the broker refuses")
        << QByteArray("/queue/elsewhere") << "refused it: User nuvclient is not authorized";
}

void BrokerOperationsTest::asyncMessage()
{
    QFETCH(QByteArray, queue);
    QFETCH(QString, error);
    qputenv("NUV_STOMP_REQUEST_QUEUE", queue);
    auto transport = connected();
    transport->setUserName(QStringLiteral("carol"));
    const int before = responder->requests().size();
    nuvMQClassifyMessage message = command(QStringLiteral("CFNOTICE"), { QStringLiteral("x") });
    const bool sent = transport->sendAsyncMessage(&message, 1002);
    QCOMPARE(sent, error.isEmpty());
    if (!sent) {
        QVERIFY2(transport->lastErrorText.contains(QLatin1String("Sending \"CFNOTICE\" failed")),
                 qPrintable(transport->lastErrorText));
        QVERIFY2(transport->lastErrorText.contains(error), qPrintable(transport->lastErrorText));
        QVERIFY(transport->isConnected());
        return;
    }
    QTRY_COMPARE(responder->requests().size(), before + 1);
    const Responder::Request seen = responder->requests().last();
    QCOMPARE(seen.message.command, QStringLiteral("CFNOTICE"));
    QCOMPARE(seen.message.getDataList(), QStringList { QStringLiteral("x") });
    QVERIFY(!seen.frame.has("reply-to"));
    QVERIFY(!seen.frame.header("correlation-id").isEmpty());
    QCOMPARE(seen.frame.header("nuv-kind"), QByteArray("1002"));
    QCOMPARE(seen.frame.header("nuv-user"), QByteArray("carol"));
    QCOMPARE(QString::fromLatin1(seen.frame.header("nuv-session-token")),
             transport->getAuthToken());
}

void BrokerOperationsTest::topicSubscription()
{
    auto transport = connected();
    QVERIFY2(transport->subscribeTopic(QStringLiteral("nuv.test.news")),
             qPrintable(transport->lastErrorText));
    QVERIFY(transport->subscribeTopic(QStringLiteral("/topic/nuv.test.news"))); // the same one
    QVERIFY(publish("/topic/nuv.test.news", QStringLiteral("NEWS 1")));
    nuvMQClassifyMessage received;
    QVERIFY2(transport->receiveMessage(&received, 10), qPrintable(transport->lastErrorText));
    QCOMPARE(received.command, QStringLiteral("NEWS 1"));

    // Requests and their replies never end up as unsolicited messages.
    QVERIFY(call(transport.get(), command(QStringLiteral("CFBETWEEN"))).ok);
    QVERIFY(publish("/topic/nuv.test.news", QStringLiteral("NEWS 2")));
    QVERIFY(transport->receiveMessage(&received, 10));
    QCOMPARE(received.command, QStringLiteral("NEWS 2"));

    QVERIFY2(transport->unsubscribeTopic(QStringLiteral("nuv.test.news")),
             qPrintable(transport->lastErrorText));
    QVERIFY(publish("/topic/nuv.test.news", QStringLiteral("NEWS 3")));
    QVERIFY(!transport->receiveMessage(&received, 1));
    QVERIFY2(transport->lastErrorText.contains(QLatin1String("No message arrived within 1 s")),
             qPrintable(transport->lastErrorText));
}

void BrokerOperationsTest::subscriptionFailures_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("topic");
    QTest::addColumn<QString>("error");
    QTest::newRow("subscribe without a name") << "subscribe"
                                              << " "
                                              << "no topic was named";
    QTest::newRow("subscribe to a topic the broker refuses")
        << "subscribe"
        << "elsewhere"
        << "Cannot subscribe to /topic/elsewhere: the message broker at 127.0.0.1:";
    QTest::newRow("unsubscribe from a topic never subscribed") << "unsubscribe"
                                                               << "nuv.test.never"
                                                               << "there is no such subscription";
}

void BrokerOperationsTest::subscriptionFailures()
{
    QFETCH(QString, operation);
    QFETCH(QString, topic);
    QFETCH(QString, error);
    auto transport = connected();
    const bool done = operation == QLatin1String("subscribe") ? transport->subscribeTopic(topic)
                                                              : transport->unsubscribeTopic(topic);
    QVERIFY(!done);
    QVERIFY2(transport->lastErrorText.contains(error), qPrintable(transport->lastErrorText));
    QVERIFY(transport->isConnected());
}

void BrokerOperationsTest::receiveTimesOut()
{
    auto transport = connected();
    nuvMQClassifyMessage received;
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!transport->receiveMessage(&received, 1));
    QVERIFY2(clock.elapsed() >= 900 && clock.elapsed() < 10000,
             qPrintable(QString::number(clock.elapsed())));
    QVERIFY2(transport->lastErrorText.contains(QLatin1String("within 1 s (time-out)")),
             qPrintable(transport->lastErrorText));
}

void BrokerOperationsTest::clientIdIsExclusive()
{
    auto first = stomp::newTransport();
    first->setClientId(QStringLiteral("nuv-test-desk"));
    QVERIFY2(first->connectToBroker(broker.host(), broker.stompPort()),
             qPrintable(first->lastErrorText));
    auto second = stomp::newTransport();
    second->setClientId(QStringLiteral("nuv-test-desk"));
    QVERIFY(!second->connectToBroker(broker.host(), broker.stompPort()));
    QVERIFY2(second->lastErrorText.contains(QLatin1String("refused the connection")),
             qPrintable(second->lastErrorText));
    QVERIFY2(second->lastErrorText.contains(QLatin1String("nuv-test-desk")),
             qPrintable(second->lastErrorText));
    first->disconnectFromBroker();
    QVERIFY2(second->connectToBroker(broker.host(), broker.stompPort()),
             qPrintable(second->lastErrorText));
}

void BrokerOperationsTest::streamsAreNotSupported_data()
{
    QTest::addColumn<bool>("sending");
    QTest::newRow("sendStream") << true;
    QTest::newRow("receiveStream") << false;
}

void BrokerOperationsTest::streamsAreNotSupported()
{
    QFETCH(bool, sending);
    auto transport = connected();
    const bool done = sending ? transport->sendStream(QStringLiteral("/tmp/file.pdf"), 10)
                              : transport->receiveStream(QStringLiteral("/tmp"), 10);
    QVERIFY(!done);
    QVERIFY2(transport->lastErrorText.contains(QLatin1String("not supported by the STOMP "
                                                             "transport")),
             qPrintable(transport->lastErrorText));
    QVERIFY(transport->isConnected());
}

QTEST_GUILESS_MAIN(BrokerOperationsTest)
#include "tst_brokeroperations.moc"

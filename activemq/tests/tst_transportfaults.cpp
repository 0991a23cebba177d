// SPDX-License-Identifier: Apache-2.0
// The transport against a scripted STOMP server on loopback: handshake
// failures, heart-beats, a peer that breaks the protocol or the connection,
// and frames cut up or packed together, which a real broker rarely shows.

#include "brokerenv.h"
#include "exchangehelpers.h"
#include "fakebroker.h"
#include "lostcounter.h"

#include <QTcpServer>
#include <QtTest>

#include <future>

using stomp::Frame;

namespace {

enum class Handshake {
    Silent,
    Error,
    ErrorAndClose,
    OldVersion,
    Hangup,
    Garbage,
    SubscriptionRefused
};

// Every connectionLost() the transport has signalled so far, counted. The
// signal comes from the transport's I/O thread and is queued to this one. A
// connect attempt is a round trip through that thread, which runs its work
// in order: once the attempt (to a port where nothing listens) has failed,
// a loss signalled before it is queued here, and delivering what is queued
// counts it. So an absence check needs no guess of how late a loss may come.
// The transport is left unconnected.
int lossesSoFar(nuvMQClientInterface *transport, stomp::LostCounter &lost)
{
    QTcpServer unused;
    if (!unused.listen(QHostAddress::LocalHost))
        return -1;
    const quint16 port = unused.serverPort();
    unused.close();
    if (transport->connectToBroker(QStringLiteral("127.0.0.1"), port))
        return -1;
    QCoreApplication::sendPostedEvents(&lost, QEvent::MetaCall);
    return lost.count();
}

// A MESSAGE on the transport's reply subscription.
QByteArray replyFrame(const QByteArray &correlationId, const nuvMQClassifyMessage &message)
{
    nuvMQClassifyMessage copy(message);
    QString text;
    copy.convertToBase64(text);
    Frame frame("MESSAGE");
    frame.add("subscription", "replies").add("message-id", "ID:fake:1:2");
    frame.add("destination", "/temp-queue/nuv.replies");
    if (!correlationId.isEmpty())
        frame.add("correlation-id", correlationId);
    frame.add("nuv-message-type", "nuvmqclassifymessage");
    frame.body = text.toUtf8();
    return stomp::encodeFrame(frame);
}

} // namespace

Q_DECLARE_METATYPE(Handshake)

class TransportFaultsTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void connectFrame_data();
    void connectFrame();
    void handshakeFailures_data();
    void handshakeFailures();
    void heartBeatsKeepTheConnection();
    void requestsStandInForHeartBeats();
    void missedHeartBeatsLoseTheConnection();
    void hangupFailsTheWaitingCallAtOnce();
    void malformedFrameLosesTheConnection();
    void framesCutUpAndPackedTogether();
    void replyForNobodyIsDroppedAndCounted();
    void brokerErrorForTheRequestFailsTheCall();
    void disconnectSendsDisconnectWithReceipt();
};

void TransportFaultsTest::init()
{
    qunsetenv("NUV_STOMP_LOGIN");
    qunsetenv("NUV_STOMP_PASSCODE");
    qunsetenv("NUV_STOMP_TLS");
    qputenv("NUV_STOMP_HEARTBEAT_MS", "0");
    qputenv("NUV_STOMP_CONNECT_TIMEOUT_MS", "5000");
    qputenv("NUV_STOMP_CONFIG", "/dev/null");
}

void TransportFaultsTest::connectFrame_data()
{
    QTest::addColumn<QByteArray>("login");
    QTest::addColumn<QByteArray>("clientId");
    QTest::addColumn<QByteArray>("heartBeat");

    QTest::newRow("anonymous, heart-beats off") << QByteArray() << QByteArray() << QByteArray("0");
    QTest::newRow("login, client id and heart-beats")
        << QByteArray("nuv") << QByteArray("desk-7") << QByteArray("1500");
}

void TransportFaultsTest::connectFrame()
{
    QFETCH(QByteArray, login);
    QFETCH(QByteArray, clientId);
    QFETCH(QByteArray, heartBeat);
    if (!login.isEmpty()) {
        qputenv("NUV_STOMP_LOGIN", login);
        qputenv("NUV_STOMP_PASSCODE", "pass:word");
    }
    qputenv("NUV_STOMP_HEARTBEAT_MS", heartBeat);

    Frame connect;
    Frame subscribe;
    FakeBroker fake([&](FakeLink &link) {
        if (!link.expect("CONNECT", &connect))
            return;
        link.write(QByteArray("CONNECTED\nversion:1.2\nheart-beat:0,0\n\n", 38) + '\0');
        if (link.expect("SUBSCRIBE", &subscribe))
            link.write(receiptFor(subscribe));
    });
    const quint16 port = fake.listen();
    auto transport = stomp::newTransport();
    transport->setClientId(QString::fromUtf8(clientId));
    QVERIFY2(transport->connectToBroker(QStringLiteral("127.0.0.1"), port),
             qPrintable(transport->lastErrorText));
    fake.stop();
    fake.wait();

    QCOMPARE(connect.header("accept-version"), QByteArray("1.2"));
    QCOMPARE(connect.header("host"), QByteArray("127.0.0.1"));
    QCOMPARE(connect.header("heart-beat"), heartBeat + ',' + heartBeat);
    QCOMPARE(connect.header("login"), login);
    QCOMPARE(connect.header("passcode"), login.isEmpty() ? QByteArray() : "pass:word");
    QCOMPARE(connect.header("client-id"), clientId);
    QCOMPARE(subscribe.header("destination"), QByteArray("/temp-queue/nuv.replies"));
    QCOMPARE(subscribe.header("id"), QByteArray("replies"));
    QCOMPARE(subscribe.header("ack"), QByteArray("auto"));
    QVERIFY(!subscribe.header("receipt").isEmpty());
}

void TransportFaultsTest::handshakeFailures_data()
{
    QTest::addColumn<Handshake>("server");
    QTest::addColumn<QByteArray>("login");
    QTest::addColumn<QString>("expected");

    QTest::newRow("no answer to CONNECT")
        << Handshake::Silent << QByteArray() << "no answer within 700 ms";
    QTest::newRow("ERROR instead of CONNECTED, no login configured")
        << Handshake::Error << QByteArray()
        << "refused the connection: Access denied. No broker login is configured";
    QTest::newRow("ERROR instead of CONNECTED for a login")
        << Handshake::Error << QByteArray("nuv")
        << "refused the connection for broker user \"nuv\": Access denied";
    // ActiveMQ's way: the close follows the ERROR frame at once, and the
    // frame's text must win over the close's.
    QTest::newRow("ERROR and an immediate close")
        << Handshake::ErrorAndClose << QByteArray("nuv")
        << "refused the connection for broker user \"nuv\": Access denied";
    QTest::newRow("broker that speaks STOMP 1.1 only")
        << Handshake::OldVersion << QByteArray() << "it speaks STOMP 1.1";
    QTest::newRow("hang-up during the handshake")
        << Handshake::Hangup << QByteArray() << "closed the connection during the STOMP handshake";
    QTest::newRow("an HTTP answer instead of STOMP")
        << Handshake::Garbage << QByteArray() << "malformed STOMP frame";
    QTest::newRow("reply subscription refused")
        << Handshake::SubscriptionRefused << QByteArray()
        << "refused the subscription to this connection's reply queue: no temp queues";
}

void TransportFaultsTest::handshakeFailures()
{
    QFETCH(Handshake, server);
    QFETCH(QByteArray, login);
    QFETCH(QString, expected);
    // Short where the time-out is the point, generous where it must not hit.
    qputenv("NUV_STOMP_CONNECT_TIMEOUT_MS", server == Handshake::Silent ? "700" : "5000");
    if (!login.isEmpty()) {
        qputenv("NUV_STOMP_LOGIN", login);
        qputenv("NUV_STOMP_PASSCODE", "topsecret");
    }

    FakeBroker fake([server, &fake](FakeLink &link) {
        if (!link.expect("CONNECT"))
            return;
        const QByteArray nul(1, '\0');
        switch (server) {
        case Handshake::Silent:
            while (!fake.stopping())
                QThread::msleep(20);
            break;
        case Handshake::Error:
            link.write("ERROR\nmessage:Access denied\n\nAccess denied" + nul);
            break;
        case Handshake::ErrorAndClose:
            link.write("ERROR\nmessage:Access denied\n\nAccess denied" + nul);
            link.close();
            break;
        case Handshake::OldVersion:
            link.write("CONNECTED\nversion:1.1\n\n" + nul);
            break;
        case Handshake::Hangup:
            link.close();
            break;
        case Handshake::Garbage:
            link.write("HTTP/1.1 400 Bad Request\r\n\r\n");
            break;
        case Handshake::SubscriptionRefused:
            link.write("CONNECTED\nversion:1.2\n\n" + nul);
            if (link.expect("SUBSCRIBE"))
                link.write("ERROR\nmessage:no temp queues\n\n" + nul);
            break;
        }
    });
    const quint16 port = fake.listen();
    auto transport = stomp::newTransport();
    stomp::LostCounter lost(transport.get());
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!transport->connectToBroker(QStringLiteral("127.0.0.1"), port));
    const QString text = transport->lastErrorText;
    QVERIFY2(text.contains(expected), qPrintable(text));
    QVERIFY2(text.contains(QStringLiteral("127.0.0.1:%1").arg(port)), qPrintable(text));
    QVERIFY2(!text.contains(QLatin1String("topsecret")), qPrintable(text));
    QVERIFY2(clock.elapsed() < 10000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(!transport->isConnected());
    QVERIFY(transport->getAuthToken().isEmpty());
    QCOMPARE(lossesSoFar(transport.get(), lost), 0); // never connected, so nothing was lost
}

void TransportFaultsTest::heartBeatsKeepTheConnection()
{
    qputenv("NUV_STOMP_HEARTBEAT_MS", "500");
    std::atomic<qint64> received { 0 };
    FakeBroker fake([&](FakeLink &link) {
        if (!link.handshake("500,500"))
            return;
        // A broker that beats every 100 ms and reads what the client sends.
        Frame ignored;
        while (!fake.stopping()) {
            link.write("\n");
            link.next(&ignored, 100);
            received = link.heartBeatsReceived();
        }
    });
    const quint16 port = fake.listen();
    auto transport = stomp::newTransport();
    stomp::LostCounter lost(transport.get());
    QVERIFY2(transport->connectToBroker(QStringLiteral("127.0.0.1"), port),
             qPrintable(transport->lastErrorText));
    // Several times the second after which a silent broker counts as gone.
    QTest::qWait(3000);
    QVERIFY(transport->isConnected());
    QVERIFY2(received >= 3, qPrintable(QString::number(received)));
    QCOMPARE(lossesSoFar(transport.get(), lost), 0);
    fake.stop();
}

void TransportFaultsTest::requestsStandInForHeartBeats()
{
    // Any frame is a sign of life: while requests flow, no heart-beat goes
    // out (one would also push the next request onto the I/O thread).
    qputenv("NUV_STOMP_HEARTBEAT_MS", "500");
    std::atomic<qint64> received { 0 };
    FakeBroker fake([&](FakeLink &link) {
        if (!link.handshake("0,500"))
            return;
        Frame send;
        while (!fake.stopping()) {
            if (link.next(&send, 100) && send.command == "SEND")
                link.write(
                    replyFrame(send.header("correlation-id"), command(QStringLiteral("OK"))));
            received = link.heartBeatsReceived();
        }
    });
    const quint16 port = fake.listen();
    auto transport = stomp::newTransport();
    QVERIFY2(transport->connectToBroker(QStringLiteral("127.0.0.1"), port),
             qPrintable(transport->lastErrorText));
    QElapsedTimer clock;
    clock.start();
    int calls = 0;
    while (clock.elapsed() < 2500) {
        const CallResult result = call(transport.get(), command(QStringLiteral("CFBUSY")), 30);
        QVERIFY2(result.ok, qPrintable(result.error));
        ++calls;
        QThread::msleep(20);
    }
    // Four intervals long: a beat would have gone out every 250 ms without
    // the requests. One slack for a scheduler stall on a loaded machine.
    QVERIFY2(
        received <= 1,
        qPrintable(
            QStringLiteral("%1 heart-beats during %2 requests").arg(qint64(received)).arg(calls)));
    fake.stop();
}

void TransportFaultsTest::missedHeartBeatsLoseTheConnection()
{
    qputenv("NUV_STOMP_HEARTBEAT_MS", "200");
    FakeBroker fake([&](FakeLink &link) {
        if (!link.handshake("200,200"))
            return;
        // Then silence: the socket stays open, but the broker no longer beats.
        while (!fake.stopping())
            QThread::msleep(20);
    });
    const quint16 port = fake.listen();
    auto transport = stomp::newTransport();
    stomp::LostCounter lost(transport.get());
    QVERIFY2(transport->connectToBroker(QStringLiteral("127.0.0.1"), port),
             qPrintable(transport->lastErrorText));
    const CallResult result = call(transport.get(), command(QStringLiteral("CFWAITING")), 30);
    QVERIFY(!result.ok);
    QVERIFY2(result.error.contains(QLatin1String("No reply to \"CFWAITING\": The connection to the "
                                                 "message broker at 127.0.0.1:")),
             qPrintable(result.error));
    QVERIFY2(result.error.contains(QLatin1String("no heart-beat from the broker")),
             qPrintable(result.error));
    QVERIFY2(result.elapsedMs < 10000, qPrintable(QString::number(result.elapsedMs)));
    QVERIFY(!transport->isConnected());
    QVERIFY(transport->getAuthToken().isEmpty());
    QCOMPARE(lossesSoFar(transport.get(), lost), 1);
    fake.stop();
}

void TransportFaultsTest::hangupFailsTheWaitingCallAtOnce()
{
    FakeBroker fake([](FakeLink &link) {
        if (link.handshake() && link.expect("SEND"))
            link.close();
    });
    const quint16 port = fake.listen();
    auto transport = stomp::newTransport();
    stomp::LostCounter lost(transport.get());
    QVERIFY(transport->connectToBroker(QStringLiteral("127.0.0.1"), port));
    const CallResult result = call(transport.get(), command(QStringLiteral("CFHANGUP")), 30);
    QVERIFY(!result.ok);
    QVERIFY2(result.error.contains(QLatin1String("was lost: the broker closed the connection")),
             qPrintable(result.error));
    QVERIFY2(result.elapsedMs < 10000, qPrintable(QString::number(result.elapsedMs)));

    // Later calls fail at once with the same reason instead of waiting.
    const CallResult after = call(transport.get(), command(QStringLiteral("CFAFTER")), 30);
    QVERIFY(!after.ok);
    QVERIFY2(after.error.contains(QLatin1String("was lost")), qPrintable(after.error));
    QVERIFY(after.elapsedMs < 1000);
    QCOMPARE(lossesSoFar(transport.get(), lost), 1);
}

void TransportFaultsTest::malformedFrameLosesTheConnection()
{
    FakeBroker fake([](FakeLink &link) {
        if (link.handshake() && link.expect("SEND"))
            link.write(QByteArray("MESSAGE\nno colon here\n\n") + '\0');
    });
    const quint16 port = fake.listen();
    auto transport = stomp::newTransport();
    stomp::LostCounter lost(transport.get());
    QVERIFY(transport->connectToBroker(QStringLiteral("127.0.0.1"), port));
    const CallResult result = call(transport.get(), command(QStringLiteral("CFBROKEN")), 30);
    QVERIFY(!result.ok);
    QVERIFY2(result.error.contains(QLatin1String("malformed STOMP frame (a header line has no "
                                                 "colon)")),
             qPrintable(result.error));
    QCOMPARE(lossesSoFar(transport.get(), lost), 1);
}

void TransportFaultsTest::framesCutUpAndPackedTogether()
{
    nuvMQClassifyMessage answer = command(QStringLiteral("OK"), { QStringLiteral("a:b\\c") });
    nuvMQClassifyMessage broadcast = command(QStringLiteral("NEWS"));
    FakeBroker fake([&](FakeLink &link) {
        if (!link.expect("CONNECT"))
            return;
        const QByteArray nul(1, '\0');
        Frame subscribe;
        link.write("\n\nCONNECTED\r\nversion:1.2\r\nheart-beat:0,0\r\n\r\n" + nul + "\n");
        if (!link.expect("SUBSCRIBE", &subscribe))
            return;
        Frame send;
        // The receipt, and later the request's receipt, reply and an
        // unsolicited message in one write, each cut into single bytes.
        link.writeSlowly(receiptFor(subscribe) + "\n");
        if (!link.expect("SEND", &send))
            return;
        link.writeSlowly(receiptFor(send) + "\r\n"
                         + replyFrame(send.header("correlation-id"), answer)
                         + replyFrame(QByteArray(), broadcast));
    });
    const quint16 port = fake.listen();
    auto transport = stomp::newTransport();
    QVERIFY2(transport->connectToBroker(QStringLiteral("127.0.0.1"), port),
             qPrintable(transport->lastErrorText));
    const CallResult result = call(transport.get(), command(QStringLiteral("CFCUT")), 30);
    QVERIFY2(result.ok, qPrintable(result.error));
    QCOMPARE(result.reply.command, QStringLiteral("OK"));
    QCOMPARE(result.reply.getDataList(), QStringList { QStringLiteral("a:b\\c") });
    nuvMQClassifyMessage received;
    QVERIFY2(transport->receiveMessage(&received, 10), qPrintable(transport->lastErrorText));
    QCOMPARE(received.command, QStringLiteral("NEWS"));
    fake.stop();
}

void TransportFaultsTest::replyForNobodyIsDroppedAndCounted()
{
    FakeBroker fake([](FakeLink &link) {
        Frame send;
        if (!link.handshake() || !link.expect("SEND", &send))
            return;
        link.write(replyFrame("not-a-call-of-ours", command(QStringLiteral("WRONG"))));
        link.write(replyFrame(send.header("correlation-id"), command(QStringLiteral("RIGHT"))));
    });
    const quint16 port = fake.listen();
    auto transport = stomp::newTransport();
    QVERIFY(transport->connectToBroker(QStringLiteral("127.0.0.1"), port));
    const CallResult result = call(transport.get(), command(QStringLiteral("CFWHICH")), 30);
    QVERIFY2(result.ok, qPrintable(result.error));
    QCOMPARE(result.reply.command, QStringLiteral("RIGHT"));
    QCOMPARE(transport->property("droppedReplies").toLongLong(), qint64(1));
    fake.stop();
}

void TransportFaultsTest::brokerErrorForTheRequestFailsTheCall()
{
    FakeBroker fake([](FakeLink &link) {
        Frame send;
        if (!link.handshake() || !link.expect("SEND", &send))
            return;
        Frame error("ERROR");
        error.add("receipt-id", send.header("receipt")).add("message", "queue is full");
        link.write(stomp::encodeFrame(error));
    });
    const quint16 port = fake.listen();
    auto transport = stomp::newTransport();
    QVERIFY(transport->connectToBroker(QStringLiteral("127.0.0.1"), port));
    const CallResult result = call(transport.get(), command(QStringLiteral("CFFULL")), 30);
    QVERIFY(!result.ok);
    QVERIFY2(result.error.contains(QLatin1String("refused it: queue is full")),
             qPrintable(result.error));
    QVERIFY2(result.elapsedMs < 10000, qPrintable(QString::number(result.elapsedMs)));
    QVERIFY(transport->isConnected());
    fake.stop();
}

void TransportFaultsTest::disconnectSendsDisconnectWithReceipt()
{
    Frame disconnect;
    std::atomic<bool> closedByClient { false };
    FakeBroker fake([&](FakeLink &link) {
        if (!link.handshake() || !link.expect("DISCONNECT", &disconnect))
            return;
        link.write(receiptFor(disconnect));
        closedByClient = link.awaitClose(5000);
    });
    const quint16 port = fake.listen();
    auto transport = stomp::newTransport();
    stomp::LostCounter lost(transport.get());
    QVERIFY(transport->connectToBroker(QStringLiteral("127.0.0.1"), port));
    QVERIFY(transport->isConnected());
    transport->disconnectFromBroker();
    QVERIFY(!transport->isConnected());
    QVERIFY(transport->getAuthToken().isEmpty());
    transport->disconnectFromBroker(); // harmless a second time
    fake.wait();
    QVERIFY(!disconnect.header("receipt").isEmpty());
    QVERIFY(closedByClient);
    const CallResult after = call(transport.get(), command(QStringLiteral("CFAFTER")), 5);
    QVERIFY(!after.ok);
    QVERIFY2(after.error.contains(QLatin1String("closed by this application")),
             qPrintable(after.error));
    QCOMPARE(lossesSoFar(transport.get(), lost), 0);
}

QTEST_GUILESS_MAIN(TransportFaultsTest)
#include "tst_transportfaults.moc"

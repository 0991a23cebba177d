// What each broker account may do on the broker that scripts/broker sets
// up: clients send requests and read their own replies and nothing else,
// servers read requests, answer and follow the connection advisories; and
// the transport takes a reply only for a call that waits with its
// correlation id.

#include "brokerenv.h"
#include "exchangehelpers.h"

#include <QtTest>

#include <atomic>
#include <memory>

using stomp::BrokerEnv;
using stomp::Peer;
using stomp::Responder;

namespace {

const QByteArray requestQueue = QByteArrayLiteral("/queue/nuv.test.roles");
// Generous for a loaded machine; a broker answers a SUBSCRIBE in
// milliseconds.
constexpr int answerMs = 15000;

// SUBSCRIBE with `headers` and a receipt: empty when the broker took it,
// else its error (or why nothing came).
QString subscribe(Peer &peer, const QByteArray &destination,
                  const QVector<QPair<QByteArray, QByteArray>> &headers = {})
{
    stomp::Frame frame("SUBSCRIBE");
    frame.add("id", "probe").add("destination", destination).add("receipt", "probed");
    for (const auto &header : headers)
        frame.add(header.first, header.second);
    if (!peer.send(frame))
        return peer.errorText();
    return peer.awaitReceipt("probed", answerMs) ? QString() : peer.errorText();
}

} // namespace

class BrokerRolesTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void clientReadsNothingButItsReplies_data();
    void clientReadsNothingButItsReplies();
    void clientSendsOnlyRequests();
    void serverReadsWhatItNeeds_data();
    void serverReadsWhatItNeeds();
    void anonymousAndDefaultLoginsAreRefused_data();
    void anonymousAndDefaultLoginsAreRefused();
    void forgedRepliesAreIgnored();

private:
    BrokerEnv broker;
};

void BrokerRolesTest::initTestCase()
{
    QVERIFY2(broker.ok(), qPrintable(broker.problem()));
    QVERIFY(broker.login() != broker.serverLogin());
    broker.exportCredentials();
    qputenv("NUV_STOMP_REQUEST_QUEUE", requestQueue);
}

void BrokerRolesTest::clientReadsNothingButItsReplies_data()
{
    QTest::addColumn<QByteArray>("destination");
    QTest::addColumn<bool>("browse");
    QTest::addColumn<bool>("allowed");
    QTest::newRow("its own temporary queue")
        << QByteArray("/temp-queue/nuv.replies") << false << true;
    QTest::newRow("the request queue") << QByteArray("/queue/nuv.kesp.classify") << false << false;
    QTest::newRow("browsing the request queue")
        << QByteArray("/queue/nuv.kesp.classify") << true << false;
    QTest::newRow("a test request queue") << requestQueue << false << false;
    QTest::newRow("every nuv queue") << QByteArray("/queue/nuv.>") << false << false;
    QTest::newRow("every queue") << QByteArray("/queue/>") << false << false;
    QTest::newRow("every topic") << QByteArray("/topic/>") << false << false;
    QTest::newRow("every nuv topic") << QByteArray("/topic/nuv.>") << false << false;
    QTest::newRow("temporary queue advisories")
        << QByteArray("/topic/ActiveMQ.Advisory.TempQueue") << false << false;
    QTest::newRow("connection advisories")
        << QByteArray("/topic/ActiveMQ.Advisory.Connection") << false << false;
    QTest::newRow("every advisory") << QByteArray("/topic/ActiveMQ.Advisory.>") << false << false;
}

void BrokerRolesTest::clientReadsNothingButItsReplies()
{
    QFETCH(QByteArray, destination);
    QFETCH(bool, browse);
    QFETCH(bool, allowed);
    Peer client;
    QVERIFY2(client.open(broker.clientPeerOptions()), qPrintable(client.errorText()));
    QVector<QPair<QByteArray, QByteArray>> headers;
    if (browse)
        headers.append(qMakePair(QByteArray("browser"), QByteArray("true")));
    const QString error = subscribe(client, destination, headers);
    if (allowed)
        QVERIFY2(error.isEmpty(), qPrintable(error));
    else
        QVERIFY2(error.contains(
                     QStringLiteral("User %1 is not authorized to read from").arg(broker.login())),
                 qPrintable(error));
}

void BrokerRolesTest::clientSendsOnlyRequests()
{
    // The victim's reply queue, as a server sees it in the reply-to.
    std::unique_ptr<nuvMQClientInterface> victim = stomp::newTransport();
    QVERIFY(victim);
    QVERIFY2(victim->connectToBroker(broker.host(), broker.stompPort()),
             qPrintable(victim->lastErrorText));
    Responder server(broker.peerOptions(), requestQueue, echo);
    QVERIFY2(server.begin(), qPrintable(server.errorText()));
    const CallResult answered = call(victim.get(), command(QStringLiteral("CFPING")));
    QVERIFY2(answered.ok, qPrintable(answered.error));
    const QByteArray victimReplies = server.requests().last().frame.header("reply-to");
    QVERIFY2(victimReplies.startsWith("/remote-temp-queue/"), victimReplies.constData());

    Peer attacker;
    QVERIFY2(attacker.open(broker.clientPeerOptions()), qPrintable(attacker.errorText()));
    const auto sendTo = [&](const QByteArray &destination) {
        stomp::Frame frame("SEND");
        frame.add("destination", destination).add("correlation-id", "guess");
        frame.add("receipt", "sent");
        frame.body = "forged";
        return attacker.send(frame) && attacker.awaitReceipt("sent", answerMs);
    };
    QVERIFY2(sendTo(requestQueue), qPrintable(attacker.errorText()));
    QVERIFY(!sendTo(victimReplies));
    QVERIFY2(attacker.errorText().contains(
                 QStringLiteral("User %1 is not authorized to write to").arg(broker.login())),
             qPrintable(attacker.errorText()));
    victim->disconnectFromBroker();
}

void BrokerRolesTest::serverReadsWhatItNeeds_data()
{
    QTest::addColumn<QByteArray>("destination");
    QTest::addColumn<QByteArray>("transformation");
    QTest::newRow("the request queue") << QByteArray("/queue/nuv.kesp.classify") << QByteArray();
    QTest::newRow("connection advisories as JSON")
        << QByteArray("/topic/ActiveMQ.Advisory.Connection") << QByteArray("jms-advisory-json");
}

void BrokerRolesTest::serverReadsWhatItNeeds()
{
    QFETCH(QByteArray, destination);
    QFETCH(QByteArray, transformation);
    Peer server;
    QVERIFY2(server.open(broker.peerOptions()), qPrintable(server.errorText()));
    QVector<QPair<QByteArray, QByteArray>> headers;
    if (!transformation.isEmpty())
        headers.append(qMakePair(QByteArray("transformation"), transformation));
    const QString error = subscribe(server, destination, headers);
    QVERIFY2(error.isEmpty(), qPrintable(error));
    if (!transformation.isEmpty()) {
        // The broker replays the open connections, this one among them, as
        // JSON (without XStream and Jettison it would close the connection).
        stomp::Frame advisory;
        QVERIFY2(server.receive(&advisory, answerMs), qPrintable(server.errorText()));
        QVERIFY2(advisory.body.startsWith("{\"ConnectionInfo\""), advisory.body.constData());
    }
}

void BrokerRolesTest::anonymousAndDefaultLoginsAreRefused_data()
{
    QTest::addColumn<QByteArray>("login");
    QTest::addColumn<QByteArray>("passcode");
    QTest::newRow("anonymous") << QByteArray() << QByteArray();
    QTest::newRow("admin/admin") << QByteArray("admin") << QByteArray("admin");
    QTest::newRow("system/manager") << QByteArray("system") << QByteArray("manager");
    QTest::newRow("user/password") << QByteArray("user") << QByteArray("password");
    QTest::newRow("guest/password") << QByteArray("guest") << QByteArray("password");
    QTest::newRow("the client's name, the server's passcode")
        << broker.login().toUtf8() << broker.serverPasscode().toUtf8();
}

void BrokerRolesTest::anonymousAndDefaultLoginsAreRefused()
{
    QFETCH(QByteArray, login);
    QFETCH(QByteArray, passcode);
    Peer::Options options = broker.peerOptions();
    options.login = login;
    options.passcode = passcode;
    Peer peer;
    QVERIFY(!peer.open(options));
    QVERIFY2(!peer.errorText().isEmpty(), "refused without a reason");
}

void BrokerRolesTest::forgedRepliesAreIgnored()
{
    // A server that, before its answer, lets a forger (who holds the
    // servers' account) put replies into the caller's reply queue: one
    // with a correlation id of its own, one without any.
    std::atomic<int> forged { 0 };
    Responder server(
        broker.peerOptions(), requestQueue,
        [&](const Responder::Request &request) -> std::optional<nuvMQClassifyMessage> {
            Peer forger;
            if (!forger.open(broker.peerOptions()))
                return std::nullopt;
            nuvMQClassifyMessage fake = command(QStringLiteral("FORGED"));
            QString body;
            fake.convertToBase64(body);
            for (const QByteArray &correlation : { QByteArray("wrong"), QByteArray() }) {
                stomp::Frame frame("SEND");
                frame.add("destination", request.frame.header("reply-to"));
                if (!correlation.isEmpty())
                    frame.add("correlation-id", correlation);
                frame.add("receipt", "forged");
                frame.body = body.toLatin1();
                if (forger.send(frame) && forger.awaitReceipt("forged", answerMs))
                    ++forged;
            }
            forger.close();
            return echo(request);
        });
    QVERIFY2(server.begin(), qPrintable(server.errorText()));
    std::unique_ptr<nuvMQClientInterface> transport = stomp::newTransport();
    QVERIFY(transport);
    QVERIFY2(transport->connectToBroker(broker.host(), broker.stompPort()),
             qPrintable(transport->lastErrorText));
    const qint64 droppedBefore = transport->property("droppedReplies").toLongLong();

    const CallResult result = call(transport.get(), command(QStringLiteral("CFREAL")));
    QVERIFY2(result.ok, qPrintable(result.error));
    QCOMPARE(forged.load(), 2);
    QCOMPARE(result.reply.command, QStringLiteral("ECHO CFREAL"));
    // The one with a correlation id nobody waits for is counted as dropped.
    QTRY_COMPARE_WITH_TIMEOUT(transport->property("droppedReplies").toLongLong(), droppedBefore + 1,
                              answerMs);
    // The next call gets its own answer too.
    const CallResult next = call(transport.get(), command(QStringLiteral("CFNEXT")));
    QVERIFY2(next.ok, qPrintable(next.error));
    QCOMPARE(next.reply.command, QStringLiteral("ECHO CFNEXT"));
    transport->disconnectFromBroker();
}

QTEST_GUILESS_MAIN(BrokerRolesTest)
#include "tst_brokerroles.moc"

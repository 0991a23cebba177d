// SPDX-License-Identifier: Apache-2.0
// Sessions that nuvkesp-server issues, binds and ends, through the real
// broker: the identity ActiveMQ stamps on a message cannot be chosen by its
// sender, a token works only on the connection that logged it in and only in
// the transport's form, and sessions end when their connection closes or
// sits idle.

#include "connectionstate.h"
#include "kesptest.h"
#include "loadclient.h"
#include "nuvmqclientinterface.h"
#include "senderidentity.h"
#include "serverprocess.h"
#include "stomppeer.h"

#include <QUuid>
#include <QtTest>

namespace {

// Long enough for a loaded two-core machine; the broker reports a closed
// connection at once, and an idle server takes it within its 200 ms poll.
constexpr int settleMs = 20000;

const QByteArray replies = "/temp-queue/binding";

// A client on a raw STOMP connection, sending requests with whatever token
// and headers it likes, as an attacker holding the clients' account can.
struct RawClient
{
    explicit RawClient(const stomp::BrokerEnv &broker)
    {
        ready = peer.open(broker.clientPeerOptions()) && peer.subscribe("replies", replies);
    }

    // The reply to `request` sent with `token` (and `extra` headers);
    // an ERROR with the reason when none came.
    nuvMQClassifyMessage call(nuvMQClassifyMessage request, const QByteArray &token,
                              const QVector<QPair<QByteArray, QByteArray>> &extra = {})
    {
        QString body;
        request.convertToBase64(body);
        const QByteArray correlation = QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
        stomp::Frame send("SEND");
        send.add("destination", qgetenv("NUV_STOMP_REQUEST_QUEUE")).add("reply-to", replies);
        send.add("correlation-id", correlation).add("nuv-session-token", token);
        for (const auto &header : extra)
            send.add(header.first, header.second);
        send.body = body.toLatin1();
        nuvMQClassifyMessage reply;
        stomp::Frame answer;
        if (!peer.send(send) || !peer.receive(&answer, settleMs)
            || answer.header("correlation-id") != correlation
            || !reply.convertFromBase64(QString::fromLatin1(answer.body))) {
            reply.command = QStringLiteral("ERROR");
            reply.errorText = QStringLiteral("no reply: ") + peer.errorText();
        }
        return reply;
    }

    nuvMQClassifyMessage login(const QByteArray &token)
    {
        return call(kesp::command(QStringLiteral("CFLOGIN"),
                                  { kesptest::user, kesptest::password, QString() }),
                    token);
    }

    stomp::Peer peer;
    bool ready = false;
};

QByteArray freshToken()
{
    return stomp::newSessionToken();
}

nuvMQClassifyMessage archivesRequest()
{
    return kesp::command(QStringLiteral("CFDOCGETARCHIVES"), {});
}

} // namespace

class KespBinding : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void brokerStampsTheSender();
    void malformedTokensAreRefused_data();
    void malformedTokensAreRefused();
    void tokenFromAnotherConnectionIsRefused();
    void sessionsEndWithTheirConnection_data();
    void sessionsEndWithTheirConnection();
    void refusedSessions_data();
    void refusedSessions();
    void cleanupTestCase();

private:
    qint64 sessionsOf(const QByteArray &token) const
    {
        return kesptest::countRows(
            space.database,
            QStringLiteral("SELECT count(*) FROM sessions WHERE token = '%1'")
                .arg(QString::fromLatin1(token)));
    }

    stomp::BrokerEnv broker;
    kesptest::Workspace space;
    std::unique_ptr<kesp::ServerProcess> server;
};

void KespBinding::initTestCase()
{
    const QString problem = kesptest::useBroker(broker, QStringLiteral("binding"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    QVERIFY2(!space.database.isEmpty(), qPrintable(space.error));
    server = std::make_unique<kesp::ServerProcess>(QStringLiteral("binding"), space.database,
                                                   kesptest::brokerAddress(broker),
                                                   space.path(QStringLiteral("server.log")));
    server->setVariable(QStringLiteral("NUV_SERVER_PBKDF2_ITERATIONS"), QStringLiteral("1000"));
    QVERIFY2(server->start(), qPrintable(server->log()));
}

void KespBinding::brokerStampsTheSender()
{
    // A reader with the servers' account on a queue of its own, and on the
    // connection advisories as the daemon follows them.
    const QByteArray queue = qgetenv("NUV_STOMP_REQUEST_QUEUE") + "-stamp";
    stomp::Peer reader;
    QVERIFY2(reader.open(broker.peerOptions()), qPrintable(reader.errorText()));
    QVERIFY2(reader.subscribe("stamped", queue), qPrintable(reader.errorText()));
    stomp::Frame advisories("SUBSCRIBE");
    advisories.add("id", "advisories").add("destination", kesp::connectionAdvisoryTopic);
    advisories.add("transformation", kesp::advisoryTransformation).add("receipt", "advised");
    QVERIFY(reader.send(advisories));
    QVERIFY2(reader.awaitReceipt("advised", settleMs), qPrintable(reader.errorText()));

    // Two client connections; the first claims an id and a user of its
    // choice, naming a connection that is not its own.
    stomp::Peer first;
    stomp::Peer second;
    QVERIFY2(first.open(broker.clientPeerOptions()), qPrintable(first.errorText()));
    QVERIFY2(second.open(broker.clientPeerOptions()), qPrintable(second.errorText()));
    const QByteArray forged = "ID:forged-1-1:1:-1:1:1";
    const auto sendFrom = [&](stomp::Peer &peer, const QByteArray &body, bool forge) {
        stomp::Frame send("SEND");
        send.add("destination", queue);
        if (forge)
            send.add("message-id", forged).add("JMSXUserID", broker.serverLogin().toUtf8());
        send.body = body;
        return peer.send(send);
    };
    QVERIFY(sendFrom(first, "first 1", true));
    QVERIFY(sendFrom(first, "first 2", false));
    QVERIFY(sendFrom(second, "second", true));

    QMap<QByteArray, stomp::Frame> stamped;
    stomp::Frame frame;
    while (stamped.size() < 3 && reader.receive(&frame, settleMs)) {
        if (frame.header("subscription") == "stamped")
            stamped.insert(frame.body, frame);
    }
    QCOMPARE(stamped.size(), 3);
    for (const stomp::Frame &message : qAsConst(stamped)) {
        QVERIFY2(message.header("message-id") != forged, message.header("message-id").constData());
        QCOMPARE(QString::fromUtf8(message.header("JMSXUserID")), broker.login());
    }
    const QString firstConnection = kesp::senderConnection(stamped.value("first 1"));
    QVERIFY2(firstConnection.startsWith(QLatin1String("ID:")),
             stamped.value("first 1").header("message-id").constData());
    QCOMPARE(kesp::senderConnection(stamped.value("first 2")), firstConnection);
    const QString secondConnection = kesp::senderConnection(stamped.value("second"));
    QVERIFY(!secondConnection.isEmpty());
    QVERIFY(secondConnection != firstConnection);

    // The advisory of the first connection's end names the same connection.
    first.abort();
    QString closed;
    while (closed != firstConnection && reader.receive(&frame, settleMs)) {
        if (frame.header("subscription") == "advisories")
            closed = kesp::closedConnection(frame.body);
    }
    QCOMPARE(closed, firstConnection);
    second.close();
    reader.close();
}

void KespBinding::malformedTokensAreRefused_data()
{
    QTest::addColumn<QByteArray>("token");
    QTest::newRow("none") << QByteArray();
    QTest::newRow("a digit") << QByteArray("0");
    QTest::newRow("31 digits") << QByteArray(31, 'a');
    QTest::newRow("33 digits") << QByteArray(33, 'a');
    QTest::newRow("upper case") << QByteArray("0123456789ABCDEF0123456789ABCDEF");
    QTest::newRow("not hexadecimal") << QByteArray("0123456789abcdef0123456789abcdeg");
}

void KespBinding::malformedTokensAreRefused()
{
    QFETCH(QByteArray, token);
    RawClient client(broker);
    QVERIFY2(client.ready, qPrintable(client.peer.errorText()));
    const nuvMQClassifyMessage reply = client.login(token);
    QCOMPARE(reply.errorText,
             QString("CFLOGIN: not logged in: the request carries no valid session token"));
    QCOMPARE(sessionsOf(token), qint64(0));
}

void KespBinding::tokenFromAnotherConnectionIsRefused()
{
    RawClient owner(broker);
    RawClient thief(broker);
    QVERIFY2(owner.ready && thief.ready, qPrintable(owner.peer.errorText()));
    const QByteArray token = freshToken();
    QCOMPARE(owner.login(token).command, QString("OK"));
    const QString ownerConnection
        = testdatabase::queryOnce(
              space.database,
              QStringLiteral("SELECT connection FROM sessions WHERE token = '%1'")
                  .arg(QString::fromLatin1(token)))
              .toString();
    QVERIFY2(ownerConnection.startsWith(QLatin1String("ID:")), qPrintable(ownerConnection));

    // The stolen token, with a message id that names the owner's connection.
    const QVector<QPair<QByteArray, QByteArray>> forged {
        { "message-id", ownerConnection.toUtf8() + ":-1:1:99" }
    };
    QCOMPARE(thief.call(archivesRequest(), token, forged).errorText,
             QString("CFDOCGETARCHIVES: not logged in: the session belongs to another "
                     "connection; log in with CFLOGIN on this one"));
    QCOMPARE(thief
                 .call(kesp::command(QStringLiteral("CFLOGIN"),
                                     { kesptest::user, kesptest::password, QString() }),
                       token, forged)
                 .errorText,
             QString("CFLOGIN: not logged in: the session token belongs to another connection"));
    // The owner's session goes on.
    const nuvMQClassifyMessage own = owner.call(archivesRequest(), token);
    QVERIFY2(own.command == QLatin1String("OK"), qPrintable(own.errorText));
    QCOMPARE(sessionsOf(token), qint64(1));
}

void KespBinding::sessionsEndWithTheirConnection_data()
{
    QTest::addColumn<bool>("transport");
    QTest::addColumn<bool>("abrupt");
    QTest::newRow("transport disconnects") << true << false;
    QTest::newRow("client says goodbye") << false << false;
    QTest::newRow("client's socket drops") << false << true;
}

void KespBinding::sessionsEndWithTheirConnection()
{
    QFETCH(bool, transport);
    QFETCH(bool, abrupt);
    QByteArray token;
    if (transport) {
        // The real transport, logged in; nobody sends CFCLOSESESSION.
        const std::unique_ptr<nuvMQClientInterface> client = stomp::newTransport();
        QVERIFY(client);
        QVERIFY2(client->connectToBroker(broker.host(), broker.stompPort()),
                 qPrintable(client->lastErrorText));
        nuvMQClassifyMessage login = kesp::command(
            QStringLiteral("CFLOGIN"), { kesptest::user, kesptest::password, QString() });
        nuvMQClassifyMessage reply;
        QVERIFY2(client->sendSyncMessage(&login, &reply, nuvClassifyMessageKind, 30, 0, QString(),
                                         nullptr),
                 qPrintable(client->lastErrorText));
        QCOMPARE(reply.command, QString("OK"));
        token = client->getAuthToken().toLatin1();
        QCOMPARE(sessionsOf(token), qint64(1));
        client->disconnectFromBroker();
    } else {
        RawClient client(broker);
        QVERIFY2(client.ready, qPrintable(client.peer.errorText()));
        token = freshToken();
        QCOMPARE(client.login(token).command, QString("OK"));
        QCOMPARE(sessionsOf(token), qint64(1));
        if (abrupt)
            client.peer.abort();
        else
            client.peer.close();
    }
    QTRY_COMPARE_WITH_TIMEOUT(sessionsOf(token), qint64(0), settleMs);
}

void KespBinding::refusedSessions_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("error");
    QTest::newRow("never logged in")
        << QString() << "CFDOCGETARCHIVES: not logged in; log in with CFLOGIN first";
    QTest::newRow("closed by the client")
        << "close"
        << "CFDOCGETARCHIVES: not logged in; log in with CFLOGIN first";
    QTest::newRow("idle for longer than the default time-out")
        << "idle"
        << "CFDOCGETARCHIVES: the session has expired; log in again";
}

void KespBinding::refusedSessions()
{
    QFETCH(QString, before);
    QFETCH(QString, error);
    RawClient client(broker);
    QVERIFY2(client.ready, qPrintable(client.peer.errorText()));
    const QByteArray token = freshToken();
    if (!before.isEmpty()) {
        QCOMPARE(client.login(token).command, QString("OK"));
        QCOMPARE(client.call(archivesRequest(), token).command, QString("OK"));
    }
    if (before == QLatin1String("close")) {
        const nuvMQClassifyMessage closed
            = client.call(kesp::command(QStringLiteral("CFCLOSESESSION"), {}), token);
        QCOMPARE(closed.command, QString("OK"));
    } else if (before == QLatin1String("idle")) {
        const QString longAgo = QDateTime::currentDateTimeUtc()
                                    .addSecs(-(8 * 3600 + 60))
                                    .toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        testdatabase::queryOnce(
            space.database,
            QStringLiteral("UPDATE sessions SET last_seen = '%1' WHERE token = '%2'")
                .arg(longAgo, QString::fromLatin1(token)));
    }
    const QString refusal = client.call(archivesRequest(), token).errorText;
    // The daemon's once-a-minute sweep may remove an idle session just
    // before its request comes; then it is simply gone.
    const QString swept
        = QStringLiteral("CFDOCGETARCHIVES: not logged in; log in with CFLOGIN first");
    if (before == QLatin1String("idle") && refusal == swept)
        qWarning("the idle session was swept before its request came");
    else
        QCOMPARE(refusal, error);
    QCOMPARE(sessionsOf(token), qint64(0));
}

void KespBinding::cleanupTestCase()
{
    if (server)
        QVERIFY2(server->stop(), qPrintable(server->log()));
}

QTEST_GUILESS_MAIN(KespBinding)
#include "tst_kespbinding.moc"

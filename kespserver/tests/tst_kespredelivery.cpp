// A server that commits a request's effect and dies before acknowledging
// it: the broker delivers the request again, and nuvkesp-server answers it
// from the record of processed requests instead of applying it twice. The
// dying server is played by the test (the engine on a raw STOMP connection
// that never sends its ACK), so the moment of death is exact.

#include "kesptest.h"
#include "loadclient.h"
#include "nuvmqclassifymessage.h"
#include "nuvmqclientinterface.h"
#include "requestserver.h"
#include "senderidentity.h"
#include "serverprocess.h"
#include "stomppeer.h"

#include <QtTest>

#include <thread>

class KespRedelivery : public QObject
{
    Q_OBJECT

private slots:
    void committedButUnacknowledgedIsReplayed();
    void callerGoneBeforeTheReply();
    void expiredRequestIsDroppedUnanswered();
};

namespace {

// The request `delivered` as the daemon runs it: with its token, under the
// broker connection that sent it, keyed for redelivery.
nuvMQClassifyMessage runAsTheServer(nuvserver::ServerEngine &engine, const stomp::Frame &delivered,
                                    bool *replayed = nullptr)
{
    nuvMQClassifyMessage received;
    received.convertFromBase64(QString::fromLatin1(delivered.body));
    const nuvserver::Origin origin { QString::fromLatin1(delivered.header("nuv-session-token")),
                                     kesp::senderConnection(delivered) };
    return engine.handle(received, origin, kesp::requestKey(delivered), replayed);
}

// Plays the server for the next request on `peer`: runs it, answers and
// acknowledges it.
bool answerNext(stomp::Peer &peer, nuvserver::ServerEngine &engine)
{
    stomp::Frame delivered;
    if (!peer.receive(&delivered, 20000) || delivered.command != "MESSAGE")
        return false;
    QString body;
    runAsTheServer(engine, delivered).convertToBase64(body);
    stomp::Frame answer("SEND");
    answer.add("destination", delivered.header("reply-to"));
    answer.add("correlation-id", delivered.header("correlation-id")).add("amq-msg-type", "text");
    answer.body = body.toLatin1();
    stomp::Frame ack("ACK");
    ack.add("id", delivered.header("ack"));
    return peer.send(answer) && peer.send(ack);
}

} // namespace

void KespRedelivery::committedButUnacknowledgedIsReplayed()
{
    const stomp::BrokerEnv broker;
    const QString problem = kesptest::useBroker(broker, QStringLiteral("redelivery"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    const QByteArray queue = qgetenv("NUV_STOMP_REQUEST_QUEUE");
    const kesptest::Workspace space;
    QVERIFY2(!space.database.isEmpty(), qPrintable(space.error));
    nuvserver::ServerEngine engine(nuvserver::EngineOptions::fromEnvironment(space.database));
    QString error;
    QVERIFY2(engine.open(&error), qPrintable(error));

    // The doomed server takes requests with client acknowledgement.
    stomp::Peer doomed;
    QVERIFY2(doomed.open(broker.peerOptions()), qPrintable(doomed.errorText()));
    stomp::Frame subscribe("SUBSCRIBE");
    subscribe.add("id", "doomed").add("destination", queue).add("ack", "client-individual");
    subscribe.add("activemq.prefetchSize", "1").add("receipt", "doomed-subscribed");
    QVERIFY(doomed.send(subscribe));
    QVERIFY2(doomed.awaitReceipt("doomed-subscribed", 10000), qPrintable(doomed.errorText()));

    // The caller: logged in through the doomed server (its session bound to
    // its token and its connection), then one request that waits for its
    // answer on a thread of its own.
    const std::unique_ptr<nuvMQClientInterface> transport = stomp::newTransport();
    QVERIFY(transport);
    QVERIFY2(transport->connectToBroker(broker.host(), broker.stompPort()),
             qPrintable(transport->lastErrorText));
    transport->setUserName(kesptest::user);
    nuvMQClassifyMessage login;
    login.command = QStringLiteral("CFLOGIN");
    login.setDataList({ kesptest::user, kesptest::password, QString() });
    nuvMQClassifyMessage loggedIn;
    bool loginAnswered = false;
    std::thread loginCaller([&] {
        loginAnswered = transport->sendSyncMessage(&login, &loggedIn, nuvClassifyMessageKind, 30, 0,
                                                   QString(), nullptr);
    });
    const kesptest::JoinOnExit joinLogin { loginCaller };
    QVERIFY2(answerNext(doomed, engine), qPrintable(doomed.errorText()));
    loginCaller.join();
    QVERIFY2(loginAnswered, qPrintable(transport->lastErrorText));
    QVERIFY2(loggedIn.command != QLatin1String("ERROR"), qPrintable(loggedIn.errorText));
    nuvMQClassifyMessage request;
    request.command = QStringLiteral("CFADDCLIPBOARD");
    request.setDataList({ QStringLiteral("exactly once") });
    nuvMQClassifyMessage reply;
    bool answered = false;
    // std::thread, whose join ThreadSanitizer sees, unlike QThread::wait.
    std::thread caller([&] {
        answered = transport->sendSyncMessage(&request, &reply, nuvClassifyMessageKind, 60, 0,
                                              QString(), nullptr);
    });
    // A failed check returns early; the thread still ends before its data.
    const kesptest::JoinOnExit joinCaller { caller };

    // The doomed server applies it, and goes away without ACK or reply.
    stomp::Frame delivered;
    QVERIFY2(doomed.receive(&delivered, 20000), qPrintable(doomed.errorText()));
    QCOMPARE(delivered.command, QByteArray("MESSAGE"));
    bool replayed = true;
    const nuvMQClassifyMessage firstReply = runAsTheServer(engine, delivered, &replayed);
    QVERIFY2(firstReply.command != QLatin1String("ERROR"), qPrintable(firstReply.errorText));
    QVERIFY(!replayed);
    doomed.close();

    // The real server gets the request again and answers from the record.
    kesp::ServerProcess server(QStringLiteral("survivor"), space.database,
                               kesptest::brokerAddress(broker),
                               space.path(QStringLiteral("server.log")));
    QVERIFY2(server.start(), qPrintable(server.log()));
    caller.join();
    QVERIFY2(answered, qPrintable(transport->lastErrorText));
    QCOMPARE(reply.command, firstReply.command);
    QCOMPARE(reply.getDocId(), firstReply.getDocId());
    QVERIFY2(server.waitForLog(QStringLiteral("CFADDCLIPBOARD user=admin"), 1, 10000),
             qPrintable(server.log()));
    QVERIFY2(server.log().contains(QLatin1String("[replayed]")), qPrintable(server.log()));
    QCOMPARE(kesptest::countRows(space.database, QStringLiteral("SELECT count(*) FROM clipboards")),
             qint64(1));
    transport->disconnectFromBroker();
    QVERIFY2(server.stop(), qPrintable(server.log()));
}

void KespRedelivery::callerGoneBeforeTheReply()
{
    // A caller that gave up and disconnected: its temporary reply queue is
    // gone when the reply is sent. The server goes on serving the others
    // on the same connection.
    const stomp::BrokerEnv broker;
    const QString problem = kesptest::useBroker(broker, QStringLiteral("gone"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    const kesptest::Workspace space;
    QVERIFY2(!space.database.isEmpty(), qPrintable(space.error));
    kesp::ServerProcess server(QStringLiteral("gone"), space.database,
                               kesptest::brokerAddress(broker),
                               space.path(QStringLiteral("server.log")));
    QVERIFY2(server.start(), qPrintable(server.log()));

    stomp::Peer caller;
    QVERIFY2(caller.open(broker.peerOptions()), qPrintable(caller.errorText()));
    nuvMQClassifyMessage request;
    request.command = QStringLiteral("CFDOCGETARCHIVES");
    QString body;
    request.convertToBase64(body);
    stomp::Frame send("SEND");
    send.add("destination", qgetenv("NUV_STOMP_REQUEST_QUEUE"));
    send.add("reply-to", "/remote-temp-queue/ID:gone-1:1:1").add("correlation-id", "gone-1");
    send.body = body.toLatin1();
    QVERIFY(caller.send(send));
    caller.close();
    QVERIFY2(server.waitForLog(QStringLiteral("CFDOCGETARCHIVES user=-"), 1, 20000),
             qPrintable(server.log()));
    // The broker refused the reply to the vanished queue and said so on the
    // server's connection, which stays.
    QVERIFY2(server.waitForLog(QStringLiteral("the broker reports: "), 1, 20000),
             qPrintable(server.log()));

    const std::unique_ptr<nuvMQClientInterface> transport = stomp::newTransport();
    QVERIFY(transport);
    QVERIFY2(transport->connectToBroker(broker.host(), broker.stompPort()),
             qPrintable(transport->lastErrorText));
    nuvMQClassifyMessage login;
    login.command = QStringLiteral("CFLOGIN");
    login.setDataList({ kesptest::user, kesptest::password, QString() });
    nuvMQClassifyMessage reply;
    QVERIFY2(transport->sendSyncMessage(&login, &reply, nuvClassifyMessageKind, 30, 0, QString(),
                                        nullptr),
             qPrintable(transport->lastErrorText + QLatin1Char('\n') + server.log()));
    QVERIFY(!reply.command.contains(QLatin1String("ERROR")));
    transport->disconnectFromBroker();
    QVERIFY2(server.stop(), qPrintable(server.log()));
    QVERIFY2(server.log().contains(QLatin1String("connections 1;")), qPrintable(server.log()));
}

void KespRedelivery::expiredRequestIsDroppedUnanswered()
{
    // A request that waited past its `expires` (here: in the socket of an
    // instance that was stopped) has a caller who gave up: it is
    // acknowledged, neither run nor answered, and counted.
    const stomp::BrokerEnv broker;
    const QString problem = kesptest::useBroker(broker, QStringLiteral("expiry"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    const kesptest::Workspace space;
    QVERIFY2(!space.database.isEmpty(), qPrintable(space.error));
    kesp::ServerProcess server(QStringLiteral("expiry"), space.database,
                               kesptest::brokerAddress(broker),
                               space.path(QStringLiteral("server.log")));
    QVERIFY2(server.start(), qPrintable(server.log()));

    stomp::Peer caller;
    QVERIFY2(caller.open(broker.peerOptions()), qPrintable(caller.errorText()));
    QVERIFY2(caller.subscribe("answers", "/temp-queue/expiry"), qPrintable(caller.errorText()));
    ::kill(pid_t(server.pid()), SIGSTOP);
    nuvMQClassifyMessage request
        = kesp::command(QStringLiteral("CFADDCLIPBOARD"), { QStringLiteral("too late") });
    QString body;
    request.convertToBase64(body);
    stomp::Frame send("SEND");
    send.add("destination", qgetenv("NUV_STOMP_REQUEST_QUEUE"))
        .add("reply-to", "/temp-queue/expiry")
        .add("correlation-id", "expiry-1")
        .add("expires", QByteArray::number(QDateTime::currentMSecsSinceEpoch() + 300));
    send.body = body.toLatin1();
    QVERIFY(caller.send(send));
    QThread::msleep(800); // past the request's expiry, well within a heart-beat
    ::kill(pid_t(server.pid()), SIGCONT);

    QVERIFY2(
        server.waitForLog(QStringLiteral("expired request expiry-1 dropped unanswered"), 1, 20000),
        qPrintable(server.log()));
    stomp::Frame answer;
    QVERIFY2(!caller.receive(&answer, 1000), answer.body.constData());
    QCOMPARE(kesptest::countRows(space.database, QStringLiteral("SELECT count(*) FROM clipboards")),
             qint64(0));
    caller.close();
    QVERIFY2(server.stop(), qPrintable(server.log()));
    QVERIFY2(server.reported(QStringLiteral("expired")) == 1, qPrintable(server.log()));
}

QTEST_GUILESS_MAIN(KespRedelivery)
#include "tst_kespredelivery.moc"

// SPDX-License-Identifier: Apache-2.0
// The transport's request/reply exchange through a real ActiveMQ broker,
// answered by a responder on a second STOMP connection.

#include "brokerenv.h"
#include "exchangehelpers.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QtTest>

#include <future>
#include <memory>

using stomp::BrokerEnv;
using stomp::Responder;

namespace {
const QByteArray requestQueue = QByteArrayLiteral("/queue/nuv.test.exchange");
}

class BrokerExchangeTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void roundTrip_data();
    void roundTrip();
    void requestHeaders_data();
    void requestHeaders();
    void oneReplyQueuePerConnection();
    void concurrentCallersGetTheirOwnReplies();
    void largeAndSmallRequestsFromSeveralThreadsStayWhole();
    void timeOutWithoutResponder();
    void lateReplyIsDroppedAndCounted();
    void expiredRequestDiesOnTheBroker();
    void refusedDestinationFailsAtOnce();

private:
    BrokerEnv broker;
    std::unique_ptr<Responder> responder;
    std::unique_ptr<nuvMQClientInterface> transport;
};

void BrokerExchangeTest::initTestCase()
{
    QVERIFY2(broker.ok(), qPrintable(broker.problem()));
    broker.exportCredentials();
    qputenv("NUV_STOMP_REQUEST_QUEUE", requestQueue);
    responder = std::make_unique<Responder>(broker.peerOptions(), requestQueue, echo);
    QVERIFY2(responder->begin(), qPrintable(responder->errorText()));
    transport = stomp::newTransport();
    QVERIFY(transport);
    QVERIFY2(transport->connectToBroker(broker.host(), broker.stompPort()),
             qPrintable(transport->lastErrorText));
    transport->setUserName(QStringLiteral("alice"));
}

void BrokerExchangeTest::cleanupTestCase()
{
    if (transport)
        transport->disconnectFromBroker();
    transport.reset();
    responder.reset();
}

void BrokerExchangeTest::roundTrip_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("dataList");
    QTest::addColumn<QList<QByteArray>>("data");

    QTest::newRow("command without arguments")
        << "CFGETROLES" << QStringList() << QList<QByteArray>();
    QTest::newRow("empty command") << QString() << QStringList() << QList<QByteArray>();
    QTest::newRow("strings with umlauts, colons and record separators")
        << "CFDOCCLASSIFY"
        << QStringList { QStringLiteral("M\u00fcller:Akte"), QStringLiteral("a\uFEFFb\uFEFFc"),
                         QString(), QStringLiteral("line\nbreak") }
        << QList<QByteArray>();
    QTest::newRow("binary data with NUL bytes and an empty element")
        << "CFSAVE" << QStringList()
        << QList<QByteArray> { QByteArray("a\0b\0", 4), QByteArray(), QByteArray(1, '\0') };
    QTest::newRow("ten thousand list entries") << "CFMANY" << [] {
        QStringList list;
        for (int i = 0; i < 10000; ++i)
            list << QString::number(i);
        return list;
    }() << QList<QByteArray>();
    QByteArray big(20 * 1024 * 1024, '\0');
    for (int i = 0; i < big.size(); ++i)
        big[i] = char((quint32(i) * 2654435761u) >> 24);
    QTest::newRow("20 MiB data payload")
        << "CFBIG" << QStringList { QStringLiteral("x") } << QList<QByteArray> { big };
}

void BrokerExchangeTest::roundTrip()
{
    QFETCH(QString, name);
    QFETCH(QStringList, dataList);
    QFETCH(QList<QByteArray>, data);

    nuvMQClassifyMessage request = command(name, dataList, data);
    request.setDocId(QStringLiteral("doc-42"));
    request.setCurrentArchive(QStringLiteral("Archiv 1"));
    CallResult result = call(transport.get(), request, 120);
    QVERIFY2(result.ok, qPrintable(result.error));
    QCOMPARE(result.reply.command, QStringLiteral("ECHO ") + name);
    QCOMPARE(result.reply.getDocId(), QStringLiteral("doc-42"));
    QCOMPARE(result.reply.getCurrentArchive(), QStringLiteral("Archiv 1"));
    QCOMPARE(result.reply.getDataList(), dataList);
    QCOMPARE(result.reply.getData().size(), data.size());
    for (int i = 0; i < data.size(); ++i)
        QVERIFY2(result.reply.getData().at(i) == data.at(i), qPrintable(QString::number(i)));
}

void BrokerExchangeTest::requestHeaders_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("priority");
    QTest::addColumn<QString>("user");
    QTest::addColumn<qint64>("timeout");

    QTest::newRow("classify kind, no priority") << 1001 << 0 << "alice" << qint64(30);
    QTest::newRow("another kind with priority 7") << 7 << 7 << "bob" << qint64(5);
    QTest::newRow("user name with colon and umlaut")
        << 1001 << 0 << QStringLiteral("dom\u00e4ne:j\u00fcrgen") << qint64(180);
}

void BrokerExchangeTest::requestHeaders()
{
    QFETCH(int, kind);
    QFETCH(int, priority);
    QFETCH(QString, user);
    QFETCH(qint64, timeout);

    transport->setUserName(user);
    const int before = responder->requests().size();
    const qint64 sentAt = QDateTime::currentMSecsSinceEpoch();
    const CallResult result = call(transport.get(), command(QStringLiteral("CFHEADERS")), timeout,
                                   QString(), priority, kind);
    transport->setUserName(QStringLiteral("alice"));
    QVERIFY2(result.ok, qPrintable(result.error));
    const QList<Responder::Request> seen = responder->requests();
    QCOMPARE(seen.size(), before + 1);
    const stomp::Frame &frame = seen.last().frame;

    QCOMPARE(frame.header("destination"), requestQueue);
    QVERIFY2(frame.header("reply-to").startsWith("/remote-temp-queue/"), frame.header("reply-to"));
    QVERIFY(!frame.header("correlation-id").isEmpty());
    QCOMPARE(frame.header("amq-msg-type"), QByteArray("text"));
    QCOMPARE(frame.header("nuv-kind"), QByteArray::number(kind));
    QCOMPARE(frame.header("nuv-message-type"), QByteArray("nuvmqclassifymessage"));
    QCOMPARE(QString::fromUtf8(frame.header("nuv-user")), user);
    QCOMPARE(QString::fromLatin1(frame.header("nuv-session-token")), transport->getAuthToken());
    const qint64 expires = frame.header("expires").toLongLong();
    QVERIFY2(expires >= sentAt + timeout * 1000 && expires <= sentAt + timeout * 1000 + 5000,
             frame.header("expires"));
    QCOMPARE(frame.header("priority"), priority > 0 ? QByteArray::number(priority) : "4");
    QCOMPARE(seen.last().message.command, QStringLiteral("CFHEADERS"));
}

void BrokerExchangeTest::oneReplyQueuePerConnection()
{
    const int before = responder->requests().size();
    for (int i = 0; i < 3; ++i)
        QVERIFY(call(transport.get(), command(QStringLiteral("CFAGAIN"))).ok);
    const QList<Responder::Request> seen = responder->requests().mid(before);
    QCOMPARE(seen.size(), 3);
    QCOMPARE(seen.at(1).frame.header("reply-to"), seen.at(0).frame.header("reply-to"));
    QCOMPARE(seen.at(2).frame.header("reply-to"), seen.at(0).frame.header("reply-to"));
    QSet<QByteArray> ids;
    for (const Responder::Request &request : seen)
        ids.insert(request.frame.header("correlation-id"));
    QCOMPARE(ids.size(), 3);

    // Another connection has a reply queue of its own.
    auto other = stomp::newTransport();
    QVERIFY(other->connectToBroker(broker.host(), broker.stompPort()));
    QVERIFY(call(other.get(), command(QStringLiteral("CFOTHER"))).ok);
    QVERIFY(responder->requests().last().frame.header("reply-to")
            != seen.at(0).frame.header("reply-to"));
}

void BrokerExchangeTest::concurrentCallersGetTheirOwnReplies()
{
    // A second, slower server on the same queue: the broker shares the
    // requests between both, so replies come back out of sending order.
    Responder slow(broker.peerOptions(), requestQueue, [](const Responder::Request &request) {
        QThread::msleep(15);
        return echo(request);
    });
    QVERIFY2(slow.begin(), qPrintable(slow.errorText()));
    const qint64 droppedBefore = transport->property("droppedReplies").toLongLong();

    auto caller = [this](const QString &who) {
        QStringList problems;
        for (int i = 0; i < 40; ++i) {
            const QString name = QStringLiteral("%1-%2").arg(who).arg(i);
            const CallResult result = call(transport.get(), command(name, { who }));
            if (!result.ok)
                problems << name + QStringLiteral(": ") + result.error;
            else if (result.reply.command != QStringLiteral("ECHO ") + name
                     || result.reply.getDataList() != QStringList { who })
                problems << name + QStringLiteral(" got ") + result.reply.command;
        }
        return problems;
    };
    std::future<QStringList> first
        = std::async(std::launch::async, caller, QStringLiteral("first"));
    std::future<QStringList> second
        = std::async(std::launch::async, caller, QStringLiteral("second"));
    const QStringList problems = first.get() + second.get();
    slow.end();
    QVERIFY2(problems.isEmpty(), qPrintable(problems.join(QLatin1Char('\n'))));
    QVERIFY2(slow.answered() > 0, "the second server answered nothing");
    QCOMPARE(transport->property("droppedReplies").toLongLong(), droppedBefore);
}

void BrokerExchangeTest::largeAndSmallRequestsFromSeveralThreadsStayWhole()
{
    // A large request fills the socket's buffer, so part of it waits for the
    // I/O thread while the other thread goes on submitting small requests:
    // every frame must still reach the broker whole and in one piece.
    QByteArray large(6 * 1024 * 1024, '\0');
    for (int i = 0; i < large.size(); ++i)
        large[i] = char((quint32(i) * 2246822519u) >> 24);
    auto largeCaller = [this, &large] {
        QStringList problems;
        for (int i = 0; i < 4; ++i) {
            const QString name = QStringLiteral("large-%1").arg(i);
            const CallResult result
                = call(transport.get(), command(name, { name }, { large }), 120);
            if (!result.ok)
                problems << name + QStringLiteral(": ") + result.error;
            else if (result.reply.command != QStringLiteral("ECHO ") + name
                     || result.reply.getData() != QList<QByteArray> { large })
                problems << name + QStringLiteral(" came back different");
        }
        return problems;
    };
    auto smallCaller = [this] {
        QStringList problems;
        for (int i = 0; i < 60; ++i) {
            const QString name = QStringLiteral("small-%1").arg(i);
            const CallResult result = call(transport.get(), command(name, { name }));
            if (!result.ok)
                problems << name + QStringLiteral(": ") + result.error;
            else if (result.reply.command != QStringLiteral("ECHO ") + name)
                problems << name + QStringLiteral(" got ") + result.reply.command;
        }
        return problems;
    };
    std::future<QStringList> first = std::async(std::launch::async, largeCaller);
    std::future<QStringList> second = std::async(std::launch::async, smallCaller);
    const QStringList problems = first.get() + second.get();
    QVERIFY2(problems.isEmpty(), qPrintable(problems.join(QLatin1Char('\n'))));
    QVERIFY(transport->isConnected());
}

void BrokerExchangeTest::timeOutWithoutResponder()
{
    const CallResult result = call(transport.get(), command(QStringLiteral("CFNOBODY")), 1,
                                   QStringLiteral("/queue/nuv.test.nobody"));
    QVERIFY(!result.ok);
    QVERIFY2(result.error.contains(QLatin1String("No reply to \"CFNOBODY\" within 1 s (time-out)")),
             qPrintable(result.error));
    QVERIFY2(result.error.contains(QLatin1String("/queue/nuv.test.nobody")),
             qPrintable(result.error));
    QVERIFY2(result.elapsedMs >= 900 && result.elapsedMs < 10000,
             qPrintable(QString::number(result.elapsedMs)));
    QVERIFY(transport->isConnected());
}

void BrokerExchangeTest::lateReplyIsDroppedAndCounted()
{
    const qint64 droppedBefore = transport->property("droppedReplies").toLongLong();
    const int answeredBefore = responder->answered();
    const CallResult late = call(transport.get(), command(QStringLiteral("SLEEP 1500")), 1);
    QVERIFY(!late.ok);
    QVERIFY2(late.error.contains(QLatin1String("time-out")), qPrintable(late.error));

    // The reply arrives after the call gave up: it must not be taken for
    // the answer to the next request.
    QTRY_VERIFY_WITH_TIMEOUT(responder->answered() > answeredBefore, 10000);
    const CallResult next = call(transport.get(), command(QStringLiteral("CFNEXT")));
    QVERIFY2(next.ok, qPrintable(next.error));
    QCOMPARE(next.reply.command, QStringLiteral("ECHO CFNEXT"));
    QCOMPARE(transport->property("droppedReplies").toLongLong(), droppedBefore + 1);
}

void BrokerExchangeTest::expiredRequestDiesOnTheBroker()
{
    const QByteArray queue("/queue/nuv.test.expiring");
    const CallResult result
        = call(transport.get(), command(QStringLiteral("CFSTALE")), 1, QString::fromLatin1(queue));
    QVERIFY(!result.ok);
    QThread::msleep(300); // safely past the request's expiry

    // A message sent after it, without expiry, marks the queue's end: a
    // server that starts now must get that one and never the stale one.
    stomp::Peer sender;
    QVERIFY2(sender.open(broker.peerOptions()), qPrintable(sender.errorText()));
    nuvMQClassifyMessage marker = command(QStringLiteral("CFMARKER"));
    QString text;
    marker.convertToBase64(text);
    stomp::Frame frame("SEND");
    frame.add("destination", queue).add("amq-msg-type", "text");
    frame.add("nuv-message-type", "nuvmqclassifymessage").add("receipt", "marker");
    frame.body = text.toUtf8();
    QVERIFY(sender.send(frame));
    QVERIFY2(sender.awaitReceipt("marker", 10000), qPrintable(sender.errorText()));

    Responder late(broker.peerOptions(), queue, echo);
    QVERIFY2(late.begin(), qPrintable(late.errorText()));
    QTRY_COMPARE_WITH_TIMEOUT(late.requests().size(), 1, 10000);
    QCOMPARE(late.requests().first().message.command, QStringLiteral("CFMARKER"));
}

void BrokerExchangeTest::refusedDestinationFailsAtOnce()
{
    // The broker's authorisation refuses this queue; the request's receipt
    // turns that into an immediate failure instead of a 30 s time-out.
    const CallResult result = call(transport.get(), command(QStringLiteral("CFELSEWHERE")), 30,
                                   QStringLiteral("/queue/elsewhere"));
    QVERIFY(!result.ok);
    QVERIFY2(result.error.contains(QLatin1String("refused it")), qPrintable(result.error));
    QVERIFY2(result.error.contains(QLatin1String("not authorized")), qPrintable(result.error));
    QVERIFY2(result.elapsedMs < 10000, qPrintable(QString::number(result.elapsedMs)));
    QVERIFY(transport->isConnected());
    QVERIFY(call(transport.get(), command(QStringLiteral("CFSTILLOK"))).ok);
}

QTEST_GUILESS_MAIN(BrokerExchangeTest)
#include "tst_brokerexchange.moc"

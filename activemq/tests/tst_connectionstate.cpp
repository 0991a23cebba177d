// SPDX-License-Identifier: Apache-2.0
// The state that the I/O thread and the calling threads share: calls and
// their receipts, the end of a session, and the messages nobody asked for.

#include "connectionstate.h"

#include <QtTest>

#include <thread>

using stomp::ConnectionState;
using stomp::Frame;

class ConnectionStateTest : public QObject
{
    Q_OBJECT

private slots:
    void callOutcomes_data();
    void callOutcomes();
    void receiptOfAFinishedCallIsForgotten();
    void unsolicitedQueueIsBounded_data();
    void unsolicitedQueueIsBounded();
    void sessionTokenForm_data();
    void sessionTokenForm();
    void freshTokensHaveTheForm();

private:
    static std::shared_ptr<ConnectionState> openSession(int unsolicitedLimit = 10000)
    {
        stomp::BrokerAddress address;
        address.host = QStringLiteral("127.0.0.1");
        address.port = 61613;
        auto session
            = std::make_shared<ConnectionState>(address, QByteArray("token"), unsolicitedLimit);
        session->opened();
        return session;
    }
};

enum class Event { Reply, BrokerError, Close, Nothing };
Q_DECLARE_METATYPE(Event)

void ConnectionStateTest::callOutcomes_data()
{
    QTest::addColumn<Event>("event");
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QString>("error");
    QTest::newRow("reply") << Event::Reply << int(ConnectionState::Outcome::Done) << QString();
    QTest::newRow("ERROR naming the request's receipt")
        << Event::BrokerError << int(ConnectionState::Outcome::Failed) << "refused it";
    QTest::newRow("connection closed while waiting")
        << Event::Close << int(ConnectionState::Outcome::Failed) << "gone";
    QTest::newRow("nothing within the time-out")
        << Event::Nothing << int(ConnectionState::Outcome::TimedOut) << QString();
}

void ConnectionStateTest::callOutcomes()
{
    QFETCH(Event, event);
    QFETCH(int, outcome);
    QFETCH(QString, error);
    const auto session = openSession();
    QString whyNot;
    QVERIFY(session->beginCall("c1", "r1", &whyNot));
    // The I/O thread's side, while the caller waits.
    bool taken = true;
    std::thread ioThread([&] {
        QThread::msleep(20);
        Frame reply("MESSAGE");
        reply.body = "answer";
        switch (event) {
        case Event::Reply:
            taken = session->deliverReply("c1", reply);
            break;
        case Event::BrokerError:
            taken = session->receiptFailed("r1", QStringLiteral("refused it"));
            break;
        case Event::Close:
            taken = session->closed(QStringLiteral("gone"));
            break;
        case Event::Nothing:
            break;
        }
    });
    Frame got;
    QString text;
    const int timeoutMs = event == Event::Nothing ? 100 : 10000;
    const ConnectionState::Outcome result
        = session->awaitCall("c1", QDeadlineTimer(timeoutMs), &got, &text);
    ioThread.join();
    QVERIFY(taken);
    QCOMPARE(int(result), outcome);
    QCOMPARE(text, error);
    if (event == Event::Reply)
        QCOMPARE(got.body, QByteArray("answer"));
    // Ended either way: a late reply is dropped and counted.
    QVERIFY(!session->deliverReply("c1", Frame("MESSAGE")));
    QCOMPARE(session->droppedReplies(), qint64(1));
}

void ConnectionStateTest::receiptOfAFinishedCallIsForgotten()
{
    const auto session = openSession();
    QString whyNot;
    QVERIFY(session->beginCall("c1", "r1", &whyNot));
    QVERIFY(session->deliverReply("c1", Frame("MESSAGE")));
    Frame got;
    QString text;
    QCOMPARE(session->awaitCall("c1", QDeadlineTimer(1000), &got, &text),
             ConnectionState::Outcome::Done);
    // The receipt id belongs to nobody now: an ERROR naming it fails nothing.
    QVERIFY(!session->receiptFailed("r1", QStringLiteral("late")));
}

void ConnectionStateTest::unsolicitedQueueIsBounded_data()
{
    QTest::addColumn<int>("limit");
    QTest::addColumn<int>("pushed");
    QTest::addColumn<int>("firstKept");
    QTest::newRow("below the limit") << 5 << 3 << 0;
    QTest::newRow("at the limit") << 5 << 5 << 0;
    QTest::newRow("beyond it: the oldest go") << 5 << 12 << 7;
}

void ConnectionStateTest::unsolicitedQueueIsBounded()
{
    QFETCH(int, limit);
    QFETCH(int, pushed);
    QFETCH(int, firstKept);
    const auto session = openSession(limit);
    for (int i = 0; i < pushed; ++i) {
        Frame message("MESSAGE");
        message.body = QByteArray::number(i);
        session->pushUnsolicited(message);
    }
    QCOMPARE(session->droppedUnsolicited(), qint64(firstKept));
    for (int i = firstKept; i < pushed; ++i) {
        Frame message;
        QString error;
        QCOMPARE(session->awaitUnsolicited(QDeadlineTimer(0), &message, &error),
                 ConnectionState::Outcome::Done);
        QCOMPARE(message.body, QByteArray::number(i));
    }
    Frame none;
    QString error;
    QCOMPARE(session->awaitUnsolicited(QDeadlineTimer(0), &none, &error),
             ConnectionState::Outcome::TimedOut);
}

void ConnectionStateTest::sessionTokenForm_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("valid");
    QTest::newRow("32 lower-case digits") << QByteArray("0123456789abcdef0123456789abcdef") << true;
    QTest::newRow("empty") << QByteArray() << false;
    QTest::newRow("one digit") << QByteArray("0") << false;
    QTest::newRow("31 digits") << QByteArray(31, 'f') << false;
    QTest::newRow("33 digits") << QByteArray(33, 'f') << false;
    QTest::newRow("64 digits (the embedded transport's)") << QByteArray(64, 'f') << false;
    QTest::newRow("upper case") << QByteArray("0123456789ABCDEF0123456789abcdef") << false;
    QTest::newRow("a g") << QByteArray("0123456789abcdeg0123456789abcdef") << false;
    QTest::newRow("a space") << QByteArray("0123456789abcde 0123456789abcdef") << false;
}

void ConnectionStateTest::sessionTokenForm()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, valid);
    QCOMPARE(stomp::isSessionToken(text), valid);
}

void ConnectionStateTest::freshTokensHaveTheForm()
{
    QSet<QByteArray> seen;
    for (int i = 0; i < 100; ++i) {
        const QByteArray token = stomp::newSessionToken();
        QVERIFY2(stomp::isSessionToken(token), token.constData());
        seen.insert(token);
    }
    QCOMPARE(seen.size(), 100);
}

QTEST_GUILESS_MAIN(ConnectionStateTest)
#include "tst_connectionstate.moc"

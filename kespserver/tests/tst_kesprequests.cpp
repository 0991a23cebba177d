// SPDX-License-Identifier: Apache-2.0
// How the daemon reads a request's headers: the key that survives a
// redelivery, the connection a request came from, and when a request counts
// as given up by its caller; how it writes what clients chose into its log;
// and how its broker link judges the broker's heart-beats.

#include "blockingclient.h"
#include "fakebroker.h"
#include "logtext.h"
#include "requestserver.h"
#include "senderidentity.h"
#include "serverconfig.h"

#include <QtTest>

class KespRequests : public QObject
{
    Q_OBJECT

private slots:
    void key_data();
    void key();
    void logField_data();
    void logField();
    void expiry_data();
    void expiry();
    void beatsWaitingAfterALongRequestCount();
    void senderConnection_data();
    void senderConnection();
    void closedConnection_data();
    void closedConnection();
    void connectionAdvisoriesSetting_data();
    void connectionAdvisoriesSetting();
};

void KespRequests::connectionAdvisoriesSetting_data()
{
    QTest::addColumn<QString>("value"); // null: not set
    QTest::addColumn<bool>("valid");
    QTest::addColumn<bool>("followed");
    QTest::newRow("not set: on") << QString() << true << true;
    QTest::newRow("on") << "on" << true << true;
    QTest::newRow("off") << "off" << true << false;
    QTest::newRow("anything else") << "no" << false << false;
}

void KespRequests::connectionAdvisoriesSetting()
{
    QFETCH(QString, value);
    QFETCH(bool, valid);
    QFETCH(bool, followed);
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("NUV_KESP_DATABASE"), QStringLiteral("kesp.db"));
    if (!value.isNull())
        environment.insert(QStringLiteral("NUV_KESP_CONNECTION_ADVISORIES"), value);
    kesp::ServerConfig config;
    QString error;
    QCOMPARE(kesp::parseConfig({ QStringLiteral("nuvkesp-server") }, environment, &config, &error),
             valid);
    if (valid)
        QCOMPARE(config.connectionAdvisories, followed);
    else
        QCOMPARE(error,
                 QStringLiteral("NUV_KESP_CONNECTION_ADVISORIES must be on or off, not '%1' "
                                "(from environment)")
                     .arg(value));
}

void KespRequests::senderConnection_data()
{
    QTest::addColumn<QByteArray>("messageId");
    QTest::addColumn<QString>("connection");
    QTest::newRow("ActiveMQ over STOMP")
        << QByteArray("ID:vm-44673-1795437021761-3:23:-1:1:7") << "ID:vm-44673-1795437021761-3:23";
    QTest::newRow("same connection, next message")
        << QByteArray("ID:vm-44673-1795437021761-3:23:-1:1:8") << "ID:vm-44673-1795437021761-3:23";
    QTest::newRow("a JMS session") << QByteArray("ID:host-1-2:5:3:1:12") << "ID:host-1-2:5";
    QTest::newRow("no id") << QByteArray() << QString();
    QTest::newRow("not ActiveMQ's") << QByteArray("m-17") << QString();
    QTest::newRow("too few fields") << QByteArray("ID:1:2") << QString();
    QTest::newRow("a word for a number") << QByteArray("ID:vm-1:2:-1:one:7") << QString();
    QTest::newRow("empty sequence") << QByteArray("ID:vm-1:2:-1:1:") << QString();
}

void KespRequests::senderConnection()
{
    QFETCH(QByteArray, messageId);
    QFETCH(QString, connection);
    stomp::Frame message("MESSAGE");
    if (!messageId.isEmpty())
        message.add("message-id", messageId);
    QCOMPARE(kesp::senderConnection(message), connection);
}

void KespRequests::closedConnection_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("connection");
    QTest::newRow("closed") << QByteArray(
        R"({"RemoveInfo":{"commandId":0,"responseRequired":true,"objectId":)"
        R"({"@class":"ConnectionId","value":"ID:vm-1-3:21"},"lastDeliveredSequenceId":-2}})")
                            << "ID:vm-1-3:21";
    QTest::newRow("opened") << QByteArray(
        R"({"ConnectionInfo":{"connectionId":{"value":"ID:vm-1-3:23"},"userName":"c"}})")
                            << QString();
    QTest::newRow("a consumer removed")
        << QByteArray(R"({"RemoveInfo":{"objectId":{"@class":"ConsumerId","value":"ID:x:1:1"}}})")
        << QString();
    QTest::newRow("not JSON") << QByteArray("<RemoveInfo/>") << QString();
    QTest::newRow("empty") << QByteArray() << QString();
}

void KespRequests::closedConnection()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, connection);
    QCOMPARE(kesp::closedConnection(body), connection);
}

void KespRequests::key_data()
{
    QTest::addColumn<QByteArray>("messageId");
    QTest::addColumn<QByteArray>("correlationId");
    QTest::addColumn<QString>("expected");
    QTest::newRow("both") << QByteArray("ID:vm-1:2:-1:1:7") << QByteArray("3e36-aa")
                          << "ID:vm-1:2:-1:1:7 3e36-aa";
    QTest::newRow("no correlation id (one-way)")
        << QByteArray("ID:vm-1:2:-1:1:8") << QByteArray() << "ID:vm-1:2:-1:1:8 ";
}

void KespRequests::key()
{
    QFETCH(QByteArray, messageId);
    QFETCH(QByteArray, correlationId);
    QFETCH(QString, expected);
    stomp::Frame message("MESSAGE");
    message.add("message-id", messageId);
    if (!correlationId.isEmpty())
        message.add("correlation-id", correlationId);
    // A redelivery carries the flag, and must still give the same key.
    const QString first = kesp::requestKey(message);
    message.add("redelivered", "true");
    QCOMPARE(first, expected);
    QCOMPARE(kesp::requestKey(message), expected);
}

void KespRequests::logField_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("longest");
    QTest::addColumn<QString>("expected");
    QTest::newRow("plain") << "CFDOCINFO" << 40 << "CFDOCINFO";
    QTest::newRow("line break") << "A\nB" << 40 << "A\\nB";
    QTest::newRow("forged line") << "X\n2026-01-01T00:00:00Z s: CFDOBACKUP user=admin" << 200
                                 << "X\\n2026-01-01T00:00:00Z s: CFDOBACKUP user=admin";
    QTest::newRow("carriage return, tab, escape")
        << QString("a\rb\tc") + QChar(0x1b) << 40 << "a\\rb\\tc\\u001b";
    QTest::newRow("backslash") << "a\\nb" << 40 << "a\\\\nb";
    QTest::newRow("line separator") << QString("a") + QChar(0x2028) + "b" << 40 << "a\\u2028b";
    QTest::newRow("cut") << QString(300, QLatin1Char('x')) << 200
                         << QString(200, QLatin1Char('x')) + QStringLiteral("…");
    QTest::newRow("exactly the limit")
        << QString(40, QLatin1Char('y')) << 40 << QString(40, QLatin1Char('y'));
}

void KespRequests::logField()
{
    QFETCH(QString, text);
    QFETCH(int, longest);
    QFETCH(QString, expected);
    QCOMPARE(kesp::logField(text, longest), expected);
}

void KespRequests::expiry_data()
{
    QTest::addColumn<QByteArray>("expires");
    QTest::addColumn<qint64>("now");
    QTest::addColumn<bool>("expired");
    QTest::newRow("no header") << QByteArray() << qint64(5000) << false;
    QTest::newRow("zero: never") << QByteArray("0") << qint64(5000) << false;
    QTest::newRow("in the future") << QByteArray("5001") << qint64(5000) << false;
    QTest::newRow("this very millisecond") << QByteArray("5000") << qint64(5000) << false;
    QTest::newRow("past") << QByteArray("4999") << qint64(5000) << true;
    QTest::newRow("not a number") << QByteArray("soon") << qint64(5000) << false;
}

void KespRequests::expiry()
{
    QFETCH(QByteArray, expires);
    QFETCH(qint64, now);
    QFETCH(bool, expired);
    stomp::Frame message("MESSAGE");
    if (!expires.isEmpty())
        message.add("expires", expires);
    QCOMPARE(kesp::hasExpired(message, now), expired);
}

void KespRequests::beatsWaitingAfterALongRequestCount()
{
    // A broker that beats every 20 ms, after a CONNECTED that asks for them.
    FakeBroker fake([&fake](FakeLink &link) {
        if (!link.expect("CONNECT"))
            return;
        link.write(QByteArray("CONNECTED\nversion:1.2\nheart-beat:20,20\n\n") + '\0');
        while (!fake.stopping()) {
            link.write("\n");
            QThread::msleep(20);
        }
    });
    const quint16 port = fake.listen();
    stomp::BrokerAddress address;
    address.host = QStringLiteral("127.0.0.1");
    address.port = port;
    stomp::BrokerSettings settings;
    settings.heartBeatMs = 50;
    stomp::BlockingClient link;
    QVERIFY2(link.open(address, settings), qPrintable(link.errorText()));
    // A request that keeps the thread from reading for several intervals:
    // the beats that came meanwhile wait in the socket and must count.
    QThread::msleep(400);
    stomp::Frame frame;
    QVERIFY(!link.receive(&frame, 100));
    QVERIFY2(link.isOpen(), qPrintable(link.errorText()));
    QVERIFY(link.errorText().isEmpty());
    link.abort();
    fake.stop();
    QVERIFY(fake.wait(QDeadlineTimer(10000)));
}

QTEST_GUILESS_MAIN(KespRequests)
#include "tst_kesprequests.moc"

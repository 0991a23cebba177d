// SPDX-License-Identifier: Apache-2.0
// The STOMP handshake that every connection of the project runs: the
// CONNECT it sends, the heart-beats it agrees on, what it accepts as
// CONNECTED and how it words a refusal; and the blocking client running it
// against scripted brokers.

#include "blockingclient.h"
#include "fakebroker.h"
#include "handshake.h"

#include <QtTest>

using stomp::BrokerSettings;
using stomp::Frame;

class HandshakeTest : public QObject
{
    Q_OBJECT

private slots:
    void heartBeats_data();
    void heartBeats();
    void connectFrame_data();
    void connectFrame();
    void connected_data();
    void connected();
    void refusal_data();
    void refusal();
    void blockingClient_data();
    void blockingClient();
};

void HandshakeTest::heartBeats_data()
{
    QTest::addColumn<int>("ours");
    QTest::addColumn<QByteArray>("header");
    QTest::addColumn<int>("sendEvery");
    QTest::addColumn<int>("expectEvery");

    QTest::newRow("the slower wish wins each way")
        << 10000 << QByteArray("5000,20000") << 20000 << 10000;
    QTest::newRow("spaces around the values")
        << 1000 << QByteArray(" 3000 , 4000 ") << 4000 << 3000;
    QTest::newRow("we want none") << 0 << QByteArray("5000,5000") << 0 << 0;
    QTest::newRow("the broker wants none") << 1000 << QByteArray("0,0") << 0 << 0;
    QTest::newRow("the broker only sends") << 1000 << QByteArray("2000,0") << 0 << 2000;
    QTest::newRow("one value only") << 1000 << QByteArray("5000") << 0 << 0;
    QTest::newRow("three values") << 1000 << QByteArray("500,1,2") << 0 << 0;
    QTest::newRow("not numbers") << 1000 << QByteArray("soon,later") << 0 << 0;
    QTest::newRow("empty") << 1000 << QByteArray() << 0 << 0;
}

void HandshakeTest::heartBeats()
{
    QFETCH(int, ours);
    QFETCH(QByteArray, header);
    QFETCH(int, sendEvery);
    QFETCH(int, expectEvery);
    const stomp::HeartBeats beats = stomp::negotiateHeartBeats(ours, header);
    QCOMPARE(beats.sendEveryMs, sendEvery);
    QCOMPARE(beats.expectEveryMs, expectEvery);
}

void HandshakeTest::connectFrame_data()
{
    QTest::addColumn<QString>("login");
    QTest::addColumn<QString>("passcode");
    QTest::addColumn<int>("heartBeatMs");
    QTest::addColumn<QByteArray>("clientId");
    QTest::addColumn<QByteArrayList>("expected"); // "name:value", or "-name" for absent

    QTest::newRow("anonymous, no heart-beats")
        << QString() << QString() << 0 << QByteArray()
        << QByteArrayList { "accept-version:1.2", "host:broker.example", "heart-beat:0,0", "-login",
                            "-passcode",          "-client-id" };
    QTest::newRow("account and heart-beats")
        << "nuv"
        << "secret" << 10000 << QByteArray()
        << QByteArrayList { "heart-beat:10000,10000", "login:nuv", "passcode:secret",
                            "-client-id" };
    QTest::newRow("a negative interval offers none")
        << "nuv"
        << "secret" << -5 << QByteArray() << QByteArrayList { "heart-beat:0,0" };
    QTest::newRow("named connection")
        << "nuv"
        << "secret" << 500 << QByteArray("host-7")
        << QByteArrayList { "heart-beat:500,500", "client-id:host-7" };
}

void HandshakeTest::connectFrame()
{
    QFETCH(QString, login);
    QFETCH(QString, passcode);
    QFETCH(int, heartBeatMs);
    QFETCH(QByteArray, clientId);
    QFETCH(QByteArrayList, expected);
    BrokerSettings settings;
    settings.login = login;
    settings.passcode = passcode;
    settings.heartBeatMs = heartBeatMs;
    const Frame frame = stomp::connectFrame(QStringLiteral("broker.example"), settings, clientId);
    QCOMPARE(frame.command, QByteArray("CONNECT"));
    for (const QByteArray &item : expected) {
        if (item.startsWith('-')) {
            QVERIFY2(!frame.has(item.mid(1)), item.constData());
            continue;
        }
        const int colon = item.indexOf(':');
        QCOMPARE(frame.header(item.left(colon)), item.mid(colon + 1));
    }
}

void HandshakeTest::connected_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QByteArray>("version");
    QTest::addColumn<QString>("problem"); // empty: accepted

    QTest::newRow("STOMP 1.2") << QByteArray("CONNECTED") << QByteArray("1.2") << QString();
    QTest::newRow("STOMP 1.1") << QByteArray("CONNECTED") << QByteArray("1.1")
                               << "it speaks STOMP 1.1";
    QTest::newRow("no version: 1.0")
        << QByteArray("CONNECTED") << QByteArray() << "it speaks STOMP 1.0";
    QTest::newRow("another frame")
        << QByteArray("RECEIPT") << QByteArray("1.2") << "unexpected RECEIPT frame";
}

void HandshakeTest::connected()
{
    QFETCH(QByteArray, command);
    QFETCH(QByteArray, version);
    QFETCH(QString, problem);
    Frame frame(command);
    if (!version.isEmpty())
        frame.add("version", version);
    const QString text = stomp::connectedProblem(frame);
    if (problem.isEmpty())
        QVERIFY2(text.isEmpty(), qPrintable(text));
    else
        QVERIFY2(text.contains(problem), qPrintable(text));
}

void HandshakeTest::refusal_data()
{
    QTest::addColumn<QString>("login");
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("account refused")
        << "nuv" << QByteArray("Access denied") << QByteArray()
        << QStringList { "The message broker at b:61613 refused the connection for broker user "
                         "\"nuv\": Access denied" };
    QTest::newRow("no login configured")
        << QString() << QByteArray("Access denied") << QByteArray()
        << QStringList { "refused the connection: Access denied. No broker login is "
                         "configured: HINT" };
    QTest::newRow("words in the body only")
        << "nuv" << QByteArray() << QByteArray("Go away.\n") << QStringList { ": Go away." };
    QTest::newRow("no words at all")
        << "nuv" << QByteArray() << QByteArray() << QStringList { "no reason given" };
    QTest::newRow("a long message is cut")
        << "nuv" << QByteArray(400, 'x') << QByteArray()
        << QStringList { QString(300, QLatin1Char('x')) + QStringLiteral("...") };
}

void HandshakeTest::refusal()
{
    QFETCH(QString, login);
    QFETCH(QByteArray, message);
    QFETCH(QByteArray, body);
    QFETCH(QStringList, expected);
    BrokerSettings settings;
    settings.login = login;
    settings.passcode = QStringLiteral("topsecret");
    Frame error("ERROR");
    if (!message.isEmpty())
        error.add("message", message);
    error.body = body;
    const QString text
        = stomp::connectRefusal(QStringLiteral("b:61613"), settings, error, QStringLiteral("HINT"));
    for (const QString &part : expected)
        QVERIFY2(text.contains(part), qPrintable(text));
    QVERIFY2(!text.contains(QLatin1String("topsecret")), qPrintable(text));
    QVERIFY2(!text.contains(QString(301, QLatin1Char('x'))), qPrintable(text));
}

void HandshakeTest::blockingClient_data()
{
    QTest::addColumn<QByteArray>("answer"); // the broker's answer to CONNECT
    QTest::addColumn<bool>("opens");
    QTest::addColumn<bool>("refused");
    QTest::addColumn<QString>("expected"); // in the error text

    const QByteArray nul(1, '\0');
    QTest::newRow("accepted") << "CONNECTED\nversion:1.2\nheart-beat:0,0\n\n" + nul << true << false
                              << QString();
    QTest::newRow("malformed heart-beat header")
        << "CONNECTED\nversion:1.2\nheart-beat:10\n\n" + nul << true << false << QString();
    QTest::newRow("refused") << "ERROR\nmessage:Access denied\n\n" + nul << false << true
                             << "refused the connection for broker user \"nuv\": Access denied";
    QTest::newRow("old STOMP") << "CONNECTED\nversion:1.1\n\n" + nul << false << false
                               << "it speaks STOMP 1.1";
}

void HandshakeTest::blockingClient()
{
    QFETCH(QByteArray, answer);
    QFETCH(bool, opens);
    QFETCH(bool, refused);
    QFETCH(QString, expected);
    Frame connect;
    FakeBroker fake([&](FakeLink &link) {
        if (!link.expect("CONNECT", &connect))
            return;
        link.write(answer);
        link.awaitClose(10000);
    });
    const quint16 port = fake.listen();
    stomp::BrokerAddress address;
    address.host = QStringLiteral("127.0.0.1");
    address.port = port;
    BrokerSettings settings;
    settings.login = QStringLiteral("nuv");
    settings.passcode = QStringLiteral("topsecret");
    settings.heartBeatMs = 0;
    stomp::BlockingClient client;
    QCOMPARE(client.open(address, settings), opens);
    QCOMPARE(client.isOpen(), opens);
    QCOMPARE(client.wasRefused(), refused);
    QVERIFY2(client.errorText().contains(expected), qPrintable(client.errorText()));
    QVERIFY2(!client.errorText().contains(QLatin1String("topsecret")),
             qPrintable(client.errorText()));
    client.abort();
    QVERIFY(fake.wait(QDeadlineTimer(10000)));
    QCOMPARE(connect.header("login"), QByteArray("nuv"));
    QCOMPARE(connect.header("accept-version"), QByteArray("1.2"));
}

QTEST_GUILESS_MAIN(HandshakeTest)
#include "tst_handshake.moc"

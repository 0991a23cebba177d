// SPDX-License-Identifier: Apache-2.0
// The delaying proxy between real sockets on loopback: the bytes that come
// out are the bytes that went in, in order, on every connection at once;
// an end on either side reaches the other after the last bytes; a target
// that cannot be reached ends the client's connection. No assertion is on
// time: the delay only shifts when bytes arrive, never which.

#include "delayproxy.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <memory>
#include <vector>

namespace {

// Generous for a few MiB through loopback on a loaded machine; a pass takes
// milliseconds, so this only bounds how long a broken proxy keeps a run.
constexpr int patienceMs = 30000;

// A stream that tells connections and directions apart and shows any
// reordering: its first four bytes are the connection's number.
QByteArray stream(int connection, int direction, int size)
{
    QByteArray bytes(qMax(size, 4), Qt::Uninitialized);
    for (int k = 0; k < bytes.size(); ++k)
        bytes[k] = char((k * 31 + connection * 7 + direction * 101 + k / 251) & 0xff);
    qToBigEndian<qint32>(connection, bytes.data());
    return bytes;
}

// Writes `bytes` in `pieces` nearly equal parts, letting the event loop
// run between them so that the parts travel as separate segments.
void writeInPieces(QTcpSocket *socket, const QByteArray &bytes, int pieces)
{
    const int step = qMax(1, bytes.size() / qMax(1, pieces));
    for (int at = 0; at < bytes.size(); at += step) {
        socket->write(bytes.mid(at, step));
        QCoreApplication::processEvents();
    }
}

// The target's side: accepts connections and keeps what each received.
class Target : public QObject
{
public:
    Target()
    {
        QVERIFY(server.listen(QHostAddress::LocalHost));
        connect(&server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = server.nextPendingConnection()) {
                auto peer = std::make_shared<Peer>();
                peer->socket = socket;
                peers.push_back(peer);
                connect(socket, &QTcpSocket::readyRead, this,
                        [peer] { peer->received += peer->socket->readAll(); });
            }
        });
    }

    struct Peer
    {
        QTcpSocket *socket = nullptr;
        QByteArray received;
    };

    // The accepted connection whose stream starts with `connection`.
    std::shared_ptr<Peer> peerOf(int connection) const
    {
        for (const auto &peer : peers)
            if (peer->received.size() >= 4
                && qFromBigEndian<qint32>(peer->received.constData()) == connection)
                return peer;
        return nullptr;
    }

    QTcpServer server;
    std::vector<std::shared_ptr<Target::Peer>> peers;
};

struct Client
{
    std::unique_ptr<QTcpSocket> socket = std::make_unique<QTcpSocket>();
    QByteArray received;
};

std::vector<Client> connectClients(quint16 port, int count)
{
    std::vector<Client> clients(static_cast<size_t>(count));
    for (Client &client : clients) {
        QTcpSocket *socket = client.socket.get();
        QByteArray *received = &client.received;
        QObject::connect(socket, &QTcpSocket::readyRead, socket,
                         [socket, received] { *received += socket->readAll(); });
        socket->connectToHost(QHostAddress::LocalHost, port);
    }
    return clients;
}

} // namespace

class tst_DelayProxy : public QObject
{
    Q_OBJECT

private slots:
    void forwardsInOrder_data();
    void forwardsInOrder();
    void countsExchanges_data();
    void countsExchanges();
    void passesEndsOn_data();
    void passesEndsOn();
    void endsClientWhenTargetUnreachable();
};

void tst_DelayProxy::forwardsInOrder_data()
{
    QTest::addColumn<int>("delayMs");
    QTest::addColumn<int>("connections");
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("pieces");

    QTest::newRow("no delay, one connection") << 0 << 1 << 10000 << 10;
    QTest::newRow("1 ms, one connection") << 1 << 1 << 10000 << 50;
    QTest::newRow("1 ms, single bytes") << 1 << 2 << 300 << 300;
    QTest::newRow("3 ms, sixteen connections") << 3 << 16 << 40000 << 20;
    QTest::newRow("1 ms, more than the backlog limit") << 1 << 2 << (6 << 20) << 12;
}

void tst_DelayProxy::forwardsInOrder()
{
    QFETCH(int, delayMs);
    QFETCH(int, connections);
    QFETCH(int, size);
    QFETCH(int, pieces);

    Target target;
    delayproxy::DelayProxy proxy;
    QVERIFY2(proxy.start(QStringLiteral("127.0.0.1"), target.server.serverPort(), delayMs),
             qPrintable(proxy.errorString()));
    std::vector<Client> clients = connectClients(proxy.port(), connections);

    // Every connection writes its stream piece by piece, interleaved with
    // the others.
    const int step = qMax(1, size / pieces);
    for (int at = 0; at < size; at += step) {
        for (int i = 0; i < connections; ++i)
            clients[size_t(i)].socket->write(stream(i, 0, size).mid(at, step));
        QCoreApplication::processEvents();
    }
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            for (int i = 0; i < connections; ++i) {
                const auto peer = target.peerOf(i);
                if (!peer || peer->received.size() < size)
                    return false;
            }
            return true;
        }(),
        patienceMs);
    for (int i = 0; i < connections; ++i) {
        const auto peer = target.peerOf(i);
        QCOMPARE(peer->received.size(), size);
        QVERIFY2(peer->received == stream(i, 0, size),
                 qPrintable(QStringLiteral("connection %1 to the target differs").arg(i)));
        writeInPieces(peer->socket, stream(i, 1, size), pieces);
    }
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            for (const Client &client : clients)
                if (client.received.size() < size)
                    return false;
            return true;
        }(),
        patienceMs);
    for (int i = 0; i < connections; ++i) {
        QCOMPARE(clients[size_t(i)].received.size(), size);
        QVERIFY2(clients[size_t(i)].received == stream(i, 1, size),
                 qPrintable(QStringLiteral("connection %1 to the client differs").arg(i)));
    }
    const delayproxy::ProxyCounts counts = proxy.counts();
    QCOMPARE(counts.connections, qint64(connections));
    QCOMPARE(counts.bytesToTarget, qint64(connections) * size);
    QCOMPARE(counts.bytesToClient, qint64(connections) * size);
    // Each connection spoke once and was answered once.
    QCOMPARE(counts.exchanges, qint64(connections));
}

void tst_DelayProxy::countsExchanges_data()
{
    QTest::addColumn<int>("delayMs");
    QTest::addColumn<int>("rounds");

    QTest::newRow("no delay, one round") << 0 << 1;
    QTest::newRow("no delay, 20 rounds") << 0 << 20;
    QTest::newRow("1 ms, 20 rounds") << 1 << 20;
    QTest::newRow("5 ms, 5 rounds") << 5 << 5;
}

void tst_DelayProxy::countsExchanges()
{
    QFETCH(int, delayMs);
    QFETCH(int, rounds);

    Target target;
    delayproxy::DelayProxy proxy;
    QVERIFY2(proxy.start(QStringLiteral("127.0.0.1"), target.server.serverPort(), delayMs),
             qPrintable(proxy.errorString()));
    std::vector<Client> clients = connectClients(proxy.port(), 1);
    Client &client = clients.front();
    // Requests and replies of several segments each, as a database
    // protocol's often are: a round trip is one exchange however split.
    for (int round = 0; round < rounds; ++round) {
        const QByteArray request = stream(0, 0, 64 + round);
        writeInPieces(client.socket.get(), request, 3);
        const int sent = (round + 1) * 64 + round * (round + 1) / 2;
        QTRY_VERIFY_WITH_TIMEOUT(target.peerOf(0) && target.peerOf(0)->received.size() >= sent,
                                 patienceMs);
        QCOMPARE(target.peerOf(0)->received.right(request.size()), request);
        const QByteArray reply = stream(0, 1, 32 + round);
        writeInPieces(target.peerOf(0)->socket, reply, 2);
        QTRY_VERIFY_WITH_TIMEOUT(client.received.size() >= reply.size(), patienceMs);
        QCOMPARE(client.received, reply);
        client.received.clear();
    }
    QCOMPARE(proxy.counts().exchanges, qint64(rounds));
}

void tst_DelayProxy::passesEndsOn_data()
{
    QTest::addColumn<int>("delayMs");
    QTest::addColumn<bool>("clientCloses");

    QTest::newRow("client closes, no delay") << 0 << true;
    QTest::newRow("client closes, 3 ms") << 3 << true;
    QTest::newRow("target closes, no delay") << 0 << false;
    QTest::newRow("target closes, 3 ms") << 3 << false;
}

void tst_DelayProxy::passesEndsOn()
{
    QFETCH(int, delayMs);
    QFETCH(bool, clientCloses);

    Target target;
    delayproxy::DelayProxy proxy;
    QVERIFY2(proxy.start(QStringLiteral("127.0.0.1"), target.server.serverPort(), delayMs),
             qPrintable(proxy.errorString()));
    for (int attempt = 0; attempt < 2; ++attempt) {
        // The second connection shows that the proxy goes on serving after
        // an end.
        std::vector<Client> clients = connectClients(proxy.port(), 1);
        Client &client = clients.front();
        client.socket->write(stream(attempt, 0, 4));
        QTRY_VERIFY_WITH_TIMEOUT(target.peerOf(attempt), patienceMs);
        const auto peer = target.peerOf(attempt);
        // The last words go out right before the close: they must arrive,
        // and then the end.
        const QByteArray last = stream(attempt, clientCloses ? 0 : 1, 5000);
        if (clientCloses) {
            client.socket->write(last.mid(4));
            client.socket->disconnectFromHost();
            QTRY_COMPARE_WITH_TIMEOUT(peer->socket->state(), QAbstractSocket::UnconnectedState,
                                      patienceMs);
            QCOMPARE(peer->received, last);
        } else {
            peer->socket->write(last);
            peer->socket->disconnectFromHost();
            QTRY_COMPARE_WITH_TIMEOUT(client.socket->state(), QAbstractSocket::UnconnectedState,
                                      patienceMs);
            QCOMPARE(client.received, last);
        }
    }
    QCOMPARE(proxy.counts().connections, qint64(2));
}

void tst_DelayProxy::endsClientWhenTargetUnreachable()
{
    quint16 closedPort = 0;
    {
        QTcpServer placeholder;
        QVERIFY(placeholder.listen(QHostAddress::LocalHost));
        closedPort = placeholder.serverPort();
    }
    delayproxy::DelayProxy proxy;
    QVERIFY2(proxy.start(QStringLiteral("127.0.0.1"), closedPort, 1),
             qPrintable(proxy.errorString()));
    std::vector<Client> clients = connectClients(proxy.port(), 1);
    clients.front().socket->write("hello");
    QTRY_COMPARE_WITH_TIMEOUT(clients.front().socket->state(), QAbstractSocket::UnconnectedState,
                              patienceMs);
    QCOMPARE(clients.front().received, QByteArray());
    QCOMPARE(proxy.counts().bytesToTarget, qint64(0));
}

QTEST_GUILESS_MAIN(tst_DelayProxy)
#include "tst_delayproxy.moc"

// SPDX-License-Identifier: Apache-2.0
#include "stompconnection.h"

#include "handshake.h"
#include "nuvmutex.h"

#include <QSslConfiguration>
#include <QSslSocket>
#include <QTcpSocket>

Q_LOGGING_CATEGORY(lcStomp, "nuv.activemq", QtInfoMsg)

namespace stomp {

const QByteArray replyDestination = QByteArrayLiteral("/temp-queue/nuv.replies");
const QByteArray replySubscription = QByteArrayLiteral("replies");

namespace {

const QByteArray subscribeReceipt = QByteArrayLiteral("subscribed-replies");

QString socketProblem(QAbstractSocket::SocketError error, const QString &fallback, bool handshake)
{
    switch (error) {
    case QAbstractSocket::ConnectionRefusedError:
        return QStringLiteral("the connection was refused (is the broker running, and does it "
                              "accept STOMP on this port?)");
    case QAbstractSocket::HostNotFoundError:
        return QStringLiteral("the host name was not found");
    case QAbstractSocket::RemoteHostClosedError:
        // A refused login can also end in a bare close, when the broker's
        // ERROR frame does not make it ahead of the close.
        return handshake ? QStringLiteral("the broker closed the connection during the STOMP "
                                          "handshake (is this the broker's STOMP port, does it "
                                          "expect TLS, and are the broker login and passcode "
                                          "right?)")
                         : QStringLiteral("the broker closed the connection");
    case QAbstractSocket::SslHandshakeFailedError:
        return QStringLiteral("the TLS handshake failed (%1)").arg(fallback);
    default:
        return fallback;
    }
}

} // namespace

Connection::Connection(LostHandler onLost, QObject *parent)
    : QObject(parent)
    , onLost(std::move(onLost))
    , sendTimer(new QTimer(this))
    , receiveTimer(new QTimer(this))
{
    connect(sendTimer, &QTimer::timeout, this, &Connection::sendHeartBeat);
    connect(receiveTimer, &QTimer::timeout, this, &Connection::checkHeartBeat);
}

Connection::~Connection()
{
    if (session)
        session->closed(QStringLiteral("The message-queue transport was shut down."));
    dropSocket();
}

void Connection::open(const std::shared_ptr<ConnectionState> &next, const BrokerSettings &options,
                      const QByteArray &id)
{
    if (session && session != next)
        end(QStringLiteral("A new connection to the message broker replaced this one."));
    session = next;
    settings = options;
    clientId = id;
    parser = Parser();
    stage = Stage::TcpConnecting;
    lastBrokerError.clear();

    const BrokerAddress &address = session->address;
    if (address.tls) {
        auto *ssl = new QSslSocket(this);
        ssl->setSslConfiguration(tlsConfiguration(settings, ssl->sslConfiguration()));
        connect(ssl, &QSslSocket::encrypted, this, &Connection::sendConnect);
        connect(ssl, QOverload<const QList<QSslError> &>::of(&QSslSocket::sslErrors), this,
                &Connection::onSslErrors);
        socket = ssl;
    } else {
        socket = new QTcpSocket(this);
    }
    // Connected first, so the options hold before the first frame goes out.
    connect(socket, &QTcpSocket::connected, this, [this] {
        // Requests and replies are small and latency-bound: without this,
        // Nagle's algorithm and delayed ACKs add milliseconds to each.
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        socket->setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    });
    if (!address.tls)
        connect(socket, &QTcpSocket::connected, this, &Connection::sendConnect);
    connect(socket, &QTcpSocket::readyRead, this, &Connection::onReadyRead);
    connect(socket, &QTcpSocket::errorOccurred, this, &Connection::onSocketError);
    connect(socket, &QTcpSocket::disconnected, this, &Connection::onDisconnected);
    connect(socket, &QTcpSocket::bytesWritten, this, [this] { writer.socketWrote(socket); });

    qCDebug(lcStomp) << "connecting to" << address.label();
    if (address.tls)
        static_cast<QSslSocket *>(socket)->connectToHostEncrypted(address.host, address.port);
    else
        socket->connectToHost(address.host, address.port);
}

void Connection::post(std::function<void()> work)
{
    QMetaObject::invokeMethod(
        this,
        [work = std::move(work), handoff = nuv::SyncHandoff()] {
            handoff.received();
            work();
            handoff.finished();
        },
        Qt::QueuedConnection);
}

void Connection::submit(const std::shared_ptr<ConnectionState> &target, const QByteArray &head,
                        const QByteArray &body)
{
    QString error;
    switch (writer.submit(target.get(), head, body, &error)) {
    case DirectWriter::Outcome::Written:
        return;
    case DirectWriter::Outcome::Partial:
        post([this] { writer.flush(socket); });
        return;
    case DirectWriter::Outcome::Failed:
        post([this, target, error] {
            if (target == session && socket)
                end(lostText(QStringLiteral("writing to the socket failed (%1)").arg(error)));
        });
        return;
    case DirectWriter::Outcome::Post:
        post([this, target, head, body] { send(target, head, body); });
        return;
    }
}

void Connection::send(const std::shared_ptr<ConnectionState> &target, const QByteArray &head,
                      const QByteArray &body)
{
    writer.writePosted(socket, target == session && socket && stage == Stage::Open, head, body);
}

void Connection::beginClose(const std::shared_ptr<ConnectionState> &target,
                            const QByteArray &disconnectFrame)
{
    if (target != session || !socket || stage != Stage::Open)
        return;
    session->closing();
    // Whatever is still submitted follows the DISCONNECT through this thread.
    writer.write(socket, disconnectFrame, true);
}

void Connection::finish(const std::shared_ptr<ConnectionState> &target, const QString &reason)
{
    if (target != session)
        return;
    session->closed(reason);
    dropSocket();
}

void Connection::sendConnect()
{
    const Frame connectFrame = stomp::connectFrame(session->address.host, settings, clientId);
    stage = Stage::AwaitConnected;
    lastRead.start();
    write(encodeFrame(connectFrame));
}

void Connection::onReadyRead()
{
    if (!socket)
        return;
    lastRead.restart();
    // Straight into the parser: readAll() would allocate a buffer of its
    // own for every read, grow it and copy it once more.
    char chunk[16384];
    for (;;) {
        const qint64 got = socket->read(chunk, sizeof chunk);
        if (got <= 0)
            break;
        parser.feed(chunk, int(got));
    }
    Frame frame;
    // A handled frame may end the session and drop the socket.
    while (socket) {
        const Parser::Result result = parser.next(&frame);
        if (result == Parser::Result::NeedMore)
            return;
        if (result == Parser::Result::Error) {
            end(stage == Stage::Open
                    ? lostText(QStringLiteral("the broker sent a malformed STOMP frame (%1)")
                                   .arg(parser.errorText()))
                    : QStringLiteral("Cannot connect to the message broker at %1: it answered "
                                     "with a malformed STOMP frame (%2); is this its STOMP port, "
                                     "and does it expect TLS?")
                          .arg(session->address.label(), parser.errorText()));
            return;
        }
        handle(frame);
    }
}

void Connection::handle(const Frame &frame)
{
    if (stage == Stage::Open)
        handleOpen(frame);
    else
        handleHandshake(frame);
}

void Connection::handleHandshake(const Frame &frame)
{
    const QString label = session->address.label();
    if (frame.command == "ERROR") {
        end(brokerRefusal(frame));
        return;
    }
    if (stage == Stage::AwaitConnected && frame.command == "CONNECTED") {
        const QString problem = connectedProblem(frame);
        if (!problem.isEmpty()) {
            end(QStringLiteral("Cannot connect to the message broker at %1: %2.")
                    .arg(label, problem));
            return;
        }
        startHeartBeats(frame.header("heart-beat", "0,0"));
        Frame subscribe("SUBSCRIBE");
        subscribe.add("id", replySubscription)
            .add("destination", replyDestination)
            .add("ack", "auto")
            .add("receipt", subscribeReceipt);
        stage = Stage::AwaitSubscribed;
        write(encodeFrame(subscribe));
        return;
    }
    if (stage == Stage::AwaitSubscribed && frame.command == "RECEIPT"
        && frame.header("receipt-id") == subscribeReceipt) {
        stage = Stage::Open;
        qCDebug(lcStomp) << "connected to" << label;
        if (!session->address.tls) {
            // TLS records come from QSslSocket alone; a plain socket takes
            // frames from the calling threads.
            writer.attach(socket, session.get());
        }
        session->opened();
        return;
    }
    end(QStringLiteral("Cannot connect to the message broker at %1: unexpected %2 frame during "
                       "the STOMP handshake.")
            .arg(label, QString::fromLatin1(frame.command)));
}

void Connection::handleOpen(const Frame &frame)
{
    if (frame.command == "MESSAGE") {
        const QByteArray correlationId = frame.header("correlation-id");
        if (frame.header("subscription") == replySubscription && !correlationId.isEmpty()) {
            if (!session->deliverReply(correlationId, frame))
                qCDebug(lcStomp) << "dropped a reply that nobody waits for (late or unknown)";
        } else {
            session->pushUnsolicited(frame);
        }
    } else if (frame.command == "RECEIPT") {
        session->receiptArrived(frame.header("receipt-id"));
    } else if (frame.command == "ERROR") {
        const QString text = brokerMessage(frame);
        const QByteArray receiptId = frame.header("receipt-id");
        const QString refusal = QStringLiteral("the message broker at %1 refused it: %2")
                                    .arg(session->address.label(), text);
        if (receiptId.isEmpty() || !session->receiptFailed(receiptId, refusal)) {
            // Not tied to anything we wait for; kept for the text of the
            // loss that usually follows.
            lastBrokerError = text;
            qCWarning(lcStomp) << "the message broker at" << session->address.label()
                               << "reported an error:" << text;
        }
    } else {
        qCDebug(lcStomp) << "ignored an unexpected" << frame.command << "frame";
    }
}

void Connection::startHeartBeats(const QByteArray &serverHeartBeat)
{
    const HeartBeats beats = negotiateHeartBeats(settings.heartBeatMs, serverHeartBeat);
    sendEveryMs = beats.sendEveryMs;
    expectEveryMs = beats.expectEveryMs;
    if (sendEveryMs > 0)
        sendTimer->start(qMax(sendEveryMs / 2, 10));
    if (expectEveryMs > 0)
        receiveTimer->start(qMax(expectEveryMs / 4, 10));
    lastRead.restart();
}

void Connection::sendHeartBeat()
{
    // Any frame counts as a sign of life; an EOL is the cheapest one.
    if (socket && writer.msSinceWrite() >= sendEveryMs / 2)
        write(QByteArrayLiteral("\n"));
}

void Connection::checkHeartBeat()
{
    // Twice the agreed interval leaves room for a busy broker and a loaded
    // machine without letting a dead peer linger.
    if (socket && lastRead.elapsed() > 2LL * expectEveryMs) {
        end(lostText(QStringLiteral("no heart-beat from the broker for %1 ms (one was due every "
                                    "%2 ms)")
                         .arg(lastRead.elapsed())
                         .arg(expectEveryMs)));
    }
}

void Connection::onSocketError(QAbstractSocket::SocketError error)
{
    if (!socket || stage == Stage::Idle)
        return;
    // A broker that refuses us sends its ERROR frame and closes at once;
    // the frame may still sit in the socket's buffer when the close is
    // reported, and its text says more than the close does.
    if (socket->bytesAvailable() > 0) {
        onReadyRead();
        if (!socket || stage == Stage::Idle)
            return;
    }
    const QString problem = socketProblem(error, socket->errorString(), stage != Stage::Open);
    if (stage == Stage::Open)
        end(lostText(problem));
    else
        end(QStringLiteral("Cannot connect to the message broker at %1: %2.")
                .arg(session->address.label(), problem));
}

void Connection::onSslErrors(const QList<QSslError> &errors)
{
    QStringList texts;
    for (const QSslError &error : errors)
        texts << error.errorString();
    end(QStringLiteral("Cannot connect to the message broker at %1: its TLS certificate was "
                       "rejected (%2)%3.")
            .arg(session->address.label(), texts.join(QStringLiteral("; ")),
                 settings.caFile.isEmpty()
                     ? QStringLiteral("; name the CA that signed it in NUV_STOMP_CA_FILE")
                     : QStringLiteral("; the CA file is %1").arg(settings.caFile)));
}

void Connection::onDisconnected()
{
    if (!socket || stage == Stage::Idle)
        return;
    onSocketError(QAbstractSocket::RemoteHostClosedError);
}

void Connection::end(const QString &reason)
{
    if (!session)
        return;
    const std::shared_ptr<ConnectionState> ending = session;
    const bool lost = ending->closed(reason);
    dropSocket();
    if (lost) {
        qCWarning(lcStomp).noquote() << reason;
        if (onLost)
            onLost(reason);
    }
}

void Connection::dropSocket()
{
    stage = Stage::Idle;
    sendTimer->stop();
    receiveTimer->stop();
    if (!socket)
        return;
    writer.reset();
    QTcpSocket *gone = socket;
    socket = nullptr;
    gone->disconnect(this);
    gone->abort();
    gone->deleteLater();
}

void Connection::write(const QByteArray &bytes)
{
    writer.write(socket, bytes);
}

QString Connection::brokerRefusal(const Frame &error) const
{
    const QString label = session->address.label();
    if (stage == Stage::AwaitSubscribed) {
        return QStringLiteral("The message broker at %1 refused the subscription to this "
                              "connection's reply queue: %2")
            .arg(label, brokerMessage(error));
    }
    return connectRefusal(label, settings, error,
                          QStringLiteral("set NUV_STOMP_LOGIN and NUV_STOMP_PASSCODE (or login and "
                                         "passcode in nuvactivemqclient.conf)."));
}

QString Connection::lostText(const QString &what) const
{
    QString text = QStringLiteral("The connection to the message broker at %1 was lost: %2.")
                       .arg(session->address.label(), what);
    if (!lastBrokerError.isEmpty())
        text += QStringLiteral(" The broker's last error was: %1").arg(lastBrokerError);
    return text;
}

} // namespace stomp

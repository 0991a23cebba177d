#include "stomppeer.h"

#include <QDeadlineTimer>
#include <QTcpSocket>

namespace stomp {

Peer::Peer() = default;

Peer::~Peer()
{
    close();
}

bool Peer::open(const Options &options, int timeoutMs)
{
    close();
    parser = Parser();
    socket = std::make_unique<QTcpSocket>();
    socket->connectToHost(options.host, options.port);
    if (!socket->waitForConnected(timeoutMs)) {
        error = QStringLiteral("connect to %1:%2: %3")
                    .arg(options.host)
                    .arg(options.port)
                    .arg(socket->errorString());
        return false;
    }
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    Frame connect("CONNECT");
    connect.add("accept-version", "1.2").add("host", options.host.toUtf8());
    connect.add("heart-beat", "0,0");
    if (!options.login.isEmpty())
        connect.add("login", options.login).add("passcode", options.passcode);
    if (!send(connect))
        return false;
    Frame answer;
    if (!receive(&answer, timeoutMs))
        return false;
    if (answer.command != "CONNECTED") {
        error = QStringLiteral("broker answered %1: %2")
                    .arg(QString::fromLatin1(answer.command),
                         QString::fromUtf8(answer.header("message")));
        return false;
    }
    return true;
}

bool Peer::subscribe(const QByteArray &id, const QByteArray &destination, int timeoutMs)
{
    Frame subscribe("SUBSCRIBE");
    subscribe.add("id", id).add("destination", destination).add("ack", "auto");
    subscribe.add("receipt", "subscribe-" + id);
    return send(subscribe) && awaitReceipt("subscribe-" + id, timeoutMs);
}

bool Peer::send(const Frame &frame)
{
    if (!socket || socket->state() != QAbstractSocket::ConnectedState) {
        error = QStringLiteral("not connected");
        return false;
    }
    socket->write(encodeHead(frame));
    socket->write(frame.body);
    socket->write(QByteArray(1, '\0'));
    // Push it all out: the peer has no event loop that would.
    while (socket->bytesToWrite() > 0) {
        if (!socket->waitForBytesWritten(30000)) {
            error = QStringLiteral("write: %1").arg(socket->errorString());
            return false;
        }
    }
    return true;
}

bool Peer::receive(Frame *frame, int timeoutMs)
{
    if (!socket)
        return false;
    const QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        switch (parser.next(frame)) {
        case Parser::Result::Frame:
            return true;
        case Parser::Result::Error:
            error = parser.errorText();
            return false;
        case Parser::Result::NeedMore:
            break;
        }
        if (socket->state() != QAbstractSocket::ConnectedState && socket->bytesAvailable() == 0) {
            error = QStringLiteral("connection closed");
            return false;
        }
        if (socket->bytesAvailable() == 0
            && !socket->waitForReadyRead(int(qMax<qint64>(0, deadline.remainingTime())))) {
            if (socket->state() != QAbstractSocket::ConnectedState)
                error = QStringLiteral("connection closed");
            else
                error = QStringLiteral("time-out");
            return false;
        }
        parser.feed(socket->readAll());
    }
}

bool Peer::awaitReceipt(const QByteArray &receiptId, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    Frame frame;
    while (receive(&frame, int(qMax<qint64>(0, deadline.remainingTime())))) {
        if (frame.command == "RECEIPT" && frame.header("receipt-id") == receiptId)
            return true;
        if (frame.command == "ERROR") {
            error = QString::fromUtf8(frame.header("message"));
            return false;
        }
    }
    return false;
}

void Peer::abort()
{
    if (socket)
        socket->abort();
    socket.reset();
}

void Peer::close()
{
    if (!socket)
        return;
    if (socket->state() == QAbstractSocket::ConnectedState) {
        send(Frame("DISCONNECT"));
        socket->disconnectFromHost();
        if (socket->state() != QAbstractSocket::UnconnectedState)
            socket->waitForDisconnected(1000);
    }
    socket.reset();
}

bool Peer::closed() const
{
    return !socket || socket->state() != QAbstractSocket::ConnectedState;
}

} // namespace stomp

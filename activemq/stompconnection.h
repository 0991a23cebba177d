// SPDX-License-Identifier: Apache-2.0
#ifndef STOMPCONNECTION_H
#define STOMPCONNECTION_H

#include "brokerconfig.h"
#include "connectionstate.h"
#include "directwriter.h"
#include "stompparser.h"

#include <QAbstractSocket>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>

class QTcpSocket;
class QSslError;

Q_DECLARE_LOGGING_CATEGORY(lcStomp)

namespace stomp {

// Each connection's own reply destination. ActiveMQ scopes a temporary
// queue to the connection that created it, so one fixed name serves every
// connection; a responder sees it as /remote-temp-queue/ID:...
extern const QByteArray replyDestination;
// The subscription id of that destination.
extern const QByteArray replySubscription;

/*
 * The socket side of a transport: lives on the transport's I/O thread and,
 * but for submit(), is only ever called there (callers post to it). It
 * opens the socket, runs the handshake (CONNECT, CONNECTED, SUBSCRIBE to
 * the reply destination and its RECEIPT), keeps heart-beats going both ways,
 * and routes every frame that arrives into the current ConnectionState.
 *
 * One object serves the transport's whole life; each connect brings a new
 * ConnectionState, and work posted for an older one is ignored.
 */
class Connection : public QObject
{
    Q_OBJECT

public:
    // Called on the I/O thread when an open session ends without being asked
    // to, after the session has failed its waiters.
    using LostHandler = std::function<void(const QString &reason)>;

    explicit Connection(LostHandler onLost, QObject *parent = nullptr);
    ~Connection() override;

    void open(const std::shared_ptr<ConnectionState> &session, const BrokerSettings &settings,
              const QByteArray &clientId);
    // Any thread: writes an encoded frame, head (with the blank line), body
    // and NUL. On an open plain TCP connection whose earlier bytes have all
    // reached the kernel, the calling thread writes it to the socket itself:
    // a hand-over to the I/O thread costs a thread wake-up and an event-loop
    // turn per request. Otherwise the frame queues behind those bytes on the
    // I/O thread.
    void submit(const std::shared_ptr<ConnectionState> &session, const QByteArray &head,
                const QByteArray &body);
    // Any thread: runs `work` on the I/O thread, in the order posted.
    void post(std::function<void()> work);
    // Marks the session as closing (so the broker's hang-up is no loss) and
    // writes the DISCONNECT frame.
    void beginClose(const std::shared_ptr<ConnectionState> &session,
                    const QByteArray &disconnectFrame);
    // Ends the session now, without reporting a loss.
    void finish(const std::shared_ptr<ConnectionState> &session, const QString &reason);

private:
    enum class Stage { Idle, TcpConnecting, AwaitConnected, AwaitSubscribed, Open };

    void send(const std::shared_ptr<ConnectionState> &session, const QByteArray &head,
              const QByteArray &body);
    void sendConnect();
    void onReadyRead();
    void handle(const Frame &frame);
    void handleHandshake(const Frame &frame);
    void handleOpen(const Frame &frame);
    void startHeartBeats(const QByteArray &serverHeartBeat);
    void sendHeartBeat();
    void checkHeartBeat();
    void onSocketError(QAbstractSocket::SocketError error);
    void onSslErrors(const QList<QSslError> &errors);
    void onDisconnected();
    // Ends the current session with `reason`; a loss when it was open.
    void end(const QString &reason);
    void dropSocket();
    void write(const QByteArray &bytes);
    QString brokerRefusal(const Frame &error) const;
    QString lostText(const QString &what) const;

    LostHandler onLost;
    std::shared_ptr<ConnectionState> session;
    BrokerSettings settings;
    QByteArray clientId;
    QTcpSocket *socket = nullptr;
    Parser parser;
    Stage stage = Stage::Idle;
    QTimer *sendTimer;
    QTimer *receiveTimer;
    QElapsedTimer lastRead;
    QString lastBrokerError;
    int sendEveryMs = 0;
    int expectEveryMs = 0;
    // Shared with the calling threads that submit frames.
    DirectWriter writer;
};

} // namespace stomp

#endif // STOMPCONNECTION_H

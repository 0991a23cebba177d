#ifndef STOMPCONNECTION_H
#define STOMPCONNECTION_H

#include "brokerconfig.h"
#include "session.h"
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
 * The socket side of a transport: lives on the transport's I/O thread and
 * is only ever called there (callers post to it). It opens the socket, runs
 * the handshake (CONNECT, CONNECTED, SUBSCRIBE to the reply destination and
 * its RECEIPT), keeps heart-beats going both ways, and routes every frame
 * that arrives into the current Session.
 *
 * One object serves the transport's whole life; each connect brings a new
 * Session, and work posted for an older one is ignored.
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

    void open(const std::shared_ptr<Session> &session, const BrokerSettings &settings,
              const QByteArray &clientId);
    // Writes an encoded frame: head (with the blank line), body, NUL.
    void send(const std::shared_ptr<Session> &session, const QByteArray &head,
              const QByteArray &body);
    // Marks the session as closing (so the broker's hang-up is no loss) and
    // writes the DISCONNECT frame.
    void beginClose(const std::shared_ptr<Session> &session, const QByteArray &disconnectFrame);
    // Ends the session now, without reporting a loss.
    void finish(const std::shared_ptr<Session> &session, const QString &reason);

private:
    enum class Stage { Idle, TcpConnecting, AwaitConnected, AwaitSubscribed, Open };

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
    std::shared_ptr<Session> session;
    BrokerSettings settings;
    QByteArray clientId;
    QTcpSocket *socket = nullptr;
    Parser parser;
    Stage stage = Stage::Idle;
    QTimer *sendTimer;
    QTimer *receiveTimer;
    QElapsedTimer lastRead;
    QElapsedTimer lastWrite;
    QString lastBrokerError;
    int sendEveryMs = 0;
    int expectEveryMs = 0;
};

} // namespace stomp

#endif // STOMPCONNECTION_H

#ifndef STOMPPEER_H
#define STOMPPEER_H

#include "stompframe.h"
#include "stompparser.h"

#include <QString>

#include <memory>

class QTcpSocket;

namespace stomp {

/*
 * A minimal blocking STOMP client on one socket, for the other end of the
 * tests and for raw measurements: no threads of its own, no heart-beats, no
 * event loop. Use it on one thread only (the one that connected it).
 */
class Peer
{
public:
    struct Options
    {
        QString host = QStringLiteral("127.0.0.1");
        quint16 port = 0;
        QByteArray login;
        QByteArray passcode;
    };

    Peer();
    ~Peer();
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    // CONNECT and wait for CONNECTED; false with errorText().
    bool open(const Options &options, int timeoutMs = 10000);
    // SUBSCRIBE with a receipt, waiting for it.
    bool subscribe(const QByteArray &id, const QByteArray &destination, int timeoutMs = 10000);
    bool send(const Frame &frame);
    // The next frame (heart-beats skipped); false on time-out or when the
    // connection is gone (then closed() is true).
    bool receive(Frame *frame, int timeoutMs);
    // Waits for the RECEIPT with this id, failing on an ERROR.
    bool awaitReceipt(const QByteArray &receiptId, int timeoutMs);
    void close();
    // Drops the socket without a DISCONNECT, as a crashed client would.
    void abort();

    bool closed() const;
    QString errorText() const { return error; }

private:
    std::unique_ptr<QTcpSocket> socket;
    Parser parser;
    QString error;
};

} // namespace stomp

#endif // STOMPPEER_H

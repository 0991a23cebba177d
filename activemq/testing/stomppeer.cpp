// SPDX-License-Identifier: Apache-2.0
#include "stomppeer.h"

namespace stomp {

Peer::Peer() = default;

Peer::~Peer()
{
    close();
}

bool Peer::open(const Options &options, int timeoutMs)
{
    BrokerAddress address;
    address.host = options.host;
    address.port = options.port;
    BrokerSettings settings;
    settings.login = QString::fromUtf8(options.login);
    settings.passcode = QString::fromUtf8(options.passcode);
    settings.heartBeatMs = 0;
    settings.connectTimeoutMs = timeoutMs;
    return client.open(address, settings);
}

bool Peer::subscribe(const QByteArray &id, const QByteArray &destination, int timeoutMs)
{
    Frame subscribe("SUBSCRIBE");
    subscribe.add("id", id).add("destination", destination).add("ack", "auto");
    subscribe.add("receipt", "subscribe-" + id);
    return client.send(subscribe) && client.awaitReceipt("subscribe-" + id, timeoutMs);
}

bool Peer::send(const Frame &frame)
{
    return client.send(frame);
}

bool Peer::receive(Frame *frame, int timeoutMs)
{
    return client.receive(frame, timeoutMs);
}

bool Peer::awaitReceipt(const QByteArray &receiptId, int timeoutMs)
{
    return client.awaitReceipt(receiptId, timeoutMs);
}

void Peer::abort()
{
    client.abort();
}

void Peer::close()
{
    client.close(0);
}

bool Peer::closed() const
{
    return !client.isOpen();
}

} // namespace stomp

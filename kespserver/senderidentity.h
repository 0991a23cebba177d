#ifndef KESPSERVER_SENDERIDENTITY_H
#define KESPSERVER_SENDERIDENTITY_H

#include "stompframe.h"

#include <QString>

namespace kesp {

// The broker connection that sent `message`. ActiveMQ gives every message
// an id of its own, "<connection id>:<session>:<producer>:<sequence>",
// replacing any message-id header the sender wrote, so the connection id in
// it cannot be forged by a client. Empty when the id has not that form.
QString senderConnection(const stomp::Frame &message);

// Where the broker announces connections opening and closing, and the
// header that makes it send them to a STOMP subscriber as JSON.
extern const char connectionAdvisoryTopic[];
extern const char advisoryTransformation[];

// The connection that a connection advisory reports closed; empty for any
// other advisory (an opened connection, a malformed body).
QString closedConnection(const QByteArray &advisoryBody);

} // namespace kesp

#endif // KESPSERVER_SENDERIDENTITY_H

// SPDX-License-Identifier: Apache-2.0
#ifndef STOMP_HANDSHAKE_H
#define STOMP_HANDSHAKE_H

#include "brokerconfig.h"
#include "stompframe.h"

#include <QString>

namespace stomp {

// The STOMP 1.2 handshake as every connection of this project runs it,
// blocking or not: the CONNECT it sends, what it accepts as CONNECTED, the
// heart-beats it agrees on and the text of a refusal.

// CONNECT for `host`, offering (and asking for) heart-beats every
// settings.heartBeatMs; `clientId` names the connection when not empty.
Frame connectFrame(const QString &host, const BrokerSettings &settings,
                   const QByteArray &clientId = QByteArray());

// Empty when `connected` is a CONNECTED frame this project can talk to;
// otherwise why not, as the end of "Cannot connect to ...: ".
QString connectedProblem(const Frame &connected);

struct HeartBeats
{
    int sendEveryMs = 0; // 0: we send none
    int expectEveryMs = 0; // 0: the broker sends none
};

// Each side beats at the slower of the two wishes; a malformed header from
// the broker counts as no heart-beats at all.
HeartBeats negotiateHeartBeats(int oursMs, const QByteArray &brokerHeader);

// The broker's own words from an ERROR frame, shortened for one line.
QString brokerMessage(const Frame &error);

// The text for an ERROR in answer to CONNECT: the account, never its
// passcode. With no login configured, `noLoginHint` says where to set one.
QString connectRefusal(const QString &label, const BrokerSettings &settings, const Frame &error,
                       const QString &noLoginHint);

} // namespace stomp

#endif // STOMP_HANDSHAKE_H

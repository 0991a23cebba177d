// SPDX-License-Identifier: Apache-2.0
#ifndef ECHOCONTROL_H
#define ECHOCONTROL_H

#include "nuvinterfaceids.h"
#include "nuvmqclassifymessage.h"

#include <QObject>

// What a benchmark sets on the echo transport: the reply every exchange gets.
class EchoTransportControl
{
public:
    virtual ~EchoTransportControl() = default;
    virtual void setReply(const nuvMQClassifyMessage &reply) = 0;
};
#define ECHO_TRANSPORT_CONTROL_IID NUV_IID_PREFIX ".bench.EchoTransportControl/1.0"
Q_DECLARE_INTERFACE(EchoTransportControl, ECHO_TRANSPORT_CONTROL_IID)

#endif // ECHOCONTROL_H

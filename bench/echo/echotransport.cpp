// SPDX-License-Identifier: Apache-2.0
#include "echotransport.h"

namespace {
// One reply for every transport object of the process: the benchmark sets it
// on the root object and the client's own transport answers with it.
nuvMQClassifyMessage &configuredReply()
{
    static nuvMQClassifyMessage reply;
    return reply;
}
} // namespace

bool EchoTransport::sendSyncMessage(nuvMQMessage *request, nuvMQMessage *reply, int, qint64, int,
                                    QString, void *)
{
    QString requestText;
    request->convertToBase64(requestText);
    nuvMQClassifyMessage received;
    received.convertFromBase64(requestText);

    QString replyText;
    configuredReply().convertToBase64(replyText);
    return reply->convertFromBase64(replyText);
}

void EchoTransport::setReply(const nuvMQClassifyMessage &reply)
{
    configuredReply() = nuvMQClassifyMessage(reply);
}

bool EchoTransport::unsupported()
{
    lastErrorText = QStringLiteral("echo transport: not supported");
    return false;
}

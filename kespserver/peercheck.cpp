// SPDX-License-Identifier: Apache-2.0
#include "peercheck.h"

#include <QRegularExpression>

namespace kesp {

const QByteArray PeerCheck::subscriptionId = "instances";

PeerCheck::PeerCheck(const QString &requestQueue, const QString &instance,
                     const QString &databaseId)
    : instance(instance.toUtf8())
    , databaseId(databaseId.toUtf8())
{
    QString name = requestQueue;
    name.remove(QRegularExpression(QStringLiteral("^/(queue|topic)/")));
    // Under one prefix, so that one authorization entry gives it to the
    // server accounts alone, whatever the queue is called.
    destination = "/topic/nuv.instances." + name.toUtf8();
}

stomp::Frame PeerCheck::announcement() const
{
    stomp::Frame frame("SEND");
    frame.add("destination", destination).add("nuv-peer", "hello");
    frame.add("nuv-instance", instance).add("nuv-database-id", databaseId);
    return frame;
}

PeerCheck::Verdict PeerCheck::judge(const stomp::Frame &message)
{
    const QByteArray from = message.header("nuv-instance");
    const QByteArray database = message.header("nuv-database-id");
    lastInstance = QString::fromUtf8(from);
    lastDatabase = QString::fromUtf8(database);
    if (from == instance || database == databaseId)
        return Verdict::Ignore;
    if (message.header("nuv-peer") == "hello")
        return Verdict::Answer;
    return message.header("nuv-to") == instance ? Verdict::Conflict : Verdict::Ignore;
}

stomp::Frame PeerCheck::answer() const
{
    stomp::Frame frame("SEND");
    frame.add("destination", destination).add("nuv-peer", "other-database");
    frame.add("nuv-instance", instance).add("nuv-database-id", databaseId);
    frame.add("nuv-to", lastInstance.toUtf8());
    return frame;
}

} // namespace kesp

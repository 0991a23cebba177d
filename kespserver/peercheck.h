// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_PEERCHECK_H
#define KESPSERVER_PEERCHECK_H

#include "stompframe.h"

#include <QString>

namespace kesp {

/*
 * Instances on one request queue must serve one database: a client's
 * session lives in the database, so an instance on another database would
 * fail every second request. A starting instance announces the id of its
 * database on a topic beside the queue (only server accounts may use it);
 * instances on another database answer with theirs, and the newcomer
 * refuses to serve. The answers name the newcomer, so nobody else acts on
 * them.
 */
class PeerCheck
{
public:
    PeerCheck(const QString &requestQueue, const QString &instance, const QString &databaseId);

    static const QByteArray subscriptionId;
    QByteArray topic() const { return destination; }
    stomp::Frame announcement() const;

    enum class Verdict {
        Ignore, // our own, or from an instance on our database
        Answer, // a newcomer on another database: send answer()
        Conflict, // we are the newcomer, and others serve another database
    };
    // What a message of the topic means to this instance.
    Verdict judge(const stomp::Frame &message);
    // The answer to the announcement judged last.
    stomp::Frame answer() const;
    // The instance and database of the message judged last, for the log.
    QString otherInstance() const { return lastInstance; }
    QString otherDatabase() const { return lastDatabase; }
    QString ownDatabase() const { return QString::fromUtf8(databaseId); }

private:
    QByteArray destination;
    QByteArray instance;
    QByteArray databaseId;
    QString lastInstance;
    QString lastDatabase;
};

} // namespace kesp

#endif // KESPSERVER_PEERCHECK_H

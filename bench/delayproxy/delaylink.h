// SPDX-License-Identifier: Apache-2.0
#ifndef DELAYPROXY_DELAYLINK_H
#define DELAYPROXY_DELAYLINK_H

#include "delayedpipe.h"
#include "proxycounts.h"

#include <QObject>

class QTcpSocket;

namespace delayproxy {

/*
 * One client's connection and the proxy's own to the target, joined by a
 * delayed pipe each way. An end on either side travels to the other after
 * the bytes before it; the link deletes itself when both ways are done.
 */
class DelayLink : public QObject
{
    Q_OBJECT
public:
    DelayLink(QTcpSocket *client, const QString &targetHost, quint16 targetPort, int delayMs,
              SharedCounts *counts, QObject *parent);

private:
    void finishIfDone();

    QTcpSocket *const client;
    QTcpSocket *const target;
    DelayedPipe *const toTarget;
    DelayedPipe *const toClient;
    SharedCounts *const counts;
    bool targetConnected = false;
    bool clientSpokeLast = false;
};

} // namespace delayproxy

#endif // DELAYPROXY_DELAYLINK_H

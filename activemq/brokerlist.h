// SPDX-License-Identifier: Apache-2.0
#ifndef STOMP_BROKERLIST_H
#define STOMP_BROKERLIST_H

#include "brokerconfig.h"

#include <QList>
#include <QString>

namespace stomp {

/*
 * The brokers a connection may use, in the form ActiveMQ's own clients
 * take: one address as parseAddress() accepts it, or
 *
 *   failover:(tcp://h1:61613,ssl://h2:61614)
 *
 * (the parentheses may be left out; options after a "?" are accepted and
 * ignored). A connection tries them in order, starting with the one after
 * the broker it used last: so a new connection after a loss, or after a
 * broker that could not be reached, goes to the next broker first.
 */
class BrokerList
{
public:
    // Parses `text`; `port` is used where an address names none. False with
    // an error text naming what is wrong.
    bool parse(const QString &text, qint64 port, bool tlsByDefault, QString *error);

    const QList<BrokerAddress> &addresses() const { return list; }
    int size() const { return int(list.size()); }
    // The order of the next connection's attempts, as indexes.
    QList<int> attemptOrder() const;
    // The connection now uses the broker at `index`.
    void used(int index) { last = index; }
    // "host:port" for one broker, "failover:(...)" for several.
    QString label() const;
    // One error text for a connection that no broker took: the single
    // broker's own text, or each broker's text after a line that says so.
    QString allFailed(const QStringList &texts) const;

private:
    QList<BrokerAddress> list;
    int last = -1;
};

} // namespace stomp

#endif // STOMP_BROKERLIST_H

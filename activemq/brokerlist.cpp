// SPDX-License-Identifier: Apache-2.0
#include "brokerlist.h"

namespace stomp {

namespace {

const QLatin1String failoverScheme("failover:");

// "scheme://host:port" into parseAddress()'s host and port.
bool parseEntry(const QString &entry, qint64 defaultPort, bool tlsByDefault, BrokerAddress *address,
                QString *error)
{
    QString text = entry.trimmed();
    if (text.endsWith(QLatin1Char('/')))
        text.chop(1);
    const int scheme = text.indexOf(QLatin1String("://"));
    const QString prefix = scheme >= 0 ? text.left(scheme + 3) : QString();
    QString host = text.mid(prefix.size());
    QString portText;
    if (host.startsWith(QLatin1Char('['))) {
        const int close = host.indexOf(QLatin1Char(']'));
        if (close > 0 && host.mid(close + 1).startsWith(QLatin1Char(':'))) {
            portText = host.mid(close + 2);
            host = host.left(close + 1);
        }
    } else if (host.count(QLatin1Char(':')) == 1) {
        portText = host.section(QLatin1Char(':'), 1);
        host = host.section(QLatin1Char(':'), 0, 0);
    }
    qint64 port = defaultPort;
    if (!portText.isNull()) {
        bool ok = false;
        port = portText.toLongLong(&ok);
        if (!ok) {
            *error = QStringLiteral("Cannot connect to the message broker \"%1\": \"%2\" is not "
                                    "a port.")
                         .arg(entry.trimmed(), portText);
            return false;
        }
    }
    return parseAddress(prefix + host, port, tlsByDefault, address, error);
}

} // namespace

bool BrokerList::parse(const QString &text, qint64 port, bool tlsByDefault, QString *error)
{
    QList<BrokerAddress> parsed;
    const QString trimmed = text.trimmed();
    if (!trimmed.startsWith(failoverScheme, Qt::CaseInsensitive)) {
        BrokerAddress address;
        if (!parseAddress(trimmed, port, tlsByDefault, &address, error))
            return false;
        parsed.append(address);
    } else {
        QString inner = trimmed.mid(failoverScheme.size()).trimmed();
        if (inner.startsWith(QLatin1Char('('))) {
            const int close = inner.indexOf(QLatin1Char(')'));
            if (close < 0) {
                *error = QStringLiteral("Cannot connect to the message brokers \"%1\": the "
                                        "list has no closing parenthesis.")
                             .arg(trimmed);
                return false;
            }
            inner = inner.mid(1, close - 1);
        } else {
            inner = inner.section(QLatin1Char('?'), 0, 0);
        }
        for (const QString &entry : inner.split(QLatin1Char(','))) {
            BrokerAddress address;
            if (entry.trimmed().isEmpty()
                || !parseEntry(entry, port, tlsByDefault, &address, error)) {
                if (entry.trimmed().isEmpty())
                    *error = QStringLiteral("Cannot connect to the message brokers \"%1\": the "
                                            "list has an empty entry.")
                                 .arg(trimmed);
                return false;
            }
            parsed.append(address);
        }
    }
    list = parsed;
    last = -1;
    return true;
}

QList<int> BrokerList::attemptOrder() const
{
    QList<int> order;
    const int count = size();
    for (int step = 1; step <= count; ++step)
        order.append((last + step + count) % count);
    return order;
}

QString BrokerList::label() const
{
    if (list.size() == 1)
        return list.first().label();
    QStringList labels;
    for (const BrokerAddress &address : list)
        labels << (address.tls ? QStringLiteral("ssl://") : QStringLiteral("tcp://"))
                + (address.host.contains(QLatin1Char(':'))
                       ? QLatin1Char('[') + address.host + QLatin1Char(']')
                       : address.host)
                + QLatin1Char(':') + QString::number(address.port);
    return QStringLiteral("failover:(%1)").arg(labels.join(QLatin1Char(',')));
}

QString BrokerList::allFailed(const QStringList &texts) const
{
    if (texts.size() == 1)
        return texts.first();
    return QStringLiteral("Cannot connect to any of the message brokers %1: %2")
        .arg(label(), texts.join(QLatin1Char(' ')));
}

} // namespace stomp

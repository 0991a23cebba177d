// SPDX-License-Identifier: Apache-2.0
#include "connectionsettings.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSettings>
#include <QStringList>

namespace nuvexplorer {

namespace {

constexpr int defaultStompPort = 61613;

QString tr(const char *text)
{
    return QCoreApplication::translate("ConnectionSettings", text);
}

// "host:port", "host" or "[::1]:port".
bool parseBroker(const QString &entry, QString *host, int *port, QString *error)
{
    QString text = entry.trimmed();
    *port = defaultStompPort;
    int colon = text.lastIndexOf(QLatin1Char(':'));
    if (text.startsWith(QLatin1Char('['))) {
        const int close = text.indexOf(QLatin1Char(']'));
        if (close < 0) {
            *error = tr("'%1' opens a bracket it does not close.").arg(entry);
            return false;
        }
        colon = text.indexOf(QLatin1Char(':'), close);
    } else if (text.count(QLatin1Char(':')) > 1) {
        colon = -1; // a bare IPv6 address
    }
    if (colon >= 0) {
        bool ok = false;
        *port = text.mid(colon + 1).toInt(&ok);
        if (!ok || *port < 1 || *port > 65535) {
            *error = tr("'%1' does not end in a port number (1-65535).").arg(entry);
            return false;
        }
        text.truncate(colon);
    }
    if (text.isEmpty()) {
        *error = tr("'%1' names no host.").arg(entry);
        return false;
    }
    *host = text;
    return true;
}

} // namespace

ConnectionSettings ConnectionSettings::load(QSettings &settings)
{
    ConnectionSettings result;
    settings.beginGroup(QStringLiteral("connection"));
    result.kind = settings.value(QStringLiteral("kind")).toString() == QLatin1String("broker")
        ? Broker
        : Embedded;
    result.database = settings.value(QStringLiteral("database")).toString();
    result.brokers = settings.value(QStringLiteral("brokers")).toString();
    result.tls = settings.value(QStringLiteral("tls"), false).toBool();
    result.caFile = settings.value(QStringLiteral("caFile")).toString();
    result.user = settings.value(QStringLiteral("user")).toString();
    settings.endGroup();
    return result;
}

void ConnectionSettings::save(QSettings &settings) const
{
    settings.beginGroup(QStringLiteral("connection"));
    settings.setValue(QStringLiteral("kind"),
                      kind == Broker ? QStringLiteral("broker") : QStringLiteral("embedded"));
    settings.setValue(QStringLiteral("database"), database);
    settings.setValue(QStringLiteral("brokers"), brokers);
    settings.setValue(QStringLiteral("tls"), tls);
    settings.setValue(QStringLiteral("caFile"), caFile);
    settings.setValue(QStringLiteral("user"), user);
    settings.endGroup();
}

bool ConnectionSettings::addresses(QVector<QPair<QString, int>> *list, QString *error) const
{
    list->clear();
    if (kind == Embedded) {
        if (database.trimmed().isEmpty()) {
            *error = tr("Choose the database file.");
            return false;
        }
        list->append({ database.trimmed(), 0 });
        return true;
    }
    const QStringList entries = brokers.split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString &entry : entries) {
        if (entry.trimmed().isEmpty())
            continue;
        QString host;
        int port = 0;
        if (!parseBroker(entry, &host, &port, error))
            return false;
        if (tls && !host.contains(QLatin1String("://")))
            host.prepend(QStringLiteral("ssl://"));
        list->append({ host, port });
    }
    if (list->isEmpty()) {
        *error = tr("Name at least one broker as host:port.");
        return false;
    }
    return true;
}

QString ConnectionSettings::describe() const
{
    if (kind == Embedded)
        return tr("%1 on %2").arg(user, QFileInfo(database).fileName());
    return tr("%1 at %2").arg(user, brokers.section(QLatin1Char(','), 0, 0).trimmed());
}

} // namespace nuvexplorer

// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_CONNECTIONSETTINGS_H
#define NUVEXPLORER_CONNECTIONSETTINGS_H

#include <QPair>
#include <QString>
#include <QVector>

class QSettings;

namespace nuvexplorer {

// Where and as whom to log in. Remembered between runs, never with the
// password.
struct ConnectionSettings
{
    enum Kind { Embedded, Broker };

    Kind kind = Embedded;
    QString database; // embedded: the database file (or a postgresql:// URL)
    QString brokers; // "host:port", several separated by commas, tried in order
    bool tls = false;
    QString caFile; // PEM file of the CAs that TLS trusts instead of the system's
    QString user;

    static ConnectionSettings load(QSettings &settings);
    void save(QSettings &settings) const;

    // The login addresses: the database with port 0, or each broker
    // ("ssl://host" over TLS). False with `error` for a malformed entry.
    bool addresses(QVector<QPair<QString, int>> *list, QString *error) const;
    // "erika on office.db" or "erika at broker:61613", for the window.
    QString describe() const;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_CONNECTIONSETTINGS_H

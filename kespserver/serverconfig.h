// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_SERVERCONFIG_H
#define KESPSERVER_SERVERCONFIG_H

#include "brokerconfig.h"
#include "brokerlist.h"
#include "configfile.h"

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace kesp {

/*
 * What nuvkesp-server is told at start: what to do (serve, or one of the
 * operator's commands), the broker (address, account, TLS and queue), the
 * database, and how it serves and logs. Every setting comes from an option,
 * a variable or the configuration file (configfile.h), in that order.
 */
struct ServerConfig
{
    enum class Command { Serve, Init, Migrate, Status, PrintConfig, Version, Help };

    Command command = Command::Serve;
    Settings sources; // every setting, with where it came from
    stomp::BrokerList brokers;
    stomp::BrokerSettings settings;
    QString database;
    QString name; // in every log line, to tell instances apart
    int prefetch = 1; // at least `workers` when serving
    int workers = 1; // engines running requests at once
    int verbosity = 1; // 0 problems only, 1 a line per request, 2 frame details
    int firstBackoffMs = 250;
    int maxBackoffMs = 30000;
    int keepRecordsHours = 24; // how long processed requests are remembered
    int peerCheckMs = 1500;
    QString metricsHost; // empty: no metrics endpoint
    quint16 metricsPort = 0;
    bool create = false; // serve: create the database when it is missing
    bool backup = true; // migrate: copy the database first
    QString admin; // init: the first administrator
    // Whether sessions end when the broker reports their connection closed
    // (NUV_KESP_CONNECTION_ADVISORIES); without, only the idle time-out or
    // the client's own CFCLOSESESSION ends them.
    bool connectionAdvisories = true;
    QString helpText;
};

// Parses `arguments` (the first is the program). False with `error` on a
// usage mistake or a bad setting.
bool parseConfig(const QStringList &arguments, const QProcessEnvironment &environment,
                 ServerConfig *config, QString *error);

} // namespace kesp

#endif // KESPSERVER_SERVERCONFIG_H

// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_SERVERCONFIG_H
#define KESPSERVER_SERVERCONFIG_H

#include "brokerconfig.h"

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace kesp {

/*
 * What nuvkesp-server is told at start: the broker (address from an option,
 * account, TLS and queue from the NUV_STOMP_* variables or the INI file
 * exactly as the client transport reads them), the database, and how it
 * serves and logs. Options win over NUV_KESP_* variables.
 */
struct ServerConfig
{
    stomp::BrokerAddress broker;
    stomp::BrokerSettings settings;
    QString database;
    QString name; // in every log line, to tell instances apart
    int prefetch = 1;
    int verbosity = 1; // 0 problems only, 1 a line per request, 2 frame details
    int firstBackoffMs = 250;
    int maxBackoffMs = 30000;
    int keepRecordsHours = 24; // how long processed requests are remembered
    // Whether sessions end when the broker reports their connection closed
    // (NUV_KESP_CONNECTION_ADVISORIES); without, only the idle time-out or
    // the client's own CFCLOSESESSION ends them.
    bool connectionAdvisories = true;
    bool help = false;
    bool version = false;
    QString helpText;
};

// Parses `arguments` (the first is the program). False with `error` on a
// usage mistake or a bad setting.
bool parseConfig(const QStringList &arguments, const QProcessEnvironment &environment,
                 ServerConfig *config, QString *error);

} // namespace kesp

#endif // KESPSERVER_SERVERCONFIG_H

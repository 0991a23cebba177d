// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_OPERATORCOMMANDS_H
#define KESPSERVER_OPERATORCOMMANDS_H

#include "serverconfig.h"

#include <QString>

namespace nuvserver {
class ServerEngine;
}

namespace kesp {

// Writes "nuvkesp-server: TEXT" on standard error.
void complain(const QString &text);

// The commands besides serving; each returns the process's exit status.
int printConfig(const ServerConfig &config);
int initDatabase(const ServerConfig &config);
int migrateDatabase(const ServerConfig &config);

// Before serving: the database must exist (unless --create), have this
// server's schema and at least one user. Opens `engine` on it. Returns
// ExitOk, or the exit status after saying why; the database's id in
// `databaseId`.
int openForServing(const ServerConfig &config, nuvserver::ServerEngine &engine,
                   QString *databaseId);

} // namespace kesp

#endif // KESPSERVER_OPERATORCOMMANDS_H

// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_EXITSTATUS_H
#define KESPSERVER_EXITSTATUS_H

namespace kesp {

/*
 * How nuvkesp-server ends. A service manager restarts it after 1, which
 * may pass (the database server restarting); the others need an operator
 * first, so restarting would only repeat them (the unit lists them in
 * RestartPreventExitStatus=). docs/operations.md has the table.
 */
enum ExitStatus {
    ExitOk = 0,
    ExitFailed = 1, // worth another try: the database cannot be reached
    ExitConfiguration = 2, // a usage mistake, a bad setting or configuration file
    ExitNoDatabase = 3, // missing (a mistyped name?), or without any user
    ExitSchemaNewer = 4, // written by a newer server
    ExitSchemaOlder = 5, // needs "nuvkesp-server migrate"
    ExitBrokerRefused = 6, // the broker refuses the account or its rights
    ExitOtherDatabase = 7, // other instances on the queue serve another database
};

} // namespace kesp

#endif // KESPSERVER_EXITSTATUS_H

// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_ADMISSION_H
#define NUVSERVER_ADMISSION_H

#include "context.h"

#include <optional>

/*
 * Who may run a command: the caller's session, bound to its token and its
 * connection, kept alive by its requests and ended by the session time-out.
 */
namespace nuvserver {

// The session bound to a connection token, if one is logged in (or waits
// for its password change).
std::optional<LoginSession> loadSession(const QSqlDatabase &db, const QString &token);

// Loads the caller's session into `ctx` and applies the session rules of
// `entry` (login needed, password change due, administrator only); fails
// with the reason when the caller may not run it.
void admitCaller(Context &ctx, const CommandEntry &entry, int timeoutMinutes);

} // namespace nuvserver

#endif // NUVSERVER_ADMISSION_H

// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_LOGINTHROTTLE_H
#define NUVSERVER_LOGINTHROTTLE_H

#include "context.h"

/*
 * Failed logins make the next attempt wait, for the account and for the
 * connection that sent them: each failure doubles the wait (from
 * loginDelayMs up to loginMaxDelayMs), and loginLockFailures failures of an
 * account in a row lock it for loginLockMinutes. An attempt that comes too
 * early is refused before its password is hashed, so guessing costs the
 * server no PBKDF2 rounds, and no worker sleeps: the refusal says when to
 * try again.
 *
 * Requests without a broker connection come from a host that opened the database
 * itself (the embedded transport, the command-line host's --embedded): it
 * can read and change every row anyway, so it is never throttled, and an
 * administrator on the server's machine can always log in and unlock an
 * account, the last administrator's included.
 *
 * The counts live in the table login_failures, shared by every instance;
 * a day after its last failure a subject is forgotten.
 */
namespace nuvserver {

// Fails when the account or the caller's connection must still wait, or the
// account is locked; writes nothing.
void admitLoginAttempt(Context &ctx, const QString &login);
// Counts a failed attempt against the account and the connection.
void countFailedLogin(Context &ctx, const QString &login);
// A successful login forgets the failures of the account and the connection.
void forgetFailedLogins(Context &ctx, const QString &login);
// Unlocks an account and forgets its failures (an administrator's reset).
void unlockAccount(const QSqlDatabase &db, const QString &login);

} // namespace nuvserver

#endif // NUVSERVER_LOGINTHROTTLE_H

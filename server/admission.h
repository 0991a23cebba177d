// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_ADMISSION_H
#define NUVSERVER_ADMISSION_H

#include "context.h"

#include <QByteArray>

#include <optional>

/*
 * Who may run a command: the caller's session, bound to its token and its
 * connection, kept alive by its requests and ended by the session time-out.
 */
namespace nuvserver {

// What a request needs to know before anything else, read in one statement
// (on PostgreSQL the one that also starts the request's transaction).
struct RequestStart
{
    QString databaseId;
    qint64 changeNumber = 0; // of the last change
    // The reply of a request with the same key that had its effect already.
    std::optional<QByteArray> storedReply;
    // The session bound to the token, on whichever connection.
    std::optional<LoginSession> session;
};
// An empty `requestKey` looks for no stored reply.
RequestStart loadRequestStart(const QSqlDatabase &db, const QString &token,
                              const QString &requestKey);

// The session bound to a connection token, if one is logged in (or waits
// for its password change).
std::optional<LoginSession> loadSession(const QSqlDatabase &db, const QString &token);

// What a session's row needs after a request: nothing, a fresh last-seen
// time, or to go (expired).
enum class SessionUpkeep { None, Refresh, Remove };

struct SessionReview
{
    bool foreign = false; // bound to another connection
    bool expired = false;
    SessionUpkeep upkeep = SessionUpkeep::None;
};
// Drops from `ctx.session` a session of another connection or one past
// the time-out, and says what its row needs.
SessionReview reviewSession(Context &ctx, int timeoutMinutes);
// Writes what `upkeep` says to the session row of `token`.
void keepSession(const QSqlDatabase &db, const QString &token, SessionUpkeep upkeep);
// Fails with the reason unless the caller may run `entry` (login needed,
// password change due, administrator only).
void admitCaller(Context &ctx, const CommandEntry &entry, const SessionReview &review);

} // namespace nuvserver

#endif // NUVSERVER_ADMISSION_H

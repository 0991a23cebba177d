// SPDX-License-Identifier: Apache-2.0
#include "admission.h"

#include "fieldvalues.h"

#include <QDateTime>
#include <QSqlQuery>

namespace nuvserver {

namespace {

// How often a session's last-seen time is written: often enough to keep the
// time-out's precision, rarely enough that a busy session does not cost every
// request a row update.
int lastSeenRefreshSeconds(int timeoutMinutes)
{
    return qMin(60, timeoutMinutes * 60 / 4);
}

QDateTime utcTime(const QString &text)
{
    const QDateTime local = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    return local.isValid() ? QDateTime(local.date(), local.time(), Qt::UTC) : QDateTime();
}

} // namespace

void admitCaller(Context &ctx, const CommandEntry &entry, int timeoutMinutes)
{
    ctx.session = loadSession(ctx.db, ctx.token);
    // A token is worth something only on the connection that logged it in:
    // a token seen elsewhere has been copied.
    const bool foreign = ctx.session && ctx.session->connection != ctx.connection;
    if (foreign)
        ctx.session.reset();
    if (ctx.session && timeoutMinutes > 0) {
        const QDateTime lastSeen = utcTime(ctx.session->lastSeen);
        const QDateTime now = QDateTime::currentDateTimeUtc();
        if (lastSeen.isValid() && lastSeen.addSecs(timeoutMinutes * 60) < now) {
            run(ctx.db, QStringLiteral("DELETE FROM sessions WHERE token = ?"), { ctx.token });
            ctx.session.reset();
            if (!(entry.flags & Public))
                throw Failure { QStringLiteral("the session has expired; log in again"), true };
        } else if (!lastSeen.isValid()
                   || lastSeen.addSecs(lastSeenRefreshSeconds(timeoutMinutes)) <= now) {
            // Not on every request: see lastSeenRefreshSeconds().
            run(ctx.db, QStringLiteral("UPDATE sessions SET last_seen = ? WHERE token = ?"),
                { nowText(), ctx.token });
        }
    }
    if (entry.flags & Public)
        return;
    if (foreign)
        fail(QStringLiteral("not logged in: the session belongs to another connection; log in "
                            "with CFLOGIN on this one"));
    if (!ctx.session)
        fail(QStringLiteral("not logged in; log in with CFLOGIN first"));
    if (ctx.session->state != QLatin1String("active") && !(entry.flags & ExpiredSessionAllowed))
        fail(QStringLiteral("the password of %1 has expired; change it with "
                            "CFDOCCHANGEEXPIREDPASS first")
                 .arg(ctx.session->login));
    if (entry.flags & Administrative)
        ctx.requireAdmin();
}

std::optional<LoginSession> loadSession(const QSqlDatabase &db, const QString &token)
{
    if (token.isEmpty())
        return std::nullopt;
    QSqlQuery query = run(db,
                          QStringLiteral("SELECT s.user_id, u.login, s.state,"
                                         " coalesce(s.archive_id, 0), s.last_seen, s.connection"
                                         " FROM sessions s"
                                         " JOIN users u ON u.id = s.user_id"
                                         " WHERE s.token = ? AND u.active = 1"),
                          { token });
    if (!query.next())
        return std::nullopt;
    LoginSession session;
    session.token = token;
    session.userId = query.value(0).toLongLong();
    session.login = query.value(1).toString();
    session.state = query.value(2).toString();
    session.archiveId = query.value(3).toLongLong();
    session.lastSeen = query.value(4).toString();
    session.connection = query.value(5).toString();
    return session;
}

} // namespace nuvserver

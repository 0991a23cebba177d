// SPDX-License-Identifier: Apache-2.0
#include "admission.h"

#include "fieldvalues.h"
#include "schema.h"

#include <QDateTime>
#include <QSqlQuery>

namespace nuvserver {

namespace {

// How often a session's last-seen time is written: often enough to keep the
// time-out's precision, rarely enough that a busy session does not cost every
// request a row update (at most once a minute).
int lastSeenRefreshSeconds(int timeoutMinutes)
{
    return qMin(60, timeoutMinutes * 60 / 4);
}

QDateTime utcTime(const QString &text)
{
    // "yyyy-MM-dd hh:mm:ss", taken apart by hand: QDateTime::fromString()
    // makes a local time first, which reads the time-zone file on every
    // request of a session.
    static const QString separators = QStringLiteral("-- ::");
    if (text.size() != 19)
        return QDateTime();
    int numbers[6];
    int start = 0;
    for (int i = 0; i < 6; ++i) {
        const int length = i == 0 ? 4 : 2;
        if (i > 0 && text.at(start - 1) != separators.at(i - 1))
            return QDateTime();
        bool ok = false;
        numbers[i] = text.midRef(start, length).toInt(&ok);
        if (!ok)
            return QDateTime();
        start += length + 1;
    }
    const QDate date(numbers[0], numbers[1], numbers[2]);
    const QTime time(numbers[3], numbers[4], numbers[5]);
    return date.isValid() && time.isValid() ? QDateTime(date, time, Qt::UTC) : QDateTime();
}

// The columns a session is read from, from `first` on, in the order of
// sessionColumns; none without a session.
const char *const sessionColumns = "s.user_id, u.login, s.state, coalesce(s.archive_id, 0),"
                                   " s.last_seen, s.connection";

std::optional<LoginSession> sessionFrom(const QSqlQuery &query, int first, const QString &token)
{
    if (query.value(first).isNull())
        return std::nullopt;
    LoginSession session;
    session.token = token;
    session.userId = query.value(first).toLongLong();
    session.login = query.value(first + 1).toString();
    session.state = query.value(first + 2).toString();
    session.archiveId = query.value(first + 3).toLongLong();
    session.lastSeen = query.value(first + 4).toString();
    session.connection = query.value(first + 5).toString();
    return session;
}

// An empty text as NULL, which equals nothing: no session has an empty
// token, no request an empty key.
QVariant orNull(const QString &text)
{
    return text.isEmpty() ? QVariant() : QVariant(text);
}

} // namespace

RequestStart loadRequestStart(const QSqlDatabase &db, const QString &token,
                              const QString &requestKey)
{
    // One row always: the session joins it when there is one. Every
    // statement is a round trip on PostgreSQL, and every request needs these.
    static const QString sql
        = QStringLiteral("SELECT (SELECT value FROM meta WHERE key = 'database_id'), %2,"
                         " (SELECT reply FROM processed_requests WHERE request_key = ?), s.*"
                         " FROM (SELECT 1 AS one) o LEFT JOIN (SELECT %1"
                         " FROM sessions s JOIN users u ON u.id = s.user_id"
                         " WHERE s.token = ? AND u.active = 1) s ON 1 = 1")
              .arg(QLatin1String(sessionColumns), lastChangeNumberSql());
    QSqlQuery query = runAndFinish(db, sql, { orNull(requestKey), orNull(token) });
    RequestStart start;
    if (!query.next())
        fail(QStringLiteral("database error: the database has no update marker"));
    start.databaseId = query.value(0).toString();
    start.changeNumber = query.value(1).toLongLong();
    if (!query.value(2).isNull())
        start.storedReply = query.value(2).toByteArray();
    start.session = sessionFrom(query, 3, token);
    query.finish();
    return start;
}

std::optional<LoginSession> loadSession(const QSqlDatabase &db, const QString &token)
{
    if (token.isEmpty())
        return std::nullopt;
    QSqlQuery query = run(db,
                          QStringLiteral("SELECT %1 FROM sessions s"
                                         " JOIN users u ON u.id = s.user_id"
                                         " WHERE s.token = ? AND u.active = 1")
                              .arg(QLatin1String(sessionColumns)),
                          { token });
    if (!query.next())
        return std::nullopt;
    return sessionFrom(query, 0, token);
}

SessionReview reviewSession(Context &ctx, int timeoutMinutes)
{
    SessionReview review;
    // A token is worth something only on the connection that logged it in:
    // a token seen elsewhere has been copied.
    review.foreign = ctx.session && ctx.session->connection != ctx.connection;
    if (review.foreign)
        ctx.session.reset();
    if (!ctx.session || timeoutMinutes <= 0)
        return review;
    const QDateTime lastSeen = utcTime(ctx.session->lastSeen);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    if (lastSeen.isValid() && lastSeen.addSecs(timeoutMinutes * 60) < now) {
        ctx.session.reset();
        review.expired = true;
        review.upkeep = SessionUpkeep::Remove;
    } else if (!lastSeen.isValid()
               || lastSeen.addSecs(lastSeenRefreshSeconds(timeoutMinutes)) <= now) {
        review.upkeep = SessionUpkeep::Refresh;
    }
    return review;
}

void keepSession(const QSqlDatabase &db, const QString &token, SessionUpkeep upkeep)
{
    if (upkeep == SessionUpkeep::Remove)
        run(db, QStringLiteral("DELETE FROM sessions WHERE token = ?"), { token });
    else if (upkeep == SessionUpkeep::Refresh)
        run(db, QStringLiteral("UPDATE sessions SET last_seen = ? WHERE token = ?"),
            { nowText(), token });
}

void admitCaller(Context &ctx, const CommandEntry &entry, const SessionReview &review)
{
    if (review.expired && !(entry.flags & Public))
        throw Failure { QStringLiteral("the session has expired; log in again"), true };
    if (entry.flags & Public)
        return;
    if (review.foreign)
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

} // namespace nuvserver

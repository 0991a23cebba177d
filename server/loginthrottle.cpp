// SPDX-License-Identifier: Apache-2.0
#include "loginthrottle.h"

#include <QDateTime>
#include <QSqlQuery>

namespace nuvserver {

namespace {

constexpr qint64 forgetAfterMs = 24 * 3600 * 1000;

QString accountSubject(const QString &login)
{
    return QStringLiteral("account:") + login;
}

QString connectionSubject(const QString &connection)
{
    return QStringLiteral("connection:") + connection;
}

qint64 nowMs()
{
    return QDateTime::currentMSecsSinceEpoch();
}

// The wait after `failures` failures in a row.
qint64 waitAfter(const EngineOptions &options, qint64 failures)
{
    if (failures <= 0 || options.loginDelayMs <= 0)
        return 0;
    const qint64 doublings = qMin<qint64>(failures - 1, 30);
    return qMin<qint64>(qint64(options.loginDelayMs) << doublings, options.loginMaxDelayMs);
}

QString secondsText(qint64 ms)
{
    return QString::number((ms + 999) / 1000);
}

void checkSubject(Context &ctx, const QString &subject, const QString &who, qint64 now)
{
    QSqlQuery query = run(ctx.db,
                          QStringLiteral("SELECT failures, last_failure, locked_until"
                                         " FROM login_failures WHERE subject = ?"),
                          { subject });
    if (!query.next())
        return;
    const qint64 failures = query.value(0).toLongLong();
    const qint64 lastFailure = query.value(1).toLongLong();
    const qint64 lockedUntil = query.value(2).toLongLong();
    if (lockedUntil > now)
        fail(QStringLiteral("%1 is locked after %2 failed logins until %3 UTC; an"
                            " administrator can unlock it sooner")
                 .arg(who)
                 .arg(ctx.options.loginLockFailures)
                 .arg(QDateTime::fromMSecsSinceEpoch(lockedUntil, Qt::UTC)
                          .toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"))));
    const qint64 allowedAt = lastFailure + waitAfter(ctx.options, failures);
    if (allowedAt > now)
        fail(QStringLiteral("too many failed logins %1; try again in %2 s")
                 .arg(who == QLatin1String("this connection") ? QStringLiteral("from ") + who
                                                              : QStringLiteral("for ") + who,
                      secondsText(allowedAt - now)));
}

void countFailure(Context &ctx, const QString &subject, qint64 now)
{
    run(ctx.db,
        QStringLiteral("INSERT INTO login_failures(subject, failures, last_failure, locked_until)"
                       " VALUES (?, 1, ?, 0) ON CONFLICT(subject) DO UPDATE SET"
                       " failures = login_failures.failures + 1,"
                       " last_failure = excluded.last_failure"),
        { subject, now });
}

} // namespace

void admitLoginAttempt(Context &ctx, const QString &login)
{
    if (ctx.connection.isEmpty())
        return;
    const qint64 now = nowMs();
    checkSubject(ctx, accountSubject(login), QStringLiteral("the account %1").arg(echoed(login)),
                 now);
    checkSubject(ctx, connectionSubject(ctx.connection), QStringLiteral("this connection"), now);
}

void countFailedLogin(Context &ctx, const QString &login)
{
    if (ctx.connection.isEmpty())
        return;
    const qint64 now = nowMs();
    run(ctx.db,
        QStringLiteral("DELETE FROM login_failures WHERE last_failure < ? AND locked_until < ?"),
        { now - forgetAfterMs, now });
    countFailure(ctx, accountSubject(login), now);
    countFailure(ctx, connectionSubject(ctx.connection), now);
    // The lock starts the count afresh: once it ends, the account gets the
    // growing waits again rather than a new lock at the first mistake.
    if (ctx.options.loginLockFailures > 0)
        run(ctx.db,
            QStringLiteral("UPDATE login_failures SET locked_until = ?, failures = 0"
                           " WHERE subject = ? AND failures >= ?"),
            { now + qint64(ctx.options.loginLockMinutes) * 60000, accountSubject(login),
              ctx.options.loginLockFailures });
}

void forgetFailedLogins(Context &ctx, const QString &login)
{
    run(ctx.db, QStringLiteral("DELETE FROM login_failures WHERE subject IN (?, ?)"),
        { accountSubject(login), connectionSubject(ctx.connection) });
}

void unlockAccount(const QSqlDatabase &db, const QString &login)
{
    run(db, QStringLiteral("DELETE FROM login_failures WHERE subject = ?"),
        { accountSubject(login) });
}

} // namespace nuvserver

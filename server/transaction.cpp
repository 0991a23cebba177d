// SPDX-License-Identifier: Apache-2.0
#include "transaction.h"

#include "dialect.h"
#include "sql.h"
#include "sqlconnectionstate.h"

#include <QStringList>

namespace nuvserver {

namespace {
// Keys of PostgreSQL's advisory locks. Advisory locks belong to one
// database, so servers of different databases on one PostgreSQL server
// never wait for each other.
// Held shared by every write and exclusively by an exclusive one.
constexpr qint64 writeLockKey = 0x6e7576636c617373; // "nuvclass"
// Held by a write from the moment it counts its change until it ends.
constexpr qint64 commitOrderKey = writeLockKey + 1;

// The statements that start a transaction on PostgreSQL. A write looks rows
// up through their indexes even where the planner would scan a small table
// whole: SERIALIZABLE marks a table scanned whole as read entirely, and
// every write to any of its rows would then conflict with the scan.
QStringList postgresBegin(Transaction::Kind kind)
{
    switch (kind) {
    case Transaction::Kind::Read:
        return { QStringLiteral("BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY") };
    case Transaction::Kind::Write:
        return { QStringLiteral("BEGIN ISOLATION LEVEL SERIALIZABLE"),
                 QStringLiteral("SET LOCAL enable_seqscan = off"),
                 QStringLiteral("SELECT pg_advisory_xact_lock_shared(%1)").arg(writeLockKey) };
    case Transaction::Kind::Exclusive:
        break;
    }
    // The lock is taken before (lockExclusively()): a serializable
    // transaction's snapshot is taken with its first statement, and it
    // must not be older than the last write that committed.
    return { QStringLiteral("BEGIN ISOLATION LEVEL SERIALIZABLE"),
             QStringLiteral("SET LOCAL enable_seqscan = off") };
}
} // namespace

QString Transaction::commitOrderLockCall()
{
    return QStringLiteral("pg_advisory_xact_lock(%1)").arg(commitOrderKey);
}

Transaction::Transaction(QSqlDatabase database, Kind kind, Start start)
    : db(std::move(database))
{
    if (!isPostgres(db)) {
        active = execPlain(
            db, kind == Kind::Read ? QStringLiteral("BEGIN") : QStringLiteral("BEGIN IMMEDIATE"));
        return;
    }
    if (kind == Kind::Exclusive && !lockExclusively())
        return;
    active = true;
    SqlConnectionState *state = SqlConnectionState::of(db);
    const QStringList begin = postgresBegin(kind);
    if (start == Start::WithNextStatement && state) {
        state->pendingBegin = begin.join(QStringLiteral("; "));
        state->pendingBeginStatements = begin.size();
        return;
    }
    // One at a time, each checked: the lock may fail after BEGIN.
    if (!execPlain(db, begin.first())) {
        active = false;
        unlock();
        return;
    }
    for (int i = 1; i < begin.size(); ++i) {
        if (!execPlain(db, begin.at(i))) {
            rollback();
            return;
        }
    }
}

bool Transaction::lockExclusively()
{
    // A lock of the session, taken in a round trip of its own before the
    // transaction begins, and given back when it ends (unlock()).
    if (!execPlain(db, QStringLiteral("SELECT pg_advisory_lock(%1)").arg(writeLockKey)))
        return false;
    holdsExclusiveLock = true;
    return true;
}

void Transaction::unlock()
{
    if (!holdsExclusiveLock)
        return;
    holdsExclusiveLock = false;
    // Fails only with the connection, which gives the lock back as it ends.
    execPlain(db, QStringLiteral("SELECT pg_advisory_unlock(%1)").arg(writeLockKey));
}

Transaction::~Transaction()
{
    rollback();
}

bool Transaction::begun()
{
    SqlConnectionState *state = SqlConnectionState::of(db);
    if (!state || state->pendingBegin.isEmpty())
        return true;
    state->pendingBegin.clear();
    return false;
}

bool Transaction::commit(QString *error)
{
    return commitWith(QString(), {}, error);
}

bool Transaction::commitWith(const QString &statement, const QVariantList &values, QString *error)
{
    if (!active) {
        if (error)
            *error = QStringLiteral("no transaction is open");
        return false;
    }
    const QString commitStatement = QStringLiteral("COMMIT");
    bool done = false;
    if (statement.isEmpty()) {
        // A start never sent wrote nothing: there is nothing to commit.
        done = !begun() || execPlain(db, commitStatement, error);
    } else if (isPostgres(db)) {
        // In the round trip of the COMMIT; when the statement fails, the
        // COMMIT is not run.
        done = execPlainAll(db, { withLiterals(db, statement, values), commitStatement }, error);
    } else {
        // Statements cost no round trip here.
        try {
            run(db, statement, values);
            done = execPlain(db, commitStatement, error);
        } catch (const Failure &failure) {
            if (error)
                *error = failure.text;
        }
    }
    if (!done) {
        rollback();
        return false;
    }
    active = false;
    unlock();
    return true;
}

void Transaction::rollback()
{
    if (active) {
        active = false;
        if (begun())
            execPlain(db, QStringLiteral("ROLLBACK"));
    }
    unlock();
}

} // namespace nuvserver

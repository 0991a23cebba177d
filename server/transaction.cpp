// SPDX-License-Identifier: Apache-2.0
#include "transaction.h"

#include "connectionstate.h"
#include "dialect.h"
#include "sql.h"

namespace nuvserver {

namespace {
// The key of PostgreSQL's advisory lock that stands for SQLite's single
// writer. Advisory locks belong to one database, so servers of different
// databases on one PostgreSQL server never wait for each other.
constexpr qint64 writeLockKey = 0x6e7576636c617373; // "nuvclass"

QString postgresBegin(Transaction::Kind kind, Transaction::Start start)
{
    // Behind a statement, in the same query text, the statement has opened
    // an implicit transaction whose isolation level is set: COMMIT ends it.
    if (kind == Transaction::Kind::Read)
        return QLatin1String(start == Transaction::Start::AfterNextStatement ? "COMMIT; " : "")
            + QStringLiteral("BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY");
    return QStringLiteral("BEGIN; SELECT pg_advisory_xact_lock(%1)").arg(writeLockKey);
}
} // namespace

Transaction::Transaction(QSqlDatabase database, Kind kind, Start start)
    : db(std::move(database))
{
    if (!isPostgres(db)) {
        active = execPlain(
            db, kind == Kind::Write ? QStringLiteral("BEGIN IMMEDIATE") : QStringLiteral("BEGIN"));
        return;
    }
    active = true;
    ConnectionState *state = ConnectionState::of(db);
    if (start == Start::AfterNextStatement && kind == Kind::Read && state)
        state->pendingBegin = postgresBegin(kind, start);
    else if (!execPlain(db, postgresBegin(kind, Start::Now)))
        rollback(); // the lock may have failed after BEGIN
}

Transaction::~Transaction()
{
    rollback();
}

bool Transaction::begun()
{
    ConnectionState *state = ConnectionState::of(db);
    if (!state || state->pendingBegin.isEmpty())
        return true;
    state->pendingBegin.clear();
    return false;
}

bool Transaction::commit(QString *error)
{
    if (!active) {
        if (error)
            *error = QStringLiteral("no transaction is open");
        return false;
    }
    if (!begun() || execPlain(db, QStringLiteral("COMMIT"), error)) {
        active = false;
        return true;
    }
    rollback();
    return false;
}

void Transaction::rollback()
{
    if (!active)
        return;
    active = false;
    if (begun())
        execPlain(db, QStringLiteral("ROLLBACK"));
}

} // namespace nuvserver

// SPDX-License-Identifier: Apache-2.0
#include "transaction.h"

#include "dialect.h"
#include "sql.h"
#include "sqlconnectionstate.h"

#include <QStringList>

namespace nuvserver {

namespace {
// The key of PostgreSQL's advisory lock that stands for SQLite's single
// writer. Advisory locks belong to one database, so servers of different
// databases on one PostgreSQL server never wait for each other.
constexpr qint64 writeLockKey = 0x6e7576636c617373; // "nuvclass"

// The statements that start a transaction on PostgreSQL.
QStringList postgresBegin(Transaction::Kind kind)
{
    if (kind == Transaction::Kind::Read)
        return { QStringLiteral("BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY") };
    return { QStringLiteral("BEGIN"),
             QStringLiteral("SELECT pg_advisory_xact_lock(%1)").arg(writeLockKey) };
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
        return;
    }
    for (int i = 1; i < begin.size(); ++i) {
        if (!execPlain(db, begin.at(i))) {
            rollback();
            return;
        }
    }
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

// SPDX-License-Identifier: Apache-2.0
#include "transaction.h"

#include "dialect.h"
#include "sql.h"

namespace nuvserver {

namespace {
// The key of PostgreSQL's advisory lock that stands for SQLite's single
// writer. Advisory locks belong to one database, so servers of different
// databases on one PostgreSQL server never wait for each other.
constexpr qint64 writeLockKey = 0x6e7576636c617373; // "nuvclass"
} // namespace

WriteTransaction::WriteTransaction(QSqlDatabase database)
    : db(std::move(database))
{
    if (!isPostgres(db)) {
        active = execPlain(db, QStringLiteral("BEGIN IMMEDIATE"));
        return;
    }
    if (!execPlain(db, QStringLiteral("BEGIN")))
        return;
    active = true;
    if (!execPlain(db, QStringLiteral("SELECT pg_advisory_xact_lock(%1)").arg(writeLockKey)))
        rollback();
}

WriteTransaction::~WriteTransaction()
{
    rollback();
}

bool WriteTransaction::commit(QString *error)
{
    if (!active) {
        if (error)
            *error = QStringLiteral("no transaction is open");
        return false;
    }
    if (execPlain(db, QStringLiteral("COMMIT"), error)) {
        active = false;
        return true;
    }
    rollback();
    return false;
}

void WriteTransaction::rollback()
{
    if (!active)
        return;
    active = false;
    execPlain(db, QStringLiteral("ROLLBACK"));
}

} // namespace nuvserver

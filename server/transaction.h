// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_TRANSACTION_H
#define NUVSERVER_TRANSACTION_H

#include <QSqlDatabase>
#include <QString>

/*
 * One transaction on an engine connection.
 *
 * A write transaction holds the database's single write lock: SQLite's
 * reserved lock, taken at BEGIN IMMEDIATE, and on PostgreSQL a database-wide
 * advisory lock standing for it. The wait for another writer is bounded by
 * the connection's busy timeout. Writers run one after another on both
 * databases, so every command sees a consistent state and never has to
 * retry.
 *
 * A read transaction takes no lock: it reads one snapshot of the database
 * while writers go on (SQLite's write-ahead log keeps the snapshot for it;
 * PostgreSQL's is REPEATABLE READ and read only).
 *
 * The work is committed only by commit(); a transaction that ends without it
 * is rolled back, so every early return and every thrown Failure undoes what
 * was written.
 */
namespace nuvserver {

class Transaction
{
public:
    enum class Kind { Read, Write };
    // When the transaction starts on PostgreSQL: now, or with the next
    // statement, in its round trip (that statement then fails when the
    // lock cannot be had). SQLite starts at once in either case (a
    // statement there costs no round trip).
    enum class Start { Now, WithNextStatement };

    Transaction(QSqlDatabase db, Kind kind, Start start = Start::Now);
    ~Transaction();
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    // Whether the transaction began (as far as is known yet) and has not
    // ended.
    bool isActive() const { return active; }
    // False, with the reason in `error`, when the transaction is not active
    // or the database refuses; it is rolled back then.
    bool commit(QString *error = nullptr);
    void rollback();

private:
    // False when the start was never sent: there is nothing to end.
    bool begun();

    QSqlDatabase db;
    bool active = false;
};

} // namespace nuvserver

#endif // NUVSERVER_TRANSACTION_H

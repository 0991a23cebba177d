// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_TRANSACTION_H
#define NUVSERVER_TRANSACTION_H

#include <QSqlDatabase>
#include <QString>
#include <QVariantList>

/*
 * One transaction on an engine connection.
 *
 * SQLite has one writer at a time: a write transaction takes its reserved
 * lock at BEGIN IMMEDIATE, waiting for another writer up to the
 * connection's busy timeout, and so sees a state no other writer changes.
 *
 * PostgreSQL runs writes concurrently, SERIALIZABLE: the database aborts one
 * of two transactions whose effects no serial order could give (SQLSTATE
 * 40001, or 40P01 for a deadlock), and the engine runs the request again.
 * Every write holds the database-wide write lock (an advisory lock) shared;
 * an exclusive transaction takes it alone before it begins, waiting for the
 * writes in progress to end and holding back new ones, so it runs by itself
 * and cannot lose to another write: the way for a command that works on the
 * whole database, and for a request that lost too many times. Writes that
 * count a change take a second lock just before they commit
 * (recordChange() in schema.h), which puts the change numbers in commit
 * order.
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
    enum class Kind { Read, Write, Exclusive };
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
    // Commits with `statement` (and `values`) run just before, in the same
    // round trip on PostgreSQL; when the statement fails nothing is
    // committed.
    bool commitWith(const QString &statement, const QVariantList &values, QString *error = nullptr);
    void rollback();

    // PostgreSQL: the call that takes the lock ordering commits until the
    // transaction ends.
    static QString commitOrderLockCall();

private:
    // False when the start was never sent: there is nothing to end.
    bool begun();
    // PostgreSQL: the exclusive write lock, held from before BEGIN until
    // after the transaction ends.
    bool lockExclusively();
    void unlock();

    QSqlDatabase db;
    bool active = false;
    bool holdsExclusiveLock = false;
};

} // namespace nuvserver

#endif // NUVSERVER_TRANSACTION_H

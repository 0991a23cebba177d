// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_TRANSACTION_H
#define NUVSERVER_TRANSACTION_H

#include <QSqlDatabase>
#include <QString>

/*
 * A transaction that holds the database's single write lock: SQLite's
 * reserved lock, taken at BEGIN IMMEDIATE, and on PostgreSQL a database-wide
 * advisory lock standing for it. The wait for another writer is bounded by
 * the connection's busy timeout. Requests run one after another on both
 * databases, so every command sees a consistent state and never has to
 * retry.
 *
 * The work is committed only by commit(); a transaction that ends without it
 * is rolled back, so every early return and every thrown Failure undoes what
 * was written.
 */
namespace nuvserver {

class WriteTransaction
{
public:
    explicit WriteTransaction(QSqlDatabase db);
    ~WriteTransaction();
    WriteTransaction(const WriteTransaction &) = delete;
    WriteTransaction &operator=(const WriteTransaction &) = delete;

    // Whether the lock is held: the transaction began and has not ended.
    bool isActive() const { return active; }
    // False, with the reason in `error`, when the transaction is not active
    // or the database refuses; it is rolled back then.
    bool commit(QString *error = nullptr);
    void rollback();

private:
    QSqlDatabase db;
    bool active = false;
};

} // namespace nuvserver

#endif // NUVSERVER_TRANSACTION_H

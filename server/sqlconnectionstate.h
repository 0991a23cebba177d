// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_SQLCONNECTIONSTATE_H
#define NUVSERVER_SQLCONNECTIONSTATE_H

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QSqlDatabase>
#include <QSqlQuery>

/*
 * What belongs to one database connection rather than to the thread that
 * happens to run it: the statements kept prepared, the clock of the
 * statement running (SQLite's time-out), the wait for another writer, and
 * where the statements of the request in hand are counted. Several engines
 * may share a thread or move between threads; each connection carries its
 * own.
 */
namespace nuvserver {

// What the statements of one request did (the engine reads it after each).
struct RequestCounters
{
    qint64 changedRows = 0; // rows inserted, updated or deleted
    int roundTrips = 0; // statements sent to the database, transaction control included
};

// Lives as a child of the connection's driver: it ends with the connection,
// and every copy of the QSqlDatabase finds it.
class SqlConnectionState : public QObject
{
public:
    // Made by openDatabase() for every connection it opens.
    static SqlConnectionState *attach(const QSqlDatabase &db);
    // Nullptr for a connection that openDatabase() did not open.
    static SqlConnectionState *of(const QSqlDatabase &db);

    // Prepared SQLite statements by their text (see sql.cpp).
    QHash<QString, QSqlQuery> preparedStatements;
    QElapsedTimer statementClock;
    qint64 statementLimitMs = 0;
    QElapsedTimer busyWait;
    qint64 busyLimitMs = 0;
    // Set by the engine that owns the connection; nullptr counts nothing.
    RequestCounters *counters = nullptr;

private:
    using QObject::QObject;
};

} // namespace nuvserver

#endif // NUVSERVER_SQLCONNECTIONSTATE_H

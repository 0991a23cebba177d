// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_SQLCONNECTIONSTATE_H
#define NUVSERVER_SQLCONNECTIONSTATE_H

#include "requestcounters.h"

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
    // PostgreSQL: the start of a transaction not yet sent, and how many
    // statements it is; it goes out in front of the next statement, in the
    // same round trip (see Transaction).
    QString pendingBegin;
    int pendingBeginStatements = 0;
    // PostgreSQL: a statement of the transaction in hand was refused for a
    // conflict with a concurrent transaction (a serialization failure or a
    // deadlock); running the request again can succeed. Cleared by the
    // engine before each run.
    bool conflicted = false;
    // The SQLSTATE of the last statement that failed.
    QString lastErrorCode;

private:
    using QObject::QObject;
};

} // namespace nuvserver

#endif // NUVSERVER_SQLCONNECTIONSTATE_H

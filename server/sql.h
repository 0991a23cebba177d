// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_SQL_H
#define NUVSERVER_SQL_H

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QVariant>
#include <QVariantList>

/*
 * The failure that ends a command, and the few query helpers every command
 * group uses: a failed statement becomes a Failure, so a handler never has to
 * check a result by hand and the engine rolls the whole request back.
 */
namespace nuvserver {

struct Failure
{
    QString text;
    // Commit what was written before the failure (a refused login still
    // records that the session waits for a password change).
    bool keepChanges = false;
    // The text goes out as it is, without the command word in front.
    bool bare = false;
};

[[noreturn]] void fail(const QString &text);

// Runs a statement without values that may fail without ending the command
// (transaction control, connection set-up): false, and the reason in
// `error`, when it fails.
bool execPlain(QSqlDatabase &db, const QString &sql, QString *error = nullptr);
// The same for several statements in one round trip (PostgreSQL), of which
// the last is the one that matters: true only when all of them succeed.
bool execPlainAll(QSqlDatabase &db, const QStringList &statements, QString *error = nullptr);

// Prepares `sql`, binds `values` in order and executes it.
QSqlQuery run(const QSqlDatabase &db, const QString &sql, const QVariantList &values = {});
// The same for a query whose caller reads the rows it wants at once and
// then calls finish() on it, before the same text runs again: on SQLite the
// statement stays prepared (parsing and planning it again was much of what
// a short read cost).
QSqlQuery runAndFinish(const QSqlDatabase &db, const QString &sql, const QVariantList &values = {});
// Drops the statements run() keeps prepared for `db`; before it closes.
// Every statement on a connection of openDatabase() is counted in its
// RequestCounters (requestcounters.h).
void forgetPreparedStatements(const QSqlDatabase &db);
// The first column of the first row, or an invalid QVariant without a row.
QVariant scalar(const QSqlDatabase &db, const QString &sql, const QVariantList &values = {});
// Whether the statement yields at least one row.
bool exists(const QSqlDatabase &db, const QString &sql, const QVariantList &values = {});
// The first column of every row as text.
QStringList column(const QSqlDatabase &db, const QString &sql, const QVariantList &values = {});
// Lists of strings stored under a key: one row per string in `table`, the
// key in `keyColumn`, the string in `valueColumn` and, when `positionColumn`
// is given, its place in the list (read back in that order; otherwise the
// strings come sorted).
struct KeyedList
{
    const char *table;
    const char *keyColumn;
    const char *valueColumn;
    const char *positionColumn = nullptr;
};
QStringList readList(const QSqlDatabase &db, const KeyedList &list, const QVariant &key);
void writeList(const QSqlDatabase &db, const KeyedList &list, const QVariant &key,
               const QStringList &values);

// "column IN (?, ?, ?)" for the items, which are appended to `values`. An
// empty list gives a predicate that holds for no row, and notInList() one
// that holds for every row, so replacing a set by nothing removes it all.
QString inList(const QString &column, const QStringList &items, QVariantList &values);
QString notInList(const QString &column, const QStringList &items, QVariantList &values);

} // namespace nuvserver

#endif // NUVSERVER_SQL_H

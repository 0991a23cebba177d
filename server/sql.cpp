// SPDX-License-Identifier: Apache-2.0
#include "sql.h"

#include "dialect.h"
#include "sqlconnectionstate.h"

#include <QSqlError>

namespace nuvserver {

namespace {
bool changesData(const QString &sql)
{
    const QStringRef verb = sql.leftRef(sql.indexOf(QLatin1Char(' ')));
    return verb.compare(QLatin1String("INSERT"), Qt::CaseInsensitive) == 0
        || verb.compare(QLatin1String("UPDATE"), Qt::CaseInsensitive) == 0
        || verb.compare(QLatin1String("DELETE"), Qt::CaseInsensitive) == 0;
}

// Prepared statements of an SQLite connection are kept by their text:
// parsing and planning were most of the time a command spent per document
// it worked on. A statement is kept only where nobody can still be reading
// its rows when the same text runs again: an INSERT, UPDATE or DELETE
// without RETURNING yields none, and scalar(), exists() and column() read
// theirs at once and then reset the statement.
bool reusable(const QString &sql)
{
    return changesData(sql) && !sql.contains(QLatin1String("RETURNING"));
}

// The prepared statement of `sql` on `db`, prepared now when it is new.
QSqlQuery preparedStatement(const QSqlDatabase &db, const QString &sql)
{
    SqlConnectionState *state = SqlConnectionState::of(db);
    if (state) {
        const auto found = state->preparedStatements.constFind(sql);
        if (found != state->preparedStatements.constEnd())
            return found.value();
    }
    QSqlQuery query(db);
    query.setForwardOnly(true);
    if (!query.prepare(sql))
        fail(QStringLiteral("database error: ") + query.lastError().text());
    if (state)
        state->preparedStatements.insert(sql, query);
    return query;
}

// Starts the statement's clock and counts it, and puts a transaction start
// still to be sent in front of it (PostgreSQL runs them in one round trip);
// how many results of that start come before the statement's own in
// `leading`. The counters, if any, for the caller to count what the
// statement changed.
RequestCounters *statementStarting(const QSqlDatabase &db, QString &sql, int *leading)
{
    *leading = 0;
    SqlConnectionState *state = SqlConnectionState::of(db);
    if (!state)
        return nullptr;
    if (!state->pendingBegin.isEmpty()) {
        sql = state->pendingBegin + QStringLiteral("; ") + sql;
        *leading = state->pendingBeginStatements;
        state->pendingBegin.clear();
    }
    state->statementClock.start();
    if (state->counters)
        ++state->counters->roundTrips;
    return state->counters;
}

// Remembers why a statement failed, for the engine to decide whether the
// request may run again.
void noteFailure(const QSqlDatabase &db, const QSqlError &error)
{
    SqlConnectionState *state = SqlConnectionState::of(db);
    if (!state || !isPostgres(db))
        return;
    state->lastErrorCode = error.nativeErrorCode();
    if (state->lastErrorCode == QLatin1String("40001")
        || state->lastErrorCode == QLatin1String("40P01"))
        state->conflicted = true;
}

// Moves `query` past the results of the statements sent in front of its
// own; false when one of them failed.
bool skipLeadingResults(QSqlQuery &query, int leading)
{
    for (int i = 0; i < leading; ++i) {
        if (!query.nextResult())
            return false;
    }
    return true;
}
} // namespace

void forgetPreparedStatements(const QSqlDatabase &db)
{
    if (SqlConnectionState *state = SqlConnectionState::of(db))
        state->preparedStatements.clear();
}

void fail(const QString &text)
{
    throw Failure { text };
}

bool execPlain(QSqlDatabase &db, const QString &sql, QString *error)
{
    return execPlainAll(db, { sql }, error);
}

bool execPlainAll(QSqlDatabase &db, const QStringList &statements, QString *error)
{
    QSqlQuery query(db);
    const QString sql = statements.join(QStringLiteral("; "));
    QString text = sql;
    int leading = 0;
    statementStarting(db, text, &leading);
    leading += int(statements.size()) - 1;
    if (query.exec(text) && skipLeadingResults(query, leading))
        return true;
    noteFailure(db, query.lastError());
    if (error)
        *error = QStringLiteral("%1: %2").arg(sql, query.lastError().text());
    return false;
}

namespace {
// run(); `readAtOnce`: the caller reads every row it wants before the next
// statement and then calls finish(), so the statement may be kept.
QSqlQuery execute(const QSqlDatabase &db, const QString &sql, const QVariantList &values,
                  bool readAtOnce)
{
    QSqlQuery query(db);
    // PostgreSQL streams a forward-only result row by row and drops what
    // is left when the connection runs the next statement; the commands
    // run statements while reading others, so it gets whole results.
    query.setForwardOnly(!isPostgres(db));
    QString text = isPostgres(db) ? withLiterals(db, sql, values) : sql;
    int leading = 0;
    RequestCounters *counters = statementStarting(db, text, &leading);
    bool done = false;
    if (isPostgres(db)) {
        done = query.exec(text) && skipLeadingResults(query, leading);
    } else if (values.isEmpty()) {
        done = query.exec(sql);
    } else {
        if (readAtOnce || reusable(sql))
            query = preparedStatement(db, sql);
        else if (!query.prepare(sql))
            fail(QStringLiteral("database error: ") + query.lastError().text());
        for (const QVariant &value : values) {
            // A null QString is text like any other; NULL is bound as QVariant().
            if (value.userType() == QMetaType::QString && value.toString().isNull())
                query.addBindValue(QStringLiteral(""));
            else
                query.addBindValue(value);
        }
        done = query.exec();
    }
    if (!done) {
        noteFailure(db, query.lastError());
        const QString problem = query.lastError().text();
        if (isStatementTimeout(query.lastError()))
            fail(QStringLiteral("a database statement ran longer than the limit"
                                " (NUV_SERVER_STATEMENT_TIMEOUT_MS); ask for less at a time"));
        if (isLockTimeout(query.lastError()))
            fail(QStringLiteral("the database is busy; try again"));
        if (isForeignKeyViolation(problem))
            fail(QStringLiteral("the change would break a reference between records"));
        if (isUniqueViolation(problem))
            fail(QStringLiteral("the change would duplicate a unique name"));
        fail(QStringLiteral("database error: ") + problem);
    }
    if (counters && changesData(sql)) {
        // A statement with RETURNING reads like a query; it counts as a
        // change, which at worst records a reply that was not needed.
        counters->changedRows += query.isSelect() ? 1 : qMax(0, query.numRowsAffected());
    }
    return query;
}
} // namespace

QSqlQuery run(const QSqlDatabase &db, const QString &sql, const QVariantList &values)
{
    return execute(db, sql, values, false);
}

QSqlQuery runAndFinish(const QSqlDatabase &db, const QString &sql, const QVariantList &values)
{
    return execute(db, sql, values, true);
}

QVariant scalar(const QSqlDatabase &db, const QString &sql, const QVariantList &values)
{
    QSqlQuery query = execute(db, sql, values, true);
    const QVariant value = query.next() ? query.value(0) : QVariant();
    query.finish();
    return value;
}

bool exists(const QSqlDatabase &db, const QString &sql, const QVariantList &values)
{
    QSqlQuery query = execute(db, sql, values, true);
    const bool found = query.next();
    query.finish();
    return found;
}

QStringList column(const QSqlDatabase &db, const QString &sql, const QVariantList &values)
{
    QStringList result;
    QSqlQuery query = execute(db, sql, values, true);
    while (query.next())
        result.append(query.value(0).toString());
    query.finish();
    return result;
}

QStringList readList(const QSqlDatabase &db, const KeyedList &list, const QVariant &key)
{
    return column(
        db,
        QStringLiteral("SELECT %1 FROM %2 WHERE %3 = ? ORDER BY %4")
            .arg(QLatin1String(list.valueColumn), QLatin1String(list.table),
                 QLatin1String(list.keyColumn),
                 QLatin1String(list.positionColumn ? list.positionColumn : list.valueColumn)),
        { key });
}

void writeList(const QSqlDatabase &db, const KeyedList &list, const QVariant &key,
               const QStringList &values)
{
    run(db,
        QStringLiteral("DELETE FROM %1 WHERE %2 = ?")
            .arg(QLatin1String(list.table), QLatin1String(list.keyColumn)),
        { key });
    const QString insert = list.positionColumn
        ? QStringLiteral("INSERT INTO %1(%2, %3, %4) VALUES (?, ?, ?) ON CONFLICT DO NOTHING")
              .arg(QLatin1String(list.table), QLatin1String(list.keyColumn),
                   QLatin1String(list.valueColumn), QLatin1String(list.positionColumn))
        : QStringLiteral("INSERT INTO %1(%2, %3) VALUES (?, ?) ON CONFLICT DO NOTHING")
              .arg(QLatin1String(list.table), QLatin1String(list.keyColumn),
                   QLatin1String(list.valueColumn));
    for (int i = 0; i < values.size(); ++i) {
        QVariantList bound { key, values.at(i) };
        if (list.positionColumn)
            bound.append(i);
        run(db, insert, bound);
    }
}

namespace {
QString membership(const QString &column, const QStringList &items, QVariantList &values,
                   bool negated)
{
    // "x IN ()" is no valid SQL, and "x NOT IN (NULL)" is never true.
    if (items.isEmpty())
        return negated ? QStringLiteral("1 = 1") : QStringLiteral("1 = 0");
    for (const QString &item : items)
        values.append(item);
    QString text = column + (negated ? QStringLiteral(" NOT IN (?") : QStringLiteral(" IN (?"));
    for (int i = 1; i < items.size(); ++i)
        text += QStringLiteral(", ?");
    return text + QLatin1Char(')');
}
} // namespace

QString inList(const QString &column, const QStringList &items, QVariantList &values)
{
    return membership(column, items, values, false);
}

QString notInList(const QString &column, const QStringList &items, QVariantList &values)
{
    return membership(column, items, values, true);
}

} // namespace nuvserver

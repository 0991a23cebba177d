// SPDX-License-Identifier: Apache-2.0
#include "dialect.h"

#include "sql.h"
#include "sqlconnectionstate.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlField>
#include <QSqlQuery>
#include <QThread>
#include <QUrl>
#include <QUrlQuery>

#include <sqlite3.h>

namespace nuvserver {

namespace {

// SQLite calls this every few thousand virtual-machine steps; non-zero
// stops the statement with SQLITE_INTERRUPT.
int statementTooLong(void *connection)
{
    const auto *state = static_cast<const SqlConnectionState *>(connection);
    return state->statementClock.isValid() && state->statementLimitMs > 0
            && state->statementClock.elapsed() > state->statementLimitMs
        ? 1
        : 0;
}

// SQLite's own busy handler sleeps ever longer, up to 100 ms at a time, so a
// request that waits for the write lock goes on waiting long after the
// lock is free; polling every 2 ms hands the lock on promptly (the wait of
// the other users is what fairness is about).
int waitForWriter(void *connection, int attempts)
{
    auto *state = static_cast<SqlConnectionState *>(connection);
    if (attempts == 0)
        state->busyWait.start();
    if (state->busyWait.elapsed() >= state->busyLimitMs)
        return 0;
    QThread::usleep(2000);
    return 1;
}

sqlite3 *sqliteHandle(const QSqlDatabase &db)
{
    const QVariant handle = db.driver()->handle();
    if (qstrcmp(handle.typeName(), "sqlite3*") != 0)
        return nullptr;
    return *static_cast<sqlite3 *const *>(handle.data());
}

QSqlDatabase openSqlite(const DatabaseLocation &location, const QString &connectionName,
                        int busyTimeoutMs, QString *error)
{
    QDir().mkpath(QFileInfo(location.filePath).absolutePath());
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connectionName);
    db.setDatabaseName(location.filePath);
    db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(busyTimeoutMs));
    if (!db.open()) {
        if (error)
            *error = QStringLiteral("cannot open %1: %2")
                         .arg(location.describe(), db.lastError().text());
        return QSqlDatabase();
    }
    if (!execPlain(db, QStringLiteral("PRAGMA busy_timeout = %1").arg(busyTimeoutMs), error)
        || !execPlain(db, QStringLiteral("PRAGMA foreign_keys = ON"), error))
        return QSqlDatabase();
    QSqlQuery journal(db);
    if (!journal.exec(QStringLiteral("PRAGMA journal_mode = WAL")) || !journal.next()
        || journal.value(0).toString().compare(QLatin1String("wal"), Qt::CaseInsensitive) != 0) {
        if (error)
            *error = QStringLiteral("the database cannot use write-ahead logging");
        return QSqlDatabase();
    }
    journal.finish();
    execPlain(db, QStringLiteral("PRAGMA synchronous = NORMAL"), nullptr);
    if (sqlite3 *handle = sqliteHandle(db)) {
        SqlConnectionState *state = SqlConnectionState::attach(db);
        state->busyLimitMs = busyTimeoutMs;
        sqlite3_busy_handler(handle, waitForWriter, state);
    }
    return db;
}

QSqlDatabase openPostgres(const DatabaseLocation &location, const QString &connectionName,
                          int busyTimeoutMs, QString *error)
{
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QPSQL"))) {
        if (error)
            *error = QStringLiteral("Qt's PostgreSQL driver (QPSQL) is not installed");
        return QSqlDatabase();
    }
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), connectionName);
    db.setHostName(location.host);
    db.setPort(location.port);
    db.setUserName(location.user);
    db.setPassword(location.password);
    db.setDatabaseName(location.name);
    db.setConnectOptions(location.connectOptions);
    if (!db.open()) {
        if (error)
            *error = QStringLiteral("cannot connect to %1: %2")
                         .arg(location.describe(), db.lastError().text().trimmed());
        return QSqlDatabase();
    }
    SqlConnectionState::attach(db);
    // The busy timeout bounds the wait for the write lock; notices about
    // tables that exist already are not worth a log line.
    if (!execPlain(db, QStringLiteral("SET lock_timeout = %1").arg(busyTimeoutMs), error)
        || !execPlain(db, QStringLiteral("SET client_min_messages = warning"), error))
        return QSqlDatabase();
    return db;
}

} // namespace

DatabaseLocation DatabaseLocation::parse(const QString &text, QString *error)
{
    DatabaseLocation location;
    // Anything with a scheme is a server's URL (the command-line host tells
    // files from URLs the same way); everything else is an SQLite file.
    if (!text.contains(QLatin1String("://"))) {
        location.filePath = text;
        if (text.isEmpty() && error)
            *error = QStringLiteral("no database is configured");
        return location;
    }
    location.backend = Backend::PostgreSQL;
    const QUrl url(text, QUrl::StrictMode);
    if (url.scheme() != QLatin1String("postgresql") && url.scheme() != QLatin1String("postgres")) {
        if (error)
            *error = QStringLiteral("'%1' is no database this server knows: give an SQLite file or "
                                    "a postgresql:// URL")
                         .arg(url.toString(QUrl::RemovePassword));
        return location;
    }
    if (!url.isValid() || url.host().isEmpty()) {
        if (error)
            *error = QStringLiteral("'%1' is no valid postgresql:// URL")
                         .arg(url.toString(QUrl::RemovePassword));
        return location;
    }
    location.host = url.host();
    location.port = url.port(5432);
    location.user = url.userName(QUrl::FullyDecoded);
    location.password = url.password(QUrl::FullyDecoded);
    location.name = url.path(QUrl::FullyDecoded).mid(1);
    if (location.name.isEmpty())
        location.name = location.user;
    QStringList options;
    const auto items = QUrlQuery(url).queryItems(QUrl::FullyDecoded);
    for (const auto &item : items)
        options.append(item.first + QLatin1Char('=') + item.second);
    location.connectOptions = options.join(QLatin1Char(';'));
    return location;
}

QString DatabaseLocation::describe() const
{
    if (backend == Backend::SQLite)
        return filePath;
    return QStringLiteral("postgresql://%1@%2:%3/%4").arg(user, host).arg(port).arg(name);
}

bool isPostgres(const QSqlDatabase &db)
{
    return db.driverName() == QLatin1String("QPSQL");
}

QSqlDatabase openDatabase(const DatabaseLocation &location, const QString &connectionName,
                          int busyTimeoutMs, QString *error)
{
    const int timeout = qMax(0, busyTimeoutMs);
    QSqlDatabase db = location.backend == Backend::PostgreSQL
        ? openPostgres(location, connectionName, timeout, error)
        : openSqlite(location, connectionName, timeout, error);
    if (!db.isValid() && QSqlDatabase::contains(connectionName))
        QSqlDatabase::removeDatabase(connectionName);
    return db;
}

void limitStatementTime(QSqlDatabase &db, int timeoutMs)
{
    const int limit = qMax(0, timeoutMs);
    if (isPostgres(db)) {
        execPlain(db, QStringLiteral("SET statement_timeout = %1").arg(limit), nullptr);
        return;
    }
    sqlite3 *handle = sqliteHandle(db);
    SqlConnectionState *state = SqlConnectionState::of(db);
    if (!handle || !state)
        return;
    state->statementLimitMs = limit;
    if (limit == 0)
        sqlite3_progress_handler(handle, 0, nullptr, nullptr);
    else
        sqlite3_progress_handler(handle, 10000, statementTooLong, state);
}

bool isStatementTimeout(const QSqlError &error)
{
    // SQLITE_INTERRUPT, or PostgreSQL's query_canceled.
    return error.nativeErrorCode() == QLatin1String("9")
        || error.nativeErrorCode() == QLatin1String("57014")
        || error.text().contains(QLatin1String("statement timeout"));
}

bool isLockTimeout(const QSqlError &error)
{
    // PostgreSQL's lock_not_available, which lock_timeout raises.
    return error.nativeErrorCode() == QLatin1String("55P03");
}

QString withLiterals(const QSqlDatabase &db, const QString &sql, const QVariantList &values)
{
    const auto literal = [&db](const QVariant &value) {
        if (value.isNull() && value.userType() != QMetaType::QString)
            return QStringLiteral("NULL");
        if (value.userType() == QMetaType::QByteArray) {
            QSqlField field(QString(), QVariant::ByteArray);
            field.setValue(value);
            return db.driver()->formatValue(field);
        }
        // The driver escapes quotes (and backslashes where the server
        // reads them as escapes).
        QString text = value.userType() == QMetaType::Bool ? QString::number(value.toBool() ? 1 : 0)
                                                           : value.toString();
        if (text.isNull())
            text = QLatin1String(""); // text like any other, not NULL
        QSqlField field(QString(), QVariant::String);
        field.setValue(text);
        return db.driver()->formatValue(field);
    };
    QString out;
    out.reserve(sql.size() + values.size() * 16);
    int next = 0;
    QChar quote;
    for (const QChar c : sql) {
        if (!quote.isNull()) {
            if (c == quote)
                quote = QChar();
        } else if (c == QLatin1Char('\'') || c == QLatin1Char('"')) {
            quote = c;
        } else if (c == QLatin1Char('?')) {
            if (next >= values.size())
                fail(QStringLiteral("database error: more placeholders than values"));
            out += literal(values.at(next++));
            continue;
        }
        out += c;
    }
    if (next != values.size())
        fail(QStringLiteral("database error: more values than placeholders"));
    return out;
}

QString tableDefinition(const QSqlDatabase &db, const QString &sqliteDefinition)
{
    if (!isPostgres(db))
        return sqliteDefinition;
    QString sql = sqliteDefinition;
    // Generated keys; the engine gives some of them (documents, tenants)
    // explicitly, which an identity BY DEFAULT allows.
    static const QRegularExpression generatedKey(
        QStringLiteral("\\bINTEGER PRIMARY KEY( AUTOINCREMENT)?\\b"));
    sql.replace(generatedKey,
                QStringLiteral("BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY"));
    // SQLite's integers have 64 bits.
    static const QRegularExpression integer(QStringLiteral("\\bINTEGER\\b"));
    sql.replace(integer, QStringLiteral("BIGINT"));
    static const QRegularExpression blob(QStringLiteral("\\bBLOB\\b"));
    sql.replace(blob, QStringLiteral("BYTEA"));
    sql.remove(QStringLiteral(" WITHOUT ROWID"));
    return sql;
}

QString commaJoined(const QSqlDatabase &db, const QString &column, const QString &fromWhere,
                    const QString &orderBy)
{
    if (isPostgres(db))
        return QStringLiteral("(SELECT string_agg(CAST(%1 AS TEXT), ',' ORDER BY %3) %2)")
            .arg(column, fromWhere, orderBy);
    // SQLite's group_concat takes the rows in the order the subquery gives them.
    return QStringLiteral("(SELECT group_concat(%1, ',') FROM (SELECT %1 %2 ORDER BY %3))")
        .arg(column, fromWhere, orderBy);
}

void writeBackup(const QSqlDatabase &db, const DatabaseLocation &location, const QString &path)
{
    if (!isPostgres(db)) {
        run(db, QStringLiteral("VACUUM INTO ?"), { path });
        return;
    }
    // A libpq connection string; the password goes through the environment,
    // never onto a command line that other users can read.
    const auto quoted = [](QString value) {
        value.replace(QLatin1Char('\\'), QLatin1String("\\\\"))
            .replace(QLatin1Char('\''), QLatin1String("\\'"));
        return QLatin1Char('\'') + value + QLatin1Char('\'');
    };
    QStringList conninfo { QStringLiteral("host=") + quoted(location.host),
                           QStringLiteral("port=%1").arg(location.port),
                           QStringLiteral("user=") + quoted(location.user),
                           QStringLiteral("dbname=") + quoted(location.name) };
    const QStringList options = location.connectOptions.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    for (const QString &option : options)
        conninfo.append(option.section(QLatin1Char('='), 0, 0) + QLatin1Char('=')
                        + quoted(option.section(QLatin1Char('='), 1)));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PGPASSWORD"), location.password);
    QProcess dump;
    dump.setProcessEnvironment(environment);
    dump.start(QStringLiteral("pg_dump"),
               { QStringLiteral("--format=custom"), QStringLiteral("--no-owner"),
                 QStringLiteral("--file=") + path,
                 QStringLiteral("--dbname=") + conninfo.join(QLatin1Char(' ')) });
    if (!dump.waitForStarted(10000))
        fail(QStringLiteral("pg_dump cannot be started: %1").arg(dump.errorString()));
    // A large database takes as long as it takes; the caller waits for the
    // reply with a time-out of its own.
    dump.waitForFinished(-1);
    if (dump.exitStatus() != QProcess::NormalExit || dump.exitCode() != 0) {
        QFile::remove(path);
        fail(QStringLiteral("pg_dump failed: %1")
                 .arg(QString::fromLocal8Bit(dump.readAllStandardError()).trimmed()));
    }
}

QString backupSuffix(const QSqlDatabase &db)
{
    return isPostgres(db) ? QStringLiteral(".dump") : QStringLiteral(".sqlite");
}

QString databaseProduct(const QSqlDatabase &db)
{
    if (isPostgres(db))
        return QStringLiteral("PostgreSQL ")
            + scalar(db, QStringLiteral("SHOW server_version")).toString();
    return QStringLiteral("SQLite ")
        + scalar(db, QStringLiteral("SELECT sqlite_version()")).toString();
}

bool isForeignKeyViolation(const QString &errorText)
{
    return errorText.contains(QLatin1String("FOREIGN KEY"))
        || errorText.contains(QLatin1String("foreign key constraint"));
}

bool isUniqueViolation(const QString &errorText)
{
    return errorText.contains(QLatin1String("UNIQUE"))
        || errorText.contains(QLatin1String("unique constraint"));
}

} // namespace nuvserver

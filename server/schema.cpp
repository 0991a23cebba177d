// SPDX-License-Identifier: Apache-2.0
#include "schema.h"

#include "dialect.h"
#include "fieldvalues.h"
#include "sql.h"
#include "transaction.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QUuid>

namespace nuvserver {

namespace {

// Version 1: the whole model. Principals (users, roles) are referred to by
// name in rights, owners by user id, so deleting a user removes what it owns.
const char *const version1[] = {
    "CREATE TABLE meta(key TEXT PRIMARY KEY, value TEXT NOT NULL)",
    "CREATE TABLE users(id INTEGER PRIMARY KEY, login TEXT NOT NULL UNIQUE,"
    " full_name TEXT NOT NULL DEFAULT '', email TEXT NOT NULL DEFAULT '',"
    " password_hash TEXT NOT NULL, password_expired INTEGER NOT NULL DEFAULT 0,"
    " active INTEGER NOT NULL DEFAULT 1, created TEXT NOT NULL)",
    "CREATE TABLE roles(id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE,"
    " description TEXT NOT NULL DEFAULT '', administrator INTEGER NOT NULL DEFAULT 0)",
    "CREATE TABLE user_roles(user_id INTEGER NOT NULL REFERENCES users(id) ON DELETE CASCADE,"
    " role_id INTEGER NOT NULL REFERENCES roles(id) ON DELETE CASCADE,"
    " PRIMARY KEY(user_id, role_id))",
    "CREATE TABLE role_members(role_id INTEGER NOT NULL REFERENCES roles(id) ON DELETE CASCADE,"
    " member_role_id INTEGER NOT NULL REFERENCES roles(id) ON DELETE CASCADE,"
    " PRIMARY KEY(role_id, member_role_id))",
    "CREATE TABLE tenants(number INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE,"
    " description TEXT NOT NULL DEFAULT '', payload BLOB, created TEXT NOT NULL)",
    "CREATE TABLE archives(id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE,"
    " tenant_number INTEGER NOT NULL REFERENCES tenants(number) ON DELETE CASCADE)",
    "CREATE TABLE sessions(token TEXT PRIMARY KEY,"
    " user_id INTEGER NOT NULL REFERENCES users(id) ON DELETE CASCADE, state TEXT NOT NULL,"
    " archive_id INTEGER REFERENCES archives(id) ON DELETE SET NULL,"
    " client TEXT NOT NULL DEFAULT '', started TEXT NOT NULL, last_seen TEXT NOT NULL)",
    "CREATE TABLE session_requests(id INTEGER PRIMARY KEY,"
    " token TEXT NOT NULL REFERENCES sessions(token) ON DELETE CASCADE, request TEXT NOT NULL)",
    "CREATE TABLE folders(key TEXT PRIMARY KEY, structure TEXT NOT NULL,"
    " parent_key TEXT REFERENCES folders(key) DEFERRABLE INITIALLY DEFERRED,"
    " name TEXT NOT NULL, position INTEGER NOT NULL DEFAULT 0,"
    " description TEXT NOT NULL DEFAULT '', payload BLOB)",
    "CREATE INDEX folders_by_structure ON folders(structure)",
    "CREATE TABLE folder_roles(folder_key TEXT NOT NULL REFERENCES folders(key)"
    " ON DELETE CASCADE, principal TEXT NOT NULL, PRIMARY KEY(folder_key, principal))",
    "CREATE TABLE doc_types(name TEXT PRIMARY KEY, record TEXT NOT NULL, payload BLOB,"
    " position INTEGER NOT NULL)",
    "CREATE TABLE status_types(name TEXT PRIMARY KEY, record TEXT NOT NULL, payload BLOB,"
    " position INTEGER NOT NULL)",
    "CREATE TABLE attributes(number INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE,"
    " label TEXT NOT NULL DEFAULT '', mandatory INTEGER NOT NULL DEFAULT 0)",
    "CREATE TABLE attribute_values(attribute INTEGER NOT NULL REFERENCES attributes(number)"
    " ON DELETE CASCADE, position INTEGER NOT NULL, value TEXT NOT NULL,"
    " PRIMARY KEY(attribute, position))",
    "CREATE TABLE documents(id INTEGER PRIMARY KEY,"
    " archive_id INTEGER NOT NULL REFERENCES archives(id),"
    " folder_key TEXT REFERENCES folders(key) DEFERRABLE INITIALLY DEFERRED,"
    " doc_type TEXT REFERENCES doc_types(name) DEFERRABLE INITIALLY DEFERRED,"
    " status TEXT REFERENCES status_types(name) DEFERRABLE INITIALLY DEFERRED,"
    " title TEXT NOT NULL DEFAULT '', doc_date TEXT NOT NULL DEFAULT '',"
    " remark TEXT NOT NULL DEFAULT '', revision INTEGER NOT NULL DEFAULT 0,"
    " deleted INTEGER NOT NULL DEFAULT 0, created TEXT NOT NULL, created_by TEXT NOT NULL,"
    " modified TEXT NOT NULL, modified_by TEXT NOT NULL)",
    "CREATE INDEX documents_by_archive ON documents(archive_id, deleted)",
    "CREATE INDEX documents_by_folder ON documents(folder_key)",
    "CREATE TABLE doc_values(doc_id INTEGER NOT NULL REFERENCES documents(id) ON DELETE CASCADE,"
    " attribute INTEGER NOT NULL REFERENCES attributes(number), value TEXT NOT NULL,"
    " PRIMARY KEY(doc_id, attribute))",
    "CREATE TABLE doc_history(id INTEGER PRIMARY KEY,"
    " doc_id INTEGER NOT NULL REFERENCES documents(id) ON DELETE CASCADE, time TEXT NOT NULL,"
    " \"user\" TEXT NOT NULL, action TEXT NOT NULL, details TEXT NOT NULL DEFAULT '')",
    "CREATE INDEX doc_history_by_doc ON doc_history(doc_id)",
    "CREATE TABLE doc_revisions(doc_id INTEGER NOT NULL REFERENCES documents(id)"
    " ON DELETE CASCADE, revision INTEGER NOT NULL, time TEXT NOT NULL, \"user\" TEXT NOT NULL,"
    " fields TEXT NOT NULL, PRIMARY KEY(doc_id, revision))",
    "CREATE TABLE doc_links(doc_id INTEGER NOT NULL REFERENCES documents(id) ON DELETE CASCADE,"
    " linked_id INTEGER NOT NULL REFERENCES documents(id) ON DELETE CASCADE,"
    " PRIMARY KEY(doc_id, linked_id))",
    "CREATE TABLE doc_rights(doc_id INTEGER NOT NULL REFERENCES documents(id) ON DELETE CASCADE,"
    " principal TEXT NOT NULL, rights TEXT NOT NULL, PRIMARY KEY(doc_id, principal))",
    "CREATE TABLE temp_classifications(id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " owner_id INTEGER NOT NULL REFERENCES users(id) ON DELETE CASCADE,"
    " doc_id INTEGER, created TEXT NOT NULL)",
    "CREATE TABLE temp_values(temp_id INTEGER NOT NULL REFERENCES temp_classifications(id)"
    " ON DELETE CASCADE, position INTEGER NOT NULL, entry TEXT NOT NULL,"
    " PRIMARY KEY(temp_id, position))",
    "CREATE TABLE temp_rights(temp_id INTEGER NOT NULL REFERENCES temp_classifications(id)"
    " ON DELETE CASCADE, principal TEXT NOT NULL, rights TEXT NOT NULL,"
    " PRIMARY KEY(temp_id, principal))",
    "CREATE TABLE deadlines(id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " doc_id INTEGER NOT NULL REFERENCES documents(id) ON DELETE CASCADE, due TEXT NOT NULL,"
    " assignee TEXT NOT NULL DEFAULT '', text TEXT NOT NULL DEFAULT '',"
    " state TEXT NOT NULL DEFAULT 'open')",
    "CREATE TABLE clipboards(id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " owner_id INTEGER NOT NULL REFERENCES users(id) ON DELETE CASCADE, name TEXT NOT NULL,"
    " created TEXT NOT NULL, UNIQUE(owner_id, name))",
    "CREATE TABLE clipboard_cards(clipboard_id INTEGER NOT NULL REFERENCES clipboards(id)"
    " ON DELETE CASCADE, card TEXT NOT NULL, data TEXT NOT NULL, position INTEGER NOT NULL,"
    " PRIMARY KEY(clipboard_id, card))",
    "CREATE TABLE clipboard_roles(clipboard_id INTEGER NOT NULL REFERENCES clipboards(id)"
    " ON DELETE CASCADE, principal TEXT NOT NULL, PRIMARY KEY(clipboard_id, principal))",
    "CREATE TABLE shares(key TEXT PRIMARY KEY,"
    " owner_id INTEGER NOT NULL REFERENCES users(id) ON DELETE CASCADE,"
    " title TEXT NOT NULL, recipient TEXT NOT NULL, expires TEXT NOT NULL,"
    " access_limit INTEGER NOT NULL, created TEXT NOT NULL)",
    "CREATE TABLE share_documents(share_key TEXT NOT NULL REFERENCES shares(key)"
    " ON DELETE CASCADE, doc_id INTEGER NOT NULL REFERENCES documents(id) ON DELETE CASCADE,"
    " position INTEGER NOT NULL, PRIMARY KEY(share_key, doc_id))",
    "CREATE TABLE searches(number INTEGER PRIMARY KEY AUTOINCREMENT,"
    " owner_id INTEGER NOT NULL REFERENCES users(id) ON DELETE CASCADE, name TEXT NOT NULL,"
    " description TEXT NOT NULL, conditions TEXT NOT NULL, UNIQUE(owner_id, name))",
    "CREATE TABLE user_data(owner_id INTEGER NOT NULL REFERENCES users(id) ON DELETE CASCADE,"
    " key1 TEXT NOT NULL, key2 TEXT NOT NULL, first BLOB, second BLOB,"
    " public INTEGER NOT NULL DEFAULT 0, PRIMARY KEY(owner_id, key1, key2))",
    "CREATE TABLE search_index(word TEXT NOT NULL,"
    " doc_id INTEGER NOT NULL REFERENCES documents(id) ON DELETE CASCADE,"
    " PRIMARY KEY(word, doc_id)) WITHOUT ROWID",
    "CREATE INDEX search_index_by_doc ON search_index(doc_id)",
    "INSERT INTO roles(name, description, administrator)"
    " VALUES ('Administrators', 'Administrators of the server', 1)",
};

// Version 2: a session is bound to the broker connection that logged it in
// (empty for callers in the server's own process).
const char *const version2[] = {
    "ALTER TABLE sessions ADD COLUMN connection TEXT NOT NULL DEFAULT ''",
    "CREATE INDEX sessions_by_connection ON sessions(connection)",
};

// Version 3: the change counter becomes an append-only log of changes, one
// row per successful write. Concurrent writers on PostgreSQL each append a
// row instead of all updating one, which would make every two writes
// conflict; the marker is the last number.
const char *const version3[] = {
    "CREATE TABLE changes(number INTEGER PRIMARY KEY AUTOINCREMENT, time TEXT NOT NULL)",
};

void seedVersion1(const QSqlDatabase &db)
{
    const QString now = nowText();
    const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces).remove(QLatin1Char('-'));
    run(db,
        QStringLiteral("INSERT INTO meta(key, value) VALUES ('database_id', ?),"
                       " ('change_counter', '0'), ('last_change', ?), ('next_oid', '0'),"
                       " ('index_rebuilt', '')"),
        { id, now });
    run(db,
        QStringLiteral("INSERT INTO tenants(number, name, description, created)"
                       " VALUES (1, 'Default', 'The first tenant', ?)"),
        { now });
    // The first archive gets key 1 from the generated keys, so that the next
    // generated one follows it on every database.
    run(db, QStringLiteral("INSERT INTO archives(name, tenant_number) VALUES ('Default', 1)"));
}

// The counter and its time move from `meta` into the first row of
// `changes`, so markers handed out before the update stay valid.
void moveChangeCounter(const QSqlDatabase &db)
{
    run(db,
        QStringLiteral("INSERT INTO changes(number, time)"
                       " SELECT CAST(c.value AS BIGINT), t.value FROM meta c, meta t"
                       " WHERE c.key = 'change_counter' AND t.key = 'last_change'"));
    if (isPostgres(db)) {
        // An explicit number does not move an identity column's sequence.
        run(db,
            QStringLiteral("SELECT setval(pg_get_serial_sequence('changes', 'number'),"
                           " greatest(max(number), 1), max(number) >= 1) FROM changes"));
    }
    run(db, QStringLiteral("DELETE FROM meta WHERE key IN ('change_counter', 'last_change')"));
}

bool migrate(QSqlDatabase &db, int from, QString *error)
{
    for (int version = from + 1; version <= schemaVersion; ++version) {
        Transaction transaction(db, Transaction::Kind::Exclusive);
        if (!transaction.isActive()) {
            if (error)
                *error = QStringLiteral("the database is busy; the schema cannot be updated");
            return false;
        }
        try {
            // Another connection may have migrated while this one waited.
            if (storedSchemaVersion(db) < version) {
                if (version == 1) {
                    for (const char *statement : version1)
                        run(db, tableDefinition(db, QString::fromLatin1(statement)));
                    seedVersion1(db);
                } else if (version == 2) {
                    for (const char *statement : version2)
                        run(db, QString::fromLatin1(statement));
                } else if (version == 3) {
                    for (const char *statement : version3)
                        run(db, tableDefinition(db, QString::fromLatin1(statement)));
                    moveChangeCounter(db);
                }
                storeSchemaVersion(db, version);
            }
        } catch (const Failure &failure) {
            if (error)
                *error = QStringLiteral("migration to schema %1 failed: %2")
                             .arg(version)
                             .arg(failure.text);
            return false;
        }
        if (!transaction.commit(error))
            return false;
    }
    return true;
}

} // namespace

int storedSchemaVersion(QSqlDatabase &db)
{
    if (!isPostgres(db))
        return scalar(db, QStringLiteral("PRAGMA user_version")).toInt();
    // PostgreSQL has no place for it of its own: a one-row table, made when
    // first asked for under the write lock, since two servers may start at once.
    if (!exists(db,
                QStringLiteral("SELECT 1 FROM information_schema.tables"
                               " WHERE table_schema = current_schema()"
                               " AND table_name = 'schema_version'"))) {
        Transaction transaction(db, Transaction::Kind::Exclusive);
        if (!transaction.isActive())
            fail(QStringLiteral("the database is busy"));
        run(db,
            QStringLiteral("CREATE TABLE IF NOT EXISTS schema_version(version BIGINT NOT NULL)"));
        if (!exists(db, QStringLiteral("SELECT 1 FROM schema_version")))
            run(db, QStringLiteral("INSERT INTO schema_version(version) VALUES (0)"));
        if (!transaction.commit())
            fail(QStringLiteral("the database refused to commit the schema version"));
    }
    return scalar(db, QStringLiteral("SELECT max(version) FROM schema_version")).toInt();
}

void storeSchemaVersion(const QSqlDatabase &db, int version)
{
    if (isPostgres(db))
        run(db, QStringLiteral("UPDATE schema_version SET version = ?"), { version });
    else
        run(db, QStringLiteral("PRAGMA user_version = %1").arg(version));
}

bool prepareDatabase(QSqlDatabase &db, QString *error)
{
    int version = 0;
    try {
        version = storedSchemaVersion(db);
    } catch (const Failure &failure) {
        if (error)
            *error = failure.text;
        return false;
    }
    if (version > schemaVersion) {
        if (error)
            *error = QStringLiteral("the database has schema %1, newer than this server's %2")
                         .arg(version)
                         .arg(schemaVersion);
        return false;
    }
    if (!migrate(db, version, error))
        return false;
    // Bookkeeping of the broker server, not part of the model, so it stays
    // outside the numbered migrations: which broker requests have had their
    // effect, with the reply they got (see ServerEngine::handle with a key).
    // Made under the write lock: two servers may start at the same time.
    Transaction transaction(db, Transaction::Kind::Exclusive);
    if (!transaction.isActive()) {
        if (error)
            *error = QStringLiteral("the database is busy");
        return false;
    }
    // So is the count of failed logins per account and per connection
    // (loginthrottle.h); times are milliseconds since 1970 UTC.
    const char *const bookkeeping[] = {
        "CREATE TABLE IF NOT EXISTS processed_requests(request_key TEXT PRIMARY KEY,"
        " reply BLOB NOT NULL, processed TEXT NOT NULL)",
        "CREATE TABLE IF NOT EXISTS login_failures(subject TEXT PRIMARY KEY,"
        " failures INTEGER NOT NULL, last_failure INTEGER NOT NULL,"
        " locked_until INTEGER NOT NULL)",
    };
    for (const char *statement : bookkeeping) {
        if (!execPlain(db, tableDefinition(db, QString::fromLatin1(statement)), error))
            return false;
    }
    return transaction.commit(error);
}

QString markerText(const QString &databaseId, qint64 changeNumber)
{
    return databaseId + QLatin1Char(':') + QString::number(changeNumber);
}

QString lastChangeNumberSql()
{
    return QStringLiteral("(SELECT coalesce(max(number), 0) FROM changes)");
}

QString currentMarker(const QSqlDatabase &db)
{
    QSqlQuery query = run(db,
                          QStringLiteral("SELECT (SELECT value FROM meta WHERE key = 'database_id'), ")
                              + lastChangeNumberSql());
    if (!query.next())
        fail(QStringLiteral("database error: the database has no update marker"));
    return markerText(query.value(0).toString(), query.value(1).toLongLong());
}

qint64 recordChange(const QSqlDatabase &db)
{
    QString sql = QStringLiteral("INSERT INTO changes(time) VALUES (?) RETURNING number");
    if (isPostgres(db)) {
        // Materialized, so that the lock is held before the row, and with
        // it the number, is made.
        sql = QStringLiteral("WITH commit_order AS MATERIALIZED (SELECT %1 AS locked)"
                             " INSERT INTO changes(time) SELECT ? FROM commit_order"
                             " RETURNING number")
                  .arg(Transaction::commitOrderLockCall());
    }
    QSqlQuery query = run(db, sql, { nowText() });
    if (!query.next())
        fail(QStringLiteral("database error: the change was not counted"));
    return query.value(0).toLongLong();
}

QString lastChangeTime(const QSqlDatabase &db)
{
    return scalar(db, QStringLiteral("SELECT time FROM changes ORDER BY number DESC LIMIT 1"))
        .toString();
}

void foldChanges(const QSqlDatabase &db, qint64 lastNumber)
{
    constexpr qint64 kept = 10000;
    run(db, QStringLiteral("DELETE FROM changes WHERE number <= ?"), { lastNumber - kept });
}

} // namespace nuvserver

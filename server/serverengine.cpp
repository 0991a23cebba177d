// SPDX-License-Identifier: Apache-2.0
// The engine: connection handling, dispatch, the per-request transaction,
// sessions and the update marker.

#include "serverengine.h"

#include "context.h"
#include "dialect.h"
#include "fieldvalues.h"
#include "requestlimits.h"
#include "schema.h"
#include "sql.h"

#include <QAtomicInt>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QSqlError>
#include <QSqlQuery>
#include <QThread>

#include <exception>
#include <functional>
#include <optional>

namespace nuvserver {

namespace {

const QHash<QString, CommandEntry> &commandTable()
{
    static const QHash<QString, CommandEntry> table = [] {
        QHash<QString, CommandEntry> all;
        const QVector<QVector<CommandEntry>> groups {
            sessionCommands(),   roleCommands(),        documentCommands(),
            temporaryCommands(), archiveCommands(),     typeCommands(),
            clipboardCommands(), maintenanceCommands(), userDataCommands(),
        };
        for (const QVector<CommandEntry> &group : groups) {
            for (const CommandEntry &entry : group) {
                Q_ASSERT(!all.contains(QLatin1String(entry.word)));
                all.insert(QLatin1String(entry.word), entry);
            }
        }
        return all;
    }();
    return table;
}

void setError(nuvMQClassifyMessage &reply, const QString &text)
{
    // The parts of a text that echo the request are cut where they are
    // made (echoed()); this bounds whatever a handler still lets through.
    constexpr int longest = 2000;
    reply.command = QLatin1String(nuvprotocol::status::error);
    reply.hasErrorText = true;
    reply.errorText = text.size() <= longest ? text : text.left(longest) + QStringLiteral("…");
}

QString describe(const QString &word, const Failure &failure)
{
    if (failure.bare || word.isEmpty())
        return failure.text;
    return echoed(word) + QStringLiteral(": ") + failure.text;
}

// Runs `work`; whatever it throws becomes the failure it reports.
std::optional<Failure> guarded(const std::function<void()> &work)
{
    try {
        work();
        return std::nullopt;
    } catch (const Failure &failure) {
        return failure;
    } catch (const std::exception &e) {
        return Failure {
            QStringLiteral("internal error: %1").arg(QString::fromLocal8Bit(e.what()))
        };
    } catch (...) {
        return Failure { QStringLiteral("internal error") };
    }
}

// How often a session's last-seen time is written: often enough to keep the
// time-out's precision, rarely enough that a busy session does not cost every
// request a row update.
int lastSeenRefreshSeconds(int timeoutMinutes)
{
    return qMin(60, timeoutMinutes * 60 / 4);
}

QDateTime utcTime(const QString &text)
{
    const QDateTime local = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    return local.isValid() ? QDateTime(local.date(), local.time(), Qt::UTC) : QDateTime();
}

// Loads the caller's session and applies the session rules of `entry`.
void admitCaller(Context &ctx, const CommandEntry &entry, int timeoutMinutes)
{
    ctx.session = loadSession(ctx.db, ctx.token);
    // A token is worth something only on the connection that logged it in:
    // a token seen elsewhere has been copied.
    const bool foreign = ctx.session && ctx.session->connection != ctx.connection;
    if (foreign)
        ctx.session.reset();
    if (ctx.session && timeoutMinutes > 0) {
        const QDateTime lastSeen = utcTime(ctx.session->lastSeen);
        const QDateTime now = QDateTime::currentDateTimeUtc();
        if (lastSeen.isValid() && lastSeen.addSecs(timeoutMinutes * 60) < now) {
            run(ctx.db, QStringLiteral("DELETE FROM sessions WHERE token = ?"), { ctx.token });
            ctx.session.reset();
            if (!(entry.flags & Public))
                throw Failure { QStringLiteral("the session has expired; log in again"), true };
        } else if (!lastSeen.isValid()
                   || lastSeen.addSecs(lastSeenRefreshSeconds(timeoutMinutes)) <= now) {
            // Not on every request: see lastSeenRefreshSeconds().
            run(ctx.db, QStringLiteral("UPDATE sessions SET last_seen = ? WHERE token = ?"),
                { nowText(), ctx.token });
        }
    }
    if (entry.flags & Public)
        return;
    if (foreign)
        fail(QStringLiteral("not logged in: the session belongs to another connection; log in "
                            "with CFLOGIN on this one"));
    if (!ctx.session)
        fail(QStringLiteral("not logged in; log in with CFLOGIN first"));
    if (ctx.session->state != QLatin1String("active") && !(entry.flags & ExpiredSessionAllowed))
        fail(QStringLiteral("the password of %1 has expired; change it with "
                            "CFDOCCHANGEEXPIREDPASS first")
                 .arg(ctx.session->login));
    if (entry.flags & Administrative)
        ctx.requireAdmin();
}

} // namespace

std::optional<Session> loadSession(const QSqlDatabase &db, const QString &token)
{
    if (token.isEmpty())
        return std::nullopt;
    QSqlQuery query = run(db,
                          QStringLiteral("SELECT s.user_id, u.login, s.state,"
                                         " coalesce(s.archive_id, 0), s.last_seen, s.connection"
                                         " FROM sessions s"
                                         " JOIN users u ON u.id = s.user_id"
                                         " WHERE s.token = ? AND u.active = 1"),
                          { token });
    if (!query.next())
        return std::nullopt;
    Session session;
    session.token = token;
    session.userId = query.value(0).toLongLong();
    session.login = query.value(1).toString();
    session.state = query.value(2).toString();
    session.archiveId = query.value(3).toLongLong();
    session.lastSeen = query.value(4).toString();
    session.connection = query.value(5).toString();
    return session;
}

ServerEngine::ServerEngine(EngineOptions options)
    : engineOptions(std::move(options))
{
    static QAtomicInt counter;
    connectionName = QStringLiteral("nuvserver-%1-%2")
                         .arg(counter.fetchAndAddRelaxed(1))
                         .arg(quintptr(this), 0, 16);
}

ServerEngine::~ServerEngine()
{
    closeConnection();
}

QStringList ServerEngine::commandWords()
{
    QStringList words = commandTable().keys();
    words.sort();
    return words;
}

void ServerEngine::closeConnection()
{
    if (!db.isValid())
        return;
    forgetPreparedStatements();
    db.close();
    db = QSqlDatabase();
    QSqlDatabase::removeDatabase(connectionName);
    connectionThread = nullptr;
}

bool ServerEngine::ensureConnection(QString *error)
{
    if (db.isValid() && connectionThread == QThread::currentThread())
        return true;
    closeConnection();
    QString problem;
    const DatabaseLocation location = DatabaseLocation::parse(engineOptions.database, &problem);
    if (problem.isEmpty())
        db = openDatabase(location, connectionName, engineOptions.busyTimeoutMs, &problem);
    if (!db.isValid()) {
        if (error)
            *error = problem;
        db = QSqlDatabase();
        return false;
    }
    connectionThread = QThread::currentThread();
    if (!prepareDatabase(db, error)) {
        closeConnection();
        return false;
    }
    limitStatementTime(db, engineOptions.statementTimeoutMs);
    return true;
}

bool ServerEngine::beginRequest()
{
    if (beginWrite(db))
        return true;
    // A database server that restarted leaves the connection broken: one
    // fresh connection, then the request fails as busy.
    if (!isPostgres(db))
        return false;
    closeConnection();
    return ensureConnection(nullptr) && beginWrite(db);
}

bool ServerEngine::open(QString *error)
{
    opened = false;
    if (!ensureConnection(error))
        return false;
    if (!engineOptions.initialAdminUser.isEmpty() && !engineOptions.initialAdminPassword.isEmpty()
        && !exists(db, QStringLiteral("SELECT 1 FROM users"))) {
        // Quietly skipped when another engine created a user meanwhile.
        if (beginWrite(db)) {
            try {
                if (!exists(db, QStringLiteral("SELECT 1 FROM users")))
                    createFirstAdministrator(db, engineOptions, engineOptions.initialAdminUser,
                                             engineOptions.initialAdminPassword,
                                             engineOptions.initialAdminUser);
                execPlain(db, QStringLiteral("COMMIT"));
            } catch (const Failure &failure) {
                execPlain(db, QStringLiteral("ROLLBACK"));
                if (error)
                    *error
                        = QStringLiteral("cannot create the first administrator: ") + failure.text;
                return false;
            }
        }
    }
    opened = true;
    return true;
}

bool ServerEngine::initialiseDatabase(const EngineOptions &options, const QString &adminUser,
                                      const QString &adminPassword, const QString &fullName,
                                      QString *error)
{
    EngineOptions plainOptions = options;
    plainOptions.initialAdminUser.clear();
    ServerEngine engine(plainOptions);
    if (!engine.open(error))
        return false;
    if (!beginWrite(engine.db)) {
        if (error)
            *error = QStringLiteral("the database is busy");
        return false;
    }
    try {
        createFirstAdministrator(engine.db, plainOptions, adminUser, adminPassword, fullName);
        bumpChangeCounter(engine.db);
    } catch (const Failure &failure) {
        execPlain(engine.db, QStringLiteral("ROLLBACK"));
        if (error)
            *error = failure.text;
        return false;
    }
    if (!execPlain(engine.db, QStringLiteral("COMMIT"))) {
        execPlain(engine.db, QStringLiteral("ROLLBACK"));
        if (error)
            *error = QStringLiteral("the database refused to commit");
        return false;
    }
    return true;
}

void ServerEngine::endSession(const QString &sessionToken)
{
    if (!sessionToken.isEmpty())
        removeSessions(QStringLiteral("token = ?"), sessionToken);
}

void ServerEngine::endConnection(const QString &connection)
{
    if (!connection.isEmpty())
        removeSessions(QStringLiteral("connection = ?"), connection);
}

void ServerEngine::endIdleSessions()
{
    if (engineOptions.sessionTimeoutMinutes > 0)
        removeSessions(QStringLiteral("last_seen < ?"),
                       timeText(QDateTime::currentDateTimeUtc().addSecs(
                           -qint64(engineOptions.sessionTimeoutMinutes) * 60)));
}

void ServerEngine::removeSessions(const QString &condition, const QString &value)
{
    if (!opened || !ensureConnection(nullptr))
        return;
    try {
        // Most calls find nothing to remove (every connection that closes is
        // reported, with a session or without): a read needs no write lock.
        if (exists(db, QStringLiteral("SELECT 1 FROM sessions WHERE ") + condition, { value }))
            run(db, QStringLiteral("DELETE FROM sessions WHERE ") + condition, { value });
    } catch (const Failure &) {
        // A session that cannot be removed now ends with its timeout, or is
        // refused at its next request.
    }
}

nuvMQClassifyMessage ServerEngine::handle(const nuvMQClassifyMessage &request,
                                          const QString &sessionToken)
{
    return handle(request, sessionToken, QString(), nullptr);
}

void ServerEngine::forgetProcessedRequests(int hours)
{
    if (!opened || !ensureConnection(nullptr))
        return;
    try {
        run(db, QStringLiteral("DELETE FROM processed_requests WHERE processed < ?"),
            { timeText(QDateTime::currentDateTimeUtc().addSecs(-qint64(hours) * 3600)) });
    } catch (const Failure &) {
        // Old records only cost space; the next attempt removes them.
    }
}

nuvMQClassifyMessage ServerEngine::handle(const nuvMQClassifyMessage &request,
                                          const QString &sessionToken, const QString &requestKey,
                                          bool *replayed)
{
    return handle(request, Origin { sessionToken, QString() }, requestKey, replayed);
}

nuvMQClassifyMessage ServerEngine::handle(const nuvMQClassifyMessage &request, const Origin &origin,
                                          const QString &requestKey, bool *replayed)
{
    if (replayed)
        *replayed = false;
    callerLogin.clear();
    const QString word = request.command;
    QString error;
    if (!opened || !ensureConnection(&error)) {
        nuvMQClassifyMessage reply;
        setError(reply,
                 QStringLiteral("%1: the server's database is not available: %2")
                     .arg(word, opened ? error : QStringLiteral("not opened")));
        return reply;
    }
    // Before any work, and before the database: what is refused here costs
    // the other callers nothing.
    if (const std::optional<Failure> refused
        = guarded([&] { checkRequest(request, engineOptions); })) {
        nuvMQClassifyMessage reply;
        setError(reply, describe(word, *refused));
        return reply;
    }
    const auto found = commandTable().constFind(word);
    if (word.isEmpty() || found == commandTable().constEnd()) {
        nuvMQClassifyMessage reply;
        setError(reply,
                 word.isEmpty() ? QStringLiteral("the request names no command")
                                : QStringLiteral("unknown command '%1'").arg(echoed(word)));
        return reply;
    }
    const CommandEntry &entry = found.value();
    if (!beginRequest()) {
        nuvMQClassifyMessage reply;
        setError(reply, word + QStringLiteral(": the database is busy; try again"));
        return reply;
    }
    // After beginRequest(): it may have replaced the connection.
    Context ctx(request, db, engineOptions);
    ctx.token = origin.token;
    ctx.connection = origin.connection;

    if (!requestKey.isEmpty()) {
        // Seen before: its effect is in the database already, and so is the
        // reply its first delivery got.
        std::optional<nuvMQClassifyMessage> stored;
        guarded([&] {
            QSqlQuery query = run(
                db, QStringLiteral("SELECT reply FROM processed_requests WHERE request_key = ?"),
                { requestKey });
            if (query.next()) {
                nuvMQClassifyMessage earlier;
                earlier.fromWireBytes(query.value(0).toByteArray());
                stored = earlier;
                if (const std::optional<Session> session = loadSession(db, origin.token))
                    callerLogin = session->login;
            }
        });
        if (stored) {
            execPlain(db, QStringLiteral("COMMIT"));
            if (replayed)
                *replayed = true;
            return *stored;
        }
    }

    QString markerBefore;
    QString markerAfter;
    // Rows the command itself changed (the session's last-seen time does
    // not count): a keyed request that changed none is not recorded, since
    // running it again has no effect to repeat, and reads can be large.
    qint64 changesBefore = 0;
    qint64 changesAfter = -1;
    const std::optional<Failure> failure = guarded([&] {
        markerBefore = currentMarker(db);
        admitCaller(ctx, entry, engineOptions.sessionTimeoutMinutes);
        callerLogin = ctx.login();
        if ((entry.flags & Writes) && !(entry.flags & IdList))
            checkRecordCount(request, engineOptions);
        if (!requestKey.isEmpty())
            changesBefore = changedRowCount();
        if (!(entry.flags & OutsideTransaction)) {
            entry.handler(ctx);
            checkReply(ctx.reply, engineOptions);
            if (entry.flags & Writes)
                bumpChangeCounter(db);
        }
        if (ctx.session)
            callerLogin = ctx.login();
        if (!requestKey.isEmpty())
            changesAfter = changedRowCount();
        markerAfter = currentMarker(db);
    });
    if (failure) {
        markerAfter = markerBefore;
        ctx.reply = nuvMQClassifyMessage();
        setError(ctx.reply, describe(word, *failure));
    }
    const bool keep = !failure || failure->keepChanges;
    const bool lateWork = !failure && (entry.flags & OutsideTransaction);
    // The marker goes to every logged-in caller, with errors too (the client
    // keeps whatever marker a reply carries). The comparison is with the
    // state before this request, so a caller's own write asks for no reload.
    const auto addMarker = [&] {
        if (ctx.session && ctx.session->state == QLatin1String("active")
            && !markerAfter.isEmpty()) {
            ctx.reply.setUpdateString(markerAfter);
            const QString sent = request.getUpdateString();
            ctx.reply.setUpdateRequested(!sent.isEmpty() && sent != markerBefore);
        }
    };
    // A keyed request records its reply with its effect, in one commit.
    // Work outside the transaction (backups, mail) has no reply yet; its
    // record follows in a transaction of its own.
    const bool changedRows = changesAfter != changesBefore;
    bool recorded = requestKey.isEmpty() || !keep || lateWork || !changedRows;
    if (!recorded) {
        addMarker();
        recorded = !guarded([&] { recordReply(requestKey, ctx.reply); });
    }
    if (!recorded || !execPlain(db, keep ? QStringLiteral("COMMIT") : QStringLiteral("ROLLBACK"))) {
        execPlain(db, QStringLiteral("ROLLBACK"));
        ctx.reply = nuvMQClassifyMessage();
        setError(ctx.reply, word + QStringLiteral(": the database refused to commit the change"));
        return ctx.reply;
    }
    if (lateWork) {
        if (const std::optional<Failure> late = guarded([&] {
                entry.handler(ctx);
                checkReply(ctx.reply, engineOptions);
            })) {
            ctx.reply = nuvMQClassifyMessage();
            setError(ctx.reply, describe(word, *late));
        }
    }
    addMarker();
    if (lateWork && !requestKey.isEmpty() && beginWrite(db)) {
        const bool stored = !guarded([&] { recordReply(requestKey, ctx.reply); });
        execPlain(db, stored ? QStringLiteral("COMMIT") : QStringLiteral("ROLLBACK"));
    }
    return ctx.reply;
}

void ServerEngine::recordReply(const QString &requestKey, const nuvMQClassifyMessage &reply)
{
    run(db,
        QStringLiteral("INSERT INTO processed_requests(request_key, reply, processed)"
                       " VALUES (?, ?, ?)"),
        { requestKey, reply.toWireBytes(), nowText() });
}

} // namespace nuvserver

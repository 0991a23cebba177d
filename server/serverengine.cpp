// SPDX-License-Identifier: Apache-2.0
// The engine: connection handling, dispatch, the per-request transaction,
// sessions and the update marker.

#include "serverengine.h"

#include "context.h"
#include "dialect.h"
#include "records.h"
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
    reply.command = QStringLiteral("ERROR");
    reply.hasErrorText = true;
    reply.errorText = text;
}

QString describe(const QString &word, const Failure &failure)
{
    return failure.bare ? failure.text : word + QStringLiteral(": ") + failure.text;
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

// Loads the caller's session and applies the session rules of `entry`.
void admitCaller(Context &ctx, const CommandEntry &entry, const QString &token, int timeoutMinutes)
{
    ctx.session = loadSession(ctx.db, token);
    // Without a timeout nothing reads the last-seen time, and writing it
    // would cost every request a row update.
    if (ctx.session && timeoutMinutes > 0) {
        const QDateTime lastSeen
            = QDateTime::fromString(ctx.session->lastSeen, QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        if (lastSeen.isValid()
            && QDateTime(lastSeen.date(), lastSeen.time(), Qt::UTC).addSecs(timeoutMinutes * 60)
                < QDateTime::currentDateTimeUtc()) {
            run(ctx.db, QStringLiteral("DELETE FROM sessions WHERE token = ?"), { token });
            ctx.session.reset();
            if (!(entry.flags & Public))
                throw Failure { QStringLiteral("the session has expired; log in again"), true };
        }
    }
    if (ctx.session && timeoutMinutes > 0)
        run(ctx.db, QStringLiteral("UPDATE sessions SET last_seen = ? WHERE token = ?"),
            { nowText(), token });
    if (entry.flags & Public)
        return;
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
                                         " coalesce(s.archive_id, 0), s.last_seen FROM sessions s"
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

QString ServerEngine::protocolVersion()
{
    return QStringLiteral("18.09-5");
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
    if (!opened || sessionToken.isEmpty() || !ensureConnection(nullptr))
        return;
    try {
        run(db, QStringLiteral("DELETE FROM sessions WHERE token = ?"), { sessionToken });
    } catch (const Failure &) {
        // A session that cannot be removed now ends with its timeout.
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
    if (replayed)
        *replayed = false;
    const QString word = request.command;
    QString error;
    if (!opened || !ensureConnection(&error)) {
        nuvMQClassifyMessage reply;
        setError(reply,
                 QStringLiteral("%1: the server's database is not available: %2")
                     .arg(word, opened ? error : QStringLiteral("not opened")));
        return reply;
    }
    const auto found = commandTable().constFind(word);
    if (word.isEmpty() || found == commandTable().constEnd()) {
        nuvMQClassifyMessage reply;
        setError(reply,
                 word.isEmpty() ? QStringLiteral("the request names no command")
                                : QStringLiteral("unknown command '%1'").arg(word));
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
    ctx.token = sessionToken;

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
        admitCaller(ctx, entry, sessionToken, engineOptions.sessionTimeoutMinutes);
        if (!requestKey.isEmpty())
            changesBefore = changedRowCount();
        if (!(entry.flags & OutsideTransaction)) {
            entry.handler(ctx);
            if (entry.flags & Writes)
                bumpChangeCounter(db);
        }
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
        if (const std::optional<Failure> late = guarded([&] { entry.handler(ctx); })) {
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

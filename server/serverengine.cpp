// SPDX-License-Identifier: Apache-2.0
// The engine: connection handling, dispatch, the per-request transaction,
// sessions and the update marker.

#include "serverengine.h"

#include "admission.h"
#include "context.h"
#include "dialect.h"
#include "fieldvalues.h"
#include "requestlimits.h"
#include "schema.h"
#include "sql.h"
#include "sqlconnectionstate.h"
#include "transaction.h"

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

nuvMQClassifyMessage errorReply(const QString &text)
{
    nuvMQClassifyMessage reply;
    setError(reply, text);
    return reply;
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

} // namespace

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
    forgetPreparedStatements(db);
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
    if (SqlConnectionState *state = SqlConnectionState::of(db))
        state->counters = &counters;
    if (!prepareDatabase(db, error)) {
        closeConnection();
        return false;
    }
    limitStatementTime(db, engineOptions.statementTimeoutMs);
    return true;
}

bool ServerEngine::beginRequest(std::optional<WriteTransaction> &transaction)
{
    if (transaction.emplace(db).isActive())
        return true;
    transaction.reset();
    // A database server that restarted leaves the connection broken: one
    // fresh connection, then the request fails as busy.
    if (!isPostgres(db))
        return false;
    closeConnection();
    return ensureConnection(nullptr) && transaction.emplace(db).isActive();
}

bool ServerEngine::open(QString *error)
{
    opened = false;
    if (!ensureConnection(error))
        return false;
    if (!engineOptions.initialAdminUser.isEmpty() && !engineOptions.initialAdminPassword.isEmpty()
        && !exists(db, QStringLiteral("SELECT 1 FROM users"))) {
        // Quietly skipped when another engine created a user meanwhile.
        WriteTransaction transaction(db);
        if (transaction.isActive()) {
            try {
                if (!exists(db, QStringLiteral("SELECT 1 FROM users")))
                    createFirstAdministrator(db, engineOptions, engineOptions.initialAdminUser,
                                             engineOptions.initialAdminPassword,
                                             engineOptions.initialAdminUser);
                transaction.commit();
            } catch (const Failure &failure) {
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
    WriteTransaction transaction(engine.db);
    if (!transaction.isActive()) {
        if (error)
            *error = QStringLiteral("the database is busy");
        return false;
    }
    try {
        createFirstAdministrator(engine.db, plainOptions, adminUser, adminPassword, fullName);
        bumpChangeCounter(engine.db);
    } catch (const Failure &failure) {
        if (error)
            *error = failure.text;
        return false;
    }
    if (!transaction.commit()) {
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

// What one request carries from one step of handle() to the next.
struct ServerEngine::Pass
{
    Pass(const nuvMQClassifyMessage &request, const QSqlDatabase &db, const EngineOptions &options,
         const RequestCounters &counters, const CommandEntry &entry, const QString &requestKey)
        : ctx(request, db, options, counters)
        , entry(entry)
        , requestKey(requestKey)
    { }

    bool keepsChanges() const { return !failure || failure->keepChanges; }
    // Work outside the transaction (backups, mail) runs after the commit.
    bool hasLateWork() const { return !failure && (entry.flags & OutsideTransaction); }

    // The marker goes to every logged-in caller, with errors too (the client
    // keeps whatever marker a reply carries). The comparison is with the
    // state before this request, so a caller's own write asks for no reload.
    void addMarker()
    {
        if (ctx.session && ctx.session->state == QLatin1String("active")
            && !markerAfter.isEmpty()) {
            ctx.reply.setUpdateString(markerAfter);
            const QString sent = ctx.request.getUpdateString();
            ctx.reply.setUpdateRequested(!sent.isEmpty() && sent != markerBefore);
        }
    }

    Context ctx;
    const CommandEntry &entry;
    const QString &requestKey;
    QString markerBefore;
    QString markerAfter;
    // Whether the command itself changed rows (the session's last-seen time
    // does not count): a keyed request that changed none is not recorded,
    // since running it again has no effect to repeat, and reads can be
    // large. Until the command has run to its end, assume it did.
    bool changedRows = true;
    std::optional<Failure> failure;
};

nuvMQClassifyMessage ServerEngine::handle(const nuvMQClassifyMessage &request, const Origin &origin,
                                          const QString &requestKey, bool *replayed)
{
    if (replayed)
        *replayed = false;
    callerLogin.clear();
    counters = RequestCounters();
    const CommandEntry *entry = nullptr;
    if (std::optional<nuvMQClassifyMessage> refused = screen(request, &entry))
        return *refused;
    std::optional<WriteTransaction> transaction;
    if (!beginRequest(transaction))
        return errorReply(request.command + QStringLiteral(": the database is busy; try again"));
    // After beginRequest(): it may have replaced the connection.
    Pass pass(request, db, engineOptions, counters, *entry, requestKey);
    pass.ctx.token = origin.token;
    pass.ctx.connection = origin.connection;

    if (std::optional<nuvMQClassifyMessage> earlier = replay(pass)) {
        transaction->commit();
        if (replayed)
            *replayed = true;
        return *earlier;
    }
    pass.failure = guarded([&] { admit(pass); });
    if (!pass.failure)
        pass.failure = guarded([&] { runCommand(pass); });
    if (pass.failure) {
        pass.markerAfter = pass.markerBefore;
        pass.ctx.reply = nuvMQClassifyMessage();
        setError(pass.ctx.reply, describe(request.command, *pass.failure));
    }
    if (!record(pass) || !commit(pass, *transaction))
        return errorReply(request.command
                          + QStringLiteral(": the database refused to commit the change"));
    runLateWork(pass);
    return pass.ctx.reply;
}

std::optional<nuvMQClassifyMessage> ServerEngine::screen(const nuvMQClassifyMessage &request,
                                                         const CommandEntry **entry)
{
    const QString &word = request.command;
    QString error;
    if (!opened || !ensureConnection(&error))
        return errorReply(QStringLiteral("%1: the server's database is not available: %2")
                              .arg(word, opened ? error : QStringLiteral("not opened")));
    if (const std::optional<Failure> refused
        = guarded([&] { checkRequest(request, engineOptions); }))
        return errorReply(describe(word, *refused));
    const auto found = commandTable().constFind(word);
    if (word.isEmpty() || found == commandTable().constEnd())
        return errorReply(word.isEmpty()
                              ? QStringLiteral("the request names no command")
                              : QStringLiteral("unknown command '%1'").arg(echoed(word)));
    *entry = &found.value();
    return std::nullopt;
}

std::optional<nuvMQClassifyMessage> ServerEngine::replay(Pass &pass)
{
    std::optional<nuvMQClassifyMessage> stored;
    if (pass.requestKey.isEmpty())
        return stored;
    guarded([&] {
        QSqlQuery query
            = run(db, QStringLiteral("SELECT reply FROM processed_requests WHERE request_key = ?"),
                  { pass.requestKey });
        if (!query.next())
            return;
        nuvMQClassifyMessage earlier;
        earlier.fromWireBytes(query.value(0).toByteArray());
        stored = earlier;
        if (const std::optional<LoginSession> session = loadSession(db, pass.ctx.token))
            callerLogin = session->login;
    });
    return stored;
}

void ServerEngine::admit(Pass &pass)
{
    pass.markerBefore = currentMarker(db);
    admitCaller(pass.ctx, pass.entry, engineOptions.sessionTimeoutMinutes);
    callerLogin = pass.ctx.login();
    if ((pass.entry.flags & Writes) && !(pass.entry.flags & IdList))
        checkRecordCount(pass.ctx.request, engineOptions);
}

void ServerEngine::runCommand(Pass &pass)
{
    Context &ctx = pass.ctx;
    const qint64 rowsBefore = ctx.counters.changedRows;
    if (!(pass.entry.flags & OutsideTransaction)) {
        pass.entry.handler(ctx);
        checkReply(ctx.reply, engineOptions);
        if (pass.entry.flags & Writes)
            bumpChangeCounter(db);
    }
    // A login has made the session only now.
    if (ctx.session)
        callerLogin = ctx.login();
    pass.changedRows = ctx.counters.changedRows != rowsBefore;
    pass.markerAfter = currentMarker(db);
}

bool ServerEngine::record(Pass &pass)
{
    // A keyed request records its reply with its effect, in one commit; one
    // with work still to do records it after that work (runLateWork()).
    if (pass.requestKey.isEmpty() || !pass.keepsChanges() || pass.hasLateWork()
        || !pass.changedRows)
        return true;
    pass.addMarker();
    return !guarded([&] { recordReply(pass.requestKey, pass.ctx.reply); });
}

bool ServerEngine::commit(Pass &pass, WriteTransaction &transaction)
{
    if (pass.keepsChanges())
        return transaction.commit();
    transaction.rollback();
    return true;
}

void ServerEngine::runLateWork(Pass &pass)
{
    Context &ctx = pass.ctx;
    if (pass.hasLateWork()) {
        if (const std::optional<Failure> late = guarded([&] {
                pass.entry.handler(ctx);
                checkReply(ctx.reply, engineOptions);
            })) {
            ctx.reply = nuvMQClassifyMessage();
            setError(ctx.reply, describe(ctx.request.command, *late));
        }
    }
    pass.addMarker();
    if (pass.hasLateWork() && !pass.requestKey.isEmpty()) {
        WriteTransaction transaction(db);
        if (transaction.isActive() && !guarded([&] { recordReply(pass.requestKey, ctx.reply); }))
            transaction.commit();
    }
}

void ServerEngine::recordReply(const QString &requestKey, const nuvMQClassifyMessage &reply)
{
    run(db,
        QStringLiteral("INSERT INTO processed_requests(request_key, reply, processed)"
                       " VALUES (?, ?, ?)"),
        { requestKey, reply.toWireBytes(), nowText() });
}

} // namespace nuvserver

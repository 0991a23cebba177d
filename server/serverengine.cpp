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
#include <QRandomGenerator>
#include <QSqlError>
#include <QSqlQuery>
#include <QThread>

#include <exception>
#include <functional>
#include <optional>

namespace nuvserver {

namespace {

// How often a request that lost a race with a concurrent write runs again
// before it is answered as busy, and after how many lost races it runs
// alone (see ServerEngine::handle()).
constexpr int maxAttempts = 8;
constexpr int exclusiveAfter = 3;
// Every so many changes, the log of changes is folded (schema.h).
constexpr qint64 foldEvery = 1000;

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

bool ServerEngine::open(QString *error)
{
    opened = false;
    if (!ensureConnection(error))
        return false;
    if (!engineOptions.initialAdminUser.isEmpty() && !engineOptions.initialAdminPassword.isEmpty()
        && !exists(db, QStringLiteral("SELECT 1 FROM users"))) {
        // Quietly skipped when another engine created a user meanwhile.
        Transaction transaction(db, Transaction::Kind::Exclusive);
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
    Transaction transaction(engine.db, Transaction::Kind::Exclusive);
    if (!transaction.isActive()) {
        if (error)
            *error = QStringLiteral("the database is busy");
        return false;
    }
    try {
        createFirstAdministrator(engine.db, plainOptions, adminUser, adminPassword, fullName);
        recordChange(engine.db);
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

    bool reads() const { return entry.flags & ReadOnly; }
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
    const QString &requestKey; // empty for a read: nothing to replay or record
    QString databaseId;
    QString markerBefore;
    QString markerAfter;
    qint64 changeNumber = 0; // of this request's change; 0 when it made none
    SessionReview review;
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
    const bool reads = entry->flags & ReadOnly;
    // A read is never recorded, so it has no earlier reply to look for.
    const QString key = reads ? QString() : requestKey;
    Transaction::Kind kind = reads       ? Transaction::Kind::Read
        : (entry->flags & WholeDatabase) ? Transaction::Kind::Exclusive
                                         : Transaction::Kind::Write;
    // A duplicate key may have come from a concurrent write that committed
    // after this request's snapshot: run again, the request sees it and
    // answers as it would have one after the other. A second duplicate is
    // the request's own and is its answer.
    bool duplicateMayBeRace = true;
    for (int attempt = 1;; ++attempt) {
        Race race = Race::None;
        nuvMQClassifyMessage reply = attemptRequest(request, origin, *entry, kind, key,
                                                    duplicateMayBeRace, replayed, &race);
        if (race == Race::None)
            return reply;
        if (race == Race::Duplicate)
            duplicateMayBeRace = false;
        if (attempt == maxAttempts)
            return errorReply(request.command
                              + QStringLiteral(": the database is busy; try again"));
        ++counters.retries;
        backOff(attempt);
        // A request that keeps losing to concurrent writers runs alone:
        // nothing else commits while it holds the write lock.
        if (attempt >= exclusiveAfter)
            kind = Transaction::Kind::Exclusive;
    }
}

void ServerEngine::backOff(int attempt)
{
    // Random, so that two requests that collided do not collide again.
    const int ceilingMs = qMin(1 << attempt, 50);
    QThread::msleep(1 + QRandomGenerator::global()->bounded(ceilingMs));
}

ServerEngine::Race ServerEngine::raceLost(bool duplicateMayBeRace) const
{
    const SqlConnectionState *state = SqlConnectionState::of(db);
    if (!state)
        return Race::None;
    if (state->conflicted)
        return Race::Conflict;
    // PostgreSQL's unique_violation.
    if (duplicateMayBeRace && state->lastErrorCode == QLatin1String("23505"))
        return Race::Duplicate;
    return Race::None;
}

nuvMQClassifyMessage ServerEngine::attemptRequest(const nuvMQClassifyMessage &request,
                                                  const Origin &origin, const CommandEntry &entry,
                                                  Transaction::Kind kind, const QString &key,
                                                  bool duplicateMayBeRace, bool *replayed,
                                                  Race *race)
{
    if (SqlConnectionState *state = SqlConnectionState::of(db)) {
        state->conflicted = false;
        state->lastErrorCode.clear();
    }
    std::optional<Transaction> transaction;
    const std::optional<RequestStart> start = beginRequest(transaction, kind, origin.token, key);
    if (!start)
        return errorReply(request.command + QStringLiteral(": the database is busy; try again"));
    if (start->storedReply) {
        // Seen before: its effect is in the database already, and so is the
        // reply its first delivery got.
        transaction->commit();
        if (start->session)
            callerLogin = start->session->login;
        if (replayed)
            *replayed = true;
        nuvMQClassifyMessage earlier;
        earlier.fromWireBytes(*start->storedReply);
        return earlier;
    }
    // After beginRequest(): it may have replaced the connection.
    Pass pass(request, db, engineOptions, counters, entry, key);
    pass.ctx.token = origin.token;
    pass.ctx.connection = origin.connection;
    pass.ctx.session = start->session;
    pass.databaseId = start->databaseId;
    pass.markerBefore = markerText(start->databaseId, start->changeNumber);

    pass.failure = guarded([&] { admit(pass); });
    if (!pass.failure)
        pass.failure = guarded([&] { runCommand(pass); });
    if (pass.failure) {
        *race = raceLost(duplicateMayBeRace);
        if (*race != Race::None)
            return errorReply(describe(request.command, *pass.failure));
        pass.markerBefore = markerText(start->databaseId, start->changeNumber);
        pass.markerAfter = pass.markerBefore;
        pass.changeNumber = 0;
        pass.ctx.reply = nuvMQClassifyMessage();
        setError(pass.ctx.reply, describe(request.command, *pass.failure));
    }
    if (!commit(pass, *transaction)) {
        // A concurrent delivery of the same request may have recorded it
        // first: the next run finds its reply.
        *race = raceLost(duplicateMayBeRace);
        return errorReply(request.command
                          + QStringLiteral(": the database refused to commit the change"));
    }
    if (pass.changeNumber > 0 && pass.changeNumber % foldEvery == 0)
        guarded([&] { foldChanges(db, pass.changeNumber); });
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
    // Before any work, and before the database: what is refused here costs
    // the other callers nothing.
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

std::optional<RequestStart> ServerEngine::beginRequest(std::optional<Transaction> &transaction,
                                                       Transaction::Kind kind, const QString &token,
                                                       const QString &requestKey)
{
    // A write on PostgreSQL reads the session and the marker just before its
    // transaction: read inside a serializable one, the change log would make
    // every two writes conflict (each reads what the other appends). Read
    // before, the marker is never later than the transaction's snapshot,
    // which is all a marker must be; a session that ends meanwhile ends
    // after this request. A read finds them in its snapshot.
    const bool startFirst = kind != Transaction::Kind::Read && isPostgres(db);
    for (int attempt = 0;; ++attempt) {
        std::optional<RequestStart> start;
        if (startFirst) {
            guarded([&] { start = loadRequestStart(db, token, requestKey); });
            if (start)
                transaction.emplace(db, kind, Transaction::Start::WithNextStatement);
        } else {
            // On PostgreSQL the transaction starts in the round trip of the
            // first statement, the one that finds the session and the marker.
            transaction.emplace(db, kind, Transaction::Start::WithNextStatement);
            if (transaction->isActive())
                guarded([&] { start = loadRequestStart(db, token, requestKey); });
        }
        if (start && transaction->isActive())
            return start;
        transaction.reset();
        // A database server that restarted leaves the connection broken: one
        // fresh connection, then the request fails as busy.
        if (attempt > 0 || !isPostgres(db))
            return std::nullopt;
        closeConnection();
        if (!ensureConnection(nullptr))
            return std::nullopt;
    }
}

void ServerEngine::admit(Pass &pass)
{
    pass.review = reviewSession(pass.ctx, engineOptions.sessionTimeoutMinutes);
    // A write keeps the session's row up in its own transaction; a read
    // writes nothing and leaves that to after its snapshot (runLateWork()).
    if (!pass.reads()) {
        keepSession(db, pass.ctx.token, pass.review.upkeep);
        pass.review.upkeep = SessionUpkeep::None;
    }
    admitCaller(pass.ctx, pass.entry, pass.review);
    callerLogin = pass.ctx.login();
    if ((pass.entry.flags & Writes) && !(pass.entry.flags & IdList))
        checkRecordCount(pass.ctx.request, engineOptions);
}

void ServerEngine::runCommand(Pass &pass)
{
    Context &ctx = pass.ctx;
    const qint64 rowsBefore = ctx.counters.changedRows;
    pass.markerAfter = pass.markerBefore;
    if (!(pass.entry.flags & OutsideTransaction)) {
        pass.entry.handler(ctx);
        checkReply(ctx.reply, engineOptions);
        if (pass.entry.flags & Writes) {
            // Other writes may have committed since the request began: the
            // state it is applied to is the change just before its own.
            pass.changeNumber = recordChange(db);
            pass.markerBefore = markerText(pass.databaseId, pass.changeNumber - 1);
            pass.markerAfter = markerText(pass.databaseId, pass.changeNumber);
        }
    }
    // A login has made the session only now.
    if (ctx.session)
        callerLogin = ctx.login();
    pass.changedRows = ctx.counters.changedRows != rowsBefore;
}

bool ServerEngine::commit(Pass &pass, Transaction &transaction)
{
    if (!pass.keepsChanges()) {
        transaction.rollback();
        return true;
    }
    // A keyed request records its reply with its effect, in one commit (and
    // on PostgreSQL in the commit's round trip); one with work still to do
    // records it after that work (runLateWork()).
    if (pass.requestKey.isEmpty() || pass.hasLateWork() || !pass.changedRows)
        return transaction.commit();
    pass.addMarker();
    return transaction.commitWith(recordReplySql(),
                                  recordReplyValues(pass.requestKey, pass.ctx.reply));
}

void ServerEngine::runLateWork(Pass &pass)
{
    Context &ctx = pass.ctx;
    // Outside any transaction: one short write, at most once a minute per
    // session, that needs no snapshot and takes no database-wide lock.
    if (pass.review.upkeep != SessionUpkeep::None)
        guarded([&] { keepSession(db, ctx.token, pass.review.upkeep); });
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
        Transaction transaction(db, Transaction::Kind::Write);
        if (transaction.isActive())
            transaction.commitWith(recordReplySql(), recordReplyValues(pass.requestKey, ctx.reply));
    }
}

QString ServerEngine::recordReplySql()
{
    return QStringLiteral("INSERT INTO processed_requests(request_key, reply, processed)"
                          " VALUES (?, ?, ?)");
}

QVariantList ServerEngine::recordReplyValues(const QString &requestKey,
                                             const nuvMQClassifyMessage &reply)
{
    return { requestKey, reply.toWireBytes(), nowText() };
}

} // namespace nuvserver

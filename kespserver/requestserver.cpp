// SPDX-License-Identifier: Apache-2.0
#include "requestserver.h"

#include "base64text.h"
#include "connectionstate.h"
#include "exitstatus.h"
#include "fieldvalues.h"
#include "logtext.h"
#include "protocolwords.h"
#include "senderidentity.h"
#include "serverengine.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QThread>
#include <QUuid>

#include <cstdio>
#include <poll.h>

namespace kesp {

volatile std::sig_atomic_t RequestServer::stopRequested = 0;
volatile std::sig_atomic_t RequestServer::statusRequested = 0;

namespace {
const QByteArray subscriptionId = "requests";
const QByteArray advisorySubscriptionId = "connections";
// How long the loop waits for a frame before it looks at the signals again.
constexpr int pollMs = 200;
// Records are pruned at start and then this often (when idle).
constexpr qint64 pruneEveryMs = 3600 * 1000;
// Idle sessions are removed this often (when idle).
constexpr qint64 sweepEveryMs = 60 * 1000;

// An answer the daemon gives without the engine.
void refuse(nuvMQClassifyMessage &reply, const QString &text)
{
    reply.command = QLatin1String(nuvprotocol::status::error);
    reply.hasErrorText = true;
    reply.errorText = text;
}

bool subscribeToConnectionAdvisories(stomp::BlockingClient &link)
{
    stomp::Frame subscribe("SUBSCRIBE");
    subscribe.add("id", advisorySubscriptionId).add("destination", connectionAdvisoryTopic);
    subscribe.add("ack", "auto").add("transformation", advisoryTransformation);
    return link.subscribe(subscribe);
}
} // namespace

QString requestKey(const stomp::Frame &message)
{
    return QString::fromUtf8(message.header("message-id") + ' ' + message.header("correlation-id"));
}

QString decodeRequest(const QByteArray &body, nuvMQClassifyMessage *request)
{
    QString problem;
    const QString text = QString::fromLatin1(body);
    if (!nuv::isBase64Text(text, &problem)
        || !request->readWireBytes(nuv::bytesFromBase64Text(text), &problem))
        return problem.isEmpty() ? QStringLiteral("it is damaged") : problem;
    return QString();
}

bool hasExpired(const stomp::Frame &message, qint64 nowMs)
{
    const qint64 expires = message.header("expires").toLongLong();
    return expires > 0 && expires < nowMs;
}

// A request from its arrival to its ACK; filled in by the serving thread,
// and the reply by the worker that runs it.
struct RequestServer::InHand
{
    QElapsedTimer timer;
    QByteArray replyTo;
    QByteArray correlation;
    QByteArray ackId;
    QByteArray messageId;
    QByteArray claimedUser;
    QString word = QStringLiteral("?");
    nuvMQClassifyMessage request;
    nuvMQClassifyMessage reply;
    nuvserver::Origin origin;
    QString key;
    QString user; // whom the engine ran it as
    bool replayed = false;
};

RequestServer::RequestServer(const ServerConfig &config,
                             const std::vector<nuvserver::ServerEngine *> &engines)
    : config(config)
    , pool(engines)
{
    counters.setWorkers(pool.size());
}

void RequestServer::log(int level, const QString &line) const
{
    if (level > config.verbosity)
        return;
    const QByteArray text
        = QStringLiteral("%1 %2: %3\n")
              .arg(QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs), config.name, line)
              .toUtf8();
    std::fwrite(text.constData(), 1, size_t(text.size()), stderr);
    std::fflush(stderr);
}

void RequestServer::pollSignals()
{
    notifier.alive();
    if (statusRequested) {
        statusRequested = 0;
        log(0, counters.statusLine());
    }
}

void RequestServer::pause(int ms)
{
    const QDeadlineTimer deadline(ms);
    while (!stopRequested && !deadline.hasExpired()) {
        pollSignals();
        QThread::msleep(quint64(qMin<qint64>(50, qMax<qint64>(1, deadline.remainingTime()))));
    }
}

void RequestServer::runNow(const WorkerPool::Job &job)
{
    bool done = false;
    pool.submit(job, [&done] { done = true; });
    waitUntil([&done] { return done; });
}

void RequestServer::waitUntil(const std::function<bool()> &condition)
{
    // The wait ends as soon as a job does, so a reply never waits for a
    // pump.
    while (!condition()) {
        if (link.isOpen())
            link.pump(0);
        notifier.alive();
        pool.waitFinished(20);
        pool.collect();
    }
}

void RequestServer::pruneRecords()
{
    // On a shared database this may wait for other instances' writes.
    const int hours = config.keepRecordsHours;
    runNow([hours](nuvserver::ServerEngine &engine) { engine.forgetProcessedRequests(hours); });
    sincePrune.restart();
}

void RequestServer::housekeeping()
{
    if (sincePrune.elapsed() > pruneEveryMs)
        pruneRecords();
    if (!sinceSweep.isValid() || sinceSweep.elapsed() > sweepEveryMs) {
        runNow([](nuvserver::ServerEngine &engine) { engine.endIdleSessions(); });
        sinceSweep.restart();
    }
}

void RequestServer::connectionClosed(const stomp::Frame &advisory)
{
    const QString connection = closedConnection(advisory.body);
    if (connection.isEmpty())
        return;
    // Every instance hears it; ending a session twice does no harm. It
    // waits for a free worker like a request, and this thread goes on.
    pool.submit([connection](nuvserver::ServerEngine &engine) { engine.endConnection(connection); },
                [this, connection] {
                    log(2,
                        QStringLiteral("connection %1 closed; its sessions ended").arg(connection));
                });
}

RequestServer::Connection RequestServer::connectOnce(QString *why)
{
    const auto failed = [&] {
        *why = link.errorText();
        const bool refused = link.wasRefused();
        link.abort();
        return refused ? Connection::Refused : Connection::Failed;
    };
    if (!link.open(config.brokers, config.settings))
        return failed();
    if (peers) {
        const Connection met = meetPeers();
        if (met != Connection::Serving) {
            *why = link.errorText();
            return met;
        }
    }
    if (!link.subscribe(subscriptionId, config.settings.requestQueue.toUtf8(), config.prefetch))
        return failed();
    if (config.connectionAdvisories && !subscribeToConnectionAdvisories(link)) {
        const Connection result = failed();
        *why = QStringLiteral("cannot follow the broker's connection advisories (%1): %2; the "
                              "server's broker account needs read access to them, and the broker "
                              "XStream and Jettison on its class path (or set "
                              "NUV_KESP_CONNECTION_ADVISORIES=off)")
                   .arg(QLatin1String(connectionAdvisoryTopic), *why);
        return result;
    }
    counters.connected(link.label());
    const QString serving = QStringLiteral("serving %1 at %2 (prefetch %3, workers %4)")
                                .arg(config.settings.requestQueue, link.label())
                                .arg(config.prefetch)
                                .arg(pool.size());
    log(0, serving);
    notifier.ready(serving);
    return Connection::Serving;
}

void RequestServer::checkPeers(const QString &databaseId)
{
    // The name alone may repeat (two hosts, one configuration); the answer
    // must reach this very instance.
    const QString instance
        = config.name + QLatin1Char('/') + QUuid::createUuid().toString(QUuid::WithoutBraces);
    peers = std::make_unique<PeerCheck>(config.settings.requestQueue, instance, databaseId);
}

RequestServer::Connection RequestServer::meetPeers()
{
    stomp::Frame subscribe("SUBSCRIBE");
    subscribe.add("id", PeerCheck::subscriptionId).add("destination", peers->topic());
    subscribe.add("ack", "auto");
    if (!link.subscribe(subscribe) || !link.send(peers->announcement())) {
        link.abort();
        return link.wasRefused() ? Connection::Refused : Connection::Failed;
    }
    const QDeadlineTimer deadline(config.peerCheckMs);
    stomp::Frame frame;
    while (!deadline.hasExpired() && !stopRequested) {
        if (!link.receive(&frame, int(qMin<qint64>(pollMs, deadline.remainingTime())))) {
            if (!link.isOpen())
                return Connection::Failed;
            continue;
        }
        if (frame.command != "MESSAGE" || frame.header("subscription") != PeerCheck::subscriptionId)
            continue;
        if (peers->judge(frame) == PeerCheck::Verdict::Conflict) {
            log(0,
                QStringLiteral("instance %1 on %2 serves the database %3, this instance the "
                               "database %4; instances on one request queue must serve one "
                               "database, so this one does not start (check --database)")
                    .arg(peers->otherInstance(), config.settings.requestQueue,
                         peers->otherDatabase(), peers->ownDatabase()));
            link.close(3000);
            return Connection::OtherDatabase;
        }
        answerPeer(frame);
    }
    return Connection::Serving;
}

void RequestServer::answerPeer(const stomp::Frame &message)
{
    if (peers->judge(message) != PeerCheck::Verdict::Answer)
        return;
    log(0,
        QStringLiteral("instance %1 tries to serve this queue with the database %2; told it "
                       "that this one serves another")
            .arg(peers->otherInstance(), peers->otherDatabase()));
    link.send(peers->answer());
}

bool RequestServer::startMetrics(QString *error)
{
    if (config.metricsHost.isEmpty())
        return true;
    metrics = std::make_unique<MetricsServer>(
        [this](const QByteArray &path, int *status) { return metricsPage(path, status); });
    if (!metrics->start(config.metricsHost, config.metricsPort, error))
        return false;
    log(0,
        QStringLiteral("metrics at http://%1:%2/metrics")
            .arg(config.metricsHost.contains(QLatin1Char(':'))
                     ? QStringLiteral("[%1]").arg(config.metricsHost)
                     : config.metricsHost)
            .arg(metrics->port()));
    return true;
}

QByteArray RequestServer::metricsPage(const QByteArray &path, int *status) const
{
    if (path == "/metrics") {
        *status = 200;
        return counters.prometheusText();
    }
    if (path == "/status") {
        // Health: 200 only while the instance takes requests.
        *status = counters.isConnected() ? 200 : 503;
        return (config.name + QStringLiteral(" ") + counters.statusLine() + QLatin1Char('\n'))
            .toUtf8();
    }
    *status = 404;
    return "not found; try /metrics or /status\n";
}

int RequestServer::run()
{
    pruneRecords();
    int backoff = config.firstBackoffMs;
    int status = ExitOk;
    while (!stopRequested) {
        pollSignals();
        QString why;
        const Connection connection = connectOnce(&why);
        if (connection == Connection::Refused) {
            // Wrong credentials or rights stay wrong: a service that retried
            // for ever would look healthy while serving nothing.
            log(0, why + QStringLiteral("; giving up (fix the broker account)"));
            status = ExitBrokerRefused;
            break;
        }
        if (connection == Connection::OtherDatabase) {
            status = ExitOtherDatabase;
            break;
        }
        if (connection == Connection::Failed) {
            log(0, QStringLiteral("%1; trying again in %2 ms").arg(why).arg(backoff));
            notifier.status(QStringLiteral("not connected: %1").arg(why));
            pause(backoff);
            backoff = qMin(config.maxBackoffMs, backoff * 2);
            continue;
        }
        backoff = config.firstBackoffMs;
        serveConnection();
        counters.disconnected();
    }
    notifier.stopping();
    log(0, QStringLiteral("stopped; ") + counters.statusLine());
    return status;
}

void RequestServer::serveConnection()
{
    lost = false;
    stomp::Frame frame;
    while (!stopRequested && !lost) {
        pollSignals();
        // Replies and ACKs of the requests that finished.
        pool.collect();
        if (lost)
            break;
        if (link.receive(&frame, 0)) {
            dispatch(frame);
            continue;
        }
        if (!link.isOpen()) {
            log(0, link.errorText());
            lost = true;
            break;
        }
        // Idle: a good moment for housekeeping.
        if (pool.inHand() == 0)
            housekeeping();
        waitForWork(pollMs);
    }
    if (lost) {
        link.abort();
        // The requests in hand still run to their commit; their replies
        // cannot leave, and the broker delivers them again (here or to
        // another instance), answered then from their record.
        drain();
        return;
    }
    if (pool.inHand() > 0)
        log(0, QStringLiteral("stopping: finishing %1 requests in hand").arg(pool.inHand()));
    drain();
    // Whatever the broker prefetched for us and we did not start goes back
    // to the queue when we disconnect.
    notifier.stopping();
    link.close(3000);
    log(0, QStringLiteral("disconnected from the broker"));
}

void RequestServer::waitForWork(int waitMs)
{
    pollfd watched[2] = { { link.descriptor(), POLLIN, 0 }, { pool.readyDescriptor(), POLLIN, 0 } };
    // A signal ends the wait early (EINTR), which is what a stop wants.
    ::poll(watched, 2, waitMs);
}

void RequestServer::drain()
{
    waitUntil([this] { return pool.inHand() == 0; });
}

void RequestServer::dispatch(const stomp::Frame &frame)
{
    if (frame.command == "MESSAGE" && frame.header("subscription") == advisorySubscriptionId) {
        connectionClosed(frame);
    } else if (frame.command == "MESSAGE" && peers
               && frame.header("subscription") == PeerCheck::subscriptionId) {
        answerPeer(frame);
    } else if (frame.command == "MESSAGE") {
        serve(frame);
    } else if (frame.command == "ERROR") {
        // ActiveMQ reports a failed SEND (a reply to a caller that has
        // gone, and its temporary queue with it) and keeps the connection.
        log(0,
            QStringLiteral("the broker reports: %1")
                .arg(QString::fromUtf8(frame.header("message"))));
    }
}

void RequestServer::serve(const stomp::Frame &message)
{
    const auto request = std::make_shared<InHand>();
    request->timer.start();
    request->replyTo = message.header("reply-to");
    request->correlation = message.header("correlation-id");
    request->ackId = message.header("ack");
    request->messageId = message.header("message-id");
    request->claimedUser = message.header("nuv-user");

    // Its caller has given up: an answer would only be dropped.
    if (hasExpired(message, QDateTime::currentMSecsSinceEpoch())) {
        stomp::Frame ack("ACK");
        ack.add("id", request->ackId);
        if (!link.send(ack)) {
            log(0, link.errorText());
            lost = true;
            return;
        }
        counters.expired();
        log(1,
            QStringLiteral("expired request %1 dropped unanswered")
                .arg(logField(QString::fromLatin1(request->correlation))));
        return;
    }

    const QString problem = decodeRequest(message.body, &request->request);
    if (!problem.isEmpty()) {
        refuse(request->reply, QStringLiteral("the request could not be decoded: ") + problem);
        finish(*request);
        return;
    }
    request->word = request->request.command;
    const QByteArray token = message.header("nuv-session-token");
    request->origin = { QString::fromLatin1(token), senderConnection(message) };
    request->key = requestKey(message);
    if (!stomp::isSessionToken(token)) {
        refuse(request->reply,
               nuvserver::echoed(request->word)
                   + QStringLiteral(": not logged in: the request carries no valid session token"));
        finish(*request);
    } else if (request->origin.connection.isEmpty()) {
        // Without it a session could not be bound to its connection.
        refuse(request->reply,
               nuvserver::echoed(request->word)
                   + QStringLiteral(": the broker did not name the connection that sent the "
                                    "request (message-id '%1')")
                         .arg(QString::fromUtf8(request->messageId.left(100))));
        finish(*request);
    } else {
        pool.submit(
            [this, request](nuvserver::ServerEngine &engine) {
                counters.engineEntered();
                request->reply = engine.handle(request->request, request->origin, request->key,
                                               &request->replayed);
                request->user = engine.lastCaller();
                const nuvserver::RequestCounters work = engine.lastRequestCounters();
                counters.databaseWork(work.roundTrips, work.retries);
                counters.engineLeft();
            },
            [this, request] { finish(*request); });
    }
}

void RequestServer::finish(const InHand &request)
{
    if (lost || !link.isOpen()) {
        log(1,
            QStringLiteral("%1 finished after the broker connection was lost; the broker "
                           "delivers it again")
                .arg(logField(request.word, 40)));
        return;
    }
    if (!request.replyTo.isEmpty()) {
        QString body;
        nuvMQClassifyMessage reply = request.reply;
        reply.convertToBase64(body);
        stomp::Frame answer("SEND");
        answer.add("destination", request.replyTo).add("correlation-id", request.correlation);
        answer.add("amq-msg-type", "text").add("nuv-message-type", reply.getType().toUtf8());
        answer.body = body.toLatin1();
        if (!link.send(answer)) {
            log(0, link.errorText());
            lost = true;
            return;
        }
    }
    // Only now: the effect is committed and the reply is on its way.
    stomp::Frame ack("ACK");
    ack.add("id", request.ackId);
    if (!link.send(ack)) {
        log(0, link.errorText());
        lost = true;
        return;
    }
    const bool failed = request.reply.command == QLatin1String(nuvprotocol::status::error);
    counters.answered(request.timer.nsecsElapsed() / 1000, failed, request.replayed);
    logRequest(request);
}

void RequestServer::logRequest(const InHand &request) const
{
    if (config.verbosity >= 1) {
        // The command, who asked and how it went; never an argument (a
        // password travels in the arguments of several commands).
        // Every field that a client chose is escaped and cut: a line break
        // in a command word must not start a line of its own. The user is
        // the one the engine ran the request as, never a claim.
        const nuvMQClassifyMessage &reply = request.reply;
        QString result
            = reply.command.isEmpty() ? QStringLiteral("(no status)") : logField(reply.command, 20);
        if (reply.command == QLatin1String(nuvprotocol::status::error))
            result += QStringLiteral(" (%1)").arg(logField(reply.errorText));
        log(1,
            QStringLiteral("%1 user=%2 %3 ms %4%5%6")
                .arg(logField(request.word, 40),
                     request.user.isEmpty() ? QStringLiteral("-") : logField(request.user, 100),
                     QString::number(double(request.timer.nsecsElapsed()) / 1e6, 'f', 1), result,
                     request.replayed ? QStringLiteral(" [replayed]") : QString(),
                     request.replyTo.isEmpty() ? QStringLiteral(" [one-way]") : QString()));
    }
    if (config.verbosity >= 2)
        log(2,
            QStringLiteral("  message-id=%1 correlation-id=%2 reply-to=%3 claimed-user=%4")
                .arg(logField(QString::fromUtf8(request.messageId)),
                     logField(QString::fromLatin1(request.correlation)),
                     logField(QString::fromUtf8(request.replyTo)),
                     logField(QString::fromUtf8(request.claimedUser), 100)));
}

} // namespace kesp

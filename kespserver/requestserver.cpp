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

RequestServer::RequestServer(const ServerConfig &config, nuvserver::ServerEngine &engine)
    : config(config)
    , engine(engine)
{ }

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

void RequestServer::runOnWorker(const std::function<void()> &job)
{
    worker.start(job);
    // The engine works; this thread keeps the broker connection alive. The
    // wait ends as soon as the job does, so a reply never waits for a pump.
    while (!worker.wait(20)) {
        link.pump(0);
        notifier.alive();
    }
}

void RequestServer::pruneRecords()
{
    // On a shared database this may wait for other instances' writes.
    runOnWorker([this] { engine.forgetProcessedRequests(config.keepRecordsHours); });
    sincePrune.restart();
}

void RequestServer::housekeeping()
{
    if (sincePrune.elapsed() > pruneEveryMs)
        pruneRecords();
    if (!sinceSweep.isValid() || sinceSweep.elapsed() > sweepEveryMs) {
        runOnWorker([this] { engine.endIdleSessions(); });
        sinceSweep.restart();
    }
}

void RequestServer::connectionClosed(const stomp::Frame &advisory)
{
    const QString connection = closedConnection(advisory.body);
    if (connection.isEmpty())
        return;
    // Every instance hears it; ending a session twice does no harm.
    runOnWorker([&] { engine.endConnection(connection); });
    log(2, QStringLiteral("connection %1 closed; its sessions ended").arg(connection));
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
    const QString serving = QStringLiteral("serving %1 at %2 (prefetch %3)")
                                .arg(config.settings.requestQueue, link.label())
                                .arg(config.prefetch);
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
    stomp::Frame frame;
    while (!stopRequested) {
        pollSignals();
        if (!link.receive(&frame, pollMs)) {
            if (link.isOpen()) {
                // Idle: a good moment for housekeeping.
                housekeeping();
                continue;
            }
            log(0, link.errorText());
            link.abort();
            return;
        }
        if (frame.command == "MESSAGE" && frame.header("subscription") == advisorySubscriptionId) {
            connectionClosed(frame);
        } else if (frame.command == "MESSAGE" && peers
                   && frame.header("subscription") == PeerCheck::subscriptionId) {
            answerPeer(frame);
        } else if (frame.command == "MESSAGE") {
            if (serve(frame) == Outcome::Lost) {
                log(0, link.errorText());
                link.abort();
                return;
            }
        } else if (frame.command == "ERROR") {
            // ActiveMQ reports a failed SEND (a reply to a caller that has
            // gone, and its temporary queue with it) and keeps the connection.
            log(0,
                QStringLiteral("the broker reports: %1")
                    .arg(QString::fromUtf8(frame.header("message"))));
        }
    }
    // Whatever the broker prefetched for us and we did not acknowledge goes
    // back to the queue when we disconnect.
    notifier.stopping();
    link.close(3000);
    log(0, QStringLiteral("disconnected from the broker"));
}

RequestServer::Outcome RequestServer::serve(const stomp::Frame &message)
{
    QElapsedTimer timer;
    timer.start();
    const QByteArray replyTo = message.header("reply-to");
    const QByteArray correlation = message.header("correlation-id");
    stomp::Frame ack("ACK");
    ack.add("id", message.header("ack"));

    // Its caller has given up: an answer would only be dropped.
    if (hasExpired(message, QDateTime::currentMSecsSinceEpoch())) {
        if (!link.send(ack))
            return Outcome::Lost;
        counters.expired();
        log(1,
            QStringLiteral("expired request %1 dropped unanswered")
                .arg(logField(QString::fromLatin1(correlation))));
        return Outcome::Served;
    }

    nuvMQClassifyMessage request;
    nuvMQClassifyMessage reply;
    bool replayed = false;
    QString word = QStringLiteral("?");
    QString user;
    const QString problem = decodeRequest(message.body, &request);
    if (!problem.isEmpty()) {
        reply.command = QLatin1String(nuvprotocol::status::error);
        reply.hasErrorText = true;
        reply.errorText = QStringLiteral("the request could not be decoded: ") + problem;
    } else {
        word = request.command;
        const QByteArray token = message.header("nuv-session-token");
        const nuvserver::Origin origin { QString::fromLatin1(token), senderConnection(message) };
        const QString key = requestKey(message);
        if (!stomp::isSessionToken(token)) {
            refuse(reply,
                   nuvserver::echoed(word)
                       + QStringLiteral(
                           ": not logged in: the request carries no valid session token"));
        } else if (origin.connection.isEmpty()) {
            // Without it a session could not be bound to its connection.
            refuse(reply,
                   nuvserver::echoed(word)
                       + QStringLiteral(": the broker did not name the connection that sent "
                                        "the request (message-id '%1')")
                             .arg(QString::fromUtf8(message.header("message-id").left(100))));
        } else {
            runOnWorker([&] {
                reply = engine.handle(request, origin, key, &replayed);
                user = engine.lastCaller();
                counters.databaseRoundTrips(engine.lastRequestCounters().roundTrips);
            });
        }
    }

    if (!replyTo.isEmpty()) {
        QString body;
        reply.convertToBase64(body);
        stomp::Frame answer("SEND");
        answer.add("destination", replyTo).add("correlation-id", correlation);
        answer.add("amq-msg-type", "text").add("nuv-message-type", reply.getType().toUtf8());
        answer.body = body.toLatin1();
        if (!link.send(answer))
            return Outcome::Lost;
    }
    // Only now: the effect is committed and the reply is on its way.
    if (!link.send(ack))
        return Outcome::Lost;

    const bool failed = reply.command == QLatin1String(nuvprotocol::status::error);
    counters.answered(timer.nsecsElapsed() / 1000, failed, replayed);
    if (config.verbosity >= 1) {
        // The command, who asked and how it went; never an argument (a
        // password travels in the arguments of several commands).
        // Every field that a client chose is escaped and cut: a line break
        // in a command word must not start a line of its own. The user is
        // the one the engine ran the request as, never a claim.
        QString result
            = reply.command.isEmpty() ? QStringLiteral("(no status)") : logField(reply.command, 20);
        if (failed)
            result += QStringLiteral(" (%1)").arg(logField(reply.errorText));
        log(1,
            QStringLiteral("%1 user=%2 %3 ms %4%5%6")
                .arg(logField(word, 40), user.isEmpty() ? QStringLiteral("-") : logField(user, 100),
                     QString::number(double(timer.nsecsElapsed()) / 1e6, 'f', 1), result,
                     replayed ? QStringLiteral(" [replayed]") : QString(),
                     replyTo.isEmpty() ? QStringLiteral(" [one-way]") : QString()));
    }
    if (config.verbosity >= 2)
        log(2,
            QStringLiteral("  message-id=%1 correlation-id=%2 reply-to=%3 claimed-user=%4")
                .arg(logField(QString::fromUtf8(message.header("message-id"))),
                     logField(QString::fromLatin1(correlation)),
                     logField(QString::fromUtf8(replyTo)),
                     logField(QString::fromUtf8(message.header("nuv-user")), 100)));
    return Outcome::Served;
}

} // namespace kesp

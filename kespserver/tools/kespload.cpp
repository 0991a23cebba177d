// SPDX-License-Identifier: Apache-2.0
// nuvkespload: measures nuvkesp-server through the broker. Starts the given
// number of server instances on a fresh database in a temporary directory,
// sends numbered requests from several callers through the real transport
// plugin and prints the throughput and the round-trip percentiles.
//
//   NUV_BROKER_DIR=... nuvkespload [instances] [requests] [threads] [--json]
//   NUV_BROKER_DIR=... nuvkespload --roles [count] [warm-up] [--json]
//   NUV_BROKER_DIR=... nuvkespload --fairness [instances] [seconds] [--json]
//
// --roles times getRoles() through the classify plugin, one call at a time,
// against one instance: the round trip of a small read with the real engine
// answering. --fairness has one user send the heaviest request the limits
// allow (CFDOCMULTICLASSIFY of NUV_SERVER_MAX_IDS documents) in a loop while
// another user calls CFROLES, and reports the second user's round trips:
// what one user's load costs the others. --json prints one JSON object (for
// scripts/bench).
//
// The database is SQLite, or a fresh database on a PostgreSQL server when
// NUV_TEST_POSTGRES_URL names one (or NUV_TEST_POSTGRES_DIR the state
// directory of scripts/postgres), dropped again at the end.

#include "brokerenv.h"
#include "classifyinterface.h"
#include "installlayout.h"
#include "loadclient.h"
#include "nuvmqclientinterface.h"
#include "protocolwords.h"
#include "scratchdatabase.h"
#include "serverengine.h"
#include "serverprocess.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QPluginLoader>
#include <QTemporaryDir>
#include <QThread>

#include <atomic>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

namespace {

namespace words = nuvprotocol::words;

const QString loadUser = QStringLiteral("load");
const QString loadPassword = QStringLiteral("load-password");

// A fresh database and the server instances on it, stopped on destruction.
class Servers
{
public:
    bool start(const stomp::BrokerEnv &broker, int instances)
    {
        const QString database = scratch.location();
        nuvserver::EngineOptions options = nuvserver::EngineOptions::fromEnvironment(database);
        options.pbkdf2Iterations = 1000; // logins are not what is measured
        QString error;
        if (!nuvserver::ServerEngine::initialiseDatabase(options, loadUser, loadPassword,
                                                         QStringLiteral("Load"), &error)) {
            std::fprintf(stderr, "nuvkespload: %s\n", qPrintable(error));
            return false;
        }
        const QString address = QStringLiteral("%1:%2").arg(broker.host()).arg(broker.stompPort());
        for (int i = 0; i < instances; ++i) {
            list.push_back(std::make_unique<kesp::ServerProcess>(
                QStringLiteral("load%1").arg(i), database, address,
                dir.filePath(QStringLiteral("server%1.log").arg(i)),
                QStringList { QStringLiteral("--quiet") }));
            if (!list.back()->start()) {
                std::fprintf(stderr, "nuvkespload: a server did not start:\n%s\n",
                             qPrintable(list.back()->log()));
                return false;
            }
        }
        return true;
    }

    void stop()
    {
        for (const auto &server : list)
            server->stop();
    }

    ~Servers() { stop(); }

    QTemporaryDir dir;
    testdatabase::ScratchDatabase scratch { dir.filePath(QStringLiteral("load.db")) };
    std::vector<std::unique_ptr<kesp::ServerProcess>> list;
};

int measureRoles(const stomp::BrokerEnv &broker, int count, int warmUp, bool json)
{
    Servers servers;
    if (!servers.start(broker, 1))
        return 1;
    QPluginLoader loader(nuvlayout::classifyPluginFile());
    auto *root = qobject_cast<ClassifyInterface *>(loader.instance());
    if (!root) {
        std::fprintf(stderr, "nuvkespload: %s\n", qPrintable(loader.errorString()));
        return 1;
    }
    std::unique_ptr<ClassifyInterface> client(root->createInstance(stomp::BrokerEnv::pluginDir()));
    if (!client->connectToNuvKESP(broker.host(), broker.stompPort(), loadUser, loadPassword)) {
        std::fprintf(stderr, "nuvkespload: login: %s\n", qPrintable(client->errorString()));
        return 1;
    }
    QVector<qint64> micros;
    micros.reserve(count);
    QElapsedTimer clock;
    for (int n = 0; n < warmUp + count; ++n) {
        clock.start();
        const QStringList roles = client->getRoles();
        const qint64 elapsed = clock.nsecsElapsed() / 1000;
        if (roles.isEmpty()) {
            std::fprintf(stderr, "nuvkespload: getRoles failed: %s\n",
                         qPrintable(client->errorString()));
            return 1;
        }
        if (n >= warmUp)
            micros.append(elapsed);
    }
    client->disconnectFromNuvKESP();
    const double median = kesp::percentileMillis(micros, 0.5) * 1000.0;
    const double p99 = kesp::percentileMillis(micros, 0.99) * 1000.0;
    if (json)
        std::printf("{\"kind\": \"rtt\", \"exchange\": \"server_getRoles\", \"count\": %d, "
                    "\"median_us\": %.1f, \"p99_us\": %.1f}\n",
                    count, median, p99);
    else
        std::printf("getRoles() against one instance, %d calls after %d warm-up: median %.1f us, "
                    "p99 %.1f us\n",
                    count, warmUp, median, p99);
    return 0;
}

// Sends the engine's answer to `request` on `token`; null text on success.
QString engineCall(nuvserver::ServerEngine &engine, const QString &token, const QString &word,
                   const QStringList &items, const QString &docId = QString(),
                   QString *replyDocId = nullptr)
{
    nuvMQClassifyMessage request = kesp::command(word, items);
    request.setDocId(docId);
    const nuvMQClassifyMessage reply = engine.handle(request, token);
    if (replyDocId)
        *replyDocId = reply.getDocId();
    return reply.command == QLatin1String(nuvprotocol::status::error)
        ? word + QStringLiteral(": ") + reply.errorText
        : QString();
}

// Two users besides the administrator, and `count` documents of the first:
// the ids, joined by U+FEFF as CFDOCMULTICLASSIFY takes them.
QString seedFairness(const QString &database, int count, QString *error)
{
    nuvserver::EngineOptions options = nuvserver::EngineOptions::fromEnvironment(database);
    options.pbkdf2Iterations = 1000;
    nuvserver::ServerEngine engine(options);
    if (!engine.open(error))
        return QString();
    const QString admin = QStringLiteral("00000000000000000000000000000001");
    const QString heavy = QStringLiteral("00000000000000000000000000000002");
    *error = engineCall(engine, admin, QLatin1String(words::login), { loadUser, loadPassword, {} });
    for (const char *name : { "heavy", "light" }) {
        if (error->isEmpty())
            *error
                = engineCall(engine, admin, QLatin1String(words::setUsers),
                             { QStringList { QLatin1String(name), loadPassword, QLatin1String(name),
                                             QString(), QStringLiteral("0") }
                                   .join(nuvprotocol::recordSeparator) },
                             QStringLiteral("0"));
    }
    if (error->isEmpty())
        *error = engineCall(engine, admin, QLatin1String(words::saveDocTypes), { "Letter" });
    if (error->isEmpty())
        *error = engineCall(engine, heavy, QLatin1String(words::login),
                            { QStringLiteral("heavy"), loadPassword, {} });
    QStringList ids;
    for (int i = 0; i < count && error->isEmpty(); ++i) {
        QString id;
        *error = engineCall(engine, heavy, QLatin1String(words::getNextOid), {}, QString(), &id);
        if (error->isEmpty())
            *error = engineCall(engine, heavy, QLatin1String(words::newClassify),
                                { QStringLiteral("Letter"), QStringLiteral("Document %1").arg(i) },
                                id);
        ids.append(id);
    }
    return error->isEmpty() ? ids.join(nuvprotocol::recordSeparator) : QString();
}

// A transport logged in as `user`; null with the reason printed.
std::unique_ptr<nuvMQClientInterface> loggedIn(const stomp::BrokerEnv &broker, const QString &user)
{
    std::unique_ptr<nuvMQClientInterface> transport = stomp::newTransport();
    if (!transport || !transport->connectToBroker(broker.host(), broker.stompPort())) {
        std::fprintf(stderr, "nuvkespload: %s cannot connect\n", qPrintable(user));
        return nullptr;
    }
    transport->setUserName(user);
    nuvMQClassifyMessage login
        = kesp::command(QLatin1String(words::login), { user, loadPassword, {} });
    nuvMQClassifyMessage reply;
    if (!transport->sendSyncMessage(&login, &reply, nuvClassifyMessageKind, 30, 0, QString(),
                                    nullptr)
        || reply.command == QLatin1String(nuvprotocol::status::error)) {
        std::fprintf(stderr, "nuvkespload: %s cannot log in: %s%s\n", qPrintable(user),
                     qPrintable(transport->lastErrorText), qPrintable(reply.errorText));
        return nullptr;
    }
    return transport;
}

// One call; its round trip in microseconds, or -1 when it failed.
qint64 timedCall(nuvMQClientInterface &transport, nuvMQClassifyMessage request)
{
    nuvMQClassifyMessage reply;
    QElapsedTimer clock;
    clock.start();
    const bool ok = transport.sendSyncMessage(&request, &reply, nuvClassifyMessageKind, 60, 0,
                                              QString(), nullptr);
    const qint64 micros = clock.nsecsElapsed() / 1000;
    if (!ok || reply.command == QLatin1String(nuvprotocol::status::error)) {
        std::fprintf(stderr, "nuvkespload: %s failed: %s%s\n", qPrintable(request.command),
                     qPrintable(transport.lastErrorText), qPrintable(reply.errorText));
        return -1;
    }
    return micros;
}

int measureFairness(const stomp::BrokerEnv &broker, int instances, int seconds, bool json)
{
    Servers servers;
    if (!servers.start(broker, instances))
        return 1;
    const int count = nuvserver::EngineOptions::fromEnvironment(servers.scratch.location()).maxIds;
    QString error;
    const QString ids = seedFairness(servers.scratch.location(), count, &error);
    if (!error.isEmpty()) {
        std::fprintf(stderr, "nuvkespload: %s\n", qPrintable(error));
        return 1;
    }
    std::unique_ptr<nuvMQClientInterface> heavy = loggedIn(broker, QStringLiteral("heavy"));
    std::unique_ptr<nuvMQClientInterface> light = loggedIn(broker, QStringLiteral("light"));
    if (!heavy || !light)
        return 1;

    std::atomic<bool> done { false };
    QVector<qint64> heavyMicros;
    bool heavyFailed = false;
    std::thread loop([&] {
        for (int n = 0; !done; ++n) {
            nuvMQClassifyMessage request
                = kesp::command(QLatin1String(words::multipleClassify),
                                { QStringLiteral("title") + nuvprotocol::recordSeparator
                                  + QStringLiteral("Round %1").arg(n) });
            request.setDocId(ids);
            const qint64 micros = timedCall(*heavy, request);
            heavyFailed = heavyFailed || micros < 0;
            if (micros < 0)
                return;
            heavyMicros.append(micros);
        }
    });
    QVector<qint64> lightMicros;
    bool lightFailed = false;
    QElapsedTimer wall;
    wall.start();
    while (wall.elapsed() < qint64(seconds) * 1000 && !lightFailed) {
        const qint64 micros = timedCall(*light, kesp::command(QLatin1String(words::getRoles), {}));
        lightFailed = micros < 0;
        if (!lightFailed)
            lightMicros.append(micros);
        // A user at work calls now and then, not back to back: the calls
        // land at all points of the heavy requests.
        QThread::msleep(20);
    }
    done = true;
    loop.join();
    heavy->disconnectFromBroker();
    light->disconnectFromBroker();
    servers.stop();
    if (heavyFailed || lightFailed)
        return 1;

    const double p50 = kesp::percentileMillis(lightMicros, 0.5);
    const double p99 = kesp::percentileMillis(lightMicros, 0.99);
    const double worst = kesp::percentileMillis(lightMicros, 1.0);
    const double heavyP50 = kesp::percentileMillis(heavyMicros, 0.5);
    if (json)
        std::printf("{\"kind\": \"fairness\", \"instances\": %d, \"ids\": %d, "
                    "\"heavy_requests\": %d, \"heavy_p50_ms\": %.1f, \"calls\": %d, "
                    "\"p50_ms\": %.1f, \"p99_ms\": %.1f, \"max_ms\": %.1f}\n",
                    instances, count, int(heavyMicros.size()), heavyP50, int(lightMicros.size()),
                    p50, p99, worst);
    else
        std::printf("%d instances; user 'heavy' sent %d CFDOCMULTICLASSIFY of %d documents "
                    "(p50 %.1f ms each);\nuser 'light' made %d CFROLES calls meanwhile: "
                    "p50 %.1f ms, p99 %.1f ms, max %.1f ms (target p99 <= 200 ms: %s)\n",
                    instances, int(heavyMicros.size()), count, heavyP50, int(lightMicros.size()),
                    p50, p99, worst, p99 <= 200.0 ? "met" : "not met");
    return 0;
}

int measureLoad(const stomp::BrokerEnv &broker, int instances, int requests, int threads, bool json)
{
    Servers servers;
    if (!servers.start(broker, instances))
        return 1;
    kesp::LoadPlan plan;
    plan.host = broker.host();
    plan.port = broker.stompPort();
    plan.user = loadUser;
    plan.password = loadPassword;
    plan.prefix = QStringLiteral("load");
    plan.threads = threads;
    plan.requests = requests;
    const kesp::LoadResult result = kesp::runLoad(plan);
    servers.stop();
    const double perSecond
        = result.wallMillis > 0 ? 1000.0 * result.answered / double(result.wallMillis) : 0.0;
    const double p50 = kesp::percentileMillis(result.latenciesMicros, 0.5);
    const double p99 = kesp::percentileMillis(result.latenciesMicros, 0.99);
    if (json) {
        std::printf("{\"kind\": \"load\", \"instances\": %d, \"threads\": %d, \"requests\": %d, "
                    "\"answered\": %d, \"failed\": %d, \"wall_ms\": %lld, \"per_second\": %.1f, "
                    "\"p50_ms\": %.3f, \"p99_ms\": %.3f}\n",
                    instances, threads, requests, result.answered, int(result.failures.size()),
                    static_cast<long long>(result.wallMillis), perSecond, p50, p99);
    } else {
        std::printf("instances %d, callers %d, requests %d, answered %d, failed %d\n", instances,
                    threads, requests, result.answered, int(result.failures.size()));
        std::printf("wall %lld ms, throughput %.0f requests/s, round trip p50 %.2f ms, "
                    "p99 %.2f ms\n",
                    static_cast<long long>(result.wallMillis), perSecond, p50, p99);
        for (int i = 0; i < instances; ++i)
            std::printf("instance %d answered %lld\n", i,
                        static_cast<long long>(
                            servers.list.at(size_t(i))->reported(QStringLiteral("requests"))));
    }
    for (const QString &failure : result.failures.mid(0, 5))
        std::fprintf(stderr, "nuvkespload: %s\n", qPrintable(failure));
    return result.failures.isEmpty() ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = QCoreApplication::arguments();
    if (args.contains(QStringLiteral("--version"))) {
        std::printf("nuvkespload %s\n", qPrintable(nuvlayout::version()));
        return 0;
    }
    const bool json = args.removeAll(QStringLiteral("--json")) > 0;
    const bool roles = args.removeAll(QStringLiteral("--roles")) > 0;
    const bool fairness = args.removeAll(QStringLiteral("--fairness")) > 0;

    const stomp::BrokerEnv broker;
    if (!broker.ok()) {
        std::fprintf(stderr, "nuvkespload: %s\n", qPrintable(broker.problem()));
        return 2;
    }
    broker.exportCredentials();
    if (roles) {
        const int count = qMax(1, args.value(1, QStringLiteral("2000")).toInt());
        const int warmUp = qMax(0, args.value(2, QStringLiteral("200")).toInt());
        return measureRoles(broker, count, warmUp, json);
    }
    if (fairness) {
        const int instances = qMax(1, args.value(1, QStringLiteral("2")).toInt());
        const int seconds = qMax(1, args.value(2, QStringLiteral("20")).toInt());
        return measureFairness(broker, instances, seconds, json);
    }
    const int instances = qMax(1, args.value(1, QStringLiteral("1")).toInt());
    const int requests = qMax(1, args.value(2, QStringLiteral("2000")).toInt());
    const int threads = qMax(1, args.value(3, QStringLiteral("4")).toInt());
    return measureLoad(broker, instances, requests, threads, json);
}

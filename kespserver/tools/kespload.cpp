// SPDX-License-Identifier: Apache-2.0
// nuvkespload: measures nuvkesp-server through the broker. Starts the given
// number of server instances on a fresh database in a temporary directory,
// sends numbered requests from several callers through the real transport
// plugin and prints the throughput and the round-trip percentiles.
//
//   NUV_BROKER_DIR=... nuvkespload [instances] [requests] [threads] [--workers N] [--json]
//   NUV_BROKER_DIR=... nuvkespload --mix read|write [instances] [threads] [seconds]
//                      [--workers N] [--db-delay MS] [--json]
//   NUV_BROKER_DIR=... nuvkespload --roles [count] [warm-up] [--db-delay MS] [--json]
//   NUV_BROKER_DIR=... nuvkespload --fairness [instances] [seconds] [--json]
//
// Without an option every request is a new clipboard. --mix sends reads
// (CFROLES, CFDOCGETARCHIVES, CFDOCINFO) or writes on rows of the caller's
// own (CFDOCCLASSIFY of its document, a new clipboard) for a given time.
// --roles times getRoles() through the classify plugin, one call at a time,
// against one instance: the round trip of a small read with the real engine
// answering. --db-delay puts nuvdelayproxy between the instances and
// PostgreSQL, adding MS milliseconds each way as a database on another host
// would, and reports the database round trips per request that it counted.
// --workers sets the workers of every instance (default: the server's, the
// number of cores; --roles always runs one). --fairness has one user
// send the heaviest request the limits allow (CFDOCMULTICLASSIFY of NUV_SERVER_MAX_IDS documents)
// in a loop while another user calls CFROLES, and reports the second user's round trips: what one
// user's load costs the others. --json prints one JSON object (for scripts/bench).
//
// The database is SQLite, or a fresh database on a PostgreSQL server when
// NUV_TEST_POSTGRES_URL names one (or NUV_TEST_POSTGRES_DIR the state
// directory of scripts/postgres), dropped again at the end.

#include "brokerenv.h"
#include "classifyinterface.h"
#include "installlayout.h"
#include "loadclient.h"
#include "loadsetup.h"
#include "nuvmqclientinterface.h"
#include "protocolwords.h"
#include "serverengine.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QPluginLoader>
#include <QThread>

#include <atomic>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

namespace {

namespace words = nuvprotocol::words;

using kespload::loadPassword;
using kespload::loadUser;

// Round trips per request as text for JSON: null without a proxy.
QByteArray roundTrips(const kespload::Servers &servers, qint64 exchanges, int requests)
{
    if (!servers.proxied() || requests <= 0)
        return QByteArrayLiteral("null");
    return QByteArray::number(double(exchanges) / requests, 'f', 2);
}

int measureRoles(const stomp::BrokerEnv &broker, int count, int warmUp, int delayMs, bool json)
{
    kespload::Servers servers;
    kespload::ServerSetup setup;
    setup.databaseDelayMs = delayMs;
    setup.workers = 1;
    if (!servers.start(broker, setup))
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
    qint64 exchangesBefore = 0;
    for (int n = 0; n < warmUp + count; ++n) {
        if (n == warmUp)
            exchangesBefore = servers.databaseExchanges();
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
    const QByteArray trips
        = roundTrips(servers, servers.databaseExchanges() - exchangesBefore, count);
    client->disconnectFromNuvKESP();
    const double median = kesp::percentileMillis(micros, 0.5) * 1000.0;
    const double p99 = kesp::percentileMillis(micros, 0.99) * 1000.0;
    if (json && delayMs >= 0)
        std::printf("{\"kind\": \"roles_db\", \"delay_ms\": %d, \"count\": %d, "
                    "\"median_us\": %.1f, \"p99_us\": %.1f, \"db_round_trips\": %s}\n",
                    delayMs, count, median, p99, trips.constData());
    else if (json)
        std::printf("{\"kind\": \"rtt\", \"exchange\": \"server_getRoles\", \"count\": %d, "
                    "\"median_us\": %.1f, \"p99_us\": %.1f}\n",
                    count, median, p99);
    else
        std::printf("getRoles() against one instance, %d calls after %d warm-up: median %.1f us, "
                    "p99 %.1f us, database round trips per call %s\n",
                    count, warmUp, median, p99, trips.constData());
    return 0;
}

int measureFairness(const stomp::BrokerEnv &broker, int instances, int seconds, bool json)
{
    kespload::Servers servers;
    if (!servers.prepare())
        return 1;
    const int count = nuvserver::EngineOptions::fromEnvironment(servers.database()).maxIds;
    QString error = kespload::seedCatalogue(servers.database(),
                                            { QStringLiteral("heavy"), QStringLiteral("light") });
    QStringList ids;
    if (error.isEmpty())
        ids = kespload::seedDocuments(servers.database(), QStringLiteral("heavy"), count, &error);
    kespload::ServerSetup setup;
    setup.instances = instances;
    if (!error.isEmpty()) {
        std::fprintf(stderr, "nuvkespload: %s\n", qPrintable(error));
        return 1;
    }
    if (!servers.start(broker, setup))
        return 1;
    std::unique_ptr<nuvMQClientInterface> heavy
        = kespload::loggedIn(broker, QStringLiteral("heavy"));
    std::unique_ptr<nuvMQClientInterface> light
        = kespload::loggedIn(broker, QStringLiteral("light"));
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
            request.setDocId(ids.join(nuvprotocol::recordSeparator));
            const qint64 micros = kespload::timedCall(*heavy, request);
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
        const qint64 micros
            = kespload::timedCall(*light, kesp::command(QLatin1String(words::getRoles), {}));
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

int measureLoad(const stomp::BrokerEnv &broker, const kespload::ServerSetup &setup, int requests,
                int threads, bool json)
{
    const int instances = setup.instances;
    kespload::Servers servers;
    if (!servers.start(broker, setup))
        return 1;
    kesp::LoadPlan plan = kespload::loadPlan(broker, QStringLiteral("load"), threads);
    plan.requests = requests;
    const kesp::LoadResult result = kesp::runLoad(plan);
    servers.stop();
    const kespload::Figures figures = kespload::summarise(result);
    if (json) {
        std::printf("{\"kind\": \"load\", \"instances\": %d, \"workers\": %d, \"threads\": %d, "
                    "\"requests\": %d, "
                    "\"answered\": %d, \"failed\": %d, \"wall_ms\": %lld, \"per_second\": %.1f, "
                    "\"p50_ms\": %.3f, \"p99_ms\": %.3f}\n",
                    instances, kespload::workersOf(setup), threads, requests, result.answered,
                    int(result.failures.size()), static_cast<long long>(result.wallMillis),
                    figures.perSecond, figures.p50Ms, figures.p99Ms);
    } else {
        std::printf("instances %d, callers %d, requests %d, answered %d, failed %d\n", instances,
                    threads, requests, result.answered, int(result.failures.size()));
        std::printf("wall %lld ms, throughput %.0f requests/s, round trip p50 %.2f ms, "
                    "p99 %.2f ms\n",
                    static_cast<long long>(result.wallMillis), figures.perSecond, figures.p50Ms,
                    figures.p99Ms);
        for (int i = 0; i < instances; ++i)
            std::printf("instance %d answered %lld\n", i,
                        static_cast<long long>(
                            servers.list().at(size_t(i))->reported(QStringLiteral("requests"))));
    }
    return result.failures.isEmpty() ? 0 : 1;
}

// Reads or writes on rows of each caller's own for `seconds`.
int measureMix(const stomp::BrokerEnv &broker, kesp::LoadMix mix,
               const kespload::ServerSetup &setup, int threads, double seconds, bool json)
{
    kespload::Servers servers;
    if (!servers.prepare())
        return 1;
    QString error = kespload::seedCatalogue(servers.database(), {});
    QStringList documents;
    if (error.isEmpty())
        documents = kespload::seedDocuments(servers.database(), loadUser, threads, &error);
    if (!error.isEmpty()) {
        std::fprintf(stderr, "nuvkespload: %s\n", qPrintable(error));
        return 1;
    }
    if (!servers.start(broker, setup))
        return 1;
    kesp::LoadPlan plan = kespload::loadPlan(broker, QStringLiteral("mix"), threads);
    plan.seconds = seconds;
    plan.mix = mix;
    plan.documents = documents;
    qint64 exchangesBefore = 0;
    plan.onStart = [&] { exchangesBefore = servers.databaseExchanges(); };
    const kesp::LoadResult result = kesp::runLoad(plan);
    const qint64 exchanges = servers.databaseExchanges() - exchangesBefore;
    servers.stop();
    const int sent = result.answered + int(result.failures.size());
    const QByteArray trips = roundTrips(servers, exchanges, sent);
    const kespload::Figures figures = kespload::summarise(result);
    const char *mixName = mix == kesp::LoadMix::Reads ? "read" : "write";
    const char *database = testdatabase::onPostgres() ? "postgresql" : "sqlite";
    if (json)
        std::printf("{\"kind\": \"mix\", \"mix\": \"%s\", \"database\": \"%s\", "
                    "\"delay_ms\": %d, \"instances\": %d, \"workers\": %d, \"threads\": %d, "
                    "\"answered\": %d, \"failed\": %d, \"wall_ms\": %lld, \"per_second\": %.1f, "
                    "\"p50_ms\": %.3f, \"p99_ms\": %.3f, \"db_round_trips\": %s}\n",
                    mixName, database, setup.databaseDelayMs, setup.instances,
                    kespload::workersOf(setup), threads, result.answered,
                    int(result.failures.size()), static_cast<long long>(result.wallMillis),
                    figures.perSecond, figures.p50Ms, figures.p99Ms, trips.constData());
    else
        std::printf("%s mix on %s, %d instances of %d workers, %d callers, %.1f s: answered %d, "
                    "failed %d, "
                    "%.0f requests/s, p50 %.2f ms, p99 %.2f ms, database round trips per "
                    "request %s\n",
                    mixName, database, setup.instances, kespload::workersOf(setup), threads,
                    seconds, result.answered, int(result.failures.size()), figures.perSecond,
                    figures.p50Ms, figures.p99Ms, trips.constData());
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
    // Options with a value: taken out, so that the numbers stay in place.
    const auto takeValue = [&args](const QString &option) {
        const int at = args.indexOf(option);
        if (at < 0 || at + 1 >= args.size())
            return QString();
        const QString value = args.at(at + 1);
        args.erase(args.begin() + at, args.begin() + at + 2);
        return value;
    };
    const QString mixName = takeValue(QStringLiteral("--mix"));
    const QString delay = takeValue(QStringLiteral("--db-delay"));
    const int workers = qMax(0, takeValue(QStringLiteral("--workers")).toInt());
    const int delayMs = delay.isEmpty() ? -1 : qMax(0, delay.toInt());
    if (!mixName.isEmpty() && mixName != QLatin1String("read")
        && mixName != QLatin1String("write")) {
        std::fprintf(stderr, "nuvkespload: --mix takes read or write\n");
        return 2;
    }

    const stomp::BrokerEnv broker;
    if (!broker.ok()) {
        std::fprintf(stderr, "nuvkespload: %s\n", qPrintable(broker.problem()));
        return 2;
    }
    broker.exportCredentials();
    if (roles) {
        const int count = qMax(1, args.value(1, QStringLiteral("2000")).toInt());
        const int warmUp = qMax(0, args.value(2, QStringLiteral("200")).toInt());
        return measureRoles(broker, count, warmUp, delayMs, json);
    }
    if (fairness) {
        const int instances = qMax(1, args.value(1, QStringLiteral("2")).toInt());
        const int seconds = qMax(1, args.value(2, QStringLiteral("20")).toInt());
        return measureFairness(broker, instances, seconds, json);
    }
    if (!mixName.isEmpty()) {
        kespload::ServerSetup setup;
        setup.instances = qMax(1, args.value(1, QStringLiteral("1")).toInt());
        setup.workers = workers;
        setup.databaseDelayMs = delayMs;
        const int threads = qMax(1, args.value(2, QStringLiteral("16")).toInt());
        const double seconds = qMax(0.1, args.value(3, QStringLiteral("5")).toDouble());
        return measureMix(
            broker, mixName == QLatin1String("read") ? kesp::LoadMix::Reads : kesp::LoadMix::Writes,
            setup, threads, seconds, json);
    }
    kespload::ServerSetup setup;
    setup.instances = qMax(1, args.value(1, QStringLiteral("1")).toInt());
    setup.workers = workers;
    const int requests = qMax(1, args.value(2, QStringLiteral("2000")).toInt());
    const int threads = qMax(1, args.value(3, QStringLiteral("4")).toInt());
    return measureLoad(broker, setup, requests, threads, json);
}

// nuvkespload: measures nuvkesp-server through the broker. Starts the given
// number of server instances on a fresh database in a temporary directory,
// sends numbered requests from several callers through the real transport
// plugin and prints the throughput and the round-trip percentiles.
//
//   NUV_BROKER_DIR=... nuvkespload [instances] [requests] [threads] [--json]
//   NUV_BROKER_DIR=... nuvkespload --roles [count] [warm-up] [--json]
//
// --roles times getRoles() through the classify plugin, one call at a time,
// against one instance: the round trip of a small read with the real engine
// answering. --json prints one JSON object (for scripts/bench).
//
// The database is SQLite, or a fresh database on a PostgreSQL server when
// NUV_TEST_POSTGRES_URL names one (or NUV_TEST_POSTGRES_DIR the state
// directory of scripts/postgres), dropped again at the end.

#include "brokerenv.h"
#include "classifyinterface.h"
#include "installlayout.h"
#include "loadclient.h"
#include "scratchdatabase.h"
#include "serverengine.h"
#include "serverprocess.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QPluginLoader>
#include <QTemporaryDir>

#include <cstdio>
#include <memory>
#include <vector>

namespace {

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
    const int instances = qMax(1, args.value(1, QStringLiteral("1")).toInt());
    const int requests = qMax(1, args.value(2, QStringLiteral("2000")).toInt());
    const int threads = qMax(1, args.value(3, QStringLiteral("4")).toInt());
    return measureLoad(broker, instances, requests, threads, json);
}

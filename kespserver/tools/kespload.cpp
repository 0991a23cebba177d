// nuvkespload: measures nuvkesp-server through the broker. Starts the given
// number of server instances on a fresh database in a temporary directory,
// sends numbered requests from several callers through the real transport
// plugin and prints the throughput and the round-trip median.
//
//   NUV_BROKER_DIR=... nuvkespload [instances] [requests] [threads]

#include "brokerenv.h"
#include "loadclient.h"
#include "serverengine.h"
#include "serverprocess.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <cstdio>
#include <memory>
#include <vector>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    const int instances = qMax(1, args.value(1, QStringLiteral("1")).toInt());
    const int requests = qMax(1, args.value(2, QStringLiteral("2000")).toInt());
    const int threads = qMax(1, args.value(3, QStringLiteral("4")).toInt());

    const stomp::BrokerEnv broker;
    if (!broker.ok()) {
        std::fprintf(stderr, "nuvkespload: %s\n", qPrintable(broker.problem()));
        return 2;
    }
    broker.exportCredentials();
    QTemporaryDir dir;
    const QString database = dir.filePath(QStringLiteral("load.db"));
    nuvserver::EngineOptions options = nuvserver::EngineOptions::fromEnvironment(database);
    options.pbkdf2Iterations = 1000; // logins are not what is measured
    QString error;
    if (!nuvserver::ServerEngine::initialiseDatabase(options, QStringLiteral("load"),
                                                     QStringLiteral("load-password"),
                                                     QStringLiteral("Load"), &error)) {
        std::fprintf(stderr, "nuvkespload: %s\n", qPrintable(error));
        return 1;
    }
    const QString address = QStringLiteral("%1:%2").arg(broker.host()).arg(broker.stompPort());
    std::vector<std::unique_ptr<kesp::ServerProcess>> servers;
    for (int i = 0; i < instances; ++i) {
        servers.push_back(std::make_unique<kesp::ServerProcess>(
            QStringLiteral("load%1").arg(i), database, address,
            dir.filePath(QStringLiteral("server%1.log").arg(i)),
            QStringList { QStringLiteral("--quiet") }));
        if (!servers.back()->start()) {
            std::fprintf(stderr, "nuvkespload: a server did not start:\n%s\n",
                         qPrintable(servers.back()->log()));
            return 1;
        }
    }
    kesp::LoadPlan plan;
    plan.host = broker.host();
    plan.port = broker.stompPort();
    plan.user = QStringLiteral("load");
    plan.password = QStringLiteral("load-password");
    plan.prefix = QStringLiteral("load");
    plan.threads = threads;
    plan.requests = requests;
    const kesp::LoadResult result = kesp::runLoad(plan);
    for (const auto &server : servers)
        server->stop();
    std::printf("instances %d, callers %d, requests %d, answered %d, failed %d\n", instances,
                threads, requests, result.answered, int(result.failures.size()));
    std::printf("wall %lld ms, throughput %.0f requests/s, round-trip median %.2f ms\n",
                static_cast<long long>(result.wallMillis),
                result.wallMillis > 0 ? 1000.0 * result.answered / double(result.wallMillis) : 0.0,
                kesp::medianMillis(result.latenciesMicros));
    for (int i = 0; i < instances; ++i)
        std::printf("instance %d answered %lld\n", i,
                    static_cast<long long>(servers.at(size_t(i))->reportedRequests()));
    return result.failures.isEmpty() ? 0 : 1;
}

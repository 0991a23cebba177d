// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_LOADSETUP_H
#define KESPSERVER_LOADSETUP_H

#include "delayproxy.h"
#include "loadclient.h"
#include "nuvmqclassifymessage.h"
#include "scratchdatabase.h"
#include "serverprocess.h"

#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <vector>

class nuvMQClientInterface;

namespace stomp {
class BrokerEnv;
}

/*
 * What nuvkespload measures against: a fresh database with the load user,
 * the server instances on it, and on PostgreSQL optionally the delaying
 * proxy between them and the database. Everything goes on destruction.
 */
namespace kespload {

extern const QString loadUser;
extern const QString loadPassword;

struct ServerSetup
{
    int instances = 1;
    // Workers per instance; 0: the server's default (the number of cores).
    int workers = 0;
    // Added each way between the instances and PostgreSQL; -1: no proxy.
    int databaseDelayMs = -1;
};

class Servers
{
public:
    // Creates the database (so that it can be seeded) and starts nothing.
    bool prepare();
    // Starts the instances on the prepared database (prepare() first).
    bool start(const stomp::BrokerEnv &broker, const ServerSetup &setup);
    void stop();
    ~Servers() { stop(); }

    // The database as the tool itself reaches it, never through the proxy.
    QString database() const { return scratch.location(); }
    // Round trips the instances made to the database through the proxy so
    // far (0 without one).
    qint64 databaseExchanges() const { return proxy.counts().exchanges; }
    bool proxied() const { return throughProxy; }
    const std::vector<std::unique_ptr<kesp::ServerProcess>> &list() const { return servers; }

private:
    QTemporaryDir dir;
    testdatabase::ScratchDatabase scratch { dir.filePath(QStringLiteral("load.db")) };
    delayproxy::DelayProxy proxy;
    std::vector<std::unique_ptr<kesp::ServerProcess>> servers;
    bool prepared = false;
    bool throughProxy = false;
};

// Users `names` (password loadPassword) and the document type "Letter",
// made by the load user as administrator through an engine of this
// process; null text on success.
QString seedCatalogue(const QString &database, const QStringList &names);
// `count` documents of `user` (logged in with loadPassword); their ids.
QStringList seedDocuments(const QString &database, const QString &user, int count, QString *error);

// The workers each instance of `setup` runs.
int workersOf(const ServerSetup &setup);

// A plan for `threads` callers logging in as the load user.
kesp::LoadPlan loadPlan(const stomp::BrokerEnv &broker, const QString &prefix, int threads);

// What a run of the callers gave.
struct Figures
{
    double perSecond = 0;
    double p50Ms = 0;
    double p99Ms = 0;
};
// The figures of `result`, its first failures printed.
Figures summarise(const kesp::LoadResult &result);

// A transport logged in as `user`; null with the reason printed.
std::unique_ptr<nuvMQClientInterface> loggedIn(const stomp::BrokerEnv &broker, const QString &user);
// One call; its round trip in microseconds, or -1 when it failed.
qint64 timedCall(nuvMQClientInterface &transport, nuvMQClassifyMessage request);

} // namespace kespload

#endif // KESPSERVER_LOADSETUP_H

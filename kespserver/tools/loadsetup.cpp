// SPDX-License-Identifier: Apache-2.0
#include "loadsetup.h"

#include "brokerenv.h"
#include "loadclient.h"
#include "nuvmqclientinterface.h"
#include "protocolwords.h"
#include "serverengine.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QThread>
#include <QUrl>

#include <cstdio>

namespace kespload {

const QString loadUser = QStringLiteral("load");
const QString loadPassword = QStringLiteral("load-password");

namespace {

namespace words = nuvprotocol::words;

nuvserver::EngineOptions engineOptions(const QString &database)
{
    nuvserver::EngineOptions options = nuvserver::EngineOptions::fromEnvironment(database);
    options.pbkdf2Iterations = 1000; // logins are not what is measured
    return options;
}

// A session token of the engine's form, one per user.
QString tokenOf(const QString &user)
{
    return QString::fromLatin1(
        QCryptographicHash::hash(user.toUtf8(), QCryptographicHash::Md5).toHex());
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

} // namespace

bool Servers::prepare()
{
    QString error;
    if (!nuvserver::ServerEngine::initialiseDatabase(
            engineOptions(database()), loadUser, loadPassword, QStringLiteral("Load"), &error)) {
        std::fprintf(stderr, "nuvkespload: %s\n", qPrintable(error));
        return false;
    }
    prepared = true;
    return true;
}

bool Servers::start(const stomp::BrokerEnv &broker, const ServerSetup &setup)
{
    if (!prepared && !prepare())
        return false;
    QString location = database();
    if (setup.databaseDelayMs >= 0) {
        if (!scratch.isPostgres()) {
            std::fprintf(stderr,
                         "nuvkespload: the database delay needs PostgreSQL "
                         "(NUV_TEST_POSTGRES_DIR or NUV_TEST_POSTGRES_URL)\n");
            return false;
        }
        QUrl url(location);
        if (!proxy.start(url.host(), quint16(url.port(5432)), setup.databaseDelayMs)) {
            std::fprintf(stderr, "nuvkespload: %s\n", qPrintable(proxy.errorString()));
            return false;
        }
        throughProxy = true;
        url.setHost(QStringLiteral("127.0.0.1"));
        url.setPort(proxy.port());
        location = url.toString();
    }
    const QString address = QStringLiteral("%1:%2").arg(broker.host()).arg(broker.stompPort());
    for (int i = 0; i < setup.instances; ++i) {
        servers.push_back(std::make_unique<kesp::ServerProcess>(
            QStringLiteral("load%1").arg(i), location, address,
            dir.filePath(QStringLiteral("server%1.log").arg(i)),
            QStringList { QStringLiteral("--quiet"), QStringLiteral("--workers"),
                          QString::number(workersOf(setup)) }));
        if (!servers.back()->start()) {
            std::fprintf(stderr, "nuvkespload: a server did not start:\n%s\n",
                         qPrintable(servers.back()->log()));
            return false;
        }
    }
    return true;
}

void Servers::stop()
{
    for (const auto &server : servers)
        server->stop();
    proxy.stop();
}

QString seedCatalogue(const QString &database, const QStringList &names)
{
    nuvserver::ServerEngine engine(engineOptions(database));
    QString error;
    if (!engine.open(&error))
        return error;
    const QString admin = tokenOf(loadUser);
    error = engineCall(engine, admin, QLatin1String(words::login), { loadUser, loadPassword, {} });
    for (const QString &name : names) {
        if (error.isEmpty())
            error = engineCall(
                engine, admin, QLatin1String(words::setUsers),
                { QStringList { name, loadPassword, name, QString(), QStringLiteral("0") }.join(
                    nuvprotocol::recordSeparator) },
                QStringLiteral("0"));
    }
    if (error.isEmpty())
        error = engineCall(engine, admin, QLatin1String(words::saveDocTypes), { "Letter" });
    return error;
}

QStringList seedDocuments(const QString &database, const QString &user, int count, QString *error)
{
    nuvserver::ServerEngine engine(engineOptions(database));
    if (!engine.open(error))
        return {};
    const QString token = tokenOf(user);
    *error = engineCall(engine, token, QLatin1String(words::login), { user, loadPassword, {} });
    QStringList ids;
    for (int i = 0; i < count && error->isEmpty(); ++i) {
        QString id;
        *error = engineCall(engine, token, QLatin1String(words::getNextOid), {}, QString(), &id);
        if (error->isEmpty())
            *error = engineCall(engine, token, QLatin1String(words::newClassify),
                                { QStringLiteral("Letter"), QStringLiteral("Document %1").arg(i) },
                                id);
        ids.append(id);
    }
    return error->isEmpty() ? ids : QStringList();
}

int workersOf(const ServerSetup &setup)
{
    // The server's own default, on the same machine.
    return setup.workers > 0 ? setup.workers : QThread::idealThreadCount();
}

kesp::LoadPlan loadPlan(const stomp::BrokerEnv &broker, const QString &prefix, int threads)
{
    kesp::LoadPlan plan;
    plan.host = broker.host();
    plan.port = broker.stompPort();
    plan.user = loadUser;
    plan.password = loadPassword;
    plan.prefix = prefix;
    plan.threads = threads;
    return plan;
}

Figures summarise(const kesp::LoadResult &result)
{
    for (const QString &failure : result.failures.mid(0, 5))
        std::fprintf(stderr, "nuvkespload: %s\n", qPrintable(failure));
    Figures figures;
    if (result.wallMillis > 0)
        figures.perSecond = 1000.0 * result.answered / double(result.wallMillis);
    figures.p50Ms = kesp::percentileMillis(result.latenciesMicros, 0.5);
    figures.p99Ms = kesp::percentileMillis(result.latenciesMicros, 0.99);
    return figures;
}

std::unique_ptr<nuvMQClientInterface> loggedIn(const stomp::BrokerEnv &broker, const QString &user)
{
    QString error;
    std::unique_ptr<nuvMQClientInterface> transport = kesp::loggedInTransport(
        broker.host(), broker.stompPort(), user, loadPassword, 30, &error);
    if (!transport)
        std::fprintf(stderr, "nuvkespload: %s: %s\n", qPrintable(user), qPrintable(error));
    return transport;
}

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

} // namespace kespload

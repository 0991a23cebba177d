// SPDX-License-Identifier: Apache-2.0
// What one command costs through the real plugin over the echo transport,
// next to the bare wire work of the same exchange (encode the request,
// decode it, encode the reply, decode it).

#include "alloccounter.h"
#include "classifyinterface.h"
#include "echo/echocontrol.h"
#include "protocolwords.h"

#include <QCoreApplication>
#include <QPluginLoader>

#include <benchmark/benchmark.h>
#include <memory>

namespace {

EchoTransportControl *echo()
{
    static EchoTransportControl *control = [] {
        QPluginLoader loader(QStringLiteral(NUV_ECHO_TRANSPORT_DIR "/libnuvactivemqclient.so"));
        auto *c = qobject_cast<EchoTransportControl *>(loader.instance());
        if (!c)
            qFatal("echo transport: %s", qPrintable(loader.errorString()));
        return c;
    }();
    return control;
}

ClassifyInterface *client()
{
    static std::unique_ptr<ClassifyInterface> instance = [] {
        QPluginLoader loader(QStringLiteral(NUV_CLASSIFY_PLUGIN_FILE));
        auto *root = qobject_cast<ClassifyInterface *>(loader.instance());
        if (!root)
            qFatal("classify plugin: %s", qPrintable(loader.errorString()));
        std::unique_ptr<ClassifyInterface> c(
            root->createInstance(QStringLiteral(NUV_ECHO_TRANSPORT_DIR)));
        nuvMQClassifyMessage login;
        login.command = QLatin1String(nuvprotocol::status::ok);
        login.setData({ QByteArray(nuvprotocol::clientVersion) });
        echo()->setReply(login);
        if (!c->connectToNuvKESP(QStringLiteral("bench"), 0, QStringLiteral("user"),
                                 QStringLiteral("secret")))
            qFatal("login: %s", qPrintable(c->errorString()));
        return c;
    }();
    return instance.get();
}

nuvMQClassifyMessage rolesReply()
{
    nuvMQClassifyMessage reply;
    reply.command = QLatin1String(nuvprotocol::status::ok);
    QStringList roles;
    for (int i = 0; i < 20; ++i)
        roles << QStringLiteral("role-%1").arg(i);
    reply.setDataList(roles);
    reply.setUpdateString(QStringLiteral("42"));
    return reply;
}

nuvMQClassifyMessage foldersReply(int count)
{
    nuvMQClassifyMessage reply;
    reply.command = QLatin1String(nuvprotocol::status::ok);
    QStringList records;
    QStringList keys;
    QList<QByteArray> payloads;
    for (int i = 0; i < count; ++i) {
        const QString key = QStringLiteral("folder-%1").arg(i);
        records << QStringList { QString::number(i),        QStringLiteral("Folder %1").arg(i),
                                 QString::number(i / 10),   QStringLiteral("archive"),
                                 QStringLiteral("visible"), key }
                       .join(nuvprotocol::recordSeparator);
        keys << key;
        payloads << QByteArray(64, char('a' + i % 26));
    }
    reply.setDataList(records);
    reply.setDocId(keys.join(nuvprotocol::recordSeparator));
    reply.setData(payloads);
    reply.setUpdateString(QStringLiteral("42"));
    return reply;
}

// The four wire steps of one exchange with the request the client would fill.
void wireExchange(nuvMQClassifyMessage &request, nuvMQClassifyMessage &server,
                  nuvMQClassifyMessage &cannedReply, nuvMQClassifyMessage &reply)
{
    QString requestText;
    request.convertToBase64(requestText);
    server.convertFromBase64(requestText);
    QString replyText;
    cannedReply.convertToBase64(replyText);
    reply.convertFromBase64(replyText);
}

template<typename Body> void measure(benchmark::State &state, Body body)
{
    body(); // warm up outside the counted loop
    alloccounter::start();
    std::uint64_t iterations = 0;
    for (auto _ : state) {
        body();
        ++iterations;
    }
    const std::uint64_t allocations = alloccounter::stop();
    state.counters["allocs_per_call"] = iterations ? double(allocations) / double(iterations) : 0;
}

void wireBaseline(benchmark::State &state, const QString &command, const QString &docId,
                  const nuvMQClassifyMessage &canned)
{
    nuvMQClassifyMessage request, server, reply;
    nuvMQClassifyMessage cannedReply(canned);
    request.command = command;
    request.setDocId(docId);
    request.setCurrentArchive(QString());
    request.setUpdateString(QStringLiteral("42"));
    measure(state, [&] { wireExchange(request, server, cannedReply, reply); });
}

void BM_getRoles_plugin(benchmark::State &state)
{
    ClassifyInterface *c = client();
    echo()->setReply(rolesReply());
    measure(state, [&] { benchmark::DoNotOptimize(c->getRoles()); });
}

void BM_getRoles_wire(benchmark::State &state)
{
    wireBaseline(state, QLatin1String(nuvprotocol::words::getRoles), QString(), rolesReply());
}

void BM_getFolderStructure100_plugin(benchmark::State &state)
{
    ClassifyInterface *c = client();
    echo()->setReply(foldersReply(100));
    QStringList folders;
    QList<QByteArray> payloads;
    measure(state, [&] {
        benchmark::DoNotOptimize(
            c->getFolderStructure(QStringLiteral("structure"), folders, payloads));
    });
}

void BM_getFolderStructure100_wire(benchmark::State &state)
{
    wireBaseline(state, QLatin1String(nuvprotocol::words::getFolderStructure),
                 QStringLiteral("structure"), foldersReply(100));
}

} // namespace

BENCHMARK(BM_getRoles_plugin);
BENCHMARK(BM_getRoles_wire);
BENCHMARK(BM_getFolderStructure100_plugin);
BENCHMARK(BM_getFolderStructure100_wire);

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

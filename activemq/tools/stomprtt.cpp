// SPDX-License-Identifier: Apache-2.0
// Round-trip times through an ActiveMQ broker, from one program, against one
// responder: a raw STOMP ping-pong on a blocking socket (the floor that the
// broker and loopback set), the same with frames as large as a request's, the
// transport's sendSyncMessage, and a small classify command through the
// classify plugin and the transport plugin as a host loads them.
//
//   scripts/broker start
//   NUV_BROKER_DIR=/tmp/nuv-broker-$UID build/activemq/tools/nuvstomprtt [count] [warm-up] [--json]
//
// --json prints one JSON object per exchange (for scripts/bench) instead of
// the table.

#include "brokerenv.h"
#include "classifyinterface.h"
#include "installlayout.h"
#include "nuvmqclientinterface.h"
#include "protocolwords.h"
#include "responder.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QPluginLoader>
#include <QTextStream>
#include <QUuid>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

namespace {

namespace words = nuvprotocol::words;

const QByteArray benchQueue = QByteArrayLiteral("/queue/nuv.bench.rtt");

std::optional<nuvMQClassifyMessage> answer(const stomp::Responder::Request &request)
{
    nuvMQClassifyMessage reply;
    reply.command = QLatin1String(nuvprotocol::status::ok);
    if (request.message.command == QLatin1String(words::login))
        reply.setData({ QByteArray(nuvprotocol::clientVersion) });
    else
        reply.setDataList({ QStringLiteral("Archiv 1") });
    return reply;
}

struct Figures
{
    QString name;
    QString key; // the exchange's name in the JSON output
    std::function<bool()> once;
    std::vector<qint64> nanoseconds;
};

// Runs every exchange once per round, in turn, so that all of them see the
// same conditions on a machine whose load drifts; false when one fails.
bool measure(std::vector<Figures> &exchanges, int count, int warmUp)
{
    QElapsedTimer clock;
    for (int round = 0; round < warmUp + count; ++round) {
        for (Figures &figures : exchanges) {
            clock.start();
            if (!figures.once())
                return false;
            if (round >= warmUp)
                figures.nanoseconds.push_back(clock.nsecsElapsed());
        }
    }
    return true;
}

double percentile(std::vector<qint64> sorted, double p)
{
    std::sort(sorted.begin(), sorted.end());
    const size_t index = std::min(sorted.size() - 1, size_t(p * double(sorted.size() - 1) + 0.5));
    return double(sorted[index]) / 1000.0;
}

// The raw exchange: a SEND with reply-to, echoed by the responder. With a
// `body`, the frame also carries headers like the transport's requests, so
// the broker and the loopback see as many bytes as a classify command
// causes, without any of the plugins' work at either end.
class RawPing
{
public:
    RawPing(const stomp::Peer::Options &options, bool withReceipt,
            const QByteArray &body = QByteArrayLiteral("ping"))
        : withReceipt(withReceipt)
        , body(body)
    {
        ok = peer.open(options) && peer.subscribe("bench", "/temp-queue/nuv.bench");
    }

    bool once()
    {
        const QByteArray id = QByteArray::number(++sequence);
        stomp::Frame ping("SEND");
        ping.add("destination", benchQueue)
            .add("reply-to", "/temp-queue/nuv.bench")
            .add("correlation-id", id)
            .add("amq-msg-type", "text");
        if (body.size() > 4) {
            ping.add("expires", QByteArray::number(QDateTime::currentMSecsSinceEpoch() + 30000))
                .add("nuv-kind", "1001")
                .add("nuv-type", "nuvMQClassifyMessage")
                .add("nuv-user", "bench")
                .add("nuv-session-token", QByteArray(32, 'f'));
        }
        if (withReceipt)
            ping.add("receipt", "request-" + QUuid::createUuid().toByteArray(QUuid::WithoutBraces));
        ping.body = body;
        if (!peer.send(ping))
            return false;
        stomp::Frame frame;
        bool replied = false;
        bool received = !withReceipt;
        while (!replied || !received) {
            if (!peer.receive(&frame, 10000))
                return false;
            if (frame.command == "MESSAGE" && frame.header("correlation-id") == id)
                replied = true;
            else if (frame.command == "RECEIPT")
                received = true;
        }
        return true;
    }

    bool ok = false;

private:
    stomp::Peer peer;
    bool withReceipt;
    QByteArray body;
    quint64 sequence = 0;
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QTextStream err(stderr);
    QStringList args = app.arguments();
    if (args.contains(QStringLiteral("--version"))) {
        out << "nuvstomprtt " << nuvlayout::version() << "\n";
        return 0;
    }
    const bool json = args.removeAll(QStringLiteral("--json")) > 0;
    const int count = args.size() > 1 ? args.at(1).toInt() : 2000;
    const int warmUp = args.size() > 2 ? args.at(2).toInt() : 200;
    if (count < 1 || warmUp < 0) {
        err << "usage: nuvstomprtt [count] [warm-up] [--json]\n";
        return 2;
    }

    const stomp::BrokerEnv broker;
    if (!broker.ok()) {
        err << "nuvstomprtt: " << broker.problem() << "\n";
        return 1;
    }
    broker.exportCredentials();
    qputenv("NUV_STOMP_REQUEST_QUEUE", benchQueue);
    stomp::Responder responder(broker.peerOptions(), benchQueue, answer);
    if (!responder.begin()) {
        err << "nuvstomprtt: responder: " << responder.errorText() << "\n";
        return 1;
    }

    RawPing raw(broker.peerOptions(), false);
    RawPing rawWithReceipt(broker.peerOptions(), true);
    nuvMQClassifyMessage request;
    request.command = QLatin1String(words::getArchives);
    QString requestText;
    request.convertToBase64(requestText);
    RawPing rawSized(broker.peerOptions(), true, requestText.toUtf8());
    if (!raw.ok || !rawWithReceipt.ok || !rawSized.ok) {
        err << "nuvstomprtt: the raw STOMP connection failed\n";
        return 1;
    }

    auto transport = stomp::newTransport();
    if (!transport || !transport->connectToBroker(broker.host(), broker.stompPort())) {
        err << "nuvstomprtt: " << (transport ? transport->lastErrorText : QString()) << "\n";
        return 1;
    }
    nuvMQClassifyMessage reply;

    QPluginLoader loader(nuvlayout::classifyPluginFile());
    auto *root = qobject_cast<ClassifyInterface *>(loader.instance());
    if (!root) {
        err << "nuvstomprtt: " << loader.errorString() << "\n";
        return 1;
    }
    std::unique_ptr<ClassifyInterface> client(root->createInstance(stomp::BrokerEnv::pluginDir()));
    if (!client->connectToNuvKESP(broker.host(), broker.stompPort(), QStringLiteral("bench"),
                                  QStringLiteral("bench"))) {
        err << "nuvstomprtt: login: " << client->errorString() << "\n";
        return 1;
    }
    QStringList archives;

    std::vector<Figures> results {
        { QStringLiteral("raw STOMP ping-pong"),
          QStringLiteral("raw"),
          [&raw] { return raw.once(); },
          {} },
        { QStringLiteral("raw STOMP ping-pong, with receipt"),
          QStringLiteral("raw_receipt"),
          [&rawWithReceipt] { return rawWithReceipt.once(); },
          {} },
        { QStringLiteral("raw, frames the size of a request"),
          QStringLiteral("raw_sized"),
          [&rawSized] { return rawSized.once(); },
          {} },
        { QStringLiteral("transport sendSyncMessage"),
          QStringLiteral("transport"),
          [&] {
              return transport->sendSyncMessage(&request, &reply, nuvClassifyMessageKind, 30, 0,
                                                QString(), nullptr);
          },
          {} },
        { QStringLiteral("classify command getArchives()"),
          QStringLiteral("classify_getArchives"),
          [&] { return client->getArchives(archives); },
          {} },
    };
    if (!measure(results, count, warmUp)) {
        err << "nuvstomprtt: an exchange failed: " << transport->lastErrorText << " "
            << client->errorString() << "\n";
        return 1;
    }
    client->disconnectFromNuvKESP();
    transport->disconnectFromBroker();

    responder.end();
    if (json) {
        for (const Figures &figures : results) {
            out << QStringLiteral("{\"kind\": \"rtt\", \"exchange\": \"%1\", \"count\": %2, "
                                  "\"median_us\": %3, \"p99_us\": %4}\n")
                       .arg(figures.key)
                       .arg(count)
                       .arg(percentile(figures.nanoseconds, 0.5), 0, 'f', 1)
                       .arg(percentile(figures.nanoseconds, 0.99), 0, 'f', 1);
        }
        return 0;
    }
    out << QStringLiteral("broker 127.0.0.1:%1, %2 round trips each after %3 warm-up, "
                          "microseconds\n")
               .arg(broker.stompPort())
               .arg(count)
               .arg(warmUp);
    out << QStringLiteral("%1 %2 %3 %4 %5\n")
               .arg(QStringLiteral("exchange"), -36)
               .arg(QStringLiteral("median"), 8)
               .arg(QStringLiteral("p10"), 8)
               .arg(QStringLiteral("p90"), 8)
               .arg(QStringLiteral("p99"), 8);
    for (const Figures &figures : results) {
        out << QStringLiteral("%1 %2 %3 %4 %5\n")
                   .arg(figures.name, -36)
                   .arg(percentile(figures.nanoseconds, 0.5), 8, 'f', 1)
                   .arg(percentile(figures.nanoseconds, 0.1), 8, 'f', 1)
                   .arg(percentile(figures.nanoseconds, 0.9), 8, 'f', 1)
                   .arg(percentile(figures.nanoseconds, 0.99), 8, 'f', 1);
    }
    return 0;
}

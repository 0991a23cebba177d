// SPDX-License-Identifier: Apache-2.0
// libFuzzer target: damaged wire text for the decoder, and damaged replies
// for every operation of a logged-in client (see replycase.h for the input
// format). The client and the wire format are built into this target with
// the fuzzer's instrumentation; replies come through the scripted transport.

#include "nuvclassifyclient.h"
#include "replycase.h"

#include <QPluginLoader>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

struct Harness
{
    ScriptedTransportControl *transport = nullptr;
    NuvClassifyClient *client = nullptr;
};

Harness harness;

[[noreturn]] void fail(const char *what)
{
    std::fprintf(stderr, "fuzz_replies: %s\n", what);
    std::abort();
}

void start()
{
    const QString dir = QStringLiteral(NUV_SCRIPTED_TRANSPORT_DIR);
    QPluginLoader loader(dir + QStringLiteral("/libnuvactivemqclient.so"));
    Harness &h = harness;
    h.transport = qobject_cast<ScriptedTransportControl *>(loader.instance());
    if (!h.transport)
        fail(qPrintable(loader.errorString()));
    // One client for the whole run: logging in for every input would cost
    // more than the input itself. It lives until exit.
    h.client = new NuvClassifyClient(dir);
    nuvMQClassifyMessage login;
    login.command = QLatin1String(nuvprotocol::status::ok);
    login.setData({ QByteArray(nuvprotocol::clientVersion) });
    h.transport->reset();
    h.transport->queueReply(login);
    if (!h.client->connectToNuvKESP(QStringLiteral("localhost"), 61613, QStringLiteral("fuzz"),
                                    QStringLiteral("fuzz")))
        fail("scripted login failed");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    start();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const replycase::Case c = replycase::fromInput(
        QByteArray(reinterpret_cast<const char *>(data), int(qMin<std::size_t>(size, INT_MAX))));
    if (c.operation < 0) {
        if (!replycase::roundTripHolds(c.text))
            fail("decoding, encoding and decoding again changed the message");
        return 0;
    }
    replycase::play(c, harness.client, harness.transport);
    return 0;
}

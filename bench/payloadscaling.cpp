// SPDX-License-Identifier: Apache-2.0
// How the wire encoding scales with the payload: encode + decode of one
// message carrying a large `data` entry or a long `dataList`, next to memcpy
// and to Qt's base64 of the same bytes.
//
// With --peak-rss=BYTES the program instead encodes and decodes one message
// with a `data` payload of that size and prints the peak resident memory it
// needed per payload byte; each size runs in a fresh process.

#include "nuvmqclassifymessage.h"
#include "protocolwords.h"

#include <QByteArray>
#include <QFile>

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <sys/resource.h>
#include <unistd.h>

namespace {

QByteArray payload(qint64 size)
{
    QByteArray bytes(int(size), Qt::Uninitialized);
    for (int i = 0; i < bytes.size(); ++i)
        bytes[i] = char(i * 131 + 7);
    return bytes;
}

void roundTrip(nuvMQClassifyMessage &message, nuvMQClassifyMessage &decoded)
{
    QString text;
    message.convertToBase64(text);
    decoded.convertFromBase64(text);
}

void BM_wire_data(benchmark::State &state)
{
    nuvMQClassifyMessage message, decoded;
    message.command = QLatin1String(nuvprotocol::words::saveUserData);
    message.setData({ payload(state.range(0)) });
    for (auto _ : state) {
        roundTrip(message, decoded);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_base64_data(benchmark::State &state)
{
    const QByteArray bytes = payload(state.range(0));
    for (auto _ : state) {
        const QByteArray text = bytes.toBase64();
        QByteArray back = QByteArray::fromBase64(text);
        benchmark::DoNotOptimize(back.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_memcpy_data(benchmark::State &state)
{
    const QByteArray bytes = payload(state.range(0));
    QByteArray target(bytes.size(), Qt::Uninitialized);
    for (auto _ : state) {
        std::memcpy(target.data(), bytes.constData(), size_t(bytes.size()));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_wire_list(benchmark::State &state)
{
    nuvMQClassifyMessage message, decoded;
    message.command = QLatin1String(nuvprotocol::words::setUsers);
    QStringList list;
    qint64 bytes = 0;
    for (int i = 0; i < state.range(0); ++i) {
        list << QStringLiteral("user-%1;Full Name %1;role").arg(i);
        bytes += list.last().size() * 2;
    }
    message.setDataList(list);
    for (auto _ : state) {
        roundTrip(message, decoded);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * bytes);
    state.counters["strings"] = double(state.range(0));
}

long residentKiB()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields.at(1).toLong() * (sysconf(_SC_PAGESIZE) / 1024) : 0;
}

int peakRss(qint64 size)
{
    const long before = residentKiB();
    {
        nuvMQClassifyMessage message, decoded;
        message.setData({ payload(size) });
        roundTrip(message, decoded);
        if (decoded.getData().value(0).size() != size)
            return 1;
    }
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    const double perByte = double(usage.ru_maxrss - before) * 1024.0 / double(size);
    std::printf(
        "{\"payload_bytes\": %lld, \"peak_rss_growth_bytes\": %ld, \"per_payload_byte\": %.2f}\n",
        static_cast<long long>(size), (usage.ru_maxrss - before) * 1024, perByte);
    return 0;
}

const std::vector<int64_t> dataSizes { 1 << 10, 64 << 10, 1 << 20, 16 << 20, 64 << 20 };

} // namespace

BENCHMARK(BM_wire_data)->ArgsProduct({ dataSizes })->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_base64_data)->ArgsProduct({ dataSizes })->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_memcpy_data)->ArgsProduct({ dataSizes })->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_wire_list)->Arg(10)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

int main(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--peak-rss=", 11) == 0)
            return peakRss(std::atoll(argv[i] + 11));
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

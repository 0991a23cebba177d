// SPDX-License-Identifier: Apache-2.0
// libFuzzer target for the STOMP parser. Two properties on every input:
//  - reading it in one piece or in chunks (the first byte picks the chunk
//    size) yields the same frames and the same verdict;
//  - every frame it yields, encoded again and parsed again, is the same
//    frame (content-length aside, which the encoder recomputes). CONNECT
//    and CONNECTED carry headers verbatim, so a carriage return at the end
//    of one of their lines cannot be written again and is left out.
// Build with clang and -DNUV_BUILD_FUZZERS=ON; run with a scratch directory
// first (new inputs are written there) and the seeds second:
//   fuzz_stompparser -dict=activemq/fuzz/stomp.dict work/ activemq/fuzz/corpus

#include "stompframe.h"
#include "stompparser.h"

#include <cstdint>
#include <cstdlib>

namespace {

stomp::Parser::Limits smallLimits()
{
    stomp::Parser::Limits limits;
    limits.maxHeadBytes = 4096;
    limits.maxHeaders = 64;
    limits.maxBodyBytes = 64 * 1024;
    return limits;
}

struct Outcome
{
    QVector<stomp::Frame> frames;
    bool failed = false;
};

Outcome parse(const char *data, int size, int chunk,
              const stomp::Parser::Limits &limits = smallLimits())
{
    stomp::Parser parser(limits);
    Outcome outcome;
    for (int offset = 0; offset < size && !outcome.failed; offset += chunk) {
        parser.feed(data + offset, qMin(chunk, size - offset));
        stomp::Frame frame;
        stomp::Parser::Result result;
        while ((result = parser.next(&frame)) == stomp::Parser::Result::Frame)
            outcome.frames.append(frame);
        outcome.failed = result == stomp::Parser::Result::Error;
    }
    return outcome;
}

stomp::Frame withoutLength(stomp::Frame frame)
{
    for (int i = frame.headers.size() - 1; i >= 0; --i) {
        if (frame.headers.at(i).first == "content-length")
            frame.headers.remove(i);
    }
    return frame;
}

bool encodable(const stomp::Frame &frame)
{
    if (stomp::usesHeaderEscapes(frame.command))
        return true;
    for (const auto &header : frame.headers) {
        if (header.first.contains('\r') || header.second.contains('\r'))
            return false;
    }
    return true;
}

bool same(const stomp::Frame &a, const stomp::Frame &b)
{
    return a.command == b.command && a.headers == b.headers && a.body == b.body;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1 || size > 1024 * 1024)
        return 0;
    const int chunk = 1 + data[0] % 97;
    const char *bytes = reinterpret_cast<const char *>(data) + 1;
    const int length = int(size - 1);

    const Outcome whole = parse(bytes, length, qMax(length, 1));
    const Outcome chunked = parse(bytes, length, chunk);
    if (whole.failed != chunked.failed || whole.frames.size() != chunked.frames.size())
        abort();
    for (int i = 0; i < whole.frames.size(); ++i) {
        if (!same(whole.frames.at(i), chunked.frames.at(i)))
            abort();
        if (!encodable(whole.frames.at(i)))
            continue;
        const QByteArray encoded = stomp::encodeFrame(whole.frames.at(i));
        // Default limits: the encoder may add a content-length header.
        const Outcome again
            = parse(encoded.constData(), encoded.size(), encoded.size(), stomp::Parser::Limits());
        if (again.failed || again.frames.size() != 1
            || !same(withoutLength(again.frames.first()), withoutLength(whole.frames.at(i))))
            abort();
    }
    return 0;
}

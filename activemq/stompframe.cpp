// SPDX-License-Identifier: Apache-2.0
#include "stompframe.h"

#include <cstring>

namespace stomp {

Frame &Frame::add(const QByteArray &name, const QByteArray &value)
{
    headers.append(qMakePair(name, value));
    return *this;
}

bool Frame::has(const QByteArray &name) const
{
    for (const auto &header : headers) {
        if (header.first == name)
            return true;
    }
    return false;
}

QByteArray Frame::header(const QByteArray &name, const QByteArray &fallback) const
{
    for (const auto &header : headers) {
        if (header.first == name)
            return header.second;
    }
    return fallback;
}

namespace {

// The escape sequence for a byte that STOMP 1.2 escapes in headers, or null.
const char *escapeFor(char c)
{
    switch (c) {
    case '\\':
        return "\\\\";
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case ':':
        return "\\c";
    default:
        return nullptr;
    }
}

// Appends `raw` escaped to `out`. Every request carries a dozen headers and
// hardly any of them needs an escape: runs without one go in as one piece,
// not byte by byte.
void appendEscaped(QByteArray &out, const QByteArray &raw)
{
    const char *data = raw.constData();
    const int size = raw.size();
    int runStart = 0;
    for (int i = 0; i < size; ++i) {
        const char *escaped = escapeFor(data[i]);
        if (!escaped)
            continue;
        out.append(data + runStart, i - runStart);
        out.append(escaped, 2);
        runStart = i + 1;
    }
    out.append(data + runStart, size - runStart);
}

} // namespace

QByteArray escapeHeader(const QByteArray &raw)
{
    QByteArray out;
    out.reserve(raw.size());
    appendEscaped(out, raw);
    return out;
}

bool unescapeHeader(const QByteArray &escaped, QByteArray *raw)
{
    const char *data = escaped.constData();
    const int size = escaped.size();
    const void *first = size > 0 ? std::memchr(data, '\\', size_t(size)) : nullptr;
    if (!first) {
        // The usual case, and no copy: the header shares the line's bytes.
        *raw = escaped;
        return true;
    }
    QByteArray out;
    out.reserve(size);
    int runStart = 0;
    for (int i = int(static_cast<const char *>(first) - data); i < size; ++i) {
        if (data[i] != '\\')
            continue;
        out.append(data + runStart, i - runStart);
        if (++i == size)
            return false;
        switch (data[i]) {
        case '\\':
            out += '\\';
            break;
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        case 'c':
            out += ':';
            break;
        default:
            return false;
        }
        runStart = i + 1;
    }
    out.append(data + runStart, size - runStart);
    *raw = out;
    return true;
}

bool usesHeaderEscapes(const QByteArray &command)
{
    return command != "CONNECT" && command != "CONNECTED";
}

QByteArray encodeHead(const Frame &frame)
{
    const bool escape = usesHeaderEscapes(frame.command);
    int size = frame.command.size() + 32;
    for (const auto &header : frame.headers)
        size += header.first.size() + header.second.size() + 2;
    QByteArray head;
    head.reserve(size + size / 8); // room for a few escapes
    head += frame.command;
    head += '\n';
    for (const auto &header : frame.headers) {
        if (header.first == "content-length")
            continue;
        if (escape) {
            appendEscaped(head, header.first);
            head += ':';
            appendEscaped(head, header.second);
        } else {
            head += header.first;
            head += ':';
            head += header.second;
        }
        head += '\n';
    }
    if (!frame.body.isEmpty()) {
        head += "content-length:";
        head += QByteArray::number(frame.body.size());
        head += '\n';
    }
    head += '\n';
    return head;
}

QByteArray encodeFrame(const Frame &frame)
{
    QByteArray bytes = encodeHead(frame);
    bytes.reserve(bytes.size() + frame.body.size() + 1);
    bytes += frame.body;
    bytes += '\0';
    return bytes;
}

} // namespace stomp

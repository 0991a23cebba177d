#include "stompframe.h"

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

QByteArray escapeHeader(const QByteArray &raw)
{
    QByteArray out;
    out.reserve(raw.size());
    for (const char c : raw) {
        switch (c) {
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case ':':
            out += "\\c";
            break;
        default:
            out += c;
        }
    }
    return out;
}

bool unescapeHeader(const QByteArray &escaped, QByteArray *raw)
{
    QByteArray out;
    out.reserve(escaped.size());
    for (int i = 0; i < escaped.size(); ++i) {
        const char c = escaped.at(i);
        if (c != '\\') {
            out += c;
            continue;
        }
        if (++i == escaped.size())
            return false;
        switch (escaped.at(i)) {
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
    }
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
    QByteArray head;
    head.reserve(64 + frame.headers.size() * 48);
    head += frame.command;
    head += '\n';
    for (const auto &header : frame.headers) {
        if (header.first == "content-length")
            continue;
        head += escape ? escapeHeader(header.first) : header.first;
        head += ':';
        head += escape ? escapeHeader(header.second) : header.second;
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

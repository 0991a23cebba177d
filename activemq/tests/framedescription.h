// SPDX-License-Identifier: Apache-2.0
#ifndef FRAMEDESCRIPTION_H
#define FRAMEDESCRIPTION_H

#include "stompframe.h"

#include <QByteArray>

// A frame as one readable line, so a test row can state what it expects:
//   COMMAND{name=value,name=value}[body]
// with bytes outside printable ASCII (and the delimiters) as \xNN.
inline QByteArray printable(const QByteArray &bytes)
{
    QByteArray out;
    for (const char c : bytes) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u >= 0x7f || c == '\\' || c == '{' || c == '}' || c == '[' || c == ']'
            || c == ',' || c == '=')
            out += "\\x" + QByteArray::number(u, 16).rightJustified(2, '0');
        else
            out += c;
    }
    return out;
}

inline QByteArray describe(const stomp::Frame &frame)
{
    QByteArray text = frame.command + '{';
    for (int i = 0; i < frame.headers.size(); ++i) {
        if (i > 0)
            text += ',';
        text += printable(frame.headers.at(i).first) + '=' + printable(frame.headers.at(i).second);
    }
    return text + "}[" + printable(frame.body) + ']';
}

#endif // FRAMEDESCRIPTION_H

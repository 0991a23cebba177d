// SPDX-License-Identifier: Apache-2.0
#ifndef STOMPFRAME_H
#define STOMPFRAME_H

#include <QByteArray>
#include <QPair>
#include <QVector>

namespace stomp {

/*
 * One STOMP 1.2 frame: a command, ordered headers and a body.
 *
 * Header names and values are kept unescaped (UTF-8). A name may occur more
 * than once on the wire; the first occurrence is the one that counts, which
 * is what header() returns.
 */
struct Frame
{
    QByteArray command;
    QVector<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;

    Frame() = default;
    explicit Frame(const QByteArray &command)
        : command(command)
    { }

    Frame &add(const QByteArray &name, const QByteArray &value);
    bool has(const QByteArray &name) const;
    QByteArray header(const QByteArray &name, const QByteArray &fallback = QByteArray()) const;
};

// Escapes backslash, line feed, carriage return and colon as \\ \n \r \c.
QByteArray escapeHeader(const QByteArray &raw);
// The reverse; false on an escape that STOMP 1.2 does not define (including
// a lone backslash at the end), which a peer must treat as fatal.
bool unescapeHeader(const QByteArray &escaped, QByteArray *raw);

// CONNECT and CONNECTED carry their headers verbatim: the escapes did not
// exist in STOMP 1.0, and a client must be able to read the server's answer
// before the version is settled.
bool usesHeaderEscapes(const QByteArray &command);

// Everything up to and including the blank line: command, headers (escaped
// where the command calls for it) and a content-length computed from the
// body when the body is not empty. A content-length among the frame's own
// headers is ignored, so the announced length can never disagree.
QByteArray encodeHead(const Frame &frame);
// The whole frame: head, body and the terminating NUL.
QByteArray encodeFrame(const Frame &frame);

} // namespace stomp

#endif // STOMPFRAME_H

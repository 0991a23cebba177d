// SPDX-License-Identifier: Apache-2.0
#ifndef STOMPPARSER_H
#define STOMPPARSER_H

#include "stompframe.h"

#include <QByteArray>
#include <QString>

namespace stomp {

/*
 * Turns a byte stream into frames, whatever the stream's chunking: a frame
 * may arrive one byte at a time, and one read may hold several frames.
 *
 * Line ends between frames are heart-beats and are counted, not returned.
 * A body ends at the NUL after `content-length` bytes when that header is
 * present, else at the first NUL. Header lines may end in CR LF. Escapes in
 * header names and values are undone except in CONNECT and CONNECTED.
 *
 * Any violation puts the parser into a permanent error state: after a
 * framing error the stream position is unknown, so the connection must go.
 */
class Parser
{
public:
    // Bounds that keep a broken or hostile peer from making us buffer
    // without end.
    struct Limits
    {
        int maxHeadBytes = 64 * 1024; // command line and headers together
        int maxHeaders = 1000;
        qint64 maxBodyBytes = 512LL * 1024 * 1024;
    };

    enum class Result { Frame, NeedMore, Error };

    Parser() = default;
    explicit Parser(Limits limits)
        : limits(limits)
    { }

    void feed(const QByteArray &bytes);
    void feed(const char *data, int size);
    // Takes the next complete frame out of the buffered bytes.
    Result next(Frame *frame);

    bool failed() const { return !error.isEmpty(); }
    // Why the stream was rejected, in words for a log or an error text. It
    // never quotes the stream's content, which may hold secrets.
    QString errorText() const { return error; }
    qint64 heartBeats() const { return heartBeatCount; }
    // Bytes received but not yet returned as a frame.
    qint64 pendingBytes() const { return buffer.size() - start; }

private:
    Result fail(const QString &why);
    Result skipHeartBeats();
    Result readHead();
    bool takeHeaderLine(const char *line, int size);
    Result readBody(Frame *frame);
    void resetFrame();

    Limits limits;
    QByteArray buffer;
    int start = 0; // where the current frame (or inter-frame gap) begins
    qint64 heartBeatCount = 0;
    QString error;

    // The frame in progress.
    bool inBody = false;
    int lineStart = 0; // next header line to read, while in the head
    Frame current;
    int bodyStart = 0;
    qint64 contentLength = -1;
    int nulScanFrom = 0; // resumes the search for the NUL, so long bodies stay linear
};

} // namespace stomp

#endif // STOMPPARSER_H

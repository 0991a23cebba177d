// SPDX-License-Identifier: Apache-2.0
#include "stompparser.h"

#include <cstring>
#include <limits>

namespace stomp {

namespace {

bool isCommandByte(char c)
{
    return c >= 'A' && c <= 'Z';
}

const int maxCommandLength = 32;

} // namespace

void Parser::feed(const QByteArray &bytes)
{
    feed(bytes.constData(), bytes.size());
}

void Parser::feed(const char *data, int size)
{
    if (failed() || size <= 0)
        return;
    // Drop what earlier frames consumed once it is worth a move, so the
    // buffer does not grow with the life of the connection.
    if (start > 0 && (start >= buffer.size() || start > 64 * 1024)) {
        const int shift = start;
        buffer.remove(0, shift);
        start = 0;
        lineStart -= shift;
        bodyStart -= shift;
        nulScanFrom -= shift;
    }
    if (qint64(buffer.size()) + size > qint64(std::numeric_limits<int>::max()) - 16) {
        fail(QStringLiteral("more than 2 GiB of unparsed input"));
        return;
    }
    buffer.append(data, size);
}

Parser::Result Parser::next(Frame *frame)
{
    if (failed())
        return Result::Error;
    if (!inBody) {
        if (lineStart <= start) {
            const Result gap = skipHeartBeats();
            if (gap != Result::Frame)
                return gap;
            lineStart = start;
            current = Frame();
        }
        const Result head = readHead();
        if (head != Result::Frame)
            return head;
    }
    return readBody(frame);
}

Parser::Result Parser::fail(const QString &why)
{
    if (error.isEmpty())
        error = why;
    return Result::Error;
}

// Consumes the EOLs that may stand between frames; Frame means a frame's
// first byte is next.
Parser::Result Parser::skipHeartBeats()
{
    const int size = buffer.size();
    while (start < size) {
        const char c = buffer.at(start);
        if (c == '\n') {
            ++heartBeatCount;
            ++start;
        } else if (c == '\r') {
            if (start + 1 >= size)
                return Result::NeedMore;
            if (buffer.at(start + 1) != '\n')
                return fail(QStringLiteral("a carriage return between frames is not followed by a "
                                           "line feed"));
            ++heartBeatCount;
            start += 2;
        } else {
            return Result::Frame;
        }
    }
    return Result::NeedMore;
}

Parser::Result Parser::readHead()
{
    const char *data = buffer.constData();
    const int size = buffer.size();
    for (;;) {
        const void *eol
            = lineStart < size ? std::memchr(data + lineStart, '\n', size - lineStart) : nullptr;
        if (!eol) {
            if (size - start > limits.maxHeadBytes)
                return fail(QStringLiteral("the frame's command and headers exceed %1 bytes")
                                .arg(limits.maxHeadBytes));
            return Result::NeedMore;
        }
        const int end = int(static_cast<const char *>(eol) - data);
        if (end + 1 - start > limits.maxHeadBytes)
            return fail(QStringLiteral("the frame's command and headers exceed %1 bytes")
                            .arg(limits.maxHeadBytes));
        int lineEnd = end;
        if (lineEnd > lineStart && data[lineEnd - 1] == '\r')
            --lineEnd;
        const char *line = data + lineStart;
        const int lineSize = lineEnd - lineStart;
        lineStart = end + 1;

        if (current.command.isEmpty()) {
            if (lineSize == 0 || lineSize > maxCommandLength)
                return fail(QStringLiteral("a frame has no valid command line"));
            for (int i = 0; i < lineSize; ++i) {
                if (!isCommandByte(line[i]))
                    return fail(QStringLiteral("a frame's command is not an upper-case word"));
            }
            current.command = QByteArray(line, lineSize);
            continue;
        }
        if (lineSize == 0)
            break;
        if (!takeHeaderLine(line, lineSize))
            return Result::Error;
    }

    const QByteArray length = current.header("content-length");
    contentLength = -1;
    if (current.has("content-length")) {
        bool ok = false;
        const qint64 value = length.toLongLong(&ok);
        if (!ok || value < 0 || length.startsWith('+') || length.startsWith('-'))
            return fail(QStringLiteral("a content-length header is not a byte count"));
        if (value > limits.maxBodyBytes)
            return fail(QStringLiteral("a frame announces a body of %1 bytes, more than the "
                                       "limit of %2")
                            .arg(value)
                            .arg(limits.maxBodyBytes));
        contentLength = value;
    }
    inBody = true;
    bodyStart = lineStart;
    nulScanFrom = bodyStart;
    return Result::Frame;
}

bool Parser::takeHeaderLine(const char *line, int size)
{
    if (current.headers.size() >= limits.maxHeaders) {
        fail(QStringLiteral("a frame has more than %1 headers").arg(limits.maxHeaders));
        return false;
    }
    const void *found = std::memchr(line, ':', size_t(size));
    if (!found) {
        fail(QStringLiteral("a header line has no colon"));
        return false;
    }
    // Name and value straight from the buffer: two allocations per header
    // rather than three, on every frame that arrives.
    const int colon = int(static_cast<const char *>(found) - line);
    QByteArray name(line, colon);
    QByteArray value(line + colon + 1, size - colon - 1);
    if (usesHeaderEscapes(current.command)) {
        if (!unescapeHeader(name, &name) || !unescapeHeader(value, &value)) {
            fail(QStringLiteral("a header uses an undefined escape sequence"));
            return false;
        }
    }
    current.headers.append(qMakePair(name, value));
    return true;
}

Parser::Result Parser::readBody(Frame *frame)
{
    const int size = buffer.size();
    int nul = -1;
    if (contentLength >= 0) {
        if (qint64(size) - bodyStart < contentLength + 1)
            return Result::NeedMore;
        nul = bodyStart + int(contentLength);
        if (buffer.at(nul) != '\0')
            return fail(QStringLiteral("a frame's body is not followed by a NUL byte where its "
                                       "content-length says it ends"));
    } else {
        const void *found = nulScanFrom < size
            ? std::memchr(buffer.constData() + nulScanFrom, '\0', size - nulScanFrom)
            : nullptr;
        if (!found) {
            nulScanFrom = size;
            if (qint64(size) - bodyStart > limits.maxBodyBytes)
                return fail(QStringLiteral("a frame's body exceeds the limit of %1 bytes")
                                .arg(limits.maxBodyBytes));
            return Result::NeedMore;
        }
        nul = int(static_cast<const char *>(found) - buffer.constData());
        // Same verdict whether the body came in one read or in many.
        if (qint64(nul) - bodyStart > limits.maxBodyBytes)
            return fail(QStringLiteral("a frame's body exceeds the limit of %1 bytes")
                            .arg(limits.maxBodyBytes));
    }
    current.body = buffer.mid(bodyStart, nul - bodyStart);
    *frame = std::move(current);
    start = nul + 1;
    resetFrame();
    return Result::Frame;
}

void Parser::resetFrame()
{
    inBody = false;
    current = Frame();
    lineStart = start;
    bodyStart = start;
    nulScanFrom = start;
    contentLength = -1;
}

} // namespace stomp

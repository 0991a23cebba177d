// SPDX-License-Identifier: Apache-2.0
// The incremental STOMP parser: every framing case, whatever the chunking.

#include "framedescription.h"
#include "stompparser.h"

#include <QtTest>

using stomp::Frame;
using stomp::Parser;

namespace {

// A string literal with its NUL bytes, without the terminating one.
template<int N> QByteArray raw(const char (&text)[N])
{
    return QByteArray(text, N - 1);
}

// Splits `bytes` into chunks of `size` bytes (the last one shorter).
QByteArrayList chunked(const QByteArray &bytes, int size)
{
    QByteArrayList chunks;
    for (int i = 0; i < bytes.size(); i += size)
        chunks << bytes.mid(i, size);
    return chunks;
}

} // namespace

class StompParserTest : public QObject
{
    Q_OBJECT

private slots:
    void frames_data();
    void frames();
    void limits_data();
    void limits();
    void staysFailedAfterAnError();
    void largeBodyInSmallReadsIsLinear();
    void pendingBytesOfAnUnfinishedFrame();
};

void StompParserTest::frames_data()
{
    QTest::addColumn<QByteArrayList>("chunks");
    QTest::addColumn<QByteArrayList>("expected"); // descriptions of the complete frames
    QTest::addColumn<int>("heartBeats");
    QTest::addColumn<QString>("error"); // part of the error text, empty when none

    const QByteArray message = raw("MESSAGE\ndestination:/queue/a\nmessage-id:7\n\nhello\0");
    const QByteArray messageSeen("MESSAGE{destination=/queue/a,message-id=7}[hello]");

    QTest::newRow("one frame in one read")
        << QByteArrayList { message } << QByteArrayList { messageSeen } << 0 << QString();
    QTest::newRow("one frame a byte at a time")
        << chunked(message, 1) << QByteArrayList { messageSeen } << 0 << QString();
    QTest::newRow("one frame in reads of three bytes")
        << chunked(message, 3) << QByteArrayList { messageSeen } << 0 << QString();
    QTest::newRow("two frames in one read")
        << QByteArrayList { message + raw("RECEIPT\nreceipt-id:r1\n\n\0") }
        << QByteArrayList { messageSeen, "RECEIPT{receipt-id=r1}[]" } << 0 << QString();
    QTest::newRow("second frame starts in the first frame's read")
        << QByteArrayList { message + "RECE", raw("IPT\nreceipt-id:r1\n\n\0") }
        << QByteArrayList { messageSeen, "RECEIPT{receipt-id=r1}[]" } << 0 << QString();
    QTest::newRow("heart-beats only")
        << QByteArrayList { "\n", "\n\n" } << QByteArrayList() << 3 << QString();
    QTest::newRow("heart-beats as CR LF")
        << QByteArrayList { "\r\n\r\n" } << QByteArrayList() << 2 << QString();
    QTest::newRow("heart-beat CR and LF in separate reads")
        << QByteArrayList { "\r", "\n" } << QByteArrayList() << 1 << QString();
    QTest::newRow("heart-beats before, between and after frames")
        << QByteArrayList { "\n" + message + "\n\r\n" + message + "\n" }
        << QByteArrayList { messageSeen, messageSeen } << 4 << QString();
    QTest::newRow("NUL followed by LF, as ActiveMQ sends")
        << QByteArrayList { raw("RECEIPT\nreceipt-id:x\n\n\0\n") }
        << QByteArrayList { "RECEIPT{receipt-id=x}[]" } << 1 << QString();
    QTest::newRow("head lines ending in CR LF")
        << QByteArrayList { raw("MESSAGE\r\na:1\r\nb:2\r\n\r\nxy\0") }
        << QByteArrayList { "MESSAGE{a=1,b=2}[xy]" } << 0 << QString();
    QTest::newRow("escaped colon in a value")
        << QByteArrayList { raw("MESSAGE\nmessage-id:ID\\chost\\c1\n\n\0") }
        << QByteArrayList { "MESSAGE{message-id=ID:host:1}[]" } << 0 << QString();
    QTest::newRow("escaped backslash, line feed and carriage return")
        << QByteArrayList { raw("MESSAGE\nv:a\\\\b\\nc\\rd\n\n\0") }
        << QByteArrayList { "MESSAGE{v=a\\x5cb\\x0ac\\x0dd}[]" } << 0 << QString();
    QTest::newRow("escape in a header name")
        << QByteArrayList { raw("MESSAGE\nna\\cme:v\n\n\0") }
        << QByteArrayList { "MESSAGE{na:me=v}[]" } << 0 << QString();
    QTest::newRow("escape split across reads")
        << QByteArrayList { "MESSAGE\nv:a\\", raw("cb\n\n\0") }
        << QByteArrayList { "MESSAGE{v=a:b}[]" } << 0 << QString();
    QTest::newRow("CONNECTED keeps backslashes verbatim")
        << QByteArrayList { raw("CONNECTED\nversion:1.2\nserver:a\\cb\n\n\0") }
        << QByteArrayList { "CONNECTED{version=1.2,server=a\\x5ccb}[]" } << 0 << QString();
    QTest::newRow("undefined escape is fatal")
        << QByteArrayList { raw("MESSAGE\nv:a\\tb\n\n\0") } << QByteArrayList() << 0
        << QStringLiteral("undefined escape");
    QTest::newRow("backslash at the end of a value is fatal")
        << QByteArrayList { raw("MESSAGE\nv:a\\\n\n\0") } << QByteArrayList() << 0
        << QStringLiteral("undefined escape");
    QTest::newRow("repeated header: all kept, first counts")
        << QByteArrayList { raw("MESSAGE\nk:first\nk:second\n\n\0") }
        << QByteArrayList { "MESSAGE{k=first,k=second}[]" } << 0 << QString();
    QTest::newRow("raw colon inside a value is kept")
        << QByteArrayList { raw("ERROR\nmessage:a:b\n\n\0") }
        << QByteArrayList { "ERROR{message=a:b}[]" } << 0 << QString();
    QTest::newRow("empty header value") << QByteArrayList { raw("MESSAGE\nk:\n\n\0") }
                                        << QByteArrayList { "MESSAGE{k=}[]" } << 0 << QString();
    QTest::newRow("content-length body holding NUL bytes")
        << QByteArrayList { raw("MESSAGE\ncontent-length:5\n\na\0b\0c\0") }
        << QByteArrayList { "MESSAGE{content-length=5}[a\\x00b\\x00c]" } << 0 << QString();
    QTest::newRow("content-length body split across reads")
        << QByteArrayList { "MESSAGE\ncontent-length:6\n\nab", raw("c\0e"), raw("f\0") }
        << QByteArrayList { "MESSAGE{content-length=6}[abc\\x00ef]" } << 0 << QString();
    QTest::newRow("content-length of zero")
        << QByteArrayList { raw("MESSAGE\ncontent-length:0\n\n\0") }
        << QByteArrayList { "MESSAGE{content-length=0}[]" } << 0 << QString();
    QTest::newRow("body without content-length ends at the first NUL")
        << QByteArrayList { raw("MESSAGE\n\nab\0\n") } << QByteArrayList { "MESSAGE{}[ab]" } << 1
        << QString();
    QTest::newRow("content-length body not followed by NUL")
        << QByteArrayList { raw("MESSAGE\ncontent-length:2\n\nabc\0") } << QByteArrayList() << 0
        << QStringLiteral("not followed by a NUL");
    QTest::newRow("content-length that is not a number")
        << QByteArrayList { raw("MESSAGE\ncontent-length:12x\n\n\0") } << QByteArrayList() << 0
        << QStringLiteral("not a byte count");
    QTest::newRow("negative content-length")
        << QByteArrayList { raw("MESSAGE\ncontent-length:-1\n\n\0") } << QByteArrayList() << 0
        << QStringLiteral("not a byte count");
    QTest::newRow("header line without a colon")
        << QByteArrayList { raw("MESSAGE\nnocolon\n\n\0") } << QByteArrayList() << 0
        << QStringLiteral("no colon");
    QTest::newRow("lower-case command") << QByteArrayList { raw("message\n\n\0") }
                                        << QByteArrayList() << 0 << QStringLiteral("upper-case");
    QTest::newRow("CR between frames without LF")
        << QByteArrayList { "\rX" } << QByteArrayList() << 0 << QStringLiteral("carriage return");
    QTest::newRow("frame complete, next one only begun")
        << QByteArrayList { message + "MESS" } << QByteArrayList { messageSeen } << 0 << QString();
}

void StompParserTest::frames()
{
    QFETCH(QByteArrayList, chunks);
    QFETCH(QByteArrayList, expected);
    QFETCH(int, heartBeats);
    QFETCH(QString, error);

    Parser parser;
    QByteArrayList seen;
    bool failed = false;
    for (const QByteArray &chunk : chunks) {
        parser.feed(chunk);
        Frame frame;
        Parser::Result result;
        while ((result = parser.next(&frame)) == Parser::Result::Frame)
            seen << describe(frame);
        if (result == Parser::Result::Error) {
            failed = true;
            break;
        }
    }
    QCOMPARE(seen, expected);
    QCOMPARE(parser.heartBeats(), qint64(heartBeats));
    QCOMPARE(failed, !error.isEmpty());
    if (failed)
        QVERIFY2(parser.errorText().contains(error), qPrintable(parser.errorText()));
}

void StompParserTest::limits_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<int>("maxHead");
    QTest::addColumn<qint64>("maxBody");
    QTest::addColumn<QString>("error");

    QTest::newRow("head larger than the limit, no line end yet")
        << QByteArray(200, 'A') << 100 << qint64(1000) << QStringLiteral("exceed 100 bytes");
    QTest::newRow("head larger than the limit across lines")
        << QByteArray("MESSAGE\n") + QByteArray("k:").append(QByteArray(150, 'v')) + "\n"
        << 100 << qint64(1000) << QStringLiteral("exceed 100 bytes");
    QTest::newRow("announced body larger than the limit")
        << QByteArray("MESSAGE\ncontent-length:1001\n\n") << 100 << qint64(1000)
        << QStringLiteral("announces a body of 1001 bytes");
    QTest::newRow("body without NUL growing past the limit")
        << QByteArray("MESSAGE\n\n") + QByteArray(1200, 'b') << 100 << qint64(1000)
        << QStringLiteral("exceeds the limit of 1000 bytes");
    QTest::newRow("body exactly at the limit is fine")
        << QByteArray("MESSAGE\ncontent-length:1000\n\n") + QByteArray(1000, 'b') + '\0' << 100
        << qint64(1000) << QString();
}

void StompParserTest::limits()
{
    QFETCH(QByteArray, input);
    QFETCH(int, maxHead);
    QFETCH(qint64, maxBody);
    QFETCH(QString, error);

    Parser::Limits limits;
    limits.maxHeadBytes = maxHead;
    limits.maxBodyBytes = maxBody;
    Parser parser(limits);
    parser.feed(input);
    Frame frame;
    const Parser::Result result = parser.next(&frame);
    if (error.isEmpty()) {
        QCOMPARE(result, Parser::Result::Frame);
        QCOMPARE(frame.body.size(), int(maxBody));
    } else {
        QCOMPARE(result, Parser::Result::Error);
        QVERIFY2(parser.errorText().contains(error), qPrintable(parser.errorText()));
    }
}

void StompParserTest::staysFailedAfterAnError()
{
    Parser parser;
    parser.feed(raw("bad\n\n\0"));
    Frame frame;
    QCOMPARE(parser.next(&frame), Parser::Result::Error);
    parser.feed(raw("RECEIPT\n\n\0"));
    QCOMPARE(parser.next(&frame), Parser::Result::Error);
}

void StompParserTest::largeBodyInSmallReadsIsLinear()
{
    // 24 MiB without content-length in 4 KiB reads: a parser that searched
    // the whole body for its NUL on every read would take minutes.
    const int size = 24 * 1024 * 1024;
    QByteArray body(size, 'x');
    Parser parser;
    parser.feed(QByteArray("MESSAGE\n\n"));
    Frame frame;
    for (int i = 0; i < size; i += 4096) {
        parser.feed(body.constData() + i, qMin(4096, size - i));
        QCOMPARE(parser.next(&frame), Parser::Result::NeedMore);
    }
    parser.feed(QByteArray(1, '\0'));
    QCOMPARE(parser.next(&frame), Parser::Result::Frame);
    QCOMPARE(frame.body.size(), size);
    QCOMPARE(parser.pendingBytes(), qint64(0));
}

void StompParserTest::pendingBytesOfAnUnfinishedFrame()
{
    Parser parser;
    parser.feed(raw("RECEIPT\n\n\0MESS"));
    Frame frame;
    QCOMPARE(parser.next(&frame), Parser::Result::Frame);
    QCOMPARE(parser.next(&frame), Parser::Result::NeedMore);
    QCOMPARE(parser.pendingBytes(), qint64(4));
}

QTEST_APPLESS_MAIN(StompParserTest)
#include "tst_stompparser.moc"

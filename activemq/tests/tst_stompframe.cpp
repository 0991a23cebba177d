// SPDX-License-Identifier: Apache-2.0
// The STOMP frame encoder and the header escapes, and that the parser reads
// back exactly what the encoder wrote.

#include "framedescription.h"
#include "stompframe.h"
#include "stompparser.h"

#include <QtTest>

using stomp::Frame;

namespace {

template<int N> QByteArray raw(const char (&text)[N])
{
    return QByteArray(text, N - 1);
}

using Headers = QVector<QPair<QByteArray, QByteArray>>;

} // namespace

Q_DECLARE_METATYPE(Headers)

class StompFrameTest : public QObject
{
    Q_OBJECT

private slots:
    void escapes_data();
    void escapes();
    void undefinedEscapes_data();
    void undefinedEscapes();
    void encode_data();
    void encode();
    void headerLookup();
};

void StompFrameTest::escapes_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<QByteArray>("escaped");

    QTest::newRow("nothing to escape") << QByteArray("abc 123") << QByteArray("abc 123");
    QTest::newRow("empty") << QByteArray() << QByteArray();
    QTest::newRow("colon") << QByteArray("ID:host:1") << QByteArray("ID\\chost\\c1");
    QTest::newRow("backslash") << QByteArray("a\\b") << QByteArray("a\\\\b");
    QTest::newRow("line feed") << QByteArray("a\nb") << QByteArray("a\\nb");
    QTest::newRow("carriage return") << QByteArray("a\rb") << QByteArray("a\\rb");
    QTest::newRow("all four in a row") << QByteArray("\\\n\r:") << QByteArray("\\\\\\n\\r\\c");
    QTest::newRow("backslash before a letter n stays two characters")
        << QByteArray("\\n") << QByteArray("\\\\n");
    QTest::newRow("UTF-8 passes untouched")
        << QByteArray("M\xc3\xbcller") << QByteArray("M\xc3\xbcller");
}

void StompFrameTest::escapes()
{
    QFETCH(QByteArray, plain);
    QFETCH(QByteArray, escaped);
    QCOMPARE(stomp::escapeHeader(plain), escaped);
    QByteArray back;
    QVERIFY(stomp::unescapeHeader(escaped, &back));
    QCOMPARE(back, plain);
}

void StompFrameTest::undefinedEscapes_data()
{
    QTest::addColumn<QByteArray>("escaped");
    QTest::newRow("tab escape") << QByteArray("a\\tb");
    QTest::newRow("lone backslash at the end") << QByteArray("ab\\");
    QTest::newRow("upper-case C") << QByteArray("\\C");
}

void StompFrameTest::undefinedEscapes()
{
    QFETCH(QByteArray, escaped);
    QByteArray out("untouched");
    QVERIFY(!stomp::unescapeHeader(escaped, &out));
    QCOMPARE(out, QByteArray("untouched"));
}

void StompFrameTest::encode_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<Headers>("headers");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("wire");

    QTest::newRow("no headers, no body")
        << QByteArray("DISCONNECT") << Headers() << QByteArray() << raw("DISCONNECT\n\n\0");
    QTest::newRow("body gets its content-length")
        << QByteArray("SEND") << Headers { { "destination", "/queue/a" } } << QByteArray("hello")
        << raw("SEND\ndestination:/queue/a\ncontent-length:5\n\nhello\0");
    QTest::newRow("body with NUL bytes counts them")
        << QByteArray("SEND") << Headers() << raw("a\0b")
        << raw("SEND\ncontent-length:3\n\na\0b\0");
    QTest::newRow("a content-length of the caller's is replaced")
        << QByteArray("SEND") << Headers { { "content-length", "99" } } << QByteArray("xy")
        << raw("SEND\ncontent-length:2\n\nxy\0");
    QTest::newRow("colon in a value is escaped")
        << QByteArray("SEND") << Headers { { "reply-to", "/remote-temp-queue/ID:a:1" } }
        << QByteArray() << raw("SEND\nreply-to:/remote-temp-queue/ID\\ca\\c1\n\n\0");
    QTest::newRow("line breaks and backslash in name and value are escaped")
        << QByteArray("SEND") << Headers { { "x\ny", "a\\b\r" } } << QByteArray()
        << raw("SEND\nx\\ny:a\\\\b\\r\n\n\0");
    QTest::newRow("CONNECT headers travel verbatim")
        << QByteArray("CONNECT")
        << Headers { { "accept-version", "1.2" }, { "passcode", "a:b\\c" } } << QByteArray()
        << raw("CONNECT\naccept-version:1.2\npasscode:a:b\\c\n\n\0");
    QTest::newRow("repeated header keeps both, in order")
        << QByteArray("SEND") << Headers { { "k", "1" }, { "k", "2" } } << QByteArray()
        << raw("SEND\nk:1\nk:2\n\n\0");
    QTest::newRow("UTF-8 user name")
        << QByteArray("SEND") << Headers { { "nuv-user", "J\xc3\xbcrgen" } } << QByteArray()
        << raw("SEND\nnuv-user:J\xc3\xbcrgen\n\n\0");
}

void StompFrameTest::encode()
{
    QFETCH(QByteArray, command);
    QFETCH(Headers, headers);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, wire);

    Frame frame(command);
    frame.headers = headers;
    frame.body = body;
    QCOMPARE(stomp::encodeFrame(frame), wire);
    QCOMPARE(stomp::encodeHead(frame) + body + '\0', wire);

    // The parser reads back what was written, a byte at a time too.
    stomp::Parser whole;
    whole.feed(wire);
    Frame parsed;
    QCOMPARE(whole.next(&parsed), stomp::Parser::Result::Frame);
    stomp::Parser bytewise;
    Frame parsedBytewise;
    stomp::Parser::Result result = stomp::Parser::Result::NeedMore;
    for (const char c : wire) {
        bytewise.feed(&c, 1);
        result = bytewise.next(&parsedBytewise);
        if (result != stomp::Parser::Result::NeedMore)
            break;
    }
    QCOMPARE(result, stomp::Parser::Result::Frame);
    QCOMPARE(describe(parsedBytewise), describe(parsed));
    QCOMPARE(parsed.command, command);
    QCOMPARE(parsed.body, body);
    Headers expected;
    for (const auto &header : headers) {
        if (header.first != "content-length")
            expected << header;
    }
    if (!body.isEmpty())
        expected << qMakePair(QByteArray("content-length"), QByteArray::number(body.size()));
    Frame written(command);
    written.headers = expected;
    written.body = body;
    QCOMPARE(describe(parsed), describe(written));
}

void StompFrameTest::headerLookup()
{
    Frame frame("MESSAGE");
    frame.add("k", "first").add("k", "second").add("empty", "");
    QCOMPARE(frame.header("k"), QByteArray("first"));
    QVERIFY(frame.has("empty"));
    QCOMPARE(frame.header("empty", "fallback"), QByteArray(""));
    QVERIFY(!frame.has("missing"));
    QCOMPARE(frame.header("missing", "fallback"), QByteArray("fallback"));
}

QTEST_APPLESS_MAIN(StompFrameTest)
#include "tst_stompframe.moc"

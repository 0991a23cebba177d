// SPDX-License-Identifier: Apache-2.0
// What a client sends is not trusted: the request line names the user the
// engine ran the request as, never the claimed `nuv-user` header (that only
// in verbose mode, marked as claimed); a planted line break cannot forge a
// log line; a body that is not one whole classify record is answered "the
// request could not be decoded: ..."; text with an unpaired surrogate is
// refused. Raw STOMP frames play the client, so anything can be sent.

#include "kesptest.h"
#include "loadclient.h"
#include "nuvmqclassifymessage.h"
#include "serverprocess.h"
#include "stomppeer.h"

#include <QtTest>

namespace {
const QByteArray replyQueue = "/temp-queue/untrusted";
const QByteArray token = "0123456789abcdef0123456789abcdef";

QByteArray bodyOf(const nuvMQClassifyMessage &message)
{
    QString body;
    nuvMQClassifyMessage(message).convertToBase64(body);
    return body.toLatin1();
}
} // namespace

class KespUntrusted : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void requestLineNamesTheActingUser();
    void plantedLineBreakForgesNoLine();
    void undecodableRequests_data();
    void undecodableRequests();
    void invalidTextIsRefused();
    void failedLoginsSlowTheConnectionDown();
    void cleanupTestCase();

private:
    // Sends `body` as a request with these headers and returns the reply
    // (a default message when none came).
    nuvMQClassifyMessage exchange(const QByteArray &body, const QByteArray &claimedUser = "admin");

    stomp::BrokerEnv broker;
    kesptest::Workspace space;
    std::unique_ptr<kesp::ServerProcess> server;
    stomp::Peer caller;
    int sent = 0;
};

void KespUntrusted::initTestCase()
{
    const QString problem = kesptest::useBroker(broker, QStringLiteral("untrusted"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    QVERIFY2(!space.database.isEmpty(), qPrintable(space.error));
    server = std::make_unique<kesp::ServerProcess>(
        QStringLiteral("untrusted"), space.database, kesptest::brokerAddress(broker),
        space.path(QStringLiteral("server.log")), QStringList { QStringLiteral("--verbose") });
    QVERIFY2(server->start(), qPrintable(server->log()));
    QVERIFY2(caller.open(broker.peerOptions()), qPrintable(caller.errorText()));
    QVERIFY2(caller.subscribe("answers", replyQueue), qPrintable(caller.errorText()));
}

nuvMQClassifyMessage KespUntrusted::exchange(const QByteArray &body, const QByteArray &claimedUser)
{
    const QByteArray correlation = "untrusted-" + QByteArray::number(++sent);
    stomp::Frame send("SEND");
    send.add("destination", qgetenv("NUV_STOMP_REQUEST_QUEUE"))
        .add("reply-to", replyQueue)
        .add("correlation-id", correlation)
        .add("nuv-session-token", token)
        .add("nuv-user", claimedUser);
    send.body = body;
    nuvMQClassifyMessage reply;
    if (!caller.send(send))
        return reply;
    stomp::Frame answer;
    // A reply comes within a second on an idle machine; the wait allows for
    // a loaded one, and a missing reply fails the test's next check.
    while (caller.receive(&answer, 20000)) {
        if (answer.header("correlation-id") == correlation) {
            reply.convertFromBase64(QString::fromLatin1(answer.body));
            break;
        }
    }
    return reply;
}

void KespUntrusted::requestLineNamesTheActingUser()
{
    // Not logged in: the claim is no user.
    nuvMQClassifyMessage reply
        = exchange(bodyOf(kesp::command(QStringLiteral("CFDOCGETARCHIVES"), {})), "mallory");
    QCOMPARE(reply.command, QStringLiteral("ERROR"));
    QVERIFY2(server->waitForLog(QStringLiteral("CFDOCGETARCHIVES user=- "), 1, 10000),
             qPrintable(server->log()));
    reply = exchange(bodyOf(kesp::command(QStringLiteral("CFLOGIN"),
                                          { kesptest::user, kesptest::password, QString() })),
                     "mallory");
    QVERIFY2(reply.command == QLatin1String("OK"), qPrintable(reply.errorText));
    reply = exchange(bodyOf(kesp::command(QStringLiteral("CFDOCGETARCHIVES"), {})), "mallory");
    QVERIFY2(reply.command == QLatin1String("OK"), qPrintable(reply.errorText));
    QVERIFY2(server->waitForLog(QStringLiteral("CFDOCGETARCHIVES user=admin "), 1, 10000),
             qPrintable(server->log()));
    QCOMPARE(server->countInLog(QStringLiteral("CFLOGIN user=admin ")), 1);
    QCOMPARE(server->countInLog(QStringLiteral(" user=mallory")), 0);
    // Verbose mode shows the claim, as a claim.
    QVERIFY(server->countInLog(QStringLiteral("claimed-user=mallory")) >= 3);
    exchange(bodyOf(kesp::command(QStringLiteral("CFCLOSESESSION"), {})));
}

void KespUntrusted::plantedLineBreakForgesNoLine()
{
    const QString forged
        = QStringLiteral("2026-01-01T00:00:00.000Z untrusted: CFDOBACKUP user=admin 1.0 ms OK");
    const nuvMQClassifyMessage reply
        = exchange(bodyOf(kesp::command(QStringLiteral("CFNOSUCHCOMMAND\n") + forged, {})),
                   "admin\n" + forged.toUtf8());
    QVERIFY2(reply.errorText.startsWith(QLatin1String("unknown command 'CFNOSUCHCOMMAND\n")),
             qPrintable(reply.errorText));
    QVERIFY2(server->waitForLog(QStringLiteral("CFNOSUCHCOMMAND\\n2026"), 1, 10000),
             qPrintable(server->log()));
    // Every line that mentions the planted text has it after an escaped
    // break: none starts with it.
    const QStringList lines = server->log().split(QLatin1Char('\n'));
    int mentions = 0;
    for (const QString &line : lines) {
        if (!line.contains(QLatin1String("CFDOBACKUP")))
            continue;
        ++mentions;
        QVERIFY2(line.contains(QLatin1String("\\n2026-01-01T00:00:00.000Z untrusted: CFDOBACKUP")),
                 qPrintable(line));
        QVERIFY2(!line.startsWith(QLatin1String("2026-01-01T00:00:00.000Z")), qPrintable(line));
    }
    // The request line and the verbose line with the claimed user.
    QVERIFY2(mentions >= 2, qPrintable(server->log()));
}

void KespUntrusted::undecodableRequests_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("reason");
    const QByteArray whole = kesp::command(QStringLiteral("CFADDCLIPBOARD"), { "x" }).toWireBytes();
    QTest::newRow("not base64") << QByteArray("QUJD@UJD")
                                << "its base64 text holds a character outside the alphabet at"
                                   " position 4";
    QTest::newRow("cut base64") << QByteArray("QUJD") + "QU"
                                << "its base64 text has 6 characters,"
                                   " not a multiple of 4";
    QTest::newRow("cut record") << whole.left(whole.size() - 3).toBase64()
                                << "the record is cut short";
    QTest::newRow("bytes after the record")
        << (whole + "tail").toBase64() << "4 bytes follow the record";
    // A list that claims 2^31 entries and holds one: decoding ends with the
    // input, not with an allocation of the claimed size.
    nuvMQClassifyMessage one = kesp::command(QStringLiteral("CFADDCLIPBOARD"), { "x" });
    one.setAvailablePlugins({ QStringLiteral("p") });
    QByteArray claimed = one.toWireBytes();
    const int countAt = claimed.size() - 4 - 2 - 4; // the plugins' count, before "p"
    claimed[countAt] = char(0x80);
    QTest::newRow("2^31 list entries") << claimed.toBase64() << "the record is cut short";
    QByteArray odd = whole;
    odd[3] = 3; // the first text's length: an odd number of bytes
    QTest::newRow("odd text length") << odd.toBase64() << "a text has an odd byte length";
}

void KespUntrusted::undecodableRequests()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, reason);
    const nuvMQClassifyMessage reply = exchange(body);
    QCOMPARE(reply.command, QStringLiteral("ERROR"));
    QCOMPARE(reply.errorText, QStringLiteral("the request could not be decoded: ") + reason);
    QCOMPARE(kesptest::countRows(space.database, QStringLiteral("SELECT count(*) FROM clipboards")),
             qint64(0));
}

void KespUntrusted::invalidTextIsRefused()
{
    nuvMQClassifyMessage reply = exchange(bodyOf(kesp::command(
        QStringLiteral("CFLOGIN"), { kesptest::user, kesptest::password, QString() })));
    QVERIFY2(reply.command == QLatin1String("OK"), qPrintable(reply.errorText));
    const QString name = QStringLiteral("Notes ") + QChar(0xD800) + QStringLiteral("x");
    reply = exchange(bodyOf(kesp::command(QStringLiteral("CFADDCLIPBOARD"), { name })));
    QCOMPARE(reply.errorText,
             QStringLiteral("the request holds text that is not valid UTF-16 (an unpaired"
                            " surrogate in dataList entry 0); nothing was stored"));
    QCOMPARE(kesptest::countRows(space.database, QStringLiteral("SELECT count(*) FROM clipboards")),
             qint64(0));
    exchange(bodyOf(kesp::command(QStringLiteral("CFCLOSESESSION"), {})));
}

void KespUntrusted::failedLoginsSlowTheConnectionDown()
{
    // Names of their own, so no other test's account has to wait.
    const auto tryLogin = [this](const QString &name) {
        return exchange(bodyOf(kesp::command(QStringLiteral("CFLOGIN"),
                                             { name, QStringLiteral("a-guess-123"), QString() })))
            .errorText;
    };
    QCOMPARE(tryLogin(QStringLiteral("nobody-1")),
             QStringLiteral("CFLOGIN: unknown user or wrong password"));
    // The next attempt from this connection waits, whatever the account:
    // the broker's message ids of one connection name the same origin.
    const QString refusal = tryLogin(QStringLiteral("nobody-2"));
    QVERIFY2(refusal.startsWith(
                 QLatin1String("CFLOGIN: too many failed logins from this connection; try again"
                               " in ")),
             qPrintable(refusal + QLatin1Char('\n') + server->log()));
    // Another connection is not slowed down by this one's failures.
    stomp::Peer other;
    QVERIFY2(other.open(broker.peerOptions()), qPrintable(other.errorText()));
    QVERIFY2(other.subscribe("other-answers", "/temp-queue/untrusted-other"),
             qPrintable(other.errorText()));
    stomp::Frame send("SEND");
    send.add("destination", qgetenv("NUV_STOMP_REQUEST_QUEUE"))
        .add("reply-to", "/temp-queue/untrusted-other")
        .add("correlation-id", "other-1")
        .add("nuv-session-token", "fedcba9876543210fedcba9876543210");
    send.body = bodyOf(
        kesp::command(QStringLiteral("CFLOGIN"),
                      { QStringLiteral("nobody-3"), QStringLiteral("a-guess-123"), QString() }));
    QVERIFY(other.send(send));
    stomp::Frame answer;
    QVERIFY2(other.receive(&answer, 20000), qPrintable(server->log()));
    nuvMQClassifyMessage reply;
    reply.convertFromBase64(QString::fromLatin1(answer.body));
    QCOMPARE(reply.errorText, QStringLiteral("CFLOGIN: unknown user or wrong password"));
    other.close();
}

void KespUntrusted::cleanupTestCase()
{
    caller.close();
    if (server)
        QVERIFY2(server->stop(), qPrintable(server->log()));
}

QTEST_GUILESS_MAIN(KespUntrusted)
#include "tst_kespuntrusted.moc"

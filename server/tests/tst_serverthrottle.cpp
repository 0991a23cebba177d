// SPDX-License-Identifier: Apache-2.0
// Failed logins: the account and the sending connection wait ever longer,
// checked before any password hashing; enough failures lock the account;
// an administrator unlocks it; a success forgets the failures; and the last
// administrator always keeps a way in.
//
// The waits are real (seconds), so instead of sleeping the tests move the
// stored time of the last failure into the past, as if the wait had passed.

#include "servertestsupport.h"

#include <QtTest>

using namespace servertest;

namespace {

const QString attackerToken = QStringLiteral("aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa");
const QString ownerToken = QStringLiteral("bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb");
const QString attacker = QStringLiteral("ID:attacker-1-1-1:1");
const QString owner = QStringLiteral("ID:owner-1-1-1:1");

QString loginError(nuvserver::ServerEngine &engine, const QString &login, const QString &password,
                   const QString &origin, const QString &token = attackerToken)
{
    const nuvMQClassifyMessage reply
        = engine.handle(request(QStringLiteral("CFLOGIN"), QString(), { login, password, "" }),
                        nuvserver::Origin { token, origin }, QString());
    return reply.command == QLatin1String("OK") ? QString() : reply.errorText;
}

// As if every wait had passed (an hour ago: failures are forgotten after a
// day).
void letWaitsPass(TestServer &server)
{
    server.inspect(
        QStringLiteral("UPDATE login_failures SET last_failure = last_failure - 3600000"));
}

// `count` wrong passwords for `login` from `origin`, each after the wait.
void failLogins(TestServer &server, nuvserver::ServerEngine &engine, const QString &login,
                int count, const QString &origin)
{
    for (int i = 0; i < count; ++i) {
        letWaitsPass(server);
        const QString error = loginError(engine, login, QStringLiteral("guess-%1").arg(i), origin);
        if (error != QLatin1String("CFLOGIN: unknown user or wrong password")
            && !error.contains(QLatin1String("is locked")))
            qFatal("unexpected answer to a wrong password: %s", qPrintable(error));
    }
}

qint64 failuresOf(TestServer &server, const QString &subject)
{
    return server
        .inspect(QStringLiteral("SELECT coalesce(sum(failures), -1) FROM login_failures"
                                " WHERE subject = '%1'")
                     .arg(subject))
        .toLongLong();
}

const QString wrong = QStringLiteral("CFLOGIN: unknown user or wrong password");

} // namespace

class ServerThrottleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void failuresMakeTheNextAttemptWait_data();
    void failuresMakeTheNextAttemptWait();
    void enoughFailuresLockTheAccount();
    void administratorUnlocks_data();
    void administratorUnlocks();
    void lastAdministratorKeepsAWayIn();
    void successForgetsFailures();
};

void ServerThrottleTest::failuresMakeTheNextAttemptWait_data()
{
    QTest::addColumn<QString>("login");
    QTest::addColumn<QString>("origin");
    QTest::addColumn<QString>("refusal");
    // After failures of the administrator's account from the attacker's
    // connection, even the right password must wait: no hashing happens.
    QTest::newRow("same account, same connection")
        << adminUser << attacker << "CFLOGIN: too many failed logins for the account admin";
    QTest::newRow("same account, other connection")
        << adminUser << owner << "CFLOGIN: too many failed logins for the account admin";
    QTest::newRow("other account, same connection")
        << "erika" << attacker << "CFLOGIN: too many failed logins from this connection";
}

void ServerThrottleTest::failuresMakeTheNextAttemptWait()
{
    QFETCH(QString, login);
    QFETCH(QString, origin);
    QFETCH(QString, refusal);
    TestServer server;
    server.user(QStringLiteral("erika"));
    nuvserver::EngineOptions options = server.options();
    options.loginDelayMs = 20000;
    auto engine = server.engine(options);
    QCOMPARE(loginError(*engine, adminUser, QStringLiteral("guess-one"), attacker), wrong);
    const QString first = loginError(*engine, adminUser, QStringLiteral("guess-two"), attacker);
    QVERIFY2(
        first.startsWith("CFLOGIN: too many failed logins for the account admin; try again in "),
        qPrintable(first));
    // A refused attempt counts for nothing; the next failure doubles the wait.
    QCOMPARE(failuresOf(server, "account:admin"), 1);
    letWaitsPass(server);
    QCOMPARE(loginError(*engine, adminUser, QStringLiteral("guess-three"), attacker), wrong);
    QCOMPARE(failuresOf(server, "account:admin"), 2);
    const QString password = login == adminUser ? adminPassword : passwordOf(login);
    const QString second = loginError(*engine, login, password, origin, ownerToken);
    QVERIFY2(second.startsWith(refusal + "; try again in "), qPrintable(second));
    // The wait is said in whole seconds, rounded up: at most 20 s after the
    // first failure, at most 40 s (and more than 20 s unless this machine
    // stalled for 20 s in between) after the second.
    const int firstWait = first.section(' ', -2, -2).toInt();
    const int secondWait = second.section(' ', -2, -2).toInt();
    QVERIFY2(firstWait > 0 && firstWait <= 20, qPrintable(first));
    QVERIFY2(secondWait > 20 && secondWait <= 40, qPrintable(second));
}

void ServerThrottleTest::enoughFailuresLockTheAccount()
{
    TestServer server;
    server.user(QStringLiteral("erika"));
    nuvserver::EngineOptions options = server.options();
    options.loginLockFailures = 4;
    options.loginLockMinutes = 30;
    auto engine = server.engine(options);
    // Unknown names count and lock like real ones: the answers do not tell
    // which accounts exist.
    for (const QString &login : { QStringLiteral("erika"), QStringLiteral("nobody") }) {
        failLogins(server, *engine, login, 4, attacker);
        letWaitsPass(server);
        const QString refusal = loginError(*engine, login, passwordOf(login), owner, ownerToken);
        QVERIFY2(refusal.startsWith(QStringLiteral("CFLOGIN: the account %1 is locked after 4"
                                                   " failed logins until ")
                                        .arg(login)),
                 qPrintable(refusal));
        QVERIFY2(refusal.endsWith(" UTC; an administrator can unlock it sooner"),
                 qPrintable(refusal));
    }
    // The lock ends by itself.
    server.inspect(QStringLiteral("UPDATE login_failures SET locked_until = 1"));
    QCOMPARE(loginError(*engine, QStringLiteral("erika"), passwordOf("erika"), owner, ownerToken),
             QString());
}

void ServerThrottleTest::administratorUnlocks_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("docId");
    QTest::addColumn<QStringList>("dataList");
    QTest::newRow("update of the user")
        << "CFDOCUPDATEUSERS" << QString()
        << QStringList { joined({ "erika", "Erika", "", "0", "1" }) };
    QTest::newRow("password reset") << "CFDOCCHANGEUSERPASSADMIN"
                                    << "erika" << QStringList { "fresh-password" };
}

void ServerThrottleTest::administratorUnlocks()
{
    QFETCH(QString, command);
    QFETCH(QString, docId);
    QFETCH(QStringList, dataList);
    TestServer server;
    server.user(QStringLiteral("erika"));
    nuvserver::EngineOptions options = server.options();
    options.loginLockFailures = 3;
    auto engine = server.engine(options);
    failLogins(server, *engine, QStringLiteral("erika"), 3, attacker);
    QVERIFY(loginError(*engine, "erika", passwordOf("erika"), owner, ownerToken)
                .contains(QStringLiteral("is locked")));
    auto administrator = server.engine(options);
    const QString adminToken = QStringLiteral("cccccccccccccccccccccccccccccccc");
    QCOMPARE(loginError(*administrator, adminUser, adminPassword, owner, adminToken), QString());
    const nuvMQClassifyMessage reply = administrator->handle(
        request(command, docId, dataList), nuvserver::Origin { adminToken, owner }, QString());
    QVERIFY2(reply.command == QLatin1String("OK"), qPrintable(reply.errorText));
    QCOMPARE(failuresOf(server, "account:erika"), -1);
    const QString password = docId.isEmpty() ? passwordOf("erika") : dataList.at(0);
    const QString answer = loginError(*engine, "erika", password, owner, ownerToken);
    // After a reset by an administrator the user must choose a new password:
    // the login is accepted and asks for it.
    QVERIFY2(answer.isEmpty() || answer.startsWith(QStringLiteral("Password expired")),
             qPrintable(answer));
}

void ServerThrottleTest::lastAdministratorKeepsAWayIn()
{
    TestServer server;
    nuvserver::EngineOptions options = server.options();
    options.loginLockFailures = 3;
    auto engine = server.engine(options);
    failLogins(server, *engine, adminUser, 3, attacker);
    // Locked for every connection through the broker...
    QVERIFY(loginError(*engine, adminUser, adminPassword, owner, ownerToken)
                .contains(QStringLiteral("is locked")));
    // ...but not for a host on the server's machine that opened the database
    // itself (the embedded transport, nuvclassify --embedded), and however
    // often the attacker fails, that stays so.
    failLogins(server, *engine, adminUser, 5, attacker);
    QString error;
    ClientPtr local = server.connect(adminUser, adminPassword, &error);
    QVERIFY2(local, qPrintable(error));
    // From there the administrator unlocks its own account for every
    // connection.
    QVERIFY2(local->updateUsers({ joined({ adminUser, "Ada Admin", "", "0", "1" }) }),
             qPrintable(local->errorString()));
    QCOMPARE(loginError(*engine, adminUser, adminPassword, owner, ownerToken), QString());
}

void ServerThrottleTest::successForgetsFailures()
{
    TestServer server;
    nuvserver::EngineOptions options = server.options();
    options.loginLockFailures = 3;
    auto engine = server.engine(options);
    for (int round = 0; round < 3; ++round) {
        failLogins(server, *engine, adminUser, 2, owner);
        QCOMPARE(failuresOf(server, "account:admin"), 2);
        letWaitsPass(server);
        QCOMPARE(loginError(*engine, adminUser, adminPassword, owner, ownerToken), QString());
        QCOMPARE(failuresOf(server, "account:admin"), -1);
        QCOMPARE(failuresOf(server, QStringLiteral("origin:") + owner), -1);
    }
}

QTEST_GUILESS_MAIN(ServerThrottleTest)
#include "tst_serverthrottle.moc"

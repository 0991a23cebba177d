// Sessions bound to the broker connection that logged them in, and how they
// end: when that connection closes, when they sit idle, when the client
// closes them. Through the engine API, as nuvkesp-server calls it.

#include "servertestsupport.h"

#include <QtTest>

using namespace servertest;

namespace {
const QString token = QStringLiteral("0123456789abcdef0123456789abcdef");
const QString home = QStringLiteral("ID:broker-1-1:7");
const QString elsewhere = QStringLiteral("ID:broker-1-1:8");

nuvMQClassifyMessage run(nuvserver::ServerEngine &engine, const QString &command,
                         const QString &connection, const QStringList &dataList = {})
{
    return engine.handle(request(command, QString(), dataList),
                         nuvserver::Origin { token, connection }, QString());
}

nuvMQClassifyMessage login(nuvserver::ServerEngine &engine, const QString &connection)
{
    return run(engine, QStringLiteral("CFLOGIN"), connection,
               { adminUser, adminPassword, QString() });
}

QString ago(int seconds)
{
    return QDateTime::currentDateTimeUtc().addSecs(-seconds).toString("yyyy-MM-dd hh:mm:ss");
}
} // namespace

class ServerBindingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void tokenWorksOnlyOnItsConnection_data();
    void tokenWorksOnlyOnItsConnection();
    void loginCannotTakeAnotherConnectionsToken();
    void closedConnectionEndsItsSessions();
    void closedSessionIsRefused();
    void idleTimeoutDefaultsToEightHours_data();
    void idleTimeoutDefaultsToEightHours();
    void idleSessionsAreSwept_data();
    void idleSessionsAreSwept();
};

void ServerBindingTest::init()
{
    qunsetenv("NUV_SERVER_SESSION_TIMEOUT_MINUTES");
}

void ServerBindingTest::tokenWorksOnlyOnItsConnection_data()
{
    QTest::addColumn<QString>("loggedInOn");
    QTest::addColumn<QString>("askingFrom");
    QTest::addColumn<QString>("error");
    QTest::newRow("same connection") << home << home << QString();
    QTest::newRow("another connection")
        << home << elsewhere
        << "CFROLES: not logged in: the session belongs to another connection; log in with "
           "CFLOGIN on this one";
    QTest::newRow("in-process caller with a broker session")
        << home << QString()
        << "CFROLES: not logged in: the session belongs to another connection; log in with "
           "CFLOGIN on this one";
    QTest::newRow("broker caller with an in-process session")
        << QString() << home
        << "CFROLES: not logged in: the session belongs to another connection; log in with "
           "CFLOGIN on this one";
}

void ServerBindingTest::tokenWorksOnlyOnItsConnection()
{
    QFETCH(QString, loggedInOn);
    QFETCH(QString, askingFrom);
    QFETCH(QString, error);
    TestServer server;
    auto engine = server.engine();
    QCOMPARE(login(*engine, loggedInOn).command, QString("OK"));
    const nuvMQClassifyMessage reply = run(*engine, QStringLiteral("CFROLES"), askingFrom);
    QCOMPARE(reply.errorText, error);
    // A refused attempt leaves the owner's session as it was.
    QCOMPARE(run(*engine, QStringLiteral("CFROLES"), loggedInOn).command, QString("OK"));
}

void ServerBindingTest::loginCannotTakeAnotherConnectionsToken()
{
    TestServer server;
    auto engine = server.engine();
    QCOMPARE(login(*engine, home).command, QString("OK"));
    QCOMPARE(login(*engine, elsewhere).errorText,
             QString("CFLOGIN: not logged in: the session token belongs to another connection"));
    QCOMPARE(server.inspect("SELECT connection FROM sessions").toString(), home);
    // Its own connection may log in again on it.
    QCOMPARE(login(*engine, home).command, QString("OK"));
}

void ServerBindingTest::closedConnectionEndsItsSessions()
{
    TestServer server;
    auto engine = server.engine();
    QCOMPARE(login(*engine, home).command, QString("OK"));
    engine->endConnection(elsewhere);
    QCOMPARE(server.inspect("SELECT count(*) FROM sessions").toInt(), 1);
    engine->endConnection(home);
    QCOMPARE(server.inspect("SELECT count(*) FROM sessions").toInt(), 0);
    QCOMPARE(run(*engine, QStringLiteral("CFROLES"), home).errorText,
             QString("CFROLES: not logged in; log in with CFLOGIN first"));
}

void ServerBindingTest::closedSessionIsRefused()
{
    TestServer server;
    auto engine = server.engine();
    QCOMPARE(login(*engine, home).command, QString("OK"));
    QCOMPARE(run(*engine, QStringLiteral("CFCLOSESESSION"), home).command, QString("OK"));
    QCOMPARE(run(*engine, QStringLiteral("CFROLES"), home).errorText,
             QString("CFROLES: not logged in; log in with CFLOGIN first"));
}

void ServerBindingTest::idleTimeoutDefaultsToEightHours_data()
{
    QTest::addColumn<QByteArray>("setting");
    QTest::addColumn<int>("minutes");
    QTest::newRow("not set") << QByteArray() << 480;
    QTest::newRow("set") << QByteArray("15") << 15;
    QTest::newRow("zero: never") << QByteArray("0") << 0;
    QTest::newRow("negative: the default") << QByteArray("-5") << 480;
}

void ServerBindingTest::idleTimeoutDefaultsToEightHours()
{
    QFETCH(QByteArray, setting);
    QFETCH(int, minutes);
    if (!setting.isNull())
        qputenv("NUV_SERVER_SESSION_TIMEOUT_MINUTES", setting);
    QCOMPARE(nuvserver::EngineOptions::fromEnvironment(QString()).sessionTimeoutMinutes, minutes);
}

void ServerBindingTest::idleSessionsAreSwept_data()
{
    QTest::addColumn<QByteArray>("timeout");
    QTest::addColumn<int>("idleSeconds");
    QTest::addColumn<bool>("ended");
    QTest::newRow("default, idle 7 h 59 min") << QByteArray() << (8 * 3600 - 60) << false;
    QTest::newRow("default, idle 8 h 1 min") << QByteArray() << (8 * 3600 + 60) << true;
    QTest::newRow("5 min, idle 6 min") << QByteArray("5") << 360 << true;
    QTest::newRow("off, idle a year") << QByteArray("0") << 365 * 86400 << false;
}

void ServerBindingTest::idleSessionsAreSwept()
{
    QFETCH(QByteArray, timeout);
    QFETCH(int, idleSeconds);
    QFETCH(bool, ended);
    TestServer server; // clears the engine's settings
    if (!timeout.isNull())
        qputenv("NUV_SERVER_SESSION_TIMEOUT_MINUTES", timeout);
    auto engine = server.engine();
    QCOMPARE(login(*engine, home).command, QString("OK"));
    server.inspect(QString("UPDATE sessions SET last_seen = '%1'").arg(ago(idleSeconds)));
    engine->endIdleSessions();
    QCOMPARE(server.inspect("SELECT count(*) FROM sessions").toInt(), ended ? 0 : 1);
    const nuvMQClassifyMessage reply = run(*engine, QStringLiteral("CFROLES"), home);
    QCOMPARE(reply.errorText,
             ended ? QString("CFROLES: not logged in; log in with CFLOGIN first") : QString());
}

QTEST_GUILESS_MAIN(ServerBindingTest)
#include "tst_serverbinding.moc"

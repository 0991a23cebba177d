// SPDX-License-Identifier: Apache-2.0
// Connection, login and disconnection through the real plugin and the
// scripted transport.

#include "testsupport.h"

#include <QDir>
#include <QtTest>

using namespace testsupport;

namespace {
const QString host = QStringLiteral("kesp.example");
const int port = 61617;
const QString user = QStringLiteral("anna");
const QString pass = QStringLiteral("geheim");

const QString versionMismatch = QStringLiteral(
    "The server and client versions do not match. Please update server and client to the same "
    "version.");

// Where a login stops, and so which transport calls it makes.
enum class Reached { NoTransport, Broker, LoginSent, LoginSentThenDisconnect, SessionClosed };

QStringList callsUpTo(Reached reached)
{
    if (reached == Reached::NoTransport)
        return {};
    QStringList calls { QStringLiteral("createInstance"),
                        QStringLiteral("connectToBroker %1 %2").arg(host).arg(port) };
    if (reached == Reached::Broker)
        return calls;
    calls << QStringLiteral("setUserName ") + user << QStringLiteral("sendSyncMessage CFLOGIN");
    if (reached == Reached::SessionClosed)
        calls << QStringLiteral("sendSyncMessage CFCLOSESESSION");
    if (reached == Reached::LoginSentThenDisconnect || reached == Reached::SessionClosed)
        calls << QStringLiteral("disconnectFromBroker");
    return calls;
}

// Sets up the transport's side of one login attempt.
using Script = std::function<void()>;

Script replyWith(const nuvMQClassifyMessage &reply)
{
    return [reply] { answer(reply); };
}

nuvMQClassifyMessage versionReply(const QByteArray &version)
{
    return Reply(QStringLiteral("OK")).data({ version });
}
} // namespace

Q_DECLARE_METATYPE(Script)
Q_DECLARE_METATYPE(nuvMQClassifyMessage)
Q_DECLARE_METATYPE(Reached)

class LoginTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void failedLogin_data();
    void failedLogin();
    void successfulLogin_data();
    void successfulLogin();
    void availablePlugins_data();
    void availablePlugins();
    void loginArguments_data();
    void loginArguments();
    void expiredPasswordKeepsConnectionForChange();
    void laterLoginReusesTransport();
    void disconnect_data();
    void disconnect();

private:
    LibraryPathsGuard paths;
};

void LoginTest::init()
{
    // A transport directory put on the search path by an earlier test would
    // let a bare-name load succeed where this one expects none.
    paths.restore();
    scripted()->reset();
}

void LoginTest::failedLogin_data()
{
    QTest::addColumn<QString>("pluginPath");
    QTest::addColumn<Script>("script");
    QTest::addColumn<QString>("lastError");
    QTest::addColumn<Reached>("reached");

    const QString transport = scriptedTransportDir();
    const QString missing = QStringLiteral("/nonexistent/transport/");
    QTest::newRow("plugin cannot be loaded")
        << missing << Script([] {}) << transportLoadFailure(missing) << Reached::NoTransport;
    QTest::newRow("library is no transport")
        << nonTransportPluginDir() << Script([] {})
        << QStringLiteral("Das nuvMQPlugin konnte nicht geladen werden! ") << Reached::NoTransport;
    QTest::newRow("broker refuses the connection") << transport << Script([] {
        scripted()->refuseConnect(QStringLiteral("Connection refused"));
    }) << "Connection refused" << Reached::Broker;
    QTest::newRow("no reply to CFLOGIN")
        << transport << Script([] { scripted()->queueFailure(QStringLiteral("no reply in 30 s")); })
        << "no reply in 30 s" << Reached::LoginSentThenDisconnect;
    QTest::newRow("server refuses the login")
        << transport << replyWith(Reply("ERROR").error("Benutzer oder Passwort falsch"))
        << "Benutzer oder Passwort falsch" << Reached::LoginSentThenDisconnect;
    QTest::newRow("status holding ERROR after a prefix and a colon")
        << transport << replyWith(Reply("LOGIN:ERROR").error("refused").data({ "18.09-5" }))
        << "refused" << Reached::LoginSentThenDisconnect;
    QTest::newRow("status ERROR without error text leaves an empty last error")
        << transport << replyWith(Reply("ERROR")) << "" << Reached::LoginSentThenDisconnect;
    QTest::newRow("password expired (English) keeps the connection")
        << transport << replyWith(Reply("ERROR").error("Password expired since 2024-01-31"))
        << "Password expired since 2024-01-31" << Reached::LoginSent;
    QTest::newRow("password expired (German) keeps the connection")
        << transport << replyWith(Reply("ERROR").error("Passwort abgelaufen"))
        << "Passwort abgelaufen" << Reached::LoginSent;
    QTest::newRow("expiry text in lower case disconnects")
        << transport << replyWith(Reply("ERROR").error("password expired")) << "password expired"
        << Reached::LoginSentThenDisconnect;
    QTest::newRow("expiry text not at the start disconnects")
        << transport << replyWith(Reply("ERROR").error("Login: Password expired"))
        << "Login: Password expired" << Reached::LoginSentThenDisconnect;
    const auto mismatch = [](const QByteArray &version) {
        return Script([version] {
            answer(versionReply(version));
            answer(Reply("OK")); // CFCLOSESESSION
        });
    };
    QTest::newRow("version mismatch closes the session and disconnects")
        << transport << mismatch("18.09-4") << versionMismatch << Reached::SessionClosed;
    QTest::newRow("client version followed by one blank is a mismatch")
        << transport << mismatch("18.09-5 ") << versionMismatch << Reached::SessionClosed;
    QTest::newRow("a null first data element is a mismatch")
        << transport << mismatch(QByteArray()) << versionMismatch << Reached::SessionClosed;
    QTest::newRow("version compared case-sensitively")
        << transport << mismatch("18.09-5A") << versionMismatch << Reached::SessionClosed;
    QTest::newRow("version mismatch keeps its message when closing the session fails")
        << transport << Script([] {
               answer(versionReply("18.09-4"));
               answer(Reply("ERROR").error("no session to close")); // CFCLOSESESSION
           })
        << versionMismatch << Reached::SessionClosed;
}

void LoginTest::failedLogin()
{
    QFETCH(QString, pluginPath);
    QFETCH(Script, script);
    QFETCH(QString, lastError);
    QFETCH(Reached, reached);

    ClientPtr client = clientWithPluginPath(pluginPath);
    // An earlier failure, so that every outcome must write the last error.
    client->getRoles();
    QVERIFY(!client->errorString().isEmpty());

    script();
    QCOMPARE(client->connectToNuvKESP(host, port, user, pass), false);
    QCOMPARE(client->errorString(), lastError);
    QCOMPARE(client->getLastError(), lastError);
    QCOMPARE(scripted()->calls(), callsUpTo(reached));

    // The session keeps what was tried.
    QCOMPARE(client->getUsername(), user);
    QCOMPARE(client->getPass(), pass);
    QCOMPARE(client->getHost(), host);
    QCOMPARE(client->getPort(), port);
    // Nothing of a login reply is taken over.
    QCOMPARE(client->getUserRoles(), QStringList());
    QCOMPARE(client->getFullUserName(), QString());
    QCOMPARE(client->getAvailablePlugins(), QStringList());
}

void LoginTest::successfulLogin_data()
{
    QTest::addColumn<nuvMQClassifyMessage>("reply");
    const auto granted = [](const QString &status) {
        return Reply(status).dataList({ "Admin", "Scan" }).docId("Anna Muster");
    };
    QTest::newRow("matching version") << nuvMQClassifyMessage(granted("OK").data({ "18.09-5" }));
    QTest::newRow("empty data list succeeds without a version check")
        << nuvMQClassifyMessage(granted("OK"));
    QTest::newRow("only the first data element is the version")
        << nuvMQClassifyMessage(granted("OK").data({ "18.09-5", "18.09-4" }));
    QTest::newRow("version read up to its first zero byte")
        << nuvMQClassifyMessage(granted("OK").data({ QByteArray("18.09-5\0junk", 12) }));
    QTest::newRow("lower-case error in the status is no failure")
        << nuvMQClassifyMessage(granted("error").data({ "18.09-5" }));
    QTest::newRow("empty status is no failure") << nuvMQClassifyMessage(granted(""));
    QTest::newRow("an error text beside a good status is ignored")
        << nuvMQClassifyMessage(granted("OK").error("just a warning"));
}

void LoginTest::successfulLogin()
{
    QFETCH(nuvMQClassifyMessage, reply);
    ClientPtr client = newClient();
    client->getRoles();
    QVERIFY(!client->errorString().isEmpty());

    answer(reply);
    QVERIFY2(client->connectToNuvKESP(host, port, user, pass), qPrintable(client->errorString()));
    QCOMPARE(client->errorString(), QString());
    QCOMPARE(client->getUserRoles(), QStringList({ "Admin", "Scan" }));
    QCOMPARE(client->getFullUserName(), QStringLiteral("Anna Muster"));
    QCOMPARE(scripted()->calls(), callsUpTo(Reached::LoginSent));
    const ScriptedExchange login = scripted()->exchanges().value(0);
    QCOMPARE(login.kind, 1001);
    QCOMPARE(login.timeoutSeconds, qint64(30));
}

void LoginTest::availablePlugins_data()
{
    QTest::addColumn<QStringList>("sent");
    QTest::addColumn<QStringList>("kept");
    QTest::newRow("first entry dropped from three")
        << QStringList { "x", "A", "B" } << QStringList { "A", "B" };
    QTest::newRow("a single entry leaves none") << QStringList { "x" } << QStringList();
    QTest::newRow("no entries stay none") << QStringList() << QStringList();
    QTest::newRow("an empty first entry is dropped too")
        << QStringList { "", "A" } << QStringList { "A" };
}

void LoginTest::availablePlugins()
{
    QFETCH(QStringList, sent);
    QFETCH(QStringList, kept);
    ClientPtr client = newClient();
    answer(Reply("OK").availablePlugins(sent));
    QVERIFY(client->connectToNuvKESP(host, port, user, pass));
    QCOMPARE(client->getAvailablePlugins(), kept);
}

using Login = std::function<bool(ClassifyInterface *)>;
Q_DECLARE_METATYPE(Login)

void LoginTest::loginArguments_data()
{
    QTest::addColumn<Login>("login");
    QTest::addColumn<QString>("extra");
    QTest::newRow("four arguments send an empty third entry")
        << Login([](ClassifyInterface *c) { return c->connectToNuvKESP(host, port, user, pass); })
        << "";
    QTest::newRow("five arguments send the extra as third entry")
        << Login([](ClassifyInterface *c) {
               return c->connectToNuvKESP(host, port, user, pass, QStringLiteral("web"));
           })
        << "web";
}

void LoginTest::loginArguments()
{
    QFETCH(Login, login);
    QFETCH(QString, extra);
    ClientPtr client = newClient();
    answer(Reply("OK"));
    QVERIFY(login(client.get()));

    const nuvMQClassifyMessage request = lastRequest();
    QCOMPARE(request.command, QStringLiteral("CFLOGIN"));
    QCOMPARE(request.getDataList(), QStringList({ user, pass, extra }));
    QCOMPARE(request.getDocId(), QString());
    QCOMPARE(request.getData(), QList<QByteArray>());
    QCOMPARE(client->getUsername(), user);
    QCOMPARE(client->getPass(), pass);
    QCOMPARE(client->getHost(), host);
    QCOMPARE(client->getPort(), port);
}

void LoginTest::expiredPasswordKeepsConnectionForChange()
{
    ClientPtr client = newClient();
    answer(Reply("ERROR").error("Password expired"));
    QVERIFY(!client->connectToNuvKESP(host, port, user, pass));

    // The change runs on the connection the refused login kept open.
    scripted()->clearCalls();
    answer(Reply("OK"));
    QVERIFY(client->changeExpiredPass(user, pass, QStringLiteral("neu"), QString(), 0));
    QCOMPARE(scripted()->calls(), QStringList({ "sendSyncMessage CFDOCCHANGEEXPIREDPASS" }));
}

void LoginTest::laterLoginReusesTransport()
{
    ClientPtr client = newClient();
    answer(Reply("ERROR").error("first attempt refused"));
    QVERIFY(!client->connectToNuvKESP(host, port, user, pass));

    scripted()->clearCalls();
    answer(Reply("OK").dataList({ "R" }));
    QVERIFY(client->connectToNuvKESP(QStringLiteral("other"), 1, QStringLiteral("bob"), pass));
    QCOMPARE(
        scripted()->calls(),
        QStringList({ "connectToBroker other 1", "setUserName bob", "sendSyncMessage CFLOGIN" }));
    QCOMPARE(client->errorString(), QString());
    QCOMPARE(client->getUsername(), QStringLiteral("bob"));
    QCOMPARE(client->getHost(), QStringLiteral("other"));
    QCOMPARE(client->getPort(), 1);
    QCOMPARE(scripted()->liveInstances(), 1);
}

using Session = std::function<ClientPtr()>;
Q_DECLARE_METATYPE(Session)

void LoginTest::disconnect_data()
{
    QTest::addColumn<Session>("session");
    QTest::addColumn<QStringList>("calls");
    QTest::newRow("before any login nothing is called")
        << Session([] { return newClient(); }) << QStringList();
    QTest::newRow("after a login the transport disconnects, each time asked")
        << Session([] { return loggedInClient(); }) << QStringList({ "disconnectFromBroker" });
}

void LoginTest::disconnect()
{
    QFETCH(Session, session);
    QFETCH(QStringList, calls);
    ClientPtr client = session();
    const QString userBefore = client->getUsername();
    const QStringList rolesBefore = client->getUserRoles();
    scripted()->clearCalls();

    client->disconnectFromNuvKESP();
    QCOMPARE(scripted()->calls(), calls);
    client->disconnectFromNuvKESP();
    QCOMPARE(scripted()->calls(), calls + calls);
    // Disconnecting changes no session member.
    QCOMPARE(client->getUsername(), userBefore);
    QCOMPARE(client->getUserRoles(), rolesBefore);
}

QTEST_GUILESS_MAIN(LoginTest)
#include "tst_login.moc"

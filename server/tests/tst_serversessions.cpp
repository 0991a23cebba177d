// SPDX-License-Identifier: Apache-2.0
// Login, sessions, passwords and user administration through the classify
// plugin and the embedded transport.

#include "servertestsupport.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>

#include <thread>

using namespace servertest;

class ServerSessionsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void loginReply();
    void refusedLogin_data();
    void refusedLogin();
    void expiredPasswordIsChangedOnTheRefusedConnection();
    void expiredPasswordChangeChecksTheOldPassword();
    void passwordsAreStoredAsSaltedHashes();
    void commandsNeedALogin_data();
    void commandsNeedALogin();
    void closedSessionRefusesCommands();
    void administrativeCommandsRefuseOtherUsers_data();
    void administrativeCommandsRefuseOtherUsers();
    void userAdministrationRoundTrip();
    void ownPasswordChange_data();
    void ownPasswordChange();
    void administratorResetMakesThePasswordExpire();
    void deletedUserHandsOverWhatItOwned();
    void lastAdministratorIsKept_data();
    void lastAdministratorIsKept();
    void chatUsersAreTheLoggedInUsers();
    void engineFollowsTheCallingThread();
    void idleSessionsExpire();
    void lastSeenIsKeptOnlyWithATimeout_data();
    void lastSeenIsKeptOnlyWithATimeout();
    void databaseFileIsVersionedAndLogged();
};

void ServerSessionsTest::loginReply()
{
    TestServer server;
    qputenv("NUV_SERVER_PLUGINS", "viewer,ocr");
    qputenv("NUV_SERVER_WEB_URL", "https://docs.example.org");
    ClientPtr client = server.admin();
    QCOMPARE(client->getUserRoles(), QStringList { "Administrators" });
    QCOMPARE(client->getFullUserName(), QString("Ada Admin"));
    QCOMPARE(client->getAvailablePlugins(), QStringList({ "web", "viewer", "ocr" }));
    QCOMPARE(client->errorString(), QString());
    QCOMPARE(client->getServerVersion(), QString("18.09-5"));
    QCOMPARE(client->getAuthToken().size(), 64);
    QVERIFY(client->getAuthToken() != server.admin()->getAuthToken());
}

void ServerSessionsTest::refusedLogin_data()
{
    QTest::addColumn<QString>("login");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("error");
    QTest::newRow("wrong password") << adminUser << "not-the-password"
                                    << "CFLOGIN: unknown user or wrong password";
    QTest::newRow("unknown user gets the same answer")
        << "nobody" << adminPassword << "CFLOGIN: unknown user or wrong password";
    QTest::newRow("disabled account")
        << "carol" << passwordOf("carol") << "CFLOGIN: the account of carol is disabled";
}

void ServerSessionsTest::refusedLogin()
{
    QFETCH(QString, login);
    QFETCH(QString, password);
    QFETCH(QString, error);
    TestServer server;
    server.user("carol");
    QVERIFY(
        server.admin()->updateUsers({ joined({ "carol", "Carol", "c@example.org", "0", "0" }) }));
    QString text;
    QVERIFY(!server.connect(login, password, &text));
    QCOMPARE(text, error);
}

void ServerSessionsTest::expiredPasswordIsChangedOnTheRefusedConnection()
{
    TestServer server;
    QVERIFY(server.admin()->setUsers({ joined({ "dora", "first-password", "Dora", "", "1" }) }));
    ClientPtr client = server.unconnected();
    QVERIFY(!client->connectToNuvKESP(server.database(), 0, "dora", "first-password"));
    QVERIFY2(client->errorString().startsWith("Password expired"),
             qPrintable(client->errorString()));
    QVERIFY(client->getRoles().isEmpty());
    QVERIFY(client->errorString().contains("has expired"));
    QVERIFY2(client->changeExpiredPass("dora", "first-password", "second-password", QString(), 0),
             qPrintable(client->errorString()));
    QVERIFY(!server.connect("dora", "first-password"));
    QVERIFY(server.connect("dora", "second-password"));
}

void ServerSessionsTest::expiredPasswordChangeChecksTheOldPassword()
{
    TestServer server;
    QVERIFY(server.admin()->setUsers({ joined({ "dora", "first-password", "Dora", "", "1" }) }));
    ClientPtr client = server.unconnected();
    QVERIFY(!client->connectToNuvKESP(server.database(), 0, "dora", "first-password"));
    QVERIFY(!client->changeExpiredPass("dora", "wrong-password", "second-password", QString(), 0));
    QCOMPARE(client->errorString(), QString("CFDOCCHANGEEXPIREDPASS: the old password is wrong"));
    QVERIFY(!client->changeExpiredPass("admin", adminPassword, "second-password", QString(), 0));
    QVERIFY(client->errorString().contains("not as admin"));
}

void ServerSessionsTest::passwordsAreStoredAsSaltedHashes()
{
    TestServer server;
    server.user("erin");
    server.user("fred");
    QStringList rows;
    for (const QString &login : { adminUser, QString("erin"), QString("fred") })
        rows.append(
            login + ' '
            + server
                  .inspect(QString("SELECT password_hash FROM users WHERE login = '%1'").arg(login))
                  .toString());
    QCOMPARE(rows.size(), 3);
    QStringList salts;
    for (const QString &row : rows) {
        const QString hash = row.section(' ', 1);
        QVERIFY(hash.startsWith("pbkdf2-sha256$1000$"));
        QVERIFY(!hash.contains(passwordOf(row.section(' ', 0, 0))));
        salts.append(hash.section('$', 2, 2));
    }
    QCOMPARE(salts.removeDuplicates(), 0);
}

void ServerSessionsTest::commandsNeedALogin_data()
{
    QTest::addColumn<QString>("command");
    for (const char *word : { "CFROLES", "CFDOCCLASSIFY", "CFDOBACKUP", "CFWEBCOMMAND", "CFUPDATES",
                              "CFCLOSESESSION", "CFDOCCHANGEEXPIREDPASS" })
        QTest::newRow(word) << word;
}

void ServerSessionsTest::commandsNeedALogin()
{
    QFETCH(QString, command);
    TestServer server;
    auto engine = server.engine();
    const nuvMQClassifyMessage reply
        = engine->handle(request(command, "1", { "a", "b" }), "token-1");
    QCOMPARE(reply.command, QString("ERROR"));
    QVERIFY(reply.hasErrorText);
    QCOMPARE(reply.errorText, command + ": not logged in; log in with CFLOGIN first");
    QVERIFY(reply.getUpdateString().isEmpty());
    // The server version needs no login.
    QCOMPARE(engine->handle(request("CFSERVERVERSION"), QString()).command, QString("OK"));
}

void ServerSessionsTest::closedSessionRefusesCommands()
{
    TestServer server;
    ClientPtr client = server.admin();
    QVERIFY(client->closeSession());
    QVERIFY(client->getRoles().isEmpty());
    QVERIFY(client->errorString().contains("not logged in"));
}

using ClientCall = std::function<bool(ClassifyInterface *)>;
Q_DECLARE_METATYPE(ClientCall)

void ServerSessionsTest::administrativeCommandsRefuseOtherUsers_data()
{
    QTest::addColumn<ClientCall>("call");
    QTest::newRow("read users") << ClientCall([](ClassifyInterface *c) {
        QStringList users;
        return c->getUsers(users);
    });
    QTest::newRow("create users") << ClientCall([](ClassifyInterface *c) {
        return c->setUsers({ joined({ "x", "long-password" }) });
    });
    QTest::newRow("set a password") << ClientCall(
        [](ClassifyInterface *c) { return c->changeUserPassAdmin("admin", "another-password"); });
    QTest::newRow("create roles") << ClientCall(
        [](ClassifyInterface *c) { return c->setRoles({ "r" }); });
    QTest::newRow("give roles") << ClientCall(
        [](ClassifyInterface *c) { return c->setUserRoles("gina", { "Administrators" }); });
    QTest::newRow("save document types")
        << ClientCall([](ClassifyInterface *c) { return c->saveDocTypes({ "Invoice" }, {}); });
    QTest::newRow("change an attribute") << ClientCall([](ClassifyInterface *c) {
        return c->modifyDynattribute({ joined({ "1", "amount" }) });
    });
    QTest::newRow("create a tenant") << ClientCall(
        [](ClassifyInterface *c) { return c->insertMandant("T2", "second", QByteArray()); });
    QTest::newRow("save a folder structure") << ClientCall([](ClassifyInterface *c) {
        return c->saveFolderStructure("1", { joined({ "A", "", "0", "", "", "A" }) }, {});
    });
    QTest::newRow("backup") << ClientCall([](ClassifyInterface *c) { return c->doBackup(); });
    QTest::newRow("rebuild the index")
        << ClientCall([](ClassifyInterface *c) { return c->recreateIndex(); });
    QTest::newRow("list the file system") << ClientCall([](ClassifyInterface *c) {
        QStringList entries;
        return c->loadRemoteFS("", entries);
    });
    QTest::newRow("test mail") << ClientCall(
        [](ClassifyInterface *c) { return c->testMail("a@b.c"); });
}

void ServerSessionsTest::administrativeCommandsRefuseOtherUsers()
{
    QFETCH(ClientCall, call);
    TestServer server;
    ClientPtr client = server.user("gina");
    QVERIFY(!call(client.get()));
    QVERIFY2(client->errorString().contains(": only an administrator may do this; gina is none"),
             qPrintable(client->errorString()));
}

void ServerSessionsTest::userAdministrationRoundTrip()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(
        admin->setUsers({ joined({ "hana", "hana-password", "Hana H", "h@example.org", "0" }),
                          joined({ "ivan", "ivan-password", "Ivan I", "i@example.org", "0" }) }));
    QStringList users { "hana", "ivan", "nobody" };
    QVERIFY(admin->getUsers(users));
    QCOMPARE(users,
             QStringList({ joined({ "hana", "Hana H", "h@example.org", "0", "1" }),
                           joined({ "ivan", "Ivan I", "i@example.org", "0", "1" }) }));
    QVERIFY(admin->updateUsers({ joined({ "ivan", "Ivan Ivanov" }) }));
    users = QStringList { "ivan" };
    QVERIFY(admin->getUsers(users));
    QCOMPARE(users, QStringList { joined({ "ivan", "Ivan Ivanov", "i@example.org", "0", "1" }) });
    QVERIFY(!admin->setUsers({ joined({ "hana", "hana-password" }) }));
    QCOMPARE(admin->errorString(), QString("CFDOCSETUSERS: there is already a user 'hana'"));
    QVERIFY(!admin->setUsers({ joined({ "Administrators", "long-password" }) }));
    QVERIFY(admin->errorString().contains("is already the name of a role"));
    QVERIFY(!admin->setUsers({ joined({ "kurt", "short" }) }));
    QCOMPARE(admin->errorString(),
             QString("CFDOCSETUSERS: a password needs at least 8 characters"));
    QVERIFY(admin->delUsers({ "hana" }, QString()));
    users.clear();
    QVERIFY(admin->getUsers(users));
    QCOMPARE(users.size(), 2);
    QVERIFY(!server.connect("hana", "hana-password"));
}

void ServerSessionsTest::ownPasswordChange_data()
{
    QTest::addColumn<QString>("oldPassword");
    QTest::addColumn<QString>("newPassword");
    QTest::addColumn<QString>("error");
    QTest::newRow("accepted") << passwordOf("jack") << "brand-new-password" << QString();
    QTest::newRow("wrong old password") << "wrong"
                                        << "brand-new-password"
                                        << "CFDOCCHANGEUSERPASS: the old password is wrong";
    QTest::newRow("too short") << passwordOf("jack") << "short"
                               << "CFDOCCHANGEUSERPASS: a password needs at least 8 characters";
}

void ServerSessionsTest::ownPasswordChange()
{
    QFETCH(QString, oldPassword);
    QFETCH(QString, newPassword);
    QFETCH(QString, error);
    TestServer server;
    ClientPtr client = server.user("jack");
    QCOMPARE(client->changeUserPass(oldPassword, newPassword), error.isEmpty());
    if (!error.isEmpty())
        QCOMPARE(client->errorString(), error);
    QCOMPARE(bool(server.connect("jack", newPassword)), error.isEmpty());
}

void ServerSessionsTest::administratorResetMakesThePasswordExpire()
{
    TestServer server;
    server.user("kate");
    QVERIFY(server.admin()->changeUserPassAdmin("kate", "reset-password"));
    QString error;
    QVERIFY(!server.connect("kate", "reset-password", &error));
    QVERIFY(error.startsWith("Password expired"));
}

void ServerSessionsTest::deletedUserHandsOverWhatItOwned()
{
    TestServer server;
    ClientPtr leaving = server.user("liam");
    const QString clipboard = leaving->addClipboard("Work");
    QVERIFY(!clipboard.isEmpty());
    QVERIFY2(leaving->addExtentedSearch("Mine", "my search", {}),
             qPrintable(leaving->errorString()));
    server.user("mona");
    leaving.reset();
    QVERIFY(server.admin()->delUsers({ "liam" }, "mona"));
    ClientPtr mona = server.connect("mona", passwordOf("mona"));
    QList<QPair<QString, QString>> clipboards;
    QVERIFY(mona->readClipboards(clipboards));
    QCOMPARE(clipboards, (QList<QPair<QString, QString>> { { clipboard, "Work (liam)" } }));
    QCOMPARE(mona->getExtentedSearch({}).size(), 1);
}

void ServerSessionsTest::lastAdministratorIsKept_data()
{
    QTest::addColumn<ClientCall>("call");
    QTest::newRow("taking away the role")
        << ClientCall([](ClassifyInterface *c) { return c->setUserRoles("admin", {}); });
    QTest::newRow("deleting the role")
        << ClientCall([](ClassifyInterface *c) { return c->deleteRoles({ "Administrators" }); });
    QTest::newRow("clearing the role's members")
        << ClientCall([](ClassifyInterface *c) { return c->setRoleUsers("Administrators", {}); });
    QTest::newRow("disabling the account") << ClientCall([](ClassifyInterface *c) {
        return c->updateUsers({ joined({ "admin", "Ada", "", "0", "0" }) });
    });
}

void ServerSessionsTest::lastAdministratorIsKept()
{
    QFETCH(ClientCall, call);
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(!call(admin.get()));
    QVERIFY2(admin->errorString().endsWith(": the change would leave no active administrator"),
             qPrintable(admin->errorString()));
    QCOMPARE(admin->getUserRoles("admin"), QStringList { "Administrators" });
}

void ServerSessionsTest::chatUsersAreTheLoggedInUsers()
{
    TestServer server;
    ClientPtr nora = server.user("nora");
    ClientPtr admin = server.admin();
    QCOMPARE(admin->getChatUsers(),
             QStringList({ joined({ "admin", "Ada Admin" }), joined({ "nora", "nora Full" }) }));
    nora->disconnectFromNuvKESP();
    QCOMPARE(admin->getChatUsers(), QStringList { joined({ "admin", "Ada Admin" }) });
}

void ServerSessionsTest::engineFollowsTheCallingThread()
{
    TestServer server;
    auto engine = server.engine();
    engineLogin(*engine, "token", adminUser, adminPassword);
    QStringList roles;
    // A std::thread, whose join ThreadSanitizer sees, unlike QThread::wait.
    std::thread worker([&] { roles = engine->handle(request("CFROLES"), "token").getDataList(); });
    worker.join();
    QCOMPARE(roles, QStringList { "Administrators" });
    QCOMPARE(engine->handle(request("CFROLES"), "token").getDataList(), roles);
}

void ServerSessionsTest::idleSessionsExpire()
{
    TestServer server;
    qputenv("NUV_SERVER_SESSION_TIMEOUT_MINUTES", "5");
    auto engine = server.engine();
    engineLogin(*engine, "token", adminUser, adminPassword);
    QCOMPARE(engine->handle(request("CFROLES"), "token").command, QString("OK"));
    server.inspect("UPDATE sessions SET last_seen = '2000-01-01 00:00:00'");
    QCOMPARE(engine->handle(request("CFROLES"), "token").errorText,
             QString("CFROLES: the session has expired; log in again"));
    QCOMPARE(engine->handle(request("CFROLES"), "token").errorText,
             QString("CFROLES: not logged in; log in with CFLOGIN first"));
}

void ServerSessionsTest::lastSeenIsKeptOnlyWithATimeout_data()
{
    QTest::addColumn<QByteArray>("timeout");
    QTest::addColumn<bool>("updated");
    QTest::newRow("no timeout") << QByteArray("0") << false;
    QTest::newRow("timeout") << QByteArray("60") << true;
}

void ServerSessionsTest::lastSeenIsKeptOnlyWithATimeout()
{
    QFETCH(QByteArray, timeout);
    QFETCH(bool, updated);
    TestServer server;
    qputenv("NUV_SERVER_SESSION_TIMEOUT_MINUTES", timeout);
    auto engine = server.engine();
    engineLogin(*engine, "token", adminUser, adminPassword);
    const QString planted
        = QDateTime::currentDateTimeUtc().addSecs(-120).toString("yyyy-MM-dd hh:mm:ss");
    server.inspect(QString("UPDATE sessions SET last_seen = '%1'").arg(planted));
    QCOMPARE(engine->handle(request("CFROLES"), "token").command, QString("OK"));
    const QString seen = server.inspect("SELECT last_seen FROM sessions").toString();
    QCOMPARE(seen != planted, updated);
}

void ServerSessionsTest::databaseFileIsVersionedAndLogged()
{
    TestServer server;
    // The schema version lives where each database keeps such things.
    if (server.isPostgres()) {
        QCOMPARE(server.inspect("SELECT version FROM schema_version").toInt(), 3);
        server.inspect("UPDATE schema_version SET version = 7");
    } else {
        QCOMPARE(server.inspect("PRAGMA user_version").toInt(), 3);
        QCOMPARE(server.inspect("PRAGMA journal_mode").toString(), QString("wal"));
        server.inspect("PRAGMA user_version = 7");
    }
    nuvserver::ServerEngine engine(nuvserver::EngineOptions::fromEnvironment(server.database()));
    QString error;
    QVERIFY(!engine.open(&error));
    QCOMPARE(error, QString("the database has schema 7, newer than this server's 3"));
    const nuvMQClassifyMessage reply = engine.handle(request("CFROLES"), "token");
    QCOMPARE(reply.command, QString("ERROR"));
    QCOMPARE(reply.errorText,
             QString("CFROLES: the server's database is not available: not opened"));
}

QTEST_GUILESS_MAIN(ServerSessionsTest)
#include "tst_serversessions.moc"

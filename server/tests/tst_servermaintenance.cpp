// SPDX-License-Identifier: Apache-2.0
// Server information, the update marker and pending requests, backups, the
// server's file system, scan input, test mail and the pass-through commands.

#include "servertestsupport.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QtTest>

using namespace servertest;

namespace {
void writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
}

QStringList requestsOf(const QSignalSpy &spy)
{
    QStringList requests;
    for (const QList<QVariant> &arguments : spy)
        requests.append(arguments.at(0).toString());
    return requests;
}
} // namespace

class ServerMaintenanceTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void serverVersion();
    void updateMarkerAsksOthersToReload();
    void setLastModifiedAsksOthersToReload();
    void pendingRequestsArriveOnce();
    void backupHoldsTheSameRows();
    void backupNeedsADirectory();
    void fileSystemLocations_data();
    void fileSystemLocations();
    void fileSystemListing();
    void scanInput();
    void testMail_data();
    void testMail();
    void ldapCommands_data();
    void ldapCommands();
    void webCommands_data();
    void webCommands();
};

void ServerMaintenanceTest::serverVersion()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QCOMPARE(admin->getServerVersion(), QString("18.09-5"));
    auto engine = server.engine();
    const nuvMQClassifyMessage reply = engine->handle(request("CFSERVERVERSION"), "t");
    QCOMPARE(reply.getDataList().value(0), QString("nuvclassify reference server"));
    QVERIFY(
        reply.getDataList().value(2).startsWith(server.isPostgres() ? "PostgreSQL " : "SQLite 3."));
    QCOMPARE(reply.getDataList().value(3), QString("schema 3"));
}

void ServerMaintenanceTest::updateMarkerAsksOthersToReload()
{
    TestServer server;
    ClientPtr writer = server.admin();
    ClientPtr reader = server.user("hugo");
    reader->getRoles();
    writer->getRoles();
    QSignalSpy readerRequests(reader.get(), SIGNAL(serverRequest(QString)));
    QSignalSpy writerRequests(writer.get(), SIGNAL(serverRequest(QString)));

    QVERIFY(writer->setRoles({ "Fresh" }));
    QVERIFY(writer->setRoles({ "Fresher" }));
    QCOMPARE(writerRequests.count(), 0); // its own writes ask for nothing

    QCOMPARE(reader->getRoles().size(), 3);
    QCOMPARE(requestsOf(readerRequests), QStringList { "DORELOADALL" });
    reader->getRoles();
    QCOMPARE(readerRequests.count(), 1); // the marker is current again
    // A failed write changes nothing and moves no marker.
    QVERIFY(!writer->setRoles({ "" }));
    reader->getRoles();
    QCOMPARE(readerRequests.count(), 1);

    auto engine = server.engine();
    engineLogin(*engine, "direct", "hugo", passwordOf("hugo"));
    nuvMQClassifyMessage stale = request("CFROLES");
    stale.setUpdateString("another-database:1");
    const nuvMQClassifyMessage reply = engine->handle(stale, "direct");
    QVERIFY(reply.getUpdateRequested());
    QVERIFY(reply.getUpdateString().endsWith(":4")); // admin creation and two roles
}

void ServerMaintenanceTest::setLastModifiedAsksOthersToReload()
{
    TestServer server;
    ClientPtr writer = server.admin();
    ClientPtr reader = server.admin();
    reader->getRoles();
    QSignalSpy readerRequests(reader.get(), SIGNAL(serverRequest(QString)));
    writer->updateLastModified(); // reads only
    reader->getRoles();
    QCOMPARE(readerRequests.count(), 0);
    writer->setLastModified();
    reader->getRoles();
    QCOMPARE(requestsOf(readerRequests), QStringList { "DORELOADALL" });
}

void ServerMaintenanceTest::pendingRequestsArriveOnce()
{
    TestServer server;
    ClientPtr admin = server.admin();
    ClientPtr ivy = server.user("ivy");
    ClientPtr other = server.user("jon");
    QVERIFY(admin->setRoles({ "Team" }));
    QVERIFY(admin->setUserRoles("ivy", { "Team" }));
    QVERIFY(admin->insertMandant("North", "", QByteArray()));
    QSignalSpy requests(ivy.get(), SIGNAL(serverRequest(QString)));
    ivy->checkUpdate();
    QCOMPARE(requestsOf(requests), QStringList({ "DORELOADALL", "ROLESUPDATE", "SYSUPDATE" }));
    requests.clear();
    ivy->checkUpdate();
    QCOMPARE(requests.count(), 0);
    QSignalSpy otherRequests(other.get(), SIGNAL(serverRequest(QString)));
    other->checkUpdate();
    // Roles were created for everybody, but only ivy's own roles changed.
    QCOMPARE(requestsOf(otherRequests), QStringList({ "DORELOADALL", "ROLESUPDATE", "SYSUPDATE" }));
    QSignalSpy adminRequests(admin.get(), SIGNAL(serverRequest(QString)));
    admin->checkUpdate();
    QCOMPARE(adminRequests.count(), 0);
}

void ServerMaintenanceTest::backupHoldsTheSameRows()
{
    TestServer server;
    qputenv("NUV_SERVER_BACKUP_DIR", server.path("backups").toLocal8Bit());
    ClientPtr admin = server.admin();
    server.user("kim");
    for (const char *title : { "one", "two", "three" }) {
        QString doc;
        QVERIFY(admin->classify(doc, { joined({ "title", title }) }));
    }
    QVERIFY2(admin->doBackup(), qPrintable(admin->errorString()));
    QVERIFY(admin->updateBackupConfig());
    const QStringList backups = QDir(server.path("backups")).entryList(QDir::Files);
    QCOMPARE(backups.size(), 1);
    QVERIFY(backups.first().endsWith(server.isPostgres() ? ".dump" : ".sqlite"));
    // Later changes do not reach the copy.
    QString later;
    QVERIFY(admin->classify(later, { joined({ "title", "four" }) }));

    ClientPtr restored = server.unconnected();
    QVERIFY2(restored->connectToNuvKESP(server.restore(server.path("backups/" + backups.first())),
                                        0, adminUser, adminPassword),
             qPrintable(restored->errorString()));
    const QStringList copied = restored->getDocuments({});
    QCOMPARE(copied.size(), 3);
    QStringList original = admin->getDocuments({});
    original.removeLast();
    QCOMPARE(copied, original);
    QStringList users;
    QVERIFY(restored->getUsers(users));
    QCOMPARE(users.size(), 2);
    QVERIFY(server.connect("kim", passwordOf("kim")));
}

void ServerMaintenanceTest::backupNeedsADirectory()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(!admin->doBackup());
    QCOMPARE(admin->errorString(),
             QString("CFDOBACKUP: no backup directory is configured on this server"));
    QVERIFY(!admin->updateBackupConfig());
}

void ServerMaintenanceTest::fileSystemLocations_data()
{
    QTest::addColumn<QString>("location");
    QTest::addColumn<QString>("error");
    QTest::newRow("the root") << "files" << QString();
    QTest::newRow("a directory") << "files/docs" << QString();
    QTest::newRow("a link that stays inside") << "files/inner" << QString();
    QTest::newRow("dot-dot") << "files/../secret"
                             << "the location 'files/../secret' must not contain '..'";
    QTest::newRow("dot-dot inside") << "files/docs/../docs"
                                    << "the location 'files/docs/../docs' must not contain '..'";
    QTest::newRow("absolute path") << "/etc"
                                   << "the location '/etc' must be a relative path";
    QTest::newRow("a link that leads outside")
        << "files/docs/outside"
        << "the location 'files/docs/outside' leads outside the configured directory";
    QTest::newRow("unknown root") << "other/docs"
                                  << "the location 'other/docs' lies in no configured root";
    QTest::newRow("missing") << "files/missing"
                             << "the location 'files/missing' does not exist";
    QTest::newRow("a file") << "files/docs/a.txt"
                            << "the location 'files/docs/a.txt' is no directory";
}

void ServerMaintenanceTest::fileSystemLocations()
{
    QFETCH(QString, location);
    QFETCH(QString, error);
    TestServer server;
    writeFile(server.path("files/docs/a.txt"), "hello");
    writeFile(server.path("secret/key.txt"), "secret");
    QVERIFY(QFile::link(server.path("secret"), server.path("files/docs/outside")));
    QVERIFY(QFile::link(server.path("files/docs"), server.path("files/inner")));
    qputenv("NUV_SERVER_FS_ROOTS", server.path("files").toLocal8Bit());
    ClientPtr admin = server.admin();
    QCOMPARE(admin->checkFS(location), error.isEmpty());
    if (!error.isEmpty())
        QCOMPARE(admin->errorString(), "CFFSCHECK: " + error);
    QStringList entries { "kept" };
    QCOMPARE(admin->loadRemoteFS(location, entries), error.isEmpty());
    QCOMPARE(entries.first(), QString("kept"));
}

void ServerMaintenanceTest::fileSystemListing()
{
    TestServer server;
    writeFile(server.path("files/docs/a.txt"), "hello");
    writeFile(server.path("files/b.txt"), "");
    writeFile(server.path("secret/key.txt"), "secret");
    QVERIFY(QFile::link(server.path("secret"), server.path("files/docs/outside")));
    ClientPtr admin = server.admin();
    QStringList entries;
    QVERIFY(!admin->loadRemoteFS("", entries));
    QCOMPARE(admin->errorString(),
             QString("CFFSLIST: no file-system roots are configured on this server"));

    qputenv("NUV_SERVER_FS_ROOTS", server.path("files").toLocal8Bit());
    admin = server.admin();
    QVERIFY(admin->loadRemoteFS("", entries));
    QCOMPARE(entries, QStringList { joined({ "files", "d", "", "" }) });
    entries.clear();
    QVERIFY(admin->loadRemoteFS("files", entries));
    QCOMPARE(entries.size(), 2);
    QCOMPARE(fieldsOf(entries.at(0)).mid(0, 3), QStringList({ "docs", "d", "" }));
    QCOMPARE(fieldsOf(entries.at(1)).mid(0, 3), QStringList({ "b.txt", "f", "0" }));
    entries.clear();
    QVERIFY(admin->loadRemoteFS("files/docs", entries));
    QCOMPARE(entries.size(), 1); // the link outside is not shown
    QCOMPARE(fieldsOf(entries.at(0)).mid(0, 3), QStringList({ "a.txt", "f", "5" }));
}

void ServerMaintenanceTest::scanInput()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->getScanInputProcessList().isEmpty());
    QCOMPARE(admin->errorString(),
             QString("CFGETSCANINPUTLIST: scan input is not configured on this server"));
    writeFile(server.path("scan/scanner1/page1.png"), "PNG-1");
    writeFile(server.path("scan/scanner1/page2.png"), "PNG-2");
    writeFile(server.path("scan/scanner2/.keep"), "");
    writeFile(server.path("elsewhere/x.png"), "X");
    qputenv("NUV_SERVER_SCAN_DIR", server.path("scan").toLocal8Bit());
    admin = server.admin();
    QCOMPARE(admin->getScanInputProcessList(), QStringList({ "scanner1", "scanner2" }));
    QCOMPARE(admin->getScanInputProcessImage("scanner1"), QList<QByteArray>({ "PNG-1", "PNG-2" }));
    QVERIFY(admin->getScanInputProcessImage("../elsewhere").isEmpty());
    QCOMPARE(admin->errorString(),
             QString("CFGETSCANINPUTIMAGE: the process '../elsewhere' must be a plain name"));
    QVERIFY(admin->getScanInputProcessImage("..").isEmpty());
    QCOMPARE(admin->errorString(),
             QString("CFGETSCANINPUTIMAGE: the process '..' must not contain '..'"));
}

void ServerMaintenanceTest::testMail_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("error");
    QTest::newRow("sent") << "tee %1"
                          << "ops@example.org" << QString();
    QTest::newRow("not configured") << ""
                                    << "ops@example.org"
                                    << "CFTESTMAIL: mail is not configured on this server";
    QTest::newRow("command fails") << "false"
                                   << "ops@example.org"
                                   << "CFTESTMAIL: the mail command failed (exit code 1): ";
    QTest::newRow("command missing") << "/nonexistent/sendmail"
                                     << "ops@example.org"
                                     << "CFTESTMAIL: the mail command could not be started: ";
    QTest::newRow("blank command") << "   "
                                   << "ops@example.org"
                                   << "CFTESTMAIL: the mail command names no program";
    QTest::newRow("header injection") << "tee %1"
                                      << "a@b.c\nBcc: x@y.z"
                                      << "CFTESTMAIL: 'a@b.c\nBcc: x@y.z' is no mail address";
}

void ServerMaintenanceTest::testMail()
{
    QFETCH(QString, command);
    QFETCH(QString, address);
    QFETCH(QString, error);
    TestServer server;
    const QString mailFile = server.path("mail.txt");
    qputenv("NUV_SERVER_MAIL_COMMAND", QString(command).replace("%1", mailFile).toLocal8Bit());
    ClientPtr admin = server.admin();
    QCOMPARE(admin->testMail(address), error.isEmpty());
    if (error.isEmpty()) {
        QFile mail(mailFile);
        QVERIFY(mail.open(QIODevice::ReadOnly));
        const QByteArray text = mail.readAll();
        QVERIFY(text.startsWith("To: ops@example.org\nSubject: nuvclassify test mail\n"));
        QVERIFY(text.contains("at the request of admin"));
    } else {
        QVERIFY2(admin->errorString().startsWith(error), qPrintable(admin->errorString()));
    }
}

void ServerMaintenanceTest::ldapCommands_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("answer");
    QTest::addColumn<QString>("error");
    QTest::newRow("not configured")
        << ""
        << "PING" << QStringList() << "CFLDAPCOMMAND: LDAP is not configured on this server";
    QTest::newRow("ping") << "ldap://directory.example"
                          << "PING" << QStringList { "PONG" } << QString();
    QTest::newRow("url") << "ldap://directory.example"
                         << "URL" << QStringList { "ldap://directory.example" } << QString();
    QTest::newRow("unknown") << "ldap://directory.example"
                             << "SYNC" << QStringList()
                             << "CFLDAPCOMMAND: unknown LDAP command 'SYNC'";
}

void ServerMaintenanceTest::ldapCommands()
{
    QFETCH(QString, url);
    QFETCH(QString, command);
    QFETCH(QStringList, answer);
    QFETCH(QString, error);
    TestServer server;
    qputenv("NUV_SERVER_LDAP_URL", url.toLocal8Bit());
    ClientPtr client = server.user("lena");
    QList<QByteArray> data { "stale" };
    QList<QString> strings { "stale" };
    QString errorText = "stale";
    QCOMPARE(client->doLdapCommand(command, {}, data, strings, errorText), error.isEmpty());
    QCOMPARE(strings, answer);
    QCOMPARE(data, QList<QByteArray>());
    QCOMPARE(errorText, error);
}

void ServerMaintenanceTest::webCommands_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QList<QByteArray>>("arguments");
    QTest::addColumn<QStringList>("answer");
    QTest::addColumn<QList<QByteArray>>("answerData");
    QTest::addColumn<QString>("error");
    const QList<QByteArray> none;
    QTest::newRow("ping without configuration")
        << ""
        << "PING" << none << QStringList { "PONG" } << none << QString();
    QTest::newRow("anything else without configuration")
        << ""
        << "URL" << none << QStringList() << none
        << "CFWEBCOMMAND: the web service is not configured on this server";
    QTest::newRow("url") << "https://docs.example/"
                         << "URL" << none << QStringList { "https://docs.example/" } << none
                         << QString();
    QTest::newRow("echo") << "https://docs.example"
                          << "ECHO" << QList<QByteArray>({ "a", "b" }) << QStringList { "2" }
                          << QList<QByteArray>({ "a", "b" }) << QString();
    QTest::newRow("share link of an unknown share")
        << "https://docs.example"
        << "SHARELINK" << QList<QByteArray> { "nope" } << QStringList() << none
        << "CFWEBCOMMAND: there is no share 'nope'";
    QTest::newRow("unknown") << "https://docs.example"
                             << "DANCE" << none << QStringList() << none
                             << "CFWEBCOMMAND: unknown web command 'DANCE'";
}

void ServerMaintenanceTest::webCommands()
{
    QFETCH(QString, url);
    QFETCH(QString, command);
    QFETCH(QList<QByteArray>, arguments);
    QFETCH(QStringList, answer);
    QFETCH(QList<QByteArray>, answerData);
    QFETCH(QString, error);
    TestServer server;
    qputenv("NUV_SERVER_WEB_URL", url.toLocal8Bit());
    ClientPtr client = server.user("max");
    QList<QByteArray> data;
    QList<QString> strings;
    QString errorText = "stale";
    QCOMPARE(client->doWebCommand(command, arguments, data, strings, errorText), error.isEmpty());
    QCOMPARE(strings, answer);
    QCOMPARE(data, answerData);
    QCOMPARE(errorText, error);
}

QTEST_GUILESS_MAIN(ServerMaintenanceTest)
#include "tst_servermaintenance.moc"

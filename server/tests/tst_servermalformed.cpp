// SPDX-License-Identifier: Apache-2.0
// Requests that a client never sends: missing fields, wrong numbers, unknown
// commands. Each is answered with "ERROR" and a text naming the command and
// the problem, and writes nothing.

#include "servertestsupport.h"

#include <QtTest>

using namespace servertest;

class ServerMalformedTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void malformedRequests_data();
    void malformedRequests();
    void failedRequestWritesNothing();
    void damagedWireTextIsAnError();
};

void ServerMalformedTest::malformedRequests_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("docId");
    QTest::addColumn<QStringList>("dataList");
    QTest::addColumn<QList<QByteArray>>("data");
    QTest::addColumn<QString>("error");
    const QList<QByteArray> none;
    auto row
        = [&](const char *name, const QString &command, const QString &docId,
              const QStringList &dataList, const QList<QByteArray> &data, const QString &error) {
              QTest::newRow(name) << command << docId << dataList << data << error;
          };
    row("unknown command", "CFNOSUCHTHING", "", {}, none, "unknown command 'CFNOSUCHTHING'");
    row("no command", "", "", {}, none, "the request names no command");
    row("login without credentials", "CFLOGIN", "", {}, none,
        "CFLOGIN: the user name (dataList entry 0) is missing");
    row("login without password", "CFLOGIN", "", { "admin" }, none,
        "CFLOGIN: the password (dataList entry 1) is missing");
    row("document id missing", "CFDOCINFO", "", {}, none,
        "CFDOCINFO: the document (docId) is missing");
    row("document id not a number", "CFDOCHIST", "seven", {}, none,
        "CFDOCHIST: the document must be a number, not 'seven'");
    row("temporary id not a number", "CFDOCDELETECLASSIFYTEMP", "abc", {}, none,
        "CFDOCDELETECLASSIFYTEMP: the temporary classification must be a number, not 'abc'");
    row("archive move without document", "CFDOCSTOARCHIVE", "1", {}, none,
        "CFDOCSTOARCHIVE: the document (dataList entry 0) is missing");
    row("new classification too short", "CFDOCNEWCLASSIFY", "1", { "Letter" }, none,
        "CFDOCNEWCLASSIFY: dataList must hold type and title (2 entries), it holds 1");
    row("classification with temporary too short", "CFDOCCLASSIFYWITHTEMP", "1", { "a", "b" }, none,
        "CFDOCCLASSIFYWITHTEMP: dataList must hold type, title and temporary classification (3 "
        "entries), it holds 2");
    row("unknown count flag", "CFDOCGETCOUNT", "", { "", "SOMEFLAG" }, none,
        "CFDOCGETCOUNT: unknown flag word 'SOMEFLAG'");
    row("condition without operator", "CFCLASSCOUNT", "", { "title" }, none,
        "CFCLASSCOUNT: 'title' is no condition of the form field=value");
    row("one byte array for user data", "CFSAVEUSERDATA", "1", { "k1", "k2" }, { "one" },
        "CFSAVEUSERDATA: data must hold two byte arrays, it holds 1");
    row("public flag not a flag", "CFSAVEUSERDATA", "maybe", { "k1", "k2" }, { "a", "b" },
        "CFSAVEUSERDATA: the public flag (docId) must be true or false, not 'maybe'");
    row("system folder word", "CFDOCSYSFOLDERS", "0", { "SOME" }, none,
        "CFDOCSYSFOLDERS: dataList must hold EMPTYFOLDERS or NOEMPTYFOLDERS, not 'SOME'");
    row("more payloads than types", "CFSAVESTATI", "", { "open" }, { "a", "b" },
        "CFSAVESTATI: data holds 2 payloads for 1 records");
    row("share without data", "CFADDSHARE", "", { "1" }, none,
        "CFADDSHARE: data must hold recipient, limit, expiry and title");
    row("share limit not a number", "CFADDSHARE", "", { "1" }, { "r", "x", "", "t" },
        "CFADDSHARE: the access limit must be a number, not 'x'");
    row("share expiry not a time", "CFADDSHARE", "", { "1" }, { "r", "1", "soon", "t" },
        "CFADDSHARE: the expiry must be a time as yyyy-MM-dd hh:mm:ss, not 'soon'");
    row("document list with a word", "CFDOCMULTICLASSIFY", joined({ "1", "x" }), {}, none,
        "CFDOCMULTICLASSIFY: a document number must be a number, not 'x'");
    row("object id not issued", "CFDOCCLASSIFY", "-5", {}, none,
        "CFDOCCLASSIFY: -5 is no object id handed out by CFGETNEXTOID");
    row("rights mode", "CFSETDOCUSERS", "1", { "MERGE" }, none,
        "CFSETDOCUSERS: the mode must be SET, ADD or REMOVE, not 'MERGE'");
    row("rights letters", "CFSETDOCUSERS", "1", { "SET", joined({ "admin", "rx" }) }, none,
        "CFSETDOCUSERS: the rights of admin may hold only r and w, not 'rx'");
    row("deadline without due time", "CFSAVEDEADLINES", "", { joined({ "", "1" }) }, none,
        "CFSAVEDEADLINES: the due time must be a time as yyyy-MM-dd hh:mm:ss, not ''");
    row("deadline state", "CFSAVEDEADLINES", "",
        { joined({ "", "1", "2024-01-01", "", "", "later" }) }, none,
        "CFSAVEDEADLINES: a deadline's state is open, done or delete, not 'later'");
    row("search number", "CFEXTSEARCHUPD", "", { joined({ "x", "name", "" }) }, none,
        "CFEXTSEARCHUPD: the search number must be a number, not 'x'");
    row("value list of a word", "CFMODWERTE", "", { "x" }, none,
        "CFMODWERTE: the attribute number must be a number, not 'x'");
    row("archive missing", "CFSELARCHIVE", "", {}, none,
        "CFSELARCHIVE: the archive (docId) is missing");
    row("tenant without name", "CFNEWMANDANT", "", {}, none,
        "CFNEWMANDANT: the tenant name (dataList entry 0) is missing");
    row("user record without name", "CFDOCSETUSERS", "0", { "" }, none,
        "CFDOCSETUSERS: the user name is missing");
    row("deadline selection field", "CFSENDDEADLINES", "", { "colour=red" }, none,
        "CFSENDDEADLINES: deadlines have no field 'colour'");
    row("file-system check without location", "CFFSCHECK", "", {}, none,
        "CFFSCHECK: the location (docId) is missing");
    row("pass-through without inner command", "CFWEBCOMMAND", "", {}, none,
        "CFWEBCOMMAND: the web command (docId) is missing");
    row("clipboard card without clipboard", "CFCADDCARD", "", { "x" }, none,
        "CFCADDCARD: the clipboard (docId) is missing");
    row("folder record too short", "CFSAVEMANS", "1", { joined({ "A" }) }, none,
        "CFSAVEMANS: the folder key (field 5) is missing");
    row("expired password change for another user", "CFDOCCHANGEEXPIREDPASS", "other", { "a", "b" },
        none, "CFDOCCHANGEEXPIREDPASS: this connection logged in as admin, not as other");
}

void ServerMalformedTest::malformedRequests()
{
    QFETCH(QString, command);
    QFETCH(QString, docId);
    QFETCH(QStringList, dataList);
    QFETCH(QList<QByteArray>, data);
    QFETCH(QString, error);
    TestServer server;
    auto engine = server.engine();
    engineLogin(*engine, "token", adminUser, adminPassword);
    const QString marker = engine->handle(request("CFLASTUPDATE"), "token").getDocId();
    QVERIFY(engine->handle(request("CFDOCCLASSIFY"), "token").command == "OK");
    const QString after = engine->handle(request("CFLASTUPDATE"), "token").getDocId();
    QVERIFY(after != marker);

    const nuvMQClassifyMessage reply
        = engine->handle(request(command, docId, dataList, data), "token");
    QCOMPARE(reply.command, QString("ERROR"));
    QVERIFY(reply.hasErrorText);
    QCOMPARE(reply.errorText, error);
    QCOMPARE(engine->handle(request("CFLASTUPDATE"), "token").getDocId(), after);
}

void ServerMalformedTest::failedRequestWritesNothing()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(
        !admin->setUsers({ joined({ "first", "first-password" }), joined({ "second", "short" }) }));
    QStringList users;
    QVERIFY(admin->getUsers(users));
    QCOMPARE(users.size(), 1);
    QVERIFY(!admin->saveFolderStructure(
        "1", { joined({ "A", "", "0", "", "", "A" }), joined({ "B", "X", "0", "", "", "B" }) },
        {}));
    QStringList folders;
    QList<QByteArray> payloads;
    QVERIFY(admin->getFolderStructure("1", folders, payloads));
    QCOMPARE(folders, QStringList());
}

void ServerMalformedTest::damagedWireTextIsAnError()
{
    TestServer server;
    auto engine = server.engine();
    nuvMQClassifyMessage damaged;
    damaged.convertFromBase64(QStringLiteral("this is not a message"));
    const nuvMQClassifyMessage reply = engine->handle(damaged, "token");
    QCOMPARE(reply.command, QString("ERROR"));
    QVERIFY(reply.hasErrorText);
}

QTEST_GUILESS_MAIN(ServerMalformedTest)
#include "tst_servermalformed.moc"

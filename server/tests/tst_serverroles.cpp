// SPDX-License-Identifier: Apache-2.0
// Roles, role hierarchies and the rights on documents and folders.

#include "servertestsupport.h"

#include <QtTest>

using namespace servertest;

class ServerRolesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rolesRoundTrip();
    void roleHierarchy();
    void roleCyclesAreRefused();
    void roleMembersNameUsersOrRoles_data();
    void roleMembersNameUsersOrRoles();
    void deletedRoleLeavesNoRights();
    void documentRightsAreEnforced_data();
    void documentRightsAreEnforced();
    void documentRightsModes_data();
    void documentRightsModes();
    void folderRolesHideFoldersAndDocuments();
    void folderRolesNameUsersOrRoles_data();
    void folderRolesNameUsersOrRoles();
    void privateRoleIsTheLogin();
};

void ServerRolesTest::rolesRoundTrip()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->setRoles({ joined({ "Sales", "The sales team" }), "Support" }));
    QCOMPARE(admin->getRoles(), QStringList({ "Administrators", "Sales", "Support" }));
    QCOMPARE(admin->getRoleList(),
             QStringList({ joined({ "Administrators", "Administrators of the server", "1", "1" }),
                           joined({ "Sales", "The sales team", "0", "0" }),
                           joined({ "Support", "", "0", "0" }) }));
    server.user("olga", { "Sales", "Support" });
    QCOMPARE(admin->getUserRoles("olga"), QStringList({ "Sales", "Support" }));
    QCOMPARE(admin->getRoleUsers("Sales"), QStringList { "olga" });
    QVERIFY(admin->deleteRoles({ "Support" }));
    QCOMPARE(admin->getUserRoles("olga"), QStringList { "Sales" });
    QVERIFY(!admin->deleteRoles({ "Nope" }));
    QCOMPARE(admin->errorString(), QString("CFDELETEROLES: there is no role 'Nope'"));
    QVERIFY(!admin->setUserRoles("olga", { "Nope" }));
    QCOMPARE(admin->getUserRoles("olga"), QStringList { "Sales" });
}

void ServerRolesTest::roleHierarchy()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->setRoles({ "Staff", "Sales", "Europe" }));
    // Sales belongs to Staff, Europe to Sales: holders of Europe hold all three.
    QVERIFY(setRoleRoles(admin.get(), "Staff", { "Sales" }));
    QVERIFY(setRoleRoles(admin.get(), "Sales", { "Europe" }));
    QCOMPARE(admin->getRoleRoles("Staff"), QStringList { "Sales" });
    QCOMPARE(admin->getRoles(QString("Europe")), QStringList({ "Sales", "Staff" }));
    ClientPtr paul = server.user("paul", { "Europe" });
    QCOMPARE(paul->getUserRoles(), QStringList({ "Europe", "Sales", "Staff" }));
}

void ServerRolesTest::roleCyclesAreRefused()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->setRoles({ "A", "B" }));
    QVERIFY(setRoleRoles(admin.get(), "A", { "B" }));
    QVERIFY(!setRoleRoles(admin.get(), "B", { "A" }));
    QCOMPARE(admin->errorString(),
             QString("CFDOCSETROLEUSERS: the role memberships would form a cycle"));
    QVERIFY(!setRoleRoles(admin.get(), "A", { "A" }));
    QCOMPARE(admin->getRoleRoles("B"), QStringList());
}

void ServerRolesTest::roleMembersNameUsersOrRoles_data()
{
    QTest::addColumn<QStringList>("members");
    QTest::addColumn<QStringList>("users");
    QTest::addColumn<QStringList>("roles");
    QTest::newRow("users only keep the role members")
        << QStringList { "rita" } << QStringList { "rita" } << QStringList { "Sub" };
    QTest::newRow("roles only keep the user members")
        << QStringList { "Sub2" } << QStringList { "quinn" } << QStringList { "Sub2" };
    QTest::newRow("both kinds") << QStringList { "rita", "Sub2" } << QStringList { "rita" }
                                << QStringList { "Sub2" };
    QTest::newRow("an empty list removes all") << QStringList() << QStringList() << QStringList();
}

void ServerRolesTest::roleMembersNameUsersOrRoles()
{
    QFETCH(QStringList, members);
    QFETCH(QStringList, users);
    QFETCH(QStringList, roles);
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->setRoles({ "Team", "Sub", "Sub2" }));
    server.user("quinn", { "Team" });
    server.user("rita");
    QVERIFY(setRoleRoles(admin.get(), "Team", { "Sub" }));
    QVERIFY2(admin->setRoleUsers("Team", members), qPrintable(admin->errorString()));
    QCOMPARE(admin->getRoleUsers("Team"), users);
    QCOMPARE(admin->getRoleRoles("Team"), roles);
}

void ServerRolesTest::deletedRoleLeavesNoRights()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->setRoles({ "Temp" }));
    QString doc;
    QVERIFY(admin->classify(doc, { joined({ "title", "x" }) }));
    QVERIFY(admin->setDocUsersAndRoles(doc, "SET", { joined({ "Temp", "r" }) }));
    QVERIFY(admin->deleteRoles({ "Temp" }));
    QStringList entries { "stale" };
    QVERIFY(admin->getDocUsersAndRoles(doc, entries));
    QCOMPARE(entries, QStringList());
}

void ServerRolesTest::documentRightsAreEnforced_data()
{
    QTest::addColumn<QStringList>("rights");
    QTest::addColumn<bool>("reads");
    QTest::addColumn<bool>("writes");
    QTest::newRow("no entries: everybody") << QStringList() << true << true;
    QTest::newRow("another user only") << QStringList { joined({ "sam", "rw" }) } << false << false;
    QTest::newRow("read through a role")
        << QStringList { joined({ "Readers", "r" }) } << true << false;
    QTest::newRow("write for the user") << QStringList { joined({ "tina", "w" }) } << true << true;
}

void ServerRolesTest::documentRightsAreEnforced()
{
    QFETCH(QStringList, rights);
    QFETCH(bool, reads);
    QFETCH(bool, writes);
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->setRoles({ "Readers" }));
    server.user("sam");
    ClientPtr tina = server.user("tina", { "Readers" });
    QString doc;
    QVERIFY(admin->classify(doc, { joined({ "title", "Contract" }) }));
    QVERIFY2(admin->setDocUsersAndRoles(doc, "SET", rights), qPrintable(admin->errorString()));

    QCOMPARE(tina->getDocumentData(doc, "title"),
             reads ? QStringList { "Contract" } : QStringList());
    if (!reads)
        QCOMPARE(tina->errorString(), QString("CFDOCINFO: tina may not read document %1").arg(doc));
    QCOMPARE(tina->getDocumentCount(QString(), true, false), reads ? 1 : 0);
    QString target = doc;
    QCOMPARE(tina->classify(target, { joined({ "title", "Changed" }) }), writes);
    QCOMPARE(tina->moveDocumentsToTrash({ doc }), writes);
    // The administrator always sees everything.
    QCOMPARE(admin->getDocumentCount(QString(), true, false), 1);
}

void ServerRolesTest::documentRightsModes_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("SET replaces") << "SET" << QStringList { joined({ "uma", "r" }) }
                                  << QStringList { joined({ "uma", "r" }) };
    QTest::newRow("empty mode is SET")
        << "" << QStringList { "uma" } << QStringList { joined({ "uma", "rw" }) };
    QTest::newRow("ADD keeps the others")
        << "ADD" << QStringList { joined({ "uma", "wr" }) }
        << QStringList { joined({ "admin", "rw" }), joined({ "uma", "rw" }) };
    QTest::newRow("REMOVE") << "REMOVE" << QStringList { "admin" } << QStringList();
}

void ServerRolesTest::documentRightsModes()
{
    QFETCH(QString, mode);
    QFETCH(QStringList, entries);
    QFETCH(QStringList, expected);
    TestServer server;
    server.user("uma");
    ClientPtr admin = server.admin();
    QString doc;
    QVERIFY(admin->classify(doc, {}));
    QVERIFY(admin->setDocUsersAndRoles(doc, "SET", { "admin" }));
    QVERIFY2(admin->setDocUsersAndRoles(doc, mode, entries), qPrintable(admin->errorString()));
    QStringList rights;
    QVERIFY(admin->getDocUsersAndRoles(doc, rights));
    QCOMPARE(rights, expected);
    QStringList history;
    QVERIFY(admin->getDocHistory(doc, history));
    QCOMPARE(fieldsOf(history.last()).at(2), QString("rights"));
}

void ServerRolesTest::folderRolesHideFoldersAndDocuments()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->setRoles({ "Board" }));
    QVERIFY(admin->saveFolderStructure("1",
                                       { joined({ "Open", "", "0", "", "", "OPEN" }),
                                         joined({ "Secret", "", "1", "", "", "SECRET" }),
                                         joined({ "Inner", "SECRET", "0", "", "", "INNER" }) },
                                       {}));
    QVERIFY(admin->setFolderRoles("SECRET", { "Board" }));
    QCOMPARE(admin->getFolderRoles("SECRET"), QStringList { "Board" });
    QString hidden;
    QVERIFY(admin->classify(hidden, { joined({ "folder", "INNER" }) }));
    QString open;
    QVERIFY(admin->classify(open, { joined({ "folder", "OPEN" }) }));

    ClientPtr vera = server.user("vera");
    QStringList folders;
    QList<QByteArray> payloads;
    QVERIFY(vera->getFolderStructure("1", folders, payloads));
    QCOMPARE(folders.size(), 1);
    QCOMPARE(fieldsOf(folders.first()).at(5), QString("OPEN"));
    QCOMPARE(vera->getDocumentCount(QString(), true, false), 1);
    QVERIFY(vera->getDocumentData(hidden, QString()).isEmpty());
    QVERIFY(vera->getFolderRoles("SECRET").isEmpty());
    QCOMPARE(vera->errorString(), QString("CFGETFOLDROLE: there is no folder 'SECRET'"));

    ClientPtr walt = server.user("walt", { "Board" });
    QVERIFY(walt->getFolderStructure("1", folders, payloads));
    QCOMPARE(folders.size(), 3);
    QCOMPARE(walt->getDocumentCount(QString(), true, false), 2);
}

void ServerRolesTest::folderRolesNameUsersOrRoles_data()
{
    QTest::addColumn<QStringList>("principals");
    QTest::addColumn<QString>("error");
    QTest::newRow("a role and a user") << QStringList({ "Board", "admin" }) << QString();
    QTest::newRow("unknown name") << QStringList { "Nobody" }
                                  << "CFSETFOLDROLE: 'Nobody' is neither a user nor a role";
    QTest::newRow("role with rights appended")
        << QStringList { joined({ "Board", "r" }) }
        << QString("CFSETFOLDROLE: '%1' is neither a user nor a role (it holds a field separator)")
               .arg(joined({ "Board", "r" }));
}

void ServerRolesTest::folderRolesNameUsersOrRoles()
{
    QFETCH(QStringList, principals);
    QFETCH(QString, error);
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->setRoles({ "Board" }));
    QVERIFY(
        admin->saveFolderStructure("1", { joined({ "Secret", "", "0", "", "", "SECRET" }) }, {}));
    QCOMPARE(admin->setFolderRoles("SECRET", principals), error.isEmpty());
    QCOMPARE(admin->errorString(), error);
    QCOMPARE(admin->getFolderRoles("SECRET"), error.isEmpty() ? principals : QStringList());
}

void ServerRolesTest::privateRoleIsTheLogin()
{
    TestServer server;
    ClientPtr xena = server.user("xena");
    QString role = "unchanged";
    QVERIFY(xena->getUserRole(role));
    QCOMPARE(role, QString("xena"));
}

QTEST_GUILESS_MAIN(ServerRolesTest)
#include "tst_serverroles.moc"

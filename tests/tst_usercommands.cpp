// SPDX-License-Identifier: Apache-2.0
// Users and passwords, roles, and rights on documents and folders: the cases
// at the edges of what each operation sends and gives back. The ordinary
// request and outcome of every operation are checked from the catalogue
// (tst_admincatalogue).

#include "admincatalogue.h"

using namespace commandkit;

class UserCommandsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request_data();
    void request();
    void users_data();
    void users();
    void roles_data();
    void roles();
    void rights_data();
    void rights();
    void setRoleRolesIsSetRoleUsers_data();
    void setRoleRolesIsSetRoleUsers();
};

namespace {

const QString serverText = QStringLiteral("not allowed");

} // namespace

void UserCommandsTest::request_data()
{
    addRequestColumns();
    using C = ClassifyInterface *;

    QTest::newRow("delUsers with an empty list still sends the command")
        << returning([](C c) { return c->delUsers({}, "ctx"); }) << sent("CFDOCDELETEUSERS", "ctx");
    QTest::newRow("setUsers with an empty list still sends docId \"0\"")
        << returning([](C c) { return c->setUsers({}); }) << sent("CFDOCSETUSERS", "0");
    QTest::newRow("getUsers with an empty list sends docId \"0\" and no entries") << Call([](C c) {
        QStringList users;
        return Outcome { c->getUsers(users) };
    }) << sent("CFDOCGETUSERS", "0");
    const Request expiredChange = sent("CFDOCCHANGEEXPIREDPASS", "u1", { "old", "new" });
    QTest::newRow("changeExpiredPass ignores an empty fourth argument and zero")
        << returning([](C c) { return c->changeExpiredPass("u1", "old", "new", "", 0); })
        << expiredChange;
    QTest::newRow("changeExpiredPass ignores any fourth argument and a negative number")
        << returning([](C c) { return c->changeExpiredPass("u1", "old", "new", "other", -7); })
        << expiredChange;
    QTest::newRow("changeExpiredPass ignores the largest number")
        << returning([](C c) { return c->changeExpiredPass("u1", "old", "new", "x", INT_MAX); })
        << expiredChange;
    QTest::newRow("changeUserPass keeps empty passwords as entries")
        << returning([](C c) { return c->changeUserPass("", ""); })
        << sent("CFDOCCHANGEUSERPASS", QString(), { "", "" });
    QTest::newRow("getRoles() sends no entry")
        << returning([](C c) { return c->getRoles(); }) << sent("CFROLES");
    QTest::newRow("getRoles(QString) with an empty role still sends one empty entry")
        << returning([](C c) { return c->getRoles(QString("")); })
        << sent("CFPARENTROLES", QString(), { "" });
    QTest::newRow("setDocUsersAndRoles with an empty list sends exactly the second argument")
        << returning([](C c) { return c->setDocUsersAndRoles("d1", "head", {}); })
        << sent("CFSETDOCUSERS", "d1", { "head" });
    QTest::newRow("setDocUsersAndRoles with an empty second argument still sends it first")
        << returning([](C c) { return c->setDocUsersAndRoles("d1", "", { "e1" }); })
        << sent("CFSETDOCUSERS", "d1", { "", "e1" });
    QTest::newRow("getFolderRoles with an empty folder id still sends one empty entry")
        << returning([](C c) { return c->getFolderRoles(""); })
        << sent("CFGETFOLDROLE", QString(), { "" });
    QTest::newRow("setFolderRoles with an empty list sends the folder in docId only")
        << returning([](C c) { return c->setFolderRoles("f1", {}); })
        << sent("CFSETFOLDROLE", "f1");
}

void UserCommandsTest::request()
{
    checkRequestRow();
}

void UserCommandsTest::users_data()
{
    addOutcomeColumns();

    QTest::newRow("getUsers failing keeps the caller's list, its own entries included")
        << catalogueCall("getUsers")
        << Answers { Reply("ERROR").dataList({ "u9" }).error(serverText) }
        << Outcome { false, QStringList { "caller" } } << serverText;
    QTest::newRow("getUsers with an empty successful list succeeds and empties the list")
        << catalogueCall("getUsers") << Answers { Reply("OK") } << Outcome { true, QStringList() }
        << earlierError;
    QTest::newRow("changeExpiredPass answered \"ERROR\" fails")
        << catalogueCall("changeExpiredPass") << Answers { Reply("ERROR").error(serverText) }
        << Outcome { false } << serverText;
    QTest::newRow("changeExpiredPass answered with a word holding \"ERROR\" fails")
        << catalogueCall("changeExpiredPass")
        << Answers { Reply("PASSWORD_ERROR").error(serverText) } << Outcome { false } << serverText;
    QTest::newRow("changeExpiredPass answered \"error\" in lower case succeeds")
        << catalogueCall("changeExpiredPass") << Answers { Reply("error").error(serverText) }
        << Outcome { true } << earlierError;
    QTest::newRow("changeUserPass answered with a word holding \"ERROR\" succeeds")
        << catalogueCall("changeUserPass") << Answers { Reply("PASSWORD_ERROR").error(serverText) }
        << Outcome { true } << earlierError;
    QTest::newRow("changeUserPassAdmin answered \"ERROR\" without a text records an empty one")
        << catalogueCall("changeUserPassAdmin") << Answers { Reply("ERROR") } << Outcome { false }
        << QString();
}

void UserCommandsTest::users()
{
    checkOutcomeRow();
}

void UserCommandsTest::roles_data()
{
    addOutcomeColumns();

    // A failure and an empty success give the same list; only the last
    // error tells them apart.
    for (const char *name : { "getUserRoles(QString)", "getRoleRoles", "getRoleUsers" }) {
        QTest::addRow("%s failing gives an empty list and records the error", name)
            << catalogueCall(name)
            << Answers { Reply("ERROR").dataList({ "r9" }).error(serverText) }
            << Outcome { QStringList() } << serverText;
        QTest::addRow("%s with an empty successful list gives the same, error kept", name)
            << catalogueCall(name) << Answers { Reply("OK") } << Outcome { QStringList() }
            << earlierError;
    }

    QTest::newRow("getUserRole failing leaves the argument as the caller passed it")
        << catalogueCall("getUserRole")
        << Answers { Reply("ERROR").dataList({ "r9" }).error(serverText) }
        << Outcome { false, QString("mine") } << serverText;
    QTest::newRow("getUserRole with an empty successful list leaves the argument, succeeds")
        << catalogueCall("getUserRole") << Answers { Reply("OK") }
        << Outcome { true, QString("mine") } << earlierError;
    QTest::newRow("getUserRole takes the first of several entries")
        << catalogueCall("getUserRole") << Answers { Reply("OK").dataList({ "private", "other" }) }
        << Outcome { true, QString("private") } << earlierError;
    QTest::newRow("getUserRole takes an empty first entry")
        << catalogueCall("getUserRole") << Answers { Reply("OK").dataList({ "", "other" }) }
        << Outcome { true, QString("") } << earlierError;
    QTest::newRow("getRoleList passes the role records through unchanged")
        << catalogueCall("getRoleList")
        << Answers { Reply("OK").dataList({ joined({ "r1", "Role one" }), "" }) }
        << Outcome { QStringList { joined({ "r1", "Role one" }), "" } } << earlierError;
}

void UserCommandsTest::roles()
{
    checkOutcomeRow();
}

void UserCommandsTest::rights_data()
{
    addOutcomeColumns();

    QTest::newRow("getDocUsersAndRoles failing leaves the caller's list unchanged")
        << catalogueCall("getDocUsersAndRoles")
        << Answers { Reply("ERROR").dataList({ "u9" }).error(serverText) }
        << Outcome { false, QStringList { "caller" } } << serverText;
    QTest::newRow("getDocUsersAndRoles with an empty successful list empties the caller's")
        << catalogueCall("getDocUsersAndRoles") << Answers { Reply("OK") }
        << Outcome { true, QStringList() } << earlierError;
    QTest::newRow("getFolderRoles failing gives an empty list although the reply has one")
        << catalogueCall("getFolderRoles")
        << Answers { Reply("ERROR").dataList({ "r9" }).error(serverText) }
        << Outcome { QStringList() } << serverText;
}

void UserCommandsTest::rights()
{
    checkOutcomeRow();
}

void UserCommandsTest::setRoleRolesIsSetRoleUsers_data()
{
    QTest::addColumn<QString>("role");
    QTest::addColumn<QStringList>("list");
    QTest::addColumn<QString>("status");

    QTest::newRow("a role and two entries, succeeding") << "r1" << QStringList { "a", "b" } << "OK";
    QTest::newRow("a role and two entries, failing") << "r1" << QStringList { "a", "b" } << "ERROR";
    QTest::newRow("an empty role and no entries") << "" << QStringList() << "OK";
    QTest::newRow("one empty entry") << "r2" << QStringList { "" } << "OK";
}

// The two names are one operation: the same request on the wire, byte for
// byte, and the same result and last error for the same reply.
void UserCommandsTest::setRoleRolesIsSetRoleUsers()
{
    QFETCH(QString, role);
    QFETCH(QStringList, list);
    QFETCH(QString, status);

    struct Seen
    {
        bool result;
        QString lastError;
        QString wireText;
    };
    const auto run = [&](const std::function<bool(ClassifyInterface *)> &operation) {
        ClientPtr client = clientWithEarlierError();
        answer(Reply(status).error(serverText));
        const bool result = operation(client.get());
        return Seen { result, client->errorString(), scripted()->exchanges().value(0).wireText };
    };
    const Seen users = run([&](ClassifyInterface *c) { return c->setRoleUsers(role, list); });
    const Seen roles = run([&](ClassifyInterface *c) { return setRoleRoles(c, role, list); });

    QCOMPARE(users.result, status != "ERROR");
    QCOMPARE(users.lastError, status != "ERROR" ? earlierError : serverText);
    QCOMPARE(roles.result, users.result);
    QCOMPARE(roles.lastError, users.lastError);
    QVERIFY(!users.wireText.isEmpty());
    QCOMPARE(roles.wireText, users.wireText);
}

QTEST_GUILESS_MAIN(UserCommandsTest)
#include "tst_usercommands.moc"

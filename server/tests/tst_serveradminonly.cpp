// SPDX-License-Identifier: Apache-2.0
// The administrative commands refuse a normal user with a clear text, before
// their handler runs: nothing changes, whatever the request holds.

#include "servertestsupport.h"

#include <QtTest>

using namespace servertest;

class ServerAdminOnlyTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void refusedForANormalUser_data();
    void refusedForANormalUser();
};

void ServerAdminOnlyTest::refusedForANormalUser_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("docId");
    QTest::addColumn<QStringList>("dataList");
    // Requests that an administrator's session would carry out.
    const struct
    {
        const char *command;
        const char *docId;
        QStringList dataList;
    } rows[] = {
        { "CFNEWMANDANT", "", { "Tenant", "a tenant" } },
        { "CFSAVEMANS", "", { joined({ "1", "Default", "renamed" }) } },
        { "CFDOCSETSYSFOLDERS", "1", { "INBOX" } },
        { "CFRECREATEINDEX", "", {} },
        { "CFDOBACKUP", "", {} },
        { "CFBACKUPUPDATE", "", {} },
        { "CFFSLIST", "/", {} },
        { "CFFSCHECK", "/", {} },
        { "CFTESTMAIL", "", { "erika@example.org" } },
        { "CFDOCSETROLES", "", { "Clerks" } },
        { "CFDELETEROLES", "", { "Administrators" } },
        { "CFDOCSETUSERROLES", "erika", { "Administrators" } },
        { "CFDOCSETROLEUSERS", "Administrators", { "erika" } },
        { "CFSETFOLDROLE", "1", { "erika" } },
        { "CFDOCCHANGEUSERPASSADMIN", "admin", { "taken-over-1" } },
        { "CFDOCGETUSERS", "0", {} },
        { "CFDOCSETUSERS", "0", { joined({ "mole", "password-1", "Mole", "", "0" }) } },
        { "CFDOCUPDATEUSERS", "", { joined({ "admin", "Ada", "", "0", "0" }) } },
        { "CFDOCDELETEUSERS", "", { "admin" } },
        { "CFSAVEDOCTYPES", "", { "Letter" } },
        { "CFSAVESTATI", "", { "open" } },
        { "CFADDDYNATT", "", { "secret", "Secret", "0" } },
        { "CFMODDYNATT", "", { joined({ "1", "secret", "Secret", "0" }) } },
        { "CFDELDYNATT", "1", {} },
        { "CFMODWERTE", "1", { "A" } },
    };
    for (const auto &row : rows)
        QTest::newRow(row.command) << row.command << row.docId << row.dataList;
}

void ServerAdminOnlyTest::refusedForANormalUser()
{
    QFETCH(QString, command);
    QFETCH(QString, docId);
    QFETCH(QStringList, dataList);
    TestServer server;
    server.user(QStringLiteral("erika"));
    auto engine = server.engine();
    const QString token = QStringLiteral("eeeeeeeeeeeeeeeeeeeeeeeeeeeeeeee");
    engineLogin(*engine, token, QStringLiteral("erika"), passwordOf(QStringLiteral("erika")));
    const auto counter = [&server] {
        return server.inspect("SELECT max(number) FROM changes").toString();
    };
    const QString before = counter();
    const nuvMQClassifyMessage reply = engine->handle(request(command, docId, dataList), token);
    QCOMPARE(reply.command, QStringLiteral("ERROR"));
    QCOMPARE(reply.errorText, command + ": only an administrator may do this; erika is none");
    QCOMPARE(counter(), before);
    QCOMPARE(server.inspect("SELECT count(*) FROM users").toLongLong(), 2);
    QCOMPARE(server
                 .inspect("SELECT count(*) FROM user_roles ur JOIN users u ON u.id = ur.user_id"
                          " WHERE u.login = 'erika'")
                 .toLongLong(),
             0);
}

QTEST_GUILESS_MAIN(ServerAdminOnlyTest)
#include "tst_serveradminonly.moc"

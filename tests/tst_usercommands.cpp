// Users and passwords, roles, and rights on documents and folders, through
// the real plugin and the scripted transport.

#include "testsupport.h"

#include <QtTest>

using namespace testsupport;

class UserCommandsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readingRoleLists_data();
    void readingRoleLists();
};

using ListReader = std::function<QStringList(ClassifyInterface *)>;
Q_DECLARE_METATYPE(ListReader)

void UserCommandsTest::readingRoleLists_data()
{
    QTest::addColumn<ListReader>("call");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("docId");
    QTest::addColumn<QStringList>("dataList");

    QTest::newRow("getRoles()") << ListReader([](ClassifyInterface *c) { return c->getRoles(); })
                                << "CFROLES" << QString() << QStringList();
    QTest::newRow("getRoles(QString) carries the role in the list")
        << ListReader([](ClassifyInterface *c) { return c->getRoles("r1"); }) << "CFPARENTROLES"
        << QString() << QStringList { "r1" };
    QTest::newRow("getRoles(QString) with an empty role still sends one entry")
        << ListReader([](ClassifyInterface *c) { return c->getRoles(QString("")); })
        << "CFPARENTROLES" << QString() << QStringList { "" };
    QTest::newRow("getRoleRoles") << ListReader([](ClassifyInterface *c) { return c->getRoleRoles("r1"); })
                                  << "CFGETROLESBYROLE" << "r1" << QStringList();
}

void UserCommandsTest::readingRoleLists()
{
    QFETCH(ListReader, call);
    QFETCH(QString, command);
    QFETCH(QString, docId);
    QFETCH(QStringList, dataList);

    ClientPtr client = loggedInClient();
    answer(Reply("OK").dataList({ "a", "b" }));
    QCOMPARE(call(client.get()), QStringList({ "a", "b" }));
    const nuvMQClassifyMessage request = lastRequest();
    QCOMPARE(request.command, command);
    QCOMPARE(request.getDocId(), docId);
    QCOMPARE(request.getDataList(), dataList);
    QCOMPARE(scripted()->exchanges().last().timeoutSeconds, qint64(30));

    answer(Reply("ERROR").error("denied"));
    QCOMPARE(call(client.get()), QStringList());
    QCOMPARE(client->errorString(), QString("denied"));
}

QTEST_GUILESS_MAIN(UserCommandsTest)
#include "tst_usercommands.moc"

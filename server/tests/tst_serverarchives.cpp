// SPDX-License-Identifier: Apache-2.0
// Archives and tenants, folder structures, system folders, document and
// status types, dynamic attributes and value lists.

#include "servertestsupport.h"

#include <QSignalSpy>
#include <QtTest>

using namespace servertest;

namespace {
QString folder(const QString &name, const QString &parent, const QString &key,
               const QString &position = "0")
{
    return joined({ name, parent, position, name + " folder", "", key });
}

QStringList keysOf(const QStringList &folders)
{
    QStringList keys;
    for (const QString &record : folders)
        keys.append(fieldsOf(record).at(5));
    return keys;
}
} // namespace

class ServerArchivesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void archivesAndTheCurrentArchive();
    void tenantsWithPayloads();
    void folderStructureRoundTrip();
    void folderStructureIsChecked_data();
    void folderStructureIsChecked();
    void mainAndNewFolders();
    void systemFolders_data();
    void systemFolders();
    void typeTables_data();
    void typeTables();
    void typesInUseStay();
    void emptySaveRemovesEverything_data();
    void emptySaveRemovesEverything();
    void dynamicAttributesAndValueLists();
    void attributeChecks_data();
    void attributeChecks();
};

void ServerArchivesTest::archivesAndTheCurrentArchive()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->insertMandant("North", "northern branch", QByteArray()));
    QStringList archives { "stale" };
    QVERIFY(admin->getArchives(archives));
    QCOMPARE(archives, QStringList({ "Default", "North" }));
    QVERIFY(admin->setCurrentArchive("North"));
    QCOMPARE(admin->getCurrentArchive(), QString("North"));
    QString doc;
    QVERIFY(admin->classify(doc, {}));
    QCOMPARE(fieldsOf(admin->getDocumentData(doc, "META").value(0)).value(1), QString("North"));
    QCOMPARE(admin->getDocumentCount(QString(), true, false), 1);
    QVERIFY(admin->setCurrentArchive("1"));
    QCOMPARE(admin->getDocumentCount(QString(), true, false), 0);
    QVERIFY(!admin->setCurrentArchive("South"));
    QCOMPARE(admin->errorString(), QString("CFSELARCHIVE: there is no archive 'South'"));
    QCOMPARE(admin->getCurrentArchive(), QString("1"));
}

void ServerArchivesTest::tenantsWithPayloads()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QSignalSpy requests(admin.get(), SIGNAL(serverRequest(QString)));
    QVERIFY(admin->insertMandant("North", "northern branch", QByteArray("logo-north")));
    QCOMPARE(requests.count(), 1);
    QCOMPARE(requests.at(0).at(0).toString(), QString("SYSUPDATE"));
    QVERIFY(admin->insertMandant("South", "", QByteArray()));
    QVERIFY(!admin->insertMandant("North", "again", QByteArray()));
    QCOMPARE(admin->errorString(),
             QString("CFNEWMANDANT: there is already a tenant or an archive 'North'"));

    QStringList tenants;
    QList<QByteArray> payloads { "kept in front" };
    QVERIFY(admin->getMandanten(tenants, payloads));
    QCOMPARE(tenants.size(), 3);
    const QStringList north = fieldsOf(tenants.at(1));
    QCOMPARE(north.mid(0, 5), QStringList({ "North", "northern branch", "North", "2", "2" }));
    QCOMPARE(payloads,
             QList<QByteArray>({ "kept in front", QByteArray(), "logo-north", QByteArray() }));
}

void ServerArchivesTest::folderStructureRoundTrip()
{
    TestServer server;
    ClientPtr admin = server.admin();
    const QStringList saved { folder("Root", "", "R", "0"), folder("Child", "R", "C", "1"),
                              folder("Other", "", "O", "2") };
    QVERIFY2(admin->saveFolderStructure("1", saved, { "root-icon", "", "other-icon" }),
             qPrintable(admin->errorString()));
    QString doc;
    QVERIFY(admin->classify(doc, { joined({ "folder", "C" }) }));
    QStringList folders;
    QList<QByteArray> payloads;
    QVERIFY(admin->getFolderStructure("1", folders, payloads));
    QCOMPARE(keysOf(folders), QStringList({ "R", "C", "O" }));
    QCOMPARE(fieldsOf(folders.at(1)),
             QStringList({ "Child", "R", "1", "Child folder", "1", "C", "1" }));
    QCOMPARE(payloads, QList<QByteArray>({ "root-icon", QByteArray(), "other-icon" }));
    // Saving what was read keeps it; another structure is separate.
    QVERIFY(admin->saveFolderStructure("1", folders, payloads));
    QVERIFY(admin->getFolderStructure("2", folders, payloads));
    QCOMPARE(folders, QStringList());
    // A folder that holds documents cannot go.
    QVERIFY(!admin->saveFolderStructure("1", { folder("Root", "", "R") }, {}));
    QCOMPARE(admin->errorString(), QString("CFSAVEMANS: folder 'C' still holds documents"));
    QVERIFY(admin->saveFolderStructure("1", { folder("Root", "", "R"), folder("Child", "R", "C") },
                                       {}));
}

void ServerArchivesTest::folderStructureIsChecked_data()
{
    QTest::addColumn<QStringList>("folders");
    QTest::addColumn<int>("payloads");
    QTest::addColumn<QString>("error");
    QTest::newRow("missing parent")
        << QStringList { folder("A", "X", "A") } << 0
        << "CFSAVEMANS: the parent 'X' of folder 'A' is not in the structure";
    QTest::newRow("cycle") << QStringList { folder("A", "B", "A"), folder("B", "A", "B") } << 0
                           << "CFSAVEMANS: folder 'A' would lie inside itself";
    QTest::newRow("duplicate key") << QStringList { folder("A", "", "A"), folder("B", "", "A") }
                                   << 0 << "CFSAVEMANS: the folder key 'A' occurs twice";
    QTest::newRow("record without key") << QStringList { joined({ "A", "", "0" }) } << 0
                                        << "CFSAVEMANS: the folder key (field 5) is missing";
    QTest::newRow("more payloads than folders")
        << QStringList { folder("A", "", "A") } << 2
        << "CFSAVEMANS: data holds 2 payloads for 1 folders";
    QTest::newRow("key of another structure")
        << QStringList { folder("S", "", "SYS") } << 0
        << "CFSAVEMANS: the folder key 'SYS' belongs to another structure";
}

void ServerArchivesTest::folderStructureIsChecked()
{
    QFETCH(QStringList, folders);
    QFETCH(int, payloads);
    QFETCH(QString, error);
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->setSystemFolders({ folder("System", "", "SYS") }, {}));
    QVERIFY(admin->saveFolderStructure("1", { folder("Kept", "", "K") }, {}));
    QList<QByteArray> data;
    for (int i = 0; i < payloads; ++i)
        data.append("x");
    QVERIFY(!admin->saveFolderStructure("1", folders, data));
    QCOMPARE(admin->errorString(), error);
    QStringList stored;
    QList<QByteArray> storedPayloads;
    QVERIFY(admin->getFolderStructure("1", stored, storedPayloads));
    QCOMPARE(keysOf(stored), QStringList { "K" });
}

void ServerArchivesTest::mainAndNewFolders()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->saveFolderStructure("1", { folder("Top", "", "TOP") }, {}));
    ClientPtr zoe = server.user("zoe");
    QVERIFY2(zoe->newFolder("1", "TOP", "Middle", "MID"), qPrintable(zoe->errorString()));
    QVERIFY(zoe->newFolder("1", "MID", "Leaf", ""));
    QStringList folders;
    QList<QByteArray> payloads;
    QVERIFY(zoe->getFolderStructure("1", folders, payloads));
    QCOMPARE(folders.size(), 3);
    const QString leaf = fieldsOf(folders.last()).at(5);
    QVERIFY(leaf.startsWith("F"));
    QCOMPARE(zoe->getMainFolder(leaf), QString("TOP"));
    QCOMPARE(zoe->getMainFolder("TOP"), QString("TOP"));
    QCOMPARE(zoe->getMainFolder("NOPE"), QString());
    QVERIFY(!zoe->newFolder("2", "TOP", "Elsewhere", ""));
    QCOMPARE(zoe->errorString(), QString("CFNEWFOLDER: folder 'TOP' belongs to another structure"));
    QVERIFY(!zoe->newFolder("1", "", "Dup", "MID"));
    QCOMPARE(zoe->errorString(), QString("CFNEWFOLDER: there is already a folder 'MID'"));
}

void ServerArchivesTest::systemFolders_data()
{
    QTest::addColumn<bool>("withEmpty");
    QTest::addColumn<QStringList>("keys");
    QTest::newRow("EMPTYFOLDERS") << true << QStringList({ "IN", "IN2", "OUT" });
    QTest::newRow("NOEMPTYFOLDERS: a document below counts")
        << false << QStringList({ "IN", "IN2" });
}

void ServerArchivesTest::systemFolders()
{
    QFETCH(bool, withEmpty);
    QFETCH(QStringList, keys);
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(
        admin->setSystemFolders({ folder("Inbox", "", "IN", "0"), folder("Sub", "IN", "IN2", "1"),
                                  folder("Outbox", "", "OUT", "2") },
                                { "in", "sub" }));
    QString doc;
    QVERIFY(admin->classify(doc, { joined({ "folder", "IN2" }) }));
    QStringList folders;
    QList<QByteArray> payloads { "replaced" };
    QVERIFY(admin->getSystemFolders(folders, payloads, withEmpty));
    QCOMPARE(keysOf(folders), keys);
    QCOMPARE(payloads.mid(0, 2), QList<QByteArray>({ "in", "sub" }));
    QCOMPARE(payloads.size(), keys.size());
}

void ServerArchivesTest::typeTables_data()
{
    QTest::addColumn<bool>("statusTypes");
    QTest::newRow("document types") << false;
    QTest::newRow("status types") << true;
}

void ServerArchivesTest::typeTables()
{
    QFETCH(bool, statusTypes);
    TestServer server;
    ClientPtr admin = server.admin();
    auto save = [&](const QStringList &records, const QList<QByteArray> &payloads) {
        return statusTypes ? admin->saveStatusTypes(records, payloads)
                           : admin->saveDocTypes(records, payloads);
    };
    auto read = [&](QStringList &records, QList<QByteArray> &payloads) {
        return statusTypes ? admin->getStatusTypes(records, payloads)
                           : admin->getDocTypes(records, payloads);
    };
    const QStringList records { joined({ "B", "second", "extra" }), joined({ "A", "first" }) };
    QVERIFY(save(records, { "icon-b" }));
    QStringList readRecords;
    QList<QByteArray> readPayloads;
    QVERIFY(read(readRecords, readPayloads));
    QCOMPARE(readRecords, records);
    QCOMPARE(readPayloads, QList<QByteArray>({ "icon-b", QByteArray() }));
    QVERIFY(!save({ "A", "A" }, {}));
    QVERIFY(admin->errorString().endsWith("'A' occurs twice"));
    QVERIFY(save({ "C" }, {}));
    QVERIFY(read(readRecords, readPayloads));
    QCOMPARE(readRecords, QStringList { "C" });
}

void ServerArchivesTest::typesInUseStay()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->saveDocTypes({ "Invoice", "Letter" }, {}));
    QString doc;
    QVERIFY(admin->classify(doc, { joined({ "doctype", "Invoice" }) }));
    QVERIFY(!admin->saveDocTypes({ "Letter" }, {}));
    QCOMPARE(admin->errorString(),
             QString("CFSAVEDOCTYPES: the document type 'Invoice' is still used by documents"));
}

void ServerArchivesTest::emptySaveRemovesEverything_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("structure");
    QTest::addColumn<QString>("record");
    QTest::addColumn<QString>("count");
    QTest::newRow("document types") << "CFSAVEDOCTYPES" << QString() << "Invoice"
                                    << "SELECT count(*) FROM doc_types";
    QTest::newRow("status types") << "CFSAVESTATI" << QString() << "open"
                                  << "SELECT count(*) FROM status_types";
    QTest::newRow("folder structure")
        << "CFSAVEMANS"
        << "1" << folder("Top", "", "TOP") << "SELECT count(*) FROM folders WHERE key = 'TOP'";
    QTest::newRow("system folders")
        << "CFDOCSETSYSFOLDERS" << QString() << folder("Inbox", "", "IN")
        << "SELECT count(*) FROM folders WHERE key = 'IN'";
}

// Saving an empty list replaces the table (or the one structure) with
// nothing, and leaves other structures alone.
void ServerArchivesTest::emptySaveRemovesEverything()
{
    QFETCH(QString, command);
    QFETCH(QString, structure);
    QFETCH(QString, record);
    QFETCH(QString, count);
    TestServer server;
    auto engine = server.engine();
    engineLogin(*engine, "token", adminUser, adminPassword);
    nuvMQClassifyMessage reply
        = engine->handle(request("CFSAVEMANS", "2", { folder("Other", "", "OTHER") }), "token");
    QCOMPARE(reply.command, QString("OK"));
    reply = engine->handle(request(command, structure, { record }), "token");
    QCOMPARE(reply.command, QString("OK"));
    QCOMPARE(server.inspect(count).toInt(), 1);
    reply = engine->handle(request(command, structure), "token");
    QVERIFY2(reply.command == "OK", qPrintable(reply.errorText));
    QCOMPARE(server.inspect(count).toInt(), 0);
    QCOMPARE(server.inspect("SELECT count(*) FROM folders WHERE key = 'OTHER'").toInt(), 1);
}

void ServerArchivesTest::dynamicAttributesAndValueLists()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->addDynAttribute("customer", "Customer", false));
    QVERIFY(admin->addDynAttribute("project", "Project", true));
    QCOMPARE(admin->listDynAttributes(),
             QStringList({ joined({ "1", "customer", "Customer", "false", "0" }),
                           joined({ "2", "project", "Project", "true", "0" }) }));
    QVERIFY(admin->modifyWerteListe(1, { "ACME", "Globex" }));
    QCOMPARE(admin->getWerteListe(1), QStringList({ "ACME", "Globex" }));
    QVERIFY(admin->modifyDynattribute({ joined({ "2", "project", "Project name", "false" }) }));
    QCOMPARE(admin->listDynAttributes().at(1),
             joined({ "2", "project", "Project name", "false", "0" }));
    QVERIFY(admin->deleteDynAttribute(2));
    QString doc;
    QVERIFY(admin->classify(doc, { joined({ "customer", "ACME" }) }));
    QVERIFY(!admin->deleteDynAttribute(1));
    QVERIFY(admin->getWerteListe(7).isEmpty());
    QCOMPARE(admin->errorString(), QString("CFLSTWERTE: there is no attribute 7"));
    // Numbers are not reused after a deletion.
    QVERIFY(admin->addDynAttribute("region", "Region", false));
    QCOMPARE(fieldsOf(admin->listDynAttributes().last()).at(0), QString("3"));
}

void ServerArchivesTest::attributeChecks_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("error");
    QTest::newRow("built-in name") << "Title"
                                   << "'Title' is a built-in field";
    QTest::newRow("reserved name") << "text"
                                   << "'text' is a reserved field name";
    QTest::newRow("not an identifier")
        << "two words"
        << "an attribute name is a letter followed by letters, digits or _, not 'two words'";
    QTest::newRow("taken, ignoring case") << "CUSTOMER"
                                          << "there is already an attribute 'CUSTOMER'";
}

void ServerArchivesTest::attributeChecks()
{
    QFETCH(QString, name);
    QFETCH(QString, error);
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->addDynAttribute("customer", "Customer", false));
    QVERIFY(admin->addDynAttribute("region", "Region", false));
    QVERIFY(!admin->addDynAttribute(name, "label", false));
    QVERIFY(!admin->modifyDynattribute({ joined({ "2", name, "label", "false" }) }));
    QCOMPARE(admin->errorString(), "CFMODDYNATT: " + error);
}

QTEST_GUILESS_MAIN(ServerArchivesTest)
#include "tst_serverarchives.moc"

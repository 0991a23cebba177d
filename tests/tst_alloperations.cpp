// SPDX-License-Identifier: Apache-2.0
// Walks every operation a host can call through the scripted transport and
// checks the one command word each sends, or that it sends nothing.

#include "../fuzz/alloperations.h"
#include "testsupport.h"

#include <QtTest>

using namespace testsupport;

namespace {

struct Expectation
{
    const char *operation;
    const char *command; // null: an accessor, which never reaches the server
};

// In interface order, then the two operations reached through the
// meta-object only.
const Expectation expectations[] = {
    { "createInstance(QString)", nullptr },
    { "setUsers(QStringList)", "CFDOCSETUSERS" },
    { "getUsers(QStringList&)", "CFDOCGETUSERS" },
    { "delUsers(QStringList,QString)", "CFDOCDELETEUSERS" },
    { "changeUserPassAdmin(QString,QString)", "CFDOCCHANGEUSERPASSADMIN" },
    { "changeUserPass(QString,QString)", "CFDOCCHANGEUSERPASS" },
    { "changeExpiredPass(QString,QString,QString,QString,int)", "CFDOCCHANGEEXPIREDPASS" },
    { "updateUsers(QStringList)", "CFDOCUPDATEUSERS" },
    { "getDocuments(QStringList)", "CFDOCSINFO" },
    { "connectToNuvKESP(QString,int,QString,QString)", "CFLOGIN" },
    { "connectToNuvKESP(QString,int,QString,QString,QString)", "CFLOGIN" },
    { "getSystemFolders(QStringList&,QList<QByteArray>&,bool)", "CFDOCSYSFOLDERS" },
    { "setSystemFolders(QStringList,QList<QByteArray>)", "CFDOCSETSYSFOLDERS" },
    { "disconnectFromNuvKESP()", nullptr },
    { "getRoles()", "CFROLES" },
    { "getRoleList()", "CFSENDROLESINFO" },
    { "getRoles(QString)", "CFPARENTROLES" },
    { "setRoles(QStringList)", "CFDOCSETROLES" },
    { "deleteRoles(QStringList)", "CFDELETEROLES" },
    { "getUserRoles(QString)", "CFDOCGETUSERROLES" },
    { "setUserRoles(QString,QStringList)", "CFDOCSETUSERROLES" },
    { "getRoleUsers(QString)", "CFDOCGETROLEUSERS" },
    { "setRoleUsers(QString,QStringList)", "CFDOCSETROLEUSERS" },
    { "getPluginInfo()", nullptr },
    { "classify(QString&,QStringList)", "CFDOCCLASSIFY" },
    { "classifyTemporary(QString&,QStringList)", "CFDOCCLASSIFYTEMP" },
    { "newClassify(qint64,QString,QString)", "CFDOCNEWCLASSIFY" },
    { "newClassifyTemp(qint64,QString,QString,int)", "CFDOCCLASSIFYWITHTEMP" },
    { "getClassifyTemp(qint64&,QStringList&,QStringList&)", "CFDOCGETCLASSIFYTEMP" },
    { "deleteClassifyTemp(qint64)", "CFDOCDELETECLASSIFYTEMP" },
    { "getArchives(QStringList&)", "CFDOCGETARCHIVES" },
    { "getDocumentData(QString,QString)", "CFDOCINFO" },
    { "getMandanten(QStringList&,QList<QByteArray>&)", "CFDOCGETMANDANTEN" },
    { "getDocumentCount(QString,bool,bool)", "CFDOCGETCOUNT" },
    { "getStatusTypes(QStringList&,QList<QByteArray>&)", "CFSTATTYPES" },
    { "getDocTypes(QStringList&,QList<QByteArray>&)", "CFGETDOCTYPES" },
    { "saveStatusTypes(QStringList,QList<QByteArray>)", "CFSAVESTATI" },
    { "saveDocTypes(QStringList,QList<QByteArray>)", "CFSAVEDOCTYPES" },
    { "getClassifyCount(QString,bool)", "CFCLASSCOUNT" },
    { "getBemerkungen()", "CFBEMERK" },
    { "getLastError()", nullptr },
    { "setDocUsersAndRoles(QString,QString,QStringList)", "CFSETDOCUSERS" },
    { "getDocUsersAndRoles(QString,QStringList&)", "CFGETDOCUSERS" },
    { "saveFolderStructure(QString,QStringList,QList<QByteArray>)", "CFSAVEMANS" },
    { "getFolderStructure(QString,QStringList&,QList<QByteArray>&)", "CFGETMANS" },
    { "getClassificationFields(bool)", "CFCLASSIFYFIELDS" },
    { "getUserRoles()", nullptr },
    { "getDocHistory(QString,QStringList&)", "CFDOCHIST" },
    { "checkUpdate()", "CFUPDATES" },
    { "insertMandant(QString,QString,QByteArray)", "CFNEWMANDANT" },
    { "setCurrentArchive(QString)", "CFSELARCHIVE" },
    { "getUsername()", nullptr },
    { "closeSession()", "CFCLOSESESSION" },
    { "getHost()", nullptr },
    { "getPort()", nullptr },
    { "getNextOid(QString&)", "CFGETNEXTOID" },
    { "addExtentedSearch(QString,QString,QStringList)", "CFEXTSEARCHADD" },
    { "deleteExtentedSearch(QString)", "CFEXTSEARCHDEL" },
    { "getExtentedSearch(QStringList)", "CFEXTSEARCHFIN" },
    { "updateExtentedSearch(int,QString,QString,QStringList)", "CFEXTSEARCHUPD" },
    { "getFolderRoles(QString)", "CFGETFOLDROLE" },
    { "setFolderRoles(QString,QStringList)", "CFSETFOLDROLE" },
    { "saveTempDocRollen(QString,QStringList)", "CFDOCTEMPUSERS" },
    { "getMainFolder(QString)", "CFMAINFOLDER" },
    { "getFullUserName()", nullptr },
    { "deleteDynAttribute(int)", "CFDELDYNATT" },
    { "addDynAttribute(QString,QString,bool)", "CFADDDYNATT" },
    { "listDynAttributes()", "CFLSTDYNATT" },
    { "modifyWerteListe(int,QStringList)", "CFMODWERTE" },
    { "getWerteListe(int)", "CFLSTWERTE" },
    { "modifyDynattribute(QStringList)", "CFMODDYNATT" },
    { "multipleClassify(QString&,QStringList)", "CFDOCMULTICLASSIFY" },
    { "newClassify(qint64,QString,QString,QString)", "CFDOCNEWCLASSIFYWITHFOLDER" },
    { "moveDocumentsToTrash(QStringList)", "CFDOCSTOTRASH" },
    { "removeDocumentsFromTrash(QStringList)", "CFDOCSFROMTRASH" },
    { "getUserRole(QString&)", "CFSENDUSERPRIVATEROLE" },
    { "updateLastModified()", "CFLASTUPDATE" },
    { "setLastModified()", "CFSETLASTMODIFIED" },
    { "errorString()", nullptr },
    { "getAvailablePlugins()", nullptr },
    { "newFolder(QString,QString,QString,QString)", "CFNEWFOLDER" },
    { "saveUserData(QString,QString,QByteArray,QByteArray,bool)", "CFSAVEUSERDATA" },
    { "deleteUserData(QString,QString)", "CFDELUSERDATA" },
    { "loadUserData(QString,QList<QString>&,QList<QByteArray>&,QList<QByteArray>&)",
      "CFLOADUSERDATA" },
    { "loadUserData(QString,QString,QByteArray&,QByteArray&)", "CFLOADUSERDATA" },
    { "moveDocToArchive(qint64,int)", "CFDOCSTOARCHIVE" },
    { "getIndexerInfos(QStringList&)", "CFGETINDEXINFOS" },
    { "recreateIndex()", "CFRECREATEINDEX" },
    { "getMinMaxDate()", "CFMINMAXDATE" },
    { "getScanInputProcessList()", "CFGETSCANINPUTLIST" },
    { "getScanInputProcessImage(QString)", "CFGETSCANINPUTIMAGE" },
    { "doLdapCommand(QString,QList<QByteArray>,QList<QByteArray>&,QList<QString>&,QString&)",
      "CFLDAPCOMMAND" },
    { "doWebCommand(QString,QList<QByteArray>,QList<QByteArray>&,QList<QString>&,QString&)",
      "CFWEBCOMMAND" },
    { "getProfileId()", nullptr },
    { "setProfileId(qint64)", nullptr },
    { "getCfId()", nullptr },
    { "getServerVersion()", "CFSERVERVERSION" },
    { "getCurrentArchive()", nullptr },
    { "getPass()", nullptr },
    { "addLinkedDocuments(QString,QStringList)", "CFADDLINKEDDOC" },
    { "removeLinkedDocuments(QString,QStringList)", "CFREMOVELINKEDDOC" },
    { "readLinkedDocuments(QString)", "CFREADLINKEDDOC" },
    { "addClipboard(QString)", "CFADDCLIPBOARD" },
    { "removeClipboard(QString)", "CFREMOVECLIPBOARD" },
    { "renameClipboard(QString,QString)", "CFRENAMECLIPBOARD" },
    { "readClipboards(QList<QPair<QString,QString>>&)", "CFREADCLIPBOARDS" },
    { "readClipboardCards(QString,QList<QString>&,QList<QString>&)", "CFCREADCCARDS" },
    { "addClipboardCard(QString,QString,QString)", "CFCADDCARD" },
    { "removeClipboardCard(QString,QString)", "CFCREMOVECARD" },
    { "clearClipboardCards(QString)", "CFCCLEARCARDS" },
    { "updateClibpoardCard(QString,QString,QString)", "CFCUPDATECARD" },
    { "readClipboardRoles(QString)", "CFRCBROLES" },
    { "writeClipboardRoles(QString,QStringList)", "CFWCBROLES" },
    { "testMail(QString)", "CFTESTMAIL" },
    { "loadRemoteFS(QString,QStringList&)", "CFFSLIST" },
    { "checkFS(QString)", "CFFSCHECK" },
    { "doBackup()", "CFDOBACKUP" },
    { "updateBackupConfig()", "CFBACKUPUPDATE" },
    { "getDeadLines(QStringList)", "CFSENDDEADLINES" },
    { "getDeadLineForDocId(QString)", "CFSENDDEADLINEFORDOCID" },
    { "saveDeadLines(QStringList)", "CFSAVEDEADLINES" },
    { "addShare(QString,QStringList,QString,QDateTime,int)", "CFADDSHARE" },
    { "getShares()", "CFGETSHARES" },
    { "deleteShare(QString)", "CFDELSHARE" },
    { "getAuthToken()", nullptr },
    { "getChatUsers()", "CFCHATUSERS" },
    { "getRoleRoles(QString)", "CFGETROLESBYROLE" },
    { "getRevisionen(QString)", "CFDOCREV" },
    { "setRoleRoles(QString,QStringList)", "CFDOCSETROLEUSERS" },
};

// Every command word of the server's catalogue, once each.
const QSet<QString> catalogueWords {
    "CFADDCLIPBOARD",
    "CFADDDYNATT",
    "CFADDLINKEDDOC",
    "CFADDSHARE",
    "CFBACKUPUPDATE",
    "CFBEMERK",
    "CFCADDCARD",
    "CFCCLEARCARDS",
    "CFCHATUSERS",
    "CFCLASSCOUNT",
    "CFCLASSIFYFIELDS",
    "CFCLOSESESSION",
    "CFCREADCCARDS",
    "CFCREMOVECARD",
    "CFCUPDATECARD",
    "CFDELDYNATT",
    "CFDELETEROLES",
    "CFDELSHARE",
    "CFDELUSERDATA",
    "CFDOBACKUP",
    "CFDOCCHANGEEXPIREDPASS",
    "CFDOCCHANGEUSERPASS",
    "CFDOCCHANGEUSERPASSADMIN",
    "CFDOCCLASSIFY",
    "CFDOCCLASSIFYTEMP",
    "CFDOCCLASSIFYWITHTEMP",
    "CFDOCDELETECLASSIFYTEMP",
    "CFDOCDELETEUSERS",
    "CFDOCGETARCHIVES",
    "CFDOCGETCLASSIFYTEMP",
    "CFDOCGETCOUNT",
    "CFDOCGETMANDANTEN",
    "CFDOCGETROLEUSERS",
    "CFDOCGETUSERROLES",
    "CFDOCGETUSERS",
    "CFDOCHIST",
    "CFDOCINFO",
    "CFDOCMULTICLASSIFY",
    "CFDOCNEWCLASSIFY",
    "CFDOCNEWCLASSIFYWITHFOLDER",
    "CFDOCREV",
    "CFDOCSETROLES",
    "CFDOCSETROLEUSERS",
    "CFDOCSETSYSFOLDERS",
    "CFDOCSETUSERROLES",
    "CFDOCSETUSERS",
    "CFDOCSFROMTRASH",
    "CFDOCSINFO",
    "CFDOCSTOARCHIVE",
    "CFDOCSTOTRASH",
    "CFDOCSYSFOLDERS",
    "CFDOCTEMPUSERS",
    "CFDOCUPDATEUSERS",
    "CFEXTSEARCHADD",
    "CFEXTSEARCHDEL",
    "CFEXTSEARCHFIN",
    "CFEXTSEARCHUPD",
    "CFFSCHECK",
    "CFFSLIST",
    "CFGETDOCTYPES",
    "CFGETDOCUSERS",
    "CFGETFOLDROLE",
    "CFGETINDEXINFOS",
    "CFGETMANS",
    "CFGETNEXTOID",
    "CFGETROLESBYROLE",
    "CFGETSCANINPUTIMAGE",
    "CFGETSCANINPUTLIST",
    "CFGETSHARES",
    "CFLASTUPDATE",
    "CFLDAPCOMMAND",
    "CFLOADUSERDATA",
    "CFLOGIN",
    "CFLSTDYNATT",
    "CFLSTWERTE",
    "CFMAINFOLDER",
    "CFMINMAXDATE",
    "CFMODDYNATT",
    "CFMODWERTE",
    "CFNEWFOLDER",
    "CFNEWMANDANT",
    "CFPARENTROLES",
    "CFRCBROLES",
    "CFREADCLIPBOARDS",
    "CFREADLINKEDDOC",
    "CFRECREATEINDEX",
    "CFREMOVECLIPBOARD",
    "CFREMOVELINKEDDOC",
    "CFRENAMECLIPBOARD",
    "CFROLES",
    "CFSAVEDEADLINES",
    "CFSAVEDOCTYPES",
    "CFSAVEMANS",
    "CFSAVESTATI",
    "CFSAVEUSERDATA",
    "CFSELARCHIVE",
    "CFSENDDEADLINEFORDOCID",
    "CFSENDDEADLINES",
    "CFSENDROLESINFO",
    "CFSENDUSERPRIVATEROLE",
    "CFSERVERVERSION",
    "CFSETDOCUSERS",
    "CFSETFOLDROLE",
    "CFSETLASTMODIFIED",
    "CFSTATTYPES",
    "CFTESTMAIL",
    "CFUPDATES",
    "CFWCBROLES",
    "CFWEBCOMMAND",
};

// An answer every operation accepts: a matching client version for the
// login, one list entry for the readers that take the first, two byte
// arrays for the readers that take a pair.
nuvMQClassifyMessage acceptingReply(const nuvMQClassifyMessage &)
{
    return Reply("OK").docId("1").dataList({ "1" }).data({ "18.09-5", "x" });
}

QStringList sendCalls()
{
    return scripted()->calls().filter(QRegularExpression("^sendSyncMessage"));
}

} // namespace

class AllOperationsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyOperationIsListedInInterfaceOrder();
    void walk_data();
    void walk();
    void sentWordsAreTheCatalogue();
};

void AllOperationsTest::everyOperationIsListedInInterfaceOrder()
{
    const QVector<alloperations::Operation> &operations = alloperations::operations();
    QCOMPARE(operations.size(), int(std::size(expectations)));
    QCOMPARE(alloperations::interfaceOperationCount + 2, operations.size());
    for (int i = 0; i < operations.size(); ++i)
        QCOMPARE(QString(operations.at(i).name), QString(expectations[i].operation));
}

void AllOperationsTest::walk_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("command");
    for (int i = 0; i < int(std::size(expectations)); ++i)
        QTest::newRow(expectations[i].operation) << i << QString(expectations[i].command);
}

void AllOperationsTest::walk()
{
    QFETCH(int, index);
    QFETCH(QString, command);
    QVERIFY(index < alloperations::operations().size());
    const alloperations::Operation &operation = alloperations::operations().at(index);
    QCOMPARE(QString(operation.name), QString(QTest::currentDataTag()));

    ClientPtr client = loggedInClient();
    scripted()->setResponder(acceptingReply);
    operation.call(client.get());

    const QList<ScriptedExchange> exchanges = scripted()->exchanges();
    if (command.isNull()) {
        QCOMPARE(exchanges.size(), 0);
        QCOMPARE(sendCalls(), QStringList());
        return;
    }
    QCOMPARE(exchanges.size(), 1);
    QCOMPARE(exchanges.first().request.command, command);
    QCOMPARE(sendCalls(), QStringList { "sendSyncMessage " + command });
    QCOMPARE(exchanges.first().kind, 1001);
    QCOMPARE(exchanges.first().timeoutSeconds, qint64(command == "CFWEBCOMMAND" ? 180 : 30));
}

void AllOperationsTest::sentWordsAreTheCatalogue()
{
    QCOMPARE(catalogueWords.size(), 109);
    ClientPtr client = loggedInClient();
    scripted()->setResponder(acceptingReply);
    for (const alloperations::Operation &operation : alloperations::operations())
        operation.call(client.get());

    QSet<QString> sent;
    for (const ScriptedExchange &exchange : scripted()->exchanges())
        sent.insert(exchange.request.command);
    QCOMPARE(sent.size(), catalogueWords.size());
    QCOMPARE(sent, catalogueWords);
}

QTEST_GUILESS_MAIN(AllOperationsTest)
#include "tst_alloperations.moc"

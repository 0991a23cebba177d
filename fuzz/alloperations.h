// SPDX-License-Identifier: Apache-2.0
#ifndef NUV_ALLOPERATIONS_H
#define NUV_ALLOPERATIONS_H

#include "classifyinterface.h"

#include <QDebug>
#include <QMetaObject>
#include <QVector>

#include <memory>

/*
 * Every operation a host can call on a classify client, with fixed sample
 * arguments: the 127 interface operations in interface order, then the two
 * the client offers through its meta-object only. The all-operations walk
 * checks what each one sends, and the reply fuzzer drives each one with
 * damaged replies, so both always cover the same list.
 *
 * Each call returns a description of everything the operation handed back
 * (result and out-parameters), so that every returned value is really read.
 */
namespace alloperations {

template<typename... Values> QString describe(const Values &...values)
{
    QString text;
    {
        // QDebug writes into the string when it goes out of scope.
        QDebug debug(&text);
        ((debug << values), ...);
    }
    return text;
}

struct Operation
{
    const char *name;
    QString (*call)(ClassifyInterface *client);
};

inline QString invokeGetRevisionen(ClassifyInterface *c)
{
    QStringList revisions;
    const bool invoked
        = QMetaObject::invokeMethod(c, "getRevisionen", Qt::DirectConnection,
                                    Q_RETURN_ARG(QStringList, revisions), Q_ARG(QString, "d1"));
    return describe(invoked, revisions);
}

inline QString invokeSetRoleRoles(ClassifyInterface *c)
{
    bool result = false;
    const bool invoked = QMetaObject::invokeMethod(c, "setRoleRoles", Qt::DirectConnection,
                                                   Q_RETURN_ARG(bool, result), Q_ARG(QString, "r1"),
                                                   Q_ARG(QStringList, QStringList({ "r2", "r3" })));
    return describe(invoked, result);
}

// Sample arguments, shared so that every operation gets the same ones.
inline const QStringList &sampleList()
{
    static const QStringList list { "a", "b" };
    return list;
}

inline const QList<QByteArray> &sampleBytes()
{
    static const QList<QByteArray> bytes { QByteArray("x"), QByteArray() };
    return bytes;
}

using C = ClassifyInterface;

using PassThrough = bool (C::*)(const QString &, const QList<QByteArray> &, QList<QByteArray> &,
                                QList<QString> &, QString &);

inline QString passThrough(C *c, PassThrough command)
{
    QList<QByteArray> answerData { "old" };
    QList<QString> answerStrings { "old" };
    QString errorText("old");
    const bool result = (c->*command)("inner", sampleBytes(), answerData, answerStrings, errorText);
    return describe(result, answerData, answerStrings, errorText);
}

// clang-format off
inline const QVector<Operation> &operations()
{
    static const QVector<Operation> table {
        { "createInstance(QString)", [](C *c) {
              std::unique_ptr<C> other(c->createInstance("elsewhere"));
              return describe(other->getProfileId(), other->getCurrentArchive()); } },
        { "setUsers(QStringList)", [](C *c) { return describe(c->setUsers(sampleList())); } },
        { "getUsers(QStringList&)", [](C *c) {
              QStringList users { "filter" };
              return describe(c->getUsers(users), users); } },
        { "delUsers(QStringList,QString)", [](C *c) { return describe(c->delUsers(sampleList(), "ctx")); } },
        { "changeUserPassAdmin(QString,QString)", [](C *c) { return describe(c->changeUserPassAdmin("u", "p")); } },
        { "changeUserPass(QString,QString)", [](C *c) { return describe(c->changeUserPass("old", "new")); } },
        { "changeExpiredPass(QString,QString,QString,QString,int)", [](C *c) {
              return describe(c->changeExpiredPass("u", "old", "new", "x", 3)); } },
        { "updateUsers(QStringList)", [](C *c) { return describe(c->updateUsers(sampleList())); } },
        { "getDocuments(QStringList)", [](C *c) { return describe(c->getDocuments(sampleList())); } },
        { "connectToNuvKESP(QString,int,QString,QString)", [](C *c) {
              return describe(c->connectToNuvKESP("localhost", 61613, "user", "secret"), c->errorString(),
                              c->getUserRoles(), c->getFullUserName(), c->getAvailablePlugins()); } },
        { "connectToNuvKESP(QString,int,QString,QString,QString)", [](C *c) {
              return describe(c->connectToNuvKESP("localhost", 61613, "user", "secret", "extra"),
                              c->errorString(), c->getUserRoles(), c->getFullUserName(),
                              c->getAvailablePlugins()); } },
        { "getSystemFolders(QStringList&,QList<QByteArray>&,bool)", [](C *c) {
              QStringList folders { "old" };
              QList<QByteArray> payloads { "old" };
              return describe(c->getSystemFolders(folders, payloads, true), folders, payloads); } },
        { "setSystemFolders(QStringList,QList<QByteArray>)", [](C *c) {
              return describe(c->setSystemFolders(sampleList(), sampleBytes())); } },
        { "disconnectFromNuvKESP()", [](C *c) { c->disconnectFromNuvKESP(); return QString(); } },
        { "getRoles()", [](C *c) { return describe(c->getRoles()); } },
        { "getRoleList()", [](C *c) { return describe(c->getRoleList()); } },
        { "getRoles(QString)", [](C *c) { return describe(c->getRoles(QString("r1"))); } },
        { "setRoles(QStringList)", [](C *c) { return describe(c->setRoles(sampleList())); } },
        { "deleteRoles(QStringList)", [](C *c) { return describe(c->deleteRoles(sampleList())); } },
        { "getUserRoles(QString)", [](C *c) { return describe(c->getUserRoles(QString("u"))); } },
        { "setUserRoles(QString,QStringList)", [](C *c) { return describe(c->setUserRoles("u", sampleList())); } },
        { "getRoleUsers(QString)", [](C *c) { return describe(c->getRoleUsers("r1")); } },
        { "setRoleUsers(QString,QStringList)", [](C *c) { return describe(c->setRoleUsers("r1", sampleList())); } },
        { "getPluginInfo()", [](C *c) { return describe(c->getPluginInfo()); } },
        { "classify(QString&,QStringList)", [](C *c) {
              QString docId("d1");
              return describe(c->classify(docId, sampleList()), docId); } },
        { "classifyTemporary(QString&,QStringList)", [](C *c) {
              QString docId("d1");
              return describe(c->classifyTemporary(docId, sampleList()), docId); } },
        { "newClassify(qint64,QString,QString)", [](C *c) { return describe(c->newClassify(5, "a", "b")); } },
        { "newClassifyTemp(qint64,QString,QString,int)", [](C *c) {
              return describe(c->newClassifyTemp(5, "a", "b", 3)); } },
        { "getClassifyTemp(qint64&,QStringList&,QStringList&)", [](C *c) {
              qint64 id = 7;
              QStringList values = sampleList();
              QStringList texts { "kept" };
              const int result = c->getClassifyTemp(id, values, texts);
              return describe(result, id, values, texts); } },
        { "deleteClassifyTemp(qint64)", [](C *c) { return describe(c->deleteClassifyTemp(7)); } },
        { "getArchives(QStringList&)", [](C *c) {
              QStringList archives { "old" };
              return describe(c->getArchives(archives), archives); } },
        { "getDocumentData(QString,QString)", [](C *c) { return describe(c->getDocumentData("d1", "sel")); } },
        { "getMandanten(QStringList&,QList<QByteArray>&)", [](C *c) {
              QStringList tenants { "old" };
              QList<QByteArray> payloads { "old" };
              return describe(c->getMandanten(tenants, payloads), tenants, payloads); } },
        { "getDocumentCount(QString,bool,bool)", [](C *c) { return describe(c->getDocumentCount("q", false, true)); } },
        { "getStatusTypes(QStringList&,QList<QByteArray>&)", [](C *c) {
              QStringList records;
              QList<QByteArray> payloads;
              return describe(c->getStatusTypes(records, payloads), records, payloads); } },
        { "getDocTypes(QStringList&,QList<QByteArray>&)", [](C *c) {
              QStringList records;
              QList<QByteArray> payloads;
              return describe(c->getDocTypes(records, payloads), records, payloads); } },
        { "saveStatusTypes(QStringList,QList<QByteArray>)", [](C *c) {
              return describe(c->saveStatusTypes(sampleList(), sampleBytes())); } },
        { "saveDocTypes(QStringList,QList<QByteArray>)", [](C *c) {
              return describe(c->saveDocTypes(sampleList(), sampleBytes())); } },
        { "getClassifyCount(QString,bool)", [](C *c) { return describe(c->getClassifyCount("q", true)); } },
        { "getBemerkungen()", [](C *c) { return describe(c->getBemerkungen()); } },
        { "getLastError()", [](C *c) { return describe(c->getLastError()); } },
        { "setDocUsersAndRoles(QString,QString,QStringList)", [](C *c) {
              return describe(c->setDocUsersAndRoles("d1", "first", sampleList())); } },
        { "getDocUsersAndRoles(QString,QStringList&)", [](C *c) {
              QStringList entries { "old" };
              return describe(c->getDocUsersAndRoles("d1", entries), entries); } },
        { "saveFolderStructure(QString,QStringList,QList<QByteArray>)", [](C *c) {
              return describe(c->saveFolderStructure("s1", sampleList(), sampleBytes())); } },
        { "getFolderStructure(QString,QStringList&,QList<QByteArray>&)", [](C *c) {
              QStringList folders { "old" };
              QList<QByteArray> payloads { "old" };
              return describe(c->getFolderStructure("s1", folders, payloads), folders, payloads); } },
        { "getClassificationFields(bool)", [](C *c) { return describe(c->getClassificationFields(true)); } },
        { "getUserRoles()", [](C *c) { return describe(c->getUserRoles()); } },
        { "getDocHistory(QString,QStringList&)", [](C *c) {
              QStringList history { "old" };
              return describe(c->getDocHistory("d1", history), history); } },
        { "checkUpdate()", [](C *c) { c->checkUpdate(); return describe(c->errorString()); } },
        { "insertMandant(QString,QString,QByteArray)", [](C *c) {
              return describe(c->insertMandant("t1", "name", QByteArray("payload"))); } },
        { "setCurrentArchive(QString)", [](C *c) {
              return describe(c->setCurrentArchive("archive"), c->getCurrentArchive()); } },
        { "getUsername()", [](C *c) { return describe(c->getUsername()); } },
        { "closeSession()", [](C *c) { return describe(c->closeSession()); } },
        { "getHost()", [](C *c) { return describe(c->getHost()); } },
        { "getPort()", [](C *c) { return describe(c->getPort()); } },
        { "getNextOid(QString&)", [](C *c) {
              QString oid("o1");
              return describe(c->getNextOid(oid), oid); } },
        { "addExtentedSearch(QString,QString,QStringList)", [](C *c) {
              return describe(c->addExtentedSearch("A", "B", sampleList())); } },
        { "deleteExtentedSearch(QString)", [](C *c) { return describe(c->deleteExtentedSearch("s1")); } },
        { "getExtentedSearch(QStringList)", [](C *c) { return describe(c->getExtentedSearch(sampleList())); } },
        { "updateExtentedSearch(int,QString,QString,QStringList)", [](C *c) {
              return describe(c->updateExtentedSearch(7, "A", "B", sampleList())); } },
        { "getFolderRoles(QString)", [](C *c) { return describe(c->getFolderRoles("f1")); } },
        { "setFolderRoles(QString,QStringList)", [](C *c) { return describe(c->setFolderRoles("f1", sampleList())); } },
        { "saveTempDocRollen(QString,QStringList)", [](C *c) {
              return describe(c->saveTempDocRollen("d1", sampleList())); } },
        { "getMainFolder(QString)", [](C *c) { return describe(c->getMainFolder("f1")); } },
        { "getFullUserName()", [](C *c) { return describe(c->getFullUserName()); } },
        { "deleteDynAttribute(int)", [](C *c) { return describe(c->deleteDynAttribute(3)); } },
        { "addDynAttribute(QString,QString,bool)", [](C *c) { return describe(c->addDynAttribute("a", "b", true)); } },
        { "listDynAttributes()", [](C *c) { return describe(c->listDynAttributes()); } },
        { "modifyWerteListe(int,QStringList)", [](C *c) { return describe(c->modifyWerteListe(12, sampleList())); } },
        { "getWerteListe(int)", [](C *c) { return describe(c->getWerteListe(12)); } },
        { "modifyDynattribute(QStringList)", [](C *c) { return describe(c->modifyDynattribute(sampleList())); } },
        { "multipleClassify(QString&,QStringList)", [](C *c) {
              QString docId("d1");
              return describe(c->multipleClassify(docId, sampleList()), docId); } },
        { "newClassify(qint64,QString,QString,QString)", [](C *c) {
              return describe(c->newClassify(5, "a", "b", "folder")); } },
        { "moveDocumentsToTrash(QStringList)", [](C *c) { return describe(c->moveDocumentsToTrash(sampleList())); } },
        { "removeDocumentsFromTrash(QStringList)", [](C *c) {
              return describe(c->removeDocumentsFromTrash(sampleList())); } },
        { "getUserRole(QString&)", [](C *c) {
              QString role("old");
              return describe(c->getUserRole(role), role); } },
        { "updateLastModified()", [](C *c) { c->updateLastModified(); return describe(c->errorString()); } },
        { "setLastModified()", [](C *c) { c->setLastModified(); return describe(c->errorString()); } },
        { "errorString()", [](C *c) { return describe(c->errorString()); } },
        { "getAvailablePlugins()", [](C *c) { return describe(c->getAvailablePlugins()); } },
        { "newFolder(QString,QString,QString,QString)", [](C *c) { return describe(c->newFolder("a", "b", "c", "d")); } },
        { "saveUserData(QString,QString,QByteArray,QByteArray,bool)", [](C *c) {
              return describe(c->saveUserData("k1", "k2", QByteArray("A"), QByteArray("B"), true)); } },
        { "deleteUserData(QString,QString)", [](C *c) { return describe(c->deleteUserData("k1", "k2")); } },
        { "loadUserData(QString,QList<QString>&,QList<QByteArray>&,QList<QByteArray>&)", [](C *c) {
              QList<QString> names { "kept" };
              QList<QByteArray> firsts { "old" };
              QList<QByteArray> seconds { "sent" };
              return describe(c->loadUserData("k1", names, firsts, seconds), names, firsts, seconds); } },
        { "loadUserData(QString,QString,QByteArray&,QByteArray&)", [](C *c) {
              QByteArray first("old");
              QByteArray second("sent");
              return describe(c->loadUserData("k1", "k2", first, second), first, second); } },
        { "moveDocToArchive(qint64,int)", [](C *c) { return describe(c->moveDocToArchive(57, 2)); } },
        { "getIndexerInfos(QStringList&)", [](C *c) {
              QStringList infos { "old" };
              return describe(c->getIndexerInfos(infos), infos); } },
        { "recreateIndex()", [](C *c) { return describe(c->recreateIndex()); } },
        { "getMinMaxDate()", [](C *c) { return describe(c->getMinMaxDate()); } },
        { "getScanInputProcessList()", [](C *c) { return describe(c->getScanInputProcessList()); } },
        { "getScanInputProcessImage(QString)", [](C *c) { return describe(c->getScanInputProcessImage("p1")); } },
        { "doLdapCommand(QString,QList<QByteArray>,QList<QByteArray>&,QList<QString>&,QString&)",
          [](C *c) { return passThrough(c, &C::doLdapCommand); } },
        { "doWebCommand(QString,QList<QByteArray>,QList<QByteArray>&,QList<QString>&,QString&)",
          [](C *c) { return passThrough(c, &C::doWebCommand); } },
        { "getProfileId()", [](C *c) { return describe(c->getProfileId()); } },
        { "setProfileId(qint64)", [](C *c) { c->setProfileId(42); return describe(c->getProfileId()); } },
        { "getCfId()", [](C *c) { return describe(c->getCfId()); } },
        { "getServerVersion()", [](C *c) { return describe(c->getServerVersion()); } },
        { "getCurrentArchive()", [](C *c) { return describe(c->getCurrentArchive()); } },
        { "getPass()", [](C *c) { return describe(c->getPass()); } },
        { "addLinkedDocuments(QString,QStringList)", [](C *c) { return describe(c->addLinkedDocuments("d1", sampleList())); } },
        { "removeLinkedDocuments(QString,QStringList)", [](C *c) {
              return describe(c->removeLinkedDocuments("d1", sampleList())); } },
        { "readLinkedDocuments(QString)", [](C *c) { return describe(c->readLinkedDocuments("d1")); } },
        { "addClipboard(QString)", [](C *c) { return describe(c->addClipboard("clip")); } },
        { "removeClipboard(QString)", [](C *c) { return describe(c->removeClipboard("c1")); } },
        { "renameClipboard(QString,QString)", [](C *c) { return describe(c->renameClipboard("c1", "new")); } },
        { "readClipboards(QList<QPair<QString,QString>>&)", [](C *c) {
              QList<QPair<QString, QString>> clipboards { { "kept", "text" } };
              return describe(c->readClipboards(clipboards), clipboards); } },
        { "readClipboardCards(QString,QList<QString>&,QList<QString>&)", [](C *c) {
              QList<QString> cards { "old" };
              QList<QString> texts { "kept" };
              return describe(c->readClipboardCards("c1", cards, texts), cards, texts); } },
        { "addClipboardCard(QString,QString,QString)", [](C *c) { return describe(c->addClipboardCard("c1", "k", "v")); } },
        { "removeClipboardCard(QString,QString)", [](C *c) { return describe(c->removeClipboardCard("c1", "k")); } },
        { "clearClipboardCards(QString)", [](C *c) { return describe(c->clearClipboardCards("c1")); } },
        { "updateClibpoardCard(QString,QString,QString)", [](C *c) {
              return describe(c->updateClibpoardCard("c1", "k", "v")); } },
        { "readClipboardRoles(QString)", [](C *c) { return describe(c->readClipboardRoles("c1")); } },
        { "writeClipboardRoles(QString,QStringList)", [](C *c) {
              return describe(c->writeClipboardRoles("c1", sampleList())); } },
        { "testMail(QString)", [](C *c) { return describe(c->testMail("someone@example.org")); } },
        { "loadRemoteFS(QString,QStringList&)", [](C *c) {
              QStringList entries { "kept" };
              return describe(c->loadRemoteFS("/srv", entries), entries); } },
        { "checkFS(QString)", [](C *c) { return describe(c->checkFS("/srv")); } },
        { "doBackup()", [](C *c) { return describe(c->doBackup()); } },
        { "updateBackupConfig()", [](C *c) { return describe(c->updateBackupConfig()); } },
        { "getDeadLines(QStringList)", [](C *c) { return describe(c->getDeadLines(sampleList())); } },
        { "getDeadLineForDocId(QString)", [](C *c) { return describe(c->getDeadLineForDocId("d1")); } },
        { "saveDeadLines(QStringList)", [](C *c) { return describe(c->saveDeadLines(sampleList())); } },
        { "addShare(QString,QStringList,QString,QDateTime,int)", [](C *c) {
              const QDateTime expiry(QDate(2024, 3, 5), QTime(9, 7, 3));
              return describe(c->addShare("first", sampleList(), "third", expiry, 5)); } },
        { "getShares()", [](C *c) { return describe(c->getShares()); } },
        { "deleteShare(QString)", [](C *c) { return describe(c->deleteShare("s1")); } },
        { "getAuthToken()", [](C *c) { return describe(c->getAuthToken()); } },
        { "getChatUsers()", [](C *c) { return describe(c->getChatUsers()); } },
        { "getRoleRoles(QString)", [](C *c) { return describe(c->getRoleRoles("r1")); } },
        // Reached through the meta-object only.
        { "getRevisionen(QString)", invokeGetRevisionen },
        { "setRoleRoles(QString,QStringList)", invokeSetRoleRoles },
    };
    return table;
}
// clang-format on

// How many of operations() belong to ClassifyInterface itself.
constexpr int interfaceOperationCount = 127;

} // namespace alloperations

#endif // NUV_ALLOPERATIONS_H

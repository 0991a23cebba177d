// SPDX-License-Identifier: Apache-2.0
// The one table of callable operations. Rows follow ClassifyInterface slot
// by slot; a row's types come from the member pointer (see
// operationbuilder.h), its parameter names and texts from the doc comments
// in the interface header (apidoc/). A row adds only what the tool needs:
// how failure shows, the session it wants, and parameter marks: '+name'
// in-out (given and sent, then replaced), 'name?' may be left off the end
// of the command line.

#include "operationbuilder.h"

namespace nuvcli {

using CI = ClassifyInterface;
using build::invokable;
using build::op;
using F = Failure;
using S = SessionUse;

namespace {

QVector<Operation> buildTable()
{
    // clang-format off
    return {
        op(1, "createInstance", &CI::createInstance, {}, F::False, S::None),
        op(2, "setUsers", &CI::setUsers, {}, F::False),
        op(3, "getUsers", &CI::getUsers, {"+users?"}, F::False),
        op(4, "delUsers", &CI::delUsers, {}, F::False),
        op(5, "changeUserPassAdmin", &CI::changeUserPassAdmin, {}, F::False),
        op(6, "changeUserPass", &CI::changeUserPass, {}, F::False),
        op(7, "changeExpiredPass", &CI::changeExpiredPass, {}, F::False, S::ExpiredLoginIsEnough),
        op(8, "updateUsers", &CI::updateUsers, {}, F::False),
        op(9, "getDocuments", &CI::getDocuments, {}, F::EmptyWithNewError),
        op(10, "connectToNuvKESP", qOverload<QString, int, QString, QString>(&CI::connectToNuvKESP),
           {}, F::False, S::LogsIn),
        op(11, "connectToNuvKESP",
           qOverload<QString, int, QString, QString, QString>(&CI::connectToNuvKESP),
           {}, F::False, S::LogsIn),
        op(12, "getSystemFolders", &CI::getSystemFolders, {}, F::False),
        op(13, "setSystemFolders", &CI::setSystemFolders, {}, F::False),
        op(14, "disconnectFromNuvKESP", &CI::disconnectFromNuvKESP, {}, F::Never, S::LogsOut),
        op(15, "getRoles", qOverload<>(&CI::getRoles), {}, F::EmptyWithNewError),
        op(16, "getRoleList", &CI::getRoleList, {}, F::EmptyWithNewError),
        op(17, "getRoles", qOverload<QString>(&CI::getRoles), {}, F::EmptyWithNewError),
        op(18, "setRoles", &CI::setRoles, {}, F::False),
        op(19, "deleteRoles", &CI::deleteRoles, {}, F::False),
        op(20, "getUserRoles", qOverload<QString>(&CI::getUserRoles), {}, F::EmptyWithNewError),
        op(21, "setUserRoles", &CI::setUserRoles, {}, F::False),
        op(22, "getRoleUsers", &CI::getRoleUsers, {}, F::EmptyWithNewError),
        op(23, "setRoleUsers", &CI::setRoleUsers, {}, F::False),
        op(24, "getPluginInfo", &CI::getPluginInfo, {}, F::Never, S::None),
        op(25, "classify", &CI::classify, {"+docId"}, F::False),
        op(26, "classifyTemporary", &CI::classifyTemporary, {"+docId"}, F::False),
        op(27, "newClassify", qOverload<qint64, QString, QString>(&CI::newClassify), {}, F::False),
        op(28, "newClassifyTemp", &CI::newClassifyTemp, {}, F::False),
        op(29, "getClassifyTemp", &CI::getClassifyTemp, {"+id", "+values?"}, F::Zero),
        op(30, "deleteClassifyTemp", &CI::deleteClassifyTemp, {}, F::False),
        op(31, "getArchives", &CI::getArchives, {}, F::False),
        op(32, "getDocumentData", &CI::getDocumentData, {}, F::EmptyWithNewError),
        op(33, "getMandanten", &CI::getMandanten, {}, F::False),
        op(34, "getDocumentCount", &CI::getDocumentCount, {}, F::MinusOne),
        op(35, "getStatusTypes", &CI::getStatusTypes, {}, F::False),
        op(36, "getDocTypes", &CI::getDocTypes, {}, F::False),
        op(37, "saveStatusTypes", &CI::saveStatusTypes, {}, F::False),
        op(38, "saveDocTypes", &CI::saveDocTypes, {}, F::False),
        op(39, "getClassifyCount", &CI::getClassifyCount, {}, F::MinusOne),
        op(40, "getBemerkungen", &CI::getBemerkungen, {}, F::EmptyWithNewError),
        op(41, "getLastError", &CI::getLastError, {}, F::Never, S::None),
        op(42, "setDocUsersAndRoles", &CI::setDocUsersAndRoles, {}, F::False),
        op(43, "getDocUsersAndRoles", &CI::getDocUsersAndRoles, {}, F::False),
        op(44, "saveFolderStructure", &CI::saveFolderStructure, {}, F::False),
        op(45, "getFolderStructure", &CI::getFolderStructure, {}, F::False),
        op(46, "getClassificationFields", &CI::getClassificationFields, {}, F::EmptyWithNewError),
        op(47, "getUserRoles", qOverload<>(&CI::getUserRoles), {}, F::Never),
        op(48, "getDocHistory", &CI::getDocHistory, {}, F::False),
        op(49, "checkUpdate", &CI::checkUpdate, {}, F::NewError),
        op(50, "insertMandant", &CI::insertMandant, {}, F::False),
        op(51, "setCurrentArchive", &CI::setCurrentArchive, {}, F::False),
        op(52, "getUsername", &CI::getUsername, {}, F::Never),
        op(53, "closeSession", &CI::closeSession, {}, F::False),
        op(54, "getHost", &CI::getHost, {}, F::Never),
        op(55, "getPort", &CI::getPort, {}, F::Never),
        op(56, "getNextOid", &CI::getNextOid, {"+oid?"}, F::False),
        op(57, "addExtentedSearch", &CI::addExtentedSearch, {}, F::False),
        op(58, "deleteExtentedSearch", &CI::deleteExtentedSearch, {}, F::False),
        op(59, "getExtentedSearch", &CI::getExtentedSearch, {}, F::EmptyWithNewError),
        op(60, "updateExtentedSearch", &CI::updateExtentedSearch, {}, F::False),
        op(61, "getFolderRoles", &CI::getFolderRoles, {}, F::EmptyWithNewError),
        op(62, "setFolderRoles", &CI::setFolderRoles, {}, F::False),
        op(63, "saveTempDocRollen", &CI::saveTempDocRollen, {}, F::False),
        op(64, "getMainFolder", &CI::getMainFolder, {}, F::Never),
        op(65, "getFullUserName", &CI::getFullUserName, {}, F::Never),
        op(66, "deleteDynAttribute", &CI::deleteDynAttribute, {}, F::FalseNoReason),
        op(67, "addDynAttribute", &CI::addDynAttribute, {}, F::FalseNoReason),
        op(68, "listDynAttributes", &CI::listDynAttributes, {}, F::Never),
        op(69, "modifyWerteListe", &CI::modifyWerteListe, {}, F::False),
        op(70, "getWerteListe", &CI::getWerteListe, {}, F::EmptyWithNewError),
        op(71, "modifyDynattribute", &CI::modifyDynattribute, {}, F::False),
        op(72, "multipleClassify", &CI::multipleClassify, {"+docId"}, F::False),
        op(73, "newClassify", qOverload<qint64, QString, QString, QString>(&CI::newClassify), {},
           F::False),
        op(74, "moveDocumentsToTrash", &CI::moveDocumentsToTrash, {}, F::False),
        op(75, "removeDocumentsFromTrash", &CI::removeDocumentsFromTrash, {}, F::False),
        op(76, "getUserRole", &CI::getUserRole, {}, F::False),
        op(77, "updateLastModified", &CI::updateLastModified, {}, F::Never),
        op(78, "setLastModified", &CI::setLastModified, {}, F::Never),
        op(79, "errorString", &CI::errorString, {}, F::Never, S::None),
        op(80, "getAvailablePlugins", &CI::getAvailablePlugins, {}, F::Never),
        op(81, "newFolder", &CI::newFolder, {}, F::False),
        op(82, "saveUserData", &CI::saveUserData, {}, F::False),
        op(83, "deleteUserData", &CI::deleteUserData, {}, F::False),
        op(84, "loadUserData",
           qOverload<const QString &, QList<QString> &, QList<QByteArray> &, QList<QByteArray> &>(
               &CI::loadUserData), {}, F::False),
        op(85, "loadUserData",
           qOverload<const QString &, const QString &, QByteArray &, QByteArray &>(
               &CI::loadUserData), {"+second?"}, F::False),
        op(86, "moveDocToArchive", &CI::moveDocToArchive, {}, F::False),
        op(87, "getIndexerInfos", &CI::getIndexerInfos, {}, F::False),
        op(88, "recreateIndex", &CI::recreateIndex, {}, F::False),
        op(89, "getMinMaxDate", &CI::getMinMaxDate, {}, F::EmptyWithNewError),
        op(90, "getScanInputProcessList", &CI::getScanInputProcessList, {}, F::EmptyWithNewError),
        op(91, "getScanInputProcessImage", &CI::getScanInputProcessImage, {}, F::EmptyWithNewError),
        op(92, "doLdapCommand", &CI::doLdapCommand, {}, F::FalseErrorOut),
        op(93, "doWebCommand", &CI::doWebCommand, {}, F::FalseErrorOut),
        op(94, "getProfileId", &CI::getProfileId, {}, F::Never, S::None),
        op(95, "setProfileId", &CI::setProfileId, {}, F::Never, S::None),
        op(96, "getCfId", &CI::getCfId, {}, F::Never, S::None),
        op(97, "getServerVersion", &CI::getServerVersion, {}, F::EmptyWithNewError),
        op(98, "getCurrentArchive", &CI::getCurrentArchive, {}, F::Never),
        op(99, "getPass", &CI::getPass, {}, F::Never),
        op(100, "addLinkedDocuments", &CI::addLinkedDocuments, {}, F::False),
        op(101, "removeLinkedDocuments", &CI::removeLinkedDocuments, {}, F::False),
        op(102, "readLinkedDocuments", &CI::readLinkedDocuments, {}, F::EmptyWithNewError),
        op(103, "addClipboard", &CI::addClipboard, {}, F::Null),
        op(104, "removeClipboard", &CI::removeClipboard, {}, F::False),
        op(105, "renameClipboard", &CI::renameClipboard, {}, F::False),
        op(106, "readClipboards", &CI::readClipboards, {}, F::False),
        op(107, "readClipboardCards", &CI::readClipboardCards, {}, F::False),
        op(108, "addClipboardCard", &CI::addClipboardCard, {}, F::False),
        op(109, "removeClipboardCard", &CI::removeClipboardCard, {}, F::False),
        op(110, "clearClipboardCards", &CI::clearClipboardCards, {}, F::False),
        op(111, "updateClibpoardCard", &CI::updateClibpoardCard, {}, F::False),
        op(112, "readClipboardRoles", &CI::readClipboardRoles, {}, F::EmptyWithNewError),
        op(113, "writeClipboardRoles", &CI::writeClipboardRoles, {}, F::False),
        op(114, "testMail", &CI::testMail, {}, F::False),
        op(115, "loadRemoteFS", &CI::loadRemoteFS, {}, F::False),
        op(116, "checkFS", &CI::checkFS, {}, F::False),
        op(117, "doBackup", &CI::doBackup, {}, F::False),
        op(118, "updateBackupConfig", &CI::updateBackupConfig, {}, F::False),
        op(119, "getDeadLines", &CI::getDeadLines, {}, F::EmptyWithNewError),
        op(120, "getDeadLineForDocId", &CI::getDeadLineForDocId, {}, F::EmptyWithNewError),
        op(121, "saveDeadLines", &CI::saveDeadLines, {}, F::False),
        op(122, "addShare", &CI::addShare, {}, F::Null),
        op(123, "getShares", &CI::getShares, {}, F::EmptyWithNewError),
        op(124, "deleteShare", &CI::deleteShare, {}, F::False),
        op(125, "getAuthToken", &CI::getAuthToken, {}, F::Never),
        op(126, "getChatUsers", &CI::getChatUsers, {}, F::EmptyWithNewError),
        op(127, "getRoleRoles", &CI::getRoleRoles, {}, F::EmptyWithNewError),

        invokable<bool, QString, QStringList>("setRoleRoles", {}, F::False),
        invokable<QStringList, QString>("getRevisionen", {}, F::EmptyWithNewError),
    };
    // clang-format on
}

} // namespace

const QVector<Operation> &operations()
{
    static const QVector<Operation> table = buildTable();
    return table;
}

} // namespace nuvcli

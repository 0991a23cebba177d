// SPDX-License-Identifier: Apache-2.0
#include "commandwords.h"

#include "protocolwords.h"

#include <QHash>

namespace nuvexplorer {

QString commandWord(const QString &operation)
{
    namespace words = nuvprotocol::words;
    // clang-format off
    static const QHash<QString, QString> byOperation {
        { "connectToNuvKESP", words::login },
        { "changeExpiredPass", words::changeExpiredPass },
        { "changeUserPass", words::changeUserPass },
        { "changeUserPassAdmin", words::changeUserPassAdmin },
        { "closeSession", words::closeSession },
        { "checkUpdate", words::checkUpdate },
        { "getServerVersion", words::getServerVersion },
        { "setUsers", words::setUsers },
        { "getUsers", words::getUsers },
        { "delUsers", words::delUsers },
        { "getRoles", words::getRoles },
        { "getUserRoles", words::getUserRoles },
        { "setUserRoles", words::setUserRoles },
        { "updateUsers", words::updateUsers },
        { "getRoleList", words::getRoleList },
        { "getRoleRoles", words::getRoleRoles },
        { "getRoleUsers", words::getRoleUsers },
        { "setRoles", words::setRoles },
        { "deleteRoles", words::deleteRoles },
        { "setRoleUsers", words::setRoleUsers },
        { "setRoleRoles", words::setRoleUsers },
        { "getDocUsersAndRoles", words::getDocUsersAndRoles },
        { "setDocUsersAndRoles", words::setDocUsersAndRoles },
        { "getFolderRoles", words::getFolderRoles },
        { "setFolderRoles", words::setFolderRoles },
        { "classify", words::classify },
        { "classifyTemporary", words::classifyTemporary },
        { "newClassifyTemp", words::newClassifyTemp },
        { "getClassifyTemp", words::getClassifyTemp },
        { "deleteClassifyTemp", words::deleteClassifyTemp },
        { "getClassificationFields", words::getClassificationFields },
        { "getNextOid", words::getNextOid },
        { "getDocuments", words::getDocuments },
        { "getDocumentData", words::getDocumentData },
        { "getDocHistory", words::getDocHistory },
        { "getRevisionen", words::getRevisionen },
        { "getBemerkungen", words::getBemerkungen },
        { "readLinkedDocuments", words::readLinkedDocuments },
        { "addLinkedDocuments", words::addLinkedDocuments },
        { "removeLinkedDocuments", words::removeLinkedDocuments },
        { "moveDocumentsToTrash", words::moveDocumentsToTrash },
        { "removeDocumentsFromTrash", words::removeDocumentsFromTrash },
        { "getDocumentCount", words::getDocumentCount },
        { "getDeadLineForDocId", words::getDeadLineForDocId },
        { "getDeadLines", words::getDeadLines },
        { "saveDeadLines", words::saveDeadLines },
        { "getArchives", words::getArchives },
        { "setCurrentArchive", words::setCurrentArchive },
        { "getMandanten", words::getMandanten },
        { "insertMandant", words::insertMandant },
        { "getFolderStructure", words::getFolderStructure },
        { "saveFolderStructure", words::saveFolderStructure },
        { "getSystemFolders", words::getSystemFolders },
        { "getDocTypes", words::getDocTypes },
        { "saveDocTypes", words::saveDocTypes },
        { "getStatusTypes", words::getStatusTypes },
        { "saveStatusTypes", words::saveStatusTypes },
        { "listDynAttributes", words::listDynAttributes },
        { "addDynAttribute", words::addDynAttribute },
        { "deleteDynAttribute", words::deleteDynAttribute },
        { "getWerteListe", words::getWerteListe },
        { "modifyWerteListe", words::modifyWerteListe },
        { "addClipboard", words::addClipboard },
        { "removeClipboard", words::removeClipboard },
        { "readClipboards", words::readClipboards },
        { "readClipboardCards", words::readClipboardCards },
        { "addClipboardCard", words::addClipboardCard },
        { "removeClipboardCard", words::removeClipboardCard },
        { "addShare", words::addShare },
        { "getShares", words::getShares },
        { "deleteShare", words::deleteShare },
        { "addExtentedSearch", words::addExtendedSearch },
        { "getExtentedSearch", words::getExtendedSearch },
        { "deleteExtentedSearch", words::deleteExtendedSearch },
        { "getIndexerInfos", words::getIndexerInfos },
        { "doBackup", words::doBackup },
        { "testMail", words::testMail },
    };
    // clang-format on
    return byOperation.value(operation);
}

} // namespace nuvexplorer

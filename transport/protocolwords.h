// SPDX-License-Identifier: Apache-2.0
#ifndef NUVPROTOCOLWORDS_H
#define NUVPROTOCOLWORDS_H

#include <QChar>
#include <QLatin1String>
#include <QString>

/*
 * The words the client and the server exchange, written once for both sides
 * and for every tool that speaks to either: the command words, the status
 * words of a reply, the request flags, the update notices a host receives,
 * the record separator, the client version and how a refused login says that
 * the password has expired. A command word the client sends and the server
 * lacks would otherwise only show up at run time; tst_servercommandset checks
 * every entry of `commandWords` against both sides.
 */
namespace nuvprotocol {

// A reply's `command` field carries its status word. Failure is "ERROR";
// some operations succeed only on "OK", the others on anything but "ERROR".
namespace status {
inline constexpr char ok[] = "OK";
inline constexpr char error[] = "ERROR";
} // namespace status

// Joins keys in `docId` and the fields of one `dataList` record.
inline constexpr QChar recordSeparator(0xFEFF);

// The version the login reply must carry for the client to go on.
inline constexpr char clientVersion[] = "18.09-5";

// A login refused because the password has expired starts its error text
// with one of these (the server's language decides which); the connection
// stays open for the password change.
inline constexpr char expiredPassword[] = "Password expired";
inline constexpr char expiredPasswordGerman[] = "Passwort abgelaufen";

inline bool isExpiredPasswordText(const QString &errorText)
{
    return errorText.startsWith(QLatin1String(expiredPassword))
        || errorText.startsWith(QLatin1String(expiredPasswordGerman));
}

// Flag entries a request's `dataList` may hold.
namespace flag {
inline constexpr char emptyFolders[] = "EMPTYFOLDERS"; // system folders, empty ones included
inline constexpr char noEmptyFolders[] = "NOEMPTYFOLDERS";
inline constexpr char noDeleted[] = "NODELETED"; // counts without the trash
inline constexpr char ignoreArchive[] = "IGNOREARCHIVE"; // counts over every archive
inline constexpr char withoutHistory[] = "WITHOUTHISTORY"; // classifications, current only
} // namespace flag

// What the host is told through serverRequest(): the client's own notices
// and the pending entries of the update poll.
namespace notice {
inline constexpr char reloadAll[] = "DORELOADALL"; // a reply asked for a reload
inline constexpr char systemUpdate[] = "SYSUPDATE"; // a tenant was created
inline constexpr char foldersUpdate[] = "FOLDERSUPDATE";
inline constexpr char rolesUpdate[] = "ROLESUPDATE";
inline constexpr char typesUpdate[] = "TYPESUPDATE";
} // namespace notice

// The command words, named after the client operation that sends each.
namespace words {
// Sessions and maintenance
inline constexpr char login[] = "CFLOGIN";
inline constexpr char closeSession[] = "CFCLOSESESSION";
inline constexpr char checkUpdate[] = "CFUPDATES";
inline constexpr char updateLastModified[] = "CFLASTUPDATE";
inline constexpr char setLastModified[] = "CFSETLASTMODIFIED";
inline constexpr char getChatUsers[] = "CFCHATUSERS";
inline constexpr char getServerVersion[] = "CFSERVERVERSION";
inline constexpr char getIndexerInfos[] = "CFGETINDEXINFOS";
inline constexpr char recreateIndex[] = "CFRECREATEINDEX";
inline constexpr char getScanInputProcessList[] = "CFGETSCANINPUTLIST";
inline constexpr char getScanInputProcessImage[] = "CFGETSCANINPUTIMAGE";
inline constexpr char getMinMaxDate[] = "CFMINMAXDATE";
inline constexpr char testMail[] = "CFTESTMAIL";
inline constexpr char doBackup[] = "CFDOBACKUP";
inline constexpr char updateBackupConfig[] = "CFBACKUPUPDATE";
inline constexpr char loadRemoteFS[] = "CFFSLIST";
inline constexpr char checkFS[] = "CFFSCHECK";
inline constexpr char doLdapCommand[] = "CFLDAPCOMMAND";
inline constexpr char doWebCommand[] = "CFWEBCOMMAND";
inline constexpr char loadUserData[] = "CFLOADUSERDATA";
inline constexpr char saveUserData[] = "CFSAVEUSERDATA";
inline constexpr char deleteUserData[] = "CFDELUSERDATA";
// Users, roles and rights
inline constexpr char setUsers[] = "CFDOCSETUSERS";
inline constexpr char getUsers[] = "CFDOCGETUSERS";
inline constexpr char delUsers[] = "CFDOCDELETEUSERS";
inline constexpr char updateUsers[] = "CFDOCUPDATEUSERS";
inline constexpr char changeUserPassAdmin[] = "CFDOCCHANGEUSERPASSADMIN";
inline constexpr char changeUserPass[] = "CFDOCCHANGEUSERPASS";
inline constexpr char changeExpiredPass[] = "CFDOCCHANGEEXPIREDPASS";
inline constexpr char getRoles[] = "CFROLES";
inline constexpr char getParentRoles[] = "CFPARENTROLES"; // getRoles(role)
inline constexpr char getRoleList[] = "CFSENDROLESINFO";
inline constexpr char getUserRoles[] = "CFDOCGETUSERROLES";
inline constexpr char getRoleRoles[] = "CFGETROLESBYROLE";
inline constexpr char getRoleUsers[] = "CFDOCGETROLEUSERS";
inline constexpr char getUserRole[] = "CFSENDUSERPRIVATEROLE";
inline constexpr char setRoles[] = "CFDOCSETROLES";
inline constexpr char deleteRoles[] = "CFDELETEROLES";
inline constexpr char setUserRoles[] = "CFDOCSETUSERROLES";
inline constexpr char setRoleUsers[] = "CFDOCSETROLEUSERS"; // setRoleRoles too
inline constexpr char getDocUsersAndRoles[] = "CFGETDOCUSERS";
inline constexpr char setDocUsersAndRoles[] = "CFSETDOCUSERS";
inline constexpr char getFolderRoles[] = "CFGETFOLDROLE";
inline constexpr char setFolderRoles[] = "CFSETFOLDROLE";
inline constexpr char saveTempDocRollen[] = "CFDOCTEMPUSERS";
// Documents
inline constexpr char getNextOid[] = "CFGETNEXTOID";
inline constexpr char classify[] = "CFDOCCLASSIFY";
inline constexpr char multipleClassify[] = "CFDOCMULTICLASSIFY";
inline constexpr char newClassify[] = "CFDOCNEWCLASSIFY";
inline constexpr char newClassifyWithFolder[] = "CFDOCNEWCLASSIFYWITHFOLDER";
inline constexpr char getClassificationFields[] = "CFCLASSIFYFIELDS";
inline constexpr char classifyTemporary[] = "CFDOCCLASSIFYTEMP";
inline constexpr char newClassifyTemp[] = "CFDOCCLASSIFYWITHTEMP";
inline constexpr char getClassifyTemp[] = "CFDOCGETCLASSIFYTEMP";
inline constexpr char deleteClassifyTemp[] = "CFDOCDELETECLASSIFYTEMP";
inline constexpr char getDocumentData[] = "CFDOCINFO";
inline constexpr char getDocuments[] = "CFDOCSINFO";
inline constexpr char getDocHistory[] = "CFDOCHIST";
inline constexpr char getRevisionen[] = "CFDOCREV";
inline constexpr char getBemerkungen[] = "CFBEMERK";
inline constexpr char addLinkedDocuments[] = "CFADDLINKEDDOC";
inline constexpr char removeLinkedDocuments[] = "CFREMOVELINKEDDOC";
inline constexpr char readLinkedDocuments[] = "CFREADLINKEDDOC";
inline constexpr char moveDocumentsToTrash[] = "CFDOCSTOTRASH";
inline constexpr char removeDocumentsFromTrash[] = "CFDOCSFROMTRASH";
inline constexpr char moveDocToArchive[] = "CFDOCSTOARCHIVE";
inline constexpr char getDocumentCount[] = "CFDOCGETCOUNT";
inline constexpr char getClassifyCount[] = "CFCLASSCOUNT";
inline constexpr char getDeadLineForDocId[] = "CFSENDDEADLINEFORDOCID";
inline constexpr char getDeadLines[] = "CFSENDDEADLINES";
inline constexpr char saveDeadLines[] = "CFSAVEDEADLINES";
// Archives, tenants, folders and types
inline constexpr char getArchives[] = "CFDOCGETARCHIVES";
inline constexpr char setCurrentArchive[] = "CFSELARCHIVE";
inline constexpr char insertMandant[] = "CFNEWMANDANT";
inline constexpr char getMandanten[] = "CFDOCGETMANDANTEN";
inline constexpr char getFolderStructure[] = "CFGETMANS";
inline constexpr char saveFolderStructure[] = "CFSAVEMANS";
inline constexpr char getMainFolder[] = "CFMAINFOLDER";
inline constexpr char newFolder[] = "CFNEWFOLDER";
inline constexpr char getSystemFolders[] = "CFDOCSYSFOLDERS";
inline constexpr char setSystemFolders[] = "CFDOCSETSYSFOLDERS";
inline constexpr char getStatusTypes[] = "CFSTATTYPES";
inline constexpr char getDocTypes[] = "CFGETDOCTYPES";
inline constexpr char saveStatusTypes[] = "CFSAVESTATI";
inline constexpr char saveDocTypes[] = "CFSAVEDOCTYPES";
inline constexpr char listDynAttributes[] = "CFLSTDYNATT";
inline constexpr char addDynAttribute[] = "CFADDDYNATT";
inline constexpr char deleteDynAttribute[] = "CFDELDYNATT";
inline constexpr char modifyDynattribute[] = "CFMODDYNATT";
inline constexpr char getWerteListe[] = "CFLSTWERTE";
inline constexpr char modifyWerteListe[] = "CFMODWERTE";
// Clipboards, shares and saved searches
inline constexpr char addClipboard[] = "CFADDCLIPBOARD";
inline constexpr char renameClipboard[] = "CFRENAMECLIPBOARD";
inline constexpr char removeClipboard[] = "CFREMOVECLIPBOARD";
inline constexpr char readClipboards[] = "CFREADCLIPBOARDS";
inline constexpr char addClipboardCard[] = "CFCADDCARD";
inline constexpr char updateClipboardCard[] = "CFCUPDATECARD";
inline constexpr char removeClipboardCard[] = "CFCREMOVECARD";
inline constexpr char clearClipboardCards[] = "CFCCLEARCARDS";
inline constexpr char readClipboardCards[] = "CFCREADCCARDS";
inline constexpr char readClipboardRoles[] = "CFRCBROLES";
inline constexpr char writeClipboardRoles[] = "CFWCBROLES";
inline constexpr char addShare[] = "CFADDSHARE";
inline constexpr char getShares[] = "CFGETSHARES";
inline constexpr char deleteShare[] = "CFDELSHARE";
inline constexpr char addExtendedSearch[] = "CFEXTSEARCHADD";
inline constexpr char updateExtendedSearch[] = "CFEXTSEARCHUPD";
inline constexpr char deleteExtendedSearch[] = "CFEXTSEARCHDEL";
inline constexpr char getExtendedSearch[] = "CFEXTSEARCHFIN";
} // namespace words

// Every command word above, for the checks that the client and the server
// agree on them.
inline constexpr const char *const commandWords[] = {
    words::login,
    words::closeSession,
    words::checkUpdate,
    words::updateLastModified,
    words::setLastModified,
    words::getChatUsers,
    words::getServerVersion,
    words::getIndexerInfos,
    words::recreateIndex,
    words::getScanInputProcessList,
    words::getScanInputProcessImage,
    words::getMinMaxDate,
    words::testMail,
    words::doBackup,
    words::updateBackupConfig,
    words::loadRemoteFS,
    words::checkFS,
    words::doLdapCommand,
    words::doWebCommand,
    words::loadUserData,
    words::saveUserData,
    words::deleteUserData,
    words::setUsers,
    words::getUsers,
    words::delUsers,
    words::updateUsers,
    words::changeUserPassAdmin,
    words::changeUserPass,
    words::changeExpiredPass,
    words::getRoles,
    words::getParentRoles,
    words::getRoleList,
    words::getUserRoles,
    words::getRoleRoles,
    words::getRoleUsers,
    words::getUserRole,
    words::setRoles,
    words::deleteRoles,
    words::setUserRoles,
    words::setRoleUsers,
    words::getDocUsersAndRoles,
    words::setDocUsersAndRoles,
    words::getFolderRoles,
    words::setFolderRoles,
    words::saveTempDocRollen,
    words::getNextOid,
    words::classify,
    words::multipleClassify,
    words::newClassify,
    words::newClassifyWithFolder,
    words::getClassificationFields,
    words::classifyTemporary,
    words::newClassifyTemp,
    words::getClassifyTemp,
    words::deleteClassifyTemp,
    words::getDocumentData,
    words::getDocuments,
    words::getDocHistory,
    words::getRevisionen,
    words::getBemerkungen,
    words::addLinkedDocuments,
    words::removeLinkedDocuments,
    words::readLinkedDocuments,
    words::moveDocumentsToTrash,
    words::removeDocumentsFromTrash,
    words::moveDocToArchive,
    words::getDocumentCount,
    words::getClassifyCount,
    words::getDeadLineForDocId,
    words::getDeadLines,
    words::saveDeadLines,
    words::getArchives,
    words::setCurrentArchive,
    words::insertMandant,
    words::getMandanten,
    words::getFolderStructure,
    words::saveFolderStructure,
    words::getMainFolder,
    words::newFolder,
    words::getSystemFolders,
    words::setSystemFolders,
    words::getStatusTypes,
    words::getDocTypes,
    words::saveStatusTypes,
    words::saveDocTypes,
    words::listDynAttributes,
    words::addDynAttribute,
    words::deleteDynAttribute,
    words::modifyDynattribute,
    words::getWerteListe,
    words::modifyWerteListe,
    words::addClipboard,
    words::renameClipboard,
    words::removeClipboard,
    words::readClipboards,
    words::addClipboardCard,
    words::updateClipboardCard,
    words::removeClipboardCard,
    words::clearClipboardCards,
    words::readClipboardCards,
    words::readClipboardRoles,
    words::writeClipboardRoles,
    words::addShare,
    words::getShares,
    words::deleteShare,
    words::addExtendedSearch,
    words::updateExtendedSearch,
    words::deleteExtendedSearch,
    words::getExtendedSearch,
};

} // namespace nuvprotocol

#endif // NUVPROTOCOLWORDS_H

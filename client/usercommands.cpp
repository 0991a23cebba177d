// SPDX-License-Identifier: Apache-2.0
// Users and passwords, roles, and rights on documents and folders.

#include "commandblocks.h"
#include "nuvclassifyclient.h"

using nuv::Command;
using nuv::fields;
using nuv::listFields;
namespace words = nuvprotocol::words;

// Users and passwords

bool NuvClassifyClient::setUsers(QStringList users)
{
    return perform(Command(words::setUsers), fields(QStringLiteral("0"), users));
}

bool NuvClassifyClient::getUsers(QStringList &users)
{
    // The caller's list goes out too, as the server's filter or context.
    return perform(Command(words::getUsers), fields(QStringLiteral("0"), users), false,
                   nuv::assignDataList(users));
}

bool NuvClassifyClient::delUsers(QStringList users, QString context)
{
    return perform(Command(words::delUsers), fields(context, users));
}

bool NuvClassifyClient::updateUsers(QStringList users)
{
    return perform(Command(words::updateUsers), listFields(users));
}

bool NuvClassifyClient::changeUserPassAdmin(QString user, QString newPassword)
{
    return perform(Command(words::changeUserPassAdmin), fields(user, { newPassword }));
}

bool NuvClassifyClient::changeUserPass(QString oldPassword, QString newPassword)
{
    return perform(Command(words::changeUserPass), listFields({ oldPassword, newPassword }));
}

bool NuvClassifyClient::changeExpiredPass(QString user, QString oldPassword, QString newPassword,
                                          QString, int)
{
    // Runs on the connection a refused login kept open, without the lock.
    return perform(
        Command(words::changeExpiredPass).unlocked().testedBy(nuv::ReplyTest::ErrorContained),
        fields(user, { oldPassword, newPassword }));
}

// Roles

QStringList NuvClassifyClient::getRoles()
{
    return performForList(Command(words::getRoles));
}

QStringList NuvClassifyClient::getRoles(QString role)
{
    return performForList(Command(words::getParentRoles), listFields({ role }));
}

QStringList NuvClassifyClient::getRoleList()
{
    return performForList(Command(words::getRoleList).unlocked());
}

QStringList NuvClassifyClient::getUserRoles(QString user)
{
    return performForList(Command(words::getUserRoles), fields(user));
}

QStringList NuvClassifyClient::getRoleRoles(QString role)
{
    return performForList(Command(words::getRoleRoles), fields(role));
}

QStringList NuvClassifyClient::getRoleUsers(QString role)
{
    return performForList(Command(words::getRoleUsers), fields(role));
}

bool NuvClassifyClient::getUserRole(QString &role)
{
    return perform(Command(words::getUserRole).unlocked(), {}, false,
                   [&role](const NuvKespClassifyBlock &reply) {
                       // A reply without any role leaves the caller's value.
                       if (!reply.dataList.isEmpty())
                           role = reply.dataList.first();
                       return true;
                   });
}

bool NuvClassifyClient::setRoles(QStringList roles)
{
    return perform(Command(words::setRoles), listFields(roles));
}

bool NuvClassifyClient::setUserRoles(QString user, QStringList roles)
{
    return perform(Command(words::setUserRoles), fields(user, roles));
}

bool NuvClassifyClient::setRoleUsers(QString role, QStringList users)
{
    return perform(Command(words::setRoleUsers), fields(role, users));
}

bool NuvClassifyClient::setRoleRoles(QString role, QStringList roles)
{
    // The server writes the roles of a role with the same command as its
    // users; both names run this one implementation.
    return NuvClassifyClient::setRoleUsers(std::move(role), std::move(roles));
}

bool NuvClassifyClient::deleteRoles(QStringList roles)
{
    return perform(Command(words::deleteRoles), listFields(roles));
}

// Rights on documents and folders

bool NuvClassifyClient::getDocUsersAndRoles(QString docId, QStringList &entries)
{
    return perform(Command(words::getDocUsersAndRoles), fields(docId), false,
                   nuv::assignDataList(entries));
}

bool NuvClassifyClient::setDocUsersAndRoles(QString docId, QString first, QStringList entries)
{
    entries.prepend(first);
    return perform(Command(words::setDocUsersAndRoles), fields(docId, entries));
}

QStringList NuvClassifyClient::getFolderRoles(QString folder)
{
    // The reader names the folder in the list, the writer in `docId`.
    return performForList(Command(words::getFolderRoles), listFields({ folder }));
}

bool NuvClassifyClient::setFolderRoles(QString folder, QStringList roles)
{
    return perform(Command(words::setFolderRoles), fields(folder, roles));
}

bool NuvClassifyClient::saveTempDocRollen(QString docId, QStringList entries)
{
    return perform(Command(words::saveTempDocRollen), fields(docId, entries));
}

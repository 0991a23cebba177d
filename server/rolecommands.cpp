// SPDX-License-Identifier: Apache-2.0
// Roles and role membership, rights on documents, folders and temporary
// classifications.

#include "context.h"

#include <QSqlQuery>

namespace nuvserver {

namespace {

qint64 requireRole(const QSqlDatabase &db, const QString &name)
{
    const QVariant id = scalar(db, QStringLiteral("SELECT id FROM roles WHERE name = ?"), { name });
    if (!id.isValid())
        fail(QStringLiteral("there is no role '%1'").arg(name));
    return id.toLongLong();
}

qint64 requireUserId(const QSqlDatabase &db, const QString &login)
{
    const QVariant id
        = scalar(db, QStringLiteral("SELECT id FROM users WHERE login = ?"), { login });
    if (!id.isValid())
        fail(QStringLiteral("there is no user '%1'").arg(login));
    return id.toLongLong();
}

void requireNoRoleCycle(const QSqlDatabase &db)
{
    if (exists(db,
               QStringLiteral("WITH RECURSIVE reach(start, id) AS ("
                              " SELECT member_role_id, role_id FROM role_members"
                              " UNION SELECT reach.start, rm.role_id FROM role_members rm"
                              " JOIN reach ON rm.member_role_id = reach.id)"
                              " SELECT 1 FROM reach WHERE start = id LIMIT 1")))
        fail(QStringLiteral("the role memberships would form a cycle"));
}

// CFROLES
void roleNames(Context &ctx)
{
    ctx.setList(column(ctx.db, QStringLiteral("SELECT name FROM roles ORDER BY name")));
}

// CFSENDROLESINFO: name␟description␟administrator␟number of users
void roleRecords(Context &ctx)
{
    ctx.setList(
        queryRecords(ctx.db,
                     QStringLiteral("SELECT r.name, r.description, r.administrator,"
                                    " (SELECT count(*) FROM user_roles ur WHERE ur.role_id = r.id)"
                                    " FROM roles r ORDER BY r.name")));
}

// CFPARENTROLES: [role] -> every role it belongs to, directly or not
void parentRoles(Context &ctx)
{
    const qint64 role = requireRole(ctx.db, ctx.requireItem(0, QStringLiteral("the role")));
    ctx.setList(column(ctx.db,
                       QStringLiteral("WITH RECURSIVE up(id) AS ("
                                      " SELECT role_id FROM role_members WHERE member_role_id = ?"
                                      " UNION SELECT rm.role_id FROM role_members rm"
                                      " JOIN up ON rm.member_role_id = up.id)"
                                      " SELECT name FROM roles WHERE id IN (SELECT id FROM up)"
                                      " ORDER BY name"),
                       { role }));
}

// CFGETROLESBYROLE: docId role -> its direct member roles
void memberRoles(Context &ctx)
{
    const qint64 role = requireRole(ctx.db, ctx.requireDocId(QStringLiteral("the role")));
    ctx.setList(column(ctx.db,
                       QStringLiteral("SELECT r.name FROM role_members rm JOIN roles r"
                                      " ON r.id = rm.member_role_id WHERE rm.role_id = ?"
                                      " ORDER BY r.name"),
                       { role }));
}

// CFDOCGETROLEUSERS: docId role -> its direct member users
void roleUsers(Context &ctx)
{
    const qint64 role = requireRole(ctx.db, ctx.requireDocId(QStringLiteral("the role")));
    ctx.setList(
        column(ctx.db,
               QStringLiteral("SELECT u.login FROM user_roles ur JOIN users u"
                              " ON u.id = ur.user_id WHERE ur.role_id = ? ORDER BY u.login"),
               { role }));
}

// CFDOCGETUSERROLES: docId user -> the roles given to it directly
void userRoles(Context &ctx)
{
    const qint64 user = requireUserId(ctx.db, ctx.requireDocId(QStringLiteral("the user name")));
    ctx.setList(column(ctx.db,
                       QStringLiteral("SELECT r.name FROM user_roles ur JOIN roles r"
                                      " ON r.id = ur.role_id WHERE ur.user_id = ? ORDER BY r.name"),
                       { user }));
}

// CFSENDUSERPRIVATEROLE: every user is its own private role
void privateRole(Context &ctx)
{
    ctx.setList({ ctx.login() });
}

// CFDOCSETROLES: records name␟description␟administrator; creates or updates
void saveRoles(Context &ctx)
{
    if (ctx.list().isEmpty())
        fail(QStringLiteral("dataList names no role"));
    for (const QString &record : ctx.list()) {
        const QStringList fields = splitFields(record);
        const QString name = fields.at(0);
        checkName(name, QStringLiteral("the role name"));
        if (exists(ctx.db, QStringLiteral("SELECT 1 FROM users WHERE login = ?"), { name }))
            fail(QStringLiteral("'%1' is already the name of a user").arg(name));
        const bool administrator
            = toFlag(field(fields, 2), QStringLiteral("the administrator flag of ") + name);
        run(ctx.db,
            QStringLiteral("INSERT INTO roles(name, description, administrator) VALUES (?, ?, ?)"
                           " ON CONFLICT(name) DO UPDATE SET description = excluded.description,"
                           " administrator = excluded.administrator"),
            { name, field(fields, 1), administrator ? 1 : 0 });
    }
    requireAnAdministrator(ctx.db);
    ctx.notifyOthers(QLatin1String(notice::rolesUpdate));
}

// CFDELETEROLES: [role, ...]
void deleteRoles(Context &ctx)
{
    if (ctx.list().isEmpty())
        fail(QStringLiteral("dataList names no role"));
    for (const QString &name : ctx.list()) {
        run(ctx.db, QStringLiteral("DELETE FROM roles WHERE id = ?"),
            { requireRole(ctx.db, name) });
        forgetPrincipal(ctx.db, name);
    }
    requireAnAdministrator(ctx.db);
    ctx.notifyOthers(QLatin1String(notice::rolesUpdate));
}

// CFDOCSETUSERROLES: docId user, dataList = all its direct roles
void setUserRoles(Context &ctx)
{
    const qint64 user = requireUserId(ctx.db, ctx.requireDocId(QStringLiteral("the user name")));
    QList<qint64> roles;
    for (const QString &name : ctx.list())
        roles.append(requireRole(ctx.db, name));
    run(ctx.db, QStringLiteral("DELETE FROM user_roles WHERE user_id = ?"), { user });
    for (const qint64 role : qAsConst(roles))
        run(ctx.db,
            QStringLiteral(
                "INSERT INTO user_roles(user_id, role_id) VALUES (?, ?) ON CONFLICT DO NOTHING"),
            { user, role });
    requireAnAdministrator(ctx.db);
    ctx.notifyOthers(QLatin1String(notice::rolesUpdate), user);
}

// CFDOCSETROLEUSERS: docId role, dataList = member names. Users and roles
// share one namespace; the list replaces the members of each kind it names,
// and an empty list removes all members.
void setRoleMembers(Context &ctx)
{
    const qint64 role = requireRole(ctx.db, ctx.requireDocId(QStringLiteral("the role")));
    QList<qint64> users;
    QList<qint64> roles;
    for (const QString &name : ctx.list()) {
        const QVariant user
            = scalar(ctx.db, QStringLiteral("SELECT id FROM users WHERE login = ?"), { name });
        if (user.isValid())
            users.append(user.toLongLong());
        else
            roles.append(requireRole(ctx.db, name));
    }
    const bool replaceAll = ctx.list().isEmpty();
    if (replaceAll || !users.isEmpty()) {
        run(ctx.db, QStringLiteral("DELETE FROM user_roles WHERE role_id = ?"), { role });
        for (const qint64 user : qAsConst(users))
            run(ctx.db,
                QStringLiteral("INSERT INTO user_roles(user_id, role_id) VALUES (?, ?) ON CONFLICT "
                               "DO NOTHING"),
                { user, role });
    }
    if (replaceAll || !roles.isEmpty()) {
        run(ctx.db, QStringLiteral("DELETE FROM role_members WHERE role_id = ?"), { role });
        for (const qint64 member : qAsConst(roles))
            run(ctx.db,
                QStringLiteral("INSERT INTO role_members(role_id, member_role_id)"
                               " VALUES (?, ?) ON CONFLICT DO NOTHING"),
                { role, member });
    }
    requireNoRoleCycle(ctx.db);
    requireAnAdministrator(ctx.db);
    ctx.notifyOthers(QLatin1String(notice::rolesUpdate));
}

// CFGETDOCUSERS: docId document -> principal␟rights entries
void documentRights(Context &ctx)
{
    ctx.listDocumentRows(QStringLiteral("SELECT principal, rights FROM doc_rights"
                                        " WHERE doc_id = ? ORDER BY principal"));
}

// CFSETDOCUSERS: docId document, [mode, entries...]; mode SET (or empty)
// replaces the entries, ADD adds or changes, REMOVE removes the principals.
void setDocumentRights(Context &ctx)
{
    const qint64 doc = ctx.docIdNumber(QStringLiteral("the document"));
    ctx.requireDocument(doc, Access::Write);
    const QString mode = ctx.requireItem(0, QStringLiteral("the mode")).toUpper();
    const QStringList entries = ctx.list().mid(1);
    if (mode == QLatin1String("REMOVE")) {
        for (const QString &entry : entries)
            run(ctx.db, QStringLiteral("DELETE FROM doc_rights WHERE doc_id = ? AND principal = ?"),
                { doc, splitFields(entry).at(0) });
    } else if (mode.isEmpty() || mode == QLatin1String("SET") || mode == QLatin1String("ADD")) {
        const auto rights = parseRights(ctx.db, entries);
        if (mode != QLatin1String("ADD"))
            run(ctx.db, QStringLiteral("DELETE FROM doc_rights WHERE doc_id = ?"), { doc });
        for (const auto &right : rights)
            run(ctx.db,
                QStringLiteral("INSERT INTO doc_rights(doc_id, principal, rights)"
                               " VALUES (?, ?, ?) ON CONFLICT(doc_id, principal)"
                               " DO UPDATE SET rights = excluded.rights"),
                { doc, right.first, right.second });
    } else {
        fail(QStringLiteral("the mode must be SET, ADD or REMOVE, not '%1'").arg(ctx.item(0)));
    }
    addHistory(ctx, doc, QStringLiteral("rights"),
               mode + QLatin1Char(' ') + entries.join(QLatin1String(", ")));
}

QString requireVisibleFolder(Context &ctx, const QString &key)
{
    if (!exists(ctx.db, QStringLiteral("SELECT 1 FROM folders WHERE key = ?"), { key })
        || !ctx.folderVisible(key))
        fail(QStringLiteral("there is no folder '%1'").arg(key));
    return key;
}

const KeyedList folderRoleList { "folder_roles", "folder_key", "principal" };

// CFGETFOLDROLE: [folder] -> the principals that may see it
void folderRoles(Context &ctx)
{
    const QString key = requireVisibleFolder(ctx, ctx.requireItem(0, QStringLiteral("the folder")));
    ctx.setList(readList(ctx.db, folderRoleList, key));
}

// CFSETFOLDROLE: docId folder, dataList = principals (empty: no restriction)
void setFolderRoles(Context &ctx)
{
    const QString key = requireVisibleFolder(ctx, ctx.requireDocId(QStringLiteral("the folder")));
    for (const QString &principal : ctx.list())
        requirePrincipal(ctx.db, principal);
    writeList(ctx.db, folderRoleList, key, ctx.list());
    ctx.notifyOthers(QLatin1String(notice::foldersUpdate));
}

// CFDOCTEMPUSERS: docId temporary classification, entries principal␟rights;
// they become the document's rights when the classification is applied.
void setTemporaryRights(Context &ctx)
{
    const qint64 temp = ctx.docIdNumber(QStringLiteral("the temporary classification"));
    if (!exists(ctx.db,
                QStringLiteral("SELECT 1 FROM temp_classifications WHERE id = ? AND owner_id = ?"),
                { temp, ctx.user().userId }))
        fail(QStringLiteral("there is no temporary classification %1 of %2")
                 .arg(temp)
                 .arg(ctx.login()));
    const auto rights = parseRights(ctx.db, ctx.list());
    run(ctx.db, QStringLiteral("DELETE FROM temp_rights WHERE temp_id = ?"), { temp });
    for (const auto &right : rights)
        run(ctx.db,
            QStringLiteral("INSERT INTO temp_rights(temp_id, principal, rights)"
                           " VALUES (?, ?, ?) ON CONFLICT(temp_id, principal)"
                           " DO UPDATE SET rights = excluded.rights"),
            { temp, right.first, right.second });
}

} // namespace

void forgetPrincipal(const QSqlDatabase &db, const QString &name)
{
    for (const char *table : { "doc_rights", "folder_roles", "clipboard_roles", "temp_rights" })
        run(db, QStringLiteral("DELETE FROM %1 WHERE principal = ?").arg(QLatin1String(table)),
            { name });
}

void requirePrincipal(const QSqlDatabase &db, const QString &name)
{
    // Lists of principals are stored as sent: an entry with rights appended
    // would pass a check of its first field and then match nobody.
    if (name.contains(recordSeparator))
        fail(QStringLiteral("'%1' is neither a user nor a role (it holds a field separator)")
                 .arg(name));
    if (!exists(db,
                QStringLiteral("SELECT 1 FROM users WHERE login = ?"
                               " UNION SELECT 1 FROM roles WHERE name = ?"),
                { name, name }))
        fail(QStringLiteral("'%1' is neither a user nor a role").arg(name));
}

QVector<QPair<QString, QString>> parseRights(const QSqlDatabase &db, const QStringList &entries)
{
    QVector<QPair<QString, QString>> rights;
    for (const QString &entry : entries) {
        const QStringList fields = splitFields(entry);
        const QString principal = fields.at(0);
        requirePrincipal(db, principal);
        const QString letters = fields.size() > 1 ? fields.at(1).toLower() : QStringLiteral("rw");
        for (const QChar c : letters) {
            if (c != QLatin1Char('r') && c != QLatin1Char('w'))
                fail(QStringLiteral("the rights of %1 may hold only r and w, not '%2'")
                         .arg(principal, fields.at(1)));
        }
        if (letters.isEmpty())
            fail(QStringLiteral("the rights of %1 are empty").arg(principal));
        rights.append(
            { principal,
              letters.contains(QLatin1Char('w')) ? QStringLiteral("rw") : QStringLiteral("r") });
    }
    return rights;
}

QVector<CommandEntry> roleCommands()
{
    return {
        { words::getRoles, roleNames, NeedsSession },
        { words::getRoleList, roleRecords, NeedsSession },
        { words::getParentRoles, parentRoles, NeedsSession },
        { words::getRoleRoles, memberRoles, NeedsSession },
        { words::getRoleUsers, roleUsers, NeedsSession },
        { words::getUserRoles, userRoles, NeedsSession },
        { words::getUserRole, privateRole, NeedsSession },
        { words::setRoles, saveRoles, Administrative | Writes },
        { words::deleteRoles, deleteRoles, Administrative | Writes },
        { words::setUserRoles, setUserRoles, Administrative | Writes },
        { words::setRoleUsers, setRoleMembers, Administrative | Writes },
        { words::getDocUsersAndRoles, documentRights, NeedsSession },
        { words::setDocUsersAndRoles, setDocumentRights, Writes },
        { words::getFolderRoles, folderRoles, NeedsSession },
        { words::setFolderRoles, setFolderRoles, Administrative | Writes },
        { words::saveTempDocRollen, setTemporaryRights, Writes },
    };
}

} // namespace nuvserver

// SPDX-License-Identifier: Apache-2.0
// Login and sessions, passwords, user administration, update polling.

#include "admission.h"
#include "context.h"
#include "loginthrottle.h"
#include "passwordhash.h"
#include "schema.h"

#include <QSqlQuery>

namespace nuvserver {

namespace {

const QString refusedLogin = QStringLiteral("unknown user or wrong password");

struct StoredUser
{
    qint64 id = 0;
    QString login;
    QString fullName;
    QString hash;
    bool expired = false;
    bool active = false;
};

std::optional<StoredUser> findUser(const QSqlDatabase &db, const QString &login)
{
    QSqlQuery query = run(db,
                          QStringLiteral("SELECT id, login, full_name, password_hash,"
                                         " password_expired, active FROM users WHERE login = ?"),
                          { login });
    if (!query.next())
        return std::nullopt;
    return StoredUser { query.value(0).toLongLong(), query.value(1).toString(),
                        query.value(2).toString(),   query.value(3).toString(),
                        query.value(4).toInt() != 0, query.value(5).toInt() != 0 };
}

StoredUser requireUser(const QSqlDatabase &db, const QString &login)
{
    const std::optional<StoredUser> user = findUser(db, login);
    if (!user)
        fail(QStringLiteral("there is no user '%1'").arg(login));
    return *user;
}

void requireFreePrincipalName(const QSqlDatabase &db, const QString &name)
{
    if (exists(db, QStringLiteral("SELECT 1 FROM roles WHERE name = ?"), { name }))
        fail(QStringLiteral("'%1' is already the name of a role").arg(name));
    if (exists(db, QStringLiteral("SELECT 1 FROM users WHERE login = ?"), { name }))
        fail(QStringLiteral("there is already a user '%1'").arg(name));
}

void setPassword(Context &ctx, qint64 userId, const QString &password, bool expired)
{
    checkNewPassword(ctx.options, password);
    run(ctx.db,
        QStringLiteral("UPDATE users SET password_hash = ?, password_expired = ? WHERE id = ?"),
        { hashPassword(password, ctx.options.pbkdf2Iterations), expired ? 1 : 0, userId });
}

QStringList announcedPlugins(const EngineOptions &options)
{
    QStringList plugins { QStringLiteral("nuvclassify-server") };
    const std::pair<bool, const char *> features[] = {
        { !options.backupDirectory.isEmpty(), "backup" },
        { !options.fileSystemRoots.isEmpty(), "filesystem" },
        { !options.mailCommand.isEmpty(), "mail" },
        { !options.ldapUrl.isEmpty(), "ldap" },
        { !options.webUrl.isEmpty(), "web" },
        { !options.scanInputDirectory.isEmpty(), "scaninput" },
    };
    for (const auto &feature : features) {
        if (feature.first)
            plugins.append(QLatin1String(feature.second));
    }
    return plugins + options.extraPlugins;
}

// CFLOGIN: [user, password, client text]
void login(Context &ctx)
{
    const QString name = ctx.requireItem(0, QStringLiteral("the user name"));
    const QString password = ctx.requireItem(1, QStringLiteral("the password"));
    if (ctx.token.isEmpty())
        fail(QStringLiteral("the connection carries no session token"));
    // A token copied from another connection must not take its session over.
    const QVariant boundTo = scalar(ctx.db,
                                    QStringLiteral("SELECT connection FROM sessions"
                                                   " WHERE token = ?"),
                                    { ctx.token });
    if (boundTo.isValid() && boundTo.toString() != ctx.connection)
        fail(QStringLiteral("not logged in: the session token belongs to another connection"));
    // Before any hashing: a guesser who must wait costs no PBKDF2 rounds.
    admitLoginAttempt(ctx, name);
    const std::optional<StoredUser> user = findUser(ctx.db, name);
    if (!user)
        spendVerificationTime(password, ctx.options.pbkdf2Iterations);
    if (!user || !verifyPassword(password, user->hash)) {
        countFailedLogin(ctx, name);
        throw Failure { refusedLogin, true };
    }
    forgetFailedLogins(ctx, name);
    if (!user->active)
        fail(QStringLiteral("the account of %1 is disabled").arg(user->login));

    const QString now = nowText();
    // A new login on a token starts a new session: the old one goes with
    // its pending requests.
    run(ctx.db, QStringLiteral("DELETE FROM sessions WHERE token = ?"), { ctx.token });
    run(ctx.db,
        QStringLiteral("INSERT INTO sessions(token, user_id, state, client, started,"
                       " last_seen, connection) VALUES (?, ?, ?, ?, ?, ?, ?)"),
        { ctx.token, user->id, user->expired ? QStringLiteral("expired") : QStringLiteral("active"),
          ctx.item(2), now, now, ctx.connection });
    run(ctx.db, QStringLiteral("DELETE FROM session_requests WHERE token = ?"), { ctx.token });
    ctx.session = loadSession(ctx.db, ctx.token);
    if (user->expired)
        throw Failure { QLatin1String(nuvprotocol::expiredPassword)
                            + QStringLiteral(": the password of %1 must be changed before "
                                             "logging in (CFLOGIN)")
                                  .arg(user->login),
                        true, true };

    ctx.reply.setData({ QByteArray(nuvprotocol::clientVersion) });
    ctx.setList(effectiveRoles(ctx.db, user->id));
    ctx.setDocId(user->fullName);
    ctx.reply.setAvailablePlugins(announcedPlugins(ctx.options));
}

// CFCLOSESESSION
void closeSession(Context &ctx)
{
    run(ctx.db, QStringLiteral("DELETE FROM sessions WHERE token = ?"), { ctx.token });
    ctx.session.reset();
}

// CFDOCCHANGEEXPIREDPASS: docId user, [old, new]
void changeExpiredPassword(Context &ctx)
{
    const QString name = ctx.requireDocId(QStringLiteral("the user name"));
    const QString oldPassword = ctx.requireItem(0, QStringLiteral("the old password"));
    const QString newPassword = ctx.requireItem(1, QStringLiteral("the new password"));
    if (name != ctx.login())
        fail(QStringLiteral("this connection logged in as %1, not as %2").arg(ctx.login(), name));
    const StoredUser user = requireUser(ctx.db, name);
    if (!verifyPassword(oldPassword, user.hash))
        fail(QStringLiteral("the old password is wrong"));
    if (oldPassword == newPassword)
        fail(QStringLiteral("the new password must differ from the old one"));
    setPassword(ctx, user.id, newPassword, false);
    run(ctx.db, QStringLiteral("UPDATE sessions SET state = 'active' WHERE token = ?"),
        { ctx.token });
    ctx.session = loadSession(ctx.db, ctx.token);
}

// CFDOCCHANGEUSERPASS: [old, new]
void changeOwnPassword(Context &ctx)
{
    const QString oldPassword = ctx.requireItem(0, QStringLiteral("the old password"));
    const QString newPassword = ctx.requireItem(1, QStringLiteral("the new password"));
    const StoredUser user = requireUser(ctx.db, ctx.login());
    if (!verifyPassword(oldPassword, user.hash))
        fail(QStringLiteral("the old password is wrong"));
    setPassword(ctx, user.id, newPassword, false);
}

// CFDOCCHANGEUSERPASSADMIN: docId user, [new]. The user must choose a new
// password at the next login, unless administrators set their own.
void setPasswordAsAdministrator(Context &ctx)
{
    const StoredUser user = requireUser(ctx.db, ctx.requireDocId(QStringLiteral("the user name")));
    setPassword(ctx, user.id, ctx.requireItem(0, QStringLiteral("the new password")),
                user.id != ctx.user().userId);
    unlockAccount(ctx.db, user.login);
}

// CFDOCGETUSERS: docId "0", dataList = logins to return (empty: all)
void getUsers(Context &ctx)
{
    QVariantList values;
    QString sql = QStringLiteral("SELECT login, full_name, email, password_expired, active"
                                 " FROM users");
    if (!ctx.list().isEmpty())
        sql += QStringLiteral(" WHERE ") + inList(QStringLiteral("login"), ctx.list(), values);
    ctx.setList(queryRecords(ctx.db, sql + QStringLiteral(" ORDER BY login"), values));
}

// CFDOCSETUSERS: docId "0", records login␟password␟full name␟e-mail␟expired
void createUsers(Context &ctx)
{
    const QStringList records = ctx.list();
    if (records.isEmpty())
        fail(QStringLiteral("dataList names no user to create"));
    for (const QString &record : records) {
        const QStringList fields = splitFields(record);
        const QString name = fields.at(0);
        checkName(name, QStringLiteral("the user name"));
        requireFreePrincipalName(ctx.db, name);
        const QString password = field(fields, 1);
        checkNewPassword(ctx.options, password);
        run(ctx.db,
            QStringLiteral("INSERT INTO users(login, password_hash, full_name, email,"
                           " password_expired, created) VALUES (?, ?, ?, ?, ?, ?)"),
            { name, hashPassword(password, ctx.options.pbkdf2Iterations), field(fields, 2),
              field(fields, 3),
              toFlag(field(fields, 4), QStringLiteral("the expired flag of ") + name) ? 1 : 0,
              nowText() });
    }
    ctx.setDocId(QString::number(records.size()));
}

// CFDOCUPDATEUSERS: records login␟full name␟e-mail␟expired␟active; fields
// that a record leaves out keep their value.
void updateUsers(Context &ctx)
{
    const QStringList records = ctx.list();
    if (records.isEmpty())
        fail(QStringLiteral("dataList names no user to update"));
    const char *const columns[] = { "full_name", "email", "password_expired", "active" };
    for (const QString &record : records) {
        const QStringList fields = splitFields(record);
        const StoredUser user = requireUser(ctx.db, fields.at(0));
        for (int i = 1; i < fields.size() && i <= 4; ++i) {
            QVariant value = fields.at(i);
            if (i >= 3)
                value
                    = toFlag(fields.at(i), QStringLiteral("field %1 of %2").arg(i).arg(user.login))
                    ? 1
                    : 0;
            run(ctx.db,
                QStringLiteral("UPDATE users SET %1 = ? WHERE id = ?")
                    .arg(QLatin1String(columns[i - 1])),
                { value, user.id });
        }
        run(ctx.db,
            QStringLiteral("DELETE FROM sessions WHERE user_id = ? AND user_id IN"
                           " (SELECT id FROM users WHERE active = 0)"),
            { user.id });
        // An administrator's update is also how a locked account is opened.
        unlockAccount(ctx.db, user.login);
    }
    requireAnAdministrator(ctx.db);
}

// CFDOCDELETEUSERS: docId = the user who takes over clipboards, searches,
// shares and temporary classifications (empty: they are deleted),
// dataList = the users to delete.
void deleteUsers(Context &ctx)
{
    const QStringList names = ctx.list();
    if (names.isEmpty())
        fail(QStringLiteral("dataList names no user to delete"));
    qint64 successor = 0;
    if (!ctx.docId().isEmpty()) {
        successor = requireUser(ctx.db, ctx.docId()).id;
        if (names.contains(ctx.docId()))
            fail(QStringLiteral("%1 cannot take over from itself").arg(ctx.docId()));
    }
    for (const QString &name : names) {
        const StoredUser user = requireUser(ctx.db, name);
        if (user.id == ctx.user().userId)
            fail(QStringLiteral("%1 cannot delete itself").arg(name));
        if (successor > 0) {
            const QString suffix = QStringLiteral(" (") + user.login + QLatin1Char(')');
            for (const char *table : { "clipboards", "searches" })
                run(ctx.db,
                    QStringLiteral(
                        "UPDATE %1 SET owner_id = ?, name = name || ? WHERE owner_id = ?")
                        .arg(QLatin1String(table)),
                    { successor, suffix, user.id });
            for (const char *table : { "shares", "temp_classifications" })
                run(ctx.db,
                    QStringLiteral("UPDATE %1 SET owner_id = ? WHERE owner_id = ?")
                        .arg(QLatin1String(table)),
                    { successor, user.id });
        }
        run(ctx.db, QStringLiteral("DELETE FROM users WHERE id = ?"), { user.id });
        forgetPrincipal(ctx.db, user.login);
    }
    requireAnAdministrator(ctx.db);
}

// CFCHATUSERS: login␟full name of every user with an open session
void chatUsers(Context &ctx)
{
    ctx.setList(queryRecords(ctx.db,
                             QStringLiteral("SELECT DISTINCT u.login, u.full_name"
                                            " FROM sessions s JOIN users u ON u.id = s.user_id"
                                            " WHERE s.state = 'active' ORDER BY u.login")));
}

// CFUPDATES: the pending requests of this session, oldest first; they are
// delivered once.
void pendingRequests(Context &ctx)
{
    ctx.setList(column(ctx.db,
                       QStringLiteral("SELECT request FROM session_requests WHERE token = ?"
                                      " ORDER BY id"),
                       { ctx.token }));
    run(ctx.db, QStringLiteral("DELETE FROM session_requests WHERE token = ?"), { ctx.token });
}

// CFLASTUPDATE: docId = the current marker, dataList = [time of the last change]
void lastUpdate(Context &ctx)
{
    ctx.setDocId(currentMarker(ctx.db));
    ctx.setList({ lastChangeTime(ctx.db) });
}

// CFSETLASTMODIFIED: the host changed something; the change counter moves on.
void setLastModified(Context &) { }

} // namespace

void checkNewPassword(const EngineOptions &options, const QString &password)
{
    if (password.size() < options.minPasswordLength)
        fail(QStringLiteral("a password needs at least %1 characters")
                 .arg(options.minPasswordLength));
    if (password.size() > 1024)
        fail(QStringLiteral("a password may have at most 1024 characters"));
}

void createFirstAdministrator(const QSqlDatabase &db, const EngineOptions &options,
                              const QString &user, const QString &password, const QString &fullName)
{
    if (exists(db, QStringLiteral("SELECT 1 FROM users")))
        fail(QStringLiteral("the database already has users"));
    checkName(user, QStringLiteral("the user name"));
    requireFreePrincipalName(db, user);
    checkNewPassword(options, password);
    run(db,
        QStringLiteral("INSERT INTO users(login, full_name, password_hash, created)"
                       " VALUES (?, ?, ?, ?)"),
        { user, fullName, hashPassword(password, options.pbkdf2Iterations), nowText() });
    run(db,
        QStringLiteral("INSERT INTO user_roles(user_id, role_id) SELECT u.id, r.id"
                       " FROM users u, roles r WHERE u.login = ? AND r.administrator = 1"),
        { user });
    requireAnAdministrator(db);
}

QVector<CommandEntry> sessionCommands()
{
    return {
        { words::login, login, Public },
        { words::closeSession, closeSession, ExpiredSessionAllowed },
        { words::changeExpiredPass, changeExpiredPassword, ExpiredSessionAllowed | Writes },
        { words::changeUserPass, changeOwnPassword, Writes },
        { words::changeUserPassAdmin, setPasswordAsAdministrator, Administrative | Writes },
        { words::getUsers, getUsers, Administrative | ReadOnly },
        { words::setUsers, createUsers, Administrative | Writes },
        { words::updateUsers, updateUsers, Administrative | Writes },
        { words::delUsers, deleteUsers, Administrative | Writes },
        { words::getChatUsers, chatUsers, ReadOnly },
        { words::checkUpdate, pendingRequests, NeedsSession },
        { words::updateLastModified, lastUpdate, ReadOnly },
        { words::setLastModified, setLastModified, Writes },
    };
}

} // namespace nuvserver

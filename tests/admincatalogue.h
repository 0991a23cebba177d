// SPDX-License-Identifier: Apache-2.0
#ifndef ADMINCATALOGUE_H
#define ADMINCATALOGUE_H

/*
 * Every server, session, administration, user, role and rights operation as
 * data: the arguments it is called with, the request it must send, how its
 * reply is judged, whether it takes the client's lock, and what it gives back
 * after richReply() with a passing and with a failing status word.
 *
 * Out-parameters start with the caller's own values ("caller", "mine", ...)
 * that the reply never carries, so "left untouched" is visible.
 */

#include "commandkit.h"

namespace commandkit {

// An operation that fills a caller's string list, which starts as {"caller"}.
template<typename F> Call fillingList(F call)
{
    return [call](ClassifyInterface *c) {
        QStringList list { "caller" };
        const bool ok = call(c, list);
        return Outcome { ok, list };
    };
}

using PassThrough = bool (ClassifyInterface::*)(const QString &, const QList<QByteArray> &,
                                                QList<QByteArray> &, QList<QString> &, QString &);

// A pass-through call whose out-parameters start with the caller's values.
inline Call passingThrough(PassThrough op, const QList<QByteArray> &arguments)
{
    return [op, arguments](ClassifyInterface *c) {
        QList<QByteArray> answerData { "mine" };
        QList<QString> answerStrings { "mine" };
        QString errorText = "stale";
        const bool ok = (c->*op)("inner", arguments, answerData, answerStrings, errorText);
        return Outcome { ok, bytes(answerData), QStringList(answerStrings), errorText };
    };
}

// The serverRequest signals that checkUpdate emits, in order.
inline Outcome checkUpdateRequests(ClassifyInterface *c)
{
    QSignalSpy spy(c, SIGNAL(serverRequest(QString)));
    c->checkUpdate();
    QStringList requests;
    for (const QList<QVariant> &arguments : qAsConst(spy))
        requests << arguments.at(0).toString();
    return Outcome { requests };
}

// Not in ClassifyInterface: reached through the meta-object.
inline bool setRoleRoles(ClassifyInterface *c, const QString &role, const QStringList &roles)
{
    bool ok = false;
    if (!QMetaObject::invokeMethod(c, "setRoleRoles", Qt::DirectConnection, Q_RETURN_ARG(bool, ok),
                                   Q_ARG(QString, role), Q_ARG(QStringList, roles)))
        qFatal("setRoleRoles is not invokable");
    return ok;
}

inline QList<Operation> adminOperations()
{
    using C = ClassifyInterface *;
    const QStringList replyList = richList();
    const QVariant replyBytes = bytes({ "b1", "b2" });
    // A result that is only success or failure.
    const Outcome yes { true }, no { false };
    // A list result: the reply's list, or an empty one.
    const Outcome replyListOnly { replyList }, emptyList { QStringList() };
    // A list argument filled from the reply, or left as the caller had it.
    const Outcome filled { true, replyList }, untouched { false, QStringList { "caller" } };
    // A pass-through call that got no reply: empty lists and the transport's text.
    const Outcome unansweredPassThrough { false, bytes({}), QStringList(), transportErrorText };

    return {
        // Server information and index
        operation("getServerVersion", returning([](C c) { return c->getServerVersion(); }))
            .sends("CFSERVERVERSION")
            .unlocked()
            .gives({ QString("41") }, { QString("") }),
        operation("getIndexerInfos",
                  fillingList([](C c, QStringList &l) { return c->getIndexerInfos(l); }))
            .sends("CFGETINDEXINFOS")
            .gives(filled, untouched),
        operation("getScanInputProcessImage",
                  returning([](C c) { return c->getScanInputProcessImage("scanner 1"); }))
            .sends("CFGETSCANINPUTIMAGE", "scanner 1")
            .unlocked()
            .gives({ replyBytes }, { bytes({}) }),
        operation("getScanInputProcessList",
                  returning([](C c) { return c->getScanInputProcessList(); }))
            .sends("CFGETSCANINPUTLIST")
            .unlocked()
            .gives(replyListOnly, emptyList),
        operation("getMinMaxDate", returning([](C c) { return c->getMinMaxDate(); }))
            .sends("CFMINMAXDATE")
            .gives(replyListOnly, emptyList),
        operation("recreateIndex", returning([](C c) { return c->recreateIndex(); }))
            .sends("CFRECREATEINDEX")
            .gives(yes, no),
        operation("getChatUsers", returning([](C c) { return c->getChatUsers(); }))
            .sends("CFCHATUSERS")
            .gives(replyListOnly, emptyList),

        // Session and maintenance
        operation("updateLastModified", returningNothing([](C c) { c->updateLastModified(); }))
            .sends("CFLASTUPDATE")
            .unlocked()
            .judgedBy(Form::Untested)
            .keepingLastError()
            .gives({}, {}),
        operation("setLastModified", returningNothing([](C c) { c->setLastModified(); }))
            .sends("CFSETLASTMODIFIED")
            .unlocked()
            .judgedBy(Form::Untested)
            .keepingLastError()
            .gives({}, {}),
        operation("closeSession", returning([](C c) { return c->closeSession(); }))
            .sends("CFCLOSESESSION")
            .unlocked()
            .judgedBy(Form::OkEquals)
            .gives(yes, no),
        operation("testMail", returning([](C c) { return c->testMail("admin@example.org"); }))
            .sends("CFTESTMAIL", "admin@example.org")
            .gives(yes, no),
        operation("doBackup", returning([](C c) { return c->doBackup(); }))
            .sends("CFDOBACKUP")
            .gives(yes, no),
        operation("updateBackupConfig", returning([](C c) { return c->updateBackupConfig(); }))
            .sends("CFBACKUPUPDATE")
            .gives(yes, no),
        operation("checkFS", returning([](C c) { return c->checkFS("/srv/archive"); }))
            .sends("CFFSCHECK", "/srv/archive")
            .gives(yes, no),
        operation("loadRemoteFS",
                  fillingList([](C c, QStringList &l) { return c->loadRemoteFS("/srv", l); }))
            .sends("CFFSLIST", "/srv")
            .gives({ true, QStringList { "caller" } + replyList }, untouched),
        operation("checkUpdate", checkUpdateRequests)
            .sends("CFUPDATES")
            .gives(replyListOnly, emptyList),

        // Pass-through commands: the answer arrives in both outcomes, and
        // its error text goes to the caller only.
        operation("doLdapCommand",
                  passingThrough(&ClassifyInterface::doLdapCommand, { "a1", "a2" }))
            .sends("CFLDAPCOMMAND", "inner", {}, { "a1", "a2" })
            .unlocked()
            .keepingLastError()
            .gives({ true, replyBytes, replyList, QString("") },
                   { false, replyBytes, replyList, serverErrorText })
            .givesWithoutReply(unansweredPassThrough),
        operation("doWebCommand", passingThrough(&ClassifyInterface::doWebCommand, { "a1", "a2" }))
            .sends("CFWEBCOMMAND", "inner", {}, { "a1", "a2" })
            .withTimeout(180)
            .keepingLastError()
            .gives({ true, replyBytes, replyList, QString("") },
                   { false, replyBytes, replyList, serverErrorText })
            .givesWithoutReply(unansweredPassThrough),

        // User data store: byte arrays travel as [fourth argument, third].
        operation("saveUserData",
                  returning([](C c) { return c->saveUserData("k1", "k2", "A", "B", true); }))
            .sends("CFSAVEUSERDATA", "1", { "k1", "k2" }, { "B", "A" })
            .gives(yes, no),
        operation("loadUserData(one item)",
                  [](C c) {
                      QByteArray first = "F", second = "S";
                      const bool ok = c->loadUserData("k1", "k2", first, second);
                      return Outcome { ok, first, second };
                  })
            .sends("CFLOADUSERDATA", QString(), { "k1", "k2" }, { "S" })
            .gives({ true, QByteArray("b2"), QByteArray("b1") },
                   { false, QByteArray("F"), QByteArray("S") }),
        operation("loadUserData(all items)",
                  [](C c) {
                      QList<QString> names { "n0" };
                      QList<QByteArray> firsts { "F" }, seconds { "S1", "S2" };
                      const bool ok = c->loadUserData("k", names, firsts, seconds);
                      return Outcome { ok, QStringList(names), bytes(firsts), bytes(seconds) };
                  })
            .sends("CFLOADUSERDATA", QString(), { "k" }, { "S1", "S2" })
            .gives({ true, QStringList { "n0", richRecord() }, bytes({ "b2" }), bytes({ "b1" }) },
                   { false, QStringList { "n0" }, bytes({ "F" }), bytes({ "S1", "S2" }) }),
        operation("deleteUserData", returning([](C c) { return c->deleteUserData("k1", "k2"); }))
            .sends("CFDELUSERDATA", QString(), { "k1", "k2" })
            .gives(yes, no),

        // Users and passwords
        operation("setUsers", returning([](C c) {
                      return c->setUsers({ "u1", "u2" });
                  }))
            .sends("CFDOCSETUSERS", "0", { "u1", "u2" })
            .gives(yes, no),
        operation("getUsers", fillingList([](C c, QStringList &l) { return c->getUsers(l); }))
            .sends("CFDOCGETUSERS", "0", { "caller" })
            .gives(filled, untouched),
        operation("delUsers", returning([](C c) {
                      return c->delUsers({ "u1", "u2" }, "ctx");
                  }))
            .sends("CFDOCDELETEUSERS", "ctx", { "u1", "u2" })
            .gives(yes, no),
        operation("updateUsers", returning([](C c) { return c->updateUsers({ "u1" }); }))
            .sends("CFDOCUPDATEUSERS", QString(), { "u1" })
            .gives(yes, no),
        operation("changeUserPassAdmin",
                  returning([](C c) { return c->changeUserPassAdmin("u1", "new"); }))
            .sends("CFDOCCHANGEUSERPASSADMIN", "u1", { "new" })
            .gives(yes, no),
        operation("changeUserPass", returning([](C c) { return c->changeUserPass("old", "new"); }))
            .sends("CFDOCCHANGEUSERPASS", QString(), { "old", "new" })
            .gives(yes, no),
        operation("changeExpiredPass",
                  returning([](C c) { return c->changeExpiredPass("u1", "old", "new", "x", 5); }))
            .sends("CFDOCCHANGEEXPIREDPASS", "u1", { "old", "new" })
            .unlocked()
            .judgedBy(Form::ErrorContained)
            .gives(yes, no),

        // Roles
        operation("getRoles()", returning([](C c) { return c->getRoles(); }))
            .sends("CFROLES")
            .gives(replyListOnly, emptyList),
        operation("getRoles(QString)", returning([](C c) { return c->getRoles("r1"); }))
            .sends("CFPARENTROLES", QString(), { "r1" })
            .gives(replyListOnly, emptyList),
        operation("getRoleList", returning([](C c) { return c->getRoleList(); }))
            .sends("CFSENDROLESINFO")
            .unlocked()
            .gives(replyListOnly, emptyList),
        operation("getUserRoles(QString)", returning([](C c) { return c->getUserRoles("u1"); }))
            .sends("CFDOCGETUSERROLES", "u1")
            .gives(replyListOnly, emptyList),
        operation("getRoleRoles", returning([](C c) { return c->getRoleRoles("r1"); }))
            .sends("CFGETROLESBYROLE", "r1")
            .gives(replyListOnly, emptyList),
        operation("getRoleUsers", returning([](C c) { return c->getRoleUsers("r1"); }))
            .sends("CFDOCGETROLEUSERS", "r1")
            .gives(replyListOnly, emptyList),
        operation("getUserRole",
                  [](C c) {
                      QString role = "mine";
                      const bool ok = c->getUserRole(role);
                      return Outcome { ok, role };
                  })
            .sends("CFSENDUSERPRIVATEROLE")
            .unlocked()
            .gives({ true, richRecord() }, { false, QString("mine") }),
        operation("setRoles", returning([](C c) {
                      return c->setRoles({ "r1", "r2" });
                  }))
            .sends("CFDOCSETROLES", QString(), { "r1", "r2" })
            .gives(yes, no),
        operation("setUserRoles", returning([](C c) { return c->setUserRoles("u1", { "r1" }); }))
            .sends("CFDOCSETUSERROLES", "u1", { "r1" })
            .gives(yes, no),
        operation("setRoleUsers", returning([](C c) { return c->setRoleUsers("r1", { "u1" }); }))
            .sends("CFDOCSETROLEUSERS", "r1", { "u1" })
            .gives(yes, no),
        operation("setRoleRoles", returning([](C c) { return setRoleRoles(c, "r1", { "r2" }); }))
            .sends("CFDOCSETROLEUSERS", "r1", { "r2" })
            .gives(yes, no),
        operation("deleteRoles", returning([](C c) { return c->deleteRoles({ "r1" }); }))
            .sends("CFDELETEROLES", QString(), { "r1" })
            .gives(yes, no),

        // Rights on documents and folders
        operation("getDocUsersAndRoles",
                  fillingList([](C c, QStringList &l) { return c->getDocUsersAndRoles("d1", l); }))
            .sends("CFGETDOCUSERS", "d1")
            .gives(filled, untouched),
        operation("setDocUsersAndRoles", returning([](C c) {
                      return c->setDocUsersAndRoles("d1", "head", { "e1", "e2" });
                  }))
            .sends("CFSETDOCUSERS", "d1", { "head", "e1", "e2" })
            .gives(yes, no),
        operation("getFolderRoles", returning([](C c) { return c->getFolderRoles("f1"); }))
            .sends("CFGETFOLDROLE", QString(), { "f1" })
            .gives(replyListOnly, emptyList),
        operation("setFolderRoles",
                  returning([](C c) { return c->setFolderRoles("f1", { "r1" }); }))
            .sends("CFSETFOLDROLE", "f1", { "r1" })
            .gives(yes, no),
        operation("saveTempDocRollen",
                  returning([](C c) { return c->saveTempDocRollen("d1", { "e1" }); }))
            .sends("CFDOCTEMPUSERS", "d1", { "e1" })
            .gives(yes, no),
    };
}

inline Operation adminOperation(const QString &name)
{
    for (const Operation &op : adminOperations()) {
        if (op.name == name)
            return op;
    }
    qFatal("no operation %s in the catalogue", qPrintable(name));
}

// The catalogue's call of an operation, with its arguments and the caller's
// out-parameter values, for rows that vary only the reply.
inline Call catalogueCall(const char *name)
{
    return adminOperation(QString::fromLatin1(name)).call;
}

} // namespace commandkit

#endif // ADMINCATALOGUE_H

// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_CONTEXT_H
#define NUVSERVER_CONTEXT_H

#include "fieldvalues.h"
#include "nuvmqclassifymessage.h"
#include "requestcounters.h"
#include "serverengine.h"
#include "sql.h"

#include <QSet>
#include <QSqlDatabase>
#include <QVector>

#include <optional>

/*
 * What a command handler works with: the request, the reply it fills, the
 * database inside the request's transaction, the caller's session, and the
 * shared checks (administrator, rights, archive) that several groups need.
 */
namespace nuvserver {

struct LoginSession
{
    QString token;
    qint64 userId = 0;
    QString login;
    QString state; // "active", or "expired" while a password change is due
    qint64 archiveId = 0; // selected with "CFSELARCHIVE"; 0 = none
    QString lastSeen; // "yyyy-MM-dd hh:mm:ss" UTC; kept up only with a session timeout
    QString connection; // the broker connection it is bound to; empty = in-process
};

enum class Access { Read, Write };

class Context
{
public:
    Context(const nuvMQClassifyMessage &request, QSqlDatabase db, const EngineOptions &options,
            const RequestCounters &counters);

    const nuvMQClassifyMessage &request;
    nuvMQClassifyMessage reply;
    QSqlDatabase db;
    const EngineOptions &options;
    const RequestCounters &counters; // what the request's statements did so far
    const QString requestArchive; // the request's current archive
    const QStringList requestPlugins; // the request's availablePlugins list
    QString token; // the caller's session token
    QString connection; // the caller's broker connection (see Origin)
    std::optional<LoginSession> session;

    // Request fields. The `what` texts name the field in error messages.
    QString docId() const { return request.getDocId(); }
    QString requireDocId(const QString &what) const;
    qint64 docIdNumber(const QString &what) const;
    QStringList list() const { return request.getDataList(); }
    QString item(int index) const { return request.getDataList().value(index); }
    QString requireItem(int index, const QString &what) const;
    void requireItems(int count, const QString &what) const;

    // Reply fields; the status word is "OK" unless a handler fails.
    void setDocId(const QString &id) { reply.setDocId(id); }
    void setList(const QStringList &list) { reply.setDataList(list); }
    void setData(const QList<QByteArray> &data) { reply.setData(data); }

    // The caller.
    const LoginSession &user() const { return *session; }
    QString login() const { return session ? session->login : QString(); }
    // The caller's login, the roles it holds (directly or through other
    // roles) and whether one of them is an administrator role.
    QStringList principals();
    QStringList roles();
    bool isAdmin();
    void requireAdmin();

    // The archive the request addresses: the request's current archive when
    // it names one, else the session's selection, else the first archive.
    qint64 archive();
    qint64 archiveByName(const QString &nameOrNumber);

    // Folders the caller may not see (restricted by folder roles, or below
    // such a folder).
    const QSet<QString> &hiddenFolders();
    bool folderVisible(const QString &key) { return !hiddenFolders().contains(key); }
    // An SQL condition on the documents row `alias` that holds when the
    // caller may read (or write) the document; appends its bound values.
    QString documentAccess(const QString &alias, Access access, QVariantList &values);
    // Fails unless the document exists and the caller has the access;
    // whether it is in the trash.
    bool requireDocument(qint64 id, Access access);
    // Answers the records that `sql` (one placeholder, the document) selects
    // for the document named in `docId`, which the caller must be allowed to
    // read: the shape of every per-document list.
    void listDocumentRows(const QString &sql);

    // Appends `request` to the pending requests of every other session
    // ("CFUPDATES" returns them); with `userId` only to that user's.
    void notifyOthers(const QString &request, qint64 userId = 0);

private:
    void loadRoles();
    std::optional<QStringList> roleCache;
    bool adminCache = false;
    std::optional<QSet<QString>> hiddenCache;
    std::optional<qint64> archiveCache;
};

using Handler = void (*)(Context &);

enum CommandFlag : unsigned {
    NeedsSession = 0,
    Public = 1, // no login needed
    Administrative = 2, // only for administrators
    Writes = 4, // a success bumps the change counter
    OutsideTransaction = 8, // runs after the session check, not inside one transaction
    ExpiredSessionAllowed = 16, // runs while the session waits for a password change
    // dataList is a list of ids, deduplicated and bounded by maxIds, rather
    // than records each worked on (bounded by maxRecords)
    IdList = 32,
    // Changes nothing, not even the caller's session (needs a session like
    // NeedsSession): runs in a read snapshot beside the writers, without the
    // write lock, and is never recorded for redelivery. A command that
    // writes and is marked so fails on PostgreSQL (the snapshot is read
    // only); unmarked commands take the write path, the safe default.
    ReadOnly = 64,
    // Works on the whole database: on PostgreSQL it holds the write lock
    // from its start, so that no other write commits while it runs (run
    // optimistically beside them, it would lose to nearly every one).
    WholeDatabase = 128,
};

// The words of the command tables and of the notices handlers leave.
namespace words = nuvprotocol::words;
namespace notice = nuvprotocol::notice;

struct CommandEntry
{
    const char *word;
    Handler handler;
    unsigned flags;
};

// One table per command group; the engine dispatches on all of them.
QVector<CommandEntry> sessionCommands();
QVector<CommandEntry> roleCommands();
QVector<CommandEntry> documentCommands();
QVector<CommandEntry> temporaryCommands();
QVector<CommandEntry> archiveCommands();
QVector<CommandEntry> typeCommands();
QVector<CommandEntry> clipboardCommands();
QVector<CommandEntry> maintenanceCommands();
QVector<CommandEntry> userDataCommands();

// Shared between groups.
// The effective roles (names) of a user, through role membership.
QStringList effectiveRoles(const QSqlDatabase &db, qint64 userId, bool *administrator = nullptr);
// Fails when no active user holds an administrator role any more.
void requireAnAdministrator(const QSqlDatabase &db);
// Writes a history row of a document.
void addHistory(Context &ctx, qint64 docId, const QString &action, const QString &details);
// Replaces the words of one document in the search index.
void indexDocument(const QSqlDatabase &db, qint64 docId);
// Creates the first administrator; fails when any user exists.
void createFirstAdministrator(const QSqlDatabase &db, const EngineOptions &options,
                              const QString &user, const QString &password,
                              const QString &fullName);
// Fails unless the password is acceptable as a new one.
void checkNewPassword(const EngineOptions &options, const QString &password);
// Removes every right and restriction that names a deleted user or role.
void forgetPrincipal(const QSqlDatabase &db, const QString &name);
// Fails unless `name`, as it stands, is the name of a user or a role.
void requirePrincipal(const QSqlDatabase &db, const QString &name);
// Rights entries "principal␟rights" (rights: letters r and w, default rw);
// every principal must be a user or a role.
QVector<QPair<QString, QString>> parseRights(const QSqlDatabase &db, const QStringList &entries);

} // namespace nuvserver

#endif // NUVSERVER_CONTEXT_H

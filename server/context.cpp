// SPDX-License-Identifier: Apache-2.0
#include "context.h"

#include <QHash>
#include <QRegularExpression>
#include <QSqlQuery>

namespace nuvserver {

namespace {
QString archiveOf(const nuvMQClassifyMessage &request)
{
    nuvMQClassifyMessage copy(request);
    return copy.getCurrentArchive();
}

QStringList pluginsOf(const nuvMQClassifyMessage &request)
{
    nuvMQClassifyMessage copy(request);
    return copy.getAvailablePlugins();
}
} // namespace

Context::Context(const nuvMQClassifyMessage &request, QSqlDatabase db, const EngineOptions &options,
                 const RequestCounters &counters)
    : request(request)
    , db(std::move(db))
    , options(options)
    , counters(counters)
    , requestArchive(archiveOf(request))
    , requestPlugins(pluginsOf(request))
{
    reply.command = QLatin1String(nuvprotocol::status::ok);
}

QString Context::requireDocId(const QString &what) const
{
    const QString id = docId();
    if (id.isEmpty())
        fail(what + QStringLiteral(" (docId) is missing"));
    return id;
}

qint64 Context::docIdNumber(const QString &what) const
{
    return toNumber(requireDocId(what), what);
}

QString Context::requireItem(int index, const QString &what) const
{
    if (request.getDataList().size() <= index)
        fail(QStringLiteral("%1 (dataList entry %2) is missing").arg(what).arg(index));
    return request.getDataList().at(index);
}

void Context::requireItems(int count, const QString &what) const
{
    if (request.getDataList().size() < count)
        fail(QStringLiteral("dataList must hold %1 (%2 entries), it holds %3")
                 .arg(what)
                 .arg(count)
                 .arg(request.getDataList().size()));
}

QStringList effectiveRoles(const QSqlDatabase &db, qint64 userId, bool *administrator)
{
    QSqlQuery query = run(db,
                          QStringLiteral("WITH RECURSIVE held(id) AS ("
                                         " SELECT role_id FROM user_roles WHERE user_id = ?"
                                         " UNION SELECT rm.role_id FROM role_members rm"
                                         " JOIN held ON rm.member_role_id = held.id)"
                                         " SELECT name, administrator FROM roles"
                                         " WHERE id IN (SELECT id FROM held) ORDER BY name"),
                          { userId });
    QStringList names;
    bool admin = false;
    while (query.next()) {
        names.append(query.value(0).toString());
        admin = admin || query.value(1).toInt() != 0;
    }
    if (administrator)
        *administrator = admin;
    return names;
}

void requireAnAdministrator(const QSqlDatabase &db)
{
    if (!exists(
            db,
            QStringLiteral("WITH RECURSIVE held(role_id) AS ("
                           " SELECT ur.role_id FROM user_roles ur JOIN users u ON u.id = ur.user_id"
                           " WHERE u.active = 1"
                           " UNION SELECT rm.role_id FROM role_members rm"
                           " JOIN held ON rm.member_role_id = held.role_id)"
                           " SELECT 1 FROM held JOIN roles r ON r.id = held.role_id"
                           " WHERE r.administrator = 1 LIMIT 1")))
        fail(QStringLiteral("the change would leave no active administrator"));
}

void Context::loadRoles()
{
    if (roleCache)
        return;
    roleCache = session ? effectiveRoles(db, session->userId, &adminCache) : QStringList();
}

QStringList Context::roles()
{
    loadRoles();
    return *roleCache;
}

QStringList Context::principals()
{
    return QStringList { login() } + roles();
}

bool Context::isAdmin()
{
    loadRoles();
    return adminCache;
}

void Context::requireAdmin()
{
    if (!isAdmin())
        fail(QStringLiteral("only an administrator may do this; %1 is none").arg(login()));
}

qint64 Context::archiveByName(const QString &nameOrNumber)
{
    QVariant id
        = scalar(db, QStringLiteral("SELECT id FROM archives WHERE name = ?"), { nameOrNumber });
    if (!id.isValid()) {
        bool isNumber = false;
        const qint64 number = nameOrNumber.toLongLong(&isNumber);
        if (isNumber)
            id = scalar(db, QStringLiteral("SELECT id FROM archives WHERE id = ?"), { number });
    }
    if (!id.isValid())
        fail(QStringLiteral("there is no archive '%1'").arg(nameOrNumber));
    return id.toLongLong();
}

qint64 Context::archive()
{
    if (!archiveCache) {
        if (!requestArchive.isEmpty())
            archiveCache = archiveByName(requestArchive);
        else if (session && session->archiveId > 0)
            archiveCache = session->archiveId;
        else
            archiveCache = scalar(db, QStringLiteral("SELECT min(id) FROM archives")).toLongLong();
    }
    return *archiveCache;
}

const QSet<QString> &Context::hiddenFolders()
{
    if (hiddenCache)
        return *hiddenCache;
    hiddenCache.emplace();
    if (isAdmin())
        return *hiddenCache;

    QHash<QString, QString> parentOf;
    QSqlQuery folders = run(db, QStringLiteral("SELECT key, parent_key FROM folders"));
    while (folders.next())
        parentOf.insert(folders.value(0).toString(), folders.value(1).toString());

    QHash<QString, QSet<QString>> rolesOf;
    QSqlQuery restrictions
        = run(db, QStringLiteral("SELECT folder_key, principal FROM folder_roles"));
    while (restrictions.next())
        rolesOf[restrictions.value(0).toString()].insert(restrictions.value(1).toString());

    const QStringList mine = principals();
    const QSet<QString> held(mine.begin(), mine.end());
    QSet<QString> refused;
    for (auto it = rolesOf.cbegin(); it != rolesOf.cend(); ++it) {
        if (!it.value().intersects(held))
            refused.insert(it.key());
    }
    if (refused.isEmpty())
        return *hiddenCache;
    for (auto it = parentOf.cbegin(); it != parentOf.cend(); ++it) {
        // Walk up; the depth bound keeps a damaged cycle from looping.
        QString key = it.key();
        for (int depth = 0; !key.isEmpty() && depth <= parentOf.size(); ++depth) {
            if (refused.contains(key)) {
                hiddenCache->insert(it.key());
                break;
            }
            key = parentOf.value(key);
        }
    }
    return *hiddenCache;
}

QString Context::documentAccess(const QString &alias, Access access, QVariantList &values)
{
    if (isAdmin())
        return QStringLiteral("1 = 1");
    const QString letter = access == Access::Write ? QStringLiteral("%w%") : QStringLiteral("%r%");
    QString sql = QStringLiteral("(%1.created_by = ? OR ((NOT EXISTS (SELECT 1 FROM doc_rights dr"
                                 " WHERE dr.doc_id = %1.id) OR EXISTS (SELECT 1 FROM doc_rights dr"
                                 " WHERE dr.doc_id = %1.id AND dr.rights LIKE ?"
                                 " AND ")
                      .arg(alias);
    values << login() << letter;
    sql += inList(QStringLiteral("dr.principal"), principals(), values) + QStringLiteral("))");
    const QSet<QString> &hidden = hiddenFolders();
    if (!hidden.isEmpty()) {
        sql += QStringLiteral(" AND (%1.folder_key IS NULL OR ").arg(alias);
        sql += notInList(alias + QStringLiteral(".folder_key"),
                         QStringList(hidden.begin(), hidden.end()), values)
            + QLatin1Char(')');
    }
    return sql + QStringLiteral("))");
}

void Context::listDocumentRows(const QString &sql)
{
    const qint64 id = docIdNumber(QStringLiteral("the document"));
    requireDocument(id, Access::Read);
    setList(queryRecords(db, sql, { id }));
}

void Context::requireDocument(qint64 id, Access access)
{
    // One statement for both questions: commands ask this for every
    // document they name, and on PostgreSQL each statement is a round trip.
    QVariantList values;
    const QString condition = documentAccess(QStringLiteral("d"), access, values);
    values.append(id);
    const QVariant allowed = scalar(db,
                                    QStringLiteral("SELECT CASE WHEN ") + condition
                                        + QStringLiteral(" THEN 1 ELSE 0 END FROM documents d"
                                                         " WHERE d.id = ?"),
                                    values);
    if (!allowed.isValid())
        fail(QStringLiteral("document %1 does not exist").arg(id));
    if (allowed.toInt() != 1)
        fail(QStringLiteral("%1 may not %2 document %3")
                 .arg(login(),
                      access == Access::Write ? QStringLiteral("change") : QStringLiteral("read"))
                 .arg(id));
}

void Context::notifyOthers(const QString &request, qint64 userId)
{
    QString sql = QStringLiteral("INSERT INTO session_requests(token, request)"
                                 " SELECT s.token, ? FROM sessions s WHERE s.token <> ?"
                                 " AND s.state = 'active' AND NOT EXISTS (SELECT 1 FROM"
                                 " session_requests q WHERE q.token = s.token AND q.request = ?)");
    QVariantList values { request, session ? session->token : QString(), request };
    if (userId > 0) {
        sql += QStringLiteral(" AND s.user_id = ?");
        values << userId;
    }
    run(db, sql, values);
}

void addHistory(Context &ctx, qint64 docId, const QString &action, const QString &details)
{
    run(ctx.db,
        QStringLiteral("INSERT INTO doc_history(doc_id, time, \"user\", action, details)"
                       " VALUES (?, ?, ?, ?, ?)"),
        { docId, nowText(), ctx.login(), action, details });
}

void indexDocument(const QSqlDatabase &db, qint64 docId)
{
    run(db, QStringLiteral("DELETE FROM search_index WHERE doc_id = ?"), { docId });
    QStringList texts = column(db,
                               QStringLiteral("SELECT title || ' ' || remark || ' ' ||"
                                              " coalesce(doc_type, '') || ' ' ||"
                                              " coalesce(status, '') FROM documents WHERE id = ?"),
                               { docId });
    texts += column(db, QStringLiteral("SELECT value FROM doc_values WHERE doc_id = ?"), { docId });
    static const QRegularExpression nonWord(QStringLiteral("[^\\w]+"),
                                            QRegularExpression::UseUnicodePropertiesOption);
    QSet<QString> words;
    for (const QString &text : qAsConst(texts)) {
        const QStringList parts = text.toLower().split(nonWord, Qt::SkipEmptyParts);
        for (const QString &part : parts) {
            if (part.size() >= 2)
                words.insert(part);
        }
    }
    // Many rows per statement: a round trip each on PostgreSQL, and far
    // below SQLite's limit of bound values per statement.
    constexpr int rowsPerStatement = 200;
    const QStringList all(words.begin(), words.end());
    for (int first = 0; first < all.size(); first += rowsPerStatement) {
        const QStringList some = all.mid(first, rowsPerStatement);
        QVariantList values;
        QStringList rows;
        for (const QString &word : some) {
            values << word << docId;
            rows << QStringLiteral("(?, ?)");
        }
        run(db,
            QStringLiteral("INSERT INTO search_index(word, doc_id) VALUES ")
                + rows.join(QStringLiteral(", ")),
            values);
    }
}

} // namespace nuvserver

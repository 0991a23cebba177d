// SPDX-License-Identifier: Apache-2.0
// The per-user data store: items addressed by two keys, each holding two
// byte arrays; a public item can be loaded by every user.

#include "context.h"

#include <QSqlQuery>

namespace nuvserver {

namespace {

// CFSAVEUSERDATA: docId public flag, [key1, key2], data [second, first]
void saveUserData(Context &ctx)
{
    const QString key1 = ctx.requireItem(0, QStringLiteral("the first key"));
    const QString key2 = ctx.requireItem(1, QStringLiteral("the second key"));
    if (key1.isEmpty() || key2.isEmpty())
        fail(QStringLiteral("both keys must be given"));
    const QList<QByteArray> data = ctx.request.getData();
    if (data.size() != 2)
        fail(QStringLiteral("data must hold two byte arrays, it holds %1").arg(data.size()));
    run(ctx.db,
        QStringLiteral(
            "INSERT INTO user_data(owner_id, key1, key2, first, second, public)"
            " VALUES (?, ?, ?, ?, ?, ?) ON CONFLICT(owner_id, key1, key2) DO UPDATE"
            " SET first = excluded.first, second = excluded.second, public = excluded.public"),
        { ctx.user().userId, key1, key2, data.at(1), data.at(0),
          toFlag(ctx.docId(), QStringLiteral("the public flag (docId)")) ? 1 : 0 });
}

// CFLOADUSERDATA: [key1, key2] -> data [second, first] of the caller's item,
// else of a public one; [key1] -> dataList the second keys, data the pairs,
// the caller's items first, then public items of others it has none of.
void loadUserData(Context &ctx)
{
    const QString key1 = ctx.requireItem(0, QStringLiteral("the first key"));
    const QString select = QStringLiteral("SELECT key2, second, first FROM user_data WHERE key1 = ?"
                                          " AND (owner_id = ? OR public = 1)");
    if (ctx.list().size() >= 2) {
        QSqlQuery query = run(ctx.db,
                              select
                                  + QStringLiteral(" AND key2 = ? ORDER BY owner_id <> ?, owner_id"
                                                   " LIMIT 1"),
                              { key1, ctx.user().userId, ctx.item(1), ctx.user().userId });
        if (!query.next())
            fail(QStringLiteral("there is no user data '%1' / '%2'")
                     .arg(echoed(key1), echoed(ctx.item(1))));
        ctx.setData({ query.value(1).toByteArray(), query.value(2).toByteArray() });
        return;
    }
    QSqlQuery query
        = run(ctx.db, select + QStringLiteral(" ORDER BY owner_id <> ?, key2, owner_id"),
              { key1, ctx.user().userId, ctx.user().userId });
    QStringList names;
    QList<QByteArray> data;
    while (query.next()) {
        const QString name = query.value(0).toString();
        if (names.contains(name))
            continue;
        names.append(name);
        data << query.value(1).toByteArray() << query.value(2).toByteArray();
    }
    ctx.setList(names);
    ctx.setData(data);
}

// CFDELUSERDATA: [key1, key2] of the caller's own items
void deleteUserData(Context &ctx)
{
    const QString key1 = ctx.requireItem(0, QStringLiteral("the first key"));
    const QString key2 = ctx.requireItem(1, QStringLiteral("the second key"));
    if (!exists(
            ctx.db,
            QStringLiteral("SELECT 1 FROM user_data WHERE owner_id = ? AND key1 = ? AND key2 = ?"),
            { ctx.user().userId, key1, key2 }))
        fail(QStringLiteral("there is no user data '%1' / '%2'").arg(key1, key2));
    run(ctx.db,
        QStringLiteral("DELETE FROM user_data WHERE owner_id = ? AND key1 = ? AND key2 = ?"),
        { ctx.user().userId, key1, key2 });
}

} // namespace

QVector<CommandEntry> userDataCommands()
{
    return {
        { words::saveUserData, saveUserData, Writes },
        { words::loadUserData, loadUserData, NeedsSession },
        { words::deleteUserData, deleteUserData, Writes },
    };
}

} // namespace nuvserver

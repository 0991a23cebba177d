// SPDX-License-Identifier: Apache-2.0
// Archives and tenants, folder structures, system folders.

#include "context.h"

#include <QHash>
#include <QSqlQuery>

namespace nuvserver {

namespace {

// Folders of the structure "" are the system folders.
const QString systemStructure;

// CFDOCGETARCHIVES: the archive names
void archives(Context &ctx)
{
    ctx.setList(column(ctx.db, QStringLiteral("SELECT name FROM archives ORDER BY id")));
}

// CFSELARCHIVE: docId archive name or number
void selectArchive(Context &ctx)
{
    const qint64 id = ctx.archiveByName(ctx.requireDocId(QStringLiteral("the archive")));
    run(ctx.db, QStringLiteral("UPDATE sessions SET archive_id = ? WHERE token = ?"),
        { id, ctx.token });
    ctx.setDocId(scalar(ctx.db, QStringLiteral("SELECT name FROM archives WHERE id = ?"), { id })
                     .toString());
}

// CFNEWMANDANT: [name, description], data [payload]; the tenant gets an
// archive of its own name. docId = the tenant number.
void newTenant(Context &ctx)
{
    const QString name = ctx.requireItem(0, QStringLiteral("the tenant name"));
    checkName(name, QStringLiteral("the tenant name"));
    if (exists(ctx.db,
               QStringLiteral("SELECT 1 FROM tenants WHERE name = ?"
                              " UNION SELECT 1 FROM archives WHERE name = ?"),
               { name, name }))
        fail(QStringLiteral("there is already a tenant or an archive '%1'").arg(name));
    const qint64 number
        = scalar(ctx.db, QStringLiteral("SELECT coalesce(max(number), 0) + 1 FROM tenants"))
              .toLongLong();
    const QByteArray payload = ctx.request.getData().value(0);
    run(ctx.db,
        QStringLiteral("INSERT INTO tenants(number, name, description, payload, created)"
                       " VALUES (?, ?, ?, ?, ?)"),
        { number, name, ctx.item(1), payload.isEmpty() ? QVariant() : QVariant(payload),
          nowText() });
    run(ctx.db, QStringLiteral("INSERT INTO archives(name, tenant_number) VALUES (?, ?)"),
        { name, number });
    ctx.setDocId(QString::number(number));
    ctx.notifyOthers(QLatin1String(notice::systemUpdate));
}

// CFDOCGETMANDANTEN: records name␟description␟archive␟number␟archive
// number␟created; docId = the numbers of the tenants with a payload, data =
// those payloads in the same order
void tenants(Context &ctx)
{
    QSqlQuery query
        = run(ctx.db,
              QStringLiteral("SELECT t.name, t.description, coalesce(a.name, ''),"
                             " t.number, coalesce(CAST(a.id AS TEXT), ''), t.created, t.payload"
                             " FROM tenants t LEFT JOIN archives a"
                             " ON a.tenant_number = t.number ORDER BY t.number"));
    QStringList records;
    QStringList keys;
    QList<QByteArray> payloads;
    while (query.next()) {
        QStringList fields;
        for (int i = 0; i < 6; ++i)
            fields.append(query.value(i).toString());
        records.append(joinFields(fields));
        const QByteArray payload = query.value(6).toByteArray();
        if (!payload.isEmpty()) {
            keys.append(fields.at(3));
            payloads.append(payload);
        }
    }
    ctx.setList(records);
    ctx.setDocId(joinFields(keys));
    ctx.setData(payloads);
}

// Folder records: name␟parent key␟position␟description␟structure␟key␟documents
// (the key is field 5); payloads travel in data, their keys in docId.
void replyFolders(Context &ctx, const QString &structure, bool withEmpty)
{
    QHash<QString, qint64> documents;
    QSqlQuery counts = run(ctx.db,
                           QStringLiteral("SELECT folder_key, count(*) FROM documents"
                                          " WHERE folder_key IS NOT NULL AND deleted = 0"
                                          " GROUP BY folder_key"));
    while (counts.next())
        documents.insert(counts.value(0).toString(), counts.value(1).toLongLong());

    QSqlQuery query
        = run(ctx.db,
              QStringLiteral("SELECT name, coalesce(parent_key, ''), position, description,"
                             " structure, key, payload FROM folders WHERE structure = ?"
                             " ORDER BY position, name, key"),
              { structure });
    struct Row
    {
        QStringList fields;
        QByteArray payload;
    };
    QVector<Row> rows;
    QHash<QString, QString> parentOf;
    QHash<QString, qint64> total; // documents in the folder and below it
    while (query.next()) {
        Row row;
        for (int i = 0; i < 6; ++i)
            row.fields.append(query.value(i).toString());
        row.payload = query.value(6).toByteArray();
        parentOf.insert(row.fields.at(5), row.fields.at(1));
        rows.append(row);
    }
    for (auto it = documents.cbegin(); it != documents.cend(); ++it) {
        QString key = it.key();
        for (int depth = 0; parentOf.contains(key) && depth <= parentOf.size(); ++depth) {
            total[key] += it.value();
            key = parentOf.value(key);
        }
    }
    QStringList records;
    QStringList keys;
    QList<QByteArray> payloads;
    for (Row &row : rows) {
        const QString key = row.fields.at(5);
        if (!ctx.folderVisible(key) || (!withEmpty && total.value(key) == 0))
            continue;
        row.fields.append(QString::number(documents.value(key)));
        records.append(joinFields(row.fields));
        if (!row.payload.isEmpty()) {
            keys.append(key);
            payloads.append(row.payload);
        }
    }
    ctx.setList(records);
    ctx.setDocId(joinFields(keys));
    ctx.setData(payloads);
}

// Replaces the folders of one structure with the request's records and
// payloads (paired by position).
void saveFolders(Context &ctx, const QString &structure)
{
    const QStringList records = ctx.list();
    const QList<QByteArray> payloads = ctx.request.getData();
    if (payloads.size() > records.size())
        fail(QStringLiteral("data holds %1 payloads for %2 folders")
                 .arg(payloads.size())
                 .arg(records.size()));
    QHash<QString, QString> parentOf;
    QStringList keys;
    for (const QString &record : records) {
        const QStringList fields = splitFields(record);
        const QString key = field(fields, 5);
        checkName(key, QStringLiteral("the folder key (field 5)"));
        checkName(field(fields, 0), QStringLiteral("the name of folder ") + key);
        if (parentOf.contains(key))
            fail(QStringLiteral("the folder key '%1' occurs twice").arg(key));
        const QVariant owner = scalar(
            ctx.db, QStringLiteral("SELECT structure FROM folders WHERE key = ?"), { key });
        if (owner.isValid() && owner.toString() != structure)
            fail(QStringLiteral("the folder key '%1' belongs to another structure").arg(key));
        if (!field(fields, 2).isEmpty())
            toNumber(fields.at(2), QStringLiteral("the position of folder ") + key);
        parentOf.insert(key, field(fields, 1));
        keys.append(key);
    }
    for (const QString &folder : qAsConst(keys)) {
        const QString parent = parentOf.value(folder);
        if (!parent.isEmpty() && !parentOf.contains(parent))
            fail(QStringLiteral("the parent '%1' of folder '%2' is not in the structure")
                     .arg(parent, folder));
        QString key = parent;
        for (int depth = 0; !key.isEmpty(); ++depth) {
            if (key == folder || depth > parentOf.size())
                fail(QStringLiteral("folder '%1' would lie inside itself").arg(folder));
            key = parentOf.value(key);
        }
    }
    QVariantList values { structure };
    const QString dropped = notInList(QStringLiteral("f.key"), keys, values);
    const QVariant busy = scalar(ctx.db,
                                 QStringLiteral("SELECT f.key FROM folders f JOIN documents d"
                                                " ON d.folder_key = f.key WHERE f.structure = ?"
                                                " AND ")
                                     + dropped + QStringLiteral(" LIMIT 1"),
                                 values);
    if (busy.isValid())
        fail(QStringLiteral("folder '%1' still holds documents").arg(busy.toString()));
    values = { structure };
    run(ctx.db,
        QStringLiteral("DELETE FROM folders WHERE structure = ? AND ")
            + notInList(QStringLiteral("key"), keys, values),
        values);
    for (int i = 0; i < records.size(); ++i) {
        const QStringList fields = splitFields(records.at(i));
        const QByteArray payload = payloads.value(i);
        run(ctx.db,
            QStringLiteral("INSERT INTO folders(key, structure, parent_key, name, position,"
                           " description, payload) VALUES (?, ?, ?, ?, ?, ?, ?)"
                           " ON CONFLICT(key) DO UPDATE SET parent_key = excluded.parent_key,"
                           " name = excluded.name, position = excluded.position,"
                           " description = excluded.description, payload = excluded.payload"),
            { fields.at(5), structure, fields.at(1).isEmpty() ? QVariant() : QVariant(fields.at(1)),
              fields.at(0), field(fields, 2).toLongLong(), field(fields, 3),
              payload.isEmpty() ? QVariant() : QVariant(payload) });
    }
    ctx.notifyOthers(QLatin1String(notice::foldersUpdate));
}

// CFGETMANS: docId structure key
void folderStructure(Context &ctx)
{
    replyFolders(ctx, ctx.requireDocId(QStringLiteral("the structure key")), true);
}

// CFSAVEMANS: docId structure key, dataList records, data payloads
void saveFolderStructure(Context &ctx)
{
    saveFolders(ctx, ctx.requireDocId(QStringLiteral("the structure key")));
}

// CFMAINFOLDER: docId folder -> docId the top folder above it
void mainFolder(Context &ctx)
{
    QString key = ctx.requireDocId(QStringLiteral("the folder"));
    if (!exists(ctx.db, QStringLiteral("SELECT 1 FROM folders WHERE key = ?"), { key })
        || !ctx.folderVisible(key))
        fail(QStringLiteral("there is no folder '%1'").arg(key));
    for (int depth = 0; depth < 10000; ++depth) {
        const QString parent
            = scalar(ctx.db,
                     QStringLiteral("SELECT coalesce(parent_key, '') FROM folders WHERE key = ?"),
                     { key })
                  .toString();
        if (parent.isEmpty())
            break;
        key = parent;
    }
    ctx.setDocId(key);
}

// CFNEWFOLDER: [structure, parent key, name, key (empty: one is made)]
void newFolder(Context &ctx)
{
    ctx.requireItems(4, QStringLiteral("structure, parent, name and key"));
    const QString structure = ctx.item(0);
    const QString parent = ctx.item(1);
    checkName(structure, QStringLiteral("the structure key"));
    checkName(ctx.item(2), QStringLiteral("the folder name"));
    if (!parent.isEmpty()) {
        const QVariant parentStructure = scalar(
            ctx.db, QStringLiteral("SELECT structure FROM folders WHERE key = ?"), { parent });
        if (!parentStructure.isValid() || !ctx.folderVisible(parent))
            fail(QStringLiteral("there is no folder '%1'").arg(parent));
        if (parentStructure.toString() != structure)
            fail(QStringLiteral("folder '%1' belongs to another structure").arg(parent));
    }
    QString key = ctx.item(3);
    if (key.isEmpty()) {
        qint64 next
            = scalar(ctx.db, QStringLiteral("SELECT count(*) + 1 FROM folders")).toLongLong();
        while (exists(ctx.db, QStringLiteral("SELECT 1 FROM folders WHERE key = ?"),
                      { QStringLiteral("F%1").arg(next) }))
            ++next;
        key = QStringLiteral("F%1").arg(next);
    }
    checkName(key, QStringLiteral("the folder key"));
    if (exists(ctx.db, QStringLiteral("SELECT 1 FROM folders WHERE key = ?"), { key }))
        fail(QStringLiteral("there is already a folder '%1'").arg(key));
    run(ctx.db,
        QStringLiteral("INSERT INTO folders(key, structure, parent_key, name, position)"
                       " VALUES (?, ?, ?, ?, (SELECT count(*) FROM folders WHERE structure = ?))"),
        { key, structure, parent.isEmpty() ? QVariant() : QVariant(parent), ctx.item(2),
          structure });
    ctx.setDocId(key);
    ctx.notifyOthers(QLatin1String(notice::foldersUpdate));
}

// CFDOCSYSFOLDERS: docId "0", [EMPTYFOLDERS | NOEMPTYFOLDERS]; a folder is
// empty when neither it nor a folder below it holds a document outside the
// trash.
void systemFolders(Context &ctx)
{
    const QLatin1String withEmpty(nuvprotocol::flag::emptyFolders);
    const QLatin1String withoutEmpty(nuvprotocol::flag::noEmptyFolders);
    const QString which
        = ctx.requireItem(0, QStringLiteral("%1 or %2").arg(withEmpty, withoutEmpty));
    if (which != withEmpty && which != withoutEmpty)
        fail(QStringLiteral("dataList must hold %1 or %2, not '%3'")
                 .arg(withEmpty, withoutEmpty, which));
    replyFolders(ctx, systemStructure, which == withEmpty);
}

// CFDOCSETSYSFOLDERS: docId "0", dataList records, data payloads
void saveSystemFolders(Context &ctx)
{
    saveFolders(ctx, systemStructure);
}

} // namespace

QVector<CommandEntry> archiveCommands()
{
    return {
        { words::getArchives, archives, NeedsSession },
        { words::setCurrentArchive, selectArchive, NeedsSession },
        { words::insertMandant, newTenant, Administrative | Writes },
        { words::getMandanten, tenants, NeedsSession },
        { words::getFolderStructure, folderStructure, NeedsSession },
        { words::saveFolderStructure, saveFolderStructure, Administrative | Writes },
        { words::getMainFolder, mainFolder, NeedsSession },
        { words::newFolder, newFolder, Writes },
        { words::getSystemFolders, systemFolders, NeedsSession },
        { words::setSystemFolders, saveSystemFolders, Administrative | Writes },
    };
}

} // namespace nuvserver

// SPDX-License-Identifier: Apache-2.0
// Temporary classifications (stored drafts of classification values) and
// deadlines.

#include "conditions.h"
#include "documents.h"

#include <QSqlQuery>

namespace nuvserver {

namespace {

qint64 requireOwnTemporary(Context &ctx, qint64 id)
{
    if (!exists(ctx.db,
                QStringLiteral("SELECT 1 FROM temp_classifications WHERE id = ? AND owner_id = ?"),
                { id, ctx.user().userId }))
        fail(QStringLiteral("there is no temporary classification %1 of %2")
                 .arg(id)
                 .arg(ctx.login()));
    return id;
}

const KeyedList temporaryValues { "temp_values", "temp_id", "entry", "position" };

QStringList temporaryEntries(const QSqlDatabase &db, qint64 id)
{
    return readList(db, temporaryValues, id);
}

// CFDOCCLASSIFYTEMP: docId temporary classification (empty or 0: a new
// one), dataList = values; docId = its number
void storeTemporary(Context &ctx)
{
    parseValues(ctx, ctx.list()); // checked now, applied later
    qint64 id = ctx.docId().isEmpty()
        ? 0
        : ctx.docIdNumber(QStringLiteral("the temporary classification"));
    if (id == 0) {
        id = scalar(ctx.db,
                    QStringLiteral("INSERT INTO temp_classifications(owner_id, created)"
                                   " VALUES (?, ?) RETURNING id"),
                    { ctx.user().userId, nowText() })
                 .toLongLong();
    } else {
        requireOwnTemporary(ctx, id);
    }
    writeList(ctx.db, temporaryValues, id, ctx.list());
    ctx.setDocId(QString::number(id));
}

// CFDOCCLASSIFYWITHTEMP: docId document, [document type, title, temporary
// classification]. Creates the document (or reclassifies an existing one)
// with the stored values, type and title (when not empty) and the stored
// rights, then deletes the temporary classification.
void applyTemporary(Context &ctx)
{
    const qint64 doc = ctx.docIdNumber(QStringLiteral("the document"));
    ctx.requireItems(3, QStringLiteral("type, title and temporary classification"));
    const qint64 temp = requireOwnTemporary(
        ctx, toNumber(ctx.item(2), QStringLiteral("the temporary classification")));
    QStringList entries = temporaryEntries(ctx.db, temp);
    if (!ctx.item(0).isEmpty())
        entries.append(joinFields({ QStringLiteral("doctype"), ctx.item(0) }));
    if (!ctx.item(1).isEmpty())
        entries.append(joinFields({ QStringLiteral("title"), ctx.item(1) }));
    const QVector<FieldValue> values = parseValues(ctx, entries);
    if (exists(ctx.db, QStringLiteral("SELECT 1 FROM documents WHERE id = ?"), { doc }))
        classifyDocument(ctx, doc, values);
    else
        createDocument(ctx, doc, values);
    QSqlQuery rights = run(ctx.db,
                           QStringLiteral("SELECT principal, rights FROM temp_rights"
                                          " WHERE temp_id = ?"),
                           { temp });
    while (rights.next())
        run(ctx.db,
            QStringLiteral("INSERT INTO doc_rights(doc_id, principal, rights)"
                           " VALUES (?, ?, ?) ON CONFLICT(doc_id, principal)"
                           " DO UPDATE SET rights = excluded.rights"),
            { doc, rights.value(0), rights.value(1) });
    run(ctx.db, QStringLiteral("DELETE FROM temp_classifications WHERE id = ?"), { temp });
    ctx.setDocId(QString::number(doc));
}

// CFDOCGETCLASSIFYTEMP: docId number (0: the caller's oldest),
// availablePlugins = fields to return (empty: all). Reply: docId number,
// dataList values, data [created, owner], availablePlugins [how many the
// caller has].
void readTemporary(Context &ctx)
{
    qint64 id = ctx.docIdNumber(QStringLiteral("the temporary classification"));
    if (id == 0) {
        const QVariant oldest = scalar(ctx.db,
                                       QStringLiteral("SELECT min(id) FROM temp_classifications"
                                                      " WHERE owner_id = ?"),
                                       { ctx.user().userId });
        if (oldest.isNull())
            fail(QStringLiteral("%1 has no temporary classification").arg(ctx.login()));
        id = oldest.toLongLong();
    }
    requireOwnTemporary(ctx, id);
    QStringList entries = temporaryEntries(ctx.db, id);
    if (!ctx.requestPlugins.isEmpty()) {
        QStringList picked;
        for (const QString &entry : qAsConst(entries)) {
            const QString name = splitFields(entry).at(0);
            for (const QString &wanted : ctx.requestPlugins) {
                if (name.compare(wanted, Qt::CaseInsensitive) == 0)
                    picked.append(entry);
            }
        }
        entries = picked;
    }
    ctx.setDocId(QString::number(id));
    ctx.setList(entries);
    ctx.setData(
        { scalar(ctx.db, QStringLiteral("SELECT created FROM temp_classifications WHERE id = ?"),
                 { id })
              .toString()
              .toUtf8(),
          ctx.login().toUtf8() });
    ctx.reply.setAvailablePlugins(
        { scalar(ctx.db,
                 QStringLiteral("SELECT count(*) FROM temp_classifications WHERE owner_id = ?"),
                 { ctx.user().userId })
              .toString() });
}

// CFDOCDELETECLASSIFYTEMP: docId number
void deleteTemporary(Context &ctx)
{
    const qint64 id
        = requireOwnTemporary(ctx, ctx.docIdNumber(QStringLiteral("the temporary classification")));
    run(ctx.db, QStringLiteral("DELETE FROM temp_classifications WHERE id = ?"), { id });
}

// Deadline records: id␟document␟due␟assignee␟text␟state
const QString deadlineColumns
    = QStringLiteral("SELECT l.id, l.doc_id, l.due, l.assignee, l.text, l.state FROM deadlines l"
                     " JOIN documents d ON d.id = l.doc_id WHERE ");

QString deadlineCondition(const Condition &condition, QVariantList &values)
{
    static const std::pair<const char *, const char *> columns[] = {
        { "due", "l.due" },
        { "assignee", "l.assignee" },
        { "text", "l.text" },
        { "state", "l.state" },
    };
    if (condition.field == QLatin1String("id"))
        return compare(QStringLiteral("l.id"), condition, values, true);
    if (condition.field == QLatin1String("document") || condition.field == QLatin1String("doc"))
        return compare(QStringLiteral("l.doc_id"), condition, values, true);
    for (const auto &column : columns) {
        if (condition.field == QLatin1String(column.first))
            return compare(QLatin1String(column.second), condition, values);
    }
    fail(QStringLiteral("deadlines have no field '%1'").arg(condition.field));
}

QStringList selectDeadlines(Context &ctx, const QString &extra, QVariantList values)
{
    const QString access = ctx.documentAccess(QStringLiteral("d"), Access::Read, values);
    return queryRecords(ctx.db,
                        deadlineColumns + extra + QStringLiteral(" AND ") + access
                            + QStringLiteral(" ORDER BY l.due, l.id"),
                        values);
}

// CFSENDDEADLINEFORDOCID: [document]
void deadlinesOfDocument(Context &ctx)
{
    const qint64 doc = toNumber(ctx.requireItem(0, QStringLiteral("the document")),
                                QStringLiteral("the document"));
    ctx.requireDocument(doc, Access::Read);
    ctx.setList(selectDeadlines(ctx, QStringLiteral("l.doc_id = ?"), { doc }));
}

// CFSENDDEADLINES: dataList = conditions on id, document, due, assignee,
// text, state (none: every deadline the caller may read)
void selectedDeadlines(Context &ctx)
{
    QVariantList values;
    const QString filter = conditionsSql(ctx.list(), deadlineCondition, values);
    ctx.setList(selectDeadlines(ctx, filter, values));
}

// CFSAVEDEADLINES: records id␟document␟due␟assignee␟text␟state; an empty id
// or 0 adds one, state "delete" removes one. Replies with the saved records.
void saveDeadlines(Context &ctx)
{
    QStringList saved;
    for (const QString &record : ctx.list()) {
        const QStringList fields = splitFields(record);
        const qint64 id = field(fields, 0).isEmpty()
            ? 0
            : toNumber(fields.at(0), QStringLiteral("the deadline"));
        const qint64 doc = toNumber(field(fields, 1), QStringLiteral("the document of a deadline"));
        ctx.requireDocument(doc, Access::Write);
        if (id > 0
            && !exists(ctx.db,
                       QStringLiteral("SELECT 1 FROM deadlines WHERE id = ? AND doc_id = ?"),
                       { id, doc }))
            fail(QStringLiteral("there is no deadline %1 of document %2").arg(id).arg(doc));
        const QString state
            = field(fields, 5).isEmpty() ? QStringLiteral("open") : fields.at(5).toLower();
        if (state == QLatin1String("delete")) {
            if (id <= 0)
                fail(QStringLiteral("the deadline to delete (field 0) is missing"));
            run(ctx.db, QStringLiteral("DELETE FROM deadlines WHERE id = ?"), { id });
            addHistory(ctx, doc, QStringLiteral("deadline"), QStringLiteral("deleted %1").arg(id));
            continue;
        }
        if (state != QLatin1String("open") && state != QLatin1String("done"))
            fail(QStringLiteral("a deadline's state is open, done or delete, not '%1'")
                     .arg(fields.at(5)));
        const QString due = timeText(parseTime(field(fields, 2), QStringLiteral("the due time")));
        const QString assignee = field(fields, 3);
        if (!assignee.isEmpty())
            requirePrincipal(ctx.db, assignee);
        const QVariantList values { doc, due, assignee, field(fields, 4), state };
        qint64 savedId = id;
        if (id > 0) {
            run(ctx.db,
                QStringLiteral("UPDATE deadlines SET doc_id = ?, due = ?, assignee = ?,"
                               " text = ?, state = ? WHERE id = ?"),
                values + QVariantList { id });
        } else {
            savedId = scalar(ctx.db,
                             QStringLiteral("INSERT INTO deadlines(doc_id, due, assignee, text,"
                                            " state) VALUES (?, ?, ?, ?, ?) RETURNING id"),
                             values)
                          .toLongLong();
        }
        addHistory(ctx, doc, QStringLiteral("deadline"),
                   QStringLiteral("%1 due %2 (%3)").arg(savedId).arg(due, state));
        saved.append(joinFields({ QString::number(savedId), QString::number(doc), due, assignee,
                                  field(fields, 4), state }));
    }
    ctx.setList(saved);
}

} // namespace

QVector<CommandEntry> temporaryCommands()
{
    return {
        { words::classifyTemporary, storeTemporary, Writes },
        { words::newClassifyTemp, applyTemporary, Writes },
        { words::getClassifyTemp, readTemporary, NeedsSession },
        { words::deleteClassifyTemp, deleteTemporary, Writes },
        { words::getDeadLineForDocId, deadlinesOfDocument, NeedsSession },
        { words::getDeadLines, selectedDeadlines, NeedsSession },
        { words::saveDeadLines, saveDeadlines, Writes },
    };
}

} // namespace nuvserver

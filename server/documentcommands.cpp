// SPDX-License-Identifier: Apache-2.0
// Object ids, classification, document data, history, revisions, remarks,
// links, the trash, moves between archives and counts.

#include "documents.h"
#include "requestlimits.h"

#include <QSqlQuery>

namespace nuvserver {

namespace {

qint64 issueId(const QSqlDatabase &db)
{
    run(db,
        QStringLiteral("UPDATE meta SET value = CAST(value AS BIGINT) + 1"
                       " WHERE key = 'next_oid'"));
    return scalar(db,
                  QStringLiteral("SELECT CAST(value AS BIGINT) FROM meta"
                                 " WHERE key = 'next_oid'"))
        .toLongLong();
}

QList<qint64> documentIds(const Context &ctx, const QStringList &texts)
{
    return distinctIds(texts, QStringLiteral("a document number"), ctx.options);
}

bool documentExists(const QSqlDatabase &db, qint64 id)
{
    return exists(db, QStringLiteral("SELECT 1 FROM documents WHERE id = ?"), { id });
}

// CFGETNEXTOID: docId = a new object id (the value sent is not used)
void nextObjectId(Context &ctx)
{
    ctx.setDocId(QString::number(issueId(ctx.db)));
}

// CFDOCCLASSIFY: docId document (empty: a new one), dataList = values.
// An existing document gets a new revision, an issued id a new document.
void classify(Context &ctx)
{
    const QVector<FieldValue> values = parseValues(ctx, ctx.list());
    if (ctx.docId().isEmpty()) {
        const qint64 id = issueId(ctx.db);
        createDocument(ctx, id, values);
        ctx.setDocId(QString::number(id));
        return;
    }
    const qint64 id = ctx.docIdNumber(QStringLiteral("the document"));
    if (documentExists(ctx.db, id))
        classifyDocument(ctx, id, values);
    else
        createDocument(ctx, id, values);
    ctx.setDocId(QString::number(id));
}

// CFDOCMULTICLASSIFY: docId = documents joined by U+FEFF, dataList = values
void classifyMany(Context &ctx)
{
    const QStringList texts = ctx.requireDocId(QStringLiteral("the documents"))
                                  .split(recordSeparator, Qt::SkipEmptyParts);
    const QVector<FieldValue> values = parseValues(ctx, ctx.list());
    QStringList done;
    for (const qint64 id : documentIds(ctx, texts)) {
        classifyDocument(ctx, id, values);
        done.append(QString::number(id));
    }
    ctx.setDocId(joinFields(done));
}

// CFDOCNEWCLASSIFY: docId object id, [document type, title]
// CFDOCNEWCLASSIFYWITHFOLDER: docId object id, [document type, title, folder]
void newDocument(Context &ctx, bool withFolder)
{
    const qint64 id = ctx.docIdNumber(QStringLiteral("the object id"));
    ctx.requireItems(withFolder ? 3 : 2,
                     withFolder ? QStringLiteral("type, title and folder")
                                : QStringLiteral("type and title"));
    QStringList entries { joinFields({ QStringLiteral("doctype"), ctx.item(0) }),
                          joinFields({ QStringLiteral("title"), ctx.item(1) }) };
    if (withFolder)
        entries.append(joinFields({ QStringLiteral("folder"), ctx.item(2) }));
    createDocument(ctx, id, parseValues(ctx, entries));
    ctx.setDocId(QString::number(id));
}

void newClassify(Context &ctx)
{
    newDocument(ctx, false);
}

void newClassifyWithFolder(Context &ctx)
{
    newDocument(ctx, true);
}

// CFCLASSIFYFIELDS: docId "1" with the built-in fields, "0" attributes only.
// Records name␟label␟kind␟mandatory␟attribute number
void classificationFields(Context &ctx)
{
    QStringList records;
    if (toFlag(ctx.docId(), QStringLiteral("docId"))) {
        for (const BuiltinField &field : builtinFields())
            records.append(
                joinFields({ QLatin1String(field.name), QLatin1String(field.label),
                             QStringLiteral("builtin"), QStringLiteral("false"), QString() }));
    }
    QSqlQuery query = run(ctx.db,
                          QStringLiteral("SELECT name, label, mandatory, number"
                                         " FROM attributes ORDER BY number"));
    while (query.next())
        records.append(joinFields(
            { query.value(0).toString(), query.value(1).toString(), QStringLiteral("attribute"),
              query.value(2).toInt() ? QStringLiteral("true") : QStringLiteral("false"),
              query.value(3).toString() }));
    ctx.setList(records);
}

const QString metaColumns = QStringLiteral(
    "d.id, a.name, coalesce(d.folder_key, ''), coalesce(d.doc_type, ''), coalesce(d.status, ''),"
    " d.title, d.doc_date, d.remark, d.revision, d.deleted, d.created, d.created_by, d.modified,"
    " d.modified_by FROM documents d JOIN archives a ON a.id = d.archive_id");

// CFDOCINFO: docId document, [selector]: "" or "*" all values as
// field␟value, "META" the document record, a field name its value
void documentData(Context &ctx)
{
    const qint64 id = ctx.docIdNumber(QStringLiteral("the document"));
    ctx.requireDocument(id, Access::Read);
    const QString selector = ctx.item(0).trimmed();
    if (selector.compare(QLatin1String("META"), Qt::CaseInsensitive) == 0) {
        QSqlQuery query = run(
            ctx.db, QStringLiteral("SELECT ") + metaColumns + QStringLiteral(" WHERE d.id = ?"),
            { id });
        query.next();
        ctx.setList({ rowRecord(query) });
        return;
    }
    QStringList entries;
    QSqlQuery row = run(ctx.db,
                        QStringLiteral("SELECT title, coalesce(doc_type, ''), coalesce(status, ''),"
                                       " coalesce(folder_key, ''), doc_date, remark FROM documents"
                                       " WHERE id = ?"),
                        { id });
    row.next();
    for (int i = 0; i < builtinFields().size(); ++i) {
        if (!row.value(i).toString().isEmpty())
            entries.append(
                joinFields({ QLatin1String(builtinFields().at(i).name), row.value(i).toString() }));
    }
    QSqlQuery values
        = run(ctx.db,
              QStringLiteral("SELECT a.name, v.value FROM doc_values v JOIN attributes a"
                             " ON a.number = v.attribute WHERE v.doc_id = ?"
                             " ORDER BY a.number"),
              { id });
    while (values.next())
        entries.append(joinFields({ values.value(0).toString(), values.value(1).toString() }));
    if (selector.isEmpty() || selector == QLatin1String("*")) {
        ctx.setList(entries);
        return;
    }
    parseValues(ctx, { joinFields({ selector, QString() }) }); // the field must exist
    QStringList picked;
    for (const QString &entry : qAsConst(entries)) {
        const QStringList fields = splitFields(entry);
        if (fields.at(0).compare(selector, Qt::CaseInsensitive) == 0)
            picked.append(fields.value(1));
    }
    ctx.setList(picked);
}

// CFDOCSINFO: docId "0", dataList = document numbers, or conditions; no
// entry lists the readable documents of the archive outside the trash.
void documentsInfo(Context &ctx)
{
    const QStringList entries = ctx.list();
    bool numbers = !entries.isEmpty();
    for (const QString &entry : entries) {
        bool isNumber = false;
        entry.toLongLong(&isNumber);
        numbers = numbers && isNumber;
    }
    QStringList records;
    if (numbers) {
        for (const qint64 id : documentIds(ctx, entries)) {
            ctx.requireDocument(id, Access::Read);
            QSqlQuery query = run(
                ctx.db, QStringLiteral("SELECT ") + metaColumns + QStringLiteral(" WHERE d.id = ?"),
                { id });
            query.next();
            records.append(rowRecord(query));
        }
    } else {
        QVariantList values;
        const QString filter = documentFilter(ctx, entries, false, false, values);
        QSqlQuery query = run(ctx.db,
                              QStringLiteral("SELECT ") + metaColumns + QStringLiteral(" WHERE ")
                                  + filter + QStringLiteral(" ORDER BY d.id"),
                              values);
        while (query.next())
            records.append(rowRecord(query));
    }
    ctx.setList(records);
}

// CFDOCHIST: time␟user␟action␟details, oldest first
void history(Context &ctx)
{
    ctx.listDocumentRows(QStringLiteral("SELECT time, \"user\", action, details FROM doc_history"
                                        " WHERE doc_id = ? ORDER BY id"));
}

// CFDOCREV: revision␟time␟user␟changed fields (comma-separated)
void revisions(Context &ctx)
{
    ctx.listDocumentRows(QStringLiteral("SELECT revision, time, \"user\", fields FROM doc_revisions"
                                        " WHERE doc_id = ? ORDER BY revision"));
}

// CFBEMERK: the distinct remarks of the readable documents of the archive
void remarks(Context &ctx)
{
    QVariantList values;
    const QString filter = documentFilter(ctx, {}, false, false, values);
    ctx.setList(
        column(ctx.db,
               QStringLiteral("SELECT DISTINCT d.remark FROM documents d WHERE d.remark <> ''"
                              " AND ")
                   + filter + QStringLiteral(" ORDER BY d.remark"),
               values));
}

// CFADDLINKEDDOC / CFREMOVELINKEDDOC: docId document, dataList = documents.
// Links go both ways.
void changeLinks(Context &ctx, bool add)
{
    const qint64 id = ctx.docIdNumber(QStringLiteral("the document"));
    ctx.requireDocument(id, Access::Write);
    for (const qint64 other : documentIds(ctx, ctx.list())) {
        if (other == id)
            fail(QStringLiteral("document %1 cannot be linked with itself").arg(id));
        ctx.requireDocument(other, Access::Read);
        for (const auto &pair : { qMakePair(id, other), qMakePair(other, id) })
            run(ctx.db,
                add ? QStringLiteral(
                    "INSERT INTO doc_links(doc_id, linked_id) VALUES (?, ?) ON CONFLICT DO NOTHING")
                    : QStringLiteral("DELETE FROM doc_links WHERE doc_id = ? AND linked_id = ?"),
                { pair.first, pair.second });
    }
    addHistory(ctx, id, add ? QStringLiteral("linked") : QStringLiteral("unlinked"),
               ctx.list().join(QLatin1String(", ")));
}

void addLinks(Context &ctx)
{
    changeLinks(ctx, true);
}

void removeLinks(Context &ctx)
{
    changeLinks(ctx, false);
}

// CFREADLINKEDDOC: the linked documents the caller may read
void readLinks(Context &ctx)
{
    const qint64 id = ctx.docIdNumber(QStringLiteral("the document"));
    ctx.requireDocument(id, Access::Read);
    QVariantList values { id };
    const QString access = ctx.documentAccess(QStringLiteral("d"), Access::Read, values);
    ctx.setList(column(ctx.db,
                       QStringLiteral("SELECT l.linked_id FROM doc_links l JOIN documents d"
                                      " ON d.id = l.linked_id WHERE l.doc_id = ? AND ")
                           + access + QStringLiteral(" ORDER BY l.linked_id"),
                       values));
}

// CFDOCSTOTRASH / CFDOCSFROMTRASH: dataList = documents
void moveTrash(Context &ctx, bool toTrash)
{
    if (ctx.list().isEmpty())
        fail(QStringLiteral("dataList names no document"));
    for (const qint64 id : documentIds(ctx, ctx.list())) {
        ctx.requireDocument(id, Access::Write);
        run(ctx.db,
            QStringLiteral("UPDATE documents SET deleted = ?, modified = ?, modified_by = ?"
                           " WHERE id = ?"),
            { toTrash ? 1 : 0, nowText(), ctx.login(), id });
        addHistory(ctx, id, toTrash ? QStringLiteral("trashed") : QStringLiteral("restored"),
                   QString());
    }
}

void toTrash(Context &ctx)
{
    moveTrash(ctx, true);
}

void fromTrash(Context &ctx)
{
    moveTrash(ctx, false);
}

// CFDOCSTOARCHIVE: docId archive number, [document]
void toArchive(Context &ctx)
{
    const qint64 archive = ctx.archiveByName(ctx.requireDocId(QStringLiteral("the archive")));
    const qint64 id = toNumber(ctx.requireItem(0, QStringLiteral("the document")),
                               QStringLiteral("the document"));
    ctx.requireDocument(id, Access::Write);
    const QString from = scalar(ctx.db,
                                QStringLiteral("SELECT a.name FROM documents d JOIN archives a"
                                               " ON a.id = d.archive_id WHERE d.id = ?"),
                                { id })
                             .toString();
    run(ctx.db, QStringLiteral("UPDATE documents SET archive_id = ? WHERE id = ?"),
        { archive, id });
    addHistory(
        ctx, id, QStringLiteral("moved"),
        from + QStringLiteral(" -> ")
            + scalar(ctx.db, QStringLiteral("SELECT name FROM archives WHERE id = ?"), { archive })
                  .toString());
}

// The query of a count: its first entry's conditions joined by U+FEFF, then
// the flag words.
QStringList countConditions(Context &ctx, const QStringList &allowedFlags)
{
    const QStringList entries = ctx.list();
    for (const QString &flag : entries.mid(1)) {
        if (!allowedFlags.contains(flag))
            fail(QStringLiteral("unknown flag word '%1'").arg(echoed(flag)));
    }
    return entries.value(0).split(recordSeparator, Qt::SkipEmptyParts);
}

// CFDOCGETCOUNT: [query, NODELETED?, IGNOREARCHIVE?] -> docId = count
void documentCount(Context &ctx)
{
    const QString noDeleted = QLatin1String(nuvprotocol::flag::noDeleted);
    const QString ignoreArchive = QLatin1String(nuvprotocol::flag::ignoreArchive);
    const QStringList conditions = countConditions(ctx, { noDeleted, ignoreArchive });
    QVariantList values;
    const QString filter = documentFilter(ctx, conditions, !ctx.list().contains(noDeleted),
                                          ctx.list().contains(ignoreArchive), values);
    ctx.setDocId(
        scalar(ctx.db, QStringLiteral("SELECT count(*) FROM documents d WHERE ") + filter, values)
            .toString());
}

// CFCLASSCOUNT: [query, WITHOUTHISTORY?] -> docId = number of
// classifications (every revision; only the current one without history)
void classificationCount(Context &ctx)
{
    const QString withoutHistory = QLatin1String(nuvprotocol::flag::withoutHistory);
    const QStringList conditions = countConditions(ctx, { withoutHistory });
    QVariantList values;
    const QString filter = documentFilter(ctx, conditions, false, false, values);
    const QString counted = ctx.list().contains(withoutHistory)
        ? QStringLiteral("count(*)")
        : QStringLiteral("coalesce(sum(d.revision), 0)");
    ctx.setDocId(
        scalar(ctx.db,
               QStringLiteral("SELECT %1 FROM documents d WHERE d.revision > 0 AND ").arg(counted)
                   + filter,
               values)
            .toString());
}

// CFMINMAXDATE: [earliest, latest] document date of the readable documents
// of the archive; empty when no document has a date
void dateRange(Context &ctx)
{
    QVariantList values;
    const QString filter = documentFilter(ctx, {}, false, false, values);
    QSqlQuery query = run(ctx.db,
                          QStringLiteral("SELECT min(d.doc_date), max(d.doc_date) FROM documents d"
                                         " WHERE d.doc_date <> '' AND ")
                              + filter,
                          values);
    if (query.next() && !query.value(0).isNull())
        ctx.setList({ query.value(0).toString(), query.value(1).toString() });
}

} // namespace

QVector<CommandEntry> documentCommands()
{
    return {
        { words::getNextOid, nextObjectId, Writes },
        { words::classify, classify, Writes },
        { words::multipleClassify, classifyMany, Writes },
        { words::newClassify, newClassify, Writes },
        { words::newClassifyWithFolder, newClassifyWithFolder, Writes },
        { words::getClassificationFields, classificationFields, NeedsSession },
        { words::getDocumentData, documentData, NeedsSession },
        { words::getDocuments, documentsInfo, NeedsSession },
        { words::getDocHistory, history, NeedsSession },
        { words::getRevisionen, revisions, NeedsSession },
        { words::getBemerkungen, remarks, NeedsSession },
        { words::addLinkedDocuments, addLinks, Writes | IdList },
        { words::removeLinkedDocuments, removeLinks, Writes | IdList },
        { words::readLinkedDocuments, readLinks, NeedsSession },
        { words::moveDocumentsToTrash, toTrash, Writes | IdList },
        { words::removeDocumentsFromTrash, fromTrash, Writes | IdList },
        { words::moveDocToArchive, toArchive, Writes },
        { words::getDocumentCount, documentCount, NeedsSession },
        { words::getClassifyCount, classificationCount, NeedsSession },
        { words::getMinMaxDate, dateRange, NeedsSession },
    };
}

} // namespace nuvserver

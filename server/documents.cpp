// SPDX-License-Identifier: Apache-2.0
#include "documents.h"

#include "conditions.h"

#include <QDate>
#include <QSqlQuery>

namespace nuvserver {

const QVector<BuiltinField> &builtinFields()
{
    static const QVector<BuiltinField> fields {
        { "title", "title", "Title" },    { "doctype", "doc_type", "Document type" },
        { "status", "status", "Status" }, { "folder", "folder_key", "Folder" },
        { "date", "doc_date", "Date" },   { "remark", "remark", "Remark" },
    };
    return fields;
}

namespace {

const BuiltinField *builtin(const QString &name)
{
    for (const BuiltinField &field : builtinFields()) {
        if (name.compare(QLatin1String(field.name), Qt::CaseInsensitive) == 0)
            return &field;
    }
    return nullptr;
}

qint64 attributeNumber(const QSqlDatabase &db, const QString &name)
{
    const QVariant number
        = scalar(db, QStringLiteral("SELECT number FROM attributes WHERE name = ?"), { name });
    if (!number.isValid())
        fail(QStringLiteral("there is no field '%1'").arg(name));
    return number.toLongLong();
}

void checkValue(Context &ctx, const QString &name, const QString &value)
{
    // An empty value clears the field, which must exist all the same.
    const bool isAttribute = !builtin(name);
    const qint64 attribute = isAttribute ? attributeNumber(ctx.db, name) : 0;
    if (value.isEmpty())
        return;
    if (name == QLatin1String("doctype")) {
        if (!exists(ctx.db, QStringLiteral("SELECT 1 FROM doc_types WHERE name = ?"), { value }))
            fail(QStringLiteral("there is no document type '%1'").arg(value));
    } else if (name == QLatin1String("status")) {
        if (!exists(ctx.db, QStringLiteral("SELECT 1 FROM status_types WHERE name = ?"), { value }))
            fail(QStringLiteral("there is no status type '%1'").arg(value));
    } else if (name == QLatin1String("folder")) {
        if (!exists(ctx.db, QStringLiteral("SELECT 1 FROM folders WHERE key = ?"), { value })
            || !ctx.folderVisible(value))
            fail(QStringLiteral("there is no folder '%1'").arg(value));
    } else if (name == QLatin1String("date")) {
        if (!QDate::fromString(value, QStringLiteral("yyyy-MM-dd")).isValid())
            fail(QStringLiteral("the date must be written yyyy-MM-dd, not '%1'").arg(value));
    } else if (isAttribute) {
        if (exists(ctx.db, QStringLiteral("SELECT 1 FROM attribute_values WHERE attribute = ?"),
                   { attribute })
            && !exists(ctx.db,
                       QStringLiteral("SELECT 1 FROM attribute_values WHERE attribute = ?"
                                      " AND value = ?"),
                       { attribute, value }))
            fail(QStringLiteral("'%1' is not in the value list of %2").arg(value, name));
    }
}

void applyValues(Context &ctx, qint64 id, const QVector<FieldValue> &values)
{
    for (const FieldValue &value : values) {
        if (const BuiltinField *field = builtin(value.first)) {
            const bool nullable = value.first == QLatin1String("doctype")
                || value.first == QLatin1String("status") || value.first == QLatin1String("folder");
            run(ctx.db,
                QStringLiteral("UPDATE documents SET %1 = ? WHERE id = ?")
                    .arg(QLatin1String(field->column)),
                { nullable && value.second.isEmpty() ? QVariant() : QVariant(value.second), id });
        } else if (value.second.isEmpty()) {
            run(ctx.db, QStringLiteral("DELETE FROM doc_values WHERE doc_id = ? AND attribute = ?"),
                { id, attributeNumber(ctx.db, value.first) });
        } else {
            run(ctx.db,
                QStringLiteral("INSERT INTO doc_values(doc_id, attribute, value)"
                               " VALUES (?, ?, ?) ON CONFLICT(doc_id, attribute)"
                               " DO UPDATE SET value = excluded.value"),
                { id, attributeNumber(ctx.db, value.first), value.second });
        }
    }
    const QString missing
        = scalar(ctx.db,
                 QStringLiteral("SELECT name FROM attributes a WHERE mandatory = 1"
                                " AND NOT EXISTS (SELECT 1 FROM doc_values v"
                                " WHERE v.doc_id = ? AND v.attribute = a.number)"
                                " ORDER BY number LIMIT 1"),
                 { id })
              .toString();
    if (!missing.isEmpty())
        fail(QStringLiteral("the mandatory field %1 of document %2 has no value")
                 .arg(missing)
                 .arg(id));

    QStringList names;
    QStringList details;
    for (const FieldValue &value : values) {
        names.append(value.first);
        details.append(value.first + QLatin1Char('=') + value.second);
    }
    const QString now = nowText();
    run(ctx.db,
        QStringLiteral("UPDATE documents SET revision = revision + 1, modified = ?,"
                       " modified_by = ? WHERE id = ?"),
        { now, ctx.login(), id });
    run(ctx.db,
        QStringLiteral("INSERT INTO doc_revisions(doc_id, revision, time, \"user\", fields)"
                       " SELECT id, revision, ?, ?, ? FROM documents WHERE id = ?"),
        { now, ctx.login(), names.join(QLatin1Char(',')), id });
    addHistory(ctx, id, QStringLiteral("classified"), details.join(QLatin1String(", ")));
    indexDocument(ctx.db, id);
}

} // namespace

QVector<FieldValue> parseValues(Context &ctx, const QStringList &entries)
{
    QVector<FieldValue> values;
    for (const QString &entry : entries) {
        const QStringList fields = splitFields(entry);
        if (fields.size() < 2)
            fail(QStringLiteral("'%1' is no value entry field␟value").arg(entry));
        QString name = fields.at(0).trimmed();
        if (name.isEmpty())
            fail(QStringLiteral("a value entry names no field"));
        if (builtin(name))
            name = name.toLower();
        const QString value = fields.mid(1).join(recordSeparator);
        checkValue(ctx, name, value);
        values.append({ name, value });
    }
    return values;
}

bool isIssuedId(const QSqlDatabase &db, qint64 id)
{
    return id >= 1
        && id <= scalar(db,
                        QStringLiteral("SELECT CAST(value AS BIGINT) FROM meta"
                                       " WHERE key = 'next_oid'"))
                     .toLongLong();
}

void createDocument(Context &ctx, qint64 id, const QVector<FieldValue> &values)
{
    if (exists(ctx.db, QStringLiteral("SELECT 1 FROM documents WHERE id = ?"), { id }))
        fail(QStringLiteral("document %1 exists already").arg(id));
    if (!isIssuedId(ctx.db, id))
        fail(QStringLiteral("%1 is no object id handed out by CFGETNEXTOID").arg(id));
    const QString now = nowText();
    run(ctx.db,
        QStringLiteral("INSERT INTO documents(id, archive_id, created, created_by, modified,"
                       " modified_by) VALUES (?, ?, ?, ?, ?, ?)"),
        { id, ctx.archive(), now, ctx.login(), now, ctx.login() });
    addHistory(ctx, id, QStringLiteral("created"), QString());
    applyValues(ctx, id, values);
}

void classifyDocument(Context &ctx, qint64 id, const QVector<FieldValue> &values)
{
    ctx.requireDocument(id, Access::Write);
    if (scalar(ctx.db, QStringLiteral("SELECT deleted FROM documents WHERE id = ?"), { id })
            .toInt())
        fail(QStringLiteral("document %1 is in the trash").arg(id));
    applyValues(ctx, id, values);
}

namespace {
QString documentCondition(Context &ctx, const Condition &condition, QVariantList &values)
{
    static const std::pair<const char *, const char *> columns[] = {
        { "created", "d.created" },
        { "createdby", "d.created_by" },
        { "modified", "d.modified" },
        { "modifiedby", "d.modified_by" },
    };
    if (condition.field == QLatin1String("id") || condition.field == QLatin1String("revision"))
        return compare(QStringLiteral("d.") + condition.field, condition, values, true);
    if (condition.field == QLatin1String("text")) {
        if (condition.op != QLatin1String("="))
            fail(QStringLiteral("the text condition takes only ="));
        values.append(condition.value.toLower());
        return QStringLiteral("EXISTS (SELECT 1 FROM search_index s WHERE s.doc_id = d.id"
                              " AND s.word = ?)");
    }
    for (const auto &column : columns) {
        if (condition.field == QLatin1String(column.first))
            return compare(QLatin1String(column.second), condition, values);
    }
    if (const BuiltinField *field = builtin(condition.field))
        return compare(QStringLiteral("coalesce(d.%1, '')").arg(QLatin1String(field->column)),
                       condition, values);
    // Attribute names are matched ignoring case, as conditions are.
    const QVariant number
        = scalar(ctx.db, QStringLiteral("SELECT number FROM attributes WHERE lower(name) = ?"),
                 { condition.field });
    if (!number.isValid())
        fail(QStringLiteral("there is no field '%1'").arg(condition.field));
    return compare(QStringLiteral("coalesce((SELECT v.value FROM doc_values v WHERE"
                                  " v.doc_id = d.id AND v.attribute = %1), '')")
                       .arg(number.toLongLong()),
                   condition, values);
}
} // namespace

QString documentFilter(Context &ctx, const QStringList &conditions, bool withDeleted,
                       bool allArchives, QVariantList &values)
{
    QString sql = ctx.documentAccess(QStringLiteral("d"), Access::Read, values);
    if (!allArchives) {
        sql += QStringLiteral(" AND d.archive_id = ?");
        values.append(ctx.archive());
    }
    if (!withDeleted)
        sql += QStringLiteral(" AND d.deleted = 0");
    return sql + QStringLiteral(" AND ")
        + conditionsSql(
               conditions,
               [&ctx](const Condition &condition, QVariantList &bound) {
                   return documentCondition(ctx, condition, bound);
               },
               values);
}

void checkDocumentConditions(Context &ctx, const QStringList &conditions)
{
    QVariantList unused;
    conditionsSql(
        conditions,
        [&ctx](const Condition &condition, QVariantList &bound) {
            return documentCondition(ctx, condition, bound);
        },
        unused);
}

} // namespace nuvserver

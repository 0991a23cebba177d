// SPDX-License-Identifier: Apache-2.0
// Document types, status types, dynamic attributes and their value lists.

#include "documents.h"

#include <QRegularExpression>
#include <QSqlQuery>

namespace nuvserver {

namespace {

struct TypeTable
{
    const char *table;
    const char *column; // the documents column that refers to it
    const char *what;
};

const TypeTable documentTypes { "doc_types", "doc_type", "document type" };
const TypeTable statusTypes { "status_types", "status", "status type" };

// Records as saved, payloads in the same order (one per record).
void readTypes(Context &ctx, const TypeTable &types)
{
    QSqlQuery query = run(ctx.db,
                          QStringLiteral("SELECT record, payload FROM %1 ORDER BY position")
                              .arg(QLatin1String(types.table)));
    QStringList records;
    QList<QByteArray> payloads;
    while (query.next()) {
        records.append(query.value(0).toString());
        payloads.append(query.value(1).toByteArray());
    }
    ctx.setList(records);
    ctx.setData(payloads);
}

// Replaces the whole table: records name␟description␟..., field 0 the name;
// data[i] is the payload of record i. A type still in use stays required.
void saveTypes(Context &ctx, const TypeTable &types)
{
    const QStringList records = ctx.list();
    const QList<QByteArray> payloads = ctx.request.getData();
    if (payloads.size() > records.size())
        fail(QStringLiteral("data holds %1 payloads for %2 records")
                 .arg(payloads.size())
                 .arg(records.size()));
    QStringList names;
    for (const QString &record : records) {
        const QString name = splitFields(record).at(0);
        checkName(name, QStringLiteral("the name of a %1").arg(QLatin1String(types.what)));
        if (names.contains(name))
            fail(QStringLiteral("the %1 '%2' occurs twice").arg(QLatin1String(types.what), name));
        names.append(name);
    }
    QVariantList values;
    const QString dropped = notInList(QLatin1String(types.column), names, values);
    const QVariant used = scalar(ctx.db,
                                 QStringLiteral("SELECT %1 FROM documents WHERE %1 IS NOT NULL"
                                                " AND %2 LIMIT 1")
                                     .arg(QLatin1String(types.column), dropped),
                                 values);
    if (used.isValid())
        fail(QStringLiteral("the %1 '%2' is still used by documents")
                 .arg(QLatin1String(types.what), used.toString()));
    values.clear();
    run(ctx.db,
        QStringLiteral("DELETE FROM %1 WHERE %2")
            .arg(QLatin1String(types.table), notInList(QStringLiteral("name"), names, values)),
        values);
    for (int i = 0; i < records.size(); ++i) {
        const QByteArray payload = payloads.value(i);
        run(ctx.db,
            QStringLiteral("INSERT INTO %1(name, record, payload, position) VALUES (?, ?, ?, ?)"
                           " ON CONFLICT(name) DO UPDATE SET record = excluded.record,"
                           " payload = excluded.payload, position = excluded.position")
                .arg(QLatin1String(types.table)),
            { names.at(i), records.at(i), payload.isEmpty() ? QVariant() : QVariant(payload), i });
    }
    ctx.notifyOthers(QLatin1String(notice::typesUpdate));
}

void documentTypeList(Context &ctx)
{
    readTypes(ctx, documentTypes);
}

void statusTypeList(Context &ctx)
{
    readTypes(ctx, statusTypes);
}

void saveDocumentTypes(Context &ctx)
{
    saveTypes(ctx, documentTypes);
}

void saveStatusTypes(Context &ctx)
{
    saveTypes(ctx, statusTypes);
}

qint64 requireAttribute(const QSqlDatabase &db, const QString &text)
{
    const qint64 number = toNumber(text, QStringLiteral("the attribute number"));
    if (!exists(db, QStringLiteral("SELECT 1 FROM attributes WHERE number = ?"), { number }))
        fail(QStringLiteral("there is no attribute %1").arg(number));
    return number;
}

// Attribute names are field names in values and conditions.
void checkAttributeName(const QSqlDatabase &db, const QString &name, qint64 number)
{
    static const QRegularExpression identifier(QStringLiteral("^[A-Za-z][A-Za-z0-9_]{0,63}$"));
    if (!identifier.match(name).hasMatch())
        fail(QStringLiteral("an attribute name is a letter followed by letters, digits or _,"
                            " not '%1'")
                 .arg(name));
    for (const BuiltinField &field : builtinFields()) {
        if (name.compare(QLatin1String(field.name), Qt::CaseInsensitive) == 0)
            fail(QStringLiteral("'%1' is a built-in field").arg(name));
    }
    const QStringList reserved { QStringLiteral("id"),        QStringLiteral("revision"),
                                 QStringLiteral("text"),      QStringLiteral("created"),
                                 QStringLiteral("createdby"), QStringLiteral("modified"),
                                 QStringLiteral("modifiedby") };
    if (reserved.contains(name.toLower()))
        fail(QStringLiteral("'%1' is a reserved field name").arg(name));
    if (exists(
            db,
            QStringLiteral("SELECT 1 FROM attributes WHERE lower(name) = lower(?) AND number <> ?"),
            { name, number }))
        fail(QStringLiteral("there is already an attribute '%1'").arg(name));
}

// CFLSTDYNATT: number␟name␟label␟mandatory␟number of list values
void attributes(Context &ctx)
{
    ctx.setList(
        queryRecords(ctx.db,
                     QStringLiteral("SELECT a.number, a.name, a.label, CASE a.mandatory WHEN 1"
                                    " THEN 'true' ELSE 'false' END, (SELECT count(*)"
                                    " FROM attribute_values v WHERE v.attribute = a.number)"
                                    " FROM attributes a ORDER BY a.number")));
}

// CFADDDYNATT: [name, label, mandatory] -> docId = its number
void addAttribute(Context &ctx)
{
    const QString name = ctx.requireItem(0, QStringLiteral("the attribute name"));
    checkAttributeName(ctx.db, name, 0);
    const bool mandatory = toFlag(ctx.item(2), QStringLiteral("the mandatory flag"));
    ctx.setDocId(scalar(ctx.db,
                        QStringLiteral("INSERT INTO attributes(name, label, mandatory)"
                                       " VALUES (?, ?, ?) RETURNING number"),
                        { name, ctx.item(1), mandatory ? 1 : 0 })
                     .toString());
    ctx.notifyOthers(QLatin1String(notice::typesUpdate));
}

// CFMODDYNATT: records number␟name␟label␟mandatory
void modifyAttributes(Context &ctx)
{
    if (ctx.list().isEmpty())
        fail(QStringLiteral("dataList names no attribute"));
    for (const QString &record : ctx.list()) {
        const QStringList fields = splitFields(record);
        const qint64 number = requireAttribute(ctx.db, fields.at(0));
        const QString name = field(fields, 1);
        checkAttributeName(ctx.db, name, number);
        run(ctx.db,
            QStringLiteral(
                "UPDATE attributes SET name = ?, label = ?, mandatory = ? WHERE number = ?"),
            { name, field(fields, 2),
              toFlag(field(fields, 3), QStringLiteral("the mandatory flag of ") + name) ? 1 : 0,
              number });
    }
    ctx.notifyOthers(QLatin1String(notice::typesUpdate));
}

// CFDELDYNATT: [number]; refused while documents hold values of it
void deleteAttribute(Context &ctx)
{
    const qint64 number
        = requireAttribute(ctx.db, ctx.requireItem(0, QStringLiteral("the attribute")));
    if (exists(ctx.db, QStringLiteral("SELECT 1 FROM doc_values WHERE attribute = ?"), { number }))
        fail(QStringLiteral("documents still hold values of attribute %1").arg(number));
    run(ctx.db, QStringLiteral("DELETE FROM attributes WHERE number = ?"), { number });
    ctx.notifyOthers(QLatin1String(notice::typesUpdate));
}

const KeyedList valueListOf { "attribute_values", "attribute", "value", "position" };

// CFLSTWERTE: [attribute] -> its value list
void valueList(Context &ctx)
{
    const qint64 number
        = requireAttribute(ctx.db, ctx.requireItem(0, QStringLiteral("the attribute")));
    ctx.setList(readList(ctx.db, valueListOf, number));
}

// CFMODWERTE: [attribute, values...] replaces the list; an empty list lets
// any value through
void saveValueList(Context &ctx)
{
    const qint64 number
        = requireAttribute(ctx.db, ctx.requireItem(0, QStringLiteral("the attribute")));
    QStringList values = ctx.list().mid(1);
    if (values.removeDuplicates() > 0)
        fail(QStringLiteral("the value list holds a value twice"));
    writeList(ctx.db, valueListOf, number, values);
    ctx.notifyOthers(QLatin1String(notice::typesUpdate));
}

} // namespace

QVector<CommandEntry> typeCommands()
{
    return {
        { words::getDocTypes, documentTypeList, NeedsSession },
        { words::getStatusTypes, statusTypeList, NeedsSession },
        { words::saveDocTypes, saveDocumentTypes, Administrative | Writes },
        { words::saveStatusTypes, saveStatusTypes, Administrative | Writes },
        { words::listDynAttributes, attributes, NeedsSession },
        { words::addDynAttribute, addAttribute, Administrative | Writes },
        { words::modifyDynattribute, modifyAttributes, Administrative | Writes },
        { words::deleteDynAttribute, deleteAttribute, Administrative | Writes },
        { words::getWerteListe, valueList, NeedsSession },
        { words::modifyWerteListe, saveValueList, Administrative | Writes },
    };
}

} // namespace nuvserver

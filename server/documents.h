// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_DOCUMENTS_H
#define NUVSERVER_DOCUMENTS_H

#include "context.h"

#include <QPair>
#include <QVector>

/*
 * The classification of documents, shared by the document commands and the
 * temporary classifications: value entries "field␟value", their checks, and
 * creating or reclassifying a document.
 */
namespace nuvserver {

using FieldValue = QPair<QString, QString>;

// Built-in fields and their columns in `documents`.
struct BuiltinField
{
    const char *name;
    const char *column;
    const char *label;
};
const QVector<BuiltinField> &builtinFields();

// "field␟value" entries; the field name is taken in lower case for the
// built-in fields and as written for attributes. Every field must exist and
// every value must be allowed (types, folders, value lists, dates).
QVector<FieldValue> parseValues(Context &ctx, const QStringList &entries);

// Creates document `id` (an object id from "CFGETNEXTOID") in the request's
// archive and classifies it with `values` (its first revision).
void createDocument(Context &ctx, qint64 id, const QVector<FieldValue> &values);
// Applies `values` to an existing document as a new revision.
void classifyDocument(Context &ctx, qint64 id, const QVector<FieldValue> &values);
// Whether the id was handed out by "CFGETNEXTOID".
bool isIssuedId(const QSqlDatabase &db, qint64 id);

// The SQL condition on the documents row `d` for a listing or a count:
// readable by the caller, in the request's archive unless `allArchives`,
// not in the trash unless `withDeleted`, matching every condition.
QString documentFilter(Context &ctx, const QStringList &conditions, bool withDeleted,
                       bool allArchives, QVariantList &values);
// Fails unless every condition names a known document field.
void checkDocumentConditions(Context &ctx, const QStringList &conditions);

} // namespace nuvserver

#endif // NUVSERVER_DOCUMENTS_H

// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_FIELDVALUES_H
#define NUVSERVER_FIELDVALUES_H

#include "protocolwords.h"

#include <QDateTime>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QStringList>
#include <QVariantList>

/*
 * Record strings and the values in their fields: fields joined by U+FEFF,
 * the way every command sends structured entries in `dataList` and lists of
 * keys in `docId`; numbers, flags, times and names read from them.
 */
namespace nuvserver {

using nuvprotocol::recordSeparator;

QString joinFields(const QStringList &fields);
// Every column of the query's current row as one record.
QString rowRecord(const QSqlQuery &query);
// One record per row of the statement.
QStringList queryRecords(const QSqlDatabase &db, const QString &sql,
                         const QVariantList &values = {});
// All fields, empty ones kept.
QStringList splitFields(const QString &record);
// Field `index`, or an empty string when the record is shorter.
QString field(const QStringList &fields, int index);

// Decimal text to a number; fails naming `what` when the text is not one.
qint64 toNumber(const QString &text, const QString &what);
// "1"/"true"/"yes" and "0"/"false"/"no"/"" (any case).
bool toFlag(const QString &text, const QString &what);

// Times travel and are stored as "yyyy-MM-dd hh:mm:ss", in UTC.
QString timeText(const QDateTime &time);
QString nowText();
// A "yyyy-MM-dd hh:mm:ss" or "yyyy-MM-dd" text; fails naming `what`.
QDateTime parseTime(const QString &text, const QString &what);

// Caller's input as it may appear in an error text: cut to 100 characters,
// so a request cannot make its reply (and the log) as large as itself.
QString echoed(const QString &text);

// Names of users, roles, clipboards and the like: not empty, no surrounding
// blanks, no U+FEFF, no control characters.
void checkName(const QString &name, const QString &what);

} // namespace nuvserver

#endif // NUVSERVER_FIELDVALUES_H

// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_RECORDS_H
#define NUVEXPLORER_RECORDS_H

#include "protocolwords.h"

#include <QStringList>

class QTableWidget;
class QWidget;

namespace nuvexplorer {

using nuvprotocol::recordSeparator;

QStringList fields(const QString &record);
QString joinFields(const QStringList &fields);

// "a, b ,c" as [a, b, c]: names typed into one line.
QStringList nameList(const QString &text);

// A table of records: whole rows selected one at a time, no row numbers.
QTableWidget *recordTable(const QString &objectName, QWidget *parent);

// Fills a read-only table with one row per record, one column per header;
// missing fields stay empty, surplus fields are not shown.
void showRecords(QTableWidget *table, const QStringList &headers, const QStringList &records);

// The fields of the selected row, or an empty list.
QStringList selectedRecord(const QTableWidget *table);

} // namespace nuvexplorer

#endif // NUVEXPLORER_RECORDS_H

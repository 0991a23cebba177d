// SPDX-License-Identifier: Apache-2.0
#include "records.h"

#include <QHeaderView>
#include <QTableWidget>

namespace nuvexplorer {

QStringList fields(const QString &record)
{
    return record.split(recordSeparator);
}

QString joinFields(const QStringList &fields)
{
    return fields.join(recordSeparator);
}

QStringList nameList(const QString &text)
{
    QStringList names;
    for (const QString &part : text.split(QLatin1Char(','), Qt::SkipEmptyParts))
        if (!part.trimmed().isEmpty())
            names << part.trimmed();
    return names;
}

QTableWidget *recordTable(const QString &objectName, QWidget *parent)
{
    auto *table = new QTableWidget(parent);
    table->setObjectName(objectName);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    table->setAlternatingRowColors(true);
    table->verticalHeader()->hide();
    return table;
}

void showRecords(QTableWidget *table, const QStringList &headers, const QStringList &records)
{
    table->setSortingEnabled(false);
    table->clear();
    table->setColumnCount(headers.size());
    table->setHorizontalHeaderLabels(headers);
    table->setRowCount(records.size());
    for (int row = 0; row < records.size(); ++row) {
        const QStringList values = fields(records.at(row));
        for (int column = 0; column < headers.size(); ++column) {
            auto *item = new QTableWidgetItem(values.value(column));
            item->setFlags(item->flags() & ~Qt::ItemIsEditable);
            table->setItem(row, column, item);
        }
    }
    table->horizontalHeader()->setStretchLastSection(true);
    table->resizeColumnsToContents();
}

QStringList selectedRecord(const QTableWidget *table)
{
    const int row = table->currentRow();
    if (row < 0 || table->selectedItems().isEmpty())
        return {};
    QStringList values;
    for (int column = 0; column < table->columnCount(); ++column) {
        const QTableWidgetItem *item = table->item(row, column);
        values << (item ? item->text() : QString());
    }
    return values;
}

} // namespace nuvexplorer

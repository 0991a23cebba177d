// SPDX-License-Identifier: Apache-2.0
#include "attributespage.h"

#include "classifyinterface.h"
#include "connection.h"
#include "records.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace nuvexplorer {

AttributesPage::AttributesPage(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , attributes(recordTable(QStringLiteral("attributes"), this))
    , name(new QLineEdit(this))
    , label(new QLineEdit(this))
    , mandatory(new QCheckBox(tr("&Mandatory"), this))
    , values(new QLineEdit(this))
{
    connect(attributes, &QTableWidget::currentCellChanged, this, &AttributesPage::loadValues);
    name->setPlaceholderText(tr("Field name, e.g. invoice_number"));
    label->setPlaceholderText(tr("Label"));
    values->setPlaceholderText(tr("value, value ... (empty: any value)"));

    auto *add = new QPushButton(tr("&Add attribute"), this);
    auto *remove = new QPushButton(tr("De&lete attribute"), this);
    auto *saveValuesButton = new QPushButton(tr("Save &values"), this);
    connect(add, &QPushButton::clicked, this, &AttributesPage::addAttribute);
    connect(remove, &QPushButton::clicked, this, &AttributesPage::deleteAttribute);
    connect(saveValuesButton, &QPushButton::clicked, this, &AttributesPage::saveValues);
    auto *addRow = new QHBoxLayout;
    addRow->addWidget(name);
    addRow->addWidget(label, 1);
    addRow->addWidget(mandatory);
    addRow->addWidget(add);
    addRow->addWidget(remove);
    auto *valueRow = new QHBoxLayout;
    valueRow->addWidget(values, 1);
    valueRow->addWidget(saveValuesButton);
    auto *form = new QFormLayout;
    form->addRow(tr("New:"), addRow);
    form->addRow(tr("Value &list:"), valueRow);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(attributes, 1);
    layout->addLayout(form);
}

int AttributesPage::selectedNumber() const
{
    bool ok = false;
    const int number = selectedRecord(attributes).value(0).toInt(&ok);
    return ok ? number : -1;
}

void AttributesPage::reload()
{
    const int selected = selectedNumber();
    connection->call(
        QStringLiteral("listDynAttributes"), QString(),
        [](ClassifyInterface &client) {
            return Connection::readList(client, [&] { return client.listDynAttributes(); });
        },
        this,
        [this, selected](const CallResult &result) {
            if (!result.ok)
                emit failed(QStringLiteral("listDynAttributes"), result.error);
            showRecords(
                attributes,
                { tr("Number"), tr("Name"), tr("Label"), tr("Mandatory"), tr("List values") },
                result.value.toStringList());
            for (int row = 0; row < attributes->rowCount(); ++row)
                if (attributes->item(row, 0)->text().toInt() == selected)
                    attributes->setCurrentCell(row, 0);
        });
}

void AttributesPage::loadValues()
{
    const int number = selectedNumber();
    values->clear();
    if (number < 0)
        return;
    connection->call(
        QStringLiteral("getWerteListe"), QString::number(number),
        [number](ClassifyInterface &client) {
            return Connection::readList(client, [&] { return client.getWerteListe(number); });
        },
        this,
        [this, number](const CallResult &result) {
            if (number == selectedNumber())
                values->setText(result.value.toStringList().join(QStringLiteral(", ")));
        });
}

void AttributesPage::addAttribute()
{
    const QString field = name->text().trimmed();
    const QString text = label->text();
    const bool required = mandatory->isChecked();
    if (field.isEmpty())
        return;
    // The dynamic-attribute calls leave no error text of their own.
    change(QStringLiteral("addDynAttribute"), field,
           [field, text, required](ClassifyInterface &client) {
               return client.addDynAttribute(field, text, required);
           });
}

void AttributesPage::deleteAttribute()
{
    const int number = selectedNumber();
    if (number < 0)
        return;
    change(QStringLiteral("deleteDynAttribute"), QString::number(number),
           [number](ClassifyInterface &client) { return client.deleteDynAttribute(number); });
}

void AttributesPage::saveValues()
{
    const int number = selectedNumber();
    if (number < 0)
        return;
    const QStringList list = nameList(values->text());
    change(QStringLiteral("modifyWerteListe"),
           QStringLiteral("%1: %2").arg(number).arg(list.join(QStringLiteral(", "))),
           [number, list](ClassifyInterface &client) {
               return client.modifyWerteListe(number, list);
           });
}

} // namespace nuvexplorer

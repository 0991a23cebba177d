// SPDX-License-Identifier: Apache-2.0
#include "typespage.h"

#include "classifyinterface.h"
#include "connection.h"
#include "records.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace nuvexplorer {

namespace {

struct Table
{
    QStringList records;
    QList<QByteArray> payloads;
};

} // namespace

TypesPage::TypesPage(Kind kind, Connection *connection, QWidget *parent)
    : View(connection, parent)
    , kind(kind)
    , types(recordTable(
          kind == DocumentTypes ? QStringLiteral("docTypes") : QStringLiteral("statusTypes"), this))
    , name(new QLineEdit(this))
    , description(new QLineEdit(this))
{
    name->setPlaceholderText(tr("Name"));
    description->setPlaceholderText(tr("Description"));
    auto *add = new QPushButton(tr("&Add"), this);
    auto *remove = new QPushButton(tr("&Remove"), this);
    connect(add, &QPushButton::clicked, this, &TypesPage::addType);
    connect(remove, &QPushButton::clicked, this, &TypesPage::removeType);
    auto *controls = new QHBoxLayout;
    controls->addWidget(name);
    controls->addWidget(description, 1);
    controls->addWidget(add);
    controls->addWidget(remove);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(types, 1);
    layout->addLayout(controls);
}

void TypesPage::reload()
{
    const Kind which = kind;
    connection->call(
        which == DocumentTypes ? QStringLiteral("getDocTypes") : QStringLiteral("getStatusTypes"),
        QString(),
        [which](ClassifyInterface &client) {
            Table table;
            const bool ok = which == DocumentTypes
                ? client.getDocTypes(table.records, table.payloads)
                : client.getStatusTypes(table.records, table.payloads);
            CallResult result = Connection::fromBool(client, ok, table.records);
            result.extra = QVariant::fromValue(table.payloads);
            return result;
        },
        this,
        [this](const CallResult &result) {
            if (!result.ok) {
                emit failed(kind == DocumentTypes ? QStringLiteral("getDocTypes")
                                                  : QStringLiteral("getStatusTypes"),
                            result.error);
                return;
            }
            records = result.value.toStringList();
            payloads = result.extra.value<QList<QByteArray>>();
            showRecords(types, { tr("Name"), tr("Description") }, records);
        });
}

void TypesPage::addType()
{
    const QString typeName = name->text().trimmed();
    if (typeName.isEmpty())
        return;
    QStringList changed = records;
    QList<QByteArray> changedPayloads = payloads;
    while (changedPayloads.size() < changed.size())
        changedPayloads << QByteArray();
    changed << joinFields({ typeName, description->text() });
    changedPayloads << QByteArray();
    save(changed, changedPayloads, tr("add %1").arg(typeName));
}

void TypesPage::removeType()
{
    const int row = types->currentRow();
    if (row < 0 || row >= records.size())
        return;
    QStringList changed = records;
    QList<QByteArray> changedPayloads = payloads;
    const QString removed = fields(changed.takeAt(row)).value(0);
    if (row < changedPayloads.size())
        changedPayloads.removeAt(row);
    save(changed, changedPayloads, tr("remove %1").arg(removed));
}

void TypesPage::save(const QStringList &list, const QList<QByteArray> &bytes,
                     const QString &arguments)
{
    const Kind which = kind;
    change(which == DocumentTypes ? QStringLiteral("saveDocTypes")
                                  : QStringLiteral("saveStatusTypes"),
           arguments, [which, list, bytes](ClassifyInterface &client) {
               return which == DocumentTypes ? client.saveDocTypes(list, bytes)
                                             : client.saveStatusTypes(list, bytes);
           });
}

} // namespace nuvexplorer

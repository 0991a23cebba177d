// SPDX-License-Identifier: Apache-2.0
#include "tenantspage.h"

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

TenantsPage::TenantsPage(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , tenants(recordTable(QStringLiteral("tenants"), this))
    , name(new QLineEdit(this))
    , description(new QLineEdit(this))
{
    name->setPlaceholderText(tr("Name of a new tenant"));
    description->setPlaceholderText(tr("Description"));
    auto *add = new QPushButton(tr("&Add tenant"), this);
    connect(add, &QPushButton::clicked, this, &TenantsPage::addTenant);
    auto *controls = new QHBoxLayout;
    controls->addWidget(name);
    controls->addWidget(description, 1);
    controls->addWidget(add);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(tenants, 1);
    layout->addLayout(controls);
}

void TenantsPage::reload()
{
    connection->call(
        QStringLiteral("getMandanten"), QString(),
        [](ClassifyInterface &client) {
            QStringList list;
            QList<QByteArray> payloads;
            const bool ok = client.getMandanten(list, payloads);
            return Connection::fromBool(client, ok, list);
        },
        this,
        [this](const CallResult &result) {
            if (!result.ok)
                emit failed(QStringLiteral("getMandanten"), result.error);
            showRecords(tenants,
                        { tr("Name"), tr("Description"), tr("Archive"), tr("Number"),
                          tr("Archive number"), tr("Created") },
                        result.value.toStringList());
        });
}

void TenantsPage::addTenant()
{
    const QString tenant = name->text().trimmed();
    const QString text = description->text();
    if (tenant.isEmpty())
        return;
    // The client announces the new archive itself ("SYSUPDATE").
    change(QStringLiteral("insertMandant"), tenant, [tenant, text](ClassifyInterface &client) {
        return client.insertMandant(tenant, text, QByteArray());
    });
}

} // namespace nuvexplorer

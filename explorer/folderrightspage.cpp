// SPDX-License-Identifier: Apache-2.0
#include "folderrightspage.h"

#include "classifyinterface.h"
#include "connection.h"
#include "foldertree.h"
#include "records.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace nuvexplorer {

FolderRightsPage::FolderRightsPage(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , tree(new FolderTree(connection, this))
    , roles(new QLineEdit(this))
{
    tree->setObjectName(QStringLiteral("folderRights"));
    roles->setObjectName(QStringLiteral("folderRoles"));
    roles->setPlaceholderText(tr("user or role, ... (empty: everybody)"));
    connect(tree, &FolderTree::failed, this, &View::failed);
    connect(tree, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem *item) {
        roles->setText(item ? item->text(FolderTree::RolesColumn) : QString());
    });
    auto *save = new QPushButton(tr("&Restrict the folder"), this);
    connect(save, &QPushButton::clicked, this, &FolderRightsPage::saveRoles);
    auto *row = new QHBoxLayout;
    row->addWidget(roles, 1);
    row->addWidget(save);
    auto *form = new QFormLayout;
    form->addRow(tr("&Visible to:"), row);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(tree, 1);
    layout->addLayout(form);
}

void FolderRightsPage::setArchive(const QString &archive)
{
    tree->setArchive(archive);
}

void FolderRightsPage::reload()
{
    tree->reload();
}

void FolderRightsPage::saveRoles()
{
    const QString key = tree->selectedKey();
    if (key.isEmpty() || key.startsWith(QLatin1String("search:")))
        return;
    const QStringList list = nameList(roles->text());
    change(QStringLiteral("setFolderRoles"),
           key + QStringLiteral(": ") + list.join(QStringLiteral(", ")),
           [key, list](ClassifyInterface &client) { return client.setFolderRoles(key, list); });
}

} // namespace nuvexplorer

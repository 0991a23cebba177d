// SPDX-License-Identifier: Apache-2.0
#include "foldertree.h"

#include "classifyinterface.h"
#include "connection.h"
#include "records.h"

#include <QHash>
#include <QHeaderView>

namespace nuvexplorer {

namespace {

// Folder record: name, parent key, position, description, structure key,
// key, number of documents.
enum FolderField { Name = 0, Parent = 1, Description = 3, Key = 5, Documents = 6 };

// One call that reads a folder list, with its byte arrays left aside.
using FolderReader = std::function<bool(ClassifyInterface &, QStringList &)>;

} // namespace

FolderTree::FolderTree(Connection *connection, QWidget *parent)
    : QTreeWidget(parent)
    , connection(connection)
{
    setObjectName(QStringLiteral("folders"));
    setHeaderLabels({ tr("Folder"), tr("Documents"), tr("Visible to") });
    header()->setStretchLastSection(true);
    setUniformRowHeights(true);
    connect(this, &QTreeWidget::currentItemChanged, this, &FolderTree::onCurrentChanged);
}

void FolderTree::reload()
{
    if (!selectedKey().isEmpty() || wanted.isEmpty())
        wanted = selectedKey();
    const QString archive = currentArchive;
    // Answers of an older reload that are still on their way are dropped:
    // two chains would otherwise fill one tree twice.
    const int round = ++generation;
    // The structure key of an archive's folders is its tenant's number.
    connection->call(
        QStringLiteral("getMandanten"), QString(),
        [archive](ClassifyInterface &client) {
            QStringList tenants;
            QList<QByteArray> payloads;
            const bool ok = client.getMandanten(tenants, payloads);
            QString key;
            for (const QString &tenant : tenants) {
                const QStringList parts = fields(tenant);
                if (parts.value(2) == archive)
                    key = parts.value(3);
            }
            return Connection::fromBool(client, ok, key, key);
        },
        this,
        [this, round](const CallResult &result) {
            if (round != generation)
                return;
            if (!result.ok) {
                emit failed(QStringLiteral("getMandanten"), result.error);
                return;
            }
            structure = result.value.toString();
            const QString key = structure;
            connection->call(
                QStringLiteral("getFolderStructure"), key,
                [key](ClassifyInterface &client) {
                    QStringList folders;
                    QList<QByteArray> payloads;
                    const bool ok
                        = key.isEmpty() || client.getFolderStructure(key, folders, payloads);
                    return Connection::fromBool(client, ok, folders);
                },
                this,
                [this, round](const CallResult &folders) {
                    if (round != generation)
                        return;
                    if (!folders.ok)
                        emit failed(QStringLiteral("getFolderStructure"), folders.error);
                    clear();
                    all = new QTreeWidgetItem(this, { tr("All documents") });
                    all->setData(NameColumn, KindRole, AllDocuments);
                    showFolders(all, folders.value.toStringList(), Folder);
                    system = new QTreeWidgetItem(this, { tr("System folders") });
                    searches = new QTreeWidgetItem(this, { tr("Saved searches") });
                    all->setExpanded(true);
                    connection->call(
                        QStringLiteral("getSystemFolders"), QStringLiteral("EMPTYFOLDERS"),
                        [](ClassifyInterface &client) {
                            QStringList list;
                            QList<QByteArray> payloads;
                            const bool ok = client.getSystemFolders(list, payloads, true);
                            return Connection::fromBool(client, ok, list);
                        },
                        this,
                        [this, round](const CallResult &result) {
                            if (result.ok && round == generation)
                                showFolders(system, result.value.toStringList(), SystemFolder);
                        });
                    connection->call(
                        QStringLiteral("getExtentedSearch"), tr("all"),
                        [](ClassifyInterface &client) {
                            return Connection::readList(
                                client, [&] { return client.getExtentedSearch({ QString() }); });
                        },
                        this,
                        [this, round](const CallResult &result) {
                            if (round != generation)
                                return;
                            showSearches(result.value.toStringList());
                            if (!wanted.isEmpty() && selectKey(wanted))
                                wanted.clear();
                            else if (!currentItem())
                                setCurrentItem(all);
                            emit loaded();
                        });
                });
        });
}

void FolderTree::showFolders(QTreeWidgetItem *top, const QStringList &records, Kind kind)
{
    QHash<QString, QTreeWidgetItem *> byKey;
    QList<QStringList> parsed;
    for (const QString &record : records)
        parsed << fields(record);
    for (const QStringList &folder : parsed) {
        auto *item = new QTreeWidgetItem({ folder.value(Name), folder.value(Documents) });
        item->setData(NameColumn, KindRole, kind);
        item->setData(NameColumn, KeyRole, folder.value(Key));
        item->setToolTip(NameColumn, folder.value(Description));
        item->setTextAlignment(DocumentsColumn, Qt::AlignRight | Qt::AlignVCenter);
        byKey.insert(folder.value(Key), item);
    }
    // Records come ordered by position, so a parent may follow its child.
    for (const QStringList &folder : parsed) {
        QTreeWidgetItem *item = byKey.value(folder.value(Key));
        QTreeWidgetItem *parent = byKey.value(folder.value(Parent), top);
        parent->addChild(item);
        loadRoles(item);
    }
    top->setExpanded(true);
    for (QTreeWidgetItem *item : qAsConst(byKey))
        item->setExpanded(true);
    resizeColumnToContents(NameColumn);
}

void FolderTree::showSearches(const QStringList &records)
{
    // Search record: number, name, description, conditions...
    for (const QString &record : records) {
        const QStringList parts = fields(record);
        auto *item = new QTreeWidgetItem(searches, { parts.value(1) });
        item->setData(NameColumn, KindRole, Search);
        item->setData(NameColumn, KeyRole, QStringLiteral("search:") + parts.value(0));
        item->setData(NameColumn, ConditionsRole, QVariant(parts.mid(3)));
        item->setToolTip(NameColumn, parts.mid(3).join(QStringLiteral(", ")));
    }
    searches->setExpanded(true);
}

void FolderTree::loadRoles(QTreeWidgetItem *item)
{
    const QString key = item->data(NameColumn, KeyRole).toString();
    connection->call(
        QStringLiteral("getFolderRoles"), key,
        [key](ClassifyInterface &client) {
            return Connection::readList(client, [&] { return client.getFolderRoles(key); });
        },
        this,
        [this, key](const CallResult &result) {
            // The tree may have been rebuilt meanwhile: look the folder up.
            if (QTreeWidgetItem *folder = findKey(key))
                folder->setText(RolesColumn,
                                result.value.toStringList().join(QStringLiteral(", ")));
        });
}

QTreeWidgetItem *FolderTree::findKey(const QString &key) const
{
    for (QTreeWidgetItemIterator it(const_cast<FolderTree *>(this)); *it; ++it)
        if ((*it)->data(NameColumn, KeyRole).toString() == key)
            return *it;
    return nullptr;
}

bool FolderTree::selectKey(const QString &key)
{
    QTreeWidgetItem *item = findKey(key);
    if (!item)
        return false;
    setCurrentItem(item);
    return true;
}

QString FolderTree::folderName(const QString &key) const
{
    const QTreeWidgetItem *item = key.isEmpty() ? nullptr : findKey(key);
    return item ? item->text(NameColumn) : key;
}

QString FolderTree::selectedKey() const
{
    const QTreeWidgetItem *item = currentItem();
    return item ? item->data(NameColumn, KeyRole).toString() : QString();
}

void FolderTree::onCurrentChanged()
{
    const QTreeWidgetItem *item = currentItem();
    if (!item)
        return;
    switch (item->data(NameColumn, KindRole).toInt()) {
    case AllDocuments:
        emit selectionChosen({});
        break;
    case Folder:
    case SystemFolder:
        emit selectionChosen({ QStringLiteral("folder=") + selectedKey() });
        break;
    case Search:
        emit selectionChosen(item->data(NameColumn, ConditionsRole).toStringList());
        break;
    }
}

} // namespace nuvexplorer

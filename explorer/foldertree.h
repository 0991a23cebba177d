// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_FOLDERTREE_H
#define NUVEXPLORER_FOLDERTREE_H

#include <QTreeWidget>

namespace nuvexplorer {

class Connection;

/*
 * The folders of the archive's tenant, the system folders and the saved
 * searches, with the number of documents and the roles that may see each
 * folder. Selecting an entry names what the document list shows.
 */
class FolderTree : public QTreeWidget
{
    Q_OBJECT

public:
    enum Kind { AllDocuments = 1, Folder, SystemFolder, Search };
    enum Role { KindRole = Qt::UserRole + 1, KeyRole, ConditionsRole };
    enum Column { NameColumn, DocumentsColumn, RolesColumn };

    explicit FolderTree(Connection *connection, QWidget *parent = nullptr);

    void setArchive(const QString &archive) { currentArchive = archive; }
    // Reads everything again and selects the entry that was selected.
    void reload();
    // Selects the folder or search with this key; false when there is none.
    bool selectKey(const QString &key);
    QString selectedKey() const;
    // The name of the folder with this key; the key itself when the tree
    // does not hold it.
    QString folderName(const QString &key) const;
    // The tenant number the folder structure belongs to.
    QString structureKey() const { return structure; }

Q_SIGNALS:
    // `conditions` selects the documents to show (empty: all).
    void selectionChosen(const QStringList &conditions);
    void loaded();
    void failed(const QString &operation, const QString &error);

private:
    void showFolders(QTreeWidgetItem *top, const QStringList &records, Kind kind);
    void showSearches(const QStringList &records);
    void loadRoles(QTreeWidgetItem *item);
    void onCurrentChanged();
    QTreeWidgetItem *findKey(const QString &key) const;

    Connection *connection;
    QString currentArchive;
    QString structure;
    QTreeWidgetItem *all = nullptr;
    QTreeWidgetItem *system = nullptr;
    QTreeWidgetItem *searches = nullptr;
    QString wanted;
    int generation = 0;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_FOLDERTREE_H

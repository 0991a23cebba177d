// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_BROWSEVIEW_H
#define NUVEXPLORER_BROWSEVIEW_H

#include "view.h"

#include <QStringList>

class QLineEdit;
class QSortFilterProxyModel;
class QStandardItemModel;
class QTableView;

namespace nuvexplorer {

class DetailsPane;
class FolderTree;

// A classification field as the server describes it.
struct Field
{
    QString name;
    QString label;
    bool attribute = false;
    bool mandatory = false;
};

/*
 * The archive as a person browses it: folders and saved searches on the
 * left, the documents of the selection with their classification fields as
 * sortable, filterable columns, and the selected document's details.
 */
class BrowseView : public View
{
    Q_OBJECT

public:
    explicit BrowseView(Connection *connection, QWidget *parent = nullptr);

    void setArchive(const QString &archive);
    FolderTree *folders() const { return tree; }
    QTableView *documents() const { return table; }
    QLineEdit *filter() const { return filterEdit; }
    DetailsPane *details() const { return pane; }
    // Selects the document's row; false when the list does not show it.
    bool selectDocument(const QString &id);
    QString selectedDocument() const;

public Q_SLOTS:
    void reload() override;
    // Moves the selected document to the trash.
    void trashSelected();

Q_SIGNALS:
    // The document list shows what the server answered.
    void documentsLoaded();
    void documentTrashed(const QString &id);

private:
    void loadDocuments(const QStringList &conditions);
    void showDocuments(const QStringList &records);
    void fillAttributes(const QString &id);
    void onDocumentChosen();

    FolderTree *tree;
    QLineEdit *filterEdit;
    QStandardItemModel *model;
    QSortFilterProxyModel *proxy;
    QTableView *table;
    DetailsPane *pane;
    QList<Field> fieldList;
    QStringList currentConditions;
    QString wantedDocument;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_BROWSEVIEW_H

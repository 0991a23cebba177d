// SPDX-License-Identifier: Apache-2.0
#include "browseview.h"

#include "classifyinterface.h"
#include "connection.h"
#include "detailspane.h"
#include "foldertree.h"
#include "records.h"

#include <QAction>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QSortFilterProxyModel>
#include <QSplitter>
#include <QStandardItemModel>
#include <QTableView>
#include <QVBoxLayout>

namespace nuvexplorer {

namespace {

// Document record: id, archive, folder, doctype, status, title, date,
// remark, revision, in trash, created, created by, modified, modified by.
int recordIndex(const QString &builtinField)
{
    static const QStringList order { "id",    "archive", "folder", "doctype", "status",
                                     "title", "date",    "remark", "revision" };
    return order.indexOf(builtinField.toLower());
}
enum { RevisionField = 8, ModifiedField = 12, ModifiedByField = 13 };

} // namespace

BrowseView::BrowseView(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , tree(new FolderTree(connection, this))
    , filterEdit(new QLineEdit(this))
    , model(new QStandardItemModel(this))
    , proxy(new QSortFilterProxyModel(this))
    , table(new QTableView(this))
    , pane(new DetailsPane(connection, this))
{
    filterEdit->setObjectName(QStringLiteral("filter"));
    filterEdit->setPlaceholderText(tr("Filter the documents"));
    filterEdit->setClearButtonEnabled(true);
    proxy->setSourceModel(model);
    proxy->setFilterCaseSensitivity(Qt::CaseInsensitive);
    proxy->setFilterKeyColumn(-1);
    proxy->setSortCaseSensitivity(Qt::CaseInsensitive);
    connect(filterEdit, &QLineEdit::textChanged, proxy,
            &QSortFilterProxyModel::setFilterFixedString);
    table->setObjectName(QStringLiteral("documents"));
    table->setModel(proxy);
    table->setSortingEnabled(true);
    table->sortByColumn(0, Qt::AscendingOrder);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setAlternatingRowColors(true);
    table->verticalHeader()->hide();
    table->horizontalHeader()->setStretchLastSection(true);
    connect(table->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            &BrowseView::onDocumentChosen);
    auto *trash = new QAction(tr("Move to &trash"), table);
    trash->setShortcut(QKeySequence::Delete);
    trash->setShortcutContext(Qt::WidgetShortcut);
    connect(trash, &QAction::triggered, this, &BrowseView::trashSelected);
    table->addAction(trash);
    table->setContextMenuPolicy(Qt::ActionsContextMenu);

    auto *filterLabel = new QLabel(tr("F&ilter:"), this);
    filterLabel->setBuddy(filterEdit);
    auto *middle = new QWidget(this);
    auto *middleLayout = new QVBoxLayout(middle);
    middleLayout->setContentsMargins(0, 0, 0, 0);
    middleLayout->addWidget(filterLabel);
    middleLayout->addWidget(filterEdit);
    middleLayout->addWidget(table, 1);

    auto *splitter = new QSplitter(this);
    splitter->addWidget(tree);
    splitter->addWidget(middle);
    splitter->addWidget(pane);
    splitter->setStretchFactor(1, 2);
    splitter->setStretchFactor(2, 1);
    splitter->setSizes({ 260, 460, 380 });
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(splitter);

    connect(tree, &FolderTree::selectionChosen, this, &BrowseView::loadDocuments);
    connect(tree, &FolderTree::failed, this, &View::failed);
    connect(pane, &View::failed, this, &View::failed);
    // A saved classification changes the row as well as the details.
    connect(pane, &DetailsPane::documentSaved, this, [this] { loadDocuments(currentConditions); });
}

void BrowseView::setArchive(const QString &archive)
{
    tree->setArchive(archive);
    model->removeRows(0, model->rowCount());
    pane->setDocument(QString());
}

void BrowseView::reload()
{
    connection->call(
        QStringLiteral("getClassificationFields"), QStringLiteral("true"),
        [](ClassifyInterface &client) {
            return Connection::readList(client,
                                        [&] { return client.getClassificationFields(true); });
        },
        this,
        [this](const CallResult &result) {
            if (!result.ok)
                emit failed(QStringLiteral("getClassificationFields"), result.error);
            // Field record: name, label, kind, mandatory, attribute number.
            fieldList.clear();
            for (const QString &record : result.value.toStringList()) {
                const QStringList parts = fields(record);
                Field field;
                field.name = parts.value(0);
                field.label = parts.value(1).isEmpty() ? field.name : parts.value(1);
                field.attribute = parts.value(2) == QLatin1String("attribute");
                field.mandatory = parts.value(3) == QLatin1String("1")
                    || parts.value(3) == QLatin1String("true");
                fieldList << field;
            }
            pane->setFields(fieldList);
            tree->reload();
        });
}

void BrowseView::loadDocuments(const QStringList &conditions)
{
    currentConditions = conditions;
    if (wantedDocument.isEmpty())
        wantedDocument = selectedDocument();
    connection->call(
        QStringLiteral("getDocuments"), conditions.join(QStringLiteral(", ")),
        [conditions](ClassifyInterface &client) {
            return Connection::readList(client, [&] { return client.getDocuments(conditions); });
        },
        this,
        [this](const CallResult &result) {
            if (!result.ok)
                emit failed(QStringLiteral("getDocuments"), result.error);
            showDocuments(result.value.toStringList());
        });
}

void BrowseView::showDocuments(const QStringList &records)
{
    QStringList headers { tr("Id") };
    for (const Field &field : qAsConst(fieldList))
        headers << field.label;
    headers << tr("Revision") << tr("Modified") << tr("Modified by");
    model->clear();
    model->setHorizontalHeaderLabels(headers);
    bool anyAttribute = false;
    for (const QString &record : records) {
        const QStringList parts = fields(record);
        QList<QStandardItem *> row;
        auto *id = new QStandardItem;
        id->setData(parts.value(0).toLongLong(), Qt::DisplayRole);
        row << id;
        for (const Field &field : qAsConst(fieldList)) {
            const int index = field.attribute ? -1 : recordIndex(field.name);
            auto *cell = new QStandardItem(index >= 0 ? parts.value(index) : QString());
            // Folders by name; the key stays in the tool tip.
            if (index == recordIndex(QStringLiteral("folder"))) {
                cell->setToolTip(cell->text());
                cell->setText(tree->folderName(cell->text()));
            }
            row << cell;
            anyAttribute = anyAttribute || field.attribute;
        }
        auto *revision = new QStandardItem;
        revision->setData(parts.value(RevisionField).toLongLong(), Qt::DisplayRole);
        row << revision << new QStandardItem(parts.value(ModifiedField))
            << new QStandardItem(parts.value(ModifiedByField));
        model->appendRow(row);
        if (anyAttribute)
            fillAttributes(parts.value(0));
    }
    table->resizeColumnsToContents();
    const QString wanted = wantedDocument;
    wantedDocument.clear();
    if (!selectDocument(wanted))
        pane->setDocument(QString());
    emit documentsLoaded();
}

void BrowseView::fillAttributes(const QString &id)
{
    connection->call(
        QStringLiteral("getDocumentData"), id,
        [id](ClassifyInterface &client) {
            return Connection::readList(client,
                                        [&] { return client.getDocumentData(id, QString()); });
        },
        this,
        [this, id](const CallResult &result) {
            const QList<QStandardItem *> found = model->findItems(id, Qt::MatchExactly, 0);
            if (found.isEmpty())
                return;
            const int row = found.first()->row();
            for (const QString &entry : result.value.toStringList()) {
                const QStringList parts = fields(entry);
                for (int i = 0; i < fieldList.size(); ++i)
                    if (fieldList.at(i).attribute && fieldList.at(i).name == parts.value(0))
                        model->item(row, i + 1)->setText(parts.value(1));
            }
        });
}

void BrowseView::trashSelected()
{
    const QString id = selectedDocument();
    if (id.isEmpty())
        return;
    connection->call(
        QStringLiteral("moveDocumentsToTrash"), id,
        [id](ClassifyInterface &client) {
            return Connection::fromBool(client, client.moveDocumentsToTrash({ id }));
        },
        this,
        [this, id](const CallResult &result) {
            if (!result.ok) {
                emit failed(QStringLiteral("moveDocumentsToTrash"), result.error);
                return;
            }
            emit documentTrashed(id);
            loadDocuments(currentConditions);
        });
}

bool BrowseView::selectDocument(const QString &id)
{
    if (id.isEmpty())
        return false;
    for (int row = 0; row < proxy->rowCount(); ++row) {
        const QModelIndex index = proxy->index(row, 0);
        if (index.data().toString() == id) {
            // Choosing the row that is already current loads its details
            // again: the reload after a change shows what changed.
            const bool same = table->currentIndex().row() == row;
            table->setCurrentIndex(index);
            if (same)
                onDocumentChosen();
            return true;
        }
    }
    return false;
}

QString BrowseView::selectedDocument() const
{
    const QModelIndex index = table->currentIndex();
    return index.isValid() ? proxy->index(index.row(), 0).data().toString() : QString();
}

void BrowseView::onDocumentChosen()
{
    pane->setDocument(selectedDocument());
}

} // namespace nuvexplorer

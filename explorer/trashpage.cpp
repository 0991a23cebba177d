// SPDX-License-Identifier: Apache-2.0
#include "trashpage.h"

#include "classifyinterface.h"
#include "connection.h"
#include "records.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace nuvexplorer {

TrashPage::TrashPage(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , count(new QLabel(this))
    , numbers(new QLineEdit(this))
    , documents(recordTable(QStringLiteral("trash"), this))
{
    numbers->setObjectName(QStringLiteral("trashNumbers"));
    numbers->setPlaceholderText(tr("Document numbers: 4, 8, 15"));
    auto *show = new QPushButton(tr("&Show"), this);
    auto *trash = new QPushButton(tr("&Move to trash"), this);
    auto *restoreButton = new QPushButton(tr("&Restore"), this);
    connect(show, &QPushButton::clicked, this, &TrashPage::reload);
    connect(numbers, &QLineEdit::returnPressed, this, &TrashPage::reload);
    connect(trash, &QPushButton::clicked, this, &TrashPage::moveToTrash);
    connect(restoreButton, &QPushButton::clicked, this, &TrashPage::restore);
    auto *controls = new QHBoxLayout;
    controls->addWidget(numbers, 1);
    controls->addWidget(show);
    controls->addWidget(trash);
    controls->addWidget(restoreButton);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(count);
    layout->addLayout(controls);
    layout->addWidget(documents, 1);
}

void TrashPage::forget()
{
    shown.clear();
    numbers->clear();
    documents->setRowCount(0);
}

void TrashPage::remember(const QString &id)
{
    if (!shown.contains(id))
        shown << id;
}

QStringList TrashPage::typed()
{
    QStringList list = nameList(numbers->text());
    for (const QString &id : qAsConst(shown))
        if (!list.contains(id))
            list << id;
    return list;
}

void TrashPage::reload()
{
    // The trash holds what the count with it has more than the one without.
    auto counted = [](bool withTrash) {
        return [withTrash](ClassifyInterface &client) {
            const qint64 number = client.getDocumentCount(QString(), withTrash, false);
            return Connection::fromBool(client, number >= 0, number, QString::number(number));
        };
    };
    connection->call(
        QStringLiteral("getDocumentCount"), tr("with the trash"), counted(true), this,
        [this, counted](const CallResult &all) {
            connection->call(
                QStringLiteral("getDocumentCount"), tr("without the trash"), counted(false), this,
                [this, all](const CallResult &outside) {
                    const bool ok = all.ok && outside.ok;
                    const qint64 trashed = all.value.toLongLong() - outside.value.toLongLong();
                    count->setText(
                        ok ? (
                            trashed == 1
                                ? tr("1 document of this archive is in the trash.")
                                : tr("%1 documents of this archive are in the trash.").arg(trashed))
                           : (all.ok ? outside.error : all.error));
                });
        });
    const QStringList ids = typed();
    if (ids.isEmpty()) {
        documents->setRowCount(0);
        emit loaded();
        return;
    }
    connection->call(
        QStringLiteral("getDocuments"), ids.join(QStringLiteral(", ")),
        [ids](ClassifyInterface &client) {
            return Connection::readList(client, [&] { return client.getDocuments(ids); });
        },
        this,
        [this, ids](const CallResult &result) {
            if (!result.ok)
                emit failed(QStringLiteral("getDocuments"), result.error);
            else
                shown = ids;
            // Document record: id, archive, folder, doctype, status, title,
            // date, remark, revision, in trash.
            QStringList rows;
            for (const QString &record : result.value.toStringList()) {
                const QStringList parts = fields(record);
                rows << joinFields({ parts.value(0), parts.value(5), parts.value(2),
                                     parts.value(9) == QLatin1String("1") ? tr("yes") : tr("no"),
                                     parts.value(12), parts.value(13) });
            }
            showRecords(documents,
                        { tr("Id"), tr("Title"), tr("Folder"), tr("In the trash"), tr("Modified"),
                          tr("Modified by") },
                        rows);
            emit loaded();
        });
}

void TrashPage::moveToTrash()
{
    const QStringList ids = nameList(numbers->text());
    if (ids.isEmpty())
        return;
    change(QStringLiteral("moveDocumentsToTrash"), ids.join(QStringLiteral(", ")),
           [ids](ClassifyInterface &client) { return client.moveDocumentsToTrash(ids); });
}

void TrashPage::restore()
{
    QStringList ids = nameList(numbers->text());
    const QString selected = selectedRecord(documents).value(0);
    if (ids.isEmpty() && !selected.isEmpty())
        ids << selected;
    if (ids.isEmpty())
        return;
    change(QStringLiteral("removeDocumentsFromTrash"), ids.join(QStringLiteral(", ")),
           [ids](ClassifyInterface &client) { return client.removeDocumentsFromTrash(ids); });
}

} // namespace nuvexplorer

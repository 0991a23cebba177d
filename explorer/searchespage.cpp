// SPDX-License-Identifier: Apache-2.0
#include "searchespage.h"

#include "classifyinterface.h"
#include "connection.h"
#include "records.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTableWidget>
#include <QVBoxLayout>

namespace nuvexplorer {

namespace {

// Conditions are typed on one line, separated by semicolons.
QStringList conditionList(const QString &text)
{
    QStringList list;
    for (const QString &part : text.split(QLatin1Char(';'), Qt::SkipEmptyParts))
        if (!part.trimmed().isEmpty())
            list << part.trimmed();
    return list;
}

} // namespace

SearchesPage::SearchesPage(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , searches(recordTable(QStringLiteral("searches"), this))
    , results(recordTable(QStringLiteral("searchResults"), this))
    , name(new QLineEdit(this))
    , description(new QLineEdit(this))
    , conditions(new QLineEdit(this))
{
    conditions->setPlaceholderText(tr("title~invoice; date>=2026-01-01"));
    connect(searches, &QTableWidget::cellActivated, this, &SearchesPage::runSearch);

    auto *form = new QFormLayout;
    form->addRow(tr("&Name:"), name);
    form->addRow(tr("&Description:"), description);
    form->addRow(tr("&Conditions:"), conditions);
    auto *create = new QPushButton(tr("&Save search"), this);
    auto *run = new QPushButton(tr("&Run"), this);
    auto *remove = new QPushButton(tr("De&lete"), this);
    connect(create, &QPushButton::clicked, this, &SearchesPage::createSearch);
    connect(run, &QPushButton::clicked, this, &SearchesPage::runSearch);
    connect(remove, &QPushButton::clicked, this, &SearchesPage::deleteSearch);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(run);
    buttons->addWidget(remove);
    buttons->addStretch();
    buttons->addWidget(create);
    form->addRow(buttons);

    auto *top = new QWidget(this);
    auto *topLayout = new QHBoxLayout(top);
    topLayout->setContentsMargins(0, 0, 0, 0);
    topLayout->addWidget(searches, 2);
    topLayout->addLayout(form, 1);
    auto *splitter = new QSplitter(Qt::Vertical, this);
    splitter->addWidget(top);
    splitter->addWidget(results);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(splitter);
}

void SearchesPage::reload()
{
    connection->call(
        QStringLiteral("getExtentedSearch"), tr("all"),
        [](ClassifyInterface &client) {
            return Connection::readList(client,
                                        [&] { return client.getExtentedSearch({ QString() }); });
        },
        this,
        [this](const CallResult &result) {
            if (!result.ok)
                emit failed(QStringLiteral("getExtentedSearch"), result.error);
            // Search record: number, name, description, conditions...; the
            // conditions are shown as one column.
            QStringList rows;
            for (const QString &record : result.value.toStringList()) {
                const QStringList parts = fields(record);
                rows << joinFields(parts.mid(0, 3) << parts.mid(3).join(QStringLiteral("; ")));
            }
            showRecords(searches, { tr("Number"), tr("Name"), tr("Description"), tr("Conditions") },
                        rows);
        });
}

void SearchesPage::createSearch()
{
    const QString searchName = name->text().trimmed();
    const QString text = description->text();
    const QStringList list = conditionList(conditions->text());
    if (searchName.isEmpty())
        return;
    change(QStringLiteral("addExtentedSearch"),
           searchName + QStringLiteral(": ") + list.join(QStringLiteral("; ")),
           [searchName, text, list](ClassifyInterface &client) {
               return client.addExtentedSearch(searchName, text, list);
           });
}

void SearchesPage::runSearch()
{
    const QStringList list = conditionList(selectedRecord(searches).value(3));
    const QString searchName = selectedRecord(searches).value(1);
    if (searchName.isEmpty())
        return;
    connection->call(
        QStringLiteral("getDocuments"), list.join(QStringLiteral(", ")),
        [list](ClassifyInterface &client) {
            return Connection::readList(client, [&] { return client.getDocuments(list); });
        },
        this,
        [this](const CallResult &result) {
            if (!result.ok)
                emit failed(QStringLiteral("getDocuments"), result.error);
            showRecords(results,
                        { tr("Id"), tr("Archive"), tr("Folder"), tr("Document type"), tr("Status"),
                          tr("Title"), tr("Date"), tr("Remark") },
                        result.value.toStringList());
        });
}

void SearchesPage::deleteSearch()
{
    const QString number = selectedRecord(searches).value(0);
    if (number.isEmpty())
        return;
    change(QStringLiteral("deleteExtentedSearch"), number,
           [number](ClassifyInterface &client) { return client.deleteExtentedSearch(number); });
}

} // namespace nuvexplorer

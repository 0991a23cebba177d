// SPDX-License-Identifier: Apache-2.0
#include "clipboardspage.h"

#include "classifyinterface.h"
#include "connection.h"
#include "records.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTableWidget>
#include <QVBoxLayout>

namespace nuvexplorer {

namespace {

QWidget *column(QTableWidget *table, QLayout *controls, QWidget *parent)
{
    auto *widget = new QWidget(parent);
    auto *layout = new QVBoxLayout(widget);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(table, 1);
    layout->addLayout(controls);
    return widget;
}

} // namespace

ClipboardsPage::ClipboardsPage(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , clipboards(recordTable(QStringLiteral("clipboards"), this))
    , cards(recordTable(QStringLiteral("cards"), this))
    , name(new QLineEdit(this))
    , card(new QLineEdit(this))
    , cardText(new QLineEdit(this))
{
    name->setPlaceholderText(tr("Name of a new clipboard"));
    card->setPlaceholderText(tr("Document number"));
    cardText->setPlaceholderText(tr("Note"));
    connect(clipboards, &QTableWidget::currentCellChanged, this, &ClipboardsPage::loadCards);

    auto *add = new QPushButton(tr("&New clipboard"), this);
    auto *remove = new QPushButton(tr("Re&move clipboard"), this);
    connect(add, &QPushButton::clicked, this, &ClipboardsPage::addClipboard);
    connect(name, &QLineEdit::returnPressed, this, &ClipboardsPage::addClipboard);
    connect(remove, &QPushButton::clicked, this, &ClipboardsPage::removeClipboard);
    auto *boardControls = new QHBoxLayout;
    boardControls->addWidget(name, 1);
    boardControls->addWidget(add);
    boardControls->addWidget(remove);

    auto *addCardButton = new QPushButton(tr("&Add card"), this);
    auto *removeCardButton = new QPushButton(tr("Remove car&d"), this);
    connect(addCardButton, &QPushButton::clicked, this, &ClipboardsPage::addCard);
    connect(removeCardButton, &QPushButton::clicked, this, &ClipboardsPage::removeCard);
    auto *cardControls = new QHBoxLayout;
    cardControls->addWidget(card);
    cardControls->addWidget(cardText, 1);
    cardControls->addWidget(addCardButton);
    cardControls->addWidget(removeCardButton);

    auto *splitter = new QSplitter(this);
    splitter->addWidget(column(clipboards, boardControls, this));
    splitter->addWidget(column(cards, cardControls, this));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(splitter);
}

QString ClipboardsPage::selectedKey() const
{
    return selectedRecord(clipboards).value(0);
}

bool ClipboardsPage::selectClipboard(const QString &clipboardName)
{
    for (int row = 0; row < clipboards->rowCount(); ++row) {
        if (clipboards->item(row, 1)->text() == clipboardName) {
            clipboards->setCurrentCell(row, 0);
            return true;
        }
    }
    return false;
}

void ClipboardsPage::reload()
{
    if (!selectedKey().isEmpty())
        wanted = selectedRecord(clipboards).value(1);
    connection->call(
        QStringLiteral("readClipboards"), QString(),
        [](ClassifyInterface &client) {
            QList<QPair<QString, QString>> pairs;
            const bool ok = client.readClipboards(pairs);
            QStringList rows;
            for (const auto &pair : qAsConst(pairs))
                rows << joinFields({ pair.first, pair.second });
            return Connection::fromBool(client, ok, rows);
        },
        this,
        [this](const CallResult &result) {
            if (!result.ok)
                emit failed(QStringLiteral("readClipboards"), result.error);
            showRecords(clipboards, { tr("Key"), tr("Clipboard") }, result.value.toStringList());
            if (!selectClipboard(wanted))
                loadCards();
        });
}

void ClipboardsPage::loadCards()
{
    const QString key = selectedKey();
    if (key.isEmpty()) {
        cards->setRowCount(0);
        return;
    }
    connection->call(
        QStringLiteral("readClipboardCards"), key,
        [key](ClassifyInterface &client) {
            QList<QString> names;
            QList<QString> texts;
            const bool ok = client.readClipboardCards(key, names, texts);
            QStringList rows;
            for (int i = 0; i < names.size(); ++i)
                rows << joinFields({ names.at(i), texts.value(i) });
            return Connection::fromBool(client, ok, rows);
        },
        this,
        [this, key](const CallResult &result) {
            if (key != selectedKey())
                return;
            if (!result.ok)
                emit failed(QStringLiteral("readClipboardCards"), result.error);
            showRecords(cards, { tr("Card"), tr("Note") }, result.value.toStringList());
        });
}

void ClipboardsPage::addClipboard()
{
    const QString newName = name->text().trimmed();
    if (newName.isEmpty())
        return;
    wanted = newName;
    connection->call(
        QStringLiteral("addClipboard"), newName,
        [newName](ClassifyInterface &client) {
            const QString key = client.addClipboard(newName);
            return Connection::fromBool(client, !key.isNull(), key, key);
        },
        this,
        [this](const CallResult &result) {
            if (!result.ok)
                emit failed(QStringLiteral("addClipboard"), result.error);
            else
                name->clear();
            reload();
        });
}

void ClipboardsPage::removeClipboard()
{
    const QString key = selectedKey();
    if (key.isEmpty())
        return;
    change(QStringLiteral("removeClipboard"), key,
           [key](ClassifyInterface &client) { return client.removeClipboard(key); });
}

void ClipboardsPage::addCard()
{
    const QString key = selectedKey();
    const QString document = card->text().trimmed();
    const QString note = cardText->text();
    if (key.isEmpty() || document.isEmpty())
        return;
    change(QStringLiteral("addClipboardCard"), key + QStringLiteral(": ") + document,
           [key, document, note](ClassifyInterface &client) {
               return client.addClipboardCard(key, document, note);
           });
}

void ClipboardsPage::removeCard()
{
    const QString key = selectedKey();
    const QString document = selectedRecord(cards).value(0);
    if (key.isEmpty() || document.isEmpty())
        return;
    change(QStringLiteral("removeClipboardCard"), key + QStringLiteral(": ") + document,
           [key, document](ClassifyInterface &client) {
               return client.removeClipboardCard(key, document);
           });
}

} // namespace nuvexplorer

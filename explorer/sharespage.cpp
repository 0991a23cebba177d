// SPDX-License-Identifier: Apache-2.0
#include "sharespage.h"

#include "classifyinterface.h"
#include "connection.h"
#include "records.h"

#include <QDateTimeEdit>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTableWidget>
#include <QVBoxLayout>

namespace nuvexplorer {

SharesPage::SharesPage(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , shares(recordTable(QStringLiteral("shares"), this))
    , title(new QLineEdit(this))
    , documents(new QLineEdit(this))
    , recipient(new QLineEdit(this))
    , expiry(new QDateTimeEdit(QDateTime::currentDateTime().addDays(30), this))
    , limit(new QSpinBox(this))
{
    documents->setPlaceholderText(tr("Document numbers: 4, 8, 15"));
    recipient->setPlaceholderText(tr("someone@example.org"));
    expiry->setCalendarPopup(true);
    expiry->setMinimumDateTime(QDateTime::currentDateTime());
    limit->setRange(0, 1000000);
    limit->setSpecialValueText(tr("unlimited"));

    auto *form = new QFormLayout;
    form->addRow(tr("&Title:"), title);
    form->addRow(tr("&Documents:"), documents);
    form->addRow(tr("&Recipient:"), recipient);
    form->addRow(tr("&Expires:"), expiry);
    form->addRow(tr("Access &limit:"), limit);
    auto *create = new QPushButton(tr("&Share"), this);
    auto *remove = new QPushButton(tr("De&lete share"), this);
    connect(create, &QPushButton::clicked, this, &SharesPage::createShare);
    connect(remove, &QPushButton::clicked, this, &SharesPage::deleteShare);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(remove);
    buttons->addStretch();
    buttons->addWidget(create);
    form->addRow(buttons);
    auto *layout = new QHBoxLayout(this);
    layout->addWidget(shares, 2);
    layout->addLayout(form, 1);
}

void SharesPage::reload()
{
    connection->call(
        QStringLiteral("getShares"), QString(),
        [](ClassifyInterface &client) {
            return Connection::readList(client, [&] { return client.getShares(); });
        },
        this,
        [this](const CallResult &result) {
            if (!result.ok)
                emit failed(QStringLiteral("getShares"), result.error);
            showRecords(shares,
                        { tr("Key"), tr("Title"), tr("Recipient"), tr("Expires"),
                          tr("Access limit"), tr("Owner"), tr("Documents") },
                        result.value.toStringList());
        });
}

void SharesPage::createShare()
{
    const QString shareTitle = title->text();
    const QStringList ids = nameList(documents->text());
    const QString to = recipient->text().trimmed();
    const QDateTime until = expiry->dateTime();
    const int most = limit->value();
    connection->call(
        QStringLiteral("addShare"),
        tr("%1 to %2 until %3")
            .arg(ids.join(QStringLiteral(", ")), to, until.toString(Qt::ISODate)),
        [shareTitle, ids, to, until, most](ClassifyInterface &client) {
            const QString key = client.addShare(shareTitle, ids, to, until, most);
            return Connection::fromBool(client, !key.isNull(), key, key);
        },
        this,
        [this](const CallResult &result) {
            if (!result.ok)
                emit failed(QStringLiteral("addShare"), result.error);
            reload();
        });
}

void SharesPage::deleteShare()
{
    const QString key = selectedRecord(shares).value(0);
    if (key.isEmpty())
        return;
    change(QStringLiteral("deleteShare"), key,
           [key](ClassifyInterface &client) { return client.deleteShare(key); });
}

} // namespace nuvexplorer
